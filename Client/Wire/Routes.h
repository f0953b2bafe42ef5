#pragma once

#include <array>
#include <string_view>

/// The routing table: which service answers which path, and by which methods. A service registers its handlers by its
/// row, and the HTTP server asks the services in the order of this table: the first expression that matches decides.
namespace VantryLocalHub::Routes {

/// One handler of a service. With a selector it answers only where the capture group of the row holds that text; such
/// handlers are asked before the one without.
struct Handler
{
    std::string_view mMethod;
    std::string_view mSelector;  ///< empty: any path of the service
    bool mLongPoll = false;      ///< a GET that can wait for a change
};

constexpr std::size_t kMaxHandlers = 16;

struct Service
{
    std::string_view mName;
    std::string_view mExpression;  ///< matched against the path of the URL
    int mSelectorGroup = 0;        ///< capture group of the selector; 0: the service has none
    int mProductionGroup = 0;      ///< capture group of the production; both 0: a symbolic head is not redirected
    int mRevisionGroup = 0;        ///< capture group of the revision
    std::array<Handler, kMaxHandlers> mHandlers;  ///< ends with the first that has no method

    [[nodiscard]] constexpr std::size_t CountHandlers() const
    {
        std::size_t count = 0;
        while (count < mHandlers.size() && !mHandlers[count].mMethod.empty()) {
            ++count;
        }
        return count;
    }
    [[nodiscard]] constexpr const Handler* begin() const { return mHandlers.data(); }
    [[nodiscard]] constexpr const Handler* end() const { return mHandlers.data() + CountHandlers(); }
};

constexpr Handler Get(std::string_view inSelector = {})
{
    return {"GET", inSelector};
}
constexpr Handler LongPoll(std::string_view inSelector = {})
{
    return {"GET", inSelector, true};
}
constexpr Handler Post(std::string_view inSelector = {})
{
    return {"POST", inSelector};
}
constexpr Handler Put(std::string_view inSelector = {})
{
    return {"PUT", inSelector};
}
constexpr Handler Delete(std::string_view inSelector = {})
{
    return {"DELETE", inSelector};
}
constexpr Handler Patch(std::string_view inSelector = {})
{
    return {"PATCH", inSelector};
}
constexpr Handler Head(std::string_view inSelector = {})
{
    return {"HEAD", inSelector};
}

// Service, expression, groups of selector, production and revision, handlers.
// clang-format off
inline constexpr auto kServices = std::to_array<Service>({
    {"ArchivedProductionsService", "^/api/archives$", 0, 0, 0, {{Get()}}},
    {"ArchivedProductionService", "^/api/archive/([\\w\\-\\*]+)/([\\w]+)$", 2, 0, 0,
     {{Post("restore"), Delete("delete")}}},
    {"AssetService", "^/api/asset/([\\w\\-]+)/([\\w\\-]+)/([\\w\\-]+)/?([\\w]+)?/?([\\.\\w\\-]+)?$", 4, 1, 2,
     {{Get(), Get("enclosureByContentId"), Get("enclosures"), Get("enclosureById"), Post("restore"),
       Post("restoreFromProduction"), Put("properties")}}},
    {"AssetsService", "^/api/assets/([\\w\\-]+)/([\\w\\-]+)/?([\\w]+)?/?([\\w\\-]+)?$", 0, 1, 2, {{Get()}}},
    {"CollaboratorsService", "^/api/collaborators/([\\w\\-\\*]+)([\\w\\%\\?\\-\\=\\.\\/]+)?$", 0, 0, 0,
     {{Get(), Post()}}},
    {"CollaboratorsActivityService", "^/api/activity/([\\w\\-\\*]+)$", 0, 0, 0, {{Get()}}},
    {"CollaboratorsPresenceService", "^/api/presence/([\\w\\-\\*]+)$", 0, 0, 0, {{LongPoll()}}},
    {"CurrentUserService", "^/api/user/([\\w\\-\\@\\.\\%]+)/([\\w]+)/?([\\w\\-]+)?/?([\\.\\w\\-]+)?$", 2, 0, 0,
     {{Get(), Get("currentUser"), Post(), Put()}}},
    {"DifferencesService", "^/api/differences/([\\w\\-\\*]+)/([\\w\\-]+)/([\\w\\-]+)$", 0, 1, 3, {{Get()}}},
    {"ErrorsService", "^/api/errors/([\\w]+)/?([%\\.\\w\\-]+)?$", 1, 0, 0, {{LongPoll("all")}}},
    {"HistoryService", "^/api/history/([\\w\\-]+)$", 0, 0, 0, {{Get()}}},
    {"InvitesService", "^/api/invites([\\w\\%\\?\\-\\=\\.\\/]+)?$", 0, 0, 0, {{Get(), Post(), Delete(), Patch()}}},
    {"JobsService", "^/api/jobs/([\\w]+)/?([\\.\\w\\-\\*]+)?/?([%\\.\\w\\-]+)?/?([\\w]+)?$", 1, 0, 0,
     {{Get("detail"), Get("list"), Get("types"), Post("control"), Put("detail")}}},
    {"MediaLocatorsService", "^/api/medialocators/([\\w\\-]+)/([\\w]+)/?([%\\.\\w\\-]+)?$", 2, 0, 0,
     {{Get("all"), Get("byMediaLocatorId"), Post("all"), Post("bulkCreate"), Post("bulkCreateByLastModified"),
       Post("bulkDelete"), Put("byMediaLocatorId"), Put("bulkUpdate")}}},
    {"PosterFrameService", "^/api/poster/([\\w\\-\\*]+)/?([\\w]+)?$", 2, 0, 0, {{Get(), Get("rendition"), Post()}}},
    {"ProductionsService", "^/api/productions$", 0, 0, 0, {{Get(), Post()}}},
    {"ProductionService", "^/api/production/([\\w\\-\\*]+)/([\\w\\-]+)/?([\\w]+)?/?([\\.\\w\\-]+)?$", 3, 1, 2,
     {{Get(), Head(), Delete(), Post("copy"), Post("archive"), Post("migrate"), Post("rollback"), Post("compact"),
       Get("enclosures"), Get("enclosure"), Get("enclosureByContentId"), Get("properties"), Get("sizeof"),
       Put("properties"), Post("properties"), Delete("properties")}}},
    {"RopeFileService", "^/api/ropeFile/([\\w]+)?/?([\\.\\w\\-]+)?/?([\\.\\w\\-]+)?$", 1, 0, 0,
     {{Post("open"), Post("copyTo"), Post("close"), Post("setSyncMode")}}},
    {"RemoteLoginService", "^/api/remoteLog(in|out)$", 1, 0, 0, {{Post("in"), Post("out"), LongPoll("in")}}},
    {"ResolveService", "^/api/resolve/([\\w\\-]+)/([\\w]+)/([\\.\\w\\-]+)/([\\w\\-]+)$", 2, 0, 0,
     {{Post("asset"), Post("enclosure"), Post("properties"), Post("session"), Post("bulk")}}},
    {"RootService", ".*discovery.*", 0, 0, 0, {{Get()}}},
    {"SessionsService", "^/api/sessions/([\\w\\-\\*]+)$", 0, 0, 0, {{Get(), Post()}}},
    {"SessionStatusService", "^/api/session/status/([\\w\\-\\*]+)$", 0, 0, 0, {{LongPoll()}}},
    {"ShareService", "^/api/share/([\\w\\-]+)/?([\\w]+)?$", 2, 0, 0,
     {{Get("incoming"), Get("outgoing"), Post("pull"), Post("push")}}},
    {"SnapshotService", "^/api/snapshot/([\\w]+)?/?([\\.\\w\\-]+)?/?([\\.\\w\\-]+)?$", 1, 0, 0,
     {{Post("open"), Post("take"), Post("close"), Post("apply")}}},
    {"SyncControlService", "^/api/sync/control/([\\w]+)/?([%\\.\\w\\-]+)?$", 1, 0, 0,
     {{Post("sync"), Post("polling"), Post("clientAppState")}}},
    {"SyncStatusService", "^/api/sync/status/([\\w]+)/?([%\\.\\w\\-]+)?$", 1, 0, 0,
     {{Get("server"), Get("session"), LongPoll("all")}}},
    {"TemplateService", "^/api/template/([\\w]+)?/?([\\.\\w\\-]+)?$", 1, 0, 0,
     {{Get("list"), Get("template"), Get("collaborators"), Get("recipients"), Post("createTemplate"),
       Post("createSession")}}},
    {"TransactionService", "^/api/transaction/([\\w\\-]+)/?([\\w]+)?$", 2, 0, 0,
     {{Get(), Post("commit"), Post("bulkCreate"), Post("bulkEdit"), Post("bulkDelete"), Post("bulkPreflight"),
       Post("rollback"), Put("bulkEdit")}}},
    {"TransactionsService", "^/api/transactions/([\\w\\-]+)/([\\w\\-]+)$", 0, 0, 0, {{Get(), Post()}}},
    {"ProductionBatonService", "^/api/batons/([\\w\\-]+)$", 0, 0, 0, {{LongPoll(), Post()}}},
    {"PreferencesService", "^/api/preferences/([a-zA-Z]+)$", 1, 0, 0, {{Post("save"), Get("read")}}},
});
// clang-format on

/// The row of a service; null for a name that is none.
[[nodiscard]] constexpr const Service* FindService(std::string_view inName)
{
    for (const auto& service : kServices) {
        if (service.mName == inName) {
            return &service;
        }
    }
    return nullptr;
}

}  // namespace VantryLocalHub::Routes

#pragma once

#include <array>
#include <string_view>

#include "Client/Wire/Operations/ContentOperations.h"
#include "Client/Wire/Operations/FileOperations.h"
#include "Client/Wire/Operations/PeopleOperations.h"
#include "Client/Wire/Operations/ProductionOperations.h"
#include "Client/Wire/Operations/SyncOperations.h"

/// The whole description of the API.
namespace VantryLocalHub::API {

/// Version of the API, major and minor, as discovery tells it.
inline constexpr std::string_view kVersion = "1.0";

/// In the order in which a reader meets them.
inline constexpr auto kResources = std::to_array<Resource>({
    {"RootService", "Discovery", "Any path with the word `discovery` in it answers this.", kDiscoveryOperations},
    {"ProductionsService", "Productions", {}, kProductionsOperations},
    {"ProductionService", "One production", {}, kProductionOperations},
    {"SessionsService", "Sessions", {}, kSessionsOperations},
    {"SessionStatusService", "Session status", {}, kSessionStatusOperations},
    {"AssetsService", "Assets", {}, kAssetsOperations},
    {"AssetService", "One asset", {}, kAssetOperations},
    {"TransactionsService", "Transactions", {}, kTransactionsOperations},
    {"TransactionService", "One transaction", {}, kTransactionOperations},
    {"MediaLocatorsService", "Media locators",
     "Where the media of a session lie. They have no history and need no transaction.", kMediaLocatorsOperations},
    {"PosterFrameService", "Poster frame", {}, kPosterFrameOperations},
    {"HistoryService", "History", {}, kHistoryOperations},
    {"DifferencesService", "Differences", {}, kDifferencesOperations},
    {"ResolveService", "Conflicts", {}, kResolveOperations},
    {"ShareService", "Sharing", {}, kShareOperations},
    {"JobsService", "Jobs", {}, kJobsOperations},
    {"SyncStatusService", "Sync status", {}, kSyncStatusOperations},
    {"SyncControlService", "Sync control", "Keys may stand in the form or in the query.", kSyncControlOperations},
    {"ErrorsService", "Complaints", {}, kErrorsOperations},
    {"RopeFileService", "Single-file projects", {}, kRopeFileOperations},
    {"SnapshotService", "Snapshots", {}, kSnapshotOperations},
    {"TemplateService", "Templates", {}, kTemplateOperations},
    {"PreferencesService", "Preferences", {}, kPreferencesOperations},
    {"RemoteLoginService", "Remote login", {}, kRemoteLoginOperations},
    {"CurrentUserService", "User", {}, kCurrentUserOperations},
    {"CollaboratorsService", "Collaborators", {}, kCollaboratorsOperations},
    {"CollaboratorsActivityService", "Activity", {}, kActivityOperations},
    {"CollaboratorsPresenceService", "Presence", {}, kPresenceOperations},
    {"InvitesService", "Invitations", {}, kInvitesOperations},
    {"ProductionBatonService", "Batons", {}, kBatonOperations},
    {"ArchivedProductionsService", "Archive", {}, kArchivedProductionsOperations},
    {"ArchivedProductionService", "Archived production", {}, kArchivedProductionOperations},
});

/// Records that no operation names, nor any record that one names; what they hold is not listed.
struct OtherRecord
{
    std::string_view mRecord;
    std::string_view mWhy;
};

template <class Record>
constexpr OtherRecord Other(std::string_view inWhy)
{
    return {dto::RecordName<Record>::kText, inWhy};
}

inline constexpr auto kOtherRecords = std::to_array<OtherRecord>({
    Other<dto::AssetProperties>(
        "Keys of an asset's `properties` that the hub and its servers know; there may be more."),
    Other<dto::MediaLocatorProperties>("Keys of a media locator's `properties`."),
    Other<dto::CMSLink>("A part of the `properties` of applications."),
    Other<dto::FileTypeList>("A part of the `properties` of applications."),
    Other<dto::CommitMetadata>("Message of a commit that the hub makes of its own, or sends to a server."),
    Other<dto::ConflictMarker>("What a session keeps about one thing that is in conflict."),
    Other<dto::SessionSyncStatus>("How far a session has been exchanged with its server."),
    Other<dto::LoginError>("Why a server refused a login."),
});

}  // namespace VantryLocalHub::API

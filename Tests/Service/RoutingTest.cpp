#include <algorithm>

#include "Client/Wire/URLTemplates.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Tests/Service/ServiceFixture.h"

namespace service_test {

namespace {

/// Path prefix of a template, and the service that its resource belongs to. The longest prefix decides.
constexpr std::pair<std::string_view, std::string_view> kOwners[] = {
    {"/api/activity/", "CollaboratorsActivityService"},
    {"/api/archive/", "ArchivedProductionService"},
    {"/api/archives", "ArchivedProductionsService"},
    {"/api/asset/", "AssetService"},
    {"/api/assets/", "AssetsService"},
    {"/api/batons/", "ProductionBatonService"},
    {"/api/collaborators/", "CollaboratorsService"},
    {"/api/differences/", "DifferencesService"},
    {"/api/errors/", "ErrorsService"},
    {"/api/history/", "HistoryService"},
    {"/api/invites", "InvitesService"},
    {"/api/jobs/", "JobsService"},
    {"/api/medialocators/", "MediaLocatorsService"},
    {"/api/poster/", "PosterFrameService"},
    {"/api/preferences/", "PreferencesService"},
    {"/api/presence/", "CollaboratorsPresenceService"},
    {"/api/production/", "ProductionService"},
    {"/api/productions", "ProductionsService"},
    {"/api/remoteLog", "RemoteLoginService"},
    {"/api/resolve/", "ResolveService"},
    {"/api/ropeFile/", "RopeFileService"},
    {"/api/session/status/", "SessionStatusService"},
    {"/api/sessions/", "SessionsService"},
    {"/api/share/", "ShareService"},
    {"/api/snapshot/", "SnapshotService"},
    {"/api/sync/control/", "SyncControlService"},
    {"/api/sync/status/", "SyncStatusService"},
    {"/api/template/", "TemplateService"},
    {"/api/transaction/", "TransactionService"},
    {"/api/transactions/", "TransactionsService"},
    {"/api/user/", "CurrentUserService"},
    {"/api/v1/discovery", "RootService"},
};

std::string_view OwnerOf(std::string_view inTemplate)
{
    std::string_view owner;
    std::size_t longest = 0;
    for (const auto& [prefix, service] : kOwners) {
        if (!inTemplate.starts_with(prefix) || prefix.size() <= longest) continue;
        owner = service;
        longest = prefix.size();
    }
    return owner;
}

/// The path that a client makes of a template.
std::string FillIn(std::string_view inTemplate)
{
    std::string path(inTemplate.substr(0, inTemplate.find('?')));
    for (auto place = path.find("%s"); place != std::string::npos; place = path.find("%s"))
        path.replace(place, 2, "id-1");
    for (auto place = path.find('{'); place != std::string::npos; place = path.find('{'))
        path.replace(place, path.find('}') - place + 1, "id-2");
    return path;
}

class RoutingTest : public ServiceFixture
{
protected:
    void SetUp() override
    {
        RegisterAll();
        ProjectBox::SetInstance(nullptr);  // every handler that needs the store or the engine answers 500
        SyncBox::SetInstance(nullptr);
    }

    /// The first service that takes a path, and the groups it finds.
    std::string_view FindService(std::string_view inPath, std::vector<std::string_view>& outGroups)
    {
        for (const auto& service : mServices)
            if (service->Expression().Match(inPath, outGroups)) return service->Route().mName;
        return {};
    }
};

TEST_F(RoutingTest, ServicesAreRegisteredInTheOrderThatDecides)
{
    constexpr std::string_view kOrder[] = {"ArchivedProductionsService",
                                           "ArchivedProductionService",
                                           "AssetService",
                                           "AssetsService",
                                           "CollaboratorsService",
                                           "CollaboratorsActivityService",
                                           "CollaboratorsPresenceService",
                                           "CurrentUserService",
                                           "DifferencesService",
                                           "ErrorsService",
                                           "HistoryService",
                                           "InvitesService",
                                           "JobsService",
                                           "MediaLocatorsService",
                                           "PosterFrameService",
                                           "ProductionsService",
                                           "ProductionService",
                                           "RopeFileService",
                                           "RemoteLoginService",
                                           "ResolveService",
                                           "RootService",
                                           "SessionsService",
                                           "SessionStatusService",
                                           "ShareService",
                                           "SnapshotService",
                                           "SyncControlService",
                                           "SyncStatusService",
                                           "TemplateService",
                                           "TransactionService",
                                           "TransactionsService",
                                           "ProductionBatonService",
                                           "PreferencesService"};
    ASSERT_EQ(std::size(kOrder), mServices.size());
    for (std::size_t i = 0; i < mServices.size(); ++i) {
        EXPECT_EQ(kOrder[i], mServices[i]->Route().mName);
        EXPECT_EQ(mServices[i]->Route().mExpression, mServer.mOrder[i]);
    }
}

TEST_F(RoutingTest, EachTemplateReachesTheServiceMeantForIt)
{
    for (const std::string_view text : VYCL::URLTemplate::kAll) {
        const std::string path = FillIn(text);
        std::vector<std::string_view> groups;
        EXPECT_EQ(OwnerOf(text), FindService(path, groups)) << text << " as " << path;
    }
}

TEST_F(RoutingTest, EachRowOfTheTableHasItsHandler)
{
    for (const auto& service : mServices) {
        const Routes::Service& route = service->Route();
        for (const Routes::Handler& handler : route) {
            auto request = noxnet::http::server::MakeRequest(handler.mMethod, "/x", {}, nullptr);
            request->MutableMatch().assign(10, "x");
            if (route.mSelectorGroup != 0 && !handler.mSelector.empty())
                request->MutableMatch()[static_cast<std::size_t>(route.mSelectorGroup)] = handler.mSelector;
            service->FulfillResource(request, std::make_shared<noxnet::http::server::MutableResponse>(),
                                     [](const ResponsePtr&) {});
            EXPECT_EQ(0U, LogCount("Method not implemented"))
                << route.mName << " " << handler.mMethod << " " << handler.mSelector;
            mLog->Clear();
        }
    }
}

TEST_F(RoutingTest, AMethodThatAServiceHasNotIsNotImplemented)
{
    EXPECT_EQ(501, Send("PUT", "/api/history/p-1").Status());
    EXPECT_EQ(1U, LogCount("Method not implemented"));
}

TEST_F(RoutingTest, ServicesWithoutStoreAndEngineAnswerInternalServerError)
{
    for (const std::string path :
         {"/api/productions", "/api/sessions/p-1", "/api/production/p-1/c", "/api/production/p-1/c/properties",
          "/api/production/p-1/-/sizeof", "/api/production/p-1/c/enclosures", "/api/production/p-1/c/enclosure/e",
          "/api/production/p-1/-/enclosureByContentId/h", "/api/assets/p-1/c", "/api/asset/p-1/c/a",
          "/api/asset/p-1/c/a/enclosures", "/api/asset/p-1/c/a/enclosureById/e",
          "/api/asset/p-1/c/a/enclosureByContentId/e", "/api/transactions/p-1/c", "/api/transaction/t"})
        EXPECT_EQ(500, Send("GET", path).Status()) << path;
    for (const std::string path :
         {"/api/productions", "/api/sessions/p-1", "/api/production/p-1/c/copy", "/api/production/p-1/c/archive",
          "/api/production/p-1/c/migrate", "/api/production/p-1/-/rollback/c", "/api/production/p-1/-/compact",
          "/api/production/p-1/c/properties", "/api/asset/p-1/HEAD/a/restore/h",
          "/api/asset/p-1/HEAD/a/restoreFromProduction", "/api/transactions/p-1/c", "/api/transaction/t/commit",
          "/api/transaction/t/bulkCreate", "/api/transaction/t/bulkEdit", "/api/transaction/t/bulkDelete",
          "/api/transaction/t/bulkPreflight", "/api/transaction/t/rollback"})
        EXPECT_EQ(500, Send("POST", path, "{}").Status()) << path;
    EXPECT_EQ(500, Send("DELETE", "/api/production/p-1/c").Status());
}

TEST_F(RoutingTest, APathThatFitsNoExpressionIsNotFoundAndEmpty)
{
    for (const std::string path : {"/", "/api", "/api/production", "/api/production/p%20x/c", "/api/asset/p/c/%FF%00",
                                   "/api/transactions/p/c/d", "/api/sessions/../p"}) {
        const auto answer = Send("GET", path);
        EXPECT_EQ(404, answer.Status()) << path;
        EXPECT_EQ("", answer.Body());
    }
}

TEST_F(RoutingTest, EarlierExpressionsDecideBeforeDiscovery)
{
    std::vector<std::string_view> groups;
    EXPECT_EQ("RootService", FindService("/somewhere/discovery/else", groups));
    EXPECT_EQ("ProductionService", FindService("/api/production/discovery/HEAD", groups));
    EXPECT_EQ("RootService", FindService("/api/sessions/discovery", groups));
}

TEST_F(RoutingTest, ARequestWithoutHostLeavesOneRecordHoweverManyLinksItsAnswerHas)
{
    EXPECT_EQ(500, Send("GET", "/api/v1/discovery", {}, {}).Status());
    EXPECT_EQ(1U, LogCount("Request does not have a HOST"));
    mLog->Clear();
    ProjectBox::SetInstance(mStore);
    SyncBox::SetInstance(mSync);
    EXPECT_CALL(*mStore, GetSessionsOfProduction(ImmutableString("p-1")))
        .WillOnce(Return(std::vector(10, MakeSession())));
    EXPECT_EQ(500, Send("GET", "/api/sessions/p-1", {}, {}).Status());
    EXPECT_EQ(1U, LogCount("Request does not have a HOST"));
}

TEST_F(RoutingTest, DiscoveryIsAnsweredAtOnceUnlessItIsAnError)
{
    const auto root = std::find_if(mServices.begin(), mServices.end(),
                                   [](const auto& inService) { return inService->Route().mName == "RootService"; });
    ASSERT_NE(mServices.end(), root);
    const auto answersAtOnce = [&](const HeaderList& inHeaders) {
        return (*root)->AnswersAtOnce(*noxnet::http::server::MakeRequest("GET", "/discovery", inHeaders, nullptr));
    };
    EXPECT_TRUE(answersAtOnce(kHost));
    EXPECT_FALSE(answersAtOnce({}));
}

TEST_F(RoutingTest, TheRevisionIsThatOfItsGroup)
{
    ProjectBox::SetInstance(mStore);
    EXPECT_CALL(*mStore, GetProduction(ImmutableString("p"), ImmutableString("HEAD"), _))
        .Times(3)
        .WillRepeatedly(DoAll(SetArgReferee<2>(MakeSession("feed")), Return(200)));
    const std::pair<const char*, const char*> redirects[] = {{"/api/differences/p/c/HEAD", "/api/differences/p/c/feed"},
                                                             {"/api/assets/p/HEAD", "/api/assets/p/feed"},
                                                             {"/api/asset/p/HEAD/a", "/api/asset/p/feed/a"}};
    for (const auto& [from, to] : redirects) {
        const auto answer = Send("GET", from);
        EXPECT_EQ(307, answer.Status()) << from;
        EXPECT_EQ(to, answer.Header("Location"));
    }
    EXPECT_CALL(*mStore, GetProduction(ImmutableString("HEAD"), _, _)).WillOnce(Return(404));
    for (const char* other : {"/api/differences/p/HEAD/c", "/api/differences/HEAD/c/c", "/api/history/HEAD"})
        EXPECT_NE(307, Send("GET", other).Status()) << other;
}

TEST_F(RoutingTest, TheLimitsOfDiscoveryAreThoseOfTheServer)
{
    const std::string prefix = "VY.Config.LocalHub.HTTP.";
    noxcore::debug::DebugDatabase::Instance()->SetEntry(prefix + "MaxBodyBytes", "5000");
    noxcore::debug::DebugDatabase::Instance()->SetEntry(prefix + "MaxFormFields", "70");
    const auto services = MakeAllServices();
    const auto root = std::find_if(services.begin(), services.end(),
                                   [](const auto& inService) { return inService->Route().mName == "RootService"; });
    (*root)->Register(mServer);
    mServer.mRouter->Unregister((*root)->Expression());  // the first of the two
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/v1/discovery").Body()));
    const auto limits = body.Root()["limits"].Children();
    ASSERT_EQ(3U, limits.size());
    EXPECT_EQ("\"GET\"", limits[0]["method"].Raw());
    EXPECT_EQ("0", limits[0]["max_payload_per_request"].Raw());
    for (const auto& limit : {limits[1], limits[2]}) {
        EXPECT_EQ("5000", limit["max_payload_per_request"].Raw());
        EXPECT_EQ("70", limit["max_elements_per_bulk_request"].Raw());
    }
}

TEST_F(RoutingTest, APathElementOfTenThousandCharactersIsServedWithoutHarm)
{
    const std::string longName(10000, 'a');
    ProjectBox::SetInstance(mStore);
    EXPECT_CALL(*mStore, GetTransaction(ImmutableString(longName), _)).WillOnce(Return(404));
    EXPECT_EQ(404, Send("GET", "/api/transaction/" + longName).Status());
    EXPECT_CALL(*mStore, GetTransaction(ImmutableString(longName), _)).WillOnce(Return(200));
    EXPECT_EQ(500, Send("GET", "/api/transaction/" + longName).Status());
    EXPECT_NE(0U, LogCount("URL too long"));
}

}  // namespace

}  // namespace service_test

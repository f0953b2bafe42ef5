#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/ComplaintBox.h"
#include "Inc/Service/ApplicationVersion.h"
#include "Inc/Service/Resources.h"
#include "Tests/Service/ServiceFixture.h"

namespace service_test {

namespace {

namespace Relation = VYCL::LinkRelation;
using testing::InvokeArgument;

constexpr std::string_view kRelations = "https://ns.corvane.example/rel";
constexpr const char* kBase = "http://127.0.0.1:7777";

class ProductionServicesTest : public ServiceFixture
{
protected:
    void SetUp() override { RegisterAll(); }

    void StoreHasProduction(const dto::Session& inProduction, const char* inRevision = "HEAD")
    {
        EXPECT_CALL(*mStore, GetProduction(ImmutableString("p-1"), ImmutableString(inRevision), _))
            .WillRepeatedly(DoAll(SetArgReferee<2>(inProduction), Return(200)));
    }
    /// Session "session-1" is there, and transaction "t-1" of the given session.
    void StoreHasTransaction(const char* inSessionID)
    {
        dto::TransactionResource transaction;
        transaction.mSessionID = inSessionID;
        EXPECT_CALL(*mStore, GetSession(ImmutableString("p-1"), _))
            .WillRepeatedly(DoAll(SetArgReferee<1>(MakeSession()), Return(200)));
        EXPECT_CALL(*mStore, GetTransaction(ImmutableString("t-1"), _))
            .WillRepeatedly(DoAll(SetArgReferee<1>(transaction), Return(200)));
    }
    void StoreHasNoProduction() { EXPECT_CALL(*mStore, GetProduction(_, _, _)).WillRepeatedly(Return(404)); }

    /// An associated session in a sync state, with its jobs.
    void EngineHasSession(const ImmutableString& inState, const std::vector<dto::Job>& inJobs = {},
                          bool inAssociated = true)
    {
        SyncStatus status;
        status.mState = inState;
        EXPECT_CALL(*mSync, IsAssociated(ImmutableString("session-1"))).WillRepeatedly(Return(inAssociated));
        EXPECT_CALL(*mSync, GetSyncStatusForSession(ImmutableString("session-1"), _))
            .WillRepeatedly(DoAll(SetArgReferee<1>(status), Return(200)));
        EXPECT_CALL(*mSync, GetSyncJobs(ImmutableString("session-1"))).WillRepeatedly(Return(inJobs));
        EXPECT_CALL(*mSync, GetRemoteProductionID(_)).WillRepeatedly(Return(ImmutableString("remote-1")));
    }
    void EngineDeletesLocally(int inStatus = 204)
    {
        EXPECT_CALL(*mSync, DisassociateForSync(ImmutableString("session-1"))).WillOnce(Return(404));
        EXPECT_CALL(*mSync, DisconnectOrDeleteSession(ImmutableString("session-1"), true)).WillOnce(Return(inStatus));
    }
};

TEST_F(ProductionServicesTest, DiscoveryIsTheSameOnAnyPathWithTheWordAndNewEachTime)
{
    JSONDocument first;
    JSONDocument second;
    const auto answer = Send("GET", "/api/v1/discovery");
    ASSERT_EQ(200, answer.Status());
    EXPECT_EQ("", answer.Header("ETag"));
    ASSERT_TRUE(first.Parse(answer.Body()));
    ASSERT_TRUE(second.Parse(Send("GET", "/a/discovery/b").Body()));
    EXPECT_NE(first.Root()["server"]["id"].Raw(), second.Root()["server"]["id"].Raw());
    EXPECT_EQ(first.Root()["endpoints"].Raw(), second.Root()["endpoints"].Raw());
    EXPECT_EQ("\"25_3_0.2.0.1.TesselProjectsLocalHub 2.0.2\"", first.Root()["server"]["version"].Raw());
    EXPECT_EQ("\"local\"", first.Root()["server"]["env"].Raw());
    EXPECT_EQ("true", first.Root()["server"]["localHub"].Raw());
    ASSERT_EQ(32U, first.Root()["endpoints"].Children().size());
    EXPECT_EQ(std::string(kBase) + "/api/collaborators/-?url={nimboStorageURL}",
              FindLink(first.Root()["endpoints"], Relation::Collaborators_ByNimboStorageUrl()));
    EXPECT_EQ(std::string(kBase) + "/api/v1/discovery", FindLink(first.Root()["links"], "self"));
}

TEST_F(ProductionServicesTest, DiscoveryNamesItsEndpointsInAFixedOrder)
{
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"/discovery/v1", "/api/v1/discovery"},
        {"/localhub/errors#all", "/api/errors/all"},
        {"/localhub/remoteLogin", "/api/remoteLogin"},
        {"/localhub/remoteLogout", "/api/remoteLogout"},
        {"/localhub/resolve#session", "/api/resolve/{sessionId}/session/-/-"},
        {"/localhub/syncStatus#all", "/api/sync/status/all"},
        {"/localhub/syncStatus#byServer", "/api/sync/status/server/{serverAndPort}"},
        {"/localhub/syncStatus#bySessionId", "/api/sync/status/session/{sessionId}"},
        {"/localhub/syncControl#sync", "/api/sync/control/sync"},
        {"/localhub/syncControl#pollingBySessionId", "/api/sync/control/polling/{sessionId}"},
        {"/localhub/syncControl#clientAppState", "/api/sync/control/clientAppState"},
        {"/localhub/snapshot#open", "/api/snapshot/open"},
        {"/localhub/snapshot#take", "/api/snapshot/take/{productionId}/{commitId}"},
        {"/localhub/snapshot#close", "/api/snapshot/close/{productionId}"},
        {"/localhub/snapshot#apply", "/api/snapshot/apply/{sessionId}"},
        {"/localhub/ropeFile#open", "/api/ropeFile/open"},
        {"/localhub/ropeFile#close", "/api/ropeFile/close/{productionId}"},
        {"/localhub/ropeFile#copyTo", "/api/ropeFile/copyTo/{productionId}/{commitId}"},
        {"/localhub/ropeFile#setSyncMode", "/api/ropeFile/setSyncMode/{productionId}"},
        {"/localhub/preferences#save", "/api/preferences/save"},
        {"/localhub/preferences#read", "/api/preferences/read"},
        {"/productions", "/api/productions"},
        {"/productions/production#byIdAndCommitId", "/api/production/{productionId}/{commitId}"},
        {"/productions/production#differenceByCommit", "/api/differences/{productionId}/{baseCommitId}/{commitId}"},
        {"/users/user#current", "/api/user/-/currentUser"},
        {"/jobs", "/api/jobs/list"},
        {"/invites", "/api/invites?type={inviteType}"},
        {"/archives", "/api/archives"},
        {"/productions/templates", "/api/template/list"},
        {"/sessions#byProductionId", "/api/sessions/{productionId}"},
        {"/collaborators#byProductionId", "/api/collaborators/{productionId}"},
        {"/collaborators#byNimboStorageUrl", "/api/collaborators/-?url={nimboStorageURL}"}};
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/v1/discovery").Body()));
    std::vector<std::pair<std::string, std::string>> endpoints;
    for (const JSONValue& endpoint : body.Root()["endpoints"].Children()) {
        auto& [relation, href] = endpoints.emplace_back();
        ASSERT_TRUE(endpoint["rel"].GetString(relation) && endpoint["href"].GetString(href));
        EXPECT_TRUE(relation.starts_with(kRelations)) << relation;
        EXPECT_TRUE(href.starts_with(kBase)) << href;
        relation.erase(0, kRelations.size());
        href.erase(0, std::string_view(kBase).size());
    }
    EXPECT_EQ(rows, endpoints);
}

TEST_F(ProductionServicesTest, ANumericBuildNumberStandsInTheVersion)
{
    ApplicationVersion version;
    version.mBuildNumber = "71";
    EXPECT_EQ("25_3_0.71.TesselProjectsLocalHub 2.0.2", version.ServerVersion());
    version.mBuildNumber = "71b";
    EXPECT_EQ("25_3_0.2.0.1.TesselProjectsLocalHub 2.0.2", version.ServerVersion());
}

TEST_F(ProductionServicesTest, DiscoveryWithoutHostIsAnError)
{
    EXPECT_EQ(500, Send("GET", "/api/v1/discovery", {}, {}).Status());
    EXPECT_NE(0U, LogCount("Request does not have a HOST"));
}

TEST_F(ProductionServicesTest, TheListOfProductionsIsTaggedAndLinksWhatIsLocal)
{
    auto local = MakeSession();
    local.mLocalOnly = true;
    auto remote = MakeSession();
    remote.mIdentifier = "";
    remote.mProductionID = "r/1";
    EXPECT_CALL(*mSync, GetProductionList(_))
        .WillRepeatedly(InvokeArgument<0>(200, std::vector<dto::Session>{local, remote}));
    const auto answer = Send("GET", "/api/productions");
    ASSERT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    const auto productions = body.Root()["productions"].Children();
    ASSERT_EQ(2U, productions.size());
    EXPECT_EQ("true", productions[0]["localhub:localOnly"].Raw());
    EXPECT_FALSE(productions[1]["localhub:localOnly"].Exists());
    EXPECT_EQ(std::string(kBase) + "/api/poster/p-1",
              FindLink(productions[0]["links"], Relation::LocalHubPosterFrame()));
    EXPECT_EQ("", FindLink(productions[1]["links"], Relation::LocalHubPosterFrame()));
    EXPECT_EQ(std::string(kBase) + "/api/production/r%2F1/HEAD", FindLink(productions[1]["links"], "self"));
    EXPECT_EQ("{\"totalResults\":2,\"startIndex\":0,\"itemsPerPage\":2,\"count\":2}", body.Root()["stats"].Raw());
    EXPECT_EQ(std::string(kBase) + "/api/productions?localOnly=true",
              FindLink(body.Root()["links"], Relation::LocalHubLocalProject_Create()));
    const auto again = Send("GET", "/api/productions", {}, WithHost("If-None-Match", answer.Header("ETag")));
    EXPECT_EQ(304, again.Status());
    EXPECT_EQ("", again.Body());
}

TEST_F(ProductionServicesTest, AFailedListGoesToTheClientAsItStands)
{
    EXPECT_CALL(*mSync, GetProductionList(_)).WillOnce(InvokeArgument<0>(503, std::vector<dto::Session>{}));
    EXPECT_EQ(503, Send("GET", "/api/productions").Status());
}

TEST_F(ProductionServicesTest, AProductionIsMadeOfItsPropertiesWithLocationAndTag)
{
    dto::ProductionProperties asked;
    EXPECT_CALL(*mSync, CreateSession(_, ImmutableString(), true, _))
        .WillOnce(DoAll(testing::SaveArg<0>(&asked), SetArgReferee<3>(MakeSession()), Return(201)));
    const auto answer = Send("POST", "/api/productions?localOnly=true", R"({ "name" : "Film", "n": 1.50 })");
    EXPECT_EQ(201, answer.Status());
    EXPECT_EQ(R"({"name":"Film","n":1.50})", asked.mProperties.mText);
    EXPECT_EQ(std::string(kBase) + "/api/production/p-1/HEAD", answer.Header("Location"));
    EXPECT_EQ(HashPayload(answer.Body()), answer.Header("ETag"));
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ("\"p-1\"", body.Root()["vy:parentProductionId"].Raw());
    EXPECT_EQ(std::string(kBase) + "/api/sessions/p-1", FindLink(body.Root()["links"], "self"));
}

TEST_F(ProductionServicesTest, LocalOnlyInCapitalsIsNotTrue)
{
    EXPECT_CALL(*mSync, CreateSession(_, _, false, _)).WillOnce(Return(507));
    const auto answer = Send("POST", "/api/productions?localOnly=TRUE", "{}");
    EXPECT_EQ(507, answer.Status());
    EXPECT_EQ("", answer.Body());
}

TEST_F(ProductionServicesTest, AProductionOfABadPayloadIsRefused)
{
    for (const std::string body : {"", "[]", "{", "nonsense"})
        EXPECT_EQ(400, Send("POST", "/api/productions", body).Status()) << body;
    EXPECT_EQ(4U, LogCount("ProductionsService: Bad payload"));
}

TEST_F(ProductionServicesTest, NothingIsMadeForARequestWithoutHost)
{
    EXPECT_EQ(500, Send("POST", "/api/productions", "{}", {}).Status());
}

TEST_F(ProductionServicesTest, TheSessionsOfAProductionShowBothHeads)
{
    EXPECT_CALL(*mStore, GetSessionsOfProduction(ImmutableString("p-1")))
        .WillRepeatedly(Return(std::vector{MakeSession()}));
    const auto answer = Send("GET", "/api/sessions/p-1");
    ASSERT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    const auto session = body.Root()["sessions"].Children().at(0);
    EXPECT_EQ("\"c0ffee\"", session["vy:commitId"].Raw());
    EXPECT_EQ("\"ba5e\"", session["vy:baseCommitId"].Raw());
    EXPECT_EQ(std::string(kBase) + "/api/production/p-1/HEAD", FindLink(session["links"], "latest-version"));
    EXPECT_EQ(std::string(kBase) + "/api/production/p-1/HEAD", FindLink(session["links"], "create"));
    EXPECT_EQ(304, Send("GET", "/api/sessions/p-1", {}, WithHost("If-None-Match", answer.Header("ETag"))).Status());
}

TEST_F(ProductionServicesTest, SessionsOfAnUnknownProductionAreNotFoundAndOfARemoteOneNone)
{
    EXPECT_CALL(*mStore, GetSessionsOfProduction(_)).WillRepeatedly(Return(std::vector<dto::Session>{}));
    EXPECT_CALL(*mSync, GetProduction(ImmutableString("p-1"), _)).WillOnce(Return(404)).WillOnce(Return(200));
    EXPECT_EQ(404, Send("GET", "/api/sessions/p-1").Status());
    EXPECT_EQ(200, Send("GET", "/api/sessions/p-1").Status());
}

TEST_F(ProductionServicesTest, AFurtherSessionIsMadeThroughTheEngine)
{
    EXPECT_CALL(*mStore, GetSession(ImmutableString("p-1"), _)).WillRepeatedly(Return(200));
    StoreHasProduction(MakeSession());
    EXPECT_CALL(*mSync, CreateLocalAssociatedSession(ImmutableString("p-1"), _))
        .WillOnce(InvokeArgument<1>(201, MakeSession()))
        .WillOnce(InvokeArgument<1>(501, dto::Session()));
    const auto answer = Send("POST", "/api/sessions/p-1", "{}");
    EXPECT_EQ(200, answer.Status());
    EXPECT_EQ(std::string(kBase) + "/api/sessions/p-1", answer.Header("Location"));
    EXPECT_EQ(HashPayload(answer.Body()), answer.Header("ETag"));
    EXPECT_EQ(501, Send("POST", "/api/sessions/p-1", "{}").Status());
    EXPECT_EQ("501", LogValue("SessionsService: Cannot create a local session!", "status"));
    EXPECT_EQ("!noxnet::IsSuccessfulHTTPStatus(inStatus)",
              LogValue("SessionsService: Cannot create a local session!", "expression"));
}

TEST_F(ProductionServicesTest, AFurtherSessionNeedsTheProductionAndAReadableBody)
{
    EXPECT_CALL(*mStore, GetSession(_, _)).WillOnce(Return(404)).WillRepeatedly(Return(200));
    EXPECT_EQ(404, Send("POST", "/api/sessions/p-1", "{}").Status());
    EXPECT_CALL(*mStore, GetProduction(_, _, _)).WillOnce(Return(412)).WillRepeatedly(Return(200));
    EXPECT_EQ(412, Send("POST", "/api/sessions/p-1", "{}").Status());
    EXPECT_EQ(400, Send("POST", "/api/sessions/p-1", "{").Status());
    EXPECT_EQ(1U, LogCount("SessionsService: Bad payload"));
}

TEST_F(ProductionServicesTest, AProductionAtHeadRedirectsAndAtItsRevisionIsTagged)
{
    StoreHasProduction(MakeSession());
    StoreHasProduction(MakeSession(), "c0ffee");
    for (const std::string method : {"GET", "HEAD"}) {
        const auto redirect = Send(method, "/api/production/p-1/HEAD");
        EXPECT_EQ(307, redirect.Status());
        EXPECT_EQ("/api/production/p-1/c0ffee", redirect.Header("Location"));
    }
    const auto answer = Send("GET", "/api/production/p-1/c0ffee");
    ASSERT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ("\"c0ffee\"", body.Root()["vy:commitId"].Raw());
    EXPECT_EQ(R"({"name":"Film"})", body.Root()["properties"].Raw());
    EXPECT_EQ(std::string(kBase) + "/api/production/p-1/-/rollback/{commitId}",
              FindLink(body.Root()["links"], Relation::SessionsSession_Rollback()));
    EXPECT_EQ(304,
              Send("GET", "/api/production/p-1/c0ffee", {}, WithHost("If-None-Match", answer.Header("ETag"))).Status());
}

TEST_F(ProductionServicesTest, DeletingAProductionWithoutLocalSessionDeletesOnTheServerAlone)
{
    StoreHasNoProduction();
    EXPECT_CALL(*mSync, DeleteRemoteProduction(ImmutableString("p-1"), _)).WillOnce(InvokeArgument<1>(501));
    EXPECT_EQ(501, Send("DELETE", "/api/production/p-1/HEAD").Status());
    EXPECT_EQ("p-1", LogValue("Deleting remote production", "remoteProductionID"));
}

TEST_F(ProductionServicesTest, ADeletionThatNamesAPartOfAProductionDoesNotDeleteTheWhole)
{
    for (const char* part : {"enclosures", "enclosure/x", "propertie", "copy", "sizeof"})
        EXPECT_EQ(501, Send("DELETE", std::string("/api/production/p-1/HEAD/") + part).Status()) << part;
}

TEST_F(ProductionServicesTest, WhatStandsForNoneOrAllIsNoProductionToDelete)
{
    EXPECT_EQ(400, Send("DELETE", "/api/production/*/HEAD").Status());
    EXPECT_EQ(400, Send("DELETE", "/api/production/-/HEAD").Status());
}

TEST_F(ProductionServicesTest, ASessionThatCannotBeReadDeletesNothingOnTheServer)
{
    EXPECT_CALL(*mStore, GetProduction(_, _, _)).WillOnce(Return(500));
    EXPECT_EQ(500, Send("DELETE", "/api/production/p-1/HEAD").Status());
}

TEST_F(ProductionServicesTest, DeletingWithAStaleTagIsRefused)
{
    StoreHasProduction(MakeSession());
    EXPECT_EQ(412, Send("DELETE", "/api/production/p-1/HEAD", {}, WithHost("If-None-Match", "stale")).Status());
    EngineHasSession(VYCL::LocalHub::SyncState_LocalOnly(), {}, false);
    EngineDeletesLocally();
    EXPECT_EQ(204,
              Send("DELETE", "/api/production/p-1/HEAD", {}, WithHost("If-None-Match", ProductionTag(MakeSession())))
                  .Status());
}

TEST_F(ProductionServicesTest, DeletingALocalSessionWithdrawsItsComplaints)
{
    StoreHasProduction(MakeSession());
    EngineHasSession(VYCL::LocalHub::SyncState_NotAssociated(), {}, false);
    EngineDeletesLocally();
    ComplaintBox::Instance()->FileComplaint("session-1", 403, "session access revoked or deleted");
    ComplaintBox::Instance()->FileComplaint("session-2", 403, "session access revoked or deleted");
    EXPECT_EQ(204, Send("DELETE", "/api/production/p-1/HEAD").Status());
    EXPECT_EQ("session-1", LogValue("Deleting local session", "sessionID"));
    EXPECT_FALSE(ComplaintBox::Instance()->SessionComplaints().contains("session-1"));
    EXPECT_TRUE(ComplaintBox::Instance()->SessionComplaints().contains("session-2"));
}

TEST_F(ProductionServicesTest, AFailedDeletionIsLoggedAndItsStatusPassedOn)
{
    StoreHasProduction(MakeSession());
    EngineHasSession(VYCL::LocalHub::SyncState_LocalOnly(), {}, false);
    EngineDeletesLocally(501);
    EXPECT_EQ(501, Send("DELETE", "/api/production/p-1/HEAD").Status());
    EXPECT_EQ(1U, LogCount("ProductionService: Failed to delete production"));
}

TEST_F(ProductionServicesTest, DeletingASynchronizedSessionWhileItIsUnreachableIsRefused)
{
    using namespace VYCL::LocalHub;
    StoreHasProduction(MakeSession());
    for (const auto& state : {SyncState_Unknown(), SyncState_Disconnected(), SyncState_LocalOnly(),
                              SyncState_NotAuthorized(), SyncState_RevokedOrDeleted()}) {
        mLog->Clear();
        EngineHasSession(state);
        EXPECT_EQ(412, Send("DELETE", "/api/production/p-1/HEAD").Status());
        EXPECT_EQ(state.View(), LogValue("Cannot delete a synchronized session while disconnected", "syncStatus"));
    }
}

TEST_F(ProductionServicesTest, DeletingWhileAJobRunsIsRefused)
{
    StoreHasProduction(MakeSession());
    dto::Job waiting;
    waiting.mJobState = VYCL::GetJobState_Waiting();
    dto::Job running;
    running.mJobState = VYCL::GetJobState_Running();
    running.mID = "job-1";
    EngineHasSession(VYCL::LocalHub::SyncState_OutOfSync(), {waiting, running});
    EXPECT_EQ(423, Send("DELETE", "/api/production/p-1/HEAD").Status());
    EXPECT_EQ("job-1", LogValue("Cannot delete a synchronized session while it is synchronizing", "job"));
}

TEST_F(ProductionServicesTest, DeletingASynchronizedSessionDeletesOnTheServerFirst)
{
    StoreHasProduction(MakeSession());
    EngineHasSession(VYCL::LocalHub::SyncState_InSync());
    EXPECT_CALL(*mSync, DeleteRemoteProduction(ImmutableString("remote-1"), _))
        .WillOnce(InvokeArgument<1>(503))
        .WillOnce(InvokeArgument<1>(204));
    EXPECT_EQ(503, Send("DELETE", "/api/production/p-1/HEAD").Status());
    EXPECT_EQ("session-1", LogValue("Deleting local session and remote production", "localSessionID"));
    EngineDeletesLocally();
    EXPECT_EQ(204, Send("DELETE", "/api/production/p-1/HEAD").Status());
}

TEST_F(ProductionServicesTest, DeletingLocallyOnlyDoesNotTouchTheServer)
{
    StoreHasProduction(MakeSession());
    EngineHasSession(VYCL::LocalHub::SyncState_Disconnected());
    EngineDeletesLocally();
    EXPECT_EQ(204, Send("DELETE", "/api/production/p-1/HEAD?localOnly=true").Status());
}

TEST_F(ProductionServicesTest, ACopyOfAnotherRevisionThanTheURLsIsRefused)
{
    const std::string record =
        "ProductionService: URL revision (revisionID) does not match revision to copy (commitID)";
    EXPECT_EQ(400, Send("POST", "/api/production/p-1/c0ffee/copy", R"({"vy:commitId":"HEAD"})").Status());
    EXPECT_EQ("inRevision != properties.commitId", LogValue(record, "expression"));
    EXPECT_EQ(400, Send("POST", "/api/production/p-1/c0ffee/copy", "nonsense").Status());
    EXPECT_EQ(1U, LogCount("ProductionService: Bad payload"));
}

TEST_F(ProductionServicesTest, ACopyIsAnsweredWithItsLocation)
{
    EXPECT_CALL(*mSync, CopyProduction(ImmutableString("p-1"), ImmutableString("c0ffee"), _, _, true, _))
        .WillOnce(InvokeArgument<5>(201, MakeSession("new")));
    const auto answer =
        Send("POST", "/api/production/p-1/c0ffee/copy?localOnly=true", R"({"vy:commitId":"c0ffee","properties":{}})");
    EXPECT_EQ(201, answer.Status());
    EXPECT_EQ(std::string(kBase) + "/api/production/p-1/new", answer.Header("Location"));
}

TEST_F(ProductionServicesTest, ACopyThatFailsIsToldInItsWords)
{
    EXPECT_CALL(*mSync, CopyProduction).WillOnce(InvokeArgument<5>(507, dto::Session()));
    EXPECT_EQ(507, Send("POST", "/api/production/p-1/c0ffee/copy", R"({"vy:commitId":"c0ffee"})").Status());
    EXPECT_EQ("507", LogValue("Production::CopySession: Failed to copy session.", "status"));
    EXPECT_EQ("p-1", LogValue("Production::CopySession: Failed to copy session.", "productionID"));
}

TEST_F(ProductionServicesTest, AFailureCarriesNoTag)
{
    StoreHasProduction(MakeSession(), "c0ffee");
    const auto failed = Send("GET", "/api/production/p-1/c0ffee", {}, {});
    EXPECT_EQ(500, failed.Status());
    EXPECT_EQ("", failed.Header("ETag"));
    EXPECT_NE("", Send("GET", "/api/production/p-1/c0ffee").Header("ETag"));
}

TEST_F(ProductionServicesTest, HeavyOperationsGoToTheEngineWithTheSession)
{
    StoreHasProduction(MakeSession());
    StoreHasProduction(MakeSession(), "c0ffee");
    EXPECT_CALL(*mSync, ArchiveProduction(ImmutableString("p-1"), _)).WillOnce(InvokeArgument<1>(201));
    EXPECT_EQ(201, Send("POST", "/api/production/p-1/HEAD/archive").Status());
    EXPECT_CALL(*mSync, RollbackSessionToRevision(ImmutableString("session-1"), ImmutableString("0ld"), _))
        .WillOnce(InvokeArgument<2>(304, dto::Session()))
        .WillOnce(InvokeArgument<2>(200, MakeSession("0ld")));
    const auto busy = Send("POST", "/api/production/p-1/-/rollback/0ld");
    EXPECT_EQ(304, busy.Status());
    EXPECT_NE("", busy.Header("ETag"));
    EXPECT_EQ(Send("GET", "/api/production/p-1/c0ffee").Header("ETag"), busy.Header("ETag"));
    EXPECT_EQ(200, Send("POST", "/api/production/p-1/-/rollback/0ld").Status());
    EXPECT_EQ(400, Send("POST", "/api/production/p-1/-/rollback").Status());
    EXPECT_CALL(*mSync, CompactSession(ImmutableString("session-1"), _)).WillOnce(InvokeArgument<1>(200));
    EXPECT_EQ(200, Send("POST", "/api/production/p-1/-/compact").Status());
}

TEST_F(ProductionServicesTest, MigratingNeedsJSONAndIsNotThereYet)
{
    EXPECT_EQ(400, Send("POST", "/api/production/p-1/HEAD/migrate", "nonsense").Status());
    EXPECT_EQ(1U, LogCount("JSON not well-formed"));
    EXPECT_EQ(501, Send("POST", "/api/production/p-1/HEAD/migrate", R"({"targetUserId":"u"})").Status());
}

TEST_F(ProductionServicesTest, PropertiesAreReadWithATagOfTheirOwn)
{
    StoreHasProduction(MakeSession(), "c0ffee");
    const auto answer = Send("GET", "/api/production/p-1/c0ffee/properties");
    ASSERT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ(R"({"name":"Film"})", body.Root()["properties"].Raw());
    EXPECT_EQ('"' + answer.Header("ETag") + '"', body.Root()["vy:etag"].Raw());
    EXPECT_EQ(std::string(kBase) + "/api/production/p-1/HEAD/properties",
              FindLink(body.Root()["links"], "latest-version"));
    EXPECT_EQ(304,
              Send("GET", "/api/production/p-1/c0ffee/properties", {}, WithHost("If-None-Match", answer.Header("ETag")))
                  .Status());
}

TEST_F(ProductionServicesTest, AWriteThatNamesItsTransactionStaysInIt)
{
    dto::ProductionProperties written;
    StoreHasTransaction("session-1");
    EXPECT_CALL(*mStore, EditSessionProperties(ImmutableString("t-1"), _))
        .WillOnce(DoAll(testing::SaveArg<1>(&written), Return(200)))
        .WillOnce(Return(412));
    const std::string body = R"({"vy:transactionId":"t-1","properties":{"a":1}})";
    EXPECT_EQ(200, Send("PUT", "/api/production/p-1/HEAD/properties", body).Status());
    EXPECT_EQ(R"({"a":1})", written.mProperties.mText);
    EXPECT_EQ(412, Send("POST", "/api/production/p-1/HEAD/properties", body).Status());
}

TEST_F(ProductionServicesTest, AWriteInTheTransactionOfAnotherSessionIsRefused)
{
    StoreHasTransaction("session-2");
    const std::string body = R"({"vy:transactionId":"t-1","properties":{"a":1}})";
    EXPECT_EQ(400, Send("PUT", "/api/production/p-1/HEAD/properties", body).Status());
    EXPECT_EQ(1U, LogCount("ProductionService: Bad payload"));
    EXPECT_CALL(*mStore, GetSession(ImmutableString("p-2"), _)).WillOnce(Return(404));
    EXPECT_EQ(404, Send("PUT", "/api/production/p-2/HEAD/properties", body).Status());
}

TEST_F(ProductionServicesTest, AWriteWithoutTransactionCommitsItsOwnAndAnswersTheNewState)
{
    StoreHasProduction(MakeSession("new"));
    dto::TransactionResource transaction;
    transaction.mTransactionID = "t-2";
    EXPECT_CALL(*mStore,
                OpenTransaction(ImmutableString("p-1"), ImmutableString(), VYCL::GetTransactionType_Edit(), _, _))
        .WillRepeatedly(DoAll(SetArgReferee<4>(transaction), Return(201)));
    EXPECT_CALL(*mStore, EditSessionProperties(ImmutableString("t-2"), _)).WillOnce(Return(200)).WillOnce(Return(500));
    EXPECT_CALL(*mSync, CommitTransaction(ImmutableString("t-2"), _, ImmutableString(), _)).WillOnce(Return(200));
    const auto answer = Send("PUT", "/api/production/p-1/HEAD/properties", R"({"properties":{"a":1}})");
    ASSERT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ(std::string(kBase) + "/api/production/p-1/new/properties", FindLink(body.Root()["links"], "self"));
    EXPECT_CALL(*mStore, CloseTransaction(ImmutableString("t-2"))).WillOnce(Return(200));
    EXPECT_EQ(500, Send("DELETE", "/api/production/p-1/HEAD/properties").Status());
}

TEST_F(ProductionServicesTest, AWriteOfABadBodyIsRefused)
{
    for (const std::string body : {"", "[]", "{}", R"({"properties":1})", R"({"vy:transactionId":1,"properties":{}})"})
        EXPECT_EQ(400, Send("PUT", "/api/production/p-1/HEAD/properties", body).Status()) << body;
    EXPECT_EQ(5U, LogCount("ProductionService: Bad payload"));
}

TEST_F(ProductionServicesTest, AKnownSizeIsNotCountedAgain)
{
    StoreHasProduction(MakeSession());
    dto::SizeInfo info;
    info.mAssets = 7;
    EXPECT_CALL(*mStore, GetSizeInfo(ImmutableString("session-1"), true, _))
        .WillOnce(DoAll(SetArgReferee<2>(info), Return(200)));
    const auto answer = Send("GET", "/api/production/p-1/-/sizeof");
    EXPECT_EQ(200, answer.Status());
    EXPECT_EQ("c0ffee", answer.Header("ETag"));
    EXPECT_EQ(304, Send("GET", "/api/production/p-1/-/sizeof", {}, WithHost("If-None-Match", "c0ffee")).Status());
}

TEST_F(ProductionServicesTest, EnclosuresAreListedAndFoundByIdAndByName)
{
    dto::Enclosure enclosure;
    enclosure.mEnclosureID = "e-1";
    enclosure.mEnclosureContentID = "cafe";
    enclosure.mName = "poster";
    const auto payload = noxcore::utility::CopyToRecycledMemory("bytes");
    EXPECT_CALL(*mStore, GetProductionEnclosures(_, ImmutableString("c0ffee"), _))
        .WillRepeatedly(DoAll(SetArgReferee<2>(std::vector{enclosure}), Return(200)));
    EXPECT_CALL(*mStore, GetProductionEnclosure(_, _, _, _, _)).WillRepeatedly(Return(404));
    EXPECT_CALL(*mStore, GetProductionEnclosure(_, ImmutableString("c0ffee"), ImmutableString("e-1"), _, _))
        .WillRepeatedly(DoAll(SetArgReferee<3>(enclosure), SetArgReferee<4>(payload), Return(200)));
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/production/p-1/c0ffee/enclosures").Body()));
    EXPECT_EQ(std::string(kBase) + "/api/production/p-1/c0ffee/enclosure/e-1",
              FindLink(body.Root()["enclosures"].Children().at(0)["links"], Relation::EnclosuresEnclosure()));
    for (const std::string key : {"e-1", "poster"}) {
        const auto answer = Send("GET", "/api/production/p-1/c0ffee/enclosure/" + key);
        EXPECT_EQ(200, answer.Status());
        EXPECT_EQ("bytes", answer.Body());
        EXPECT_EQ("application/octet-stream", answer.Header("Content-Type"));
        EXPECT_EQ("cafe", answer.Header("ETag"));
    }
    EXPECT_EQ(404, Send("GET", "/api/production/p-1/c0ffee/enclosure/other").Status());
    EXPECT_EQ(1U, LogCount("ProductionService: Enclosure not found"));
}

TEST_F(ProductionServicesTest, AnEnclosureByUnknownContentIsNotFound)
{
    const auto payload = noxcore::utility::CopyToRecycledMemory("bytes");
    EXPECT_CALL(*mStore, GetProductionEnclosureByContentHash(ImmutableString("p-1"), ImmutableString("cafe"), _))
        .WillOnce(Return(400))
        .WillOnce(Return(500))
        .WillOnce(DoAll(SetArgReferee<2>(payload), Return(200)));
    EXPECT_EQ(404, Send("GET", "/api/production/p-1/-/enclosureByContentId/cafe").Status());
    EXPECT_EQ(1U, LogCount("ProductionService: Enclosure not found"));
    EXPECT_EQ(500, Send("GET", "/api/production/p-1/-/enclosureByContentId/cafe").Status());
    EXPECT_EQ("bytes", Send("GET", "/api/production/p-1/-/enclosureByContentId/cafe").Body());
}

}  // namespace

}  // namespace service_test

#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/ComplaintBox.h"
#include "Tests/Service/ServiceFixture.h"

// Jobs, sync status and control, complaints, and signing in.

namespace service_test {

namespace {

namespace Relation = VYCL::LinkRelation;
using namespace VYCL::LocalHub;
using testing::InvokeArgument;
using testing::SaveArg;

constexpr const char* kBase = "http://127.0.0.1:7777";
constexpr const char* kJobBody =
    R"({"jcr:name":"Mine","vy:parameters":{"direction":"Pull","priority":5,"fromRevision":"a","toRevision":"b"}})";
constexpr const char* kControl = "/api/jobs/control/LocalHubSync/p-1";

class SyncServicesTest : public ServiceFixture
{
protected:
    void SetUp() override { RegisterAll(); }

    void EngineHasSession(const ImmutableString& inState)
    {
        SyncStatus status;
        status.mState = inState;
        status.mLocalSessionID = "session-1";
        EXPECT_CALL(*mSync, GetSyncStatusForSession(_, _)).WillRepeatedly(DoAll(SetArgReferee<1>(status), Return(200)));
    }
    static dto::Job MakeJob(const std::string& inRevision = "HEAD")
    {
        dto::Job job;
        job.mID = "job-1";
        job.mName = "Mine";
        job.mParameters.mToRevision = inRevision;
        return job;
    }
    Answer SendForm(const std::string& inPath, const FormFields& inFields)
    {
        return Send("POST", inPath, FormOf(inFields), WithHost("Content-Type", "application/x-www-form-urlencoded"));
    }
};

TEST_F(SyncServicesTest, AJobIsRequestedWithItsParametersAndAnsweredWithItsPlace)
{
    EngineHasSession(SyncState_OutOfSync());
    SyncJobRequest request;
    EXPECT_CALL(*mSync, AcquireJobLock(ImmutableString("session-1"), _, _, JobCategory::History, _))
        .WillOnce(Return(true));
    EXPECT_CALL(*mSync, FindMatchingRunningSyncJob).WillOnce(Return(412));
    EXPECT_CALL(*mSync, RequestSyncJob).WillOnce(DoAll(SaveArg<0>(&request), SetArgReferee<1>(MakeJob()), Return(201)));
    const auto answer = Send("POST", kControl, kJobBody);
    EXPECT_EQ(201, answer.Status());
    EXPECT_EQ(std::string(kBase) + "/api/jobs/detail/job-1", answer.Header("Location"));
    EXPECT_EQ("session-1", request.mSessionID.View());
    EXPECT_EQ("Mine", request.mName.View());
    EXPECT_EQ("Pull", request.mParams.mDirection.View());
    EXPECT_EQ(5, request.mParams.mPriority);
    EXPECT_EQ("b", request.mParams.mToRevision.View());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ(std::string(kBase) + "/api/jobs/detail/job-1", FindLink(body.Root()["links"], "self"));
    EXPECT_EQ(std::string(kBase) + "/api/jobs/detail/job-1", FindLink(body.Root()["links"], "edit"));
    EXPECT_EQ(1U, LogCount("JobsService: requested sync job"));
}

TEST_F(SyncServicesTest, ASecondJobOfTheSameKindIsTheOneThatRuns)
{
    EngineHasSession(SyncState_Syncing());
    EXPECT_CALL(*mSync, AcquireJobLock).WillOnce(Return(false));
    EXPECT_CALL(*mSync, FindMatchingRunningSyncJob).WillOnce(DoAll(SetArgReferee<2>(MakeJob()), Return(200)));
    const auto answer = Send("POST", kControl, kJobBody);
    EXPECT_EQ(302, answer.Status());
    EXPECT_EQ(std::string(kBase) + "/api/jobs/detail/job-1", answer.Header("Location"));
    EXPECT_EQ("Mine", LogValue("JobsService: returning existing sync job", "name"));
}

TEST_F(SyncServicesTest, AJobWithoutARemoteSideIsRefused)
{
    EngineHasSession(SyncState_NotAssociated());
    EXPECT_EQ(412, Send("POST", kControl, kJobBody).Status());
    EXPECT_EQ("p-1",
              LogValue("JobsService: the production is not associated with a remote production", "localProductionID"));
    EngineHasSession(SyncState_RevokedOrDeleted());
    EXPECT_EQ(412, Send("POST", kControl, kJobBody).Status());
    EXPECT_EQ("RevokedOrDeleted", LogValue("JobsService: the production has been revoked or deleted", "syncStatus"));
    EXPECT_CALL(*mSync, GetSyncStatusForSession).WillOnce(Return(404));
    EXPECT_EQ(404, Send("POST", kControl, kJobBody).Status());
}

TEST_F(SyncServicesTest, AJobThatTheEngineRefusesIsToldOf)
{
    EngineHasSession(SyncState_OutOfSync());
    EXPECT_CALL(*mSync, AcquireJobLock).WillOnce(Return(true));
    EXPECT_CALL(*mSync, FindMatchingRunningSyncJob).WillOnce(Return(412));
    EXPECT_CALL(*mSync, RequestSyncJob).WillOnce(Return(424));
    const auto answer = Send("POST", kControl, kJobBody);
    EXPECT_EQ(424, answer.Status());
    EXPECT_EQ("", answer.Body());
    EXPECT_EQ("424", LogValue("JobsService: cannot request sync job", "status"));
}

TEST_F(SyncServicesTest, ABodyThatIsNoJobIsRefused)
{
    EXPECT_EQ(400, Send("POST", kControl, "{").Status());
    EXPECT_EQ(400, Send("POST", kControl, "").Status());
    EXPECT_EQ(2U, LogCount("JSON not well-formed"));
    for (const std::string body : {"[]", "{}", R"({"vy:parameters":7})", R"({"vy:parameters":{"priority":"high"}})"})
        EXPECT_EQ(400, Send("POST", kControl, body).Status()) << body;
    EXPECT_EQ(4U, LogCount("JobsService: Bad payload"));
    EXPECT_EQ(400, Send("POST", "/api/jobs/control/Other/p-1", kJobBody).Status());
}

TEST_F(SyncServicesTest, AJobIsCancelledByWritingItsState)
{
    const std::string id = "11111111-2222-3333-4444-555555555555";
    auto job = MakeJob();
    job.mJobState = "Cancel";
    EXPECT_CALL(*mSync, ChangeSyncJobState(_, ImmutableString("Cancel"), _))
        .WillOnce(DoAll(SetArgReferee<2>(job), Return(200)));
    const auto answer = Send("PUT", "/api/jobs/detail/" + id, R"({"vy:jobState":"Cancel"})");
    EXPECT_EQ(200, answer.Status());
    EXPECT_NE(std::string::npos, answer.Body().find(R"("vy:jobState":"Cancel")"));
    EXPECT_CALL(*mSync, ChangeSyncJobState(_, ImmutableString("Run"), _)).WillOnce(Return(400));
    EXPECT_EQ(400, Send("PUT", "/api/jobs/detail/" + id, R"({"vy:jobState":"Run"})").Status());
    EXPECT_EQ("Run", LogValue("JobsService: cannot change job state", "state"));
    EXPECT_EQ(404, Send("PUT", "/api/jobs/detail/no-guid", R"({"vy:jobState":"Cancel"})").Status());
    EXPECT_EQ(400, Send("PUT", "/api/jobs/detail/" + id, R"({"state":"Cancel"})").Status());
    EXPECT_EQ("vy:jobState", LogValue("JobsService: form field missing", "field"));
    EXPECT_EQ(400, Send("PUT", "/api/jobs/detail/" + id, "{").Status());
}

TEST_F(SyncServicesTest, AJobIsShownByItsId)
{
    EXPECT_CALL(*mSync, GetSyncJobs()).WillRepeatedly(Return(std::vector{MakeJob()}));
    EXPECT_EQ(200, Send("GET", "/api/jobs/detail/job-1").Status());
    EXPECT_EQ(404, Send("GET", "/api/jobs/detail/job-2").Status());
}

TEST_F(SyncServicesTest, JobsAreListedOfAllOfASessionAndOfARevision)
{
    EngineHasSession(SyncState_InSync());
    EXPECT_CALL(*mSync, GetSyncJobs()).WillRepeatedly(Return(std::vector{MakeJob(), MakeJob("beef")}));
    EXPECT_CALL(*mSync, GetSyncJobs(ImmutableString("session-1"))).WillRepeatedly(Return(std::vector{MakeJob("beef")}));
    const std::pair<std::string, std::size_t> lists[] = {{"/api/jobs/list", 2},
                                                         {"/api/jobs/list/*/HEAD", 1},
                                                         {"/api/jobs/list/p-1", 1},
                                                         {"/api/jobs/list/p-1/beef", 1},
                                                         {"/api/jobs/list/p-1/HEAD", 0}};
    for (const auto& [path, count] : lists) {
        const auto answer = Send("GET", path);
        ASSERT_EQ(200, answer.Status()) << path;
        JSONDocument body;
        ASSERT_TRUE(body.Parse(answer.Body()));
        EXPECT_EQ(count, body.Root()["jobs"].Children().size()) << path;
        EXPECT_EQ(kBase + path, FindLink(body.Root()["links"], "self"));
        EXPECT_EQ(std::string(kBase) + "/api/jobs/types", FindLink(body.Root()["links"], Relation::JobsTypes()));
        EXPECT_EQ(304, Send("GET", path, {}, WithHost("If-None-Match", answer.Header("ETag"))).Status());
    }
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/jobs/list/p-1").Body()));
    EXPECT_EQ(std::string(kBase) + "/api/jobs/control/LocalHubSync/session-1",
              FindLink(body.Root()["links"], Relation::LocalHubSyncJobs_Create()));
}

TEST_F(SyncServicesTest, ThereIsOneTypeOfJob)
{
    for (const std::string path : {"/api/jobs/types", "/api/jobs/types/LocalHubSync"}) {
        const auto answer = Send("GET", path);
        EXPECT_EQ(200, answer.Status());
        EXPECT_NE(std::string::npos, answer.Body().find(R"("jobTypes":[{"name":"LocalHubSync"}])"));
    }
    EXPECT_EQ(404, Send("GET", "/api/jobs/types/Other").Status());
}

TEST_F(SyncServicesTest, ASessionsSyncStatusLeadsToTheSession)
{
    EngineHasSession(SyncState_LocalOnly());
    const auto answer = Send("GET", "/api/sync/status/session/p-1");
    ASSERT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ(R"("LocalOnly")", body.Root()["state"].Raw());
    EXPECT_EQ(std::string(kBase) + "/api/production/session-1/HEAD", FindLink(body.Root()["links"], "latest-version"));
    EXPECT_EQ(std::string(kBase) + "/api/jobs/list/session-1/HEAD", FindLink(body.Root()["links"], Relation::Jobs()));
    EXPECT_EQ(
        304,
        Send("GET", "/api/sync/status/session/p-1", {}, WithHost("If-None-Match", answer.Header("ETag"))).Status());
}

TEST_F(SyncServicesTest, ASessionThatNobodyKnowsIsInNoKnownState)
{
    EXPECT_CALL(*mSync, GetSyncStatusForSession).WillOnce(Return(404));
    const auto answer = Send("GET", "/api/sync/status/session/p-9");
    EXPECT_EQ(200, answer.Status());
    EXPECT_NE(std::string::npos, answer.Body().find(R"("state":"Unknown")"));
}

TEST_F(SyncServicesTest, AServerIsNamedInItsEscapedForm)
{
    EXPECT_CALL(*mSync, GetSyncStatusForServer(ImmutableString("hub.example:443")))
        .WillOnce(Return(std::vector(2, SyncStatus())));
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/sync/status/server/hub.example%3A443").Body()));
    EXPECT_EQ(2U, body.Root()["syncStatus"].Children().size());
    EXPECT_EQ(400, Send("GET", "/api/sync/status/server").Status());
    EXPECT_EQ(400, Send("GET", "/api/sync/status/session").Status());
}

TEST_F(SyncServicesTest, EachSwitchOfTheSynchronisationIsReadFromFormOrQuery)
{
    EXPECT_CALL(*mSync, PermitRemoteConnections).Times(2);
    EXPECT_CALL(*mSync, RestrictIdleSyncJobs).Times(1);
    EXPECT_EQ(200,
              SendForm("/api/sync/control/sync", {{"enabled", "true"}, {"enabledForIdleSessions", "no"}}).Status());
    EXPECT_EQ(200, Send("POST", "/api/sync/control/sync?enabled=true").Status());
    EXPECT_CALL(*mSync, RestrictRemoteConnections).Times(1);
    EXPECT_CALL(*mSync, PermitIdleSyncJobs).Times(1);
    EXPECT_EQ(200,
              Send("POST", "/api/sync/control/sync", R"({"enabled":false,"enabledForIdleSessions":true})").Status());
}

TEST_F(SyncServicesTest, AControlRequestWithoutAKnownKeyChangesNothing)
{
    for (const std::string selector : {"sync", "polling/s-1", "clientAppState"}) {
        EXPECT_EQ(400, Send("POST", "/api/sync/control/" + selector).Status()) << selector;
        EXPECT_EQ(400, SendForm("/api/sync/control/" + selector, {{"other", "true"}}).Status()) << selector;
        EXPECT_EQ(400, Send("POST", "/api/sync/control/" + selector, "{").Status()) << selector;
    }
    EXPECT_EQ(400, SendForm("/api/sync/control/polling", {{"enabled", "true"}}).Status());
    EXPECT_EQ(501, SendForm("/api/sync/control/other", {{"enabled", "true"}}).Status());
}

TEST_F(SyncServicesTest, PollingIsSwitchedBySession)
{
    EXPECT_CALL(*mSync, EngagePollingForSync(ImmutableString("s-1"), true)).WillOnce(Return(200));
    EXPECT_CALL(*mSync, RequestAutoShareSyncJob(ImmutableString("s-1"), _)).Times(1);
    EXPECT_EQ(200, SendForm("/api/sync/control/polling/s-1", {{"enabled", "true"}, {"enableBatons", "true"}}).Status());
    EXPECT_CALL(*mSync, EngagePollingForSync(ImmutableString("s-2"), false)).WillOnce(Return(501));
    EXPECT_EQ(501, SendForm("/api/sync/control/polling/s-2", {{"enabled", "true"}}).Status());
    EXPECT_CALL(*mSync, DisengagePollingForSync(ImmutableString("s-1"))).WillOnce(Return(200));
    EXPECT_EQ(200, SendForm("/api/sync/control/polling/s-1", {{"enabled", "false"}}).Status());
}

TEST_F(SyncServicesTest, AClientThatGoesToRestHasItsChangesSent)
{
    EXPECT_CALL(*mSync, SyncPollingSessionsToRemote).Times(1);
    EXPECT_EQ(200, SendForm("/api/sync/control/clientAppState", {{"resumeSuspend", "false"}}).Status());
    EXPECT_EQ(200, SendForm("/api/sync/control/clientAppState", {{"resumeSuspend", "true"}}).Status());
}

TEST_F(SyncServicesTest, ComplaintsAreShownBySessionAndByServer)
{
    ComplaintBox::Instance()->FileComplaint("s-1", 7, "disk full");
    ComplaintBox::Instance()->FileComplaintForServer("https://hub.example", 8, "no entry");
    const auto answer = Send("GET", "/api/errors/all");
    ASSERT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    const auto session = body.Root()["sessionErrors"].Children().at(0);
    EXPECT_EQ(R"("s-1")", session["sessionId"].Raw());
    EXPECT_EQ("7", session["errors"].Children().at(0)["errorCode"].Raw());
    EXPECT_EQ(R"("disk full")", session["errors"].Children().at(0)["errorString"].Raw());
    const auto server = body.Root()["serverErrors"].Children().at(0);
    EXPECT_EQ(R"("https://hub.example")", server["serverURL"].Raw());
    EXPECT_EQ(304, Send("GET", "/api/errors/all", {}, WithHost("If-None-Match", answer.Header("ETag"))).Status());
    EXPECT_EQ(501, Send("GET", "/api/errors/other").Status());
}

TEST_F(SyncServicesTest, ALoginHandsServerAndCredentialsOn)
{
    dto::LoginCredentials credentials;
    dto::RemoteLoginStatus hub;
    hub.mServerURL = "https://hub.example";
    hub.mConnected = true;
    EXPECT_CALL(*mSync, GetRemoteHubStatusList).WillRepeatedly(Return(std::vector{hub}));
    EXPECT_CALL(*mSync, ConnectToRemoteHub(ImmutableString("https://hub.example"), ImmutableString("prod"), _, _))
        .WillOnce(DoAll(SaveArg<2>(&credentials), InvokeArgument<3>(200, dto::LoginError())));
    const auto answer = Send("POST", "/api/remoteLogin", R"({"serverURL":"https://hub.example","serverType":"prod",
        "credentials":{"authType":"Bearer","pass":"secret"}})");
    EXPECT_EQ(200, answer.Status());
    EXPECT_NE(std::string::npos, answer.Body().find(R"("connected":true)"));
    EXPECT_EQ("secret", credentials.mPass);
    EXPECT_EQ(std::string::npos, answer.Body().find("secret"));
}

TEST_F(SyncServicesTest, AFailedLoginTellsWhy)
{
    EXPECT_CALL(*mSync, GetRemoteHubStatusList).WillRepeatedly(Return(std::vector<dto::RemoteLoginStatus>{}));
    EXPECT_CALL(*mSync, ConnectToRemoteHub).WillOnce(InvokeArgument<3>(403, dto::LoginError{"Generic", "no"}));
    const auto answer =
        SendForm("/api/remoteLogin", {{"serverURL", "https://hub.example"}, {"credentials", R"({"pass":"secret"})"}});
    EXPECT_EQ(403, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ(R"("Generic")", body.Root()["error_code"].Raw());
    EXPECT_EQ(R"("no")", body.Root()["message"].Raw());
    EXPECT_EQ("403", LogValue("Unable to login to remote hub", "status"));
}

TEST_F(SyncServicesTest, ALoginWithUnreadableCredentialsConnectsNothing)
{
    const std::string url = R"("serverURL":"https://hub.example")";
    EXPECT_EQ(400, Send("POST", "/api/remoteLogin", "{" + url + R"(,"credentials":[1]})").Status());
    EXPECT_EQ(400, Send("POST", "/api/remoteLogin", "{" + url + R"(,"credentials":{"pass":7}})").Status());
    EXPECT_EQ(2U, LogCount("Error parsing credentials"));
    EXPECT_EQ(400, SendForm("/api/remoteLogin", {{"serverURL", "u"}, {"credentials", "{"}}).Status());
    EXPECT_EQ(400, Send("POST", "/api/remoteLogin", "{").Status());
    EXPECT_EQ(2U, LogCount("JSON not well-formed"));
    EXPECT_EQ(400, Send("POST", "/api/remoteLogin", "{" + url + "}").Status());
    EXPECT_EQ(400, Send("POST", "/api/remoteLogin", R"({"credentials":{}})").Status());
}

TEST_F(SyncServicesTest, ALogoutNamesItsServer)
{
    EXPECT_CALL(*mSync, DisconnectFromRemoteHub(ImmutableString("https://hub.example"))).WillOnce(Return(200));
    EXPECT_EQ(200, SendForm("/api/remoteLogout", {{"serverURL", "https://hub.example"}}).Status());
    EXPECT_EQ(400, SendForm("/api/remoteLogout", {}).Status());
    EXPECT_EQ(501, Send("GET", "/api/remoteLogout").Status());
}

}  // namespace

}  // namespace service_test

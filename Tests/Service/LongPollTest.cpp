#include <random>

#include "Inc/Model/ComplaintBox.h"
#include "Inc/Service/DropAllLongPolls.h"
#include "Tests/Service/ServiceFixture.h"

// Requests that wait for a change.

namespace service_test {

namespace {

using noxnet::http::server::IncomingRequest;
using testing::AnyNumber;
using testing::Invoke;

/// A few sessions whose status is a number each, and readers of it.
class LongPollTest : public ServiceFixture
{
protected:
    void SetUp() override
    {
        RegisterAll();
        EXPECT_CALL(*mStore, GetSession)
            .Times(AnyNumber())
            .WillRepeatedly(Invoke([](const ImmutableString& inID, dto::Session& outSession) {
                outSession.mIdentifier = SessionID(inID.View());
                outSession.mProductionID = "p-" + outSession.mIdentifier.Text();
                return 200;
            }));
        EXPECT_CALL(*mStore, GetProduction)
            .Times(AnyNumber())
            .WillRepeatedly(
                Invoke([this](const ImmutableString& inID, const ImmutableString&, dto::Session& outSession) {
                    ++mReads;
                    if (mSlowness != 0)
                        mScheduler->GetClock()->SetMonotonic(mScheduler->GetClock()->MonotonicTicks() + mSlowness);
                    outSession.mIdentifier = SessionID(inID.View());
                    outSession.mRevision = std::to_string(mRevisions[outSession.mIdentifier.Text()]);
                    return mStatus;
                }));
        EXPECT_CALL(*mStore, GetSideDataTags).Times(AnyNumber()).WillRepeatedly(Return(200));
        EXPECT_CALL(*mSync, GetSyncStatusForSession).Times(AnyNumber()).WillRepeatedly(Return(404));
        EXPECT_CALL(*mStore, SessionExists).Times(AnyNumber()).WillRepeatedly(Return(true));
    }

    static std::string SessionID(std::string_view inID)
    {
        return std::string(inID.starts_with("p-") ? inID.substr(2) : inID);
    }

    static void PostChange(const std::string& inSession)
    {
        noxcore::messaging::PostMessageToUIThread(ProjectBox::Station(),
                                                  std::make_shared<ProjectBox::SessionChangedMessage>(inSession));
    }
    void Change(const std::string& inSession)
    {
        ++mRevisions[inSession];
        PostChange(inSession);
        mScheduler->RunUntilIdle();
    }
    std::string TagOf(const std::string& inID) { return Send("GET", "/api/session/status/" + inID).Header("ETag"); }

    static HeaderList PollHeaders(const std::string& inTag)
    {
        HeaderList headers = WithHost("X-LongPoll", "1");
        headers.emplace_back("If-None-Match", inTag);
        return headers;
    }
    AnswerPtr Poll(const std::string& inPath, const std::string& inTag)
    {
        return Start("GET", inPath, {}, PollHeaders(inTag));
    }
    AnswerPtr PollSession(const std::string& inID, const std::string& inTag)
    {
        return Poll("/api/session/status/" + inID, inTag);
    }

    std::map<std::string, int> mRevisions;  // session id -> what its status says
    int mReads = 0;
    int mStatus = 200;
    std::int64_t mSlowness = 0;
};

TEST_F(LongPollTest, WithoutTheHeaderItIsAPlainRead)
{
    const auto answer = Send("GET", "/api/session/status/s1");
    EXPECT_EQ(200, answer.Status());
    EXPECT_EQ(304,
              Send("GET", "/api/session/status/s1", {}, WithHost("If-None-Match", answer.Header("ETag"))).Status());
    mStatus = 404;
    EXPECT_EQ(404, Send("GET", "/api/session/status/s1").Status());
}

TEST_F(LongPollTest, AHeaderWithoutAValueAsksForAWaitToo)
{
    HeaderList headers = WithHost("X-LongPoll", "");
    headers.emplace_back("If-None-Match", TagOf("s1"));
    const auto waiting = Start("GET", "/api/session/status/s1", {}, headers);
    EXPECT_TRUE(waiting->mResponses.empty());
    Change("s1");
    EXPECT_EQ(200, waiting->Status());
}

TEST_F(LongPollTest, AStaleTagIsAnsweredAtOnceAndACurrentOneWaits)
{
    EXPECT_EQ(200, PollSession("s1", "stale")->Status());
    EXPECT_EQ(200, PollSession("s1", "")->Status());
    const auto waiting = PollSession("s1", TagOf("s1"));
    EXPECT_TRUE(waiting->mResponses.empty());
    Change("s1");
    EXPECT_EQ(200, waiting->Status());
    EXPECT_EQ(TagOf("s1"), waiting->Header("ETag"));
    EXPECT_EQ("application/json; charset=utf-8", waiting->Header("Content-Type"));
}

TEST_F(LongPollTest, AChangeThatDoesNotAlterThePayloadLeavesTheRequestWaiting)
{
    const auto waiting = PollSession("s1", TagOf("s1"));
    for (int i = 0; i < 3; ++i) {
        PostChange("s1");
        mScheduler->RunUntilIdle();
    }
    EXPECT_TRUE(waiting->mResponses.empty());
    Change("s1");
    EXPECT_EQ(200, waiting->Status());
}

TEST_F(LongPollTest, AChangeWakesThoseOfItsSessionOnlyWhicheverIdTheyAskedBy)
{
    const auto bySession = PollSession("s1", TagOf("s1"));
    const auto byProduction = PollSession("p-s1", TagOf("p-s1"));
    const auto other = PollSession("s2", TagOf("s2"));
    const int reads = mReads;
    Change("s1");
    EXPECT_EQ(200, bySession->Status());
    EXPECT_EQ(200, byProduction->Status());
    EXPECT_TRUE(other->mResponses.empty());
    EXPECT_EQ(reads + 2, mReads);  // one for each URL
    EXPECT_EQ(200, PollSession("s2", "stale")->Status());
}

TEST_F(LongPollTest, OnePayloadIsMadeForAllThatWaitForIt)
{
    const std::string tag = TagOf("s1");
    std::vector<AnswerPtr> waiting;
    for (int i = 0; i < 1000; ++i)
        waiting.push_back(PollSession("s1", tag));
    const int reads = mReads;
    Change("s1");
    EXPECT_EQ(reads + 1, mReads);
    for (const auto& answer : waiting) {
        ASSERT_EQ(200, answer->Status());
        EXPECT_EQ(waiting.front()->mResponses.front()->mPayload, answer->mResponses.front()->mPayload);
    }
}

TEST_F(LongPollTest, AChangeOfTheSyncStateWakesToo)
{
    SyncStatus status;
    status.mState = VYCL::LocalHub::SyncState_OutOfSync();
    const auto waiting = PollSession("s1", TagOf("s1"));
    EXPECT_CALL(*mSync, GetSyncStatusForSession).WillRepeatedly(DoAll(SetArgReferee<1>(status), Return(200)));
    noxcore::messaging::PostMessageToUIThread(SyncBox::Station(),
                                              std::make_shared<SyncBox::SyncStatusChangedMessage>("s1"));
    mScheduler->RunUntilIdle();
    EXPECT_EQ(200, waiting->Status());
    EXPECT_NE(std::string::npos, waiting->Body().find("OutOfSync"));
}

TEST_F(LongPollTest, AStatusThatCannotBeMadeAnyMoreEndsTheWait)
{
    const auto waiting = PollSession("s1", TagOf("s1"));
    mStatus = 404;
    PostChange("s1");
    mScheduler->RunUntilIdle();
    EXPECT_EQ(404, waiting->Status());
    EXPECT_EQ("", waiting->Body());
}

TEST_F(LongPollTest, AStatusThatIsMadeWhileItsSessionIsClosedEndsTheWait)
{
    const auto waiting = PollSession("s1", TagOf("s1"));
    EXPECT_CALL(*mStore, SessionExists(ImmutableString("s1"))).WillOnce(Return(false));
    PostChange("s1");
    mScheduler->RunUntilIdle();
    EXPECT_EQ(404, waiting->Status());
}

TEST_F(LongPollTest, AClientThatLeavesMakesAllBeAnsweredNotModified)
{
    EXPECT_CALL(*mSync, GetSyncStatus).WillRepeatedly(Return(std::vector<SyncStatus>{}));
    EXPECT_CALL(*mSync, GetRemoteHubStatusList).WillRepeatedly(Return(std::vector<dto::RemoteLoginStatus>{}));
    EXPECT_CALL(*mSync, GetCollaboratorsPresence).WillRepeatedly(Return(200));
    EXPECT_CALL(*mSync, GetProductionBatons).WillRepeatedly(Return(200));
    std::vector<AnswerPtr> waiting;
    for (const std::string path : {"/api/session/status/s1", "/api/session/status/s2", "/api/errors/all",
                                   "/api/sync/status/all", "/api/remoteLogin", "/api/presence/p", "/api/batons/p"}) {
        waiting.push_back(Poll(path, Send("GET", path).Header("ETag")));
        EXPECT_TRUE(waiting.back()->mResponses.empty()) << path;
    }
    DropAllLongPollsMessage::Post();
    mScheduler->RunUntilIdle();
    for (const auto& answer : waiting) {
        EXPECT_EQ(304, answer->Status());
        EXPECT_EQ("", answer->Body());
    }
    Change("s1");  // nobody is answered twice
    EXPECT_EQ(304, waiting.front()->Status());
}

TEST_F(LongPollTest, EachResourceWakesForItsOwnMessage)
{
    EXPECT_CALL(*mSync, GetSyncStatus).WillRepeatedly(Return(std::vector<SyncStatus>{}));
    EXPECT_CALL(*mSync, GetRemoteHubStatusList).WillRepeatedly(Return(std::vector<dto::RemoteLoginStatus>{}));
    EXPECT_CALL(*mSync, GetCollaboratorsPresence).WillRepeatedly(Return(200));
    EXPECT_CALL(*mSync, GetProductionBatons).WillRepeatedly(Return(200));
    const auto poll = [&](const std::string& inPath) { return Poll(inPath, Send("GET", inPath).Header("ETag")); };
    const auto errors = poll("/api/errors/all");
    const auto sync = poll("/api/sync/status/all");
    const auto login = poll("/api/remoteLogin");
    const auto presence = poll("/api/presence/s1");
    const auto batons = poll("/api/batons/s1");

    ComplaintBox::Instance()->FileComplaint("s1", 7, "trouble");
    EXPECT_CALL(*mSync, GetSyncStatus).WillRepeatedly(Return(std::vector(1, SyncStatus())));
    EXPECT_CALL(*mSync, GetRemoteHubStatusList).WillRepeatedly(Return(std::vector(1, dto::RemoteLoginStatus())));
    dto::PresenceResource presenceNow;
    presenceNow.mEngaged = true;
    dto::BatonsResource batonsNow;
    batonsNow.mEngaged = true;
    EXPECT_CALL(*mSync, GetCollaboratorsPresence).WillRepeatedly(DoAll(SetArgReferee<1>(presenceNow), Return(200)));
    EXPECT_CALL(*mSync, GetProductionBatons).WillRepeatedly(DoAll(SetArgReferee<1>(batonsNow), Return(200)));
    mScheduler->RunUntilIdle();
    EXPECT_EQ(200, errors->Status());
    EXPECT_NE(std::string::npos, errors->Body().find("trouble"));
    for (const auto& answer : {sync, login, presence, batons})
        EXPECT_TRUE(answer->mResponses.empty());

    using noxcore::messaging::PostMessageToUIThread;
    PostMessageToUIThread(SyncBox::Station(), std::make_shared<SyncBox::SyncStatusChangedMessage>("other"));
    PostMessageToUIThread(SyncBox::Station(), std::make_shared<SyncBox::RemoteHubStatusChangedMessage>());
    PostMessageToUIThread(SyncBox::Station(), std::make_shared<SyncBox::CollaboratorsPresenceChangedMessage>("p-s1"));
    PostMessageToUIThread(SyncBox::Station(), std::make_shared<SyncBox::ProductionBatonsChangedMessage>("p-other"));
    mScheduler->RunUntilIdle();
    for (const auto& answer : {sync, login, presence})
        EXPECT_EQ(200, answer->Status());
    EXPECT_TRUE(batons->mResponses.empty());
    PostMessageToUIThread(SyncBox::Station(), std::make_shared<SyncBox::ProductionBatonsChangedMessage>("p-s1"));
    mScheduler->RunUntilIdle();
    EXPECT_EQ(200, batons->Status());
}

TEST_F(LongPollTest, ShutDownAnswersAllOnce)
{
    const auto waiting = PollSession("s1", TagOf("s1"));
    for (const auto& service : mServices) {
        service->Unregister(mServer);
        service->FailAllAsyncFulfillments();
    }
    EXPECT_EQ(304, waiting->Status());
    Change("s1");
    EXPECT_EQ(1U, waiting->mResponses.size());
    EXPECT_EQ(0U, LogCount("Failing in-flight requests"));
}

TEST_F(LongPollTest, AStepThatTakesLongIsTold)
{
    mSlowness = 2 * noxcore::kTicksPerSecond;
    EXPECT_EQ(200, PollSession("s1", "stale")->Status());
    EXPECT_EQ(0U, LogCount("Long polling blocked the main thread"));
    mSlowness = 2 * noxcore::kTicksPerSecond + 1;
    EXPECT_EQ(200, PollSession("s1", "stale")->Status());
    EXPECT_EQ("seconds > 2", LogValue("Long polling blocked the main thread", "expression"));
    EXPECT_EQ("/api/session/status/s1", LogValue("Long polling blocked the main thread", "url"));
    const double seconds = std::stod(LogValue("Long polling blocked the main thread", "seconds"));
    EXPECT_NEAR(static_cast<double>(mSlowness) / noxcore::kTicksPerSecond, seconds, 0.001);
}

TEST_F(LongPollTest, AClientThatGoesFreesItsPlaceAtOnce)
{
    const auto request =
        noxnet::http::server::MakeRequest("GET", "/api/session/status/s1", PollHeaders(TagOf("s1")), nullptr);
    int answers = 0;
    mServer.Dispatch(request, [&](const ResponsePtr&) { ++answers; });
    mScheduler->RunUntilIdle();
    const std::weak_ptr<IncomingRequest> weak = request;
    EXPECT_LT(1, request.use_count());
    request->MarkClientGone();
    mScheduler->RunUntilIdle();
    EXPECT_EQ(1, request.use_count());  // nobody keeps it
    EXPECT_EQ(1, answers);
    EXPECT_EQ(0U, LogCount("A handler dropped its request"));
}

/// The number of random events; a short form unless told otherwise.
int EventCount()
{
    const char* text = std::getenv("HUB_TEST_POLL_EVENTS");
    return text == nullptr ? 30000 : std::atoi(text);
}

/// Readers and changes in any order and at any moment, beside a model of who must be answered and how.
class LongPollModelTest : public LongPollTest
{
protected:
    /// What one reader is waiting for.
    struct Reader
    {
        AnswerPtr mAnswer = std::make_shared<Answer>();
        std::string mSession;
        int mKnownRevision = 0;   ///< -1: it knows none
        bool mIsWaiting = false;  ///< surely, at the last moment of rest
        bool mMayBeDropped = false;
        bool mMustBeDropped = false;
    };

    void AddReader(const std::string& inSession, bool inIsStale, bool inByProduction)
    {
        Reader reader;
        reader.mSession = inSession;
        reader.mKnownRevision = inIsStale ? -1 : mRevisions[inSession];
        std::string& tag = mTags[inSession + "/" + std::to_string(mRevisions[inSession])];
        if (tag.empty()) tag = TagOf(inSession);
        mServer.Dispatch(
            noxnet::http::server::MakeRequest("GET",
                                              "/api/session/status/" + (inByProduction ? "p-" + inSession : inSession),
                                              PollHeaders(inIsStale ? "stale" : tag), nullptr),
            [answer = reader.mAnswer](const ResponsePtr& inResponse) { answer->mResponses.push_back(inResponse); });
        mOpen.push_back(std::move(reader));
    }
    void DropAll()
    {
        for (Reader& reader : mOpen) {
            reader.mMayBeDropped = true;
            reader.mMustBeDropped |= reader.mIsWaiting;
        }
        DropAllLongPollsMessage::Post();
    }
    void Check(Reader& ioReader)
    {
        const std::size_t answers = ioReader.mAnswer->mResponses.size();
        ASSERT_GE(1U, answers) << "answered twice";
        const bool isStale = ioReader.mKnownRevision != mRevisions[ioReader.mSession];
        ASSERT_TRUE(answers == 1 || !(isStale || ioReader.mMustBeDropped)) << "a wake-up was lost";
        if (answers == 0) {
            ioReader.mIsWaiting = true;
            return;
        }
        const int status = ioReader.mAnswer->Status();
        ASSERT_TRUE((status == 200 && isStale) || (status == 304 && ioReader.mMayBeDropped))
            << status << " without a reason";
    }
    /// Lets everything come to rest and holds it against the model.
    void CheckAll()
    {
        mScheduler->RunUntilIdle();
        for (Reader& reader : mOpen) {
            Check(reader);
            if (HasFatalFailure()) return;
        }
        mAnswered += std::erase_if(mOpen, [](const Reader& inReader) { return !inReader.mAnswer->mResponses.empty(); });
    }

    std::vector<Reader> mOpen;
    std::map<std::string, std::string> mTags;  // session and revision -> tag
    std::size_t mAnswered = 0;
};

TEST_F(LongPollModelTest, EachRequestIsAnsweredOnceAndWhenAModelSaysSo)
{
    std::mt19937_64 random(mScheduler->Seed());
    const std::vector<std::string> sessions = {"s1", "s2", "s3", "s4"};
    const int events = EventCount();
    for (int event = 0; event < events && !HasFatalFailure(); ++event) {
        const std::string& session = sessions[random() % sessions.size()];
        const std::uint64_t kind = random() % 100;
        if (kind < 45) {
            AddReader(session, random() % 4 == 0, random() % 2 == 0);
        } else if (kind < 70) {
            ++mRevisions[session];
            PostChange(session);
        } else if (kind < 98) {
            PostChange(session);  // of something that the status does not show
        } else {
            DropAll();
        }
        for (std::uint64_t steps = random() % 6; steps > 0 && mScheduler->Step(); --steps) {
        }
        if (random() % 10 == 0) CheckAll();
    }
    CheckAll();
    std::cout << events << " events, " << mAnswered << " requests answered\n";
}

}  // namespace

}  // namespace service_test

#include "Inc/LocalHubOutOfProcess/OutOfProcessServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/DropAllLongPolls.h"
#include "Inc/Service/ServiceRegistry.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/ProcessConfiguration.h"
#include "Platform/noxcore/TestCommandRunnerRegistry.h"
#include "Tests/LocalHubOutOfProcess/FakeHub.h"
#include "Tests/Support/FaultVfs.h"

namespace VantryLocalHub {
namespace {

using LogRecord = testing_support::LogCapture::Record;
using noxcore::logging::Level;
using noxtransport::TransportError;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr unsigned kFiveSeconds = 5000;

struct Arguments
{
    std::uint16_t mPort = 0;
    std::uint16_t mInfoPort = 0;
    std::string mDowngrade;
    std::string mUpgrade;
    std::string mFilter;
};

class OutOfProcessServerTest : public testing::Test, protected FakeProcess
{
protected:
    OutOfProcessServer& Construct(const Arguments& inArguments = {})
    {
        mServer = std::make_unique<OutOfProcessServer>(MakeFakeParts(mScript), u"TesselProjectsLocalHub.2",
                                                       inArguments.mPort, inArguments.mInfoPort, inArguments.mDowngrade,
                                                       inArguments.mUpgrade, inArguments.mFilter);
        return *mServer;
    }

    /// Whether the event loop was told to end: one that runs comes back at once then.
    [[nodiscard]] bool HasQuit() const { return mScript->Count("link gone") > 0; }

    [[nodiscard]] std::vector<LogRecord> Find(std::string_view inMessage) const { return mLog->Find(inMessage); }

    const std::shared_ptr<noxcore::threads::MainThread> mLoop = noxcore::threads::GetRegisteredMainThread();
    std::unique_ptr<OutOfProcessServer> mServer;
};

TEST_F(OutOfProcessServerTest, TheHubIsPutTogetherInOneOrder)
{
    Construct({.mPort = 4000});
    EXPECT_THAT(mScript->mEvents, ElementsAre("HTTP server 4000 first -1", "info port 0", "store made", "engine made",
                                              "transport started", "RPC server VantryOutOfProcess", "session callbacks",
                                              "register .*discovery.*", "register ^/api/sessions/([\\w\\-\\*]+)$",
                                              "start with 2 services", "link manager asked"));
    const auto started = Find("Started local HTTP server");
    ASSERT_THAT(started, SizeIs(1));
    EXPECT_EQ(Level::Information, started[0].mLevel);
    EXPECT_EQ("4000", started[0].Value("port"));
}

TEST_F(OutOfProcessServerTest, TheLinkManagerIsToldWhoTheHubIsAndWhereItsTransportListens)
{
    noxcore::config::SetClientName("TesselProjectsLocalHub");
    noxcore::config::SetClientVersion("25.3.NOX_PATCH_VERSION");
    Construct();
    EXPECT_EQ("TesselProjectsLocalHub.2", mScript->mRegistered.mName);
    EXPECT_EQ("TesselProjectsLocalHub", mScript->mRegistered.mAppName);
    EXPECT_EQ("25.3.NOX_PATCH_VERSION", mScript->mRegistered.mAppVersion);
    EXPECT_EQ("1", mScript->mRegistered.mProtoVersion);
    EXPECT_TRUE(mScript->mRegistered.mHeadless);
    EXPECT_TRUE(mScript->mRegistered.mHeadlessOnly);
    EXPECT_FALSE(mScript->mRegistered.mSelflinkOnly);
    EXPECT_EQ("127.0.0.1", mScript->mRegisteredAddress.mAddress);
    EXPECT_EQ(40001, mScript->mRegisteredAddress.mPort);
}

TEST_F(OutOfProcessServerTest, TheServicesOfTheProgramStandInTheOrderOfTheirExpressions)
{
    std::vector<std::string> names;
    for (const auto& service : MakeAllServices())
        names.emplace_back(service->Route().mName);
    EXPECT_THAT(
        names,
        ElementsAre("ArchivedProductionsService", "ArchivedProductionService", "AssetService", "AssetsService",
                    "CollaboratorsService", "CollaboratorsActivityService", "CollaboratorsPresenceService",
                    "CurrentUserService", "DifferencesService", "ErrorsService", "HistoryService", "InvitesService",
                    "JobsService", "MediaLocatorsService", "PosterFrameService", "ProductionsService",
                    "ProductionService", "RopeFileService", "RemoteLoginService", "ResolveService", "RootService",
                    "SessionsService", "SessionStatusService", "ShareService", "SnapshotService", "SyncControlService",
                    "SyncStatusService", "TemplateService", "TransactionService", "TransactionsService",
                    "ProductionBatonService", "PreferencesService"));
}

TEST_F(OutOfProcessServerTest, ServicesAreRegisteredAndTakenBackInTheOrderGiven)
{
    auto parts = MakeFakeParts(mScript);
    parts.mMakeServices = [script = mScript] {
        std::vector<std::shared_ptr<VantryAPIService>> services;
        for (const auto& route : Routes::kServices)
            services.push_back(std::make_shared<FakeService>(script, route));
        return services;
    };
    OutOfProcessServer server(std::move(parts), u"hub", 0, 0, {}, {}, {});
    std::vector<std::string> expressions;
    for (const auto& route : Routes::kServices)
        expressions.emplace_back(route.mExpression);
    ASSERT_THAT(expressions, SizeIs(32));
    EXPECT_EQ(expressions, mScript->After("register "));
    server.Terminate();
    EXPECT_EQ(expressions, mScript->After("unregister "));
    EXPECT_EQ("fail ArchivedProductionsService",
              *(std::find(mScript->mEvents.begin(), mScript->mEvents.end(), "unregister ^/api/archives$") + 1));
}

TEST_F(OutOfProcessServerTest, AFailedFirstStartEndsInAServerOnAPortOfItsOwnChoosingWithoutServices)
{
    mScript->mStartResults = {500};
    Construct({.mPort = 4000});
    EXPECT_THAT(mScript->After("HTTP server "), ElementsAre("4000 first -1", "0 replacement -1", "gone"));
    EXPECT_THAT(mScript->After("start with "), ElementsAre("2 services", "0 services"));
    const auto warnings = Find("Unable to start local HTTP server. Will retry on a different port.");
    ASSERT_THAT(warnings, SizeIs(1));
    EXPECT_EQ(Level::Warning, warnings[0].mLevel);
    EXPECT_EQ("4000", warnings[0].Value("requestedPort"));
    EXPECT_EQ("4000", warnings[0].Value("serverPort"));
    EXPECT_EQ("49152", Find("Started local HTTP server")[0].Value("port"));
}

TEST_F(OutOfProcessServerTest, AStartIsASuccessWithStatus200Alone)
{
    mScript->mStartResults = {204};
    Construct({.mPort = 4000});
    EXPECT_THAT(mScript->After("start with "), ElementsAre("2 services", "0 services"));
}

TEST_F(OutOfProcessServerTest, TheReleaseOfDatabasesIsQueuedBeforeTheLinkManagerIsAsked)
{
    mScript->mWhenRegistered = [this] {
        EXPECT_EQ(0U, mScript->Count("store releases"));
        mScheduler->Advance(kFiveSeconds);
        EXPECT_EQ(1U, mScript->Count("store releases"));
    };
    Construct();
    EXPECT_EQ(1U, mScript->Count("link manager asked"));
}

TEST_F(OutOfProcessServerTest, WhatWasMadeIsClosedWhenALaterPartCannotBeMade)
{
    auto parts = MakeFakeParts(mScript);
    parts.mCreateEngine = []() -> std::unique_ptr<EnginePart> { throw std::runtime_error("no engine"); };
    EXPECT_THROW(OutOfProcessServer(std::move(parts), u"hub", 0, 0, {}, {}, {}), std::runtime_error);
    EXPECT_EQ(1U, mScript->Count("store closed"));
    EXPECT_EQ(0U, mScript->Count("engine closed"));

    parts = MakeFakeParts(mScript);
    parts.mMakeServices = []() -> std::vector<std::shared_ptr<VantryAPIService>> { throw std::runtime_error("none"); };
    EXPECT_THROW(OutOfProcessServer(std::move(parts), u"hub", 0, 0, {}, {}, {}), std::runtime_error);
    EXPECT_EQ(1U, mScript->Count("engine closed"));
    EXPECT_EQ(2U, mScript->Count("store closed"));
    EXPECT_EQ(1U, mScript->Count("transport server gone"));
}

TEST_F(OutOfProcessServerTest, AfterFiveFailedStartsTheHubGivesUpAndGoesOnToItsEnd)
{
    mScript->mStartResults = {500, 500, 500, 500, 500};
    Construct({.mPort = 4000});
    EXPECT_THAT(mScript->After("start with "), SizeIs(5));
    EXPECT_THAT(Find("Unable to start local HTTP server. Will retry on a different port."), SizeIs(4));
    const auto errors = Find("Unable to start local HTTP server. Giving up.");
    ASSERT_THAT(errors, SizeIs(1));
    EXPECT_EQ(Level::Error, errors[0].mLevel);
    EXPECT_EQ("4000", errors[0].Value("requestedPort"));
    EXPECT_EQ("0", errors[0].Value("serverPort"));
    const std::string stack(errors[0].Value("stackTrace"));
    EXPECT_EQ(9, std::count(stack.begin(), stack.end(), '<')) << "ten calls: " << stack;
    EXPECT_THAT(Find("Started local HTTP server"), IsEmpty());
    mLoop->RunLoop();  // comes back, because it was told to end
    EXPECT_EQ(0, mScheduler->GetClock()->MonotonicTicks());
}

TEST_F(OutOfProcessServerTest, ATransportThatCannotListenEndsTheHub)
{
    mScript->mTransportListens = false;
    Construct();
    EXPECT_EQ(0U, mScript->Count("link manager asked"));
    mLoop->RunLoop();
    EXPECT_EQ(0, mScheduler->GetClock()->MonotonicTicks());
    mServer->Terminate();
}

TEST_F(OutOfProcessServerTest, AHubWithoutClientsEndsFiveSecondsAfterTheLastOneLeft)
{
    Construct();
    mScheduler->Advance(60000);
    EXPECT_FALSE(HasQuit());
    EXPECT_EQ(TransportError::None, mScript->mOpened("s1"));
    mScheduler->Advance(60000);
    mScript->mClosed("s1");
    mScheduler->Advance(kFiveSeconds - 1);
    EXPECT_FALSE(HasQuit());
    mScheduler->Advance(1);
    EXPECT_TRUE(HasQuit());
    mLoop->RunLoop();  // comes back
    EXPECT_EQ("s1", Find("Client connected")[0].Value("session"));
    EXPECT_EQ("s1", Find("Client disconnected")[0].Value("session"));
}

TEST_F(OutOfProcessServerTest, AClientThatComesBackWithinFiveSecondsKeepsTheHubAlive)
{
    Construct();
    mScript->mOpened("s1");
    mScript->mClosed("s1");
    mScheduler->Advance(kFiveSeconds - 1);
    EXPECT_EQ(TransportError::None, mScript->mOpened("s2"));
    mScheduler->Advance(600000);
    EXPECT_FALSE(HasQuit());
    mScript->mClosed("s2");
    mScheduler->Advance(kFiveSeconds);
    EXPECT_TRUE(HasQuit());
}

TEST_F(OutOfProcessServerTest, OneOfTwoClientsLeavingChangesNothing)
{
    Construct();
    mScript->mOpened("s1");
    mScript->mOpened("s2");
    mScript->mClosed("s1");
    mScheduler->Advance(600000);
    EXPECT_FALSE(HasQuit());
}

TEST_F(OutOfProcessServerTest, TwoClientsLeavingWithinFiveSecondsQueueOneRun)
{
    mScript->mJobs = 1;
    Construct();
    mScript->mOpened("s1");
    mScript->mClosed("s1");
    mScheduler->Advance(2000);
    mScript->mOpened("s2");
    mScript->mClosed("s2");
    mScheduler->Advance(3000);
    EXPECT_EQ(1U, mScript->Count("jobs run"));
    mScheduler->Advance(kFiveSeconds - 1);
    EXPECT_EQ(1U, mScript->Count("jobs run"));
}

TEST_F(OutOfProcessServerTest, ACloseWithoutAnyClientLeavesTheCountAtZeroAndQueuesTheDecision)
{
    Construct();
    mScript->mClosed("ghost");
    mScheduler->Advance(kFiveSeconds - 1);
    EXPECT_FALSE(HasQuit());
    mScheduler->Advance(1);
    EXPECT_TRUE(HasQuit());

    // Had the count wrapped or gone below zero, this client would not be seen.
    mScript->mOpened("s1");
    mServer->TerminateIfAppropriate();
    EXPECT_EQ(1U, mScript->Count("link gone"));
}

TEST_F(OutOfProcessServerTest, OpenJobsAreDrivenAndLookedAtEveryFiveSecondsUntilTheyAreDone)
{
    mScript->mJobs = 3;
    Construct();
    mScript->mOpened("s1");
    mScript->mClosed("s1");
    mScheduler->Advance(3 * kFiveSeconds);
    const auto waits = Find("Will exit after jobs complete");
    ASSERT_THAT(waits, SizeIs(3));
    EXPECT_EQ(Level::Detail, waits[0].mLevel);
    EXPECT_EQ("3", waits[0].Value("jobCount"));
    EXPECT_EQ(3U, mScript->Count("jobs run"));
    EXPECT_FALSE(HasQuit());
    mScript->mJobs = 0;
    mScheduler->Advance(kFiveSeconds);
    EXPECT_TRUE(HasQuit());
    EXPECT_EQ(3U, mScript->Count("jobs run"));
}

TEST_F(OutOfProcessServerTest, WithoutAnEngineTheDecisionIsPutOff)
{
    mScript->mEngineIsThere = false;
    Construct();
    mScript->mClosed("s1");
    mScheduler->Advance(3 * kFiveSeconds);
    EXPECT_FALSE(HasQuit());
    EXPECT_THAT(Find("Will exit after jobs complete"), IsEmpty());
    mScript->mEngineIsThere = true;
    mScheduler->Advance(kFiveSeconds);
    EXPECT_TRUE(HasQuit());
}

TEST_F(OutOfProcessServerTest, EveryClosedSessionWakesAllLongPolls)
{
    int woken = 0;
    const auto listener =
        DropAllLongPollsMessage::Station()->Listen<DropAllLongPollsMessage>([&](const auto&) { ++woken; });
    Construct();
    mScript->mOpened("s1");
    mScript->mOpened("s2");
    mScript->mClosed("s1");
    EXPECT_EQ(0, woken);  // later, on the main thread
    noxcore::threads::AsyncCallFromMainThread([this] { mLoop->Quit(); });
    mLoop->RunLoop();
    EXPECT_EQ(1, woken);
}

TEST_F(OutOfProcessServerTest, UnusedDatabasesAreReleasedEveryFiveSeconds)
{
    Construct();
    mScheduler->Advance(kFiveSeconds - 1);
    EXPECT_EQ(0U, mScript->Count("store releases"));
    mScheduler->Advance(1);
    EXPECT_EQ(1U, mScript->Count("store releases"));
    EXPECT_EQ(1U, mScript->Count("engine releases"));
    EXPECT_EQ(mScheduler->GetClock()->MonotonicTicks() - 180 * noxcore::kTicksPerSecond, mScript->mCutOffs[0]);
    noxcore::debug::DebugDatabase::Instance()->SetEntry("VY.Config.LocalHub.ExpireDatabaseTimeInSeconds", "30");
    mScheduler->Advance(kFiveSeconds);
    ASSERT_THAT(mScript->mCutOffs, SizeIs(2));
    EXPECT_EQ(mScheduler->GetClock()->MonotonicTicks() - 30 * noxcore::kTicksPerSecond, mScript->mCutOffs[1]);
}

TEST_F(OutOfProcessServerTest, ASessionThatWasUsedWithinTheTimeStaysOpenAndALongerUnusedOneIsClosed)
{
    testing_support::FaultVfs vfs(mContext);
    auto parts = MakeFakeParts(mScript);
    parts.mCreateStore = HubParts::Real().mCreateStore;
    parts.mCreateEngine = HubParts::Real().mCreateEngine;
    const OutOfProcessServer server(std::move(parts), u"hub", 0, 0, {}, {}, {});
    const auto make = [] {
        dto::Session session;
        EXPECT_EQ(201,
                  ProjectBox::Instance()->CreateSession({}, {dto::RawJSON("{}"), {}}, SessionKind::LocalOnly, session));
        return session.mIdentifier;
    };
    /// How many files a read has to open.
    const auto opens = [&vfs](const ImmutableString& inID) {
        vfs.ResetCounts();
        AssetListPtr assets;
        EXPECT_EQ(200, ProjectBox::Instance()->GetAssets(inID, {}, {}, false, assets));
        return vfs.Count(testing_support::FileOperation::Open);
    };
    const ImmutableString older = make();
    const ImmutableString newer = make();
    mScheduler->Advance(4000);
    opens(older);
    mScheduler->Advance(2000);
    opens(newer);
    // The databases are looked through after 185 seconds: 181 after one read and 179 after the other.
    mScheduler->Advance(179500);
    EXPECT_EQ(0U, opens(newer));
    EXPECT_LT(0U, opens(older));
}

TEST_F(OutOfProcessServerTest, TerminateTakesEverythingDownInOneOrder)
{
    Construct();
    mScript->mOpened("s1");
    mScript->mEvents.clear();
    mServer->Terminate();
    EXPECT_THAT(mScript->mEvents,
                ElementsAre("link gone", "RPC server gone", "transport server gone", "transport gone",
                            "unregister .*discovery.*", "fail RootService", "unregister ^/api/sessions/([\\w\\-\\*]+)$",
                            "fail SessionsService", "HTTP server stopped", "engine terminated", "network shut down",
                            "engine closed", "store closed"));
}

TEST_F(OutOfProcessServerTest, NoTaskOfTheServerRunsAfterTerminate)
{
    mScript->mJobs = 1;
    Construct();
    mScript->mClosed("s1");
    mServer->Terminate();
    mScript->mEvents.clear();
    mScheduler->Advance(10 * kFiveSeconds);
    EXPECT_THAT(mScript->mEvents, IsEmpty());
}

TEST_F(OutOfProcessServerTest, ASecondTerminateDoesNothing)
{
    Construct();
    mServer->Terminate();
    mScript->mEvents.clear();
    mServer->Terminate();
    EXPECT_THAT(mScript->mEvents, IsEmpty());
}

TEST_F(OutOfProcessServerTest, ASessionDuringTerminationIsRefusedAndLeavesTheCountRaised)
{
    Construct();
    const auto opened = mScript->mOpened;
    mServer->Terminate();
    EXPECT_EQ(5, static_cast<int>(opened("late")));
    const auto warnings = Find("A client connected during local hub termination!");
    ASSERT_THAT(warnings, SizeIs(1));
    EXPECT_EQ(Level::Warning, warnings[0].mLevel);
    EXPECT_EQ("late", warnings[0].Value("sessionID"));
    EXPECT_THAT(Find("Client connected"), IsEmpty());

    // The refused session still counts: a decision taken now sees a client, and asks the engine nothing.
    mScript->mJobs = 1;
    mServer->TerminateIfAppropriate();
    EXPECT_EQ(0U, mScript->Count("jobs run"));
}

TEST_F(OutOfProcessServerTest, ASessionThatEndsWithTheTransportDoesNotHoldTheEndUp)
{
    Construct();
    mScript->mOpened("s1");
    const auto closed = mScript->mClosed;
    mServer->Terminate();
    closed("s1");
    mScheduler->Advance(10 * kFiveSeconds);
    EXPECT_EQ(1U, mScript->Count("engine closed"));
}

struct MaintenanceCase
{
    std::string mName;
    Arguments mArguments;
    std::string mEvent;
};

class Maintenance : public OutOfProcessServerTest, public testing::WithParamInterface<MaintenanceCase>
{
};

TEST_P(Maintenance, RunsInsideTheConstructorAndEndsTheHub)
{
    mScript->mMaintenanceResult = 404;
    Construct(GetParam().mArguments);
    EXPECT_THAT(mScript->mEvents,
                ElementsAre("HTTP server 0 first -1", "info port 0", "store made", "engine made", GetParam().mEvent));
    std::vector<LogRecord> records = mLog->All();
    std::erase_if(records, [](const auto& inRecord) { return inRecord.mCategory != "GitBox"; });
    ASSERT_THAT(records, SizeIs(1));
    EXPECT_EQ(Level::Warning, records[0].mLevel);
    EXPECT_EQ("s-1", records[0].Value("sessionID"));
    EXPECT_EQ("404", records[0].Value("result"));
    mLoop->RunLoop();
    EXPECT_EQ(0, mScheduler->GetClock()->MonotonicTicks());

    mScript->mEvents.clear();
    mServer->Terminate();
    EXPECT_THAT(mScript->mEvents, ElementsAre("HTTP server stopped", "engine terminated", "network shut down",
                                              "engine closed", "store closed"));
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, Maintenance,
    testing::Values(MaintenanceCase{"Downgrade", {.mDowngrade = "s-1"}, "downgrade s-1"},
                    MaintenanceCase{"Upgrade", {.mUpgrade = "s-1"}, "upgrade s-1"},
                    MaintenanceCase{
                        "DowngradeWinsOverUpgrade", {.mDowngrade = "s-1", .mUpgrade = "s-2"}, "downgrade s-1"},
                    MaintenanceCase{"UpgradeWinsOverTests", {.mUpgrade = "s-1", .mFilter = "all"}, "upgrade s-1"}),
    [](const auto& inInfo) { return inInfo.param.mName; });

TEST_F(OutOfProcessServerTest, ATestRunHandsTheWordsOfTheFilterToTheRunnerAndTracesItsReport)
{
    std::vector<std::string> words;
    noxcore::commands::TestCommandRunnerRegistry::RegisterTestCommandRunner(
        "utest", [&](const std::vector<std::string>& inArguments) {
            words = inArguments;
            return std::string("2 passed");
        });
    Construct({.mFilter = "First.*  -v"});
    EXPECT_THAT(words, ElementsAre("First.*", "-v"));
    ASSERT_THAT(Find("Running unit tests: First.*  -v"), SizeIs(1));
    EXPECT_EQ("Test", Find("Running unit tests: First.*  -v")[0].mCategory);
    EXPECT_THAT(Find("2 passed"), SizeIs(1));
    mLoop->RunLoop();
    EXPECT_EQ(0, mScheduler->GetClock()->MonotonicTicks());
}

TEST_F(OutOfProcessServerTest, ATestRunWithoutARunnerSaysSo)
{
    Construct({.mFilter = "all"});
    EXPECT_THAT(Find("There is no test command runner of the name \"utest\""), SizeIs(1));
}

}  // namespace
}  // namespace VantryLocalHub

#include <spawn.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "Platform/swiftlatch/HubFinder.h"
#include "Platform/swiftlatch/ManagerLauncher.h"
#include "Platform/swiftlatch/Paths.h"
#include "Platform/swiftlatch/SharedTransport.h"
#include "Tests/noxmarshal/RPCTestSupport.h"

namespace {

using noxcore::serialization::BuildCall;
using noxmarshal::RPCError;
using rpc_test::kPatienceInMilliseconds;
using rpc_test::RawPeer;

/// The broker as it is shipped, in a folder of its own, with the fake hub beside it. Real time throughout.
class LinkBrokerProgramTest : public testing::Test
{
protected:
    LinkBrokerProgramTest() : mScope(mContext)
    {
        namespace fs = std::filesystem;
        fs::copy_file(LINKBROKER_PROGRAM, mFolder / "linkbroker");
        fs::copy_file(FAKE_HUB_PROGRAM, mFolder / "localhub");
        setenv("FAKE_HUB_FOLDER", mFolder.Path().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): before any thread
        auto paths = std::make_shared<swiftlatch::Paths>();
        paths->mSocketFolder = mFolder / "sockets";
        paths->mProgramFolder = mFolder.Path();
        paths->mLogFolder = mFolder / "logs";
        mContext->SetInstance(paths);
    }
    /// Ends the broker that the test has started, and sees it gone.
    ~LinkBrokerProgramTest() override
    {
        const RawPeer peer(mSocket);
        const pid_t broker = BrokerProcess(peer);
        if (broker <= 0) return;
        kill(broker, SIGTERM);
        EXPECT_TRUE(peer.WaitForEnd());
    }

    /// The process that listens at the broker's socket; 0 when there is none.
    static pid_t BrokerProcess(const RawPeer& inPeer)
    {
        ucred credentials{};
        socklen_t size = sizeof credentials;
        if (!inPeer.IsConnected()) return 0;
        if (getsockopt(inPeer.Socket(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return 0;
        return credentials.pid;
    }
    [[nodiscard]] pid_t BrokerProcess() const { return BrokerProcess(RawPeer(mSocket)); }

    /// Runs the broker's program and waits for it to end.
    [[nodiscard]] int RunBroker() const
    {
        std::string program = mFolder / "linkbroker";
        std::string folder = mFolder / "sockets";
        std::string words[] = {program, "--foreground", "--socket-folder", folder};
        char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(), nullptr};
        pid_t process = 0;
        if (posix_spawn(&process, program.c_str(), nullptr, nullptr, arguments, environ) != 0) return -1;
        int status = 0;
        waitpid(process, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    testing_support::TempFolder mFolder;
    const std::string mSocket = swiftlatch::ManagerSocketPath(mFolder / "sockets");
    const std::shared_ptr<testing_support::LogCapture> mLog = std::make_shared<testing_support::LogCapture>();
    const std::shared_ptr<noxcore::HubContext> mContext = [this] {
        noxcore::HubContext::Parts parts;
        parts.mLog = mLog;
        return noxcore::HubContext::Create(std::move(parts));
    }();
    const noxcore::HubContext::Scope mScope;
};

TEST_F(LinkBrokerProgramTest, WhoeverComesFirstStartsTheBrokerAndTheNextReachesTheSameOne)
{
    EXPECT_EQ(0, BrokerProcess());
    const auto first = swiftlatch::LaunchSwiftlatchManagerRPC();
    const pid_t broker = BrokerProcess();
    EXPECT_GT(broker, 0);
    const auto second = swiftlatch::LaunchSwiftlatchManagerRPC();
    EXPECT_EQ(broker, BrokerProcess());
    EXPECT_TRUE(first->IsOpen());
    EXPECT_TRUE(second->IsOpen());
}

TEST_F(LinkBrokerProgramTest, ABrokerThatWasStartedLogsToAFile)
{
    const auto manager = swiftlatch::LaunchSwiftlatchManagerRPC();
    EXPECT_TRUE(std::filesystem::exists(mFolder / "logs/linkbroker.log"));
}

TEST_F(LinkBrokerProgramTest, TheBrokerIsNoChildOfWhoStartedIt)
{
    const auto manager = swiftlatch::LaunchSwiftlatchManagerRPC();
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG));
    EXPECT_EQ(ECHILD, errno);
    const pid_t broker = BrokerProcess();
    EXPECT_NE(getsid(0), getsid(broker));
}

TEST_F(LinkBrokerProgramTest, ASecondBrokerEndsAtOnceAndLeavesTheFirstAlone)
{
    const auto manager = swiftlatch::LaunchSwiftlatchManagerRPC();
    const pid_t broker = BrokerProcess();
    EXPECT_EQ(0, RunBroker());
    EXPECT_EQ(broker, BrokerProcess());
    EXPECT_TRUE(manager->IsOpen());
}

TEST_F(LinkBrokerProgramTest, AKilledBrokerIsReplacedThoughItsSocketIsStillThere)
{
    {
        const auto manager = swiftlatch::LaunchSwiftlatchManagerRPC();
        const RawPeer peer(mSocket);
        kill(BrokerProcess(peer), SIGKILL);
        EXPECT_TRUE(peer.WaitForEnd());
    }
    EXPECT_TRUE(std::filesystem::exists(mSocket));
    const auto manager = swiftlatch::LaunchSwiftlatchManagerRPC();
    EXPECT_TRUE(manager->IsOpen());
}

TEST_F(LinkBrokerProgramTest, ManyWhoComeAtOnceReachOneBroker)
{
    rpc_test::Events<pid_t> brokers;
    noxcore::threads::ExecuteCPUBoundTaskOnAllProcessors([&](std::size_t, std::size_t) {
        const auto manager = swiftlatch::LaunchSwiftlatchManagerRPC();
        brokers.Add(BrokerProcess());
    });
    const std::vector<pid_t> all = brokers.All();
    ASSERT_FALSE(all.empty());
    for (const pid_t broker : all)
        EXPECT_EQ(all.front(), broker);
}

TEST_F(LinkBrokerProgramTest, AClientThatAsksForTheHubStartsBrokerAndHubAndGetsTheHTTPPort)
{
    RPCError error;
    auto hub = swiftlatch::FindHub({"tester", "1", "1", {}}, error);
    ASSERT_NE(nullptr, hub) << error.mMessage;
    EXPECT_EQ(8123, hub->HTTPPort());

    const auto again = swiftlatch::FindHub({"second", "1", "1", {}}, error);
    ASSERT_NE(nullptr, again) << error.mMessage;
    swiftlatch::RegisteredServerList list;
    const auto manager = swiftlatch::LaunchSwiftlatchManagerRPC();
    ASSERT_TRUE(manager->Ask(BuildCall(swiftlatch::kMessage_ListServers), kPatienceInMilliseconds, list, error));
    ASSERT_EQ(1U, list.mServers.size());
    EXPECT_EQ("TesselProjectsLocalHub.2", list.mServers[0].mServer.mName);
}

TEST_F(LinkBrokerProgramTest, AHubThatHasEndedIsStartedAnew)
{
    RPCError error;
    auto hub = swiftlatch::FindHub({"tester", "1", "1", {}}, error);
    ASSERT_NE(nullptr, hub) << error.mMessage;
    rpc_test::Events<bool> lost;
    hub.reset();  // the fake hub ends with its last client
    const auto next = swiftlatch::FindHub({"tester", "1", "1", {}}, error);
    ASSERT_NE(nullptr, next) << error.mMessage;
    EXPECT_TRUE(next->IsOpen());
}

TEST_F(LinkBrokerProgramTest, ABrokerNeedsAFolderThatIsItsUsersAlone)
{
    std::filesystem::create_directory(mFolder / "sockets");
    std::filesystem::permissions(mFolder / "sockets", std::filesystem::perms::all);
    EXPECT_EQ(1, RunBroker());
    EXPECT_EQ(0, BrokerProcess());
}

}  // namespace

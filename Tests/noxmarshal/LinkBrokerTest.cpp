#include "Tools/linkbroker/LinkBroker.h"

#include <set>

#include "Platform/swiftlatch/Protocol.h"
#include "Tests/noxmarshal/RPCTestSupport.h"

namespace {

using linkbroker::LinkBroker;
using noxcore::serialization::BuildCall;
using noxmarshal::JSONValue;
using noxmarshal::RPCClient;
using noxmarshal::RPCError;
using noxtransport::SocketTransport;
using rpc_test::Events;
using rpc_test::kPatienceInMilliseconds;

/// Starts nothing; the test plays the program.
class FakeStarter final : public linkbroker::ProgramStarter
{
public:
    bool Start(const std::string& inServerName) override
    {
        const bool known = mKnown.contains(inServerName);
        {
            const std::lock_guard lock(mMutex);
            if (known) mRunning.insert(inServerName);
        }
        mStarted.Add(inServerName);
        return known;
    }
    linkbroker::ProgramState StateOf(const std::string& inServerName) override
    {
        const std::lock_guard lock(mMutex);
        return mRunning.contains(inServerName) ? linkbroker::ProgramState::Running : mEnd;
    }
    void ProgramEnds(const std::string& inServerName, linkbroker::ProgramState inEnd = linkbroker::ProgramState::Ended)
    {
        const std::lock_guard lock(mMutex);
        mRunning.erase(inServerName);
        mEnd = inEnd;
    }

    Events<std::string> mStarted;

private:
    std::mutex mMutex;
    const std::set<std::string> mKnown{"hub", "other"};
    std::set<std::string> mRunning;
    linkbroker::ProgramState mEnd = linkbroker::ProgramState::Ended;  ///< of what does not run
};

/// The broker in a context of its own; servers and clients in another, so that only the broker's delays are turned.
class LinkBrokerTest : public testing::Test
{
protected:
    LinkBrokerTest()
    {
        const noxcore::HubContext::Scope scope(mBrokerSide.mContext);
        mBrokerTransport = SocketTransport::Create({});
        mServer = mBrokerTransport->ServerStartLocal(mPath);
        mRPCServer = std::make_unique<noxmarshal::RPCServer>(mServer, "linkbroker");
        mBroker = LinkBroker::Create(mServer, mStarter, {}, [this] { mUnused.Add(true); });
        mTransport = SocketTransport::Create({});
    }
    ~LinkBrokerTest() override
    {
        mRPCServer.reset();
        mServer.reset();
        mBroker.reset();
    }

    /// The program that was started ends without success, and the broker looks after it.
    void FailStart()
    {
        mStarter->ProgramEnds("hub", linkbroker::ProgramState::Failed);
        mBrokerSide.mTime->Advance(1000);
    }

    std::shared_ptr<RPCClient> Connect()
    {
        const noxcore::HubContext::Scope scope(mClientSide.mContext);
        auto client = RPCClient::ConnectLocal(mTransport, mPath);
        // Answered, so that the session is counted.
        swiftlatch::ManagerInformation information;
        EXPECT_TRUE(Ask(client, BuildCall(swiftlatch::kMessage_GetProtocolVersion), information));
        EXPECT_EQ("1", information.mProtoVersion);
        return client;
    }
    template <class T>
    bool Ask(const std::shared_ptr<RPCClient>& inClient, const std::string& inCall, T& outValue)
    {
        const noxcore::HubContext::Scope scope(mClientSide.mContext);
        return inClient->Ask(inCall, kPatienceInMilliseconds, outValue, mError);
    }
    std::shared_ptr<RPCClient> RegisterServer(const std::string& inName, std::uint16_t inPort)
    {
        const noxcore::HubContext::Scope scope(mClientSide.mContext);
        auto server = Connect();
        const swiftlatch::ServerInformation information{inName, "app", "1", "1", true, true, false};
        EXPECT_TRUE(server->Ask(BuildCall(swiftlatch::kMessage_RegisterServerWithVersionGeneric, information,
                                          swiftlatch::ServerAddress{"127.0.0.1", inPort}, swiftlatch::OpenAssetList{}),
                                kPatienceInMilliseconds, mError));
        return server;
    }
    /// Port of a server that is registered; 0 for none.
    std::uint16_t Find(const std::shared_ptr<RPCClient>& inClient, const std::string& inName)
    {
        swiftlatch::ServerAddress address;
        return Ask(inClient, BuildCall(swiftlatch::kMessage_FindServer, inName), address) ? address.mPort : 0;
    }
    /// Asks without waiting; the answer's port, or the error's code, goes to mAnswers.
    void BeginFind(const std::shared_ptr<RPCClient>& inClient, const std::string& inName)
    {
        inClient->SendRequest(
            BuildCall(swiftlatch::kMessage_FindServer, inName),
            [this](const JSONValue& inResult) {
                swiftlatch::ServerAddress address;
                ReadJSON(inResult["value"], address);
                mAnswers.Add(address.mPort);
            },
            [this](const RPCError& inError) { mAnswers.Add(inError.mCode); });
    }
    std::vector<std::string> List(const std::shared_ptr<RPCClient>& inClient)
    {
        swiftlatch::RegisteredServerList list;
        EXPECT_TRUE(Ask(inClient, BuildCall(swiftlatch::kMessage_ListServers), list));
        std::vector<std::string> names;
        for (const auto& server : list.mServers) {
            names.push_back(server.mServer.mName + ":" + std::to_string(server.mAddress.mPort));
        }
        return names;
    }
    /// Closes the last session and waits until the broker has seen it.
    void Leave(std::shared_ptr<RPCClient>& ioClient, std::size_t inTimersExpected)
    {
        ioClient.reset();
        mBrokerSide.mTime->WaitForTimers(inTimersExpected);
    }

    testing_support::TempFolder mFolder;
    const std::string mPath = mFolder / "socket";
    rpc_test::TestContext mBrokerSide;
    rpc_test::TestContext mClientSide;
    const std::shared_ptr<FakeStarter> mStarter = std::make_shared<FakeStarter>();
    Events<bool> mUnused;
    Events<int> mAnswers;
    RPCError mError;
    std::shared_ptr<SocketTransport> mBrokerTransport;
    std::shared_ptr<SocketTransport> mTransport;
    std::shared_ptr<SocketTransport::Server> mServer;
    std::unique_ptr<noxmarshal::RPCServer> mRPCServer;
    std::shared_ptr<LinkBroker> mBroker;
};

TEST_F(LinkBrokerTest, EachOfTwoClientsFindsEachOfTwoServers)
{
    const auto hub = RegisterServer("hub", 1001);
    const auto other = RegisterServer("other", 1002);
    const auto first = Connect();
    const auto second = Connect();
    EXPECT_EQ(1001, Find(first, "hub"));
    EXPECT_EQ(1002, Find(first, "other"));
    EXPECT_EQ(1002, Find(second, "other"));
    EXPECT_EQ(1001, Find(second, "hub"));
    EXPECT_EQ((std::vector<std::string>{"hub:1001", "other:1002"}), List(first));
    EXPECT_TRUE(mStarter->mStarted.All().empty());
}

TEST_F(LinkBrokerTest, ARegistrationGoesWithItsSession)
{
    auto hub = RegisterServer("hub", 1001);
    const auto other = RegisterServer("other", 1002);
    const auto client = Connect();
    hub.reset();
    // The end of that session and this question travel on different sockets: ask until it has arrived.
    while (List(client).size() != 1) {
    }
    EXPECT_EQ((std::vector<std::string>{"other:1002"}), List(client));
}

TEST_F(LinkBrokerTest, OfTwoServersWithOneNameTheLaterOneIsFound)
{
    const auto before = RegisterServer("hub", 1001);
    const auto after = RegisterServer("hub", 1002);
    EXPECT_EQ(1002, Find(Connect(), "hub"));
}

TEST_F(LinkBrokerTest, AServerThatRegistersAgainHasItsNewAddress)
{
    const auto hub = RegisterServer("hub", 1001);
    const swiftlatch::ServerAddress moved{"127.0.0.1", 1003};
    const noxcore::HubContext::Scope scope(mClientSide.mContext);
    EXPECT_TRUE(hub->Ask(
        BuildCall(swiftlatch::kMessage_RegisterServer, "hub", moved, swiftlatch::OpenProjectList{}, true, true, false),
        kPatienceInMilliseconds, mError));
    EXPECT_EQ((std::vector<std::string>{"hub:1003"}), List(hub));
}

TEST_F(LinkBrokerTest, ArgumentsThatAreNotTheMessagesAreRefused)
{
    const auto client = Connect();
    const noxcore::HubContext::Scope scope(mClientSide.mContext);
    for (const auto message :
         {swiftlatch::kMessage_RegisterServerWithVersionGeneric, swiftlatch::kMessage_RegisterServerWithVersion,
          swiftlatch::kMessage_RegisterServer, swiftlatch::kMessage_FindServer}) {
        EXPECT_FALSE(client->Ask(BuildCall(message, true), kPatienceInMilliseconds, mError)) << message;
        EXPECT_EQ(noxmarshal::kRPCError_InvalidParams, mError.mCode);
    }
    EXPECT_TRUE(List(client).empty());
}

TEST_F(LinkBrokerTest, AServerThatIsNotThereIsStartedOnceAndAllWhoAskedAreAnsweredWhenItRegisters)
{
    const auto first = Connect();
    const auto second = Connect();
    BeginFind(first, "hub");
    BeginFind(second, "hub");
    mStarter->mStarted.WaitFor(1);
    EXPECT_TRUE(List(second).empty());  // both questions have arrived
    mBrokerSide.mTime->Advance(3000);
    EXPECT_TRUE(mAnswers.All().empty());
    const auto hub = RegisterServer("hub", 1001);
    EXPECT_EQ((std::vector<int>{1001, 1001}), mAnswers.WaitFor(2));
    EXPECT_EQ((std::vector<std::string>{"hub"}), mStarter->mStarted.All());
}

TEST_F(LinkBrokerTest, AProgramThatEndsWithoutRegisteringIsStartedAgainWhileSomebodyWaits)
{
    const auto client = Connect();
    BeginFind(client, "hub");
    mStarter->mStarted.WaitFor(1);
    mStarter->ProgramEnds("hub");
    mBrokerSide.mTime->WaitForTimers(3);  // the broker's own end, the limit, the next look
    mBrokerSide.mTime->Advance(1000);
    EXPECT_EQ(2U, mStarter->mStarted.All().size());
    const auto hub = RegisterServer("hub", 1001);
    EXPECT_EQ((std::vector<int>{1001}), mAnswers.WaitFor(1));
    mStarter->ProgramEnds("hub");
    mBrokerSide.mTime->Advance(5000);
    EXPECT_EQ(2U, mStarter->mStarted.All().size());
}

TEST_F(LinkBrokerTest, AProgramThatFailsThreeTimesInARowIsGivenUp)
{
    const auto client = Connect();
    BeginFind(client, "hub");
    mBrokerSide.mTime->WaitForTimers(3);
    for (std::size_t failures = 1; failures < 3; ++failures) {
        FailStart();
        EXPECT_EQ(failures + 1, mStarter->mStarted.All().size());
    }
    EXPECT_TRUE(mAnswers.All().empty());
    FailStart();
    EXPECT_EQ((std::vector<int>{noxmarshal::kRPCError_NotFound}), mAnswers.WaitFor(1));
    EXPECT_EQ(3U, mStarter->mStarted.All().size());
}

TEST_F(LinkBrokerTest, FailuresBeforeARegistrationDoNotCount)
{
    using linkbroker::ProgramState;
    const auto client = Connect();
    BeginFind(client, "hub");
    mBrokerSide.mTime->WaitForTimers(3);
    for (int i = 0; i < 2; ++i) {
        FailStart();
    }
    auto hub = RegisterServer("hub", 1001);
    EXPECT_EQ((std::vector<int>{1001}), mAnswers.WaitFor(1));
    mStarter->ProgramEnds("hub", ProgramState::Failed);
    hub.reset();
    const auto other = Connect();
    while (!List(other).empty()) {
    }
    BeginFind(client, "hub");
    EXPECT_EQ(4U, mStarter->mStarted.WaitFor(4).size());
}

TEST_F(LinkBrokerTest, AServerThatDoesNotRegisterInTimeIsAnError)
{
    const auto client = Connect();
    BeginFind(client, "hub");
    mBrokerSide.mTime->WaitForTimers(3);
    mBrokerSide.mTime->Advance(19999);
    EXPECT_TRUE(mAnswers.All().empty());
    mBrokerSide.mTime->Advance(1);
    EXPECT_EQ((std::vector<int>{noxmarshal::kRPCError_NotFound}), mAnswers.WaitFor(1));
    const auto hub = RegisterServer("hub", 1001);
    EXPECT_EQ(1001, Find(client, "hub")) << "a later question is answered as ever";
}

TEST_F(LinkBrokerTest, AServerThatNobodyKnowsIsAnErrorAtOnce)
{
    const auto client = Connect();
    EXPECT_EQ(0, Find(client, "stranger"));
    EXPECT_EQ(noxmarshal::kRPCError_NotFound, mError.mCode);
}

TEST_F(LinkBrokerTest, WhoLeavesWhileWaitingIsWaitedForNoMore)
{
    const auto stays = Connect();
    auto leaves = Connect();
    BeginFind(leaves, "hub");
    mBrokerSide.mTime->WaitForTimers(3);
    mStarter->ProgramEnds("hub");
    leaves.reset();
    EXPECT_EQ((std::vector<int>{noxmarshal::kRPCError_ConnectionLost}), mAnswers.WaitFor(1));
    // A session that opens after the other's end was queued is served after it by the one thread of the transport.
    for (int i = 0; i < 3; ++i)
        Connect();
    const std::size_t before = mStarter->mStarted.All().size();
    mBrokerSide.mTime->Advance(5000);
    EXPECT_EQ(before, mStarter->mStarted.All().size());
}

TEST_F(LinkBrokerTest, ABrokerThatNobodyEverAsksEnds)
{
    mBrokerSide.mTime->Advance(4999);
    EXPECT_TRUE(mUnused.All().empty());
    mBrokerSide.mTime->Advance(1);
    EXPECT_EQ(1U, mUnused.WaitFor(1).size());
}

TEST_F(LinkBrokerTest, ABrokerEndsSomeTimeAfterItsLastServerAndItsLastClientHaveGone)
{
    auto hub = RegisterServer("hub", 1001);
    auto client = Connect();
    mBrokerSide.mTime->Advance(20000);
    EXPECT_TRUE(mUnused.All().empty());
    hub.reset();
    while (!List(client).empty()) {
    }
    mBrokerSide.mTime->Advance(20000);
    EXPECT_TRUE(mUnused.All().empty()) << "a client is left";
    Leave(client, 2);
    mBrokerSide.mTime->Advance(4999);
    EXPECT_TRUE(mUnused.All().empty());
    mBrokerSide.mTime->Advance(1);
    EXPECT_EQ(1U, mUnused.All().size());
}

TEST_F(LinkBrokerTest, AClientThatComesBackInTimeKeepsTheBroker)
{
    auto client = Connect();
    mBrokerSide.mTime->Advance(5000);
    Leave(client, 2);
    mBrokerSide.mTime->Advance(4000);
    client = Connect();
    mBrokerSide.mTime->Advance(20000);
    EXPECT_TRUE(mUnused.All().empty());
    Leave(client, 3);
    mBrokerSide.mTime->Advance(5000);
    EXPECT_EQ(1U, mUnused.All().size());
}

TEST_F(LinkBrokerTest, ABrokerThatEndsRefusesNewSessions)
{
    mBrokerSide.mTime->Advance(5000);
    const noxcore::HubContext::Scope scope(mClientSide.mContext);
    const auto client = RPCClient::ConnectLocal(mTransport, mPath);
    swiftlatch::ManagerInformation information;
    EXPECT_FALSE(Ask(client, BuildCall(swiftlatch::kMessage_GetProtocolVersion), information));
    EXPECT_EQ(noxmarshal::kRPCError_ConnectionLost, mError.mCode);
}

}  // namespace

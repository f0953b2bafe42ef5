#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>

#include "Platform/noxtransport/SocketTransport.h"
#include "Tests/noxmarshal/RPCTestSupport.h"

namespace {

using noxtransport::PeerPair;
using noxtransport::Receiver;
using noxtransport::Session;
using noxtransport::Settings;
using noxtransport::SocketTransport;
using noxtransport::TransportError;
using rpc_test::Events;
using rpc_test::OpenSettings;
using rpc_test::RawPeer;

/// Sends every message back.
class Echo final : public Receiver
{
public:
    void OnMessage(const std::shared_ptr<Session>& inSession, std::string_view inMessage) override
    {
        inSession->Send(inMessage);
    }
    void OnBroken(const std::shared_ptr<Session>& inSession, std::string_view inReason) override
    {
        inSession->Send(inReason);
    }
    void OnClosed(const std::shared_ptr<Session>&) override {}
};

class TransportTest : public testing::Test
{
protected:
    void Start(const Settings& inSettings)
    {
        const noxcore::HubContext::Scope scope(mTest.mContext);
        mTransport = SocketTransport::Create(inSettings);
        mServer = mTransport->ServerStart(0, true);
        mServer->SetReceiver(mEcho);
    }
    /// Counts as a hub does: up with every session that is offered, down with every one that is closed.
    void Accept(TransportError inAnswer)
    {
        mServer->SetSessionCallbacks(
            [this, inAnswer](const std::string& inID) {
                ++mCount;
                mOpened.Add(inID);
                return inAnswer;
            },
            [this](const std::string& inID) {
                --mCount;
                mClosed.Add(inID);
            });
    }

    rpc_test::TestContext mTest;
    std::atomic<int> mCount{0};
    Events<std::string> mOpened;
    Events<std::string> mClosed;
    const std::shared_ptr<Echo> mEcho = std::make_shared<Echo>();
    std::shared_ptr<SocketTransport> mTransport;
    std::shared_ptr<SocketTransport::Server> mServer;
};

TEST_F(TransportTest, AServerTellsItsLoopbackAddressAndThePortThatTheSystemChose)
{
    Start(OpenSettings());
    EXPECT_EQ("127.0.0.1", mServer->GetAddress());
    EXPECT_NE(0, mServer->GetPort());
}

TEST_F(TransportTest, NothingIsStartedBeyondTheLoopbackInterface)
{
    Start(OpenSettings());
    EXPECT_EQ(nullptr, mTransport->ServerStart(0, false));
}

TEST_F(TransportTest, APortThatIsTakenIsReported)
{
    Start(OpenSettings());
    const noxcore::HubContext::Scope scope(mTest.mContext);
    EXPECT_EQ(nullptr, mTransport->ServerStart(mServer->GetPort(), true));
    EXPECT_EQ(1U, mTest.mLog->Count("The transport cannot listen"));
}

TEST_F(TransportTest, EverySessionIsOpenedAndClosedOnceWithTheSameID)
{
    Start(OpenSettings());
    Accept(TransportError::None);
    {
        RawPeer peer(mServer->GetPort());
        peer.SendMessage("hello");
        EXPECT_EQ("hello", peer.ReadMessage());
        EXPECT_EQ(1, mCount);
    }
    EXPECT_EQ(mOpened.WaitFor(1), mClosed.WaitFor(1));
    mServer->Stop();
    EXPECT_EQ(1U, mClosed.All().size());
    EXPECT_EQ(0, mCount);
}

TEST_F(TransportTest, ARefusedSessionIsClosedWithoutACallSoThatTheCountOfItsOwnerStaysRaised)
{
    Start(OpenSettings());
    Accept(TransportError::Refused);
    RawPeer peer(mServer->GetPort());
    EXPECT_TRUE(peer.WaitForEnd());
    mServer->Stop();
    EXPECT_EQ(1U, mOpened.All().size());
    EXPECT_TRUE(mClosed.All().empty());
    EXPECT_EQ(1, mCount);
}

TEST_F(TransportTest, AConnectionThatComesBeforeTheCallbacksAreSetIsNotMissed)
{
    Start(OpenSettings());
    RawPeer peer(mServer->GetPort());
    peer.SendMessage("early");
    Accept(TransportError::None);
    EXPECT_EQ("early", peer.ReadMessage());
    EXPECT_EQ(1U, mOpened.All().size());
}

TEST_F(TransportTest, WithoutAPeerCheckEveryLoopbackPeerIsClosedAndNobodyIsAsked)
{
    Start(Settings());
    Accept(TransportError::None);
    RawPeer peer(mServer->GetPort());
    EXPECT_TRUE(peer.WaitForEnd());
    EXPECT_TRUE(mOpened.All().empty());
}

TEST_F(TransportTest, ThePeerCheckGetsTheExactPairAndItsRefusalClosesTheConnection)
{
    Events<PeerPair> asked;
    Settings settings;
    settings.mPeerCheck = [&](const PeerPair& inPair) {
        asked.Add(inPair);
        return false;
    };
    Start(settings);
    Accept(TransportError::None);
    RawPeer peer(mServer->GetPort());
    sockaddr_in own{};
    socklen_t size = sizeof own;
    getsockname(peer.Socket(), reinterpret_cast<sockaddr*>(&own), &size);
    EXPECT_TRUE(peer.WaitForEnd());
    const PeerPair pair = asked.WaitFor(1).front();
    EXPECT_EQ("127.0.0.1", pair.mLocalAddress);
    EXPECT_EQ(mServer->GetPort(), pair.mLocalPort);
    EXPECT_EQ("127.0.0.1", pair.mPeerAddress);
    EXPECT_EQ(ntohs(own.sin_port), pair.mPeerPort);
    EXPECT_TRUE(mOpened.All().empty());
    EXPECT_TRUE(mTest.mLog->All().empty()) << "any user may connect: the check itself keeps count";
}

TEST_F(TransportTest, APeerCheckThatThrowsRefuses)
{
    Settings settings;
    settings.mPeerCheck = [](const PeerPair&) -> bool { throw std::runtime_error("no answer"); };
    Start(settings);
    Accept(TransportError::None);
    RawPeer peer(mServer->GetPort());
    EXPECT_TRUE(peer.WaitForEnd());
    EXPECT_TRUE(mOpened.All().empty());
}

TEST_F(TransportTest, APeerThatDiesInsideAMessageIsNoticed)
{
    Start(OpenSettings());
    Accept(TransportError::None);
    RawPeer peer(mServer->GetPort());
    peer.SendBytes("Content-Length: 100\r\n\r\nhalf of");
    mOpened.WaitFor(1);
    peer.Close();
    EXPECT_EQ(1U, mClosed.WaitFor(1).size());
}

TEST_F(TransportTest, ABrokenStreamIsAnsweredAndClosed)
{
    Start(OpenSettings());
    Accept(TransportError::None);
    RawPeer peer(mServer->GetPort());
    peer.SendMessage("whole");
    peer.SendBytes("rubbish\r\n\r\n");
    EXPECT_EQ("whole", peer.ReadMessage());
    EXPECT_EQ("A header line has no name", peer.ReadMessage());
    EXPECT_TRUE(peer.WaitForEnd());
    mClosed.WaitFor(1);
}

TEST_F(TransportTest, APeerThatDoesNotReadHoldsNobodyUpAndIsClosedAtTheBound)
{
    Settings settings = OpenSettings();
    settings.mMaxUnsentBytes = 256 * 1024;
    Start(settings);
    Accept(TransportError::None);
    RawPeer lazy(mServer->GetPort());
    RawPeer busy(mServer->GetPort());
    const std::string large(128 * 1024, 'x');
    // Everything comes back to a peer that reads nothing: first the kernel's buffers fill up, then the session's.
    for (int i = 0; i < 200 && mClosed.All().empty(); ++i) {
        lazy.SendMessage(large);
        busy.SendMessage("still there?");
        EXPECT_EQ("still there?", busy.ReadMessage());
    }
    EXPECT_EQ(1U, mClosed.WaitFor(1).size());
    EXPECT_EQ(1U, mTest.mLog->Count("A peer does not read what it is sent"));
    busy.SendMessage("and now?");
    EXPECT_EQ("and now?", busy.ReadMessage());
}

TEST_F(TransportTest, PastTheBoundOnConnectionsOneWaitsUntilAnotherHasEnded)
{
    Settings settings = OpenSettings();
    settings.mMaxConnections = 1;
    Start(settings);
    Accept(TransportError::None);
    RawPeer first(mServer->GetPort());
    mOpened.WaitFor(1);
    RawPeer second(mServer->GetPort());
    second.SendMessage("second");
    first.SendMessage("first");
    EXPECT_EQ("first", first.ReadMessage());
    EXPECT_EQ(1U, mOpened.All().size());
    first.Close();
    EXPECT_EQ("second", second.ReadMessage());
}

TEST_F(TransportTest, TheEndOfAServerClosesItsSessionsAndTellsOfEachOnce)
{
    Start(OpenSettings());
    Accept(TransportError::None);
    RawPeer one(mServer->GetPort());
    RawPeer two(mServer->GetPort());
    mOpened.WaitFor(2);
    mServer.reset();
    EXPECT_EQ(2U, mClosed.All().size());
    EXPECT_TRUE(one.WaitForEnd());
    EXPECT_TRUE(two.WaitForEnd());
    EXPECT_EQ(0, mCount);
}

TEST_F(TransportTest, TheEndOfTheTransportClosesWhatItsServersHold)
{
    Start(OpenSettings());
    Accept(TransportError::None);
    RawPeer peer(mServer->GetPort());
    mOpened.WaitFor(1);
    mTransport.reset();
    EXPECT_EQ(1U, mClosed.All().size());
    EXPECT_TRUE(peer.WaitForEnd());
    mServer->Stop();
    EXPECT_EQ(1U, mClosed.All().size());
}

TEST_F(TransportTest, ASessionWhoseReceiverHasGoneIsClosedWithItsNextMessage)
{
    Start(OpenSettings());
    Accept(TransportError::None);
    RawPeer peer(mServer->GetPort());
    mOpened.WaitFor(1);
    mServer->SetReceiver({});
    peer.SendMessage("nobody hears");
    EXPECT_TRUE(peer.WaitForEnd());
    mClosed.WaitFor(1);
}

TEST_F(TransportTest, CallbacksRunUnderTheContextThatMadeTheTransport)
{
    Start(OpenSettings());
    Events<std::shared_ptr<noxcore::HubContext>> seen;
    mServer->SetSessionCallbacks(
        [&](const std::string&) {
            seen.Add(noxcore::HubContext::Current());
            return TransportError::None;
        },
        nullptr);
    RawPeer peer(mServer->GetPort());
    EXPECT_EQ(mTest.mContext, seen.WaitFor(1).front());
    mServer->Stop();
}

TEST_F(TransportTest, AnOpenCallbackThatThrowsRefuses)
{
    Start(OpenSettings());
    mServer->SetSessionCallbacks([](const std::string&) -> TransportError { throw std::runtime_error("broken"); },
                                 [this](const std::string& inID) { mClosed.Add(inID); });
    RawPeer peer(mServer->GetPort());
    EXPECT_TRUE(peer.WaitForEnd());
    mServer->Stop();
    EXPECT_TRUE(mClosed.All().empty());
}

TEST_F(TransportTest, NobodyAnswersAtAPortWithoutServer)
{
    Start(OpenSettings());
    const std::uint16_t port = mServer->GetPort();
    mServer.reset();
    EXPECT_EQ(nullptr, mTransport->Connect("127.0.0.1", port, mEcho));
    EXPECT_EQ(nullptr, mTransport->Connect("no address", port, mEcho));
}

class LocalTransportTest : public TransportTest
{
protected:
    void StartLocal()
    {
        const noxcore::HubContext::Scope scope(mTest.mContext);
        mTransport = SocketTransport::Create({});
        mServer = mTransport->ServerStartLocal(mPath);
        ASSERT_NE(nullptr, mServer);
        mServer->SetReceiver(mEcho);
    }
    testing_support::TempFolder mFolder;
    const std::string mPath = mFolder / "socket";
};

TEST_F(LocalTransportTest, AUnixSocketLetsItsOwnUserIn)
{
    StartLocal();
    Accept(TransportError::None);
    RawPeer peer(mPath);
    peer.SendMessage("hello");
    EXPECT_EQ("hello", peer.ReadMessage());
}

TEST_F(LocalTransportTest, AUnixSocketIsClosedToOthersAndGoesWithItsServer)
{
    StartLocal();
    struct stat state = {};
    ASSERT_EQ(0, stat(mPath.c_str(), &state));
    EXPECT_EQ(0U, state.st_mode & (S_IRWXG | S_IRWXO));
    mServer.reset();
    EXPECT_NE(0, stat(mPath.c_str(), &state));
}

TEST_F(LocalTransportTest, AServerTakesThePlaceOfASocketThatADeadOneLeft)
{
    StartLocal();
    const std::string left = mFolder / "left";
    ASSERT_EQ(0, rename(mPath.c_str(), left.c_str()));
    mServer.reset();
    const noxcore::HubContext::Scope scope(mTest.mContext);
    mServer = mTransport->ServerStartLocal(left);
    ASSERT_NE(nullptr, mServer);
    mServer->SetReceiver(mEcho);
    Accept(TransportError::None);
    RawPeer peer(left);
    peer.SendMessage("hello");
    EXPECT_EQ("hello", peer.ReadMessage());
}

TEST_F(LocalTransportTest, APathLongerThanASocketAddressCanBeUsed)
{
    const std::string folder = mFolder / std::string(150, 'f');
    ASSERT_TRUE(noxcore::filesupport::Files().EnsureDirectoryExists(folder));
    const noxcore::HubContext::Scope scope(mTest.mContext);
    mTransport = SocketTransport::Create({});
    mServer = mTransport->ServerStartLocal(folder + "/socket");
    ASSERT_NE(nullptr, mServer);
    mServer->SetReceiver(mEcho);
    Accept(TransportError::None);
    EXPECT_NE(nullptr, mTransport->ConnectLocal(folder + "/socket", mEcho));
    mOpened.WaitFor(1);
}

/// What a process of another user finds: 0 when it was let in and answered, 1 when it was closed, else trouble.
int AskAsAnotherUser(const char* inPath)
{
    constexpr uid_t kNobody = 65534;
    const pid_t child = fork();
    if (child == 0) {
        // Between fork and _exit only what is safe after a fork in a process with threads.
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, inPath, sizeof address.sun_path - 1);
        const int peer = socket(AF_UNIX, SOCK_STREAM, 0);
        if (setresgid(kNobody, kNobody, kNobody) != 0 || setresuid(kNobody, kNobody, kNobody) != 0) _exit(3);
        if (connect(peer, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) _exit(4);
        static constexpr char kMessage[] = "Content-Length: 2\r\n\r\n{}";
        [[maybe_unused]] const ssize_t sent = send(peer, kMessage, sizeof kMessage - 1, MSG_NOSIGNAL);
        char byte = 0;
        _exit(recv(peer, &byte, 1, 0) > 0 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(LocalTransportTest, AnotherUserIsTurnedAwayEvenWhereFolderAndSocketAreOpen)
{
    if (geteuid() != 0) GTEST_SKIP() << "needs root, to become another user";
    StartLocal();
    Accept(TransportError::None);
    ASSERT_EQ(0, chmod(mFolder.Path().c_str(), 0777));
    ASSERT_EQ(0, chmod(mPath.c_str(), 0777));
    EXPECT_EQ(1, AskAsAnotherUser(mPath.c_str()));
    EXPECT_TRUE(mOpened.All().empty());
    EXPECT_EQ(1U, mTest.mLog->Count("A connection that is not our user's was closed"));
}

}  // namespace

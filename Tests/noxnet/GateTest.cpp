#include <gmock/gmock.h>

#include <pwd.h>
#include <sys/wait.h>

#include <iostream>

#include "Platform/noxnet/Gate.h"
#include "Tests/noxnet/ServerFixture.h"

using namespace testing_support;

class GateOnSockets : public ServerTest
{
protected:
    int Status(const std::shared_ptr<server::Server>& inServer, const std::string& inHeaders,
               const std::string& inBody = {})
    {
        SocketClient client(inServer->GetPort());
        return client
            .Ask("POST /api/echo HTTP/1.1\r\nContent-Length: " + std::to_string(inBody.size()) + "\r\n" + inHeaders +
                 "\r\n" + inBody)
            .mStatus;
    }
};

TEST_F(GateOnSockets, AForeignHostGets403AndReachesNoHandler)
{
    const auto hub = ServeEcho();
    const std::string port = std::to_string(hub->GetPort());
    for (const std::string& host :
         {"attacker.example:" + port, std::string("attacker.example"), std::string("localhost"),
          std::string("127.0.0.1:1"), "localhost.attacker.example:" + port, "128.0.0.1:" + port, "127.0.0.1.:" + port,
          "[::2]:" + port, "user@127.0.0.1:" + port})
        EXPECT_EQ(403, Status(hub, "Host: " + host + "\r\n")) << host;
    EXPECT_EQ(0, mEcho->Requests());
    EXPECT_EQ(9U, mLog->Count("Gate: request refused"));
    for (const std::string& host :
         {"localhost:" + port, "LOCALHOST:" + port, "127.0.0.1:" + port, "127.9.8.7:" + port, "[::1]:" + port})
        EXPECT_EQ(200, Status(hub, "Host: " + host + "\r\n")) << host;
}

TEST(LoopbackAuthority, APortThatIsNotNamedIsEighty)
{
    std::uint16_t port = 0;
    for (const char* authority : {"localhost", "localhost:", "127.0.0.1:", "[::1]", "[::1]:", "localhost:80"}) {
        port = 0;
        EXPECT_TRUE(noxnet::ParseLoopbackAuthority(authority, port)) << authority;
        EXPECT_EQ(80, port) << authority;
    }
    EXPECT_TRUE(noxnet::ParseLoopbackAuthority("[::1]:81", port));
    EXPECT_EQ(81, port);
    for (const char* authority : {"", ":", ":80", "localhost:x", "localhost::", "localhost:65536", "[::1", "[::1]x"})
        EXPECT_FALSE(noxnet::ParseLoopbackAuthority(authority, port)) << authority;
}

TEST_F(GateOnSockets, TheInfoPortIsOursToo)
{
    const auto hub = ServeEcho();
    EXPECT_EQ(403, Status(hub, "Host: localhost:5000\r\n"));
    hub->SetInfoPort(5000);
    EXPECT_EQ(200, Status(hub, "Host: localhost:5000\r\n"));
    EXPECT_EQ(200, Status(hub, "Host: localhost:" + std::to_string(hub->GetPort()) + "\r\n"));
}

TEST_F(GateOnSockets, AMissingOrEmptyHostPasses)
{
    const auto hub = ServeEcho();
    EXPECT_EQ(200, Status(hub, ""));
    EXPECT_EQ(200, Status(hub, "Host:\r\n"));
}

TEST_F(GateOnSockets, AFormPostedFromAnotherSiteGets403AndReachesNoHandler)
{
    const auto hub = ServeEcho();
    const std::string port = std::to_string(hub->GetPort());
    const std::string host = "Host: localhost:" + port + "\r\n";
    const std::string form = "Content-Type: application/x-www-form-urlencoded\r\n";
    for (const std::string& header :
         {std::string("Origin: https://attacker.example"), std::string("Origin: null"),
          "Origin: https://localhost:" + port, std::string("Origin: http://localhost:1"), std::string("Origin:"),
          "Origin: http://localhost:" + port + "\r\nOrigin: https://attacker.example",
          std::string("Sec-Fetch-Site: cross-site"), std::string("Sec-Fetch-Site: same-site")})
        EXPECT_EQ(403, Status(hub, host + form + header + "\r\n", "a=b")) << header;
    EXPECT_EQ(0, mEcho->Requests());
    EXPECT_EQ(200, Status(hub, host + "Origin: http://localhost:" + port + "\r\nSec-Fetch-Site: same-origin\r\n"));
    EXPECT_EQ(200, Status(hub, host + "Sec-Fetch-Site: none\r\n"));
}

TEST_F(GateOnSockets, ARefusedUploadIsRefusedBeforeItsBody)
{
    const auto hub = ServeEcho();
    SocketClient client(hub->GetPort());
    EXPECT_EQ(403,
              client.Ask("POST /api/echo HTTP/1.1\r\nHost: attacker.example\r\nContent-Length: 1000\r\n\r\n").mStatus);
    EXPECT_TRUE(client.ReadsEnd());
}

TEST_F(GateOnSockets, RecordsOfRefusalsAreBounded)
{
    const auto hub = ServeEcho();
    for (int i = 0; i < 50; ++i)
        Status(hub, "Host: attacker.example\r\n");
    EXPECT_EQ(20U, mLog->Count("Gate: request refused"));
    mClock->AdvanceSeconds(10);
    Status(hub, "Host: attacker.example\r\n");
    const auto records = mLog->Find("Gate: request refused");
    ASSERT_EQ(21U, records.size());
    EXPECT_EQ("30", records.back().Value("leftOut"));
}

TEST_F(GateOnSockets, AConnectionOfAnotherUserIsClosedAndReachesNoHandler)
{
    if (::geteuid() != 0) {
        std::cout << "Left out: only root can become another user\n";
        GTEST_SKIP();
    }
    const auto hub = ServeEcho();
    EXPECT_EQ(1U, mLog->Count("The hub runs as root: every process of root may use it"));
    const passwd* const nobody = ::getpwnam("nobody");
    ASSERT_NE(nullptr, nobody);
    const std::string request = Get(hub, "/api/echo");
    const uid_t user = nobody->pw_uid;
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setuid(user) != 0) ::_exit(3);
        SocketClient client(hub->GetPort());
        client.Send(request);
        ::_exit(client.ReadsEnd() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_EQ(0, WIFEXITED(status) ? WEXITSTATUS(status) : -1);
    EXPECT_EQ(0, mEcho->Requests());
    const auto records = mLog->Find("Gate: connection of another user closed");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(std::to_string(user), records[0].Value("user"));
    EXPECT_EQ(200, SocketClient(hub->GetPort()).Ask(request).mStatus) << "our own user still gets in";
}

namespace {

/// Says of every peer what the test wants.
class FixedLookup final : public noxnet::PeerUserLookup
{
public:
    bool Find(const noxnet::SocketPair& /*inPair*/, noxnet::PeerSocket& outPeer) override
    {
        outPeer = mPeer;
        return mFound;
    }
    bool mFound = true;
    noxnet::PeerSocket mPeer{.mUser = ::geteuid(), .mHeld = true, .mEstablished = true};
};

}  // namespace

TEST(Gate, OnlyOurUsersOpenSocketsAreAdmitted)
{
    const noxcore::HubContext::Scope scope(MakeLoggingContext(std::make_shared<LogCapture>()));
    const auto lookup = std::make_shared<FixedLookup>();
    noxnet::Gate gate(lookup);
    EXPECT_TRUE(gate.AdmitPeer({}));
    lookup->mPeer.mUser = ::geteuid() + 1;
    EXPECT_FALSE(gate.AdmitPeer({}));
    lookup->mPeer.mUser = ::geteuid();
    lookup->mPeer.mEstablished = false;
    EXPECT_FALSE(gate.AdmitPeer({})) << "neither connected nor ended by its holder";
    lookup->mPeer.mFinishedSending = true;
    EXPECT_TRUE(gate.AdmitPeer({}));
    lookup->mPeer.mHeld = false;
    EXPECT_FALSE(gate.AdmitPeer({})) << "nobody holds it, so its user says nothing";
    lookup->mPeer = {.mUser = ::geteuid(), .mHeld = true, .mEstablished = true};
    lookup->mFound = false;
    EXPECT_FALSE(gate.AdmitPeer({}));
}

TEST(SocketDiagnosis, TheExactPairOfAddressesIsFoundAndAnyOtherIsNot)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(0, ::bind(listener, generic, size));
    ASSERT_EQ(0, ::listen(listener, 4));
    ASSERT_EQ(0, ::getsockname(listener, generic, &size));

    // A client that speaks IPv6 and reaches us as ::ffff:127.0.0.1.
    const int client = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in6 mapped{};
    mapped.sin6_family = AF_INET6;
    mapped.sin6_port = address.sin_port;
    mapped.sin6_addr.s6_addr[10] = mapped.sin6_addr.s6_addr[11] = 0xff;
    mapped.sin6_addr.s6_addr[12] = 127;
    mapped.sin6_addr.s6_addr[15] = 1;
    ASSERT_EQ(0, ::connect(client, reinterpret_cast<const sockaddr*>(&mapped), sizeof(mapped)));
    const int accepted = ::accept(listener, nullptr, nullptr);
    noxnet::SocketPair pair;
    ASSERT_TRUE(noxnet::GetSocketPair(accepted, pair));
    noxnet::SocketPair clientPair;
    ASSERT_TRUE(noxnet::GetSocketPair(client, clientPair));
    EXPECT_EQ(pair.mPeerPort, clientPair.mOwnPort);

    const auto diagnosis = noxnet::MakeSocketDiagnosis();
    noxnet::PeerSocket peer;
    ASSERT_TRUE(diagnosis->Find(pair, peer));
    EXPECT_EQ(::geteuid(), peer.mUser);
    EXPECT_TRUE(peer.mHeld);
    EXPECT_TRUE(peer.mEstablished);
    noxnet::SocketPair other = pair;
    other.mPeerAddress[3] = 2;
    EXPECT_FALSE(diagnosis->Find(other, peer));
    other = pair;
    other.mPeerPort = pair.mOwnPort;  // the listener's port: a listener is no connection
    EXPECT_FALSE(diagnosis->Find(other, peer));
    ::shutdown(client, SHUT_WR);
    ASSERT_TRUE(diagnosis->Find(pair, peer));
    EXPECT_TRUE(peer.mFinishedSending && peer.mHeld && !peer.mEstablished);
    ::close(client);
    EXPECT_FALSE(diagnosis->Find(pair, peer) && peer.mHeld);
    ::close(accepted);
    ::close(listener);
}

#include "Platform/noxnet/SocketDiagnosis.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace noxnet {

namespace {

using noxcore::threads::RecursiveMutex;
using noxcore::threads::ScopedLock;

struct Question
{
    nlmsghdr mHeader;
    inet_diag_req_v2 mRequest;
};

/// The question for the peer's socket: its own end is the other end of ours.
Question MakeQuestion(const SocketPair& inPair, std::uint32_t inSequence)
{
    Question question{};
    question.mHeader.nlmsg_len = sizeof(question);
    question.mHeader.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    question.mHeader.nlmsg_flags = NLM_F_REQUEST;
    question.mHeader.nlmsg_seq = inSequence;
    inet_diag_req_v2& request = question.mRequest;
    request.sdiag_family = AF_INET;
    request.sdiag_protocol = IPPROTO_TCP;
    request.idiag_states = ~0U;
    request.id.idiag_sport = htons(inPair.mPeerPort);
    request.id.idiag_dport = htons(inPair.mOwnPort);
    std::memcpy(request.id.idiag_src, inPair.mPeerAddress.data(), 4);
    std::memcpy(request.id.idiag_dst, inPair.mOwnAddress.data(), 4);
    request.id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
    request.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    return question;
}

/// Compares an address of an answer: plain IPv4, or IPv4 within IPv6.
bool IsAddress(const inet_diag_msg& inMessage, const __be32 (&inField)[4], const std::array<std::uint8_t, 4>& inAddress)
{
    if (inMessage.idiag_family == AF_INET) return std::memcmp(&inField[0], inAddress.data(), 4) == 0;
    return inMessage.idiag_family == AF_INET6 && inField[0] == 0 && inField[1] == 0 && inField[2] == htonl(0xffff) &&
           std::memcmp(&inField[3], inAddress.data(), 4) == 0;
}

/// The kernel falls back to a listener where no connection fits: only the exact pair counts.
bool IsAnswerTo(const inet_diag_msg& inMessage, const SocketPair& inPair)
{
    return inMessage.id.idiag_sport == htons(inPair.mPeerPort) && inMessage.id.idiag_dport == htons(inPair.mOwnPort) &&
           IsAddress(inMessage, inMessage.id.idiag_src, inPair.mPeerAddress) &&
           IsAddress(inMessage, inMessage.id.idiag_dst, inPair.mOwnAddress);
}

/// Threading: any thread; the mutex guards the netlink socket for one question and its answer (rank Leaf).
class SocketDiagnosis final : public PeerUserLookup
{
public:
    ~SocketDiagnosis() override
    {
        if (mSocket >= 0) ::close(mSocket);
    }

    bool Find(const SocketPair& inPair, PeerSocket& outPeer) override
    {
        ScopedLock lock(mMutex);
        inet_diag_msg answer{};
        if (!OpenLocked() || !AskLocked(inPair, answer)) return false;
        outPeer.mUser = answer.idiag_uid;
        outPeer.mHeld = answer.idiag_inode != 0;
        outPeer.mEstablished = answer.idiag_state == TCP_ESTABLISHED;
        outPeer.mFinishedSending = answer.idiag_state == TCP_FIN_WAIT1 || answer.idiag_state == TCP_FIN_WAIT2;
        return true;
    }

private:
    bool OpenLocked() REQUIRES(mMutex)
    {
        if (mSocket >= 0) return true;
        mSocket = ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
        if (mSocket < 0) {
            noxcore::logging::LogError("noxnet", "Socket diagnosis is not available",
                                       {{"error", std::strerror(errno)}});
            return false;
        }
        const timeval limit{1, 0};  // the kernel answers within the call; this only keeps a surprise from hanging us
        ::setsockopt(mSocket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        return true;
    }

    bool AskLocked(const SocketPair& inPair, inet_diag_msg& outAnswer) REQUIRES(mMutex)
    {
        const Question question = MakeQuestion(inPair, ++mSequence);
        sockaddr_nl kernel{};
        kernel.nl_family = AF_NETLINK;
        if (::sendto(mSocket, &question, sizeof(question), 0, reinterpret_cast<const sockaddr*>(&kernel),
                     sizeof(kernel)) != static_cast<ssize_t>(sizeof(question)))
            return false;
        for (;;) {
            alignas(nlmsghdr) char buffer[8192];
            const ssize_t received = ::recv(mSocket, buffer, sizeof(buffer), 0);
            if (received < 0 && errno == EINTR) continue;
            if (received < static_cast<ssize_t>(sizeof(nlmsghdr))) return false;
            const auto* header = reinterpret_cast<const nlmsghdr*>(buffer);
            if (!NLMSG_OK(header, static_cast<std::size_t>(received))) return false;
            if (header->nlmsg_seq != mSequence) continue;  // late answer to a question that was given up
            if (header->nlmsg_type != SOCK_DIAG_BY_FAMILY || header->nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg)))
                return false;
            std::memcpy(&outAnswer, NLMSG_DATA(header), sizeof(outAnswer));
            return IsAnswerTo(outAnswer, inPair);
        }
    }

    RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    int mSocket GUARDED_BY(mMutex) = -1;
    std::uint32_t mSequence GUARDED_BY(mMutex) = 0;
};

bool GetEnd(int inDescriptor, bool inPeer, std::array<std::uint8_t, 4>& outAddress, std::uint16_t& outPort)
{
    sockaddr_storage storage{};
    socklen_t size = sizeof(storage);
    auto* address = reinterpret_cast<sockaddr*>(&storage);
    if ((inPeer ? ::getpeername(inDescriptor, address, &size) : ::getsockname(inDescriptor, address, &size)) != 0)
        return false;
    if (storage.ss_family == AF_INET) {
        const auto& in = reinterpret_cast<const sockaddr_in&>(storage);
        std::memcpy(outAddress.data(), &in.sin_addr, 4);
        outPort = ntohs(in.sin_port);
        return true;
    }
    const auto& in6 = reinterpret_cast<const sockaddr_in6&>(storage);
    if (storage.ss_family != AF_INET6 || !IN6_IS_ADDR_V4MAPPED(&in6.sin6_addr)) return false;
    std::memcpy(outAddress.data(), in6.sin6_addr.s6_addr + 12, 4);
    outPort = ntohs(in6.sin6_port);
    return true;
}

}  // namespace

bool GetSocketPair(int inDescriptor, SocketPair& outPair)
{
    return GetEnd(inDescriptor, false, outPair.mOwnAddress, outPair.mOwnPort) &&
           GetEnd(inDescriptor, true, outPair.mPeerAddress, outPair.mPeerPort);
}

std::shared_ptr<PeerUserLookup> MakeSocketDiagnosis()
{
    return std::make_shared<SocketDiagnosis>();
}

std::shared_ptr<PeerUserLookup> PeerUserLookup::Current()
{
    const auto& context = noxcore::HubContext::Current();
    auto lookup = context->GetInstance<PeerUserLookup>();
    if (!lookup) {
        lookup = MakeSocketDiagnosis();
        context->SetInstance<PeerUserLookup>(lookup);
    }
    return lookup;
}

}  // namespace noxnet

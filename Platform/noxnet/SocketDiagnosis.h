#pragma once

#include <array>
#include <cstdint>
#include <memory>

namespace noxnet {

/// The two ends of one IPv4 connection. Addresses are in network order, ports in host order.
struct SocketPair
{
    std::array<std::uint8_t, 4> mOwnAddress{};
    std::array<std::uint8_t, 4> mPeerAddress{};
    std::uint16_t mOwnPort = 0;
    std::uint16_t mPeerPort = 0;
};

/// The ends of a connected socket; an IPv6 socket counts where it carries IPv4 addresses. False for any other.
bool GetSocketPair(int inDescriptor, SocketPair& outPair);

/// What the kernel says of the peer's socket, the one at the other end of a pair on this machine.
struct PeerSocket
{
    std::uint32_t mUser = 0;        ///< user who made the socket; without meaning once nobody holds it
    bool mHeld = false;             ///< some process still has the socket open
    bool mEstablished = false;      ///< in the state ESTABLISHED
    bool mFinishedSending = false;  ///< its holder has ended its own direction and still reads
};

/// Tells whose socket stands at the other end of a loopback connection. Published in the HubContext to replace the real
/// one. Threading: any thread.
class PeerUserLookup
{
public:
    virtual ~PeerUserLookup() = default;
    /// False when no such socket exists any more, or the kernel does not say.
    virtual bool Find(const SocketPair& inPair, PeerSocket& outPeer) = 0;

    /// The current context's, the real one where none is published.
    static std::shared_ptr<PeerUserLookup> Current();
};

/// Asks the kernel by netlink socket diagnosis for the exact pair of addresses.
std::shared_ptr<PeerUserLookup> MakeSocketDiagnosis();

}  // namespace noxnet

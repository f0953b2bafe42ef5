#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxnet/IncomingRequest.h"
#include "Platform/noxnet/SocketDiagnosis.h"

namespace noxnet {

/// Stands before routing and keeps other users and foreign web pages out. What it refuses reaches no handler and
/// leaves one record, at most 20 of them within 10 seconds (a later one tells how many were left out).
///
/// Threading: any thread. The mutex guards the count of records (rank Leaf).
class Gate
{
public:
    explicit Gate(std::shared_ptr<PeerUserLookup> inLookup);

    /// The ports that Host and Origin may name; 0 for none.
    void SetPorts(std::uint16_t inPort, std::uint16_t inInfoPort);

    /// True when the other end of an accepted connection is held open by our own user: established, or with its
    /// sending direction ended already by a client that asks once. Unknown or gone is refused.
    bool AdmitPeer(const SocketPair& inPair);
    /// True when Host is absent, empty or a loopback name or address with one of our ports, each Origin is such a
    /// place, and Sec-Fetch-Site tells of no other site.
    bool AdmitRequest(const http::server::IncomingRequest& inRequest);
    /// Writes the warning of a hub that runs as root, where it does.
    static void WarnIfRoot();

private:
    [[nodiscard]] bool IsOurs(std::string_view inAuthority) const;
    /// The name of the header that speaks against the request; empty when none does.
    [[nodiscard]] std::string_view FindObjection(const http::server::IncomingRequest& inRequest) const;
    /// False when the record is to be left out; outLeftOut is the number left out before this one.
    bool MayLog(unsigned& outLeftOut);

    const std::shared_ptr<PeerUserLookup> mLookup;
    std::atomic<std::uint16_t> mPort = 0;
    std::atomic<std::uint16_t> mInfoPort = 0;

    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::int64_t mWindowStart GUARDED_BY(mMutex) = 0;
    unsigned mLogged GUARDED_BY(mMutex) = 0;
    unsigned mLeftOut GUARDED_BY(mMutex) = 0;
};

/// Splits "host", "host:port" or "[::1]:port". True for "localhost", 127.0.0.0/8 and [::1]; outPort is 80 where the
/// text names none, also behind a colon.
bool ParseLoopbackAuthority(std::string_view inAuthority, std::uint16_t& outPort);

}  // namespace noxnet

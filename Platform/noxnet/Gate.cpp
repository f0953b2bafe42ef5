#include "Platform/noxnet/Gate.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <charconv>
#include <string>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"

namespace noxnet {

using http::server::EqualWithoutCase;
using noxcore::threads::ScopedLock;

namespace {

constexpr const char* kCategory = "noxnet";
constexpr unsigned kRecordsPerWindow = 20;
constexpr std::int64_t kWindow = 10 * noxcore::kTicksPerSecond;
constexpr std::size_t kLongestLoggedValue = 200;

bool IsLoopbackHost(std::string_view inHost)
{
    if (EqualWithoutCase(inHost, "localhost") || inHost == "[::1]") return true;
    in_addr address{};
    // inet_pton knows the dotted form with four decimal numbers only, which is what we want.
    return inHost.size() < INET_ADDRSTRLEN && ::inet_pton(AF_INET, std::string(inHost).c_str(), &address) == 1 &&
           (ntohl(address.s_addr) >> 24) == 127;
}

bool ParsePort(std::string_view inText, std::uint16_t& outPort)
{
    const char* const end = inText.data() + inText.size();
    const auto [stop, error] = std::from_chars(inText.data(), end, outPort);
    return error == std::errc() && stop == end;
}

}  // namespace

bool ParseLoopbackAuthority(std::string_view inAuthority, std::uint16_t& outPort)
{
    const std::size_t bracket = inAuthority.starts_with('[') ? inAuthority.find(']') : 0;
    if (bracket == std::string_view::npos) return false;
    const std::size_t colon = inAuthority.find(':', bracket);
    outPort = 80;
    const bool namesPort = colon != std::string_view::npos && colon + 1 < inAuthority.size();
    if (namesPort && !ParsePort(inAuthority.substr(colon + 1), outPort)) return false;
    return IsLoopbackHost(inAuthority.substr(0, colon));
}

Gate::Gate(std::shared_ptr<PeerUserLookup> inLookup) : mLookup(std::move(inLookup)) {}

void Gate::SetPorts(std::uint16_t inPort, std::uint16_t inInfoPort)
{
    mPort = inPort;
    mInfoPort = inInfoPort;
}

bool Gate::IsOurs(std::string_view inAuthority) const
{
    std::uint16_t port = 0;
    if (!ParseLoopbackAuthority(inAuthority, port) || port == 0) return false;
    return port == mPort || port == mInfoPort;
}

std::string_view Gate::FindObjection(const http::server::IncomingRequest& inRequest) const
{
    constexpr std::string_view kScheme = "http://";
    // Every occurrence counts: a second header must not hide behind a harmless first one.
    for (std::size_t i = 0; i < inRequest.HeaderCount(); ++i) {
        const std::string_view name = inRequest.HeaderName(i);
        const std::string_view value = inRequest.HeaderValue(i);
        if (EqualWithoutCase(name, kHEADER_Host)) {
            if (!value.empty() && !IsOurs(value)) return kHEADER_Host;
        } else if (EqualWithoutCase(name, "Origin")) {
            if (!EqualWithoutCase(value.substr(0, kScheme.size()), kScheme) || !IsOurs(value.substr(kScheme.size())))
                return "Origin";
        } else if (EqualWithoutCase(name, "Sec-Fetch-Site")) {
            if (value != "none" && value != "same-origin") return "Sec-Fetch-Site";
        }
    }
    return {};
}

bool Gate::AdmitRequest(const http::server::IncomingRequest& inRequest)
{
    const std::string_view header = FindObjection(inRequest);
    if (header.empty()) return true;
    unsigned leftOut = 0;
    if (MayLog(leftOut))
        noxcore::logging::LogWarning(kCategory, "Gate: request refused",
                                     {{"header", header},
                                      {"value", inRequest.Header(header).substr(0, kLongestLoggedValue)},
                                      {"method", inRequest.Method().View()},
                                      {"url", inRequest.URL().substr(0, kLongestLoggedValue)},
                                      {"leftOut", leftOut}});
    return false;
}

bool Gate::AdmitPeer(const SocketPair& inPair)
{
    PeerSocket peer;
    const bool found = mLookup->Find(inPair, peer);
    const bool open = found && peer.mHeld && (peer.mEstablished || peer.mFinishedSending);
    if (open && peer.mUser == ::geteuid()) return true;
    unsigned leftOut = 0;
    if (MayLog(leftOut)) {
        if (open)
            noxcore::logging::LogWarning(kCategory, "Gate: connection of another user closed",
                                         {{"user", peer.mUser}, {"peerPort", inPair.mPeerPort}, {"leftOut", leftOut}});
        else
            noxcore::logging::LogWarning(kCategory, "Gate: connection of an unknown peer closed",
                                         {{"found", found}, {"peerPort", inPair.mPeerPort}, {"leftOut", leftOut}});
    }
    return false;
}

bool Gate::MayLog(unsigned& outLeftOut)
{
    const std::int64_t now = noxcore::HubContext::Current()->GetClock().MonotonicTicks();
    ScopedLock lock(mMutex);
    if (mLogged == 0 || now - mWindowStart >= kWindow) {
        mWindowStart = now;
        mLogged = 0;
    }
    if (mLogged == kRecordsPerWindow) {
        ++mLeftOut;
        return false;
    }
    ++mLogged;
    outLeftOut = std::exchange(mLeftOut, 0);
    return true;
}

void Gate::WarnIfRoot()
{
    if (::geteuid() == 0)
        noxcore::logging::LogWarning(kCategory, "The hub runs as root: every process of root may use it");
}

}  // namespace noxnet

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/noxcore/ImmutableString.h"
#include "Platform/noxcore/RecycledMemory.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace noxnet::http::server {

using noxcore::utility::ConstRecycledMemoryPtr;
using noxcore::utility::ImmutableString;
using noxcore::utility::RecycledMemory;

/// A path expression of a service, in Boost's Perl syntax, compiled once for matching in linear time.
///
/// Matching is RE2's, so that hostile text can neither crawl nor throw; the captures are those that Boost gives. The
/// whole path must match. An expression that RE2 does not know (back references) is logged and matches nothing.
/// A copy shares what was compiled. Threading: any thread.
class PathExpression
{
public:
    explicit PathExpression(std::string_view inPattern);
    [[nodiscard]] const std::string& Pattern() const;
    /// The captured groups, 0 being the whole match, as parts of the path. A group that took no part is empty.
    /// False when the path does not match; outGroups is unspecified then.
    bool Match(std::string_view inPath, std::vector<std::string_view>& outGroups) const;

private:
    struct Impl;
    std::shared_ptr<const Impl> mImpl;
};

/// One field of a form, from a multipart or an urlencoded body or from a JSON object's members.
struct FormField
{
    std::string mName;
    RecycledMemory mValue;  ///< a part of the request's payload where the form came as multipart
    std::string mFileName;
    std::string mContentType;
};

/// A received request. Constant but for ClientHasGone; shared by whoever still needs it. Threading: any thread.
class Request
{
public:
    virtual ~Request() = default;
    [[nodiscard]] virtual const ImmutableString& Method() const = 0;
    /// Value of a header, name in any case; empty when absent, the first where it repeats.
    [[nodiscard]] virtual std::string_view Header(std::string_view inName) const = 0;
    /// Value of a query key, percent-decoded and "+" read as a blank; empty when absent, the first where it repeats.
    [[nodiscard]] virtual std::string QueryValue(std::string_view inName) const = 0;
    /// The fields of the body by its Content-Type (multipart/form-data, application/x-www-form-urlencoded, or the
    /// members of a JSON object: strings unescaped, other values as their text). An empty body has no fields. False
    /// for a body that is broken, past the bound on fields or of another type; outFields is empty then. Parses anew
    /// at each call.
    virtual bool FormFields(std::vector<FormField>& outFields) const = 0;
    [[nodiscard]] virtual const ConstRecycledMemoryPtr& Payload() const = 0;
    /// Path and query as they came.
    [[nodiscard]] virtual std::string_view URL() const = 0;
    /// The path alone, as it came (not percent-decoded).
    [[nodiscard]] virtual std::string_view Path() const = 0;
    /// The match of the path with the expression of the service that the request was routed to: group 0 is the whole.
    [[nodiscard]] virtual const std::vector<std::string_view>& Match() const = 0;
    /// True once nobody waits for the answer any more: whoever keeps a request open may let go of it.
    [[nodiscard]] virtual bool ClientHasGone() const = 0;
    /// Calls the function once, on any thread, when the client goes: at once where it has gone already, never after the
    /// request was answered. One function a request; a later one takes its place.
    virtual void WhenClientGoes(std::function<void()> inFunction) const = 0;
};

/// An answer while it is built. Not shared between threads before it is handed over.
class MutableResponse
{
public:
    int mStatus = kHTTPStatus_OK;
    std::vector<std::pair<std::string, std::string>> mHeaders;
    ConstRecycledMemoryPtr mPayload;  ///< null for none; sent without copying

    /// Replaces the header of that name (any case), or adds it.
    void SetHeader(std::string_view inName, std::string_view inValue);
    [[nodiscard]] std::string_view Header(std::string_view inName) const;
};

/// Takes the answer to one request, on any thread. A second call is logged and has no effect; when the last copy goes
/// without a call, the client gets 500. A null response counts as 500.
using Fulfillment = std::function<void(std::shared_ptr<MutableResponse>)>;

/// What answers the requests of one path expression.
class Service
{
public:
    /// Answers through the fulfillment, now or later. Runs on the server's pool, several requests at a time; an
    /// exception is logged and answered with 500.
    virtual void FulfillResource(std::shared_ptr<const Request> inRequest, std::shared_ptr<MutableResponse> inResponse,
                                 Fulfillment inFulfillment) = 0;
    [[nodiscard]] virtual const PathExpression& Expression() const = 0;
    /// True for a request that is answered from memory, within microseconds and without waiting for a disk, a lock that
    /// is held across work, or a peer: it then runs on the I/O thread, which saves two hand-overs between threads.
    [[nodiscard]] virtual bool AnswersAtOnce(const Request& inRequest) const;
    virtual ~Service() = default;
};

/// Bounds of one server; each is a setting VY.Config.LocalHub.HTTP.<name without m> read at construction.
struct Limits
{
    /// The settings of the current context; the defaults below where there are none.
    static Limits FromSettings();

    std::size_t mMaxHeaderBytes = 64 * 1024;
    std::size_t mMaxPathBytes = 8 * 1024;
    std::uint64_t mMaxBodyBytes = 1024ULL * 1024 * 1024;          ///< bulk forms of transactions
    std::uint64_t mMaxSmallBodyBytes = 64ULL * 1024 * 1024;       ///< everything else
    std::uint64_t mMaxBodyBytesTogether = 4096ULL * 1024 * 1024;  ///< of all requests that are there at a time
    std::size_t mMaxFormFields = 2000000;
    std::size_t mMaxConnections = 20000;
    /// Descriptors that connections leave to files, however many are allowed; 0: a quarter of them, 64 at least.
    std::size_t mReservedDescriptors = 0;
    unsigned mRequestTimeoutInSeconds = 60;  ///< to deliver a whole header, and without progress of a body or an answer
    /// To deliver a whole body, and a second more for each so many bytes that have come.
    unsigned mBodyTimeoutInSeconds = 600;
    std::size_t mMinBodyBytesPerSecond = 64 * 1024;
    unsigned mIdleTimeoutInSeconds = 600;  ///< between two requests of a connection
    std::size_t mThreads = 8;              ///< width of the pool that services run on
};

class IncomingRequest;

/// The hub's HTTP server: an object, many can live in one process. Listens on 127.0.0.1 only.
///
/// One I/O thread parses and sends; services run on the server's pool; services are matched in the order of their
/// registration. Before a request is routed it passes the gate (Gate.h). A path that no expression matches is
/// answered with 404 and no body; a body past its bound with 413; a header past its bound with 431, a path with 414.
/// Requests of one connection are answered in their order, one at a time. A client that closes its connection while it
/// waits is noticed, and its answer dropped.
/// Threading: Register, Unregister, Dispatch and GetPort from any thread, also while requests run; Start and Stop from
/// one thread, not from a service.
class Server
{
public:
    /// The flag tells a first server from a replacement, the integer is reserved: both are kept for the record.
    static std::shared_ptr<Server> Create(std::uint16_t inPort, bool inFirst, int inReserved);
    virtual ~Server() = default;

    /// Listens. 200; 500 when the port cannot be had. Port 0 lets the system choose.
    virtual int Start() = 0;
    /// The port that is listened at after Start, else the one asked for.
    [[nodiscard]] virtual std::uint16_t GetPort() const = 0;
    /// Receives no more, waits until no service of this server runs, sends the answers that are there, and closes
    /// listener and connections. Requests that wait for their answer still get none.
    virtual void Stop() = 0;
    virtual void RegisterService(const PathExpression& inExpression, std::shared_ptr<Service> inService) = 0;
    virtual void UnregisterService(const PathExpression& inExpression) = 0;
    /// A further port that the Host header may name (the info port); 0 for none.
    virtual void SetInfoPort(std::uint16_t inPort) = 0;
    /// Serves a request that came by no socket (MakeRequest in IncomingRequest.h): gate, routing, pool and catch-all as
    /// for any other. The fulfillment is called exactly once, possibly before this returns.
    virtual void Dispatch(std::shared_ptr<IncomingRequest> inRequest, Fulfillment inFulfillment) = 0;
};

}  // namespace noxnet::http::server

namespace noxnet {

/// Ends what the network layer keeps for the process. Called once, after the servers have stopped.
void Shutdown();

// Names of headers, methods and constants.
inline constexpr std::string_view kHEADER_ContentType = "Content-Type";
inline constexpr std::string_view kHEADER_ETag = "ETag";
inline constexpr std::string_view kHEADER_IfNoneMatch = "If-None-Match";
inline constexpr std::string_view kHEADER_Location = "Location";
inline constexpr std::string_view kHEADER_Host = "Host";
inline constexpr std::string_view kHEADER_XRequestID = "X-Request-ID";
inline constexpr std::string_view kHEADER_XLONGPOLL = "X-LongPoll";
inline constexpr std::string_view kContentType_JSON = "application/json; charset=utf-8";
inline constexpr std::string_view kContentType_Binary = "application/octet-stream";

}  // namespace noxnet

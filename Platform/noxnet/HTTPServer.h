#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
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
/// Matching is RE2's, so that hostile text can neither crawl nor throw; the captures are those that Boost gives.
class PathExpression
{
public:
    explicit PathExpression(std::string_view inPattern);
    ~PathExpression();
    [[nodiscard]] const std::string& Pattern() const;
    /// The captured groups, 0 being the whole match, as parts of the path. A group that took no part is empty.
    /// False when the path does not match.
    bool Match(std::string_view inPath, std::vector<std::string_view>& outGroups) const;

private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
};

/// One field of a form, from a multipart or an urlencoded body or from a JSON object's members.
struct FormField
{
    std::string mName;
    RecycledMemory mValue;  ///< a part of the request's payload where the form came as multipart
    std::string mFileName;
    std::string mContentType;
};

/// A received request. Constant; shared by whoever still needs it. Threading: any thread.
class Request
{
public:
    virtual ~Request() = default;
    [[nodiscard]] virtual const ImmutableString& Method() const = 0;
    /// Value of a header, name in any case; empty when absent.
    [[nodiscard]] virtual std::string_view Header(std::string_view inName) const = 0;
    /// Value of a query key, percent-decoded; empty when absent.
    [[nodiscard]] virtual std::string QueryValue(std::string_view inName) const = 0;
    /// The fields of the body by its Content-Type (multipart/form-data, application/x-www-form-urlencoded, or the
    /// members of a JSON object: strings unescaped, other values as their text). False for a body that is broken or
    /// past the bound on fields; parsed at the first call.
    virtual bool FormFields(std::vector<FormField>& outFields) const = 0;
    [[nodiscard]] virtual const ConstRecycledMemoryPtr& Payload() const = 0;
    /// Path and query as they came.
    [[nodiscard]] virtual std::string_view URL() const = 0;
    /// The path alone, as it came (not percent-decoded).
    [[nodiscard]] virtual std::string_view Path() const = 0;
    /// The match of the path with the expression of the service that the request was routed to: group 0 is the whole.
    [[nodiscard]] virtual const std::vector<std::string_view>& Match() const = 0;
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

/// Takes the answer to one request. Called once at most, on any thread.
using Fulfillment = std::function<void(std::shared_ptr<MutableResponse>)>;

/// What answers the requests of one path expression.
class Service
{
public:
    /// Answers through the fulfillment, now or later. Runs on the server's pool.
    virtual void FulfillResource(std::shared_ptr<const Request> inRequest, std::shared_ptr<MutableResponse> inResponse,
                                 Fulfillment inFulfillment) = 0;
    [[nodiscard]] virtual const PathExpression& Expression() const = 0;
    virtual ~Service() = default;
};

/// Bounds of one server; each is a setting VY.Config.LocalHub.HTTP.<name> read at construction.
struct Limits
{
    std::size_t mMaxHeaderBytes = 64 * 1024;
    std::size_t mMaxPathBytes = 8 * 1024;
    std::uint64_t mMaxBodyBytes = 1024ULL * 1024 * 1024;  ///< bulk forms of transactions
    std::uint64_t mMaxSmallBodyBytes = 64ULL * 1024 * 1024;  ///< everything else
    std::size_t mMaxFormFields = 2000000;
    std::size_t mMaxConnections = 20000;
    unsigned mRequestTimeoutInSeconds = 60;  ///< to deliver a whole header, and without progress of a body
};

/// The hub's HTTP server: an object, many can live in one process. Listens on 127.0.0.1 only.
///
/// One I/O thread parses and sends; services run on the server's pool; services are matched in the order of their
/// registration. Before a request is routed it passes the gate (Gate.h). A path that no expression matches is
/// answered with 404 and no body; a body past its bound with 413; a header past its bound with 431, a path with 414.
/// Threading: Register and Unregister from any thread, also while requests run.
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
    /// Closes listener and connections, and waits until no service of this server runs any more.
    virtual void Stop() = 0;
    virtual void RegisterService(const PathExpression& inExpression, std::shared_ptr<Service> inService) = 0;
    virtual void UnregisterService(const PathExpression& inExpression) = 0;
    /// A further port that the Host header may name (the info port); 0 for none.
    virtual void SetInfoPort(std::uint16_t inPort) = 0;
};

/// Ends what the network layer keeps for the process. Called once, after the servers have stopped.
}  // namespace noxnet::http::server

namespace noxnet {

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

#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Platform/noxnet/IncomingRequest.h"

namespace noxnet::http::server {

/// Reads one request from a stream of bytes: its header, and its body where that comes in chunks. A body of announced
/// length is left to the caller, who knows a better place for it. Threading: one thread.
class RequestParser
{
public:
    enum class Step
    {
        NeedMore,    ///< feed again, beginning with the bytes that were not used
        HeaderDone,  ///< Request() is filled; a chunked body follows by feeding further
        Complete,    ///< header and chunked body are there
        Failed       ///< answer with Status() and close
    };

    explicit RequestParser(const Limits& inLimits);
    ~RequestParser();
    RequestParser(const RequestParser&) = delete;
    RequestParser& operator=(const RequestParser&) = delete;

    /// Takes bytes and gives the number of those it used.
    std::size_t Feed(std::string_view inBytes, Step& outStep);
    [[nodiscard]] int Status() const;
    [[nodiscard]] const std::shared_ptr<IncomingRequest>& GetRequest() const;

    // After HeaderDone.
    [[nodiscard]] bool IsChunked() const;
    [[nodiscard]] std::uint64_t ContentLength() const;
    [[nodiscard]] bool KeepsAlive() const;
    [[nodiscard]] bool IsHTTP11() const;
    /// Bounds the chunked body; beyond it the parser fails with 413.
    void SetBodyLimit(std::uint64_t inBytes);
    /// The chunked body, after Complete.
    [[nodiscard]] std::string TakeBody();

private:
    class Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace noxnet::http::server

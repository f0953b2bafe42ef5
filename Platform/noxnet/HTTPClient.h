#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace noxnet::http::client {

/// A body that is sent piece by piece. Threading: one thread at a time.
class BodySource
{
public:
    virtual ~BodySource() = default;
    /// Bytes of the whole body.
    [[nodiscard]] virtual std::uint64_t Size() const = 0;
    /// Begins anew: a kept connection may turn out to be closed when the first bytes are sent.
    virtual bool Rewind() = 0;
    /// Puts the next bytes and tells how many; 0 at the end. Nothing when the body cannot be delivered: the request
    /// is given up then, and the server has seen no complete one.
    virtual std::optional<std::size_t> Read(std::span<char> outBytes) = 0;
};

/// A body that lies in memory.
class TextBody final : public BodySource
{
public:
    explicit TextBody(std::string inText) : mText(std::move(inText)) {}
    [[nodiscard]] std::uint64_t Size() const override { return mText.size(); }
    bool Rewind() override;
    std::optional<std::size_t> Read(std::span<char> outBytes) override;

private:
    const std::string mText;
    std::size_t mPlace = 0;
};

struct Request
{
    std::string mMethod = "GET";
    std::string mTarget;          ///< path and query, as they go on the wire
    std::string mContentType;     ///< of the body
    BodySource* mBody = nullptr;  ///< none for a request without
    /// Takes the body of a successful answer piece by piece in place of Answer::mBody; false gives up.
    std::function<bool(std::string_view)> mSink;
    std::vector<std::pair<std::string, std::string>> mHeaders = {};  ///< beside those of the body and the host
};

struct Answer
{
    int mStatus = 0;
    std::vector<std::pair<std::string, std::string>> mHeaders;
    std::string mBody;

    /// Value of a header, name in any case; empty when absent.
    [[nodiscard]] std::string_view Header(std::string_view inName) const;
};

struct Settings
{
    std::uint64_t mMaxAnswerBytes = 1024ULL * 1024 * 1024;  ///< of an answer that is kept in memory
    unsigned mConnectTimeoutInSeconds = 10;
    unsigned mStallTimeoutInSeconds = 600;  ///< without a byte in either direction; 0: for ever
    std::function<bool()> mShouldStop;      ///< asked while a request runs; true gives it up
};

/// Asks one HTTP/1.1 server on the loopback interface over one connection that is kept. Follows no redirect and uses
/// no proxy. Threading: one thread at a time.
class Client
{
public:
    static std::unique_ptr<Client> Create(const std::string& inAddress, std::uint16_t inPort, Settings inSettings);
    virtual ~Client() = default;
    /// Waits for the answer. True for an answer of whatever status; false, with the reason, when there is none.
    virtual bool Send(const Request& inRequest, Answer& outAnswer, std::string& outError) = 0;
};

}  // namespace noxnet::http::client

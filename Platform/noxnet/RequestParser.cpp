#include "Platform/noxnet/RequestParser.h"

#include <boost/beast/http/basic_parser.hpp>

namespace noxnet::http::server {

namespace beast = boost::beast;
namespace http = boost::beast::http;

namespace {

/// Extensions and trailers of one chunk.
constexpr std::size_t kMaxChunkHeadBytes = 16 * 1024;

}  // namespace

class RequestParser::Impl final : public http::basic_parser<true>
{
public:
    explicit Impl(const Limits& inLimits)
        : mLimits(inLimits), mRequest(std::make_shared<IncomingRequest>(inLimits.mMaxFormFields))
    {
        header_limit(static_cast<std::uint32_t>(std::min<std::size_t>(inLimits.mMaxHeaderBytes, 1U << 30)));
        body_limit(boost::none);
    }

    /// The status to answer a failed parse with.
    void Fail(const beast::error_code& inError)
    {
        if (mStatus != 0) return;
        mStatus = kHTTPStatus_BadRequest;
        if (inError == http::error::header_limit)
            mStatus = mHasLine ? kHTTPStatus_HeaderFieldsTooLarge : kHTTPStatus_URITooLong;
    }

    const Limits& mLimits;
    std::shared_ptr<IncomingRequest> mRequest;
    std::string mBody;
    std::uint64_t mBodyLimit = 0;
    int mStatus = 0;
    bool mHasLine = false;
    bool mHasHost = false;
    bool mHTTP11 = false;

private:
    using string_view = beast::string_view;

    void Refuse(int inStatus, beast::error_code& outError)
    {
        mStatus = inStatus;
        outError = http::error::bad_value;
    }

    void on_request_impl(http::verb /*method*/, string_view inMethod, string_view inTarget, int inVersion,
                         beast::error_code& outError) override
    {
        mHasLine = true;
        mHTTP11 = inVersion >= 11;
        mRequest->SetLine({inMethod.data(), inMethod.size()}, {inTarget.data(), inTarget.size()});
        if (mRequest->Path().size() > mLimits.mMaxPathBytes) return Refuse(kHTTPStatus_URITooLong, outError);
        // A target with an authority of its own would pass by the gate's look at Host.
        if (inTarget.front() != '/') Refuse(kHTTPStatus_BadRequest, outError);
    }
    void on_response_impl(int /*code*/, string_view /*reason*/, int /*version*/, beast::error_code& outError) override
    {
        outError = http::error::bad_method;
    }
    void on_field_impl(http::field inField, string_view inName, string_view inValue,
                       beast::error_code& outError) override
    {
        if (mHeaderDone) return;  // trailers say nothing that anybody here asks for
        if (inField == http::field::host && std::exchange(mHasHost, true))
            return Refuse(kHTTPStatus_BadRequest, outError);
        mRequest->AddHeader({inName.data(), inName.size()}, {inValue.data(), inValue.size()});
        // The parser takes fields one by one: their sum is counted here, with the four bytes around each.
        if (mRequest->HeadSize() + 4 * mRequest->HeaderCount() > mLimits.mMaxHeaderBytes)
            Refuse(kHTTPStatus_HeaderFieldsTooLarge, outError);
    }
    void on_header_impl(beast::error_code& /*error*/) override { mHeaderDone = true; }
    void on_body_init_impl(const boost::optional<std::uint64_t>& /*length*/, beast::error_code& /*error*/) override {}
    std::size_t on_body_impl(string_view /*body*/, beast::error_code& outError) override
    {
        outError = http::error::unexpected_body;  // the caller receives these itself
        return 0;
    }
    void on_chunk_header_impl(std::uint64_t inSize, string_view /*extensions*/, beast::error_code& outError) override
    {
        if (inSize > mBodyLimit || mBody.size() > mBodyLimit - inSize) Refuse(kHTTPStatus_PayloadTooLarge, outError);
    }
    std::size_t on_chunk_body_impl(std::uint64_t /*remain*/, string_view inBody, beast::error_code& /*error*/) override
    {
        mBody.append(inBody.data(), inBody.size());
        return inBody.size();
    }
    void on_finish_impl(beast::error_code& /*error*/) override {}

    bool mHeaderDone = false;
};

RequestParser::RequestParser(const Limits& inLimits) : mImpl(std::make_unique<Impl>(inLimits)) {}
RequestParser::~RequestParser() = default;

std::size_t RequestParser::Feed(std::string_view inBytes, Step& outStep)
{
    std::size_t used = 0;
    // Blank lines ahead of a request line are skipped.
    while (!mImpl->got_some() && used < inBytes.size() && (inBytes[used] == '\r' || inBytes[used] == '\n'))
        ++used;
    outStep = Step::NeedMore;
    const bool hadHeader = mImpl->is_header_done();
    while (used < inBytes.size()) {
        beast::error_code error;
        used += mImpl->put(boost::asio::const_buffer(inBytes.data() + used, inBytes.size() - used), error);
        if (error == http::error::need_more) {
            if (!hadHeader || inBytes.size() - used <= kMaxChunkHeadBytes) return used;
            error = http::error::bad_chunk_extension;
        }
        if (error) {
            mImpl->Fail(error);
            outStep = Step::Failed;
            return used;
        }
        if (!hadHeader && mImpl->is_header_done()) {
            outStep = Step::HeaderDone;
            return used;
        }
        if (mImpl->is_done()) {
            outStep = Step::Complete;
            return used;
        }
    }
    return used;
}

int RequestParser::Status() const
{
    return mImpl->mStatus;
}
const std::shared_ptr<IncomingRequest>& RequestParser::GetRequest() const
{
    return mImpl->mRequest;
}
bool RequestParser::IsChunked() const
{
    return mImpl->chunked();
}
std::uint64_t RequestParser::ContentLength() const
{
    return mImpl->content_length().value_or(0);
}
bool RequestParser::KeepsAlive() const
{
    return mImpl->keep_alive();
}
bool RequestParser::IsHTTP11() const
{
    return mImpl->mHTTP11;
}
void RequestParser::SetBodyLimit(std::uint64_t inBytes)
{
    mImpl->mBodyLimit = inBytes;
}
std::string RequestParser::TakeBody()
{
    return std::move(mImpl->mBody);
}

}  // namespace noxnet::http::server

#include "Platform/noxnet/RequestParser.h"

#include <algorithm>
#include <charconv>

#include <boost/beast/http/basic_parser.hpp>

namespace noxnet::http::server {

namespace beast = boost::beast;
namespace http = boost::beast::http;

namespace {

/// Longest line between chunks, and the sum of all trailers.
constexpr std::size_t kMaxChunkLineBytes = 16 * 1024;

/// Puts a chunked body together. Our own, since Beast 1.81 ends the process on an assertion for some broken bodies.
class ChunkReader
{
public:
    using Step = RequestParser::Step;

    void SetLimit(std::uint64_t inBytes) { mLimit = inBytes; }
    std::string& Body() { return mBody; }

    /// Takes bytes and gives the number of those it used. outStatus is set with Failed.
    std::size_t Feed(std::string_view inBytes, Step& outStep, int& outStatus)
    {
        std::size_t used = 0;
        outStep = Step::NeedMore;
        while (outStep == Step::NeedMore) {
            if (mPlace == Place::Data) {
                const std::size_t size = std::min<std::uint64_t>(mRemaining, inBytes.size() - used);
                mBody.append(inBytes, used, size);
                used += size;
                mRemaining -= size;
                if (mRemaining > 0) return used;
                mPlace = Place::DataEnd;
            }
            const std::string_view rest = inBytes.substr(used);
            const std::size_t end = rest.find("\r\n");
            if (end > kMaxChunkLineBytes && rest.size() > kMaxChunkLineBytes) outStatus = kHTTPStatus_BadRequest;
            if (outStatus == 0 && end == std::string_view::npos) return used;
            if (outStatus == 0) outStatus = TakeLine(rest.substr(0, end));
            if (outStatus != 0) {
                outStep = Step::Failed;
                return used;
            }
            used += end + 2;
            if (mPlace == Place::Done) outStep = Step::Complete;
        }
        return used;
    }

private:
    enum class Place
    {
        Size,     ///< the line that tells a chunk's size
        Data,     ///< within a chunk
        DataEnd,  ///< the line end behind it
        Trailer,  ///< lines behind the last chunk, up to a blank one
        Done
    };

    /// 0, or the status to fail with.
    int TakeLine(std::string_view inLine)
    {
        if (mPlace == Place::Size) return TakeSize(inLine);
        if (mPlace == Place::DataEnd) {
            mPlace = Place::Size;
            return inLine.empty() ? 0 : kHTTPStatus_BadRequest;
        }
        // Trailers say nothing that anybody here asks for.
        mTrailerBytes += inLine.size() + 2;
        if (inLine.empty())
            mPlace = Place::Done;
        else if (inLine.find(':') == std::string_view::npos)
            return kHTTPStatus_BadRequest;
        return mTrailerBytes <= kMaxChunkLineBytes ? 0 : kHTTPStatus_BadRequest;
    }

    int TakeSize(std::string_view inLine)
    {
        const char* const end = inLine.data() + inLine.size();
        const auto [stop, error] = std::from_chars(inLine.data(), end, mRemaining, 16);
        if (error == std::errc::result_out_of_range) return kHTTPStatus_PayloadTooLarge;
        const char* const rest = std::find_if(stop, end, [](char inChar) { return inChar != ' ' && inChar != '\t'; });
        const bool ended = rest == end || *rest == ';';
        if (error != std::errc() || !ended) return kHTTPStatus_BadRequest;
        if (mRemaining > mLimit || mBody.size() > mLimit - mRemaining) return kHTTPStatus_PayloadTooLarge;
        mPlace = mRemaining > 0 ? Place::Data : Place::Trailer;
        return 0;
    }

    Place mPlace = Place::Size;
    std::uint64_t mLimit = 0;
    std::uint64_t mRemaining = 0;
    std::size_t mTrailerBytes = 0;
    std::string mBody;
};

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
    ChunkReader mChunks;
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
        if (inField == http::field::host && std::exchange(mHasHost, true))
            return Refuse(kHTTPStatus_BadRequest, outError);
        mRequest->AddHeader({inName.data(), inName.size()}, {inValue.data(), inValue.size()});
        // The parser takes fields one by one: their sum is counted here, with the four bytes around each.
        if (mRequest->HeadSize() + 4 * mRequest->HeaderCount() > mLimits.mMaxHeaderBytes)
            Refuse(kHTTPStatus_HeaderFieldsTooLarge, outError);
    }
    void on_header_impl(beast::error_code& /*error*/) override {}
    void on_finish_impl(beast::error_code& /*error*/) override {}

    // Bodies are not given to Beast: those of announced length go to the caller, the others to mChunks.
    void on_body_init_impl(const boost::optional<std::uint64_t>& /*length*/, beast::error_code& outError) override
    {
        outError = http::error::unexpected_body;
    }
    std::size_t on_body_impl(string_view /*body*/, beast::error_code& outError) override
    {
        outError = http::error::unexpected_body;
        return 0;
    }
    void on_chunk_header_impl(std::uint64_t /*size*/, string_view /*extensions*/, beast::error_code& outError) override
    {
        outError = http::error::unexpected_body;
    }
    std::size_t on_chunk_body_impl(std::uint64_t /*remain*/, string_view /*body*/, beast::error_code& outError) override
    {
        outError = http::error::unexpected_body;
        return 0;
    }
};

RequestParser::RequestParser(const Limits& inLimits) : mImpl(std::make_unique<Impl>(inLimits)) {}
RequestParser::~RequestParser() = default;

std::size_t RequestParser::Feed(std::string_view inBytes, Step& outStep)
{
    if (mImpl->is_header_done()) return mImpl->mChunks.Feed(inBytes, outStep, mImpl->mStatus);
    std::size_t used = 0;
    // Blank lines ahead of a request line are skipped.
    while (!mImpl->got_some() && used < inBytes.size() && (inBytes[used] == '\r' || inBytes[used] == '\n'))
        ++used;
    outStep = Step::NeedMore;
    if (used == inBytes.size()) return used;
    beast::error_code error;
    used += mImpl->put(boost::asio::const_buffer(inBytes.data() + used, inBytes.size() - used), error);
    if (error == http::error::need_more) return used;
    if (error) {
        mImpl->Fail(error);
        outStep = Step::Failed;
    } else if (mImpl->is_header_done()) {
        outStep = Step::HeaderDone;
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
    mImpl->mChunks.SetLimit(inBytes);
}
std::string RequestParser::TakeBody()
{
    return std::move(mImpl->mChunks.Body());
}

}  // namespace noxnet::http::server

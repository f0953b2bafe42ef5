#include "Platform/noxnet/Connection.h"

#include <sys/sendfile.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/RequestParser.h"

namespace noxnet::http::server {

namespace asio = boost::asio;
using boost::system::error_code;
using tcp = boost::asio::ip::tcp;

namespace {

/// Bytes that a client may send ahead of the answer to its request before we stop to read.
constexpr std::size_t kMaxBytesAhead = 64 * 1024;
/// How long a connection that we end is read on, so that a client still sending gets to see the answer.
constexpr std::int64_t kLingerTicks = 10 * noxcore::kTicksPerSecond;
/// Whoever has waited longer than this for an answer lets those go first who have not.
constexpr std::int64_t kLongWaitTicks = noxcore::kTicksPerSecond / 10;
constexpr std::string_view kBulkPath = "/api/transaction/";
constexpr std::string_view kContinue = "HTTP/1.1 100 Continue\r\n\r\n";

enum class State
{
    Header,     ///< between requests, or within a header
    Body,       ///< within a body of announced length
    Chunks,     ///< within a chunked body
    Waiting,    ///< the request is with its service
    Writing,    ///< the answer goes out
    Lingering,  ///< answered for the last time; what still comes is thrown away
    Closed
};

ConstRecycledMemoryPtr EmptyPayload()
{
    static const auto kEmpty = std::make_shared<const RecycledMemory>();
    return kEmpty;
}

/// 0, or the status to refuse a request with whose body is framed or coded in a way that is not understood here.
int ObjectionToBody(const IncomingRequest& inRequest, bool inHasBody, bool inHTTP11)
{
    // Every occurrence counts: what comes last must not hide behind a harmless first one.
    for (std::size_t i = 0; i < inRequest.HeaderCount(); ++i) {
        const std::string_view name = inRequest.HeaderName(i);
        const std::string_view value = inRequest.HeaderValue(i);
        if (EqualWithoutCase(name, "Transfer-Encoding")) {
            if (!inHTTP11) return kHTTPStatus_BadRequest;  // such a client cannot know what it says
            if (!EqualWithoutCase(value, "chunked")) return kHTTPStatus_NotImplemented;
        } else if (inHasBody && EqualWithoutCase(name, "Content-Encoding")) {
            if (!value.empty() && !EqualWithoutCase(value, "identity")) return kHTTPStatus_UnsupportedMediaType;
        }
    }
    return 0;
}

class SocketConnection final : public Connection, public std::enable_shared_from_this<SocketConnection>
{
public:
    SocketConnection(ConnectionHost& inHost, asio::io_context& inIO, int inDescriptor, const SocketPair& inPair,
                     std::uint64_t inID)
        : mHost(inHost), mID(inID), mPair(inPair), mSocket(inIO, tcp::v4(), inDescriptor)
    {
        error_code error;
        mSocket.non_blocking(true, error);
        mSocket.set_option(tcp::no_delay(true), error);
    }

    void Start() override
    {
        SetDeadline(mHost.GetLimits().mRequestTimeoutInSeconds);
        Watch();
    }

    void Refuse(int inStatus) override
    {
        MutableResponse response;
        response.mStatus = inStatus;
        Send(EncodeAnswer(response, {.mKeepAlive = false, .mNow = WallTime()}));
        Continue();
    }

    void Answer(std::uint64_t inRequest, EncodedAnswer inAnswer) override
    {
        if (mState != State::Waiting || inRequest != mRequestID) return;
        Send(std::move(inAnswer));
        Continue();
    }

    bool TakeAtOnce(std::uint64_t inRequest, EncodedAnswer& ioAnswer) override
    {
        if (!mHandingOver || inRequest != mRequestID) return false;
        mAtOnce = std::move(ioAnswer);
        return true;
    }

    void CheckTime(std::int64_t inNow) override
    {
        const bool late = mDeadline != 0 && inNow >= mDeadline;
        if (mState == State::Waiting) {
            // The end of a client that has sent far ahead lies behind bytes that are not read yet.
            if ((mPeerFinished || !mWatching) && !PeerStillReads()) Close();
        } else if (late && (mState == State::Body || mState == State::Chunks || mParser)) {
            Refuse(kHTTPStatus_RequestTimeout);
        } else if (late) {
            Close();
        }
    }

    void StopReceiving() override
    {
        mStopped = true;
        if (mState != State::Waiting && mState != State::Writing) Close();
    }

    void Close() override
    {
        if (mState == State::Closed) return;
        mState = State::Closed;
        if (mRequest) mRequest->MarkClientGone();
        mRequest.reset();
        error_code error;
        mSocket.close(error);
        mHost.Remove(mID);
    }

private:
    using Step = RequestParser::Step;

    static std::int64_t Now() { return noxcore::HubContext::Current()->GetClock().MonotonicTicks(); }
    static std::int64_t WallTime() { return noxcore::HubContext::Current()->GetClock().NowTicks(); }
    void SetDeadline(unsigned inSeconds) { mDeadline = Now() + inSeconds * noxcore::kTicksPerSecond; }

    /// No client may pause for long, and none may take for ever by pausing often.
    void SetBodyDeadline()
    {
        const Limits& limits = mHost.GetLimits();
        const std::uint64_t whole = limits.mBodyTimeoutInSeconds + mShare->Bytes() / limits.mMinBodyBytesPerSecond;
        SetDeadline(limits.mRequestTimeoutInSeconds);
        mDeadline = std::min(mDeadline, mBodyStart + static_cast<std::int64_t>(whole) * noxcore::kTicksPerSecond);
    }

    [[nodiscard]] bool Parses() const
    {
        return mState == State::Header || mState == State::Body || mState == State::Chunks;
    }

    /// Waits for bytes or for the end, without a buffer.
    void Watch()
    {
        if (mWatching || mState == State::Closed || mPeerFinished) return;
        if (mState == State::Writing || (mState == State::Waiting && mAhead.size() >= kMaxBytesAhead)) return;
        mWatching = true;
        mSocket.async_wait(tcp::socket::wait_read, [self = shared_from_this()](const error_code& inError) {
            self->mWatching = false;
            if (self->mState == State::Closed) return;
            if (inError)
                self->Close();
            else
                self->OnReadable();
        });
    }

    void OnReadable()
    {
        const bool intoBody = mState == State::Body;
        const std::span<char> room =
            intoBody ? std::span<char>(mBody.get() + mBodyReceived, mBodySize - mBodyReceived) : mHost.Scratch();
        error_code error;
        const std::size_t received = mSocket.read_some(asio::buffer(room.data(), room.size()), error);
        if (error == asio::error::would_block || error == asio::error::try_again) return Watch();
        if (error == asio::error::eof) return OnPeerFinished();
        if (error) return Close();
        if (intoBody)
            TakeIntoBody(received);
        else if (Parses())
            TakeBytes({room.data(), received});
        else if (mState != State::Lingering)
            mAhead.append(room.data(), received);
        Watch();
    }

    void OnPeerFinished()
    {
        mPeerFinished = true;
        // A client may end its own direction and wait for the answer; one that has closed its socket has gone.
        const bool answerUnderWay = mState == State::Writing || (mState == State::Waiting && PeerStillReads());
        if (!answerUnderWay) Close();
    }

    [[nodiscard]] bool PeerStillReads() const
    {
        PeerSocket peer;
        return PeerUserLookup::Current()->Find(mPair, peer) && peer.mHeld;
    }

    /// Parses what was read, keeping what cannot be used yet.
    void TakeBytes(std::string_view inBytes)
    {
        if (mAhead.empty()) {
            const std::size_t used = Parse(inBytes);
            if (Parses() || mState == State::Waiting || mState == State::Writing) mAhead = inBytes.substr(used);
        } else {
            mAhead += inBytes;
            ParseAhead();
        }
    }

    void ParseAhead()
    {
        mAhead.erase(0, Parse(mAhead));
        if (mAhead.empty() && mAhead.capacity() > 1024) std::string().swap(mAhead);
    }

    /// Gives the number of bytes used. Requests that are answered at once are answered on the way.
    std::size_t Parse(std::string_view inBytes)
    {
        std::size_t used = 0;
        while (used < inBytes.size() && Parses()) {
            const std::string_view rest = inBytes.substr(used);
            const std::size_t taken = mState == State::Body ? CopyIntoBody(rest) : Feed(rest);
            used += taken;
            if (taken == 0) break;
        }
        return used;
    }

    std::size_t Feed(std::string_view inBytes)
    {
        if (!mParser) {
            mParser = std::make_unique<RequestParser>(mHost.GetLimits());
            SetDeadline(mHost.GetLimits().mRequestTimeoutInSeconds);
        }
        Step step = Step::NeedMore;
        const std::size_t used = mParser->Feed(inBytes, step);
        if (step == Step::Failed)
            RefuseWithin(mParser->Status());
        else if (step == Step::HeaderDone)
            BeginBody(used < inBytes.size());
        else if (mState == State::Chunks && used > 0)
            TakeChunks(used, step == Step::Complete);
        return used;
    }

    /// The header is there: gate, bounds, and where the body goes.
    void BeginBody(bool inBodyHasCome)
    {
        const IncomingRequest& request = *mParser->GetRequest();
        mTraits = {.mHead = request.Method() == "HEAD",
                   .mKeepAlive = mParser->KeepsAlive() && !mStopped,
                   .mHTTP11 = mParser->IsHTTP11()};
        if (!mHost.GetRouter().GetGate().AdmitRequest(request)) return RefuseWithin(kHTTPStatus_Forbidden);
        const bool chunked = mParser->IsChunked();
        const std::uint64_t length = mParser->ContentLength();
        const int objection = ObjectionToBody(request, chunked || length > 0, mTraits.mHTTP11);
        if (objection != 0) return RefuseWithin(objection);
        const Limits& limits = mHost.GetLimits();
        const std::uint64_t limit =
            request.Path().starts_with(kBulkPath) ? limits.mMaxBodyBytes : limits.mMaxSmallBodyBytes;
        if (length > limit) return RefuseWithin(kHTTPStatus_PayloadTooLarge);
        if (!chunked && length == 0) return HandOver(EmptyPayload());
        const bool invite = mTraits.mHTTP11 && EqualWithoutCase(request.Header("Expect"), "100-continue");
        if (invite && !inBodyHasCome) {
            error_code error;
            if (mSocket.write_some(asio::buffer(kContinue), error) != kContinue.size()) return Close();
        }
        mShare = std::make_unique<BodyShare>(mHost.GetBodyMemory());
        mBodyStart = Now();
        SetBodyDeadline();
        if (chunked) {
            mParser->SetBodyLimit(limit);
            mState = State::Chunks;
            return;
        }
        // Memory that is announced and never sent is never touched, and so costs nothing.
        mBody.reset(new (std::nothrow) char[length]);
        if (!mBody) return RefuseWithin(kHTTPStatus_ServiceUnavailable);
        mBodySize = length;
        mBodyReceived = 0;
        mState = State::Body;
    }

    std::size_t CopyIntoBody(std::string_view inBytes)
    {
        const std::size_t size = std::min(inBytes.size(), mBodySize - mBodyReceived);
        std::copy_n(inBytes.data(), size, mBody.get() + mBodyReceived);
        TakeIntoBody(size);
        return size;
    }

    void TakeIntoBody(std::size_t inSize)
    {
        mBodyReceived += inSize;
        if (!mShare->Grow(inSize)) return RefuseWithin(kHTTPStatus_ServiceUnavailable);
        SetBodyDeadline();
        if (mBodyReceived == mBodySize) HandOverBody(std::move(mBody), mBodySize);
    }

    void TakeChunks(std::size_t inSize, bool inComplete)
    {
        if (!mShare->Grow(inSize)) return RefuseWithin(kHTTPStatus_ServiceUnavailable);
        SetBodyDeadline();
        if (!inComplete) return;
        auto text = std::make_unique<std::string>(mParser->TakeBody());
        const std::size_t size = text->size();
        HandOverBody(std::move(text), size);
    }

    static const char* DataOf(const std::unique_ptr<char[]>& inBody) { return inBody.get(); }
    static const char* DataOf(const std::unique_ptr<std::string>& inBody) { return inBody->data(); }

    /// Body and share go together, when the last that holds the payload does.
    template <class Body>
    void HandOverBody(Body inBody, std::size_t inSize)
    {
        const char* const data = DataOf(inBody);
        auto owner =
            std::make_shared<std::pair<Body, std::unique_ptr<BodyShare>>>(std::move(inBody), std::move(mShare));
        HandOver(std::make_shared<const RecycledMemory>(std::move(owner), data, inSize));
    }

    void HandOver(ConstRecycledMemoryPtr inPayload)
    {
        mRequest = mParser->GetRequest();
        mRequest->SetPayload(std::move(inPayload));
        mParser.reset();
        mState = State::Waiting;
        mDeadline = 0;
        const std::uint64_t id = ++mRequestID;
        mHandingOver = true;
        mHost.GetRouter().Deliver(
            mRequest, [host = mHost.Weak(), connection = mID, id, traits = mTraits, start = Now(),
                       context = noxcore::HubContext::Current()](const std::shared_ptr<MutableResponse>& inResponse) {
                const auto alive = host.lock();
                if (!alive) return;
                AnswerTraits now = traits;
                now.mNow = context->GetClock().NowTicks();
                EncodedAnswer answer = EncodeAnswer(*inResponse, now);
                answer.mHasWaited = context->GetClock().MonotonicTicks() - start > kLongWaitTicks;
                alive->QueueAnswer(connection, id, std::move(answer));
            });
        mHandingOver = false;
        if (!mAtOnce) return;
        EncodedAnswer answer = std::move(*mAtOnce);
        mAtOnce.reset();
        Send(std::move(answer));
    }

    /// Refuses a request that is being read; what follows it is not looked at.
    void RefuseWithin(int inStatus)
    {
        MutableResponse response;
        response.mStatus = inStatus;
        Send(EncodeAnswer(response, {.mHead = mTraits.mHead, .mKeepAlive = false, .mNow = WallTime()}));
    }

    void Send(EncodedAnswer inAnswer)
    {
        if (mRequest) mRequest->MarkAnswered();
        mRequest.reset();
        mParser.reset();
        mBody.reset();
        mShare.reset();
        mAnswer = std::move(inAnswer);
        mSent = 0;
        mState = State::Writing;
        Write();
    }

    /// Sends as much as the socket takes. Ends in Writing where some is left, else in what follows an answer.
    void Write()
    {
        const RecycledMemory body = mAnswer.mBody ? *mAnswer.mBody : RecycledMemory();
        while (mSent < mAnswer.mHead.size() + body.size()) {
            error_code error;
            mSent += body.File() < 0 ? WriteBytes(body, error) : WriteFile(body, error);
            if (error == asio::error::would_block || error == asio::error::try_again) return WaitToWrite();
            if (error) return Close();
        }
        const bool close = mAnswer.mClose || mStopped;
        mAnswer = {};
        if (close)
            Linger();
        else
            AwaitRequest();
    }

    [[nodiscard]] asio::const_buffer RestOfHead() const
    {
        const std::size_t sent = std::min(mSent, mAnswer.mHead.size());
        return {mAnswer.mHead.data() + sent, mAnswer.mHead.size() - sent};
    }

    std::size_t WriteBytes(const RecycledMemory& inBody, error_code& outError)
    {
        const asio::const_buffer head = RestOfHead();
        const std::size_t bodySent = mSent + head.size() - mAnswer.mHead.size();
        const std::array<asio::const_buffer, 2> buffers = {
            head, asio::const_buffer(inBody.data() + bodySent, inBody.size() - bodySent)};
        return mSocket.write_some(buffers, outError);
    }

    /// The head waits for the first bytes of the file, which the socket takes as they lie there.
    std::size_t WriteFile(const RecycledMemory& inBody, error_code& outError)
    {
        if (const asio::const_buffer head = RestOfHead(); head.size() > 0) {
            return mSocket.send(std::array<asio::const_buffer, 1>{head}, MSG_MORE, outError);
        }
        auto offset = static_cast<off_t>(mSent - mAnswer.mHead.size());
        const std::size_t rest = inBody.size() - static_cast<std::size_t>(offset);
        ssize_t sent = 0;
        do {
            sent = sendfile(mSocket.native_handle(), inBody.File(), &offset, rest);
        } while (sent < 0 && errno == EINTR);
        if (sent > 0) return static_cast<std::size_t>(sent);
        if (sent < 0 && (errno == EINVAL || errno == ENOSYS)) return WriteBytes(inBody, outError);  // not here
        outError = sent < 0 ? error_code(errno, boost::system::system_category()) : error_code(asio::error::eof);
        return 0;
    }

    void WaitToWrite()
    {
        SetDeadline(mHost.GetLimits().mRequestTimeoutInSeconds);
        mSocket.async_wait(tcp::socket::wait_write, [self = shared_from_this()](const error_code& inError) {
            if (self->mState != State::Writing) return;
            if (inError) return self->Close();
            self->Write();
            self->Continue();
        });
    }

    void AwaitRequest()
    {
        mState = State::Header;
        SetDeadline(mHost.GetLimits().mIdleTimeoutInSeconds);
    }

    /// The last answer is out. Closing with unread bytes would reset the connection before the client has read it.
    void Linger()
    {
        if (mPeerFinished || mStopped) return Close();
        mState = State::Lingering;
        mDeadline = Now() + kLingerTicks;
        std::string().swap(mAhead);
        error_code error;
        mSocket.shutdown(tcp::socket::shutdown_send, error);
    }

    /// Goes on after an answer that was not given from within Parse.
    void Continue()
    {
        if (mState == State::Header && !mAhead.empty()) ParseAhead();
        if (mPeerFinished && Parses()) return Close();  // nothing more will come
        Watch();
    }

    ConnectionHost& mHost;
    const std::uint64_t mID;
    const SocketPair mPair;
    tcp::socket mSocket;
    State mState = State::Header;
    bool mWatching = false;
    bool mPeerFinished = false;
    bool mStopped = false;
    bool mHandingOver = false;
    AnswerTraits mTraits;
    std::int64_t mDeadline = 0;    ///< monotonic ticks; 0 for none
    std::int64_t mBodyStart = 0;   ///< when the header was there
    std::uint64_t mRequestID = 0;  ///< counts the requests of this connection
    std::string mAhead;            ///< bytes that were read and not used yet
    std::unique_ptr<RequestParser> mParser;
    std::unique_ptr<char[]> mBody;
    std::size_t mBodySize = 0;
    std::size_t mBodyReceived = 0;
    std::unique_ptr<BodyShare> mShare;          ///< of the body that is being received
    std::shared_ptr<IncomingRequest> mRequest;  ///< the one that waits for its answer
    std::optional<EncodedAnswer> mAtOnce;
    EncodedAnswer mAnswer;
    std::size_t mSent = 0;
};

}  // namespace

std::shared_ptr<Connection> Connection::Create(ConnectionHost& inHost, asio::io_context& inIO, int inDescriptor,
                                               const SocketPair& inPair, std::uint64_t inID)
{
    return std::make_shared<SocketConnection>(inHost, inIO, inDescriptor, inPair, inID);
}

}  // namespace noxnet::http::server

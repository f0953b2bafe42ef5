#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace noxtransport {

/// Bounds of one stream of messages.
struct FramingLimits
{
    std::size_t mMaxHeaderBytes = 4 * 1024;
    std::size_t mMaxMessageBytes = 1024 * 1024;
};

enum class FrameStatus
{
    NeedMore,  ///< no whole message yet
    Message,   ///< one message was taken out
    Broken     ///< the stream cannot be understood any more; stays so
};

/// Cuts a byte stream into messages. A message is a header of lines that end in CR LF, an empty line, and as many
/// bytes as the header's "Content-Length" says:
///
///     Content-Length: 2\r\n
///     \r\n
///     {}
///
/// Header names count in any case; those other than Content-Length are passed over. Threading: one thread at a time.
class FrameDecoder
{
public:
    explicit FrameDecoder(const FramingLimits& inLimits = {}) : mLimits(inLimits) {}

    /// Appends received bytes. Call Next until it gives no message before feeding more: that bounds what is kept.
    void Feed(std::string_view inBytes);
    /// Takes the next message out. outMessage changes only with Message.
    FrameStatus Next(std::string& outMessage);
    /// Why the stream is Broken, for a record; empty before.
    [[nodiscard]] std::string_view Reason() const { return mReason; }
    /// True when part of a message has come and the rest has not.
    [[nodiscard]] bool IsInsideMessage() const { return mInBody || mBuffer.size() > mBegin; }

private:
    FrameStatus ReadHeader();
    bool ReadHeaderLine(std::string_view inLine);
    FrameStatus Break(std::string_view inReason);

    const FramingLimits mLimits;
    std::string mBuffer;
    std::size_t mBegin = 0;    ///< what lies before was taken out
    std::size_t mScanned = 0;  ///< no end of a header begins before this place
    std::size_t mLength = 0;   ///< of the message that is being received
    bool mHasLength = false;
    bool mInBody = false;
    std::string_view mReason;  ///< a literal
};

/// The message with its header before it.
std::string EncodeFrame(std::string_view inMessage);

}  // namespace noxtransport

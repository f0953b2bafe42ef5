#include "Platform/noxtransport/Framing.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace noxtransport {

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kHeaderEnd = "\r\n\r\n";
constexpr std::string_view kContentLength = "Content-Length";

bool EqualInAnyCase(std::string_view inLeft, std::string_view inRight)
{
    return std::equal(inLeft.begin(), inLeft.end(), inRight.begin(), inRight.end(), [](char inA, char inB) {
        return std::tolower(static_cast<unsigned char>(inA)) == std::tolower(static_cast<unsigned char>(inB));
    });
}

std::string_view WithoutBlanks(std::string_view inText)
{
    const auto first = inText.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return inText.substr(first, inText.find_last_not_of(" \t") - first + 1);
}

}  // namespace

void FrameDecoder::Feed(std::string_view inBytes)
{
    if (!mReason.empty()) return;
    mBuffer.erase(0, mBegin);
    mScanned -= std::min(mScanned, mBegin);
    mBegin = 0;
    mBuffer += inBytes;
}

FrameStatus FrameDecoder::Next(std::string& outMessage)
{
    if (!mReason.empty()) return FrameStatus::Broken;
    if (!mInBody) {
        const FrameStatus status = ReadHeader();
        if (status != FrameStatus::Message) return status;
    }
    if (mBuffer.size() - mBegin < mLength) return FrameStatus::NeedMore;
    outMessage.assign(mBuffer, mBegin, mLength);
    mBegin += mLength;
    mScanned = mBegin;
    mInBody = false;
    return FrameStatus::Message;
}

/// Message when a whole header was read.
FrameStatus FrameDecoder::ReadHeader()
{
    const std::size_t end = mBuffer.find(kHeaderEnd, std::max(mBegin, mScanned));
    const std::size_t size = (end == std::string::npos ? mBuffer.size() : end + kHeaderEnd.size()) - mBegin;
    if (size > mLimits.mMaxHeaderBytes) return Break("The header is too large");
    if (end == std::string::npos) {
        // The end may have come in part: its last three bytes are looked at again.
        mScanned = std::max(mBegin, mBuffer.size() - std::min(mBuffer.size(), kHeaderEnd.size() - 1));
        return FrameStatus::NeedMore;
    }
    mHasLength = false;
    std::string_view lines = std::string_view(mBuffer).substr(mBegin, end - mBegin);
    for (;;) {
        const auto lineEnd = lines.find(kLineEnd);
        if (!ReadHeaderLine(lines.substr(0, lineEnd))) return FrameStatus::Broken;
        if (lineEnd == std::string_view::npos) break;
        lines.remove_prefix(lineEnd + kLineEnd.size());
    }
    if (!mHasLength) return Break("The header has no Content-Length");
    mBegin = end + kHeaderEnd.size();
    mScanned = mBegin;
    mInBody = true;
    return FrameStatus::Message;
}

bool FrameDecoder::ReadHeaderLine(std::string_view inLine)
{
    const auto colon = inLine.find(':');
    if (colon == std::string_view::npos || colon == 0) {
        Break("A header line has no name");
        return false;
    }
    if (!EqualInAnyCase(inLine.substr(0, colon), kContentLength)) return true;
    const std::string_view digits = WithoutBlanks(inLine.substr(colon + 1));
    const char* const end = digits.data() + digits.size();
    std::size_t length = 0;
    const auto parsed = std::from_chars(digits.data(), end, length);
    // Two lengths would let two readers see different messages.
    if (mHasLength || parsed.ec != std::errc() || parsed.ptr != end) {
        Break("The Content-Length is not one number");
        return false;
    }
    if (length > mLimits.mMaxMessageBytes) {
        Break("The message is too large");
        return false;
    }
    mLength = length;
    mHasLength = true;
    return true;
}

FrameStatus FrameDecoder::Break(std::string_view inReason)
{
    mReason = inReason;
    mBuffer.clear();
    mBegin = 0;
    mScanned = 0;
    return FrameStatus::Broken;
}

std::string EncodeFrame(std::string_view inMessage)
{
    std::string frame(kContentLength);
    frame += ": ";
    frame += std::to_string(inMessage.size());
    frame += kHeaderEnd;
    frame += inMessage;
    return frame;
}

}  // namespace noxtransport

// Feeds a byte stream to the frame decoder in pieces that the input chooses. Whatever comes, the messages must be the
// same as those of the stream fed as a whole, no larger than the bound, and no more may be kept than the bounds say.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/noxtransport/Framing.h"

namespace {

using noxtransport::FrameDecoder;
using noxtransport::FrameStatus;
using noxtransport::FramingLimits;

constexpr FramingLimits kLimits{128, 256};

void Require(bool inCondition)
{
    if (!inCondition) std::abort();
}

/// Takes out what is there; the last status is the result.
FrameStatus Drain(FrameDecoder& ioDecoder, std::vector<std::string>& ioMessages)
{
    std::string message;
    FrameStatus status = FrameStatus::NeedMore;
    while ((status = ioDecoder.Next(message)) == FrameStatus::Message) {
        Require(message.size() <= kLimits.mMaxMessageBytes);
        ioMessages.push_back(message);
    }
    return status;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* inData, std::size_t inSize)
{
    if (inSize == 0) return 0;
    const std::size_t piece = 1 + inData[0] % 97;
    const std::string_view stream(reinterpret_cast<const char*>(inData) + 1, inSize - 1);

    FrameDecoder whole(kLimits);
    std::vector<std::string> atOnce;
    whole.Feed(stream);
    const FrameStatus statusAtOnce = Drain(whole, atOnce);

    FrameDecoder cut(kLimits);
    std::vector<std::string> inPieces;
    FrameStatus statusInPieces = FrameStatus::NeedMore;
    for (std::size_t place = 0; place < stream.size(); place += piece) {
        cut.Feed(stream.substr(place, piece));
        statusInPieces = Drain(cut, inPieces);
    }
    Require(atOnce == inPieces);
    Require(statusAtOnce == statusInPieces);

    // What was understood is written and read back.
    FrameDecoder again(kLimits);
    std::vector<std::string> readBack;
    for (const std::string& message : atOnce)
        again.Feed(noxtransport::EncodeFrame(message));
    Drain(again, readBack);
    Require(readBack == atOnce);
    return 0;
}

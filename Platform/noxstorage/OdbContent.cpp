#include "Platform/noxstorage/OdbContent.h"

#include <zstd.h>

#include <array>
#include <span>

#include "Platform/noxstorage/OdbSchema.h"

namespace noxstorage::git::odb {

namespace {

// The table that level 1 fills takes longer than a small object itself, and gains nothing there.
constexpr int kLevel = 1;
constexpr int kLevelOfSmall = -1;
constexpr std::size_t kSmall = 64 * 1024;
constexpr std::size_t kSmallest = 2048;             ///< below, the time costs more than the room
constexpr std::size_t kSample = 1024;               ///< bytes looked at
constexpr std::size_t kMostBytesInUse = 90;         ///< byte values, were all used equally often
constexpr std::size_t kLargest = 64 * 1024 * 1024;  ///< larger ones stay raw, so that reading never allocates at will

struct FreeCompressor
{
    void operator()(ZSTD_CCtx* inContext) const { ZSTD_freeCCtx(inContext); }
};
struct FreeDecompressor
{
    void operator()(ZSTD_DCtx* inContext) const { ZSTD_freeDCtx(inContext); }
};

bool SampleGains(std::string_view inBytes)
{
    const std::string_view sample = inBytes.substr((inBytes.size() - kSample) / 2, kSample);
    std::array<std::uint16_t, 256> counts{};
    for (const char byte : sample)
        ++counts[static_cast<std::uint8_t>(byte)];
    // How often two bytes of the sample are equal: 1 in 256 for what is compressed already, 1 in 30 for text.
    std::size_t equal = 0;
    for (const std::size_t count : counts)
        equal += count * count;
    return equal > kSample * kSample / kMostBytesInUse;
}

}  // namespace

Content Content::Share(Bytes inBytes)
{
    const std::string_view view = *inBytes;
    return {std::move(inBytes), view};
}

bool TryCompress(std::string_view inBytes, std::string& outBytes)
{
    if (inBytes.size() < kSmallest || inBytes.size() > kLargest || !SampleGains(inBytes)) return false;
    thread_local const std::unique_ptr<ZSTD_CCtx, FreeCompressor> context(ZSTD_createCCtx());
    // Room for what would be a gain; zstd gives up where that is too little.
    const std::size_t room = inBytes.size() - inBytes.size() / 8;
    // On the heap: what lies in a thread's own storage is touched in every thread of the process.
    thread_local const std::unique_ptr<char[]> scratch(new char[kSmall]);
    const bool isSmall = room <= kSmall;
    if (!isSmall) outBytes.resize(room);
    char* const target = isSmall ? scratch.get() : outBytes.data();
    const std::size_t size = ZSTD_compressCCtx(context.get(), target, room, inBytes.data(), inBytes.size(),
                                               isSmall ? kLevelOfSmall : kLevel);
    if (ZSTD_isError(size)) {
        outBytes.clear();
        return false;
    }
    if (isSmall) {
        outBytes.assign(target, size);
    } else {
        outBytes.resize(size);
        outBytes.shrink_to_fit();
    }
    return true;
}

std::shared_ptr<const Encoded> Encode(ObjectType inType, Content inContent, bool inCompress)
{
    auto encoded = std::make_shared<Encoded>();
    encoded->mType = inType;
    encoded->mSize = inContent.mView.size();
    encoded->mMayGain = inType == ObjectType::Blob && !inCompress;
    if (inType == ObjectType::Blob && inCompress && TryCompress(inContent.mView, encoded->mOwn)) {
        encoded->mEncoding = kEncodingZstd;
    } else if (inContent.mOwner != nullptr) {
        encoded->mData = std::move(inContent);
        return encoded;
    } else {
        encoded->mOwn = inContent.mView;
    }
    encoded->mData.mView = encoded->mOwn;
    return encoded;
}

namespace {

bool Decompress(std::string_view inData, std::span<char> outBytes)
{
    thread_local const std::unique_ptr<ZSTD_DCtx, FreeDecompressor> context(ZSTD_createDCtx());
    return ZSTD_decompressDCtx(context.get(), outBytes.data(), outBytes.size(), inData.data(), inData.size()) ==
           outBytes.size();
}

}  // namespace

bool Decode(unsigned inEncoding, std::string_view inData, std::uint64_t inSize, std::string& outBytes)
{
    if ((inEncoding & kEncodingZstd) == 0) {
        outBytes.assign(inData);
        return inData.size() == inSize;
    }
    if (inSize > kLargest) return false;
    outBytes.resize(inSize);
    return Decompress(inData, outBytes);
}

bool DecodeInto(std::string_view inData, std::uint64_t inSize, std::string& ioRoom, std::string_view& outBytes)
{
    if (inSize > kLargest) return false;
    if (ioRoom.size() < inSize) ioRoom.resize(inSize);
    outBytes = std::string_view(ioRoom).substr(0, inSize);
    return Decompress(inData, std::span(ioRoom).first(inSize));
}

}  // namespace noxstorage::git::odb

#include "Platform/noxcore/Murmur3.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace noxcore::utility {

namespace {

constexpr std::uint64_t kC1 = 0x87c37b91114253d5ULL;
constexpr std::uint64_t kC2 = 0x4cf5ad432745937fULL;

std::uint64_t MixK1(std::uint64_t inK)
{
    return std::rotl(inK * kC1, 31) * kC2;
}
std::uint64_t MixK2(std::uint64_t inK)
{
    return std::rotl(inK * kC2, 33) * kC1;
}

std::uint64_t FinalMix(std::uint64_t inK)
{
    inK ^= inK >> 33;
    inK *= 0xff51afd7ed558ccdULL;
    inK ^= inK >> 33;
    inK *= 0xc4ceb9fe1a85ec53ULL;
    return inK ^ (inK >> 33);
}

std::uint64_t LoadLittleEndian(const std::uint8_t* inBytes, std::size_t inCount)
{
    std::uint64_t value = 0;
    for (std::size_t i = inCount; i-- > 0;)
        value = (value << 8) | inBytes[i];
    return value;
}

}  // namespace

void Murmur3::Block(const std::uint8_t* inBlock)
{
    mH1 ^= MixK1(LoadLittleEndian(inBlock, 8));
    mH1 = (std::rotl(mH1, 27) + mH2) * 5 + 0x52dce729;
    mH2 ^= MixK2(LoadLittleEndian(inBlock + 8, 8));
    mH2 = (std::rotl(mH2, 31) + mH1) * 5 + 0x38495ab5;
}

void Murmur3::Add(const void* inData, std::size_t inSize)
{
    if (inSize == 0) return;  // the address may be null then
    const auto* bytes = static_cast<const std::uint8_t*>(inData);
    mLength += inSize;
    if (mTailSize > 0) {
        const std::size_t taken = std::min(inSize, mTail.size() - mTailSize);
        std::memcpy(mTail.data() + mTailSize, bytes, taken);
        mTailSize += taken;
        bytes += taken;
        inSize -= taken;
        if (mTailSize < mTail.size()) return;
        Block(mTail.data());
        mTailSize = 0;
    }
    for (; inSize >= 16; bytes += 16, inSize -= 16)
        Block(bytes);
    if (inSize > 0) std::memcpy(mTail.data(), bytes, inSize);
    mTailSize = inSize;
}

std::array<std::uint8_t, 16> Murmur3::Finish() const
{
    std::uint64_t h1 = mH1;
    std::uint64_t h2 = mH2;
    if (mTailSize > 8) h2 ^= MixK2(LoadLittleEndian(mTail.data() + 8, mTailSize - 8));
    if (mTailSize > 0) h1 ^= MixK1(LoadLittleEndian(mTail.data(), std::min<std::size_t>(mTailSize, 8)));
    h1 ^= mLength;
    h2 ^= mLength;
    h1 += h2;
    h2 += h1;
    h1 = FinalMix(h1);
    h2 = FinalMix(h2);
    h1 += h2;
    h2 += h1;
    std::array<std::uint8_t, 16> result{};
    for (std::size_t i = 0; i < 8; ++i) {
        result[i] = static_cast<std::uint8_t>(h1 >> (8 * i));
        result[8 + i] = static_cast<std::uint8_t>(h2 >> (8 * i));
    }
    return result;
}

}  // namespace noxcore::utility

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace noxcore::utility {

/// Murmur3, the 128-bit form for 64-bit machines, fed piece by piece.
///
/// Source: Austin Appleby's MurmurHash3_x64_128, placed in the public domain; seed 0. The result is the same however
/// the input is cut. Not a cryptographic hash: it names contents, it proves nothing.
class Murmur3
{
public:
    void Add(const void* inData, std::size_t inSize);
    void Add(std::string_view inText) { Add(inText.data(), inText.size()); }
    /// The hash of everything added; h1 then h2, each in little-endian order. The state stays usable.
    [[nodiscard]] std::array<std::uint8_t, 16> Finish() const;

private:
    void Block(const std::uint8_t* inBlock);

    std::uint64_t mH1 = 0;
    std::uint64_t mH2 = 0;
    std::uint64_t mLength = 0;
    std::array<std::uint8_t, 16> mTail{};
    std::size_t mTailSize = 0;
};

}  // namespace noxcore::utility

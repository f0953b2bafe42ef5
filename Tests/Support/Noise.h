#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace testing_support {

/// Bytes that no compressor makes smaller; the same for the same seed.
inline std::string Noise(std::size_t inSize, std::uint32_t inSeed = 1)
{
    std::string bytes(inSize, '\0');
    std::uint32_t state = inSeed * 2654435761U + 1;
    for (char& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

}  // namespace testing_support

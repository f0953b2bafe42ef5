#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace noxstorage::zip {

/// Packs bytes, piece by piece, into one raw deflate stream (RFC 1951): by ISA-L, which at its level 1 comes as far as
/// zlib at that level in a small part of the time.
///
/// Threading: one thread at a time.
class Deflater
{
public:
    Deflater();
    ~Deflater();
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;

    /// Takes of the input and fills of the output what it can; both are what is left of them afterwards. With the last
    /// of the input it is called until the stream has ended.
    bool Pack(std::string_view& ioInput, bool inIsLast, std::span<char>& ioOutput);
    [[nodiscard]] bool HasEnded() const;

private:
    struct Stream;
    const std::unique_ptr<Stream> mStream;
};

/// The check sum of an archive's entries (CRC-32), of all bytes so far; 0 of none.
std::uint32_t AddToCheckSum(std::uint32_t inCheckSum, std::string_view inBytes);

}  // namespace noxstorage::zip

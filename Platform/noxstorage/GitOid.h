#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

namespace noxstorage::git {

/// The id of an object: the 20 bytes of its SHA-1. All zero means "none".
class Oid
{
public:
    static constexpr std::size_t kSize = 20;
    static constexpr std::size_t kTextSize = 40;

    Oid() = default;
    /// Takes 20 bytes.
    explicit Oid(const void* inBytes) { std::memcpy(mBytes.data(), inBytes, kSize); }
    /// Reads exactly 40 hexadecimal digits of either case; false for any other text, and outOid keeps its value.
    static bool FromText(std::string_view inText, Oid& outOid);

    /// 40 lower-case hexadecimal digits.
    [[nodiscard]] std::string Text() const;
    [[nodiscard]] bool IsZero() const { return *this == Oid(); }
    [[nodiscard]] const std::uint8_t* Bytes() const { return mBytes.data(); }
    [[nodiscard]] std::string_view View() const { return {reinterpret_cast<const char*>(mBytes.data()), kSize}; }
    /// The first 63 bits, in the same order as the ids.
    [[nodiscard]] std::int64_t Key() const { return static_cast<std::int64_t>(FirstBytes() >> 1); }
    friend bool operator==(const Oid&, const Oid&) = default;
    friend std::strong_ordering operator<=>(const Oid& inLeft, const Oid& inRight)
    {
        // Nearly always the first bytes tell, without a call.
        const std::uint64_t left = inLeft.FirstBytes();
        const std::uint64_t right = inRight.FirstBytes();
        return left != right ? left <=> right : std::memcmp(inLeft.mBytes.data(), inRight.mBytes.data(), kSize) <=> 0;
    }

private:
    [[nodiscard]] std::uint64_t FirstBytes() const
    {
        std::uint64_t value = 0;
        for (std::size_t index = 0; index < sizeof(value); ++index)
            value = value << 8 | mBytes[index];
        return value;
    }

    std::array<std::uint8_t, kSize> mBytes{};
};

}  // namespace noxstorage::git

template <>
struct std::hash<noxstorage::git::Oid>
{
    std::size_t operator()(const noxstorage::git::Oid& inOid) const noexcept
    {
        std::size_t value = 0;  // a hash already: any eight of its bytes serve
        std::memcpy(&value, inOid.Bytes() + 4, sizeof(value));
        return value;
    }
};

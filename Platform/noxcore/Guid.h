#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace noxcore::utility {

/// A 16-byte identifier. Text form: 8-4-4-4-12 lower-case hexadecimal digits.
class Guid
{
public:
    Guid() = default;  ///< all zero
    explicit Guid(const std::array<std::uint8_t, 16>& inBytes) : mBytes(inBytes) {}

    /// A new random one (version 4, RFC 4122), from the context's random source.
    static Guid CreateUnique();

    /// Reads the text form, either case, braces not allowed. Nothing for any other text.
    static std::optional<Guid> FromText(std::string_view inText);

    [[nodiscard]] std::string Text() const;
    [[nodiscard]] const std::array<std::uint8_t, 16>& Bytes() const { return mBytes; }
    friend auto operator<=>(const Guid&, const Guid&) = default;

private:
    std::array<std::uint8_t, 16> mBytes{};
};

}  // namespace noxcore::utility

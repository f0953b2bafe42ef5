#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace noxappsupport::cloudservice {

/// A point in time as the wire knows it: RFC 3339 text, kept as ticks of 100 ns since 1970-01-01T00:00:00Z.
class RFC3339DateTime
{
public:
    RFC3339DateTime() = default;  ///< no time: empty text
    explicit RFC3339DateTime(std::int64_t inTicks) : mTicks(inTicks), mValid(true) {}
    static RFC3339DateTime Now();
    static RFC3339DateTime FromSeconds(std::int64_t inSeconds) { return RFC3339DateTime(inSeconds * 10000000); }
    /// Reads "2026-01-31T23:59:59.1234567+01:00" and its shorter forms; invalid for anything else. Digits past the
    /// seventh of the fraction are dropped.
    static RFC3339DateTime FromText(std::string_view inText);

    [[nodiscard]] bool IsValid() const { return mValid; }
    [[nodiscard]] std::int64_t Ticks() const { return mTicks; }
    [[nodiscard]] std::int64_t Seconds() const { return mTicks / 10000000; }
    /// In UTC with "Z"; the fraction only where it is not zero, without trailing zeros.
    [[nodiscard]] std::string Text() const;
    friend auto operator<=>(const RFC3339DateTime&, const RFC3339DateTime&) = default;

private:
    std::int64_t mTicks = 0;
    bool mValid = false;
};

}  // namespace noxappsupport::cloudservice

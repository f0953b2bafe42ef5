#include "Platform/noxappsupport/RFC3339DateTime.h"

#include <chrono>
#include <cstdio>

#include "Platform/noxcore/HubContext.h"

namespace noxappsupport::cloudservice {

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

/// Takes fixed numbers of digits and literal characters off the front of a text.
class Scanner
{
public:
    explicit Scanner(std::string_view inText) : mText(inText) {}

    bool Digits(std::size_t inCount, int& outNumber)
    {
        if (mText.size() < inCount) return false;
        outNumber = 0;
        for (std::size_t i = 0; i < inCount; ++i) {
            if (!IsDigit(mText[i])) return false;
            outNumber = outNumber * 10 + (mText[i] - '0');
        }
        mText.remove_prefix(inCount);
        return true;
    }

    bool AnyOf(std::string_view inCharacters, char& outFound)
    {
        if (mText.empty() || inCharacters.find(mText.front()) == std::string_view::npos) return false;
        outFound = mText.front();
        mText.remove_prefix(1);
        return true;
    }

    bool One(std::string_view inCharacters)
    {
        char ignored = 0;
        return AnyOf(inCharacters, ignored);
    }

    /// A fraction's digits as ticks; further digits are read and dropped.
    bool Fraction(std::int64_t& outTicks)
    {
        std::size_t count = 0;
        outTicks = 0;
        for (; !mText.empty() && IsDigit(mText.front()); mText.remove_prefix(1), ++count) {
            if (count < 7) outTicks = outTicks * 10 + (mText.front() - '0');
        }
        for (std::size_t i = count; i < 7; ++i)
            outTicks *= 10;
        return count > 0;
    }

    [[nodiscard]] bool AtEnd() const { return mText.empty(); }

private:
    static bool IsDigit(char inCharacter) { return inCharacter >= '0' && inCharacter <= '9'; }

    std::string_view mText;
};

bool ScanOffset(Scanner& inScanner, std::int64_t& outSeconds)
{
    char sign = 0;
    outSeconds = 0;
    if (inScanner.One("Zz")) return true;
    int hours = 0;
    int minutes = 0;
    if (!inScanner.AnyOf("+-", sign) || !inScanner.Digits(2, hours) || !inScanner.One(":") ||
        !inScanner.Digits(2, minutes) || hours > 23 || minutes > 59) {
        return false;
    }
    outSeconds = (hours * 60 + minutes) * 60 * (sign == '-' ? -1 : 1);
    return true;
}

}  // namespace

RFC3339DateTime RFC3339DateTime::Now()
{
    return RFC3339DateTime(noxcore::HubContext::Current()->GetClock().NowTicks());
}

RFC3339DateTime RFC3339DateTime::FromText(std::string_view inText)
{
    Scanner scanner(inText);
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (!scanner.Digits(4, year) || !scanner.One("-") || !scanner.Digits(2, month) || !scanner.One("-") ||
        !scanner.Digits(2, day) || !scanner.One("Tt ") || !scanner.Digits(2, hour) || !scanner.One(":") ||
        !scanner.Digits(2, minute) || !scanner.One(":") || !scanner.Digits(2, second)) {
        return {};
    }
    std::int64_t fraction = 0;
    if (scanner.One(".") && !scanner.Fraction(fraction)) return {};
    std::int64_t offset = 0;
    if (!ScanOffset(scanner, offset) || !scanner.AtEnd()) return {};

    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    // A leap second counts as the first second of the next minute.
    if (!date.ok() || hour > 23 || minute > 59 || second > 60) return {};
    const std::int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
    const std::int64_t seconds = days * kSecondsPerDay + hour * 3600 + minute * 60 + second - offset;
    return RFC3339DateTime(seconds * noxcore::kTicksPerSecond + fraction);
}

std::string RFC3339DateTime::Text() const
{
    if (!mValid) return {};
    std::int64_t fraction = mTicks % noxcore::kTicksPerSecond;
    std::int64_t seconds = mTicks / noxcore::kTicksPerSecond;
    if (fraction < 0) {
        fraction += noxcore::kTicksPerSecond;
        --seconds;
    }
    const std::chrono::sys_seconds time{std::chrono::seconds(seconds)};
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const auto ofDay = static_cast<int>((time - day).count());
    char buffer[64];
    int size = std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02d:%02d:%02d", static_cast<int>(date.year()),
                             static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), ofDay / 3600,
                             ofDay / 60 % 60, ofDay % 60);
    if (fraction != 0) {
        size += std::snprintf(buffer + size, sizeof buffer - static_cast<std::size_t>(size), ".%07d",
                              static_cast<int>(fraction));
        while (buffer[size - 1] == '0')
            --size;
    }
    return std::string(buffer, static_cast<std::size_t>(size)) + "Z";
}

}  // namespace noxappsupport::cloudservice

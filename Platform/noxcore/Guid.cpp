#include "Platform/noxcore/Guid.h"

#include "Platform/noxcore/HubContext.h"

namespace noxcore::utility {

namespace {

constexpr std::size_t kTextSize = 36;

constexpr bool IsDashPlace(std::size_t inIndex)
{
    return inIndex == 8 || inIndex == 13 || inIndex == 18 || inIndex == 23;
}

int DigitValue(char inDigit)
{
    if (inDigit >= '0' && inDigit <= '9') return inDigit - '0';
    if (inDigit >= 'a' && inDigit <= 'f') return inDigit - 'a' + 10;
    if (inDigit >= 'A' && inDigit <= 'F') return inDigit - 'A' + 10;
    return -1;
}

}  // namespace

Guid Guid::CreateUnique()
{
    Guid guid;
    HubContext::Current()->GetRandom().Fill(guid.mBytes);
    guid.mBytes[6] = static_cast<std::uint8_t>((guid.mBytes[6] & 0x0F) | 0x40);
    guid.mBytes[8] = static_cast<std::uint8_t>((guid.mBytes[8] & 0x3F) | 0x80);
    return guid;
}

std::optional<Guid> Guid::FromText(std::string_view inText)
{
    if (inText.size() != kTextSize) return std::nullopt;
    Guid guid;
    std::size_t digit = 0;
    for (std::size_t i = 0; i < kTextSize; ++i) {
        if (IsDashPlace(i)) {
            if (inText[i] != '-') return std::nullopt;
            continue;
        }
        const int value = DigitValue(inText[i]);
        if (value < 0) return std::nullopt;
        std::uint8_t& byte = guid.mBytes[digit / 2];
        byte = static_cast<std::uint8_t>((byte << 4) | value);
        ++digit;
    }
    return guid;
}

std::string Guid::Text() const
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(kTextSize);
    for (const std::uint8_t byte : mBytes) {
        if (IsDashPlace(text.size())) text.push_back('-');
        text.push_back(kDigits[byte >> 4]);
        text.push_back(kDigits[byte & 15]);
    }
    return text;
}

}  // namespace noxcore::utility

#include "Client/VYClient/UTF16.h"

#include <cstdint>

namespace VYCL {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsHighSurrogate(char32_t inUnit)
{
    return inUnit >= 0xD800 && inUnit < 0xDC00;
}
bool IsLowSurrogate(char32_t inUnit)
{
    return inUnit >= 0xDC00 && inUnit < 0xE000;
}

void AppendUTF8(std::string& outText, char32_t inCode)
{
    const auto put = [&outText](char32_t inByte) { outText += static_cast<char>(inByte); };
    if (inCode < 0x80) {
        put(inCode);
    } else if (inCode < 0x800) {
        put(0xC0 | (inCode >> 6));
        put(0x80 | (inCode & 0x3F));
    } else if (inCode < 0x10000) {
        put(0xE0 | (inCode >> 12));
        put(0x80 | ((inCode >> 6) & 0x3F));
        put(0x80 | (inCode & 0x3F));
    } else {
        put(0xF0 | (inCode >> 18));
        put(0x80 | ((inCode >> 12) & 0x3F));
        put(0x80 | ((inCode >> 6) & 0x3F));
        put(0x80 | (inCode & 0x3F));
    }
}

/// Length and first bits of a sequence by its first byte; length 0 for a byte that begins none.
struct Lead
{
    unsigned mLength;
    char32_t mBits;
    char32_t mLeast;  ///< smallest code of this length; less is an overlong form
};

Lead ReadLead(std::uint8_t inByte)
{
    if (inByte < 0x80) return {1, inByte, 0};
    if ((inByte & 0xE0) == 0xC0) return {2, inByte & 0x1Fu, 0x80};
    if ((inByte & 0xF0) == 0xE0) return {3, inByte & 0x0Fu, 0x800};
    if ((inByte & 0xF8) == 0xF0) return {4, inByte & 0x07u, 0x10000};
    return {0, 0, 0};
}

/// Takes one code from the front; a broken byte is one replacement.
char32_t TakeCode(std::string_view& ioText)
{
    const auto lead = ReadLead(static_cast<std::uint8_t>(ioText.front()));
    char32_t code = lead.mBits;
    bool good = lead.mLength != 0 && lead.mLength <= ioText.size();
    for (unsigned place = 1; good && place < lead.mLength; ++place) {
        const auto byte = static_cast<std::uint8_t>(ioText[place]);
        good = (byte & 0xC0) == 0x80;
        code = (code << 6) | (byte & 0x3Fu);
    }
    good = good && code >= lead.mLeast && code < 0x110000 && !IsHighSurrogate(code) && !IsLowSurrogate(code);
    ioText.remove_prefix(good ? lead.mLength : 1);
    return good ? code : kReplacement;
}

}  // namespace

std::string ToUTF8(std::u16string_view inText)
{
    std::string text;
    text.reserve(inText.size());
    for (std::size_t place = 0; place < inText.size(); ++place) {
        char32_t code = inText[place];
        if (IsHighSurrogate(code) && place + 1 < inText.size() && IsLowSurrogate(inText[place + 1])) {
            ++place;
            code = 0x10000 + ((code - 0xD800) << 10) + (inText[place] - 0xDC00u);
        } else if (IsHighSurrogate(code) || IsLowSurrogate(code)) {
            code = kReplacement;
        }
        AppendUTF8(text, code);
    }
    return text;
}

std::u16string ToUTF16(std::string_view inText)
{
    std::u16string text;
    text.reserve(inText.size());
    while (!inText.empty()) {
        const auto code = TakeCode(inText);
        if (code < 0x10000) {
            text += static_cast<char16_t>(code);
        } else {
            text += static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10));
            text += static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
        }
    }
    return text;
}

}  // namespace VYCL

#include "Tools/hubctl/UTF8Text.h"

#include <cstdint>

namespace hubctl {

namespace {

/// The sequences of RFC 3629: the first byte's range, what may follow first, and how many follow.
struct SequenceForm
{
    unsigned char mFirst;
    unsigned char mLast;
    unsigned char mSecondMin;
    unsigned char mSecondMax;
    std::size_t mSize;
};

constexpr SequenceForm kForms[] = {
    {0x00, 0x7f, 0x00, 0x00, 1}, {0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3},
    {0xe1, 0xec, 0x80, 0xbf, 3}, {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3},
    {0xf0, 0xf0, 0x90, 0xbf, 4}, {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
};

unsigned char ByteAt(std::string_view inText, std::size_t inPlace)
{
    return static_cast<unsigned char>(inText[inPlace]);
}

/// Bytes of the sequence that the text begins with; 0 for none.
std::size_t SequenceSize(std::string_view inText)
{
    const unsigned char first = ByteAt(inText, 0);
    for (const SequenceForm& form : kForms) {
        if (first < form.mFirst || first > form.mLast) continue;
        if (form.mSize > inText.size()) return 0;
        for (std::size_t i = 1; i < form.mSize; ++i) {
            const unsigned char low = i == 1 ? form.mSecondMin : 0x80;
            const unsigned char high = i == 1 ? form.mSecondMax : 0xbf;
            if (ByteAt(inText, i) < low || ByteAt(inText, i) > high) return 0;
        }
        return form.mSize;
    }
    return 0;
}

/// Whether the text begins with a character that turns its direction or breaks the line: U+2028 to U+202E, U+2066 to
/// U+2069.
bool TurnsText(std::string_view inText)
{
    if (inText.size() < 3 || ByteAt(inText, 0) != 0xe2) return false;
    const unsigned char second = ByteAt(inText, 1);
    const unsigned char third = ByteAt(inText, 2);
    return (second == 0x80 && third >= 0xa8 && third <= 0xae) || (second == 0x81 && third >= 0xa6 && third <= 0xa9);
}

}  // namespace

std::string ToValidUTF8(std::string_view inBytes, bool& outChanged)
{
    std::string text;
    text.reserve(inBytes.size());
    outChanged = false;
    while (!inBytes.empty()) {
        const std::size_t size = SequenceSize(inBytes);
        outChanged |= size == 0;
        text += size == 0 ? std::string_view("\xEF\xBF\xBD") : inBytes.substr(0, size);
        inBytes.remove_prefix(size == 0 ? 1 : size);
    }
    return text;
}

std::string PercentEncoded(std::string_view inBytes)
{
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const char current : inBytes) {
        const bool plain = (current >= '0' && current <= '9') || (current >= 'A' && current <= 'Z') ||
                           (current >= 'a' && current <= 'z') ||
                           std::string_view("-._~/").find(current) != std::string_view::npos;
        if (plain) {
            text += current;
        } else {
            const auto byte = static_cast<unsigned char>(current);
            text += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return text;
}

std::string Printable(std::string_view inText)
{
    bool changed = false;
    std::string text = ToValidUTF8(inText, changed);
    for (std::size_t i = 0; i < text.size(); ++i) {
        const unsigned char byte = ByteAt(text, i);
        if (byte < 0x20 || byte == 0x7f) text[i] = '?';
        // U+0080 to U+009F control terminals, too.
        const bool isC1 = byte == 0xc2 && i + 1 < text.size() && ByteAt(text, i + 1) < 0xa0;
        if (isC1) text.replace(i, 2, "?");
        if (TurnsText(std::string_view(text).substr(i))) text.replace(i, 3, "?");
    }
    return text;
}

}  // namespace hubctl

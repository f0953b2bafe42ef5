#include "Platform/noxcore/JSON.h"

#include <simdjson.h>

#include <charconv>
#include <limits>
#include <utility>

namespace noxcore::serialization {

/// Walks a text without blanks once, checks its grammar and notes where each value lies. An explicit stack of open
/// containers instead of recursion: depth costs memory of ours, never the thread's stack.
class JSONScanner
{
public:
    JSONScanner(const std::string& inText, std::vector<JSONDocument::Node>& outNodes) : mText(inText), mNodes(outNodes)
    {
    }

    bool Scan()
    {
        if (!Value(0, 0)) return false;
        while (!mOpen.empty()) {
            if (!Continue()) return false;
        }
        return mPlace == mText.size();
    }

private:
    [[nodiscard]] char Peek() const { return mPlace < mText.size() ? mText[mPlace] : '\0'; }

    bool Take(char inCharacter)
    {
        if (Peek() != inCharacter) return false;
        ++mPlace;
        return true;
    }

    std::size_t AddNode(JSONValue::Kind inKind, std::uint32_t inKeyBegin, std::uint32_t inKeyEnd)
    {
        JSONDocument::Node node;
        node.mBegin = static_cast<std::uint32_t>(mPlace);
        node.mKeyBegin = inKeyBegin;
        node.mKeyEnd = inKeyEnd;
        node.mKind = inKind;
        mNodes.push_back(node);
        return mNodes.size() - 1;
    }

    void EndNode(std::size_t inNode)
    {
        mNodes[inNode].mEnd = static_cast<std::uint32_t>(mPlace);
        mNodes[inNode].mNext = static_cast<std::uint32_t>(mNodes.size());
    }

    /// Begins a value: scalars are scanned whole, containers are opened.
    bool Value(std::uint32_t inKeyBegin, std::uint32_t inKeyEnd)
    {
        using Kind = JSONValue::Kind;
        const char first = Peek();
        if (first == '{' || first == '[') {
            if (mOpen.size() >= kMaxJSONDepth) return false;
            const std::size_t node = AddNode(first == '{' ? Kind::Object : Kind::Array, inKeyBegin, inKeyEnd);
            ++mPlace;
            if (Take(first == '{' ? '}' : ']')) {
                EndNode(node);
                return true;
            }
            mOpen.push_back(node);
            return Member();
        }
        const Kind kind = first == '"'                   ? Kind::String
                          : first == 't' || first == 'f' ? Kind::Boolean
                          : first == 'n'                 ? Kind::Null
                                                         : Kind::Number;
        const std::size_t node = AddNode(kind, inKeyBegin, inKeyEnd);
        if (!Scalar(kind)) return false;
        EndNode(node);
        return true;
    }

    /// The next member of the innermost open container.
    bool Member()
    {
        if (mNodes[mOpen.back()].mKind == JSONValue::Kind::Array) return Value(0, 0);
        const std::size_t begin = mPlace + 1;
        if (!String()) return false;
        const std::size_t end = mPlace - 1;
        return Take(':') && Value(static_cast<std::uint32_t>(begin), static_cast<std::uint32_t>(end));
    }

    /// After a value: a comma and the next member, or the end of the innermost container.
    bool Continue()
    {
        const std::size_t node = mOpen.back();
        if (Take(',')) return Member();
        if (!Take(mNodes[node].mKind == JSONValue::Kind::Array ? ']' : '}')) return false;
        mOpen.pop_back();
        EndNode(node);
        return true;
    }

    bool Scalar(JSONValue::Kind inKind)
    {
        switch (inKind) {
            case JSONValue::Kind::String:
                return String();
            case JSONValue::Kind::Boolean:
                return Literal("true") || Literal("false");
            case JSONValue::Kind::Null:
                return Literal("null");
            default:
                return Number();
        }
    }

    bool Literal(std::string_view inWord)
    {
        if (std::string_view(mText).substr(mPlace, inWord.size()) != inWord) return false;
        mPlace += inWord.size();
        return true;
    }

    bool String()
    {
        if (!Take('"')) return false;
        while (mPlace < mText.size()) {
            const auto character = static_cast<unsigned char>(mText[mPlace]);
            ++mPlace;
            if (character == '"') return true;
            if (character < 0x20) return false;
            if (character == '\\' && !Escape()) return false;
        }
        return false;
    }

    bool Escape()
    {
        const char kind = Peek();
        ++mPlace;
        if (kind != 'u') return kind != '\0' && std::string_view("\"\\/bfnrt").find(kind) != std::string_view::npos;
        for (int i = 0; i < 4; ++i, ++mPlace) {
            if (std::string_view("0123456789abcdefABCDEF").find(Peek()) == std::string_view::npos || Peek() == '\0') {
                return false;
            }
        }
        return true;
    }

    bool Digits()
    {
        const std::size_t begin = mPlace;
        while (Peek() >= '0' && Peek() <= '9')
            ++mPlace;
        return mPlace > begin;
    }

    bool Number()
    {
        Take('-');
        if (!Take('0') && !Digits()) return false;
        if (Take('.') && !Digits()) return false;
        if (Peek() == 'e' || Peek() == 'E') {
            ++mPlace;
            if (!Take('+')) Take('-');
            return Digits();
        }
        return true;
    }

    const std::string& mText;
    std::vector<JSONDocument::Node>& mNodes;
    std::vector<std::size_t> mOpen;
    std::size_t mPlace = 0;
};

namespace {

/// Blanks between two values ("1 2") must stay an error, so they may go only beside a structural character.
bool HasBlankBetweenTokens(std::string_view inText)
{
    const auto isBlank = [](char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; };
    const auto isStructural = [](char c) { return std::string_view("{}[],:").find(c) != std::string_view::npos; };
    bool inString = false;
    char before = ',';
    for (std::size_t i = 0; i < inText.size(); ++i) {
        const char character = inText[i];
        if (inString) {
            if (character == '\\') ++i;
            if (character == '"') inString = false;
            before = character;
            continue;
        }
        if (isBlank(character)) {
            std::size_t next = i;
            while (next < inText.size() && isBlank(inText[next]))
                ++next;
            if (next == inText.size()) return false;
            if (!isStructural(before) && !isStructural(inText[next])) return true;
            i = next - 1;
            continue;
        }
        if (character == '"') inString = true;
        before = character;
    }
    return false;
}

/// Without the blanks; nothing where that is impossible without changing the meaning.
bool RemoveBlanks(std::string_view inText, std::string& outText)
{
    if (!simdjson::validate_utf8(inText.data(), inText.size())) return false;
    const std::size_t first = inText.find_first_not_of(" \n\r\t");
    if (first == std::string_view::npos) return false;
    inText = inText.substr(first);
    if (HasBlankBetweenTokens(inText)) return false;
    outText.resize(inText.size());
    std::size_t size = 0;
    if (simdjson::minify(inText.data(), inText.size(), outText.data(), size) != simdjson::SUCCESS) return false;
    outText.resize(size);
    return true;
}

int HexValue(char inDigit)
{
    if (inDigit <= '9') return inDigit - '0';
    return (inDigit | 0x20) - 'a' + 10;
}

unsigned FourDigits(std::string_view inText)
{
    unsigned value = 0;
    for (const char digit : inText.substr(0, 4))
        value = value * 16 + static_cast<unsigned>(HexValue(digit));
    return value;
}

void AppendUtf8(std::string& outText, unsigned inCode)
{
    const auto push = [&outText](unsigned inByte) { outText.push_back(static_cast<char>(inByte)); };
    if (inCode < 0x80) {
        push(inCode);
    } else if (inCode < 0x800) {
        push(0xC0 | (inCode >> 6));
        push(0x80 | (inCode & 0x3F));
    } else if (inCode < 0x10000) {
        push(0xE0 | (inCode >> 12));
        push(0x80 | ((inCode >> 6) & 0x3F));
        push(0x80 | (inCode & 0x3F));
    } else {
        push(0xF0 | (inCode >> 18));
        push(0x80 | ((inCode >> 12) & 0x3F));
        push(0x80 | ((inCode >> 6) & 0x3F));
        push(0x80 | (inCode & 0x3F));
    }
}

/// Resolves "\uXXXX" at the front of the text, with the second half of a pair where one follows; gives what it used.
std::size_t AppendUnicodeEscape(std::string& outText, std::string_view inText)
{
    constexpr unsigned kReplacement = 0xFFFD;
    const unsigned code = FourDigits(inText.substr(2));
    if (code < 0xD800 || code > 0xDFFF) {
        AppendUtf8(outText, code);
        return 6;
    }
    if (code <= 0xDBFF && inText.size() >= 12 && inText[6] == '\\' && inText[7] == 'u') {
        const unsigned low = FourDigits(inText.substr(8));
        if (low >= 0xDC00 && low <= 0xDFFF) {
            AppendUtf8(outText, 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00));
            return 12;
        }
    }
    AppendUtf8(outText, kReplacement);
    return 6;
}

}  // namespace

std::string UnescapeJSONString(std::string_view inText)
{
    static constexpr std::pair<char, char> kEscapes[] = {
        {'b', '\b'}, {'f', '\f'}, {'n', '\n'}, {'r', '\r'}, {'t', '\t'}};
    std::string text;
    text.reserve(inText.size());
    for (std::size_t i = 0; i < inText.size();) {
        const std::size_t escape = inText.find('\\', i);
        text.append(inText.substr(i, escape - i));
        if (escape == std::string_view::npos || escape + 1 >= inText.size()) break;
        const char kind = inText[escape + 1];
        i = escape + 2;
        if (kind == 'u') {
            if (inText.size() - escape < 6) break;
            i = escape + AppendUnicodeEscape(text, inText.substr(escape));
            continue;
        }
        char resolved = kind;
        for (const auto& [letter, meaning] : kEscapes) {
            if (letter == kind) resolved = meaning;
        }
        text.push_back(resolved);
    }
    return text;
}

bool JSONDocument::Parse(std::string_view inText)
{
    mNodes.clear();
    mText.clear();
    if (inText.size() >= std::numeric_limits<std::uint32_t>::max()) return false;
    if (RemoveBlanks(inText, mText) && JSONScanner(mText, mNodes).Scan()) return true;
    mNodes.clear();
    mText.clear();
    return false;
}

std::optional<std::string> MinifyJSON(std::string_view inText)
{
    JSONDocument document;
    if (!document.Parse(inText)) return std::nullopt;
    return document.Text();
}

JSONValue::Kind JSONValue::GetKind() const
{
    return mDocument == nullptr ? Kind::Missing : mDocument->mNodes[mNode].mKind;
}

std::string_view JSONValue::Raw() const
{
    if (mDocument == nullptr) return {};
    const auto& node = mDocument->mNodes[mNode];
    return std::string_view(mDocument->mText).substr(node.mBegin, node.mEnd - node.mBegin);
}

bool JSONValue::GetString(std::string& outText) const
{
    if (GetKind() != Kind::String) return false;
    const std::string_view raw = Raw();
    outText = UnescapeJSONString(raw.substr(1, raw.size() - 2));
    return true;
}

bool JSONValue::GetInt64(std::int64_t& outNumber) const
{
    if (GetKind() != Kind::Number) return false;
    const std::string_view raw = Raw();
    const auto [end, error] = std::from_chars(raw.data(), raw.data() + raw.size(), outNumber);
    return error == std::errc() && end == raw.data() + raw.size();
}

bool JSONValue::GetDouble(double& outNumber) const
{
    if (GetKind() != Kind::Number) return false;
    const std::string_view raw = Raw();
    const auto [end, error] = std::from_chars(raw.data(), raw.data() + raw.size(), outNumber);
    return error == std::errc() && end == raw.data() + raw.size();
}

bool JSONValue::GetBool(bool& outFlag) const
{
    if (GetKind() != Kind::Boolean) return false;
    outFlag = Raw() == "true";
    return true;
}

JSONValue JSONValue::operator[](std::string_view inKey) const
{
    JSONValue found;
    if (!IsObject()) return found;
    const auto& nodes = mDocument->mNodes;
    for (std::uint32_t child = mNode + 1; child < nodes[mNode].mNext; child = nodes[child].mNext) {
        const auto& node = nodes[child];
        const auto key = std::string_view(mDocument->mText).substr(node.mKeyBegin, node.mKeyEnd - node.mKeyBegin);
        const bool escaped = key.find('\\') != std::string_view::npos;
        if (escaped ? UnescapeJSONString(key) == inKey : key == inKey) found = JSONValue(mDocument, child);
    }
    return found;
}

std::vector<JSONValue> JSONValue::Children() const
{
    std::vector<JSONValue> children;
    if (!IsObject() && !IsArray()) return children;
    const auto& nodes = mDocument->mNodes;
    for (std::uint32_t child = mNode + 1; child < nodes[mNode].mNext; child = nodes[child].mNext) {
        children.push_back(JSONValue(mDocument, child));
    }
    return children;
}

std::string JSONValue::Key() const
{
    if (mDocument == nullptr) return {};
    const auto& node = mDocument->mNodes[mNode];
    return UnescapeJSONString(std::string_view(mDocument->mText).substr(node.mKeyBegin, node.mKeyEnd - node.mKeyBegin));
}

}  // namespace noxcore::serialization

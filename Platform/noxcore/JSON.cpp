#include "Platform/noxcore/JSON.h"

#include <simdjson.h>

#include <bit>
#include <charconv>
#include <cstring>
#include <limits>
#include <utility>

#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/HubContext.h"

namespace noxcore::serialization {

namespace {

/// The kind of a value by the first letter of its text.
JSONValue::Kind KindOf(char inFirst)
{
    using Kind = JSONValue::Kind;
    switch (inFirst) {
        case '{':
            return Kind::Object;
        case '[':
            return Kind::Array;
        case '"':
            return Kind::String;
        case 't':
        case 'f':
            return Kind::Boolean;
        case 'n':
            return Kind::Null;
        default:
            return Kind::Number;
    }
}

/// The settings of one hub, read once: texts are parsed too often to look them up each time.
struct ContextBounds
{
    ContextBounds()
    {
        const auto settings = debug::DebugDatabase::Instance();
        Read(*settings, "VY.Config.LocalHub.JSON.MaxDepth", mBounds.mMaxDepth);
        Read(*settings, "VY.Config.LocalHub.JSON.MaxValues", mBounds.mMaxValues);
    }
    static void Read(const debug::DebugDatabase& inSettings, std::string_view inKey, std::size_t& ioValue)
    {
        const std::int64_t value = inSettings.GetInteger(inKey, 0);
        if (value > 0) ioValue = static_cast<std::size_t>(value);
    }
    JSONBounds mBounds;
};

}  // namespace

JSONBounds JSONBounds::Current()
{
    return HubContext::Current()->GetOrCreateInstance<ContextBounds>()->mBounds;
}

/// Walks a text without blanks once, checks its grammar and notes, where it is given a place for that, where each value
/// lies. An explicit stack of open containers instead of recursion: depth costs memory of ours, never the thread's
/// stack.
class JSONScanner
{
public:
    using Nodes = std::vector<JSONDocument::Node>;

    explicit JSONScanner(const std::string& inText, Nodes* outNodes = nullptr)
        : mText(inText), mNodes(outNodes), mBounds(JSONBounds::Current())
    {
    }

    bool Scan()
    {
        if (!Value(0)) return false;
        while (!mOpen.empty()) {
            if (!Continue()) return false;
        }
        return mPlace == mText.size();
    }

private:
    struct Container
    {
        std::size_t mNode = 0;
        bool mIsArray = false;
    };

    [[nodiscard]] char Peek() const { return mPlace < mText.size() ? mText[mPlace] : '\0'; }

    bool Take(char inCharacter)
    {
        if (Peek() != inCharacter) return false;
        ++mPlace;
        return true;
    }

    /// The index of the new node; 0 where none are noted.
    std::size_t BeginNode(std::size_t inKeyBegin)
    {
        if (mNodes == nullptr) return 0;
        JSONDocument::Node node;
        node.mBegin = static_cast<std::uint32_t>(mPlace);
        node.mKeyBegin = static_cast<std::uint32_t>(inKeyBegin);
        mNodes->push_back(node);
        return mNodes->size() - 1;
    }

    void EndNode(std::size_t inNode)
    {
        if (mNodes == nullptr) return;
        (*mNodes)[inNode].mEnd = static_cast<std::uint32_t>(mPlace);
        (*mNodes)[inNode].mNext = static_cast<std::uint32_t>(mNodes->size());
    }

    /// Begins a value: scalars are scanned whole, containers are opened.
    bool Value(std::size_t inKeyBegin)
    {
        if (++mValues > mBounds.mMaxValues) return false;
        const JSONValue::Kind kind = KindOf(Peek());
        const bool isArray = kind == JSONValue::Kind::Array;
        const bool isContainer = isArray || kind == JSONValue::Kind::Object;
        if (isContainer && mOpen.size() >= mBounds.mMaxDepth) return false;
        const std::size_t node = BeginNode(inKeyBegin);
        if (isContainer) {
            ++mPlace;
            if (!Take(isArray ? ']' : '}')) {
                mOpen.push_back({node, isArray});
                return Member();
            }
        } else if (!Scalar(kind)) {
            return false;
        }
        EndNode(node);
        return true;
    }

    /// The next member of the innermost open container.
    bool Member()
    {
        if (mOpen.back().mIsArray) return Value(0);
        const std::size_t keyBegin = mPlace + 1;
        return String() && Take(':') && Value(keyBegin);
    }

    /// After a value: a comma and the next member, or the end of the innermost container.
    bool Continue()
    {
        if (Take(',')) return Member();
        const Container innermost = mOpen.back();
        if (!Take(innermost.mIsArray ? ']' : '}')) return false;
        mOpen.pop_back();
        EndNode(innermost.mNode);
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
        for (SkipPlain(); mPlace < mText.size(); SkipPlain()) {
            const auto character = static_cast<unsigned char>(mText[mPlace]);
            ++mPlace;
            if (character == '"') return true;
            if (character < 0x20) return false;
            if (character == '\\' && !Escape()) return false;
        }
        return false;
    }

    /// Passes over what has no meaning in a string, eight bytes at a time, up to the next that may have one or to the
    /// last few of the text. In each word below the lowest byte that is marked is one that is looked for: only those
    /// above it can be marked by mistake.
    void SkipPlain()
    {
        static_assert(std::endian::native == std::endian::little);
        constexpr std::uint64_t kOnes = 0x0101010101010101;
        const auto less = [](std::uint64_t inWord, std::uint64_t inThan) {
            return (inWord - kOnes * inThan) & ~inWord & (kOnes * 0x80);
        };
        std::uint64_t word = 0;
        for (; mPlace + sizeof word <= mText.size(); mPlace += sizeof word) {
            std::memcpy(&word, mText.data() + mPlace, sizeof word);
            const std::uint64_t marked =
                less(word, 0x20) | less(word ^ (kOnes * '"'), 1) | less(word ^ (kOnes * '\\'), 1);
            if (marked == 0) continue;
            mPlace += static_cast<std::size_t>(std::countr_zero(marked)) / 8;
            return;
        }
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
    Nodes* const mNodes;  ///< null: the grammar alone is asked for
    const JSONBounds mBounds;
    std::vector<Container> mOpen;
    std::size_t mPlace = 0;
    std::size_t mValues = 0;
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

/// Without the blanks. False where that is impossible without changing the meaning, or where there are none.
bool RemoveBlanks(std::string_view inText, std::string& outText)
{
    if (HasBlankBetweenTokens(inText)) return false;
    outText.resize(inText.size());
    std::size_t size = 0;
    if (simdjson::minify(inText.data(), inText.size(), outText.data(), size) != simdjson::SUCCESS) return false;
    outText.resize(size);
    return size != inText.size();
}

/// Takes a text over without its blanks, checked, and notes its values. Most texts have none to remove, above all those
/// that the hub wrote itself: they are scanned as they stand. Others stop the scan at their first blank.
bool ScanText(std::string_view inText, std::string& outText, JSONScanner::Nodes* outNodes = nullptr)
{
    constexpr std::string_view kBlanks = " \n\r\t";
    if (!simdjson::validate_utf8(inText.data(), inText.size())) return false;
    const std::size_t first = inText.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return false;
    inText = inText.substr(first, inText.find_last_not_of(kBlanks) + 1 - first);
    outText.assign(inText);
    if (JSONScanner(outText, outNodes).Scan()) return true;
    if (outNodes != nullptr) outNodes->clear();
    return RemoveBlanks(inText, outText) && JSONScanner(outText, outNodes).Scan();
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
    if (ScanText(inText, mText, &mNodes)) return true;
    mNodes = {};
    mText = {};
    return false;
}

/// Between the key's closing quote and the value stands the colon alone: the text has no blanks.
std::string_view JSONDocument::KeyOf(const Node& inNode) const
{
    if (inNode.mKeyBegin == 0) return {};
    return std::string_view(mText).substr(inNode.mKeyBegin, inNode.mBegin - 2 - inNode.mKeyBegin);
}

std::optional<std::string> MinifyJSON(std::string_view inText, JSONValue::Kind* outKind)
{
    if (inText.size() >= std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    std::string text;
    if (!ScanText(inText, text)) return std::nullopt;
    if (outKind != nullptr) *outKind = KindOf(text.front());
    return text;
}

JSONValue::Kind JSONValue::GetKind() const
{
    return mDocument == nullptr ? Kind::Missing : KindOf(mDocument->mText[mDocument->mNodes[mNode].mBegin]);
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
        const std::string_view key = mDocument->KeyOf(nodes[child]);
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
    return mDocument == nullptr ? std::string() : UnescapeJSONString(mDocument->KeyOf(mDocument->mNodes[mNode]));
}

}  // namespace noxcore::serialization

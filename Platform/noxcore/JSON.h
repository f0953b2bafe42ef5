#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace noxcore::serialization {

/// What a text may ask for; each is a setting VY.Config.LocalHub.JSON.<name without m>.
struct JSONBounds
{
    /// Those of the current context, which reads its settings when it asks first.
    static JSONBounds Current();

    std::size_t mMaxDepth = 512;        ///< nesting of arrays and objects
    std::size_t mMaxValues = 10000000;  ///< values of all kinds; a parsed document keeps a note of each
};

class JSONDocument;

/// One value of a parsed document, as a place in its text. Cheap to copy; valid as long as the document.
///
/// A missing value (of a key that is not there) is not Exists(); every getter of it fails.
class JSONValue
{
public:
    enum class Kind : std::uint8_t
    {
        Missing,
        Null,
        Boolean,
        Number,
        String,
        Array,
        Object
    };

    JSONValue() = default;
    [[nodiscard]] bool Exists() const { return mDocument != nullptr; }
    [[nodiscard]] Kind GetKind() const;
    [[nodiscard]] bool IsObject() const { return GetKind() == Kind::Object; }
    [[nodiscard]] bool IsArray() const { return GetKind() == Kind::Array; }

    /// The text of the value, digit for digit as it came, blanks outside strings removed.
    [[nodiscard]] std::string_view Raw() const;
    bool GetString(std::string& outText) const;
    /// Whole numbers within 64 bits only: no fraction, no exponent.
    bool GetInt64(std::int64_t& outNumber) const;
    bool GetDouble(double& outNumber) const;
    bool GetBool(bool& outFlag) const;

    /// The value of a key of an object; the last one where the key repeats. Missing when there is none.
    [[nodiscard]] JSONValue operator[](std::string_view inKey) const;
    /// Children in the order of the text: elements of an array, or values of an object. Empty for other kinds.
    [[nodiscard]] std::vector<JSONValue> Children() const;
    /// The key of a child of an object, unescaped.
    [[nodiscard]] std::string Key() const;

private:
    friend class JSONDocument;
    JSONValue(const JSONDocument* inDocument, std::uint32_t inNode) : mDocument(inDocument), mNode(inNode) {}

    const JSONDocument* mDocument = nullptr;
    std::uint32_t mNode = 0;
};

/// A JSON text (RFC 8259) checked as a whole and indexed by place. Nothing is converted before it is asked for, so
/// that numbers, escapes and repeated keys of opaque parts pass through untouched.
class JSONDocument
{
public:
    JSONDocument() = default;
    JSONDocument(const JSONDocument&) = delete;  ///< values point into it
    JSONDocument& operator=(const JSONDocument&) = delete;

    /// False for a text that is not well-formed, not UTF-8, larger than 4 GB or past the bounds of the context.
    bool Parse(std::string_view inText);
    /// The outermost value; missing before a successful Parse.
    [[nodiscard]] JSONValue Root() const { return mNodes.empty() ? JSONValue() : JSONValue(this, 0); }
    /// The whole text, blanks outside strings removed.
    [[nodiscard]] const std::string& Text() const { return mText; }

private:
    friend class JSONValue;
    friend class JSONScanner;
    struct Node
    {
        std::uint32_t mBegin = 0;     ///< place of the value's text, whose first letter tells its kind
        std::uint32_t mEnd = 0;       ///< place after it
        std::uint32_t mKeyBegin = 0;  ///< place of the key's text without quotes, for a child of an object; else 0
        std::uint32_t mNext = 0;      ///< node after this one and all below it
    };
    [[nodiscard]] std::string_view KeyOf(const Node& inNode) const;

    std::string mText;
    std::vector<Node> mNodes;  ///< in the order of the text; a container stands before its children
};

/// Checks a text as Parse does and removes the blanks outside its strings, keeping nothing of its values; nothing for a
/// text that Parse refuses. outKind, where given, is the kind of the outermost value.
std::optional<std::string> MinifyJSON(std::string_view inText, JSONValue::Kind* outKind = nullptr);

/// Writes JSON into a text. Keys come out in the order they are written. Raw takes text that is JSON already.
class JSONWriter
{
public:
    void BeginObject();
    void EndObject();
    void BeginArray();
    void EndArray();
    void Key(std::string_view inKey);
    void String(std::string_view inText);
    void Int(std::int64_t inNumber);
    void Double(double inNumber);
    void Bool(bool inFlag);
    void Null();
    void Raw(std::string_view inJSON);

    void Member(std::string_view inKey, std::string_view inText)
    {
        Key(inKey);
        String(inText);
    }

    [[nodiscard]] const std::string& Text() const { return mText; }
    [[nodiscard]] std::string TakeText() { return std::move(mText); }

private:
    void Separate();

    std::string mText;
    bool mNeedComma = false;
};

/// The text between quotes of a JSON string, with its escapes resolved; lone surrogates become U+FFFD.
std::string UnescapeJSONString(std::string_view inText);

}  // namespace noxcore::serialization

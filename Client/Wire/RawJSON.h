#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "Platform/noxcore/JSON.h"

namespace VantryLocalHub::dto {

/// JSON that the hub carries without looking inside, as text without blanks: digits, escapes, repeated keys and the
/// order of keys stay as they came. Empty text: there is none.
///
/// The text is trusted to be well-formed, for it is written as it stands. FromText checks; whoever sets mText
/// elsewhere takes it from a parsed document or from a JSONWriter.
template <class Shape>
struct Opaque
{
    std::string mText;

    Opaque() = default;
    explicit Opaque(std::string inText) : mText(std::move(inText)) {}

    /// False for a text that is not well-formed or not of this shape; outJSON is untouched then.
    static bool FromText(std::string_view inText, Opaque& outJSON)
    {
        noxcore::serialization::JSONValue::Kind kind;
        auto text = noxcore::serialization::MinifyJSON(inText, &kind);
        if (!text || !Shape::Fits(kind)) return false;
        outJSON.mText = *std::move(text);
        return true;
    }

    static bool Read(const noxcore::serialization::JSONValue& inValue, Opaque& outJSON)
    {
        if (!inValue.Exists() || !Shape::Fits(inValue.GetKind())) {
            return false;
        }
        outJSON.mText = inValue.Raw();
        return true;
    }

    /// What stands on the wire: the text, or the shape's empty value where there is none.
    [[nodiscard]] std::string_view Text() const { return mText.empty() ? Shape::kNone : std::string_view(mText); }
    [[nodiscard]] bool empty() const { return mText.empty(); }
    friend bool operator==(const Opaque&, const Opaque&) = default;
};

struct ObjectShape
{
    static constexpr std::string_view kNone = "{}";
    static bool Fits(noxcore::serialization::JSONValue::Kind inKind)
    {
        return inKind == noxcore::serialization::JSONValue::Kind::Object;
    }
};

struct ArrayShape
{
    static constexpr std::string_view kNone = "[]";
    static bool Fits(noxcore::serialization::JSONValue::Kind inKind)
    {
        return inKind == noxcore::serialization::JSONValue::Kind::Array;
    }
};

struct AnyShape
{
    static constexpr std::string_view kNone = "null";
    static bool Fits(noxcore::serialization::JSONValue::Kind) { return true; }
};

using RawJSON = Opaque<ObjectShape>;  ///< an object: `properties` and its like
using RawArray = Opaque<ArrayShape>;
using RawValue = Opaque<AnyShape>;

}  // namespace VantryLocalHub::dto

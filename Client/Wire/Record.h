#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "Client/Wire/RawJSON.h"
#include "Platform/noxappsupport/RFC3339DateTime.h"
#include "Platform/noxcore/ImmutableString.h"
#include "Platform/noxcore/JSON.h"

/// A wire record is a plain struct with one list of its keys, `kFields`, in wire order. Writing, reading and the tests
/// all go by that list, so a new key is one new line:
///
///     static constexpr auto kFields = std::tuple{Always("rel", &Link::mRel), WhenSet("title", &Link::mTitle)};
///
/// Reading looks each key up: unknown keys are ignored, an absent key leaves the member's default, a value of the wrong
/// type makes the whole record unreadable. Writing goes straight into the writer.
namespace VantryLocalHub::dto {

using noxappsupport::cloudservice::RFC3339DateTime;
using noxcore::serialization::JSONDocument;
using noxcore::serialization::JSONValue;
using noxcore::serialization::JSONWriter;
using noxcore::utility::ImmutableString;

/// When a key is written. Every field is read, whatever stands here.
enum class Presence : std::uint8_t
{
    Always,
    WhenSet,  ///< only where the value is not empty, zero or false
    Never     ///< accepted from others, never written
};

template <class Record, class Type>
struct Field
{
    std::string_view mKey;
    Type Record::*mMember;
    Presence mPresence;
};

template <class Record, class Type>
constexpr Field<Record, Type> Always(std::string_view inKey, Type Record::*inMember)
{
    return {inKey, inMember, Presence::Always};
}
template <class Record, class Type>
constexpr Field<Record, Type> WhenSet(std::string_view inKey, Type Record::*inMember)
{
    return {inKey, inMember, Presence::WhenSet};
}
/// For a flag whose absence means false.
template <class Record>
constexpr Field<Record, bool> WhenTrue(std::string_view inKey, bool Record::*inMember)
{
    return {inKey, inMember, Presence::WhenSet};
}
template <class Record, class Type>
constexpr Field<Record, Type> ReadOnly(std::string_view inKey, Type Record::*inMember)
{
    return {inKey, inMember, Presence::Never};
}

template <class Type>
concept WireRecord = requires { Type::kFields; };

/// A record with `kMayBeWrapped` is also read from inside an object whose only purpose is the key
/// "SerializerWrappedObject".
template <class Type>
concept WrappableRecord = WireRecord<Type> && requires { Type::kMayBeWrapped; };

inline JSONValue Unwrapped(const JSONValue& inValue)
{
    const auto wrapped = inValue["SerializerWrappedObject"];
    return wrapped.IsObject() ? wrapped : inValue;
}

template <WireRecord Record>
void WriteRecord(JSONWriter& outWriter, const Record& inRecord);
/// False when a key has the wrong type, or the value is no object; outRecord is then of no use.
template <WireRecord Record>
[[nodiscard]] bool ReadRecord(const JSONValue& inValue, Record& outRecord);

namespace detail {

template <class Type>
struct IsVector : std::false_type
{
};
template <class Type>
struct IsVector<std::vector<Type>> : std::true_type
{
};
template <class Type>
struct IsSpan : std::false_type
{
};
template <class Type>
struct IsSpan<std::span<Type>> : std::true_type
{
};
template <class Type>
struct IsOptional : std::false_type
{
};
template <class Type>
struct IsOptional<std::optional<Type>> : std::true_type
{
};
template <class Type>
struct IsOpaque : std::false_type
{
};
template <class Shape>
struct IsOpaque<Opaque<Shape>> : std::true_type
{
};

template <class Type>
bool IsSet(const Type& inValue)
{
    if constexpr (std::is_arithmetic_v<Type>) {
        return inValue != Type{};
    } else if constexpr (IsOptional<Type>::value) {
        return inValue.has_value();
    } else if constexpr (std::same_as<Type, RFC3339DateTime>) {
        return inValue.IsValid();
    } else if constexpr (WireRecord<Type>) {
        return !(inValue == Type{});
    } else {
        return !inValue.empty();
    }
}

template <class Type>
void WriteValue(JSONWriter& outWriter, const Type& inValue)
{
    if constexpr (WireRecord<Type>) {
        WriteRecord(outWriter, inValue);
    } else if constexpr (IsVector<Type>::value || IsSpan<Type>::value) {
        outWriter.BeginArray();
        for (const auto& element : inValue) {
            WriteValue(outWriter, element);
        }
        outWriter.EndArray();
    } else if constexpr (IsOptional<Type>::value) {
        if (inValue) {
            WriteValue(outWriter, *inValue);
        } else {
            outWriter.Null();
        }
    } else if constexpr (IsOpaque<Type>::value) {
        outWriter.Raw(inValue.Text());
    } else if constexpr (std::same_as<Type, bool>) {
        outWriter.Bool(inValue);
    } else if constexpr (std::integral<Type>) {
        static_assert(!std::same_as<Type, std::uint64_t>, "whole numbers on the wire are signed");
        outWriter.Int(inValue);
    } else if constexpr (std::floating_point<Type>) {
        outWriter.Double(inValue);
    } else if constexpr (std::same_as<Type, RFC3339DateTime>) {
        outWriter.String(inValue.Text());
    } else {
        outWriter.String(inValue);
    }
}

template <class Type>
bool ReadValue(const JSONValue& inValue, Type& outValue);

template <class Type>
bool ReadElements(const JSONValue& inValue, std::vector<Type>& outElements)
{
    if (!inValue.IsArray()) {
        return false;
    }
    const auto children = inValue.Children();
    outElements.clear();
    outElements.reserve(children.size());
    for (const auto& child : children) {
        Type element{};
        if (!ReadValue(child, element)) {
            return false;
        }
        outElements.push_back(std::move(element));
    }
    return true;
}

template <class Type>
bool ReadText(const JSONValue& inValue, Type& outValue)
{
    std::string text;
    if (!inValue.GetString(text)) {
        return false;
    }
    if constexpr (std::same_as<Type, RFC3339DateTime>) {
        outValue = RFC3339DateTime::FromText(text);
        return text.empty() || outValue.IsValid();
    } else {
        outValue = std::move(text);
        return true;
    }
}

template <class Type>
bool ReadValue(const JSONValue& inValue, Type& outValue)
{
    if constexpr (WireRecord<Type>) {
        return ReadRecord(inValue, outValue);
    } else if constexpr (IsVector<Type>::value) {
        return ReadElements(inValue, outValue);
    } else if constexpr (IsOptional<Type>::value) {
        outValue.reset();
        return inValue.GetKind() == JSONValue::Kind::Null || ReadValue(inValue, outValue.emplace());
    } else if constexpr (IsOpaque<Type>::value) {
        return Type::Read(inValue, outValue);
    } else if constexpr (std::same_as<Type, bool>) {
        return inValue.GetBool(outValue);
    } else if constexpr (std::integral<Type>) {
        std::int64_t number = 0;
        if (!inValue.GetInt64(number) || !std::in_range<Type>(number)) {
            return false;
        }
        outValue = static_cast<Type>(number);
        return true;
    } else if constexpr (std::floating_point<Type>) {
        double number = 0;
        const bool result = inValue.GetDouble(number);
        outValue = static_cast<Type>(number);
        return result;
    } else {
        return ReadText(inValue, outValue);
    }
}

template <class Record, class Owner, class Type>
void WriteField(JSONWriter& outWriter, const Record& inRecord, const Field<Owner, Type>& inField)
{
    const auto& value = inRecord.*inField.mMember;
    if (inField.mPresence == Presence::Always || (inField.mPresence == Presence::WhenSet && IsSet(value))) {
        outWriter.Key(inField.mKey);
        WriteValue(outWriter, value);
    }
}

template <class Record, class Owner, class Type>
bool ReadField(const JSONValue& inObject, Record& outRecord, const Field<Owner, Type>& inField)
{
    const auto value = inObject[inField.mKey];
    return !value.Exists() || ReadValue(value, outRecord.*inField.mMember);
}

}  // namespace detail

template <WireRecord Record>
void WriteRecord(JSONWriter& outWriter, const Record& inRecord)
{
    outWriter.BeginObject();
    std::apply([&](const auto&... field) { (detail::WriteField(outWriter, inRecord, field), ...); }, Record::kFields);
    outWriter.EndObject();
}

template <WireRecord Record>
bool ReadRecord(const JSONValue& inValue, Record& outRecord)
{
    auto object = inValue;
    if constexpr (WrappableRecord<Record>) {
        object = Unwrapped(inValue);
    }
    return object.IsObject() &&
           std::apply([&](const auto&... field) { return (detail::ReadField(object, outRecord, field) && ...); },
                      Record::kFields);
}

/// The record as text, without blanks.
template <WireRecord Record>
[[nodiscard]] std::string ToJSON(const Record& inRecord)
{
    JSONWriter writer;
    WriteRecord(writer, inRecord);
    return writer.TakeText();
}

/// False for a text that is not well-formed or does not fit the record; outRecord is then of no use.
template <WireRecord Record>
[[nodiscard]] bool FromJSON(std::string_view inText, Record& outRecord)
{
    JSONDocument document;
    return document.Parse(inText) && ReadRecord(document.Root(), outRecord);
}

/// The same for a text that is an array of records.
template <WireRecord Record>
[[nodiscard]] bool FromJSON(std::string_view inText, std::vector<Record>& outRecords)
{
    JSONDocument document;
    return document.Parse(inText) && detail::ReadElements(document.Root(), outRecords);
}

}  // namespace VantryLocalHub::dto

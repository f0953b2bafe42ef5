#pragma once

#include <concepts>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "Platform/noxcore/JSON.h"

namespace noxmarshal {

using noxcore::serialization::JSONValue;
using noxcore::serialization::JSONWriter;

/// One key of a record. A record lists its fields once, in wire order, as a static constexpr tuple kFields; writing
/// and reading follow from that list.
template <class Owner, class Value>
struct Field
{
    std::string_view mKey;
    Value Owner::*mMember;
    bool mRequired;  ///< reading fails without it; otherwise the member keeps its default
};

template <class Owner, class Value>
constexpr Field<Owner, Value> Required(std::string_view inKey, Value Owner::*inMember)
{
    return {inKey, inMember, true};
}
template <class Owner, class Value>
constexpr Field<Owner, Value> Optional(std::string_view inKey, Value Owner::*inMember)
{
    return {inKey, inMember, false};
}

template <class T>
concept Record = requires { T::kFields; };

inline void WriteJSON(JSONWriter& ioWriter, const std::string& inText)
{
    ioWriter.String(inText);
}
inline void WriteJSON(JSONWriter& ioWriter, const char* inText)
{
    ioWriter.String(inText);
}
template <std::same_as<bool> T>
void WriteJSON(JSONWriter& ioWriter, T inFlag)
{
    ioWriter.Bool(inFlag);
}
template <std::same_as<std::uint16_t> T>
void WriteJSON(JSONWriter& ioWriter, T inNumber)
{
    ioWriter.Int(inNumber);
}
template <Record T>
void WriteJSON(JSONWriter& ioWriter, const T& inRecord);

template <class T>
void WriteJSON(JSONWriter& ioWriter, const std::vector<T>& inElements)
{
    ioWriter.BeginArray();
    for (const T& element : inElements)
        WriteJSON(ioWriter, element);
    ioWriter.EndArray();
}

template <Record T>
void WriteJSON(JSONWriter& ioWriter, const T& inRecord)
{
    ioWriter.BeginObject();
    std::apply(
        [&](const auto&... inField) {
            (..., (ioWriter.Key(inField.mKey), WriteJSON(ioWriter, inRecord.*inField.mMember)));
        },
        T::kFields);
    ioWriter.EndObject();
}

/// Reading: false when the value is missing or of another type; the target may have changed in part then.
inline bool ReadJSON(const JSONValue& inValue, std::string& outText)
{
    return inValue.GetString(outText);
}
inline bool ReadJSON(const JSONValue& inValue, bool& outFlag)
{
    return inValue.GetBool(outFlag);
}
inline bool ReadJSON(const JSONValue& inValue, std::uint16_t& outNumber)
{
    std::int64_t number = 0;
    if (!inValue.GetInt64(number)) return false;
    if (number < 0 || number > std::numeric_limits<std::uint16_t>::max()) return false;
    outNumber = static_cast<std::uint16_t>(number);
    return true;
}
template <Record T>
bool ReadJSON(const JSONValue& inValue, T& outRecord);

template <class T>
bool ReadJSON(const JSONValue& inValue, std::vector<T>& outElements)
{
    if (!inValue.IsArray()) return false;
    for (const JSONValue& child : inValue.Children()) {
        if (!ReadJSON(child, outElements.emplace_back())) return false;
    }
    return true;
}

template <Record T>
bool ReadJSON(const JSONValue& inValue, T& outRecord)
{
    if (!inValue.IsObject()) return false;
    const auto readField = [&](const auto& inField) {
        const JSONValue value = inValue[inField.mKey];
        if (!value.Exists()) return !inField.mRequired;
        return ReadJSON(value, outRecord.*inField.mMember);
    };
    return std::apply([&](const auto&... inField) { return (... && readField(inField)); }, T::kFields);
}

template <class T>
std::string ToJSON(const T& inValue)
{
    JSONWriter writer;
    WriteJSON(writer, inValue);
    return writer.TakeText();
}

}  // namespace noxmarshal

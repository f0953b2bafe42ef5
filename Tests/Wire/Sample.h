#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>

#include "Client/Wire/Record.h"

namespace wire_test {

using namespace VantryLocalHub::dto;

/// JSON that only survives when nobody looks into it: numbers past 2^53, past a double, a repeated key, escapes.
constexpr std::string_view kHardObject =
    R"({"n":9007199254740993,"big":1e400,"k":1,"k":{"deep":[[[{}]]]},"t":"\u00e9\/é","f":1.10})";
constexpr std::string_view kHardArray = R"([9007199254740993,-1e400,{"k":1,"k":2}])";

/// Fills a record by its own key list, each member with a value that tells its key. Keys that are never written stay
/// as they are unless asked for.
class Sample
{
public:
    explicit Sample(bool inWithReadOnly) : mWithReadOnly(inWithReadOnly) {}

    template <WireRecord Record>
    void Fill(Record& outRecord)
    {
        std::apply([&](const auto&... field) { (FillField(outRecord, field), ...); }, Record::kFields);
    }

private:
    template <class Record, class Owner, class Type>
    void FillField(Record& outRecord, const Field<Owner, Type>& inField)
    {
        if (mWithReadOnly || inField.mPresence != Presence::Never) {
            FillValue(outRecord.*inField.mMember, inField.mKey);
        }
    }

    template <class Type>
    void FillValue(Type& outValue, std::string_view inKey)
    {
        ++mCount;
        if constexpr (WireRecord<Type>) {
            Fill(outValue);
        } else if constexpr (detail::IsVector<Type>::value) {
            outValue.resize(2);
            for (auto& element : outValue)
                FillValue(element, inKey);
        } else if constexpr (detail::IsOptional<Type>::value) {
            FillValue(outValue.emplace(), inKey);
        } else if constexpr (std::is_same_v<Type, RawArray>) {
            outValue.mText = kHardArray;
        } else if constexpr (detail::IsOpaque<Type>::value) {
            outValue.mText = kHardObject;
        } else if constexpr (std::is_same_v<Type, bool>) {
            outValue = true;
        } else if constexpr (std::is_same_v<Type, std::int64_t>) {
            outValue = 9007199254740993 + mCount;
        } else if constexpr (std::is_integral_v<Type>) {
            outValue = static_cast<Type>(mCount);
        } else if constexpr (std::is_floating_point_v<Type>) {
            outValue = 0.25;
        } else if constexpr (std::is_same_v<Type, RFC3339DateTime>) {
            outValue = RFC3339DateTime(17000000000000000 + mCount * 10000001);
        } else if constexpr (std::is_same_v<Type, std::string>) {
            outValue = "\"" + std::string(inKey) + "\" é\n";
        } else {
            outValue = std::string(inKey) + "-" + std::to_string(mCount);
        }
    }

    const bool mWithReadOnly;
    std::int64_t mCount = 0;
};

}  // namespace wire_test

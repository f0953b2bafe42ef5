#include "Tools/apidoc/RecordShapes.h"

#include <tuple>
#include <type_traits>

#include "Client/Wire/AllRecords.h"
#include "Client/Wire/Operations/Operations.h"

namespace apidoc {

namespace dto = VantryLocalHub::dto;
namespace API = VantryLocalHub::API;

namespace {

template <class Type>
TypeShape ShapeOf()
{
    if constexpr (dto::WireRecord<Type>) {
        return {TypeKind::Record, std::string(dto::RecordName<Type>::kText), {}, false};
    } else if constexpr (dto::detail::IsVector<Type>::value) {
        return {TypeKind::Array, {}, {ShapeOf<typename Type::value_type>()}, false};
    } else if constexpr (dto::detail::IsOptional<Type>::value) {
        TypeShape shape = ShapeOf<typename Type::value_type>();
        shape.mTakesNull = true;
        return shape;
    } else if constexpr (std::is_same_v<Type, dto::RawJSON>) {
        return {TypeKind::OpaqueObject, {}, {}, false};
    } else if constexpr (std::is_same_v<Type, dto::RawArray>) {
        return {TypeKind::OpaqueArray, {}, {}, false};
    } else if constexpr (std::is_same_v<Type, dto::RawValue>) {
        return {TypeKind::AnyValue, {}, {}, false};
    } else if constexpr (std::is_same_v<Type, dto::RFC3339DateTime>) {
        return {TypeKind::Time, {}, {}, false};
    } else if constexpr (std::is_same_v<Type, bool>) {
        return {TypeKind::Boolean, {}, {}, false};
    } else if constexpr (std::is_integral_v<Type>) {
        static_assert(sizeof(Type) == 4 || sizeof(Type) == 8);
        return {sizeof(Type) == 8 ? TypeKind::Integer64 : TypeKind::Integer32, {}, {}, false};
    } else if constexpr (std::is_floating_point_v<Type>) {
        return {TypeKind::Number, {}, {}, false};
    } else {
        static_assert(std::is_same_v<Type, std::string> || std::is_same_v<Type, dto::ImmutableString>);
        return {};
    }
}

template <class Owner, class Type>
KeyShape ShapeOf(const dto::Field<Owner, Type>& inField)
{
    return {std::string(inField.mKey), ShapeOf<Type>(), inField.mPresence};
}

template <dto::WireRecord Record>
RecordShape RecordShapeOf()
{
    return std::apply([](const auto&... field) { return RecordShape{ShapeOf(field)...}; }, Record::kFields);
}

template <class Choose>
std::set<std::string> ReachableFromOperations(const Choose& inChoose)
{
    std::set<std::string> records;
    for (const API::Resource& resource : API::kResources)
        for (const API::Operation& operation : resource.mOperations)
            inChoose(operation, [&records](std::string_view inRecord) {
                if (!inRecord.empty()) AddReachable(std::string(inRecord), records);
            });
    return records;
}

}  // namespace

const std::map<std::string, RecordShape>& AllRecordShapes()
{
    static const std::map<std::string, RecordShape> kShapes = [] {
        using namespace dto;
        std::map<std::string, RecordShape> shapes;
#define HUB_ROW(Record) shapes.emplace(#Record, RecordShapeOf<Record>());
        HUB_WIRE_RECORDS(HUB_ROW)
#undef HUB_ROW
        return shapes;
    }();
    return kShapes;
}

void AddReachable(const std::string& inRecord, std::set<std::string>& ioRecords)
{
    if (!ioRecords.insert(inRecord).second) return;
    for (const KeyShape& key : AllRecordShapes().at(inRecord)) {
        const TypeShape& type = key.mType.mElement.empty() ? key.mType : key.mType.mElement.front();
        if (type.mKind == TypeKind::Record) AddReachable(type.mRecord, ioRecords);
    }
}

std::set<std::string> RecordsThatAreRead()
{
    return ReachableFromOperations([](const API::Operation& inOperation, const auto& inAdd) {
        inAdd(inOperation.mBodyRecord);
        for (const API::Field& field : inOperation.mBodyFields)
            inAdd(field.mRecord);
    });
}

std::set<std::string> RecordsThatAreAnswered()
{
    return ReachableFromOperations([](const API::Operation& inOperation, const auto& inAdd) {
        for (const API::Answer& answer : inOperation.mAnswers)
            for (const std::string_view record : answer.mRecords)
                inAdd(record);
    });
}

}  // namespace apidoc

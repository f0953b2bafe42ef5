#include "Tools/apidoc/Schemas.h"

#include <algorithm>

#include "Client/Wire/Operations/TransactionKeys.h"
#include "Client/Wire/Operations/WordKeys.h"

namespace apidoc {

namespace API = VantryLocalHub::API;

namespace {

constexpr std::string_view kTime = "Time";

std::string SchemaName(std::string_view inRecord, Way inWay)
{
    return std::string(inRecord) + (inWay == Way::Read ? "Request" : "");
}

JSON ReferenceTo(std::string_view inName)
{
    return {{"$ref", std::string("#/components/schemas/").append(inName)}};
}

JSON SchemaOf(const TypeShape& inType, Way inWay)
{
    switch (inType.mKind) {
        case TypeKind::Text:
            return {{"type", "string"}};
        case TypeKind::Time:
            return ReferenceTo(kTime);
        case TypeKind::Boolean:
            return {{"type", "boolean"}};
        case TypeKind::Integer32:
            return {{"type", "integer"}, {"format", "int32"}};
        case TypeKind::Integer64:
            return {{"type", "integer"}, {"format", "int64"}};
        case TypeKind::Number:
            return {{"type", "number"}, {"format", "double"}};
        case TypeKind::OpaqueObject:
            return {{"type", "object"}, {"additionalProperties", true}};
        case TypeKind::OpaqueArray:
            return {{"type", "array"}, {"items", JSON::object()}};
        case TypeKind::AnyValue:
            return JSON::object();
        case TypeKind::Record:
            return Reference(inType.mRecord, inWay);
        case TypeKind::Array:
            return {{"type", "array"}, {"items", SchemaOf(inType.mElement.front(), inWay)}};
    }
    return {};
}

JSON Texts(const API::Text* inBegin, const API::Text* inEnd)
{
    JSON words = JSON::array();
    std::for_each(inBegin, inEnd, [&words](const API::Text& inWord) {
        if (inWord.IsSet()) words.push_back(inWord.View());
    });
    return words;
}

JSON SchemaOfKey(const std::string& inRecord, const KeyShape& inKey, Way inWay)
{
    JSON schema = SchemaOf(inKey.mType, inWay);
    for (const API::WordKey& key : API::kWordKeys)
        if (key.mRecord == inRecord && key.mKey == inKey.mKey)
            schema["enum"] = Texts(key.mWords.data(), key.mWords.data() + key.mWords.size());
    // Written only where it is known, so that it is never empty.
    if (inKey.mType.mKind == TypeKind::Time && inKey.mPresence == Presence::WhenSet && inWay == Way::Answered)
        schema = {{"type", "string"}, {"format", "date-time"}};
    if (inWay == Way::Read && inKey.mType.mTakesNull) schema = {{"anyOf", {schema, {{"type", "null"}}}}};
    if (inKey.mPresence == Presence::Never) schema["writeOnly"] = true;
    return schema;
}

JSON SchemaOfRecord(const std::string& inRecord, const RecordShape& inShape, Way inWay)
{
    JSON schema = {{"type", "object"}, {"properties", JSON::object()}};
    JSON required = JSON::array();
    for (const KeyShape& key : inShape) {
        schema["properties"][key.mKey] = SchemaOfKey(inRecord, key, inWay);
        if (inWay == Way::Answered && key.mPresence == Presence::Always) required.push_back(key.mKey);
    }
    if (!required.empty()) schema["required"] = required;
    return schema;
}

}  // namespace

JSON Reference(std::string_view inRecord, Way inWay)
{
    return ReferenceTo(SchemaName(inRecord, inWay));
}

JSON AllSchemas()
{
    JSON schemas = JSON::object();
    schemas[std::string(kTime)] = {
        {"description", "RFC 3339; empty where it is not known"},
        {"anyOf", {{{"type", "string"}, {"format", "date-time"}}, {{"type", "string"}, {"const", ""}}}}};
    const auto read = RecordsThatAreRead();
    for (const auto& [record, shape] : AllRecordShapes()) {
        schemas[SchemaName(record, Way::Answered)] = SchemaOfRecord(record, shape, Way::Answered);
        if (read.contains(record)) schemas[SchemaName(record, Way::Read)] = SchemaOfRecord(record, shape, Way::Read);
    }
    return schemas;
}

JSON SchemaOfField(const API::Field& inField, bool inJSON)
{
    JSON schema;
    switch (inField.mKind) {
        case API::ValueKind::Text:
            schema = {{"type", "string"}};
            break;
        case API::ValueKind::Boolean:
            schema = {{"enum", inJSON ? JSON{true, false, "true", "false"} : JSON{"true", "false"}}};
            break;
        case API::ValueKind::Object:
            schema = inField.mRecord.empty() ? JSON{{"type", "object"}, {"additionalProperties", true}}
                                             : Reference(inField.mRecord, Way::Read);
            break;
        case API::ValueKind::Payload:
            schema = {{"type", "string"}};
            if (!inJSON) schema["contentMediaType"] = "application/octet-stream";
            break;
    }
    if (const JSON words = Texts(inField.mWords.data(), inField.mWords.data() + inField.mWords.size()); !words.empty())
        schema["enum"] = words;
    schema["description"] = inField.mMeaning;
    return schema;
}

JSON SchemaOfFields(API::Fields inFields, bool inJSON)
{
    JSON schema = {{"type", "object"}, {"properties", JSON::object()}};
    JSON required = JSON::array();
    for (const API::Field& field : inFields) {
        const std::string key(field.mKey.View());
        schema["properties"][key] = SchemaOfField(field, inJSON);
        if (field.mIsRequired) required.push_back(key);
    }
    if (!required.empty()) schema["required"] = required;
    return schema;
}

JSON SchemaOfTransactionRows(bool inDeletes)
{
    JSON schema = {{"type", "object"},
                   {"patternProperties", JSON::object()},
                   {"additionalProperties", false},
                   {"minProperties", 1}};
    for (const API::TransactionKey& key : API::kTransactionKeys)
        if (key.mDeletes == inDeletes)
            schema["patternProperties"][key.Expression()] = {
                {"type", "string"}, {"title", key.Shown()}, {"description", key.mMeaning}};
    return schema;
}

}  // namespace apidoc

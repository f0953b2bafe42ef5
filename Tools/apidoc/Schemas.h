#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "Client/Wire/Operations/Operation.h"
#include "Tools/apidoc/RecordShapes.h"

namespace apidoc {

using JSON = nlohmann::ordered_json;

/// Which way a record goes. What the hub writes has every key that it always writes; what it reads may lack any.
enum class Way : std::uint8_t
{
    Answered,
    Read
};

/// A reference to the schema of a record.
JSON Reference(std::string_view inRecord, Way inWay);
/// All schemas, by name.
JSON AllSchemas();

/// The value of a field that is sent as JSON, or in a form.
JSON SchemaOfField(const VantryLocalHub::API::Field& inField, bool inJSON);
/// An object of fields.
JSON SchemaOfFields(VantryLocalHub::API::Fields inFields, bool inJSON);
/// The multipart form of a transaction's rows.
JSON SchemaOfTransactionRows(bool inDeletes);

}  // namespace apidoc

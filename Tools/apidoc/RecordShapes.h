#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Client/Wire/Record.h"

namespace apidoc {

using VantryLocalHub::dto::Presence;

enum class TypeKind : std::uint8_t
{
    Text,
    Time,  ///< RFC 3339; an empty text where it is not known
    Boolean,
    Integer32,
    Integer64,
    Number,
    OpaqueObject,
    OpaqueArray,
    AnyValue,
    Record,
    Array
};

/// What stands on the wire for one key.
struct TypeShape
{
    TypeKind mKind = TypeKind::Text;
    std::string mRecord;              ///< of a record
    std::vector<TypeShape> mElement;  ///< of an array: one
    bool mTakesNull = false;          ///< when read
};

struct KeyShape
{
    std::string mKey;
    TypeShape mType;
    Presence mPresence = Presence::Always;
};

using RecordShape = std::vector<KeyShape>;

/// Every wire record by its name, as its field list says.
const std::map<std::string, RecordShape>& AllRecordShapes();

/// The record and all that it holds, added to the set.
void AddReachable(const std::string& inRecord, std::set<std::string>& ioRecords);

/// The records that operations read, and all that they hold.
std::set<std::string> RecordsThatAreRead();
/// The records that operations answer, and all that they hold.
std::set<std::string> RecordsThatAreAnswered();

}  // namespace apidoc

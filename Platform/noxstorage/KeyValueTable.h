#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "Platform/noxstorage/SQLite.h"

/// One table of text keys and byte values in a database: "KeyValue (Key TEXT PRIMARY KEY, Value BLOB)".
///
/// Each operation returns SQLite's codes: kDone for a write that succeeded; kRow for a read that found its key, kDone
/// for one that did not. Out arguments keep their value unless kRow is returned.
namespace noxstorage::sqlite::KeyValueTable {

/// Does nothing, with success, when the table is there.
int CreateKeyValueTable(Db& inDb);
/// True when the table is there; outCode is kOK unless the question itself failed.
bool HasKeyValueTable(Db& inDb, int& outCode);
int ReadValue(Db& inDb, std::string_view inKey, std::string& outValue);
int WriteValue(Db& inDb, std::string_view inKey, std::string_view inValue);
/// Writes two entries, or neither.
int WriteBoth(Db& inDb, std::string_view inFirstKey, std::string_view inFirstValue, std::string_view inSecondKey,
              std::string_view inSecondValue);
/// Whole numbers as decimal text. The reader takes a leading "-" and stops at the first byte that is no digit or would
/// overflow; kMismatch for a value that does not begin with a number.
int ReadValueAs(Db& inDb, std::string_view inKey, std::int64_t& outValue);
int WriteValueAs(Db& inDb, std::string_view inKey, std::int64_t inValue);
/// Visits all entries in the order of their keys. kDone on success. The views hold during the call only.
int ReadAll(Db& inDb, const std::function<void(std::string_view inKey, std::string_view inValue)>& inVisitor);
/// kDone as well when there is no such key.
int RemoveKey(Db& inDb, std::string_view inKey);

}  // namespace noxstorage::sqlite::KeyValueTable

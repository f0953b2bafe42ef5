#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Platform/noxstorage/SQLite.h"

namespace noxstorage::sqlite::KeyValueTable {

/// One table of text keys and byte values in a database: "KeyValue (Key TEXT PRIMARY KEY, Value BLOB)". Each operation
/// returns SQLite's codes; kDone is success of a write, kRow of a read that found its key, kDone of one that did not.
int CreateKeyValueTable(Db& inDb);
/// True when the table is there; outCode is kOK unless the question itself failed.
bool HasKeyValueTable(Db& inDb, int& outCode);
int ReadValue(Db& inDb, std::string_view inKey, std::string& outValue);
int WriteValue(Db& inDb, std::string_view inKey, std::string_view inValue);
/// Whole numbers as decimal text ("%lli"); the reader takes a leading "-" and stops before it would overflow.
int ReadValueAs(Db& inDb, std::string_view inKey, std::int64_t& outValue);
int WriteValueAs(Db& inDb, std::string_view inKey, std::int64_t inValue);
int ReadAll(Db& inDb, const std::function<void(std::string_view inKey, std::string_view inValue)>& inVisitor);
int RemoveKey(Db& inDb, std::string_view inKey);

}  // namespace noxstorage::sqlite::KeyValueTable

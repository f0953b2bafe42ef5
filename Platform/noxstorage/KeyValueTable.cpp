#include "Platform/noxstorage/KeyValueTable.h"

#include <limits>

namespace noxstorage::sqlite::KeyValueTable {

namespace {

// Rows keep their row id: values may be images of some hundred KB, which do not belong into the tree of keys.
constexpr std::string_view kCreate = "CREATE TABLE IF NOT EXISTS KeyValue (Key TEXT PRIMARY KEY, Value BLOB)";
constexpr std::string_view kHas = "SELECT 1 FROM sqlite_master WHERE type='table' AND name='KeyValue'";
constexpr std::string_view kRead = "SELECT Value FROM KeyValue WHERE Key=?";
constexpr std::string_view kWrite = "INSERT OR REPLACE INTO KeyValue (Key, Value) VALUES (?, ?)";
constexpr std::string_view kWriteBoth = "INSERT OR REPLACE INTO KeyValue (Key, Value) VALUES (?, ?), (?, ?)";
constexpr std::string_view kReadAll = "SELECT Key, Value FROM KeyValue ORDER BY Key";
constexpr std::string_view kRemove = "DELETE FROM KeyValue WHERE Key=?";

bool ParseInteger(std::string_view inText, std::int64_t& outValue)
{
    const bool negative = inText.starts_with('-');
    if (negative) inText.remove_prefix(1);
    if (inText.empty() || inText.front() < '0' || inText.front() > '9') return false;
    // Gathered below zero, where the range reaches one further.
    std::int64_t value = 0;
    const std::int64_t lowest = std::numeric_limits<std::int64_t>::min() + (negative ? 0 : 1);
    for (const char digit : inText) {
        if (digit < '0' || digit > '9') break;
        const std::int64_t step = digit - '0';
        if (value < (lowest + step) / 10) break;
        value = value * 10 - step;
    }
    outValue = negative ? value : -value;
    return true;
}

}  // namespace

int CreateKeyValueTable(Db& inDb)
{
    const int result = inDb.ExecuteCmd(kCreate);
    return result == kOK ? kDone : result;
}

bool HasKeyValueTable(Db& inDb, int& outCode)
{
    Statement statement;
    outCode = statement.PrepareV2(inDb, kHas);
    if (outCode != kOK) return false;
    const int result = statement.Step();
    if (result != kRow && result != kDone) outCode = result;
    return result == kRow;
}

int ReadValue(Db& inDb, std::string_view inKey, std::string& outValue)
{
    Statement statement;
    int result = PrepareAndBindCmd(inDb, statement, kRead, inKey);
    if (result != kOK) return result;
    result = statement.Step();
    if (result == kRow) outValue = statement.ColumnBlob(0);
    return result;
}

int WriteValue(Db& inDb, std::string_view inKey, std::string_view inValue)
{
    Statement statement;
    int result = PrepareAndBindCmd(inDb, statement, kWrite, inKey);
    if (result == kOK) result = statement.BindBlob(2, inValue);
    return result == kOK ? statement.Step() : result;
}

int WriteBoth(Db& inDb, std::string_view inFirstKey, std::string_view inFirstValue, std::string_view inSecondKey,
              std::string_view inSecondValue)
{
    Statement statement;
    const int result = PrepareAndBindCmd(inDb, statement, kWriteBoth, inFirstKey, Bytes{inFirstValue}, inSecondKey,
                                         Bytes{inSecondValue});
    return result == kOK ? statement.Step() : result;
}

int ReadValueAs(Db& inDb, std::string_view inKey, std::int64_t& outValue)
{
    std::string text;
    const int result = ReadValue(inDb, inKey, text);
    if (result != kRow) return result;
    return ParseInteger(text, outValue) ? kRow : kMismatch;
}

int WriteValueAs(Db& inDb, std::string_view inKey, std::int64_t inValue)
{
    return WriteValue(inDb, inKey, std::to_string(inValue));
}

int ReadAll(Db& inDb, const std::function<void(std::string_view, std::string_view)>& inVisitor)
{
    Statement statement;
    int result = statement.PrepareV2(inDb, kReadAll);
    if (result != kOK) return result;
    while ((result = statement.Step()) == kRow) {
        inVisitor(statement.ColumnText(0), statement.ColumnBlob(1));
    }
    return result;
}

int RemoveKey(Db& inDb, std::string_view inKey)
{
    Statement statement;
    const int result = PrepareAndBindCmd(inDb, statement, kRemove, inKey);
    return result == kOK ? statement.Step() : result;
}

}  // namespace noxstorage::sqlite::KeyValueTable

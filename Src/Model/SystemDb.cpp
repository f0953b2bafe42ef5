#include "Inc/Model/SystemDb.h"

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxstorage/KeyValueTable.h"
#include "Platform/noxstorage/SQLite.h"

namespace VantryLocalHub::SystemDb {

namespace sqlite = noxstorage::sqlite;
namespace KeyValueTable = sqlite::KeyValueTable;
using noxcore::logging::LogError;

namespace {

constexpr std::string_view kCategory = "VantryLocalHub";
// With a rollback journal the commit is the deletion of the journal; only EXTRA presses that onto the disk.
constexpr std::string_view kSettings = "PRAGMA synchronous = EXTRA";

constexpr int kStatusOK = 200;
constexpr int kStatusNotFound = 404;
constexpr int kStatusFailed = 500;

bool GetSystemDatabase(sqlite::Db& outDb)
{
    const auto location = noxcore::HubContext::Current()->GetInstance<Location>();
    const std::string folder = location != nullptr ? location->mFolder : std::string();
    const std::string path = noxcore::filesupport::Join(folder, kSystemDatabaseName);
    if (!folder.empty() && noxcore::filesupport::Files().EnsureDirectoryExists(folder) &&
        outDb.Open16(path) == sqlite::kOK && outDb.BusyTimeout(sqlite::kBusyTimeoutMilliseconds) == sqlite::kOK &&
        outDb.ExecuteCmd(kSettings) == sqlite::kOK) {
        return true;
    }
    LogError(kCategory, "Can't open system database", {{"path", path}, {"extended", outDb.ExtendedErrcode()}});
    return false;
}

int LogUnableToOpen(std::string_view inID)
{
    LogError(kCategory, "Unable to open system database", {{"enclosureID", inID}});
    return kStatusFailed;
}

int LogFailure(std::string_view inMessage, std::string_view inID, int inResult, const sqlite::Db& inDb)
{
    LogError(kCategory, inMessage, {{"enclosureID", inID}, {"main", inResult}, {"extended", inDb.ExtendedErrcode()}});
    return kStatusFailed;
}

}  // namespace

int AddOrUpdateSystemEnclosure(std::string_view inID, std::string_view inValue)
{
    return AddOrUpdateSystemEnclosures({{inID, inValue}});
}

int AddOrUpdateSystemEnclosures(const std::map<std::string_view, std::string_view>& inValues)
{
    if (inValues.empty()) return kStatusOK;
    std::string_view id = inValues.begin()->first;
    sqlite::Db db;
    if (!GetSystemDatabase(db)) return LogUnableToOpen(id);
    int result = KeyValueTable::CreateKeyValueTable(db);
    sqlite::Transaction transaction(db);
    if (result == sqlite::kDone) result = transaction.Begin();
    if (result == sqlite::kOK) result = sqlite::kDone;
    for (auto value = inValues.begin(); value != inValues.end() && result == sqlite::kDone; ++value) {
        id = value->first;
        result = KeyValueTable::WriteValue(db, id, value->second);
    }
    if (result == sqlite::kDone) result = transaction.End();
    if (result == sqlite::kOK) return kStatusOK;
    return LogFailure("Cannot write system enclosure into db", id, result, db);
}

int GetSystemEnclosure(std::string_view inID, std::string& outValue)
{
    sqlite::Db db;
    if (!GetSystemDatabase(db)) return LogUnableToOpen(inID);
    int result = sqlite::kOK;
    if (KeyValueTable::HasKeyValueTable(db, result)) result = KeyValueTable::ReadValue(db, inID, outValue);
    if (result == sqlite::kRow) return kStatusOK;
    if (result == sqlite::kOK || result == sqlite::kDone) return kStatusNotFound;
    return LogFailure("Cannot read system enclosure from db", inID, result, db);
}

int GetSystemEnclosuresWithPrefix(std::string_view inPrefix, std::map<std::string, std::string>& outValues)
{
    sqlite::Db db;
    if (!GetSystemDatabase(db)) return LogUnableToOpen(inPrefix);
    int result = sqlite::kOK;
    std::map<std::string, std::string> values;
    if (KeyValueTable::HasKeyValueTable(db, result))
        result = KeyValueTable::ReadAll(db, [&](std::string_view inKey, std::string_view inValue) {
            if (inKey.starts_with(inPrefix)) values.emplace(inKey, inValue);
        });
    if (result != sqlite::kOK && result != sqlite::kDone)
        return LogFailure("Cannot read system enclosure from db", inPrefix, result, db);
    outValues = std::move(values);
    return kStatusOK;
}

int DeleteSystemEnclosure(std::string_view inID)
{
    sqlite::Db db;
    if (!GetSystemDatabase(db)) return LogUnableToOpen(inID);
    int result = sqlite::kOK;
    if (KeyValueTable::HasKeyValueTable(db, result)) result = KeyValueTable::RemoveKey(db, inID);
    if (result == sqlite::kOK || result == sqlite::kDone) return kStatusOK;
    return LogFailure("Cannot delete system enclosure from db", inID, result, db);
}

}  // namespace VantryLocalHub::SystemDb

#pragma once

#include <map>
#include <string>
#include <string_view>

/// The system database, `system.sqlite3` in the hub's data folder: small settings and payloads of the user that belong
/// to no session, as named bytes ("system enclosures").
///
/// Results are HTTP statuses: 200, 404 where stated, 500 with a record in the log.
/// Threading: any thread. The file is opened anew for each call, so SQLite's own locking is all there is; a call may
/// wait 10 000 ms for another. It keeps a rollback journal: nothing is left beside it between calls.
namespace VantryLocalHub::SystemDb {

constexpr std::string_view kSystemDatabaseName = "system.sqlite3";

/// Where the file lies. Published in the HubContext when the hub starts; without it every call fails.
struct Location
{
    std::string mFolder;
};

int AddOrUpdateSystemEnclosure(std::string_view inID, std::string_view inValue);
/// By id; all of them, or none.
int AddOrUpdateSystemEnclosures(const std::map<std::string_view, std::string_view>& inValues);
/// 404 when there is none of that name; outValue keeps its value unless 200 is returned.
int GetSystemEnclosure(std::string_view inID, std::string& outValue);
/// By id; none is 200 as well.
int GetSystemEnclosuresWithPrefix(std::string_view inPrefix, std::map<std::string, std::string>& outValues);
/// 200 as well when there was none of that name.
int DeleteSystemEnclosure(std::string_view inID);

}  // namespace VantryLocalHub::SystemDb

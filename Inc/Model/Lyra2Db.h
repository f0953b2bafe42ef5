#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Client/Wire/SizeInfo.h"
#include "Inc/Model/SyncChangeCount.h"
#include "Platform/noxappsupport/RFC3339DateTime.h"
#include "Platform/noxstorage/SQLite.h"

/// The session database, `session.sqlite3` in a session's folder: what a session keeps outside its history. That is
/// its media locators, its user enclosures, and a table of counters and caches.
///
/// Each function takes an open database and returns true on success. A failed command is logged with its text and
/// both SQLite codes; a read that finds no row returns false without a record. Out arguments keep their value unless
/// true is returned.
/// Threading: no lock of its own; the sandbox that holds the handle calls these under its mutexes.
namespace VantryLocalHub::GitBox::Lyra2Db {

using noxappsupport::cloudservice::RFC3339DateTime;
using Db = noxstorage::sqlite::Db;
using DbPtr = std::shared_ptr<Db>;

constexpr std::string_view kSessionDatabaseName = "session.sqlite3";

/// A media locator to write: its id and the JSON of its record.
struct MediaLocatorRow
{
    std::string mID;
    std::string mDTO;
};

/// A record as read: its JSON, and the session's change count at its last write.
struct StoredRecord
{
    std::string mDTO;
    std::int64_t mChangeCount = 0;
};

/// A user enclosure with all its columns but the change count; mDTO is the JSON of its metadata.
struct UserEnclosureRow
{
    std::string mUser;
    std::string mID;
    std::string mDTO;
    std::string mContent;
};

/// When something of a kind of side data was last written. Unlike a change count it moves with every write: those of
/// the sync engine and deletions leave the session's counter where it is.
struct LastWrite
{
    std::int64_t mChangeCount = 0;  ///< the session's at that write
    std::int64_t mFurther = 0;      ///< how many such writes came before it at the same change count

    /// "12", or "12.3" with such writes before it.
    [[nodiscard]] std::string Text() const;
    friend bool operator==(const LastWrite&, const LastWrite&) = default;
};

/// What a read of one row found.
enum class Lookup
{
    Found,
    Absent,  ///< not logged
    Failed   ///< logged
};

using KeyValues = std::map<std::string, std::string, std::less<>>;

/// Opens or creates the database of a session folder and makes what it lacks. A new one starts with change count 0,
/// an existing one keeps its own. outDb is null after a failure. A damaged file is put aside under another name; the
/// one in its place counts on from beyond every count that the damaged one can have given out.
/// outIsNew: it holds nothing of what was there before, which is so as well where a file was put aside or had gone.
bool OpenSessionDatabase(const std::string& inFolder, DbPtr& outDb, bool& outIsNew);
inline bool OpenSessionDatabase(const std::string& inFolder, DbPtr& outDb)
{
    bool ignored = false;
    return OpenSessionDatabase(inFolder, outDb, ignored);
}
/// Whether a folder that came from elsewhere has a session database that is whole: opening one makes it anew where it
/// is missing or damaged. All of it is read.
bool IsSoundSessionDatabase(const std::string& inFolder);
/// The same tables without a file.
bool OpenSessionDatabaseInMemory(DbPtr& outDb);

bool WriteMediaLocator(Db& inDb, std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount);
/// All or none. Raises the stored time of the newest locator in the same transaction.
bool WriteMediaLocators(Db& inDb, std::span<const MediaLocatorRow> inRows, std::int64_t inChangeCount);
/// Gives locators that were written back the records that they had before, and removes those that had none; those that
/// were written again since stay as they are. All or none.
using RecordsBefore = std::vector<std::optional<StoredRecord>>;
bool TakeBackMediaLocators(Db& inDb, std::span<const MediaLocatorRow> inWritten, const RecordsBefore& inBefore);
/// True as well when there is no such locator.
bool UpdateMediaLocator(Db& inDb, std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount);
Lookup ReadMediaLocator(Db& inDb, std::string_view inID, StoredRecord& outRecord);
/// Visits those of the ids that are there, each with its place among them.
bool ReadMediaLocatorsByID(Db& inDb, std::span<const std::string_view> inIDs,
                           const std::function<void(std::size_t inPlace, const StoredRecord& inRecord)>& inVisitor);
bool ReadMediaLocators(Db& inDb, std::vector<StoredRecord>& outRecords);
/// Those written after a change count; all for kNoChangeCount.
bool ReadMediaLocatorsChangedAfter(Db& inDb, std::int64_t inChangeCount, std::vector<StoredRecord>& outRecords);
bool CountMediaLocators(Db& inDb, std::int64_t& outCount);

/// The id alone is the key: an enclosure of the same id that belongs to another user is replaced.
bool WriteUserEnclosure(Db& inDb, std::string_view inUser, std::string_view inID, std::string_view inDTO,
                        std::string_view inContent, std::int64_t inChangeCount);
/// True as well when the user has no such enclosure.
bool UpdateUserEnclosure(Db& inDb, std::string_view inUser, std::string_view inID, std::string_view inDTO,
                         std::string_view inContent, std::int64_t inChangeCount);
Lookup ReadUserEnclosureContent(Db& inDb, std::string_view inUser, std::string_view inID, std::string& outContent);
Lookup ReadUserEnclosureMetadata(Db& inDb, std::string_view inUser, std::string_view inID, std::string& outDTO);
bool ReadUserEnclosures(Db& inDb, std::string_view inUser, std::vector<StoredRecord>& outRecords);
/// Those of the user written after a change count; all of the user for kNoChangeCount.
bool ReadUserEnclosuresChangedAfter(Db& inDb, std::string_view inUser, std::int64_t inChangeCount,
                                    std::vector<StoredRecord>& outRecords);
/// True as well when the user has no such enclosure.
bool DeleteUserEnclosure(Db& inDb, std::string_view inUser, std::string_view inID);

/// Everything the database holds, for a copy. A user enclosure whose metadata is no JSON object is logged and left
/// out; the others still come.
bool ReadAllSessionData(Db& inDb, std::vector<StoredRecord>& outLocators,
                        std::vector<UserEnclosureRow>& outUserEnclosures, KeyValues& outKeyValues);

bool ReadChangeCount(Db& inDb, std::int64_t& outCount);
bool WriteChangeCount(Db& inDb, std::int64_t inCount);
/// True with the default where nothing was ever written.
bool ReadLastWrite(Db& inDb, SideData inKind, LastWrite& outWrite);
bool WriteLastWrite(Db& inDb, SideData inKind, const LastWrite& inWrite);
/// A write that moves the counter: writes the count with it, both or neither.
bool WriteLastWriteAndChangeCount(Db& inDb, SideData inKind, const LastWrite& inWrite);
/// Number of assets of type bin at a revision of the session. Reading gives false when the number that is there was
/// counted at another one: the head moved and the process ended before it could be written.
bool ReadBinCount(Db& inDb, std::string_view inRevision, std::int64_t& outCount);
bool WriteBinCount(Db& inDb, std::string_view inRevision, std::int64_t inCount);
/// vy:lastModified of the newest media locator.
bool ReadLastModifiedMediaLocatorTime(Db& inDb, RFC3339DateTime& outTime);
bool WriteLastModifiedMediaLocatorTime(Db& inDb, const RFC3339DateTime& inTime);
/// Whom a template is meant for: a JSON array. Reading gives false, without a record, where none was ever written.
bool ReadTemplateRecipients(Db& inDb, std::string& outRecipients);
bool WriteTemplateRecipients(Db& inDb, std::string_view inRecipients);
/// The cached sizes of the session, whichever revision they are of.
bool ReadSizeInfo(Db& inDb, dto::SizeInfo& outInfo);
bool WriteSizeInfo(Db& inDb, const dto::SizeInfo& inInfo);

/// Raises ioNewest to the latest vy:lastModified of the locators, given as the JSON of their records. Records without
/// a readable time do not count. Large batches are read on all processors.
void CompareLastModifiedMediaLocatorTime(std::span<const std::string_view> inDTOs, RFC3339DateTime& ioNewest);

}  // namespace VantryLocalHub::GitBox::Lyra2Db

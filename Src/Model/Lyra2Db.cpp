#include "Inc/Model/Lyra2Db.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <exception>
#include <functional>
#include <numeric>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxstorage/KeyValueTable.h"
#include "Src/Model/DatabaseCommands.h"

namespace VantryLocalHub::GitBox::Lyra2Db {

using namespace DatabaseCommands;
namespace KeyValueTable = sqlite::KeyValueTable;
using noxcore::logging::LogError;
using noxcore::logging::LogWarning;
using noxcore::threads::RecursiveMutex;
using noxcore::threads::ScopedLock;

namespace {

constexpr std::string_view kCategory = "GitBox";

// One row a media locator. DTO: the JSON of its record; ChangeCount: the session's change counter at the last write,
// by which the sync engine asks for what is new.
constexpr std::string_view kCreateMediaLocators =
    "CREATE TABLE IF NOT EXISTS MediaLocators (ID text PRIMARY KEY, DTO text, ChangeCount INTEGER) WITHOUT ROWID";
// One row a user enclosure. DTO: the JSON of its metadata; Content: its payload, stored as bytes. The key is the id
// alone although all reads go by user and id: two users cannot hold the same enclosure id in one session.
constexpr std::string_view kCreateUserEnclosures =
    "CREATE TABLE IF NOT EXISTS UserEnclosures (User text, ID text PRIMARY KEY, DTO text, Content text, ChangeCount "
    "INTEGER) WITHOUT ROWID";

constexpr std::string_view kWriteMediaLocator =
    "INSERT OR REPLACE INTO MediaLocators (ID, DTO, ChangeCount) VALUES (?, ?, ?)";
constexpr std::string_view kUpdateMediaLocator = "UPDATE MediaLocators SET DTO=?, ChangeCount=?WHERE ID=?";
constexpr std::string_view kTakeBackMediaLocator = "UPDATE MediaLocators SET DTO=?, ChangeCount=? WHERE ID=? AND DTO=?";
constexpr std::string_view kRemoveMediaLocator = "DELETE FROM MediaLocators WHERE ID=? AND DTO=?";
constexpr std::string_view kReadMediaLocator = "SELECT DTO, ChangeCount FROM MediaLocators WHERE ID=?";
constexpr std::string_view kReadMediaLocators = "SELECT DTO, ChangeCount FROM MediaLocators";
constexpr std::string_view kReadMediaLocatorsAfter = "SELECT DTO, ChangeCount FROM MediaLocators WHERE ChangeCount>?";
constexpr std::string_view kCountMediaLocators = "SELECT COUNT(*) FROM MediaLocators";

constexpr std::string_view kWriteUserEnclosure =
    "INSERT OR REPLACE INTO UserEnclosures (User, ID, DTO, Content, ChangeCount) VALUES (?, ?, ?, ?, ?)";
constexpr std::string_view kUpdateUserEnclosure =
    "UPDATE UserEnclosures SET DTO=?, Content=?, ChangeCount=?WHERE User=? AND ID=?";
constexpr std::string_view kReadUserEnclosureContent = "SELECT Content FROM UserEnclosures WHERE User=? AND ID=?";
constexpr std::string_view kReadUserEnclosureMetadata = "SELECT DTO FROM UserEnclosures WHERE User=? AND ID=?";
constexpr std::string_view kReadUserEnclosures = "SELECT DTO, ChangeCount FROM UserEnclosures WHERE User=?";
constexpr std::string_view kReadUserEnclosuresAfter =
    "SELECT DTO, ChangeCount FROM UserEnclosures WHERE User=? AND ChangeCount>?";
constexpr std::string_view kDeleteUserEnclosure = "DELETE FROM UserEnclosures WHERE User=? AND ID=?";
constexpr std::string_view kReadAllUserEnclosures = "SELECT User, ID, DTO, Content FROM UserEnclosures";

// Keys of the key-value table.
constexpr std::string_view kChangeCount = "ChangeCount";
constexpr std::string_view kBinCount = "BinCount";
constexpr std::string_view kBinCountRevision = "BinCountRevision";  // the commit that it was counted at
constexpr std::string_view kLastModifiedMediaLocator = "LastModifiedMediaLocator";
constexpr std::string_view kSizeInfo = "SizeInfo";
constexpr std::string_view kTemplateRecipients = "TemplateRecipients";
// When locators and user enclosures were last written: the change count, and after a dot the number of writes before
// that left it where it was.
constexpr std::array<std::string_view, kSideDataKinds> kLastWrites{"LastMediaLocatorWrite", "LastUserEnclosureWrite"};

constexpr Failure kCannotReadLocator{kCategory, "Cannot read media locator from db"};
constexpr Failure kCannotReadLocators{kCategory, "Cannot read media locators from db"};
constexpr Failure kCannotReadEnclosure{kCategory, "Cannot read user enclosure from db"};
constexpr Failure kCannotReadEnclosures{kCategory, "Cannot read user enclosures from db"};

// Below this many locators the hand-over to other threads costs more than it saves.
constexpr std::size_t kLocatorsWorthSharing = 256;

bool LogKeyFailure(std::string_view inMessage, const Db& inDb, std::string_view inKey, int inResult)
{
    LogError(kCategory, inMessage, {{"key", inKey}, {"main", inResult}, {"extended", inDb.ExtendedErrcode()}});
    return false;
}

bool FoundKey(const Db& inDb, std::string_view inKey, int inResult)
{
    if (inResult == sqlite::kRow || inResult == sqlite::kDone) return inResult == sqlite::kRow;
    return LogKeyFailure("Cannot read key from session db", inDb, inKey, inResult);
}

bool WroteKey(const Db& inDb, std::string_view inKey, int inResult)
{
    return inResult == sqlite::kDone || LogKeyFailure("Cannot write key into session db", inDb, inKey, inResult);
}

bool ReadText(Db& inDb, std::string_view inKey, std::string& outText)
{
    return FoundKey(inDb, inKey, KeyValueTable::ReadValue(inDb, inKey, outText));
}

bool WriteText(Db& inDb, std::string_view inKey, std::string_view inText)
{
    return WroteKey(inDb, inKey, KeyValueTable::WriteValue(inDb, inKey, inText));
}

bool ReadNumber(Db& inDb, std::string_view inKey, std::int64_t& outNumber)
{
    return FoundKey(inDb, inKey, KeyValueTable::ReadValueAs(inDb, inKey, outNumber));
}

bool WriteNumber(Db& inDb, std::string_view inKey, std::int64_t inNumber)
{
    return WroteKey(inDb, inKey, KeyValueTable::WriteValueAs(inDb, inKey, inNumber));
}

int CreateTables(Db& inDb, std::int64_t inFirstChangeCount, bool& outIsNew)
{
    int result = inDb.ExecuteCmd(kCreateMediaLocators);
    if (result == sqlite::kOK) result = inDb.ExecuteCmd(kCreateUserEnclosures);
    if (result == sqlite::kOK) result = KeyValueTable::CreateKeyValueTable(inDb);
    if (result != sqlite::kDone) return result;
    std::string count;
    result = KeyValueTable::ReadValue(inDb, kChangeCount, count);
    outIsNew = result == sqlite::kDone;
    if (outIsNew) result = KeyValueTable::WriteValueAs(inDb, kChangeCount, inFirstChangeCount);
    return result == sqlite::kRow || result == sqlite::kDone ? sqlite::kOK : result;
}

int OpenAndCreate(const std::string& inPath, DbPtr& outDb, bool& outIsNew)
{
    const int result = OpenSideDatabase(inPath, false, outDb);
    return result == sqlite::kOK ? CreateTables(*outDb, 0, outIsNew) : result;
}

// What orders the sync points are counts that the lost database gave out. The new one counts on from the seconds since
// 1970, which no session has ever reached by counting.
int OpenReplacement(const std::string& inPath, DbPtr& outDb, bool& outIsNew)
{
    const int result = OpenSideDatabase(inPath, false, outDb);
    if (result != sqlite::kOK) return result;
    const std::int64_t now = noxcore::HubContext::Current()->GetClock().NowTicks();
    return CreateTables(*outDb, now / noxcore::kTicksPerSecond, outIsNew);
}

StoredRecord RecordOf(const Statement& inRow)
{
    return {std::string(inRow.ColumnText(0)), inRow.ColumnInt64(1)};
}

Lookup LookupOf(Found inFound)
{
    if (inFound == Found::Failed) return Lookup::Failed;
    return inFound == Found::Yes ? Lookup::Found : Lookup::Absent;
}

std::string_view KeyOfLastWrite(SideData inKind)
{
    return kLastWrites[static_cast<std::size_t>(inKind)];
}

LastWrite LastWriteFromText(std::string_view inText)
{
    LastWrite write;
    const auto count = std::from_chars(inText.data(), inText.data() + inText.size(), write.mChangeCount);
    if (inText.substr(static_cast<std::size_t>(count.ptr - inText.data())).starts_with('.')) {
        std::from_chars(count.ptr + 1, inText.data() + inText.size(), write.mFurther);
    }
    return write;
}

template <class... T>
bool ReadRecords(const Failure& inFailure, Db& inDb, std::vector<StoredRecord>& outRecords, std::string_view inCommand,
                 const T&... inValues)
{
    std::vector<StoredRecord> records;
    const auto add = [&](const Statement& inRow) { records.push_back(RecordOf(inRow)); };
    if (!ReadRows(inFailure, inDb, add, inCommand, inValues...)) return false;
    outRecords = std::move(records);
    return true;
}

/// The places of elements in the order of their ids, in which the table lies: taken in any other order, a large batch
/// reads and writes each page many times. Equal ids stay in their order.
template <class Element, class Projection>
std::vector<std::size_t> PlacesInOrder(std::span<const Element> inElements, Projection inID)
{
    std::vector<std::size_t> places(inElements.size());
    std::iota(places.begin(), places.end(), std::size_t{0});
    const auto idAt = [&](std::size_t inPlace) { return std::string_view(std::invoke(inID, inElements[inPlace])); };
    std::stable_sort(places.begin(), places.end(),
                     [&](std::size_t inLeft, std::size_t inRight) { return idAt(inLeft) < idAt(inRight); });
    return places;
}

int InsertMediaLocators(Db& inDb, std::span<const MediaLocatorRow> inRows, std::int64_t inChangeCount)
{
    Statement statement;
    int result = statement.PrepareV2(inDb, kWriteMediaLocator);
    if (result != sqlite::kOK) return result;
    for (const std::size_t place : PlacesInOrder(inRows, &MediaLocatorRow::mID)) {
        const MediaLocatorRow& row = inRows[place];
        result = statement.BindText(1, row.mID);
        if (result == sqlite::kOK) result = statement.BindText(2, row.mDTO);
        if (result == sqlite::kOK) result = statement.BindInt64(3, inChangeCount);
        if (result == sqlite::kOK) result = statement.Step();
        if (result != sqlite::kDone) return result;
        statement.Reset();
    }
    return sqlite::kDone;
}

// The stored time only ever rises.
int RaiseLastModifiedTime(Db& inDb, std::span<const MediaLocatorRow> inRows)
{
    const std::vector<std::string_view> records = [&] {
        std::vector<std::string_view> views;
        views.reserve(inRows.size());
        for (const MediaLocatorRow& row : inRows)
            views.emplace_back(row.mDTO);
        return views;
    }();
    std::string stored;
    int result = KeyValueTable::ReadValue(inDb, kLastModifiedMediaLocator, stored);
    if (result != sqlite::kRow && result != sqlite::kDone) return result;
    const RFC3339DateTime before = RFC3339DateTime::FromText(stored);
    RFC3339DateTime newest = before;
    CompareLastModifiedMediaLocatorTime(records, newest);
    if (newest == before) return sqlite::kDone;
    return KeyValueTable::WriteValue(inDb, kLastModifiedMediaLocator, newest.Text());
}

bool IsJSONObject(std::string_view inText)
{
    noxcore::serialization::JSONDocument document;
    return document.Parse(inText) && document.Root().IsObject();
}

bool ReadAllUserEnclosures(Db& inDb, std::vector<UserEnclosureRow>& outRows)
{
    const auto add = [&](const Statement& inRow) {
        UserEnclosureRow row{std::string(inRow.ColumnText(0)), std::string(inRow.ColumnText(1)),
                             std::string(inRow.ColumnText(2)), std::string(inRow.ColumnBlob(3))};
        if (IsJSONObject(row.mDTO)) {
            outRows.push_back(std::move(row));
        } else {
            LogError(kCategory, "ReadAllSessionData: failed to read user enclosure",
                     {{"userID", row.mUser}, {"enclosureID", row.mID}});
        }
    };
    return ReadRows({kCategory, "ReadAllSessionData: failed to read user enclosures"}, inDb, add,
                    kReadAllUserEnclosures);
}

bool IsLater(const RFC3339DateTime& inTime, const RFC3339DateTime& inThan)
{
    return inTime.IsValid() && (!inThan.IsValid() || inThan < inTime);
}

RFC3339DateTime LastModifiedTime(std::string_view inDTO)
{
    noxcore::serialization::JSONDocument document;
    std::string text;
    if (!document.Parse(inDTO) || !document.Root()["vy:lastModified"].GetString(text)) return {};
    return RFC3339DateTime::FromText(text);
}

}  // namespace

bool OpenSessionDatabase(const std::string& inFolder, DbPtr& outDb, bool& outIsNew)
{
    const auto with = [&](auto inOpen) {
        return [&outIsNew, inOpen](const std::string& inPath, DbPtr& outOpened) {
            return inOpen(inPath, outOpened, outIsNew);
        };
    };
    return OpenOrReplace({kCategory, "Can't open database"}, noxcore::filesupport::Join(inFolder, kSessionDatabaseName),
                         with(OpenAndCreate), with(OpenReplacement), outDb);
}

bool IsSoundSessionDatabase(const std::string& inFolder)
{
    const std::string path = noxcore::filesupport::Join(inFolder, kSessionDatabaseName);
    sqlite::Db db;
    sqlite::Statement check;
    if (!noxcore::filesupport::Files().FileExists(path) || db.Open16(path) != sqlite::kOK ||
        check.PrepareV2(db,
                        "SELECT quick_check='ok' AND (SELECT count(*) FROM sqlite_schema)>0 "
                        "FROM pragma_quick_check(1)") != sqlite::kOK)
        return false;
    return check.Step() == sqlite::kRow && check.ColumnInt64(0) == 1;
}

bool OpenSessionDatabaseInMemory(DbPtr& outDb)
{
    DbPtr db;
    bool isNew = false;
    const int result = OpenAndCreate(":memory:", db, isNew);
    outDb = result == sqlite::kOK ? db : nullptr;
    if (result == sqlite::kOK) return true;
    LogError(kCategory, "Can't open in-memory database", {{"main", result}, {"extended", db->ExtendedErrcode()}});
    return false;
}

bool WriteMediaLocator(Db& inDb, std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount)
{
    return Execute({kCategory, "Cannot write media locator into db"}, inDb, kWriteMediaLocator, inID, inDTO,
                   inChangeCount);
}

bool WriteMediaLocators(Db& inDb, std::span<const MediaLocatorRow> inRows, std::int64_t inChangeCount)
{
    sqlite::Transaction transaction(inDb);
    int result = transaction.Begin();
    if (result != sqlite::kOK) {
        LogFailure({kCategory, "WriteMediaLocators: Cannot open transaction"}, inDb, "BEGIN", result,
                   "result != sqlite::kOK");
        return false;
    }
    std::string_view command = kWriteMediaLocator;
    result = InsertMediaLocators(inDb, inRows, inChangeCount);
    if (result == sqlite::kDone) {
        command = kLastModifiedMediaLocator;
        result = RaiseLastModifiedTime(inDb, inRows);
    }
    if (result == sqlite::kDone) {
        command = "END";
        result = transaction.End();
        if (result == sqlite::kOK) return true;
    } else {
        LogFailure({kCategory, "WriteMediaLocators: Cannot insert into transaction"}, inDb, command, result);
    }
    const int extended = inDb.ExtendedErrcode();
    transaction.Rollback();
    LogError(kCategory, "Cannot write media locators into db",
             {{"command", command}, {"main", result}, {"extended", extended}, {"expression", "!result"}});
    return false;
}

bool TakeBackMediaLocators(Db& inDb, std::span<const MediaLocatorRow> inWritten, const RecordsBefore& inBefore)
{
    constexpr Failure kFailure{kCategory, "Cannot take back media locators"};
    sqlite::Transaction transaction(inDb);
    bool isDone = transaction.Begin() == sqlite::kOK;
    for (std::size_t place = 0; isDone && place < inWritten.size(); ++place) {
        const MediaLocatorRow& written = inWritten[place];
        const auto& before = inBefore[place];
        isDone = before ? Execute(kFailure, inDb, kTakeBackMediaLocator, before->mDTO, before->mChangeCount,
                                  written.mID, written.mDTO)
                        : Execute(kFailure, inDb, kRemoveMediaLocator, written.mID, written.mDTO);
    }
    if (isDone && transaction.End() == sqlite::kOK) return true;
    transaction.Rollback();
    return false;
}

bool UpdateMediaLocator(Db& inDb, std::string_view inID, std::string_view inDTO, std::int64_t inChangeCount)
{
    return Execute({kCategory, "Cannot update media locator"}, inDb, kUpdateMediaLocator, inDTO, inChangeCount, inID);
}

Lookup ReadMediaLocator(Db& inDb, std::string_view inID, StoredRecord& outRecord)
{
    const auto take = [&](const Statement& inRow) { outRecord = RecordOf(inRow); };
    return LookupOf(ReadRow(kCannotReadLocator, inDb, take, kReadMediaLocator, inID));
}

bool ReadMediaLocatorsByID(Db& inDb, std::span<const std::string_view> inIDs,
                           const std::function<void(std::size_t inPlace, const StoredRecord& inRecord)>& inVisitor)
{
    Statement statement;
    int result = statement.PrepareV2(inDb, kReadMediaLocator);
    if (result == sqlite::kOK) {
        for (const std::size_t place : PlacesInOrder(inIDs, std::identity())) {
            result = statement.BindText(1, inIDs[place]);
            if (result == sqlite::kOK) result = statement.Step();
            if (result == sqlite::kRow) inVisitor(place, RecordOf(statement));
            if (result != sqlite::kRow && result != sqlite::kDone) break;
            statement.Reset();
            result = sqlite::kOK;
        }
    }
    if (result == sqlite::kOK) return true;
    LogFailure(kCannotReadLocators, inDb, kReadMediaLocator, result);
    return false;
}

bool ReadMediaLocators(Db& inDb, std::vector<StoredRecord>& outRecords)
{
    return ReadRecords(kCannotReadLocators, inDb, outRecords, kReadMediaLocators);
}

bool ReadMediaLocatorsChangedAfter(Db& inDb, std::int64_t inChangeCount, std::vector<StoredRecord>& outRecords)
{
    if (inChangeCount == kNoChangeCount) return ReadMediaLocators(inDb, outRecords);
    return ReadRecords(kCannotReadLocators, inDb, outRecords, kReadMediaLocatorsAfter, inChangeCount);
}

bool CountMediaLocators(Db& inDb, std::int64_t& outCount)
{
    const auto take = [&](const Statement& inRow) { outCount = inRow.ColumnInt64(0); };
    return ReadRow(kCannotReadLocators, inDb, take, kCountMediaLocators) == Found::Yes;
}

bool WriteUserEnclosure(Db& inDb, std::string_view inUser, std::string_view inID, std::string_view inDTO,
                        std::string_view inContent, std::int64_t inChangeCount)
{
    return Execute({kCategory, "Cannot write user enclosure into db"}, inDb, kWriteUserEnclosure, inUser, inID, inDTO,
                   sqlite::Bytes{inContent}, inChangeCount);
}

bool UpdateUserEnclosure(Db& inDb, std::string_view inUser, std::string_view inID, std::string_view inDTO,
                         std::string_view inContent, std::int64_t inChangeCount)
{
    return Execute({kCategory, "Cannot update user enclosure"}, inDb, kUpdateUserEnclosure, inDTO,
                   sqlite::Bytes{inContent}, inChangeCount, inUser, inID);
}

Lookup ReadUserEnclosureContent(Db& inDb, std::string_view inUser, std::string_view inID, std::string& outContent)
{
    const auto take = [&](const Statement& inRow) { outContent = inRow.ColumnBlob(0); };
    return LookupOf(ReadRow(kCannotReadEnclosure, inDb, take, kReadUserEnclosureContent, inUser, inID));
}

Lookup ReadUserEnclosureMetadata(Db& inDb, std::string_view inUser, std::string_view inID, std::string& outDTO)
{
    const auto take = [&](const Statement& inRow) { outDTO = inRow.ColumnText(0); };
    return LookupOf(ReadRow(kCannotReadEnclosure, inDb, take, kReadUserEnclosureMetadata, inUser, inID));
}

bool ReadUserEnclosures(Db& inDb, std::string_view inUser, std::vector<StoredRecord>& outRecords)
{
    return ReadRecords(kCannotReadEnclosures, inDb, outRecords, kReadUserEnclosures, inUser);
}

bool ReadUserEnclosuresChangedAfter(Db& inDb, std::string_view inUser, std::int64_t inChangeCount,
                                    std::vector<StoredRecord>& outRecords)
{
    if (inChangeCount == kNoChangeCount) return ReadUserEnclosures(inDb, inUser, outRecords);
    return ReadRecords(kCannotReadEnclosures, inDb, outRecords, kReadUserEnclosuresAfter, inUser, inChangeCount);
}

bool DeleteUserEnclosure(Db& inDb, std::string_view inUser, std::string_view inID)
{
    return Execute({kCategory, "Cannot delete user enclosure"}, inDb, kDeleteUserEnclosure, inUser, inID);
}

bool ReadAllSessionData(Db& inDb, std::vector<StoredRecord>& outLocators,
                        std::vector<UserEnclosureRow>& outUserEnclosures, KeyValues& outKeyValues)
{
    std::vector<StoredRecord> locators;
    std::vector<UserEnclosureRow> enclosures;
    KeyValues keyValues;
    if (!ReadRecords({kCategory, "ReadAllSessionData: failed to read media locators"}, inDb, locators,
                     kReadMediaLocators) ||
        !ReadAllUserEnclosures(inDb, enclosures)) {
        return false;
    }
    const int result = KeyValueTable::ReadAll(
        inDb, [&](std::string_view inKey, std::string_view inValue) { keyValues.emplace(inKey, inValue); });
    if (result != sqlite::kDone) {
        LogError(kCategory, "ReadAllSessionData: failed to read key value table",
                 {{"main", result}, {"extended", inDb.ExtendedErrcode()}, {"expression", "result != sqlite::kDone"}});
        return false;
    }
    outLocators = std::move(locators);
    outUserEnclosures = std::move(enclosures);
    outKeyValues = std::move(keyValues);
    return true;
}

bool ReadChangeCount(Db& inDb, std::int64_t& outCount)
{
    return ReadNumber(inDb, kChangeCount, outCount);
}
bool WriteChangeCount(Db& inDb, std::int64_t inCount)
{
    return WriteNumber(inDb, kChangeCount, inCount);
}

std::string LastWrite::Text() const
{
    return std::to_string(mChangeCount) + (mFurther == 0 ? std::string() : "." + std::to_string(mFurther));
}

bool ReadLastWrite(Db& inDb, SideData inKind, LastWrite& outWrite)
{
    const std::string_view key = KeyOfLastWrite(inKind);
    std::string text;
    const int result = KeyValueTable::ReadValue(inDb, key, text);
    if (result != sqlite::kRow && result != sqlite::kDone) return FoundKey(inDb, key, result);
    outWrite = LastWriteFromText(text);
    return true;
}

bool WriteLastWrite(Db& inDb, SideData inKind, const LastWrite& inWrite)
{
    return WriteText(inDb, KeyOfLastWrite(inKind), inWrite.Text());
}

bool WriteLastWriteAndChangeCount(Db& inDb, SideData inKind, const LastWrite& inWrite)
{
    return WroteKey(inDb, kChangeCount,
                    KeyValueTable::WriteBoth(inDb, kChangeCount, std::to_string(inWrite.mChangeCount),
                                             KeyOfLastWrite(inKind), inWrite.Text()));
}

bool ReadBinCount(Db& inDb, std::string_view inRevision, std::int64_t& outCount)
{
    std::string revision;
    return ReadText(inDb, kBinCountRevision, revision) && revision == inRevision &&
           ReadNumber(inDb, kBinCount, outCount);
}
bool WriteBinCount(Db& inDb, std::string_view inRevision, std::int64_t inCount)
{
    return WroteKey(inDb, kBinCount,
                    KeyValueTable::WriteBoth(inDb, kBinCount, std::to_string(inCount), kBinCountRevision, inRevision));
}

bool ReadLastModifiedMediaLocatorTime(Db& inDb, RFC3339DateTime& outTime)
{
    std::string text;
    if (!ReadText(inDb, kLastModifiedMediaLocator, text)) return false;
    const RFC3339DateTime time = RFC3339DateTime::FromText(text);
    if (time.IsValid()) outTime = time;
    return time.IsValid();
}

bool WriteLastModifiedMediaLocatorTime(Db& inDb, const RFC3339DateTime& inTime)
{
    return WriteText(inDb, kLastModifiedMediaLocator, inTime.Text());
}

bool ReadSizeInfo(Db& inDb, dto::SizeInfo& outInfo)
{
    try {
        std::string json;
        if (!ReadText(inDb, kSizeInfo, json)) return false;
        dto::SizeInfo info;
        if (dto::FromJSON(json, info)) {
            outInfo = std::move(info);
            return true;
        }
        LogWarning(kCategory, "ReadSizeInfo: Cached record is not readable", {{"record", json}});
    } catch (const std::exception& exception) {
        LogError(kCategory, "ReadSizeInfo: Caught exception", {{"exception", exception.what()}});
    }
    return false;
}

bool WriteSizeInfo(Db& inDb, const dto::SizeInfo& inInfo)
{
    return WriteText(inDb, kSizeInfo, dto::ToJSON(inInfo));
}

bool ReadTemplateRecipients(Db& inDb, std::string& outRecipients)
{
    return ReadText(inDb, kTemplateRecipients, outRecipients);
}

bool WriteTemplateRecipients(Db& inDb, std::string_view inRecipients)
{
    return WriteText(inDb, kTemplateRecipients, inRecipients);
}

void CompareLastModifiedMediaLocatorTime(std::span<const std::string_view> inDTOs, RFC3339DateTime& ioNewest)
{
    // Rank None: a worker may hold it while its caller waits here with the session's mutexes.
    RecursiveMutex mutex;
    const auto compareShare = [&](std::size_t inIndex, std::size_t inCount) {
        RFC3339DateTime newest;
        for (std::size_t row = inIndex; row < inDTOs.size(); row += inCount) {
            const RFC3339DateTime time = LastModifiedTime(inDTOs[row]);
            if (IsLater(time, newest)) newest = time;
        }
        const ScopedLock lock(mutex);
        if (IsLater(newest, ioNewest)) ioNewest = newest;
    };
    if (inDTOs.size() < kLocatorsWorthSharing) {
        compareShare(0, 1);
    } else {
        noxcore::threads::ExecuteCPUBoundTaskOnAllProcessors(compareShare);
    }
}

}  // namespace VantryLocalHub::GitBox::Lyra2Db

#include "Inc/Model/Lyra2SyncDb.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxstorage/KeyValueTable.h"
#include "Src/Model/DatabaseCommands.h"

namespace VantryLocalHub::GitBox::Lyra2SyncDb {

using namespace DatabaseCommands;
namespace KeyValueTable = sqlite::KeyValueTable;
using noxcore::logging::LogError;

namespace {

constexpr std::string_view kCategory = "HubSync";

// Which remote sessions this session is or was linked to. Timestamp: ticks of 100 ns since 1970, of the making or the
// ending; ChangeCount: the session's change counter when the row was written, which orders the rows.
constexpr std::string_view kCreateRemoteAssociations =
    "CREATE TABLE IF NOT EXISTS RemoteAssociations (ServerURL TEXT, ProductionID TEXT, SessionID TEXT, Active INTEGER, "
    "Timestamp INTEGER, ChangeCount INTEGER, PRIMARY KEY (ServerURL, SessionID))";
// Which local commit equals which remote one. Timestamp and ChangeCount as above.
constexpr std::string_view kCreateSyncPointHistory =
    "CREATE TABLE IF NOT EXISTS SyncPointHistory (LocalCommitID TEXT, RemoteCommitID TEXT, Timestamp INTEGER, "
    "ServerURL TEXT, RemoteSessionID TEXT, ChangeCount INTEGER, PRIMARY KEY (LocalCommitID, RemoteCommitID) FOREIGN "
    "KEY(ServerURL, RemoteSessionID) REFERENCES RemoteAssociations(ServerURL, SessionID))";

constexpr std::string_view kAddAssociation =
    "INSERT INTO RemoteAssociations (ServerURL, ProductionID, SessionID, Active, Timestamp, ChangeCount) VALUES (?, ?, "
    "?, ?, ?, ?)";
constexpr std::string_view kReadCurrentAssociation =
    "SELECT ServerURL, ProductionID, SessionID, ChangeCount FROM RemoteAssociations WHERE Active=1 ORDER BY "
    "ChangeCount DESC LIMIT 1";
constexpr std::string_view kInvalidateAssociation =
    "UPDATE RemoteAssociations SET Active=0, Timestamp=? WHERE ServerURL=? AND ProductionID=? AND SessionID=?";

constexpr std::string_view kAddSyncPoint =
    "INSERT INTO SyncPointHistory (LocalCommitID, RemoteCommitID, Timestamp, ServerURL, RemoteSessionID, ChangeCount) "
    "VALUES (?, ?, ?, ?, ?, ?)";
constexpr std::string_view kRewriteServer = "UPDATE SyncPointHistory SET ServerURL=?";
constexpr std::string_view kReadByLocalRevision =
    "SELECT LocalCommitID, RemoteCommitID, Timestamp, RemoteSessionID FROM SyncPointHistory WHERE LocalCommitID=?";
constexpr std::string_view kReadByRemoteRevision =
    "SELECT LocalCommitID, RemoteCommitID, Timestamp, RemoteSessionID FROM SyncPointHistory WHERE RemoteCommitID=?";
constexpr std::string_view kReadLatest =
    "SELECT LocalCommitID, RemoteCommitID, SyncPointHistory.Timestamp, SyncPointHistory.RemoteSessionID, "
    "SyncPointHistory.ChangeCount FROM SyncPointHistory JOIN RemoteAssociations ON RemoteAssociations.ServerURL = "
    "SyncPointHistory.ServerURL AND RemoteAssociations.SessionID = SyncPointHistory.RemoteSessionID WHERE Active=1 "
    "ORDER BY SyncPointHistory.ChangeCount DESC LIMIT 1;";
constexpr std::string_view kReadRevisions =
    "SELECT LocalCommitID, RemoteCommitID FROM SyncPointHistory ORDER BY SyncPointHistory.ChangeCount";
constexpr std::string_view kReadCountOfRevision = "SELECT ChangeCount FROM SyncPointHistory WHERE RemoteCommitID=?";
constexpr std::string_view kReadHighestCount =
    "SELECT COALESCE(MAX(ChangeCount), -1) FROM (SELECT ChangeCount FROM SyncPointHistory UNION ALL "
    "SELECT ChangeCount FROM RemoteAssociations)";
constexpr std::string_view kRewind = "DELETE FROM SyncPointHistory WHERE ChangeCount>?";

// Keys of the key-value table.
constexpr std::string_view kMediaLocatorSyncChangeCount = "MediaLocatorSyncChangeCount";
constexpr std::string_view kUserEnclosureSyncChangeCount = "UserEnclosureSyncChangeCount";
constexpr std::string_view kUserEnclosureSyncEtag = "UserEnclosureSyncEtag";
constexpr std::string_view kDeleted = "Deleted";
constexpr std::string_view kUserID = "UserID";
constexpr std::string_view kCorvaneID = "CorvaneID";
constexpr std::string_view kSynchronization = "Synchronization";

constexpr Failure kCannotReadSyncPoints{kCategory, "Cannot read from sync point table"};

int CreateTables(Db& inDb)
{
    int result = inDb.ExecuteCmd(kCreateRemoteAssociations);
    if (result == sqlite::kOK) result = inDb.ExecuteCmd(kCreateSyncPointHistory);
    if (result == sqlite::kOK) result = KeyValueTable::CreateKeyValueTable(inDb);
    return result == sqlite::kDone ? sqlite::kOK : result;
}

int OpenAndCreate(const std::string& inPath, DbPtr& outDb)
{
    const int result = OpenSideDatabase(inPath, true, outDb);
    return result == sqlite::kOK ? CreateTables(*outDb) : result;
}

int OpenReplacement(const std::string& inPath, DbPtr& outDb)
{
    int result = OpenSideDatabase(inPath, true, outDb);
    if (result != sqlite::kOK) return result;
    sqlite::Transaction transaction(*outDb);
    result = transaction.Begin();
    if (result == sqlite::kOK) result = CreateTables(*outDb);
    if (result == sqlite::kOK) result = KeyValueTable::WriteValue(*outDb, kSynchronization, kModeLocalOnly);
    return result == sqlite::kDone ? transaction.End() : result;
}

bool LogKeyFailure(std::string_view inMessage, const Db& inDb, std::string_view inKey, int inResult)
{
    LogError(kCategory, inMessage, {{"key", inKey}, {"main", inResult}, {"extended", inDb.ExtendedErrcode()}});
    return false;
}

Found FoundKey(const Db& inDb, std::string_view inKey, int inResult)
{
    if (inResult == sqlite::kRow) return Found::Yes;
    if (inResult == sqlite::kDone) return Found::No;
    LogKeyFailure("Cannot read key from sync db", inDb, inKey, inResult);
    return Found::Failed;
}

Found FindText(Db& inDb, std::string_view inKey, std::string& outText)
{
    return FoundKey(inDb, inKey, KeyValueTable::ReadValue(inDb, inKey, outText));
}

bool ReadText(Db& inDb, std::string_view inKey, std::string& outText)
{
    return FindText(inDb, inKey, outText) == Found::Yes;
}

bool WriteText(Db& inDb, std::string_view inKey, std::string_view inText)
{
    const int result = KeyValueTable::WriteValue(inDb, inKey, inText);
    return result == sqlite::kDone || LogKeyFailure("Cannot write key into sync db", inDb, inKey, result);
}

/// The association alone, without the user's ids.
Found FindAssociation(Db& inDb, RemoteAssociation& outAssociation)
{
    const auto take = [&](const Statement& inRow) {
        outAssociation.mServerURL = inRow.ColumnText(0);
        outAssociation.mProductionID = inRow.ColumnText(1);
        outAssociation.mSessionID = inRow.ColumnText(2);
        outAssociation.mChangeCount = inRow.ColumnInt64(3);
    };
    return ReadRow({kCategory, "Cannot read from remote association table"}, inDb, take, kReadCurrentAssociation);
}

int InsertAssociation(Db& inDb, const AssociationForSync& inAssociation, std::int64_t inChangeCount)
{
    Statement statement;
    const int result = PrepareAndBindCmd(inDb, statement, kAddAssociation, inAssociation.mServerURL.View(),
                                         inAssociation.mProductionID.View(), inAssociation.mSessionID.View(), 1,
                                         inAssociation.mDate.Ticks(), inChangeCount);
    return result == sqlite::kOK ? statement.Step() : result;
}

SyncPoint PointOf(const Statement& inRow)
{
    SyncPoint point;
    point.mLocalRevision = inRow.ColumnText(0);
    point.mRemoteRevision = inRow.ColumnText(1);
    if (const std::int64_t ticks = inRow.ColumnInt64(2); ticks != 0) point.mDate = RFC3339DateTime(ticks);
    point.mRemoteSessionID = inRow.ColumnText(3);
    return point;
}

Found FindLatestSyncPoint(Db& inDb, SyncPoint& outPoint, std::int64_t& outChangeCount)
{
    const auto take = [&](const Statement& inRow) {
        outPoint = PointOf(inRow);
        outChangeCount = inRow.ColumnInt64(4);
    };
    return ReadRow(kCannotReadSyncPoints, inDb, take, kReadLatest);
}

bool ReadPoint(Db& inDb, SyncPoint& outPoint, std::string_view inCommand, std::string_view inRevision)
{
    const auto take = [&](const Statement& inRow) { outPoint = PointOf(inRow); };
    return ReadRow(kCannotReadSyncPoints, inDb, take, inCommand, inRevision) == Found::Yes;
}

std::string PointToJSON(const SyncPoint& inPoint)
{
    noxcore::serialization::JSONWriter writer;
    writer.BeginObject();
    writer.Member("remote", inPoint.mRemoteRevision);
    writer.Member("local", inPoint.mLocalRevision);
    writer.Member("date", inPoint.mDate.Text());
    writer.EndObject();
    return writer.TakeText();
}

std::string_view KeyOf(SideData inKind)
{
    return inKind == SideData::MediaLocators ? kMediaLocatorSyncChangeCount : kUserEnclosureSyncChangeCount;
}

}  // namespace

bool OpenSyncDatabase(const std::string& inFolder, DbPtr& outDb)
{
    try {
        outDb = nullptr;
        if (!noxcore::filesupport::Files().DirectoryExists(inFolder)) {
            LogError(kCategory, "Can't access session folder", {{"path", inFolder}});
            return false;
        }
        const std::string path = noxcore::filesupport::Join(inFolder, kSyncDatabaseName);
        return OpenOrReplace({kCategory, "Can't open session sync db"}, path, OpenAndCreate, OpenReplacement, outDb);
    } catch (const std::exception& exception) {
        LogError(kCategory, "OpenSyncDatabase: Caught exception", {{"exception", exception.what()}});
    }
    return false;
}

bool WriteAssociation(Db& inDb, const AssociationForSync& inAssociation, std::int64_t inChangeCount)
{
    sqlite::Transaction transaction(inDb);
    int result = transaction.Begin();
    if (result == sqlite::kOK) result = InsertAssociation(inDb, inAssociation, inChangeCount);
    if (result == sqlite::kDone) result = KeyValueTable::WriteValue(inDb, kSynchronization, kModeSynchronized);
    if (result == sqlite::kDone) result = KeyValueTable::WriteValue(inDb, kUserID, inAssociation.mUserID);
    if (result == sqlite::kDone) result = KeyValueTable::WriteValue(inDb, kCorvaneID, inAssociation.mCorvaneID);
    if (result == sqlite::kDone) result = transaction.End();
    if (result == sqlite::kOK) return true;
    LogError(kCategory, "Cannot write sync association into db",
             {{"remoteServer", inAssociation.mServerURL},
              {"remoteProductionID", inAssociation.mProductionID},
              {"main", result},
              {"extended", inDb.ExtendedErrcode()}});
    return false;
}

bool ReadCurrentRemoteAssociation(Db& inDb, RemoteAssociation& outAssociation)
{
    std::string user;
    std::string corvane;
    if (ReadText(inDb, kUserID, user)) outAssociation.mUserID = user;
    if (ReadText(inDb, kCorvaneID, corvane)) outAssociation.mCorvaneID = corvane;
    return FindAssociation(inDb, outAssociation) == Found::Yes;
}

bool InvalidateAssociation(Db& inDb, const AssociationForSync& inAssociation)
{
    return Execute({kCategory, "Cannot invalidate sync association in db"}, inDb, kInvalidateAssociation,
                   RFC3339DateTime::Now().Ticks(), inAssociation.mServerURL.View(), inAssociation.mProductionID.View(),
                   inAssociation.mSessionID.View());
}

bool WriteUserID(Db& inDb, std::string_view inUserID, std::string_view inCorvaneID)
{
    return WriteText(inDb, kUserID, inUserID) && WriteText(inDb, kCorvaneID, inCorvaneID);
}

bool WriteSyncPoint(Db& inDb, const RemoteAssociation& inAssociation, const SyncPoint& inPoint,
                    std::int64_t inChangeCount)
{
    Statement statement;
    int result = PrepareAndBindCmd(inDb, statement, kAddSyncPoint, inPoint.mLocalRevision.View(),
                                   inPoint.mRemoteRevision.View(), inPoint.mDate.Ticks(),
                                   inAssociation.mServerURL.View(), inAssociation.mSessionID.View(), inChangeCount);
    if (result == sqlite::kOK) result = statement.Step();
    if (result == sqlite::kDone) return true;
    LogError(kCategory, "Cannot write session sync point into db",
             {{"syncPoint", PointToJSON(inPoint)},
              {"command", kAddSyncPoint},
              {"main", result},
              {"extended", inDb.ExtendedErrcode()},
              {"expression", "result != sqlite::kDone"}});
    return false;
}

bool RewriteServerOfSyncPoints(Db& inDb, std::string_view inServerURL)
{
    return Execute({kCategory, "Cannot rewrite server of sync points in db"}, inDb, kRewriteServer, inServerURL);
}

bool ReadSyncPointForLocalRevision(Db& inDb, std::string_view inRevision, SyncPoint& outPoint)
{
    return ReadPoint(inDb, outPoint, kReadByLocalRevision, inRevision);
}

bool ReadSyncPointForRemoteRevision(Db& inDb, std::string_view inRevision, SyncPoint& outPoint)
{
    return ReadPoint(inDb, outPoint, kReadByRemoteRevision, inRevision);
}

bool ReadLatestSyncPoint(Db& inDb, SyncPoint& outPoint, std::int64_t& outChangeCount)
{
    return FindLatestSyncPoint(inDb, outPoint, outChangeCount) == Found::Yes;
}

bool ReadSyncPointRevisions(Db& inDb, std::vector<ImmutableString>& outLocal, std::vector<ImmutableString>& outRemote)
{
    std::vector<ImmutableString> local;
    std::vector<ImmutableString> remote;
    bool valid = true;
    const auto add = [&](const Statement& inRow) {
        const auto& left = local.emplace_back(inRow.ColumnText(0));
        const auto& right = remote.emplace_back(inRow.ColumnText(1));
        if (!left.empty() && !right.empty()) return;
        valid = false;
        LogError(kCategory, "Invalid sync point in history", {{"localRevision", left}, {"remoteRevision", right}});
    };
    if (!ReadRows(kCannotReadSyncPoints, inDb, add, kReadRevisions) || !valid) return false;
    outLocal = std::move(local);
    outRemote = std::move(remote);
    return true;
}

bool ReadChangeCountOfRemoteRevision(Db& inDb, std::string_view inRevision, std::int64_t& outChangeCount)
{
    // One remote revision may stand against several local ones; what is kept of it is kept whole.
    bool found = false;
    std::int64_t highest = 0;
    const auto take = [&](const Statement& inRow) {
        highest = found ? std::max(highest, inRow.ColumnInt64(0)) : inRow.ColumnInt64(0);
        found = true;
    };
    if (!ReadRows(kCannotReadSyncPoints, inDb, take, kReadCountOfRevision, inRevision) || !found) return false;
    outChangeCount = highest;
    return true;
}

bool RewindSyncPoints(Db& inDb, std::int64_t inChangeCount)
{
    return Execute({kCategory, "Cannot rewind sync points in db"}, inDb, kRewind, inChangeCount);
}

bool ReadSyncChangeCount(Db& inDb, SideData inKind, SyncChangeCount& outCount)
{
    SyncChangeCount count;
    const int result = KeyValueTable::ReadValueAs(inDb, KeyOf(inKind), count.mCount);
    if (FoundKey(inDb, KeyOf(inKind), result) == Found::Failed) return false;
    outCount = count;
    return true;
}

bool WriteSyncChangeCount(Db& inDb, SideData inKind, const SyncChangeCount& inCount)
{
    const int result = KeyValueTable::WriteValueAs(inDb, KeyOf(inKind), inCount.mCount);
    return result == sqlite::kDone || LogKeyFailure("Cannot write key into sync db", inDb, KeyOf(inKind), result);
}

bool ReadHighestChangeCount(Db& inDb, std::int64_t& outCount)
{
    std::int64_t highest = kNoChangeCount;
    const auto take = [&](const Statement& inRow) { highest = inRow.ColumnInt64(0); };
    if (ReadRow(kCannotReadSyncPoints, inDb, take, kReadHighestCount) != Found::Yes) return false;
    for (const SideData kind : {SideData::MediaLocators, SideData::UserEnclosures}) {
        SyncChangeCount exchanged;
        if (!ReadSyncChangeCount(inDb, kind, exchanged)) return false;
        highest = std::max(highest, exchanged.mCount);
    }
    outCount = highest;
    return true;
}

bool WriteUserEnclosureSyncEtag(Db& inDb, std::string_view inEtag)
{
    return WriteText(inDb, kUserEnclosureSyncEtag, inEtag);
}

bool ReadDeletedDate(Db& inDb, std::string& outDate)
{
    return ReadText(inDb, kDeleted, outDate);
}

bool WriteDeletedDate(Db& inDb, std::string_view inDate)
{
    return WriteText(inDb, kDeleted, inDate);
}

bool RemoveDeletedDate(Db& inDb)
{
    const int result = KeyValueTable::RemoveKey(inDb, kDeleted);
    return result == sqlite::kDone || LogKeyFailure("Cannot remove key from sync db", inDb, kDeleted, result);
}

bool ReadLocalOnly(Db& inDb, bool& outLocalOnly)
{
    std::string mode;
    if (FindText(inDb, kSynchronization, mode) == Found::Failed) return false;
    outLocalOnly = mode == kModeLocalOnly;
    return true;
}

bool ReadLinkState(Db& inDb, LinkState& outState)
{
    LinkState state;
    std::string user;
    std::string corvane;
    if (!ReadLocalOnly(inDb, state.mLocalOnly) || FindText(inDb, kUserID, user) == Found::Failed ||
        FindText(inDb, kCorvaneID, corvane) == Found::Failed) {
        return false;
    }
    state.mAssociation.mUserID = user;
    state.mAssociation.mCorvaneID = corvane;
    const Found association = FindAssociation(inDb, state.mAssociation);
    if (association == Found::Failed) return false;
    state.mAssociated = association == Found::Yes;
    std::int64_t count = 0;
    if (state.mAssociated && FindLatestSyncPoint(inDb, state.mSyncPoint, count) == Found::Failed) return false;
    outState = std::move(state);
    return true;
}

bool WriteSynchronizationMode(Db& inDb, std::string_view inMode)
{
    return WriteText(inDb, kSynchronization, inMode);
}

}  // namespace VantryLocalHub::GitBox::Lyra2SyncDb

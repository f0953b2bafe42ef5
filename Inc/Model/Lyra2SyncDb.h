#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Inc/Model/ProjectBoxSyncDb.h"
#include "Platform/noxstorage/SQLite.h"

/// The sync database, `sync.sqlite3` in a session's folder, as SQL: remote associations, sync points, and a table of
/// marks and modes. GitBox::SyncDb puts the lock and the session's change counter around these functions.
///
/// Each takes an open database and returns true on success. A failed command is logged under "HubSync"; a read that
/// finds nothing returns false without a record. Out arguments keep their value unless true is returned.
/// Threading: no lock of its own.
namespace VantryLocalHub::GitBox::Lyra2SyncDb {

using Db = noxstorage::sqlite::Db;
using DbPtr = std::shared_ptr<Db>;

constexpr std::string_view kSyncDatabaseName = "sync.sqlite3";

/// Opens or creates the database of a session folder and makes what it lacks. The folder itself must be there. outDb is
/// null after a failure. A damaged file is put aside under another name, and the one in its place says "localOnly":
/// what the session was linked to is not known any more, and nothing of it leaves before it is linked anew.
bool OpenSyncDatabase(const std::string& inFolder, DbPtr& outDb);

/// The association, the mode and the user's ids, all or none.
bool WriteAssociation(Db& inDb, const AssociationForSync& inAssociation, std::int64_t inChangeCount);
/// The user's two ids are given even where false is returned.
bool ReadCurrentRemoteAssociation(Db& inDb, RemoteAssociation& outAssociation);
/// True as well when there is no such association.
bool InvalidateAssociation(Db& inDb, const AssociationForSync& inAssociation);
bool WriteUserID(Db& inDb, std::string_view inUserID, std::string_view inCorvaneID);

/// The association must be in the database.
bool WriteSyncPoint(Db& inDb, const RemoteAssociation& inAssociation, const SyncPoint& inPoint,
                    std::int64_t inChangeCount);
/// Moves every sync point to another address of the hub. The associations of all their sessions must be there under
/// that address already.
bool RewriteServerOfSyncPoints(Db& inDb, std::string_view inServerURL);
bool ReadSyncPointForLocalRevision(Db& inDb, std::string_view inRevision, SyncPoint& outPoint);
bool ReadSyncPointForRemoteRevision(Db& inDb, std::string_view inRevision, SyncPoint& outPoint);
/// The newest sync point whose association is active.
bool ReadLatestSyncPoint(Db& inDb, SyncPoint& outPoint, std::int64_t& outChangeCount);
/// Both revisions of all sync points, oldest first. Fails as a whole when one of them is empty.
bool ReadSyncPointRevisions(Db& inDb, std::vector<ImmutableString>& outLocal, std::vector<ImmutableString>& outRemote);
/// The highest change count among the sync points of a remote revision.
bool ReadChangeCountOfRemoteRevision(Db& inDb, std::string_view inRevision, std::int64_t& outChangeCount);
/// Forgets the sync points after a change count.
bool RewindSyncPoints(Db& inDb, std::int64_t inChangeCount);

/// True with the none value where nothing is stored.
bool ReadSyncChangeCount(Db& inDb, SideData inKind, SyncChangeCount& outCount);
bool WriteSyncChangeCount(Db& inDb, SideData inKind, const SyncChangeCount& inCount);
/// The highest of the session's change counts that stand anywhere in the database; kNoChangeCount where none does.
bool ReadHighestChangeCount(Db& inDb, std::int64_t& outCount);
bool WriteUserEnclosureSyncEtag(Db& inDb, std::string_view inEtag);

bool ReadDeletedDate(Db& inDb, std::string& outDate);
bool WriteDeletedDate(Db& inDb, std::string_view inDate);
bool RemoveDeletedDate(Db& inDb);

constexpr std::string_view kModeSynchronized = "synchronized";
constexpr std::string_view kModeLocalOnly = "localOnly";
/// False only when the database cannot be read; a mode that was never written is not local only.
bool ReadLocalOnly(Db& inDb, bool& outLocalOnly);
/// False only when the database cannot be read.
bool ReadLinkState(Db& inDb, LinkState& outState);
bool WriteSynchronizationMode(Db& inDb, std::string_view inMode);

}  // namespace VantryLocalHub::GitBox::Lyra2SyncDb

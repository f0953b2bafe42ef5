#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Inc/Model/Lyra2SyncDb.h"
#include "Inc/Model/ProjectBoxSyncDb.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub::GitBox {

/// What a sync database needs of the session it belongs to. Called with no lock of the sync database held.
class SyncDbSandbox
{
public:
    virtual ~SyncDbSandbox() = default;
    /// Moves the session's change counter on and gives its new value.
    virtual bool IncrementChangeCount(std::int64_t& outCount) = 0;
    /// The session's folder.
    [[nodiscard]] virtual std::string GetFolder() const = 0;
    /// A single-file project keeps no change counter.
    [[nodiscard]] virtual bool IsRope() const = 0;
    [[nodiscard]] virtual ImmutableString GetLocalSessionID() const = 0;
};

/// The sync database of one session folder: opened on first use, shared by everybody who uses it, closed when it was
/// released and its last user has gone.
///
/// A write that is ordered by the change counter takes the counter first, then this object's mutex, then runs its SQL;
/// one that fails leaves a gap in the count, which is harmless.
/// Threading: any thread. mMutex guards the handles and is held over the SQL (rank SyncDb).
class SyncDb final : public ProjectBoxSyncDb
{
public:
    using DbPtr = Lyra2SyncDb::DbPtr;

    /// Nothing is opened until the sandbox is set, and after it has gone or was taken away.
    void SetSandbox(std::weak_ptr<SyncDbSandbox> inSandbox);
    [[nodiscard]] std::shared_ptr<SyncDbSandbox> GetSandbox() const;
    /// The live connection: the one in use, else one that a user still holds, else a new one.
    bool RetainDb(DbPtr& outDb);

    bool ReadMediaLocatorSyncChangeCount(SyncChangeCount& outCount);
    bool ReadUserEnclosureSyncChangeCount(SyncChangeCount& outCount);
    /// The highest change count that this database knows of: the counter must not stand below it.
    bool ReadHighestChangeCount(std::int64_t& outCount);

    void ReleaseDb() override;
    bool ReadCurrentRemoteAssociation(RemoteAssociation& outAssociation) override;
    bool ReadLatestSyncPoint(SyncPoint& outPoint) override;
    bool WriteUserID(const ImmutableString& inUserID, const ImmutableString& inCorvaneID) override;
    bool WriteAssociationForSync(const AssociationForSync& inAssociation) override;
    bool InvalidateAssociationForSync(const AssociationForSync& inAssociation) override;
    bool WriteSyncPoint(const SyncPoint& inPoint, std::int64_t& outChangeCount) override;
    bool ReadSyncPointForLocalRevision(const ImmutableString& inRevision, SyncPoint& outPoint) override;
    bool ReadSyncPointForRemoteRevision(const ImmutableString& inRevision, SyncPoint& outPoint) override;
    bool ReadSyncPointRevisions(std::vector<ImmutableString>& outLocal,
                                std::vector<ImmutableString>& outRemote) override;
    bool SetMediaLocatorSyncChangeCount(const SyncChangeCount& inCount) override;
    bool ResetMediaLocatorSyncChangeCount() override;
    bool SetUserEnclosureSyncChangeCount(const SyncChangeCount& inCount) override;
    bool ResetUserEnclosureSyncChangeCount() override;
    bool SetUserEnclosureSyncEtag(const ImmutableString& inEtag) override;
    bool ReadDeletedDate(std::string& outDate) override;
    bool WriteDeletedDate(const std::string& inDate) override;
    bool RemoveDeletedDate() override;
    bool ResolveRestoredRemoteRevision(const ImmutableString& inRemoteRevision,
                                       ImmutableString& outLatestRemoteRevision) override;
    bool IsLocalOnly() override;
    bool WriteSynchronizedMode() override;
    bool WriteLocalOnlyMode() override;
    bool ReadLocalOnly(bool& outLocalOnly) override;
    bool ReadLinkState(LinkState& outState) override;

private:
    using Db = Lyra2SyncDb::Db;

    /// Runs a function on the live connection, under the mutex.
    template <class Function>
    bool WithDb(const Function& inFunction);
    /// The same with the next change count, which is taken before.
    template <class Function>
    bool WithDbAndNextChangeCount(const Function& inFunction);
    /// inFolder is empty when the sandbox has gone.
    bool RetainDbLocked(const std::string& inFolder, DbPtr& outDb) REQUIRES(mMutex);
    bool RaiseSyncChangeCount(SideData inKind, const SyncChangeCount& inCount);

    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::SyncDb};
    std::weak_ptr<SyncDbSandbox> mSandbox GUARDED_BY(mMutex);
    DbPtr mDb GUARDED_BY(mMutex);                      ///< keeps the connection open between operations
    std::weak_ptr<Db> mReleasedDb GUARDED_BY(mMutex);  ///< the connection that mDb last held, while anybody uses it
};

}  // namespace VantryLocalHub::GitBox

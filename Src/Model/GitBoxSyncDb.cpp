#include "Inc/Model/GitBoxSyncDb.h"

#include <utility>

#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub::GitBox {

using noxcore::logging::LogError;
using noxcore::logging::LogInformation;
using noxcore::logging::LogWarning;
using noxcore::threads::ScopedLock;

namespace {

constexpr std::string_view kCategory = "HubSync";

std::string FolderOf(const std::shared_ptr<SyncDbSandbox>& inSandbox)
{
    return inSandbox != nullptr ? inSandbox->GetFolder() : std::string();
}

bool ReadLatestRemoteRevision(Lyra2SyncDb::Db& inDb, ImmutableString& outRevision)
{
    SyncPoint latest;
    std::int64_t count = 0;
    if (!Lyra2SyncDb::ReadLatestSyncPoint(inDb, latest, count)) return false;
    outRevision = latest.mRemoteRevision;
    return true;
}

// False only when the rewinding itself fails.
bool RewindToRemoteRevision(Lyra2SyncDb::Db& inDb, const ImmutableString& inRevision)
{
    std::int64_t count = 0;
    SyncPoint latest;
    std::int64_t latestCount = 0;
    if (!Lyra2SyncDb::ReadChangeCountOfRemoteRevision(inDb, inRevision, count) ||
        !Lyra2SyncDb::ReadLatestSyncPoint(inDb, latest, latestCount) || latestCount <= count) {
        return true;
    }
    LogInformation(kCategory, "Rewinding sync history",
                   {{"latestChangeCount", latestCount},
                    {"latestRevision", latest.mRemoteRevision},
                    {"rewoundChangeCount", count},
                    {"rewoundRevision", inRevision}});
    return Lyra2SyncDb::RewindSyncPoints(inDb, count);
}

}  // namespace

void SyncDb::SetSandbox(std::weak_ptr<SyncDbSandbox> inSandbox)
{
    const ScopedLock lock(mMutex);
    mSandbox = std::move(inSandbox);
}

std::shared_ptr<SyncDbSandbox> SyncDb::GetSandbox() const
{
    const ScopedLock lock(mMutex);
    return mSandbox.lock();
}

bool SyncDb::RetainDb(DbPtr& outDb)
{
    const std::string folder = FolderOf(GetSandbox());
    const ScopedLock lock(mMutex);
    return RetainDbLocked(folder, outDb);
}

bool SyncDb::RetainDbLocked(const std::string& inFolder, DbPtr& outDb)
{
    if (mDb == nullptr) mDb = mReleasedDb.lock();
    // The sandbox may have been taken away since its folder was asked for.
    const bool isThere = !inFolder.empty() && !mSandbox.expired();
    if (mDb == nullptr && (!isThere || !Lyra2SyncDb::OpenSyncDatabase(inFolder, mDb))) {
        LogError(kCategory, "Failed to retain sync database", {{"path", inFolder}, {"expression", "!result"}});
        return false;
    }
    mReleasedDb = mDb;
    outDb = mDb;
    return true;
}

void SyncDb::ReleaseDb()
{
    // Whoever holds the mutex is using the handle, so that there is nothing to release yet.
    if (!mMutex.TryLock()) return;
    // Closing writes the log back into the database; that needs no lock of ours.
    const DbPtr last = std::move(mDb);
    mMutex.Unlock();
}

template <class Function>
bool SyncDb::WithDb(const Function& inFunction)
{
    const std::string folder = FolderOf(GetSandbox());
    const ScopedLock lock(mMutex);
    DbPtr db;
    return RetainDbLocked(folder, db) && inFunction(*db);
}

template <class Function>
bool SyncDb::WithDbAndNextChangeCount(const Function& inFunction)
{
    const auto sandbox = GetSandbox();
    if (sandbox == nullptr) {
        LogError(kCategory, "Sync database has no sandbox");
        return false;
    }
    std::int64_t count = 0;
    if (!sandbox->IsRope() && !sandbox->IncrementChangeCount(count)) return false;
    return WithDb([&](Db& inDb) { return inFunction(inDb, count); });
}

bool SyncDb::ReadMediaLocatorSyncChangeCount(SyncChangeCount& outCount)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::ReadSyncChangeCount(inDb, SideData::MediaLocators, outCount); });
}

bool SyncDb::ReadUserEnclosureSyncChangeCount(SyncChangeCount& outCount)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::ReadSyncChangeCount(inDb, SideData::UserEnclosures, outCount); });
}

bool SyncDb::ReadHighestChangeCount(std::int64_t& outCount)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::ReadHighestChangeCount(inDb, outCount); });
}

bool SyncDb::ReadCurrentRemoteAssociation(RemoteAssociation& outAssociation)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::ReadCurrentRemoteAssociation(inDb, outAssociation); });
}

bool SyncDb::ReadLatestSyncPoint(SyncPoint& outPoint)
{
    std::int64_t count = 0;
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::ReadLatestSyncPoint(inDb, outPoint, count); });
}

bool SyncDb::WriteUserID(const ImmutableString& inUserID, const ImmutableString& inCorvaneID)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::WriteUserID(inDb, inUserID, inCorvaneID); });
}

bool SyncDb::WriteAssociationForSync(const AssociationForSync& inAssociation)
{
    return WithDbAndNextChangeCount(
        [&](Db& inDb, std::int64_t inCount) { return Lyra2SyncDb::WriteAssociation(inDb, inAssociation, inCount); });
}

bool SyncDb::InvalidateAssociationForSync(const AssociationForSync& inAssociation)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::InvalidateAssociation(inDb, inAssociation); });
}

bool SyncDb::WriteSyncPoint(const SyncPoint& inPoint, std::int64_t& outChangeCount)
{
    return WithDbAndNextChangeCount([&](Db& inDb, std::int64_t inCount) {
        RemoteAssociation association;
        if (!Lyra2SyncDb::ReadCurrentRemoteAssociation(inDb, association)) {
            LogError(kCategory, "Cannot read current remote association from db");
            return false;
        }
        if (!Lyra2SyncDb::WriteSyncPoint(inDb, association, inPoint, inCount)) return false;
        // The point stands whatever becomes of the mode: a caller told of a failure would write it a second time.
        Lyra2SyncDb::WriteSynchronizationMode(inDb, Lyra2SyncDb::kModeSynchronized);
        outChangeCount = inCount;
        return true;
    });
}

bool SyncDb::ReadSyncPointForLocalRevision(const ImmutableString& inRevision, SyncPoint& outPoint)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::ReadSyncPointForLocalRevision(inDb, inRevision, outPoint); });
}

bool SyncDb::ReadSyncPointForRemoteRevision(const ImmutableString& inRevision, SyncPoint& outPoint)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::ReadSyncPointForRemoteRevision(inDb, inRevision, outPoint); });
}

bool SyncDb::ReadSyncPointRevisions(std::vector<ImmutableString>& outLocal, std::vector<ImmutableString>& outRemote)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::ReadSyncPointRevisions(inDb, outLocal, outRemote); });
}

bool SyncDb::RaiseSyncChangeCount(SideData inKind, const SyncChangeCount& inCount)
{
    const auto sandbox = GetSandbox();
    const ImmutableString session = sandbox != nullptr ? sandbox->GetLocalSessionID() : ImmutableString();
    return WithDb([&](Db& inDb) {
        SyncChangeCount stored;
        if (!Lyra2SyncDb::ReadSyncChangeCount(inDb, inKind, stored)) return false;
        if (stored.IsNone() || !inCount.IsWithin(stored)) {
            return Lyra2SyncDb::WriteSyncChangeCount(inDb, inKind, inCount);
        }
        LogWarning(
            kCategory,
            inKind == SideData::MediaLocators
                ? "Attempting to update media locator change count to an older change count"
                : "Attempting to update user enclosure change count to an older change count",
            {{"inChangeCount", inCount.Text()}, {"syncChangeCount", stored.Text()}, {"localSessionID", session}});
        return true;
    });
}

bool SyncDb::SetMediaLocatorSyncChangeCount(const SyncChangeCount& inCount)
{
    return RaiseSyncChangeCount(SideData::MediaLocators, inCount);
}

bool SyncDb::ResetMediaLocatorSyncChangeCount()
{
    return WithDb(
        [](Db& inDb) { return Lyra2SyncDb::WriteSyncChangeCount(inDb, SideData::MediaLocators, SyncChangeCount()); });
}

bool SyncDb::SetUserEnclosureSyncChangeCount(const SyncChangeCount& inCount)
{
    return RaiseSyncChangeCount(SideData::UserEnclosures, inCount);
}

bool SyncDb::ResetUserEnclosureSyncChangeCount()
{
    return WithDb(
        [](Db& inDb) { return Lyra2SyncDb::WriteSyncChangeCount(inDb, SideData::UserEnclosures, SyncChangeCount()); });
}

bool SyncDb::SetUserEnclosureSyncEtag(const ImmutableString& inEtag)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::WriteUserEnclosureSyncEtag(inDb, inEtag); });
}

bool SyncDb::ReadDeletedDate(std::string& outDate)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::ReadDeletedDate(inDb, outDate); });
}

bool SyncDb::WriteDeletedDate(const std::string& inDate)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::WriteDeletedDate(inDb, inDate); });
}

bool SyncDb::RemoveDeletedDate()
{
    return WithDb([](Db& inDb) { return Lyra2SyncDb::RemoveDeletedDate(inDb); });
}

bool SyncDb::ResolveRestoredRemoteRevision(const ImmutableString& inRemoteRevision,
                                           ImmutableString& outLatestRemoteRevision)
{
    return WithDb([&](Db& inDb) {
        return RewindToRemoteRevision(inDb, inRemoteRevision) &&
               ReadLatestRemoteRevision(inDb, outLatestRemoteRevision);
    });
}

bool SyncDb::IsLocalOnly()
{
    bool localOnly = true;
    ReadLocalOnly(localOnly);
    return localOnly;
}

bool SyncDb::WriteSynchronizedMode()
{
    return WithDb([](Db& inDb) { return Lyra2SyncDb::WriteSynchronizationMode(inDb, Lyra2SyncDb::kModeSynchronized); });
}

bool SyncDb::WriteLocalOnlyMode()
{
    return WithDb([](Db& inDb) { return Lyra2SyncDb::WriteSynchronizationMode(inDb, Lyra2SyncDb::kModeLocalOnly); });
}

bool SyncDb::ReadLocalOnly(bool& outLocalOnly)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::ReadLocalOnly(inDb, outLocalOnly); });
}

bool SyncDb::ReadLinkState(LinkState& outState)
{
    return WithDb([&](Db& inDb) { return Lyra2SyncDb::ReadLinkState(inDb, outState); });
}

}  // namespace VantryLocalHub::GitBox

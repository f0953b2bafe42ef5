#include "Inc/Model/GitBoxSandbox.h"

#include <utility>

#include "Client/VYClient/UTF16.h"
#include "Inc/Model/Lyra2Db.h"
#include "Inc/Model/RopeFileDb.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/Murmur3.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxstorage/RopeFileHold.h"

namespace VantryLocalHub::GitBox {

namespace git = noxstorage::git;
using noxcore::logging::LogError;
using noxcore::threads::ScopedLock;

Sandbox::Sandbox(std::string inFolder, std::string inRopeFile, const dto::Session& inSession, IDs inIDs)
    : mFolder(std::move(inFolder)),
      mRopeFile(std::move(inRopeFile)),
      mSessionID(inSession.mIdentifier),
      mProductionID(inSession.mProductionID),
      mIDs(inIDs)
{
    BeginHistoryGeneration();
}

void Sandbox::BeginHistoryGeneration()
{
    static std::atomic<std::uint64_t> sLast{0};
    mHistoryGeneration = ++sLast;
}

void Sandbox::SetIDsForExtractedSnapshot(const std::string& inFolder, dto::Session& ioSession)
{
    const std::u16string path = VYCL::ToUTF16(inFolder);
    noxcore::utility::Murmur3 hash;
    hash.Add("SetIDsForExtractedSnapshot");
    hash.Add(path.data(), path.size() * sizeof(char16_t));
    const std::string id = noxcore::utility::Guid(hash.Finish()).Text();
    ioSession.mIdentifier = "sn-" + id;
    ioSession.mProductionID = "p-" + id;
}

void Sandbox::SetIDsForExtractedTemplate(dto::Session& ioSession)
{
    const std::string id = noxcore::utility::Guid::CreateUnique().Text();
    ioSession.mIdentifier = id;
    ioSession.mProductionID = "p-" + id;
}

std::shared_ptr<Sandbox> Sandbox::Create(std::string inFolder, dto::Session inSession, Handles inHandles, IDs inIDs)
{
    if (inIDs == IDs::OfExtractedSnapshot) SetIDsForExtractedSnapshot(inFolder, inSession);
    if (inIDs == IDs::OfExtractedTemplate) SetIDsForExtractedTemplate(inSession);
    std::shared_ptr<Sandbox> sandbox(new Sandbox(std::move(inFolder), {}, inSession, inIDs));
    {
        const ScopedLock lock(sandbox->mMainMutex);
        sandbox->mSession = inSession;
        sandbox->mProduction = inSession;
        sandbox->mProduction.mRevision = inSession.mProductionRevision;
    }
    sandbox->InitFromRepoAndDb(std::move(inHandles));
    return sandbox;
}

Sandbox::~Sandbox()
{
    const ScopedLock lock(mMainMutex);
    StoreBinCountLocked({mRepo, mDb});
    mRepo = nullptr;
    DropSideFolderLocked();
}

void Sandbox::InitFromRepoAndDb(Handles inHandles)
{
    RaiseLastUsed();
    const ScopedLock lock(mMainMutex);
    mRepo = std::move(inHandles.mRepo);
    mDb = std::move(inHandles.mDb);
    mWeakRepo = mRepo;
    mWeakDb = mDb;
    if (!mRepo) return;
    dto::RawJSON properties;
    RFC3339DateTime time;
    if (IO::ReadSessionProperties(mRepo, mProduction.mRevision, properties, time)) {
        mProduction.mProperties = std::move(properties);
        mProduction.mModified = time;
    }
}

void Sandbox::RaiseLastUsed()
{
    const std::int64_t now = noxcore::HubContext::Current()->GetClock().MonotonicTicks();
    std::int64_t seen = mLastUsed.load(std::memory_order_relaxed);
    while (seen < now && !mLastUsed.compare_exchange_weak(seen, now, std::memory_order_relaxed)) {
    }
}

bool Sandbox::HasStrongHandlesLocked() const
{
    return mRepo && (mDb || IsRope()) && !mRepo->NeedsReopen();
}

bool Sandbox::RetainDB(Handles& outHandles)
{
    RaiseLastUsed();
    const ScopedLock lock(mMainMutex);
    if (mDeleted || (!HasStrongHandlesLocked() && !OpenLocked(outHandles))) {
        LogError("GitBox", "GitBox: Failed to retain session database",
                 {{"sessionID", mSessionID},
                  {"sessionRevision", mSession.mRevision},
                  {"path", mFolder},
                  {"expression", "!result"}});
        return false;
    }
    outHandles = {mRepo, mDb};
    return true;
}

bool Sandbox::OpenLocked(Handles& outHandles)
{
    // After a failed sync what the file holds can only be told by opening it anew, once the last user of the old handle
    // has gone: until then this fails.
    if (mRepo && mRepo->NeedsReopen()) {
        mBinCount.reset();
        mRepo = nullptr;
    }
    if (IsRope()) return OpenRopeLocked(outHandles);
    // An operation that still runs keeps the objects alive: they are taken up again.
    auto repo = mWeakRepo.lock();
    auto db = mWeakDb.lock();
    if (repo && repo->NeedsReopen()) repo.reset();
    bool isNewDb = false;
    if (!db && !Lyra2Db::OpenSessionDatabase(mFolder, db, isNewDb)) return false;
    if (isNewDb) ForgetSideData();
    if (!repo) {
        dto::Session session;
        if (!IO::ReadSessionRepo(mFolder, repo, session)) return false;
        if (mIDs != IDs::Own) {
            session.mIdentifier = mSessionID;
            session.mProductionID = mProductionID;
        }
        if (session.mIdentifier != mSessionID) return false;
        // The heads may have moved: a commit whose sync failed may be there after all.
        if (session.mRevision != mSession.mRevision) mBinCount.reset();
        mSession = session;
        mProduction.mRevision = session.mProductionRevision;
        IO::ReadSessionProperties(repo, mProduction.mRevision, mProduction.mProperties, mProduction.mModified);
    }
    mRepo = std::move(repo);
    mDb = std::move(db);
    mWeakRepo = mRepo;
    mWeakDb = mDb;
    outHandles = {mRepo, mDb};
    return true;
}

bool Sandbox::ReleaseDB()
{
    RaiseLastUsed();
    ClearCaches();
    IO::DbPtr dropped;  // closed after the mutex was given back
    std::shared_ptr<SyncDb> syncDb;
    bool isReleased = false;
    if (!mMainMutex.TryLock()) return false;
    // While the repository is in use, or content that waits cannot be written, everything stays. It is closed before
    // the mutex is given back: whoever comes next may open it.
    if (mRepo && mRepo.use_count() == 1 && (mRepo->NeedsReopen() || git::TryFlushObjects(mRepo))) {
        StoreBinCountLocked({mRepo, mDb});
        // The head may be another than the record says: what is opened next is read.
        if (mRepo->NeedsReopen()) mBinCount.reset();
        mRepo = nullptr;
        DropSideFolderLocked();
        dropped = std::exchange(mDb, nullptr);
        syncDb = mSyncDb;
        isReleased = true;
        // A file may be moved while it is closed, and another put in its place.
        if (IsRope()) {
            BeginHistoryGeneration();
            mReleasedFile = git::RopeBackends::StateOf(mRopeFile);
        }
    }
    mMainMutex.Unlock();
    if (syncDb) syncDb->ReleaseDb();
    return isReleased;
}

void Sandbox::ClearCaches()
{
    mDifferenceCache.TryClear();
    mOutgoingCache.TryClear();
    mAssetCache.TryClear();
    mEnclosureCache.TryClear();
    if (IsRope()) BeginHistoryGeneration();
}

void Sandbox::NoteDeleted()
{
    const ScopedLock write(mWriteMutex);
    const ScopedLock lock(mMainMutex);
    mDeleted = true;
    mRopeSyncDb.reset();
    if (mSyncDb) mSyncDb->SetSandbox({});
}

std::shared_ptr<ProjectBoxSyncDb> Sandbox::GetSyncDb()
{
    Handles handles;
    if (!RetainDB(handles)) LogError("GitBox", "GetSyncDb: RetainDB failed, mRepo may not be in usable state.");
    if (IsRope()) return ShareRopeSyncDb();
    return ShareSyncDb();
}

std::shared_ptr<SyncDb> Sandbox::ShareSyncDb()
{
    const ScopedLock lock(mMainMutex);
    if (!mSyncDb) {
        auto syncDb = std::make_shared<SyncDb>();
        if (!mDeleted) syncDb->SetSandbox(weak_from_this());
        mSyncDb = std::move(syncDb);
    }
    return mSyncDb;
}

bool Sandbox::IncrementChangeCount(std::int64_t& outCount)
{
    if (IsRope()) return true;
    SideDataHandles handles;
    if (!RetainSideData(handles)) return false;
    const ScopedLock lock(mChangeMutex);
    std::int64_t count = 0;
    if (!LoadChangeCountLocked(handles, count) || !Lyra2Db::WriteChangeCount(handles.Counts(), count + 1)) {
        LogChangeCountFailure();
        return false;
    }
    mChangeCount = count + 1;
    outCount = count + 1;
    return true;
}

bool Sandbox::IsLocalOnly()
{
    {
        const ScopedLock lock(mMainMutex);
        if (mLocalOnly) return *mLocalOnly;
    }
    bool localOnly = true;
    if (!GetSyncDb()->ReadLocalOnly(localOnly)) return true;
    const ScopedLock lock(mMainMutex);
    mLocalOnly = localOnly;
    return localOnly;
}

bool Sandbox::SetLocalOnly(bool inLocalOnly)
{
    const auto syncDb = GetSyncDb();
    bool written = inLocalOnly ? syncDb->WriteLocalOnlyMode() : syncDb->WriteSynchronizedMode();
    // A project that stays here belongs to nobody at the remote hub.
    if (written && inLocalOnly && IsRope()) written = ShareRopeSyncDb()->RemoveUserIDs();
    const ScopedLock lock(mMainMutex);
    // Of two writes the first may stand alone: then the file tells.
    mLocalOnly.reset();
    if (written) mLocalOnly = inLocalOnly;
    return written;
}

void Sandbox::ForgetLocalOnly()
{
    const ScopedLock lock(mMainMutex);
    mLocalOnly.reset();
}

void Sandbox::LoadBinCountLocked(const Handles& inHandles)
{
    if (mBinCount) return;
    std::int64_t count = 0;
    const bool isKept = inHandles.mDb ? Lyra2Db::ReadBinCount(*inHandles.mDb, mSession.mRevision, count)
                                      : RopeFile::Db::ReadBinCount(inHandles.mRepo, mSession.mRevision, count);
    if (isKept) {
        mBinCountRevision = mSession.mRevision;
        mBinCount = count;
    } else if (IO::CountBins(inHandles.mRepo, mSession.mRevision, count)) {
        mBinCount = count;
        StoreBinCountLocked(inHandles);
    }
}

std::optional<std::int64_t> Sandbox::KnownBinCount(ImmutableString& outRevision)
{
    const ScopedLock lock(mMainMutex);
    outRevision = mSession.mRevision;
    return mBinCount;
}

void Sandbox::AddToBinCountLocked(const Handles& inHandles, std::int64_t inDelta)
{
    // Where it is not known, the head is counted, the new commit with it.
    if (!mBinCount) return LoadBinCountLocked(inHandles);
    *mBinCount += inDelta;
    if (inDelta != 0) StoreBinCountLocked(inHandles);
}

void Sandbox::StoreBinCountLocked(const Handles& inHandles)
{
    if (!mBinCount || mBinCountRevision == mSession.mRevision) return;
    if (WriteBinCount(inHandles, mSession.mRevision, *mBinCount)) mBinCountRevision = mSession.mRevision;
}

bool Sandbox::WriteBinCount(const Handles& inHandles, const ImmutableString& inRevision, std::int64_t inCount)
{
    if (inHandles.mDb) return Lyra2Db::WriteBinCount(*inHandles.mDb, inRevision, inCount);
    return IsRope() && inHandles.mRepo && !inHandles.mRepo->NeedsReopen() && !mDeleted &&
           RopeFile::Db::WriteBinCount(inHandles.mRepo, inRevision, inCount);
}

bool Sandbox::GetSessionFromMemory(dto::Session& outSession)
{
    const ScopedLock lock(mMainMutex);
    if (!mLocalOnly || !mBinCount || (mRepo && mRepo->NeedsReopen())) return false;
    // Another hub may have worked in a file that is closed.
    if (IsRope() && !mRepo && (mReleasedFile.empty() || git::RopeBackends::StateOf(mRopeFile) != mReleasedFile))
        return false;
    outSession = RecordLocked();
    return true;
}

dto::Session Sandbox::RecordLocked() const
{
    dto::Session session = mSession;
    session.mProductionRevision = mProduction.mRevision;
    session.mLocalOnly = mLocalOnly.value_or(true);
    session.mHasBin = mBinCount.value_or(0) > 0;
    return session;
}

int Sandbox::GetSession(dto::Session& outSession)
{
    if (GetSessionFromMemory(outSession)) return noxnet::kHTTPStatus_OK;
    Handles handles;
    if (!RetainDB(handles)) return noxnet::kHTTPStatus_InternalServerError;
    IsLocalOnly();
    const ScopedLock lock(mMainMutex);
    LoadBinCountLocked(handles);
    outSession = RecordLocked();
    return noxnet::kHTTPStatus_OK;
}

template <class Function>
auto Sandbox::InPassing(const Function& inRead)
{
    bool wasOpen = false;
    {
        const ScopedLock lock(mMainMutex);
        wasOpen = mRepo != nullptr;
    }
    const auto result = inRead();
    if (!wasOpen) ReleaseDB();
    return result;
}

int Sandbox::GetSessionInPassing(dto::Session& outSession)
{
    if (GetSessionFromMemory(outSession)) return noxnet::kHTTPStatus_OK;
    return InPassing([&] { return GetSession(outSession); });
}

bool Sandbox::ReadLinkStateInPassing(LinkState& outState)
{
    return InPassing([&] { return GetSyncDb()->ReadLinkState(outState); });
}

dto::Session Sandbox::GetSession()
{
    dto::Session session;
    if (noxnet::IsSuccessfulHTTPStatus(GetSession(session))) return session;
    const ScopedLock lock(mMainMutex);
    return RecordLocked();
}

dto::Session Sandbox::GetProduction()
{
    dto::Session production = GetSession();
    const ScopedLock lock(mMainMutex);
    production.mRevision = mProduction.mRevision;
    production.mProperties = mProduction.mProperties;
    production.mModified = mProduction.mModified;
    return production;
}

int Sandbox::GetProductionAtRevision(const ImmutableString& inRevision, dto::Session& outProduction)
{
    dto::Session production;
    int status = GetSession(production);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    if (inRevision.empty() || inRevision == "HEAD" || inRevision == kBranch_Session ||
        inRevision == production.mRevision) {
        outProduction = std::move(production);
        return noxnet::kHTTPStatus_OK;
    }
    Handles handles;
    if (!RetainDB(handles)) return noxnet::kHTTPStatus_InternalServerError;
    IO::CommitPtr commit;
    IO::TreePtr tree;
    status = StatusOf(IO::GetTreeAtRevision(handles.mRepo, inRevision, tree, &commit));
    if (status != noxnet::kHTTPStatus_OK) return status;
    production.mRevision = commit->ID().Text();
    if (!IO::ReadSessionProperties(handles.mRepo, production.mRevision, production.mProperties, production.mModified)) {
        return noxnet::kHTTPStatus_InternalServerError;
    }
    outProduction = std::move(production);
    return noxnet::kHTTPStatus_OK;
}

}  // namespace VantryLocalHub::GitBox

#include "Inc/Model/GitBoxSandbox.h"

#include "Inc/Model/Lyra2Db.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

namespace git = noxstorage::git;
using noxcore::logging::LogError;
using noxcore::threads::ScopedLock;

Sandbox::Sandbox(std::string inFolder, const dto::Session& inSession)
    : mFolder(std::move(inFolder)), mSessionID(inSession.mIdentifier), mProductionID(inSession.mProductionID)
{
}

std::shared_ptr<Sandbox> Sandbox::Create(std::string inFolder, const dto::Session& inSession, Handles inHandles)
{
    std::shared_ptr<Sandbox> sandbox(new Sandbox(std::move(inFolder), inSession));
    {
        const ScopedLock lock(sandbox->mMainMutex);
        sandbox->mSession = inSession;
        sandbox->mProduction = inSession;
        sandbox->mProduction.mRevision = inSession.mProductionRevision;
    }
    sandbox->InitFromRepoAndDb(std::move(inHandles));
    return sandbox;
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
    return mRepo && mDb && !mRepo->NeedsReopen();
}

bool Sandbox::RetainDB(Handles& outHandles)
{
    RaiseLastUsed();
    const ScopedLock lock(mMainMutex);
    if (!HasStrongHandlesLocked() && !OpenLocked(outHandles)) {
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
    // An operation that still runs keeps the objects alive: they are taken up again, so that a file never has two
    // writers. One that refuses to write after a failed sync is left to those who hold it.
    auto repo = mWeakRepo.lock();
    auto db = mWeakDb.lock();
    if (repo && repo->NeedsReopen()) repo.reset();
    if (!db && !Lyra2Db::OpenSessionDatabase(mFolder, db)) return false;
    if (!repo) {
        dto::Session session;
        if (!IO::ReadSessionRepo(mFolder, repo, session) || session.mIdentifier != mSessionID) return false;
        mSession = session;
    }
    mRepo = std::move(repo);
    mDb = std::move(db);
    mWeakRepo = mRepo;
    mWeakDb = mDb;
    outHandles = {mRepo, mDb};
    return true;
}

void Sandbox::ReleaseDB()
{
    RaiseLastUsed();
    mAssetCache.TryClear();
    mEnclosureCache.TryClear();
    Handles dropped;  // closed after the mutex was given back
    std::shared_ptr<ProjectBoxSyncDb> syncDb;
    if (!mMainMutex.TryLock()) return;
    if (mRepo) {
        // The head may be another than the record says: what is opened next is read.
        if (mRepo->NeedsReopen()) mBinCount.reset();
        dropped = {std::move(mRepo), std::move(mDb)};
        mRepo = nullptr;
        mDb = nullptr;
        syncDb = mSyncDb;
    }
    mMainMutex.Unlock();
    if (syncDb) syncDb->ReleaseDb();
}

std::shared_ptr<ProjectBoxSyncDb> Sandbox::GetSyncDb()
{
    Handles handles;
    if (!RetainDB(handles)) LogError("GitBox", "GetSyncDb: RetainDB failed, mRepo may not be in usable state.");
    const ScopedLock lock(mMainMutex);
    if (!mSyncDb) {
        auto syncDb = std::make_shared<SyncDb>();
        syncDb->SetSandbox(weak_from_this());
        mSyncDb = std::move(syncDb);
    }
    return mSyncDb;
}

bool Sandbox::IncrementChangeCount(std::int64_t& outCount)
{
    if (IsRope()) return true;
    Handles handles;
    if (!RetainDB(handles)) return false;
    const ScopedLock lock(mChangeMutex);
    if (!mChangeCount) {
        std::int64_t stored = 0;
        Lyra2Db::ReadChangeCount(*handles.mDb, stored);
        mChangeCount = stored;
    }
    const std::int64_t count = *mChangeCount + 1;
    if (!Lyra2Db::WriteChangeCount(*handles.mDb, count)) {
        LogError("GitBox", "Failed to write change count for session",
                 {{"sessionID", mSessionID}, {"stackTrace", noxcore::logging::StackTrace(10)}});
        return false;
    }
    mChangeCount = count;
    outCount = count;
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

void Sandbox::ForgetLocalOnly()
{
    const ScopedLock lock(mMainMutex);
    mLocalOnly.reset();
}

bool Sandbox::SetLocalOnly(bool inLocalOnly)
{
    const auto syncDb = GetSyncDb();
    const bool written = inLocalOnly ? syncDb->WriteLocalOnlyMode() : syncDb->WriteSynchronizedMode();
    const ScopedLock lock(mMainMutex);
    if (written) mLocalOnly = inLocalOnly;
    return written;
}

void Sandbox::LoadBinCountLocked(const Handles& inHandles)
{
    if (mBinCount) return;
    std::int64_t count = 0;
    if (!Lyra2Db::ReadBinCount(*inHandles.mDb, count)) {
        if (!IO::CountBins(inHandles.mRepo, kBranch_Session, count)) return;
        Lyra2Db::WriteBinCount(*inHandles.mDb, count);
    }
    mBinCount = count;
}

void Sandbox::AddToBinCountLocked(const Handles& inHandles, std::int64_t inDelta)
{
    if (inDelta == 0) return;
    if (!mBinCount) {
        // Not known yet: the head counts the new commit already.
        std::int64_t count = 0;
        if (!IO::CountBins(inHandles.mRepo, kBranch_Session, count)) return;
        mBinCount = count;
    } else {
        *mBinCount += inDelta;
    }
    Lyra2Db::WriteBinCount(*inHandles.mDb, *mBinCount);
}

bool Sandbox::GetSessionFromMemory(dto::Session& outSession)
{
    const ScopedLock lock(mMainMutex);
    if (!mLocalOnly || !mBinCount || (mRepo && mRepo->NeedsReopen())) return false;
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
    const int status = GetSession(production);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    if (inRevision.empty() || inRevision == "HEAD" || inRevision == kBranch_Session ||
        inRevision == production.mRevision) {
        outProduction = std::move(production);
        return noxnet::kHTTPStatus_OK;
    }
    Handles handles;
    if (!RetainDB(handles)) return noxnet::kHTTPStatus_InternalServerError;
    const IO::CommitPtr commit = IO::ResolveCommit(handles.mRepo, inRevision);
    if (!commit) return noxnet::kHTTPStatus_NotFound;
    production.mRevision = commit->ID().Text();
    if (!IO::ReadSessionProperties(handles.mRepo, production.mRevision, production.mProperties, production.mModified)) {
        return noxnet::kHTTPStatus_InternalServerError;
    }
    outProduction = std::move(production);
    return noxnet::kHTTPStatus_OK;
}

}  // namespace VantryLocalHub::GitBox

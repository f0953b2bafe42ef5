// What is different about the sandbox of a single-file project.

#include <array>
#include <utility>

#include "Inc/Model/ComplaintBox.h"
#include "Inc/Model/GitBoxSandbox.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Model/RopeFileCopy.h"
#include "Inc/Model/RopeFileDb.h"
#include "Inc/Model/RopeFileSyncDb.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/Messaging.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxstorage/RopeBackends.h"
#include "Platform/noxstorage/RopeFileHold.h"

namespace VantryLocalHub::GitBox {

namespace git = noxstorage::git;
using noxcore::logging::LogError;
using noxcore::threads::ScopedLock;
using noxnet::kHTTPStatus_BadRequest;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_Locked;
using noxnet::kHTTPStatus_OK;

namespace {

constexpr std::array kBranches = {kBranch_Session,
                                  kBranch_Production,
                                  RopeFile::kBranch_MediaLocators,
                                  RopeFile::kBranch_UserEnclosures,
                                  RopeFile::kBranch_KeyValue,
                                  RopeFile::kBranch_SyncPoint};

/// Where all branches of a project stand; equal as long as nobody has written to it.
std::array<git::Oid, kBranches.size()> ReadHeads(const IO::RepoPtr& inRepo)
{
    std::array<git::Oid, kBranches.size()> heads;
    for (std::size_t index = 0; index < heads.size(); ++index)
        heads[index] = git::GetBranchHead(inRepo, kBranches[index]);
    return heads;
}

/// What was agreed on with a remote side stays: it is what the next exchange begins at.
bool AddSyncedRevisions(const IO::RepoPtr& inRepo, std::vector<ImmutableString>& ioRevisions)
{
    std::vector<SyncPoint> points;
    if (!RopeFile::ReadSyncPoints(inRepo, points)) return false;
    for (const SyncPoint& point : points)
        ioRevisions.push_back(point.mLocalRevision);
    return true;
}

}  // namespace

std::shared_ptr<Sandbox> Sandbox::Create(const std::string& inRopeFile, RopeFile::IO::OpenFile inFile)
{
    std::shared_ptr<Sandbox> sandbox(new Sandbox({}, inRopeFile, inFile.mSession, IDs::Own));
    sandbox->NoteProjectOfFile(inFile.mUniqueID);
    {
        const ScopedLock lock(sandbox->mMainMutex);
        sandbox->mSession = inFile.mSession;
        sandbox->mProduction = inFile.mSession;
        sandbox->mProduction.mRevision = inFile.mSession.mProductionRevision;
        sandbox->mSideFolder = inFile.mSideFolder;
    }
    sandbox->InitFromRepoAndDb({std::move(inFile.mRepo), nullptr});
    return sandbox;
}

bool Sandbox::OpenRopeLocked(Handles& outHandles)
{
    auto repo = mWeakRepo.lock();
    mOpeningStatus = kHTTPStatus_InternalServerError;
    if (repo && repo->NeedsReopen()) return false;  // its last user has to go first
    if (!repo) {
        DropSideFolderLocked();
        RopeFile::IO::OpenFile file;
        mOpeningStatus = RopeFile::IO::OpenRopeFile(mRopeFile, file);
        if (!noxnet::IsSuccessfulHTTPStatus(mOpeningStatus)) {
            constexpr std::string_view kText = "RetainDb unable to re-open rope file";
            constexpr std::int64_t kCode = 0xa045002b;
            LogError("GitBox", kText, {{"sessionID", mSessionID}, {"path", mRopeFile}});
            if (mReopenComplaint.empty())
                mReopenComplaint = ComplaintBox::Instance()->FileComplaint(mSessionID, kCode, std::string(kText));
            return false;
        }
        TakeReopenComplaintBack();
        // It may have been somewhere else meanwhile, where others worked in it.
        if (file.mSession.mRevision != mSession.mRevision) {
            mBinCount.reset();
            noxcore::messaging::PostMessageToUIThread(ProjectBox::Station(),
                                                      std::make_shared<ProjectBox::SessionChangedMessage>(mSessionID));
        }
        NoteProjectOfFile(file.mUniqueID);
        mLocalOnly.reset();
        ForgetSideData();
        mSession = file.mSession;
        mProduction.mRevision = file.mSession.mProductionRevision;
        IO::ReadSessionProperties(file.mRepo, mProduction.mRevision, mProduction.mProperties, mProduction.mModified);
        mSideFolder = file.mSideFolder;
        repo = std::move(file.mRepo);
    }
    mRepo = std::move(repo);
    mWeakRepo = mRepo;
    outHandles = {mRepo, nullptr};
    return true;
}

void Sandbox::TakeReopenComplaintBack()
{
    const ScopedLock lock(mMainMutex);
    if (!mReopenComplaint.empty()) ComplaintBox::Instance()->RemoveComplaint(std::exchange(mReopenComplaint, {}));
}

void Sandbox::DropSideFolderLocked()
{
    RopeFile::IO::DeleteSideFolder(std::exchange(mSideFolder, {}));
}

bool Sandbox::RetainRepo(IO::RepoPtr& outRepo)
{
    Handles handles;
    if (!RetainDB(handles)) return false;
    outRepo = std::move(handles.mRepo);
    return true;
}

std::shared_ptr<RopeFile::SyncDb> Sandbox::ShareRopeSyncDb()
{
    const ScopedLock lock(mMainMutex);
    if (!mRopeSyncDb) {
        const std::weak_ptr<RopeFile::RepoSource> none;
        mRopeSyncDb = std::make_shared<RopeFile::SyncDb>(
            mDeleted ? none : std::weak_ptr<RopeFile::RepoSource>(shared_from_this()));
    }
    return mRopeSyncDb;
}

void Sandbox::ComplainOfAsset(const ImmutableString& inAssetID)
{
    constexpr std::int64_t kCode = 0xa045002c;
    ReleaseDB();
    ComplaintBox::Instance()->FileComplaint(mSessionID, kCode, "Cannot write asset " + inAssetID.Text());
}

bool Sandbox::CloseForGood()
{
    NoteDeleted();
    ReleaseDB();
    const ScopedLock lock(mMainMutex);
    if (!mRepo && mWeakRepo.expired() &&
        git::RopeBackends::LookForUsers(mRopeFile) != git::RopeBackends::FileStep::InUse) {
        TakeReopenComplaintBack();
        return true;
    }
    mDeleted = false;
    return false;
}

int Sandbox::WhyNotOpen()
{
    const ScopedLock lock(mMainMutex);
    return noxnet::IsSuccessfulHTTPStatus(mOpeningStatus) ? kHTTPStatus_InternalServerError : mOpeningStatus;
}

bool Sandbox::FileHasMoved()
{
    IO::RepoPtr repo;
    if (IsRope()) {
        const ScopedLock lock(mMainMutex);
        repo = mRepo ? mRepo : mWeakRepo.lock();
    }
    return repo && git::RopeBackends::HasMoved(repo);  // may wait for a commit
}

void Sandbox::NoteKept()
{
    const ScopedLock lock(mMainMutex);
    mDeleted = false;
    mReleasedFile.clear();  // what lies there may be another project
}

void Sandbox::NoteProjectOfFile(const ImmutableString& inUniqueID)
{
    const ScopedLock lock(mUniqueIDMutex);
    mUniqueID = inUniqueID;
}

ImmutableString Sandbox::UniqueID() const
{
    const ScopedLock lock(mUniqueIDMutex);
    return mUniqueID;
}

bool Sandbox::ReadAllSessionData(const Handles& inHandles, RopeFile::SessionData& outData)
{
    Lyra2Db::KeyValues values;
    const ScopedLock lock(mChangeMutex);
    if (inHandles.mDb) {
        if (!Lyra2Db::ReadAllSessionData(*inHandles.mDb, outData.mLocators, outData.mUserEnclosures, values))
            return false;
        outData.mValues = std::move(values);
    } else {
        if (!RopeFile::Db::ReadAllSessionData(inHandles.mRepo, outData.mLocators, outData.mUserEnclosures, values))
            return false;
        const std::string section = std::string(RopeFile::kSection_Session) + "/";
        for (const auto& [key, value] : values)
            if (key.starts_with(section)) outData.mValues.emplace(key.substr(section.size()), value);
    }
    for (const std::string_view name : RopeFile::kNotCopied)
        outData.mValues.erase(std::string(name));
    return true;
}

int Sandbox::CopyToRopeFile(const ImmutableString& inRevision, const std::string& inFile, bool inOverwrite,
                            RopeFile::IO::OpenFile& outFile)
{
    if (IsRope() && inFile == mRopeFile) return kHTTPStatus_BadRequest;
    Handles handles;
    RopeFile::SessionData data;
    if (!RetainDB(handles) || !ReadAllSessionData(handles, data)) return kHTTPStatus_InternalServerError;
    data.mBinCount = KnownBinCount(data.mBinCountRevision);
    return RopeFile::IO::CopyToRopeFile(handles.mRepo, inRevision.Text(), data, inFile, inOverwrite, outFile);
}

int Sandbox::ThinHistoryToRopeFile(const std::string& inFile, const std::vector<ImmutableString>& inRevisions)
{
    if (!IsRope()) return kHTTPStatus_BadRequest;
    if (inFile == mRopeFile) return Compact(inRevisions);
    const std::string beside = inFile + std::string(RopeFile::IO::kCompacting);
    Handles handles;
    RopeFile::IO::OpenFile none;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    if (RopeFile::IO::CanBeMade(inFile))
        if (const int look = RopeFile::IO::LookAtPlace(inFile, true); look != kHTTPStatus_OK) return look;
    int status = RopeFile::IO::ThinHistoryToRopeFile(handles.mRepo, inRevisions, beside, inFile);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    status = RopeFile::IO::MoveIntoPlace(beside, inFile, true, none);
    if (status != kHTTPStatus_OK) git::RopeBackends::RemoveLeftover(beside);
    return status;
}

int Sandbox::Compact(const std::vector<ImmutableString>& inRevisions)
{
    const std::string beside = mRopeFile + std::string(RopeFile::IO::kCompacting);
    const ScopedLock write(mWriteMutex);
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    const auto heads = ReadHeads(handles.mRepo);
    if (heads.front().IsZero()) return kHTTPStatus_InternalServerError;
    std::vector<ImmutableString> revisions = inRevisions;
    revisions.emplace_back(heads.front().Text());  // whatever else is kept
    if (!AddSyncedRevisions(handles.mRepo, revisions)) return kHTTPStatus_InternalServerError;
    int status = RopeFile::IO::ThinHistoryToRopeFile(handles.mRepo, revisions, beside, mRopeFile);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    handles = {};
    status = ReplaceFile(beside, heads);
    if (status != kHTTPStatus_OK) git::RopeBackends::RemoveLeftover(beside);
    return status;
}

template <class Heads>
int Sandbox::ReplaceFile(const std::string& inBeside, const Heads& inHeads)
{
    const ScopedLock lock(mMainMutex);
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    // Whoever still has the old file open would write into one that is gone; what was written since the copy would be
    // lost with it.
    constexpr long kOurs = 2;
    if (handles.mRepo.use_count() > kOurs || ReadHeads(handles.mRepo) != inHeads) return kHTTPStatus_Locked;
    if (git::RopeBackends::HasMoved(handles.mRepo)) {
        LogError("GitBox", "Won't put a compacted file in the place of another file", {{"path", mRopeFile}});
        return kHTTPStatus_InternalServerError;
    }
    handles = {};
    mRepo = nullptr;
    mBinCount.reset();
    mBinCountRevision = {};
    RopeFile::IO::OpenFile none;
    const int status = RopeFile::IO::MoveIntoPlace(inBeside, mRopeFile, true, none);
    if (status != kHTTPStatus_OK) LogError("GitBox", "Cannot put a compacted file in place", {{"path", mRopeFile}});
    // The revisions have other ids now.
    ClearCaches();
    return OpenLocked(handles) ? status : kHTTPStatus_InternalServerError;
}

}  // namespace VantryLocalHub::GitBox

// What media locators and user enclosures share: the counts that tell what is new since when.

#include <algorithm>

#include "Inc/Model/GitBoxSandbox.h"
#include "Inc/Model/RopeFileDb.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxcore::logging::LogError;
using noxcore::threads::ScopedLock;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_OK;

namespace {

constexpr std::size_t PlaceOf(SideData inKind)
{
    return static_cast<std::size_t>(inKind);
}

}  // namespace

bool Sandbox::RetainSideData(SideDataHandles& outHandles)
{
    if (!RetainDB(outHandles.mHandles)) return false;
    if (IsRope()) {
        outHandles.mSideDb = std::make_shared<RopeFile::RopeSideDb>(outHandles.mHandles.mRepo);
        return true;
    }
    outHandles.mSyncDb = ShareSyncDb();
    outHandles.mSideDb = std::make_shared<Lyra2SideDb>(outHandles.mHandles.mDb);
    return true;
}

void Sandbox::LogChangeCountFailure() const
{
    LogError("GitBox", "Failed to write change count for session",
             {{"sessionID", mSessionID}, {"stackTrace", noxcore::logging::StackTrace(10)}});
}

void Sandbox::ForgetSideData()
{
    const ScopedLock lock(mChangeMutex);
    mLostChangeCount = std::max(mLostChangeCount, mChangeCount.value_or(0));
    mChangeCount.reset();
    for (const SideData kind : {SideData::MediaLocators, SideData::UserEnclosures})
        KeepLastWriteLocked(kind, std::nullopt);
    mNewestLocator.reset();
}

bool Sandbox::LoadChangeCountLocked(const SideDataHandles& inHandles, std::int64_t& outCount)
{
    if (mChangeCount) {
        outCount = *mChangeCount;
        return true;
    }
    // Two files, neither of them synced with each write: after a power cut each is as it was at some moment of its own.
    // A count that is given out a second time would be taken for one that has been exchanged already.
    std::int64_t count = 0;
    std::int64_t known = kNoChangeCount;
    if (!Lyra2Db::ReadChangeCount(inHandles.Counts(), count) || !inHandles.mSyncDb->ReadHighestChangeCount(known)) {
        return false;
    }
    outCount = std::max({count, known, mLostChangeCount});
    mChangeCount = outCount;
    return true;
}

std::optional<Lyra2Db::LastWrite> Sandbox::KnownLastWrite(SideData inKind)
{
    const ScopedLock lock(mLastWriteMutex);
    return mLastWrites[PlaceOf(inKind)];
}

void Sandbox::KeepLastWriteLocked(SideData inKind, const std::optional<Lyra2Db::LastWrite>& inWrite)
{
    const ScopedLock lock(mLastWriteMutex);
    mLastWrites[PlaceOf(inKind)] = inWrite;
}

bool Sandbox::LoadLastWriteLocked(Lyra2Db::Db& inDb, SideData inKind, Lyra2Db::LastWrite& outWrite)
{
    if (const auto known = KnownLastWrite(inKind)) {
        outWrite = *known;
        return true;
    }
    if (!Lyra2Db::ReadLastWrite(inDb, inKind, outWrite)) return false;
    KeepLastWriteLocked(inKind, outWrite);
    return true;
}

bool Sandbox::NoteFurtherWriteLocked(const SideDataHandles& inHandles, SideData inKind)
{
    if (IsRope()) return true;
    Lyra2Db::LastWrite last;
    Lyra2Db::LastWrite next;
    if (!LoadChangeCountLocked(inHandles, next.mChangeCount) ||
        !LoadLastWriteLocked(inHandles.Counts(), inKind, last)) {
        return false;
    }
    if (last.mChangeCount == next.mChangeCount) next.mFurther = last.mFurther + 1;
    if (!Lyra2Db::WriteLastWrite(inHandles.Counts(), inKind, next)) return false;
    KeepLastWriteLocked(inKind, next);
    return true;
}

bool Sandbox::CountWriteLocked(const SideDataHandles& inHandles, SideData inKind, WriteMode inMode,
                               std::string_view inFailure, std::int64_t& outCount)
{
    if (IsRope()) {
        outCount = inMode == WriteMode::SyncEngine ? 0 : 1;
        return true;
    }
    if (inMode == WriteMode::SyncEngine) {
        SyncChangeCount exchanged;
        if (!ReadExchangedCountLocked(inHandles, inKind, exchanged) || !NoteFurtherWriteLocked(inHandles, inKind)) {
            return false;
        }
        outCount = std::max<std::int64_t>(exchanged.mCount, 0);
        return true;
    }
    std::int64_t count = 0;
    const bool known = LoadChangeCountLocked(inHandles, count);
    const Lyra2Db::LastWrite next{count + 1, 0};
    if (!known || !Lyra2Db::WriteLastWriteAndChangeCount(inHandles.Counts(), inKind, next)) {
        LogChangeCountFailure();
        LogError("GitBox", inFailure, {{"sessionID", mSessionID}});
        return false;
    }
    mChangeCount = next.mChangeCount;
    KeepLastWriteLocked(inKind, next);
    outCount = next.mChangeCount;
    return true;
}

bool Sandbox::ReadSideHead(const Handles& inHandles, SideData inKind, SyncChangeCount& outCount)
{
    const bool ofLocators = inKind == SideData::MediaLocators;
    noxstorage::git::Oid head;
    const auto answer = noxstorage::git::FindBranchHead(
        inHandles.mRepo, ofLocators ? RopeFile::kBranch_MediaLocators : RopeFile::kBranch_UserEnclosures, head);
    if (answer == noxstorage::git::Answer::Failed) return false;
    outCount = SyncChangeCount();
    if (!head.IsZero()) outCount.mCommitID = head.Text();
    return true;
}

bool Sandbox::LoadSyncToLocked(const SideDataHandles& inHandles, SideData inKind, SyncChangeCount& outCount)
{
    return IsRope() ? ReadSideHead(inHandles.mHandles, inKind, outCount)
                    : LoadChangeCountLocked(inHandles, outCount.mCount);
}

bool Sandbox::ReadExchangedCountLocked(const SideDataHandles& inHandles, SideData inKind, SyncChangeCount& outCount)
{
    if (IsRope()) {
        outCount = SyncChangeCount();
        outCount.mCount = 0;  // what is to be exchanged is given back with a count of 1
        return true;
    }
    return inKind == SideData::MediaLocators ? inHandles.mSyncDb->ReadMediaLocatorSyncChangeCount(outCount)
                                             : inHandles.mSyncDb->ReadUserEnclosureSyncChangeCount(outCount);
}

int Sandbox::GetSideDataTags(SideDataTags& outTags)
{
    if (GetSideDataTagsFromMemory(outTags)) return kHTTPStatus_OK;
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    if (IsRope()) {
        SyncChangeCount ofLocators;
        SyncChangeCount ofEnclosures;
        if (!ReadSideHead(handles, SideData::MediaLocators, ofLocators) ||
            !ReadSideHead(handles, SideData::UserEnclosures, ofEnclosures))
            return kHTTPStatus_InternalServerError;
        outTags = {ofLocators.mCommitID, ofEnclosures.mCommitID};
        return kHTTPStatus_OK;
    }
    const ScopedLock lock(mChangeMutex);
    Lyra2Db::LastWrite locators;
    Lyra2Db::LastWrite enclosures;
    if (!LoadLastWriteLocked(*handles.mDb, SideData::MediaLocators, locators) ||
        !LoadLastWriteLocked(*handles.mDb, SideData::UserEnclosures, enclosures)) {
        return kHTTPStatus_InternalServerError;
    }
    outTags = {locators.Text(), enclosures.Text()};
    return kHTTPStatus_OK;
}

bool Sandbox::GetSideDataTagsFromMemory(SideDataTags& outTags)
{
    const auto locators = KnownLastWrite(SideData::MediaLocators);
    const auto enclosures = KnownLastWrite(SideData::UserEnclosures);
    if (!locators || !enclosures) return false;
    outTags.mMediaLocators = locators->Text();
    outTags.mUserEnclosures = enclosures->Text();
    return true;
}

}  // namespace VantryLocalHub::GitBox

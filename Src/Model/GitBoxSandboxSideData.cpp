// What media locators and user enclosures share: the counts that tell what is new since when.

#include <algorithm>

#include "Inc/Model/GitBoxSandbox.h"
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
    outHandles.mSyncDb = ShareSyncDb();
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
    mLastWrites.fill({});
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
    if (!Lyra2Db::ReadChangeCount(inHandles.Db(), count) || !inHandles.mSyncDb->ReadHighestChangeCount(known)) {
        return false;
    }
    outCount = std::max({count, known, mLostChangeCount});
    mChangeCount = outCount;
    return true;
}

bool Sandbox::LoadLastWriteLocked(Lyra2Db::Db& inDb, SideData inKind, Lyra2Db::LastWrite& outWrite)
{
    auto& kept = mLastWrites[PlaceOf(inKind)];
    if (kept) {
        outWrite = *kept;
        return true;
    }
    if (!Lyra2Db::ReadLastWrite(inDb, inKind, outWrite)) return false;
    kept = outWrite;
    return true;
}

bool Sandbox::NoteFurtherWriteLocked(const SideDataHandles& inHandles, SideData inKind)
{
    Lyra2Db::LastWrite last;
    Lyra2Db::LastWrite next;
    if (!LoadChangeCountLocked(inHandles, next.mChangeCount) || !LoadLastWriteLocked(inHandles.Db(), inKind, last)) {
        return false;
    }
    if (last.mChangeCount == next.mChangeCount) next.mFurther = last.mFurther + 1;
    if (!Lyra2Db::WriteLastWrite(inHandles.Db(), inKind, next)) return false;
    mLastWrites[PlaceOf(inKind)] = next;
    return true;
}

bool Sandbox::CountWriteLocked(const SideDataHandles& inHandles, SideData inKind, WriteMode inMode,
                               std::string_view inFailure, std::int64_t& outCount)
{
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
    if (!known || !Lyra2Db::WriteLastWriteAndChangeCount(inHandles.Db(), inKind, next)) {
        LogChangeCountFailure();
        LogError("GitBox", inFailure, {{"sessionID", mSessionID}});
        return false;
    }
    mChangeCount = next.mChangeCount;
    mLastWrites[PlaceOf(inKind)] = next;
    outCount = next.mChangeCount;
    return true;
}

bool Sandbox::ReadExchangedCountLocked(const SideDataHandles& inHandles, SideData inKind, SyncChangeCount& outCount)
{
    return inKind == SideData::MediaLocators ? inHandles.mSyncDb->ReadMediaLocatorSyncChangeCount(outCount)
                                             : inHandles.mSyncDb->ReadUserEnclosureSyncChangeCount(outCount);
}

int Sandbox::GetSideDataTags(SideDataTags& outTags)
{
    if (GetSideDataTagsFromMemory(outTags)) return kHTTPStatus_OK;
    Handles handles;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
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
    const ScopedLock lock(mChangeMutex);
    const auto& locators = mLastWrites[PlaceOf(SideData::MediaLocators)];
    const auto& enclosures = mLastWrites[PlaceOf(SideData::UserEnclosures)];
    if (!locators || !enclosures) return false;
    outTags.mMediaLocators = locators->Text();
    outTags.mUserEnclosures = enclosures->Text();
    return true;
}

}  // namespace VantryLocalHub::GitBox

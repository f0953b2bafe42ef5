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

bool Sandbox::LoadChangeCountLocked(Lyra2Db::Db& inDb)
{
    if (mChangeCount) return true;
    // Two files, neither of them synced with each write: after a power cut each is as it was at some moment of its own.
    // A count that is given out a second time would be taken for one that has been exchanged already.
    std::int64_t count = 0;
    std::int64_t known = kNoChangeCount;
    if (!Lyra2Db::ReadChangeCount(inDb, count) || !ShareSyncDb()->ReadHighestChangeCount(known)) return false;
    mChangeCount = std::max(count, known);
    return true;
}

bool Sandbox::LoadLastWriteLocked(Lyra2Db::Db& inDb, SideData inKind)
{
    auto& kept = mLastWrites[PlaceOf(inKind)];
    if (kept) return true;
    Lyra2Db::LastWrite stored;
    if (!Lyra2Db::ReadLastWrite(inDb, inKind, stored)) return false;
    kept = stored;
    return true;
}

bool Sandbox::NoteFurtherWriteLocked(Lyra2Db::Db& inDb, SideData inKind)
{
    if (!LoadChangeCountLocked(inDb) || !LoadLastWriteLocked(inDb, inKind)) return false;
    auto& kept = *mLastWrites[PlaceOf(inKind)];
    Lyra2Db::LastWrite next{*mChangeCount, 0};
    if (kept.mChangeCount == next.mChangeCount) next.mFurther = kept.mFurther + 1;
    if (!Lyra2Db::WriteLastWrite(inDb, inKind, next)) return false;
    kept = next;
    return true;
}

bool Sandbox::CountWriteLocked(const SideDataHandles& inHandles, SideData inKind, WriteMode inMode,
                               std::string_view inFailure, std::int64_t& outCount)
{
    if (inMode == WriteMode::SyncEngine) {
        SyncChangeCount exchanged;
        if (!ReadExchangedCountLocked(inHandles, inKind, exchanged) ||
            !NoteFurtherWriteLocked(inHandles.Db(), inKind)) {
            return false;
        }
        outCount = std::max<std::int64_t>(exchanged.mCount, 0);
        return true;
    }
    const bool known = LoadChangeCountLocked(inHandles.Db());
    const Lyra2Db::LastWrite next{known ? *mChangeCount + 1 : 0, 0};
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
    return LoadLastWriteLocked(*handles.mDb, SideData::MediaLocators) &&
                   LoadLastWriteLocked(*handles.mDb, SideData::UserEnclosures) && GetSideDataTagsFromMemory(outTags)
               ? kHTTPStatus_OK
               : kHTTPStatus_InternalServerError;
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

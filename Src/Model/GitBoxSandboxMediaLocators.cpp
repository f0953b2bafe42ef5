#include <algorithm>
#include <span>

#include "Inc/Model/GitBoxSandbox.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxcore::logging::LogError;
using noxcore::logging::LogInformation;
using noxcore::threads::ScopedLock;
using noxnet::kHTTPStatus_BadRequest;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_NotFound;
using noxnet::kHTTPStatus_OK;

namespace {

/// Reads stored records one after the other, in the memory of the one before.
class StoredReader
{
public:
    bool Read(const Lyra2Db::StoredRecord& inRecord, dto::MediaLocator& outLocator)
    {
        if (mDocument.Parse(inRecord.mDTO) && dto::ReadRecord(mDocument.Root(), outLocator)) return true;
        LogError("GitBox", "Stored media locator is not readable", {{"record", inRecord.mDTO}});
        return false;
    }

private:
    noxcore::serialization::JSONDocument mDocument;
};

bool FromStored(const Lyra2Db::StoredRecord& inRecord, dto::MediaLocator& outLocator)
{
    return StoredReader().Read(inRecord, outLocator);
}

// Below this many the hand-over to other threads costs more than it saves.
constexpr std::size_t kLocatorsWorthSharing = 256;

/// Reads tens of thousands of records on all processors. One that cannot be read is left out. Each text goes as soon as
/// it is read, and what is made of the next takes its memory. False when not all were looked at.
bool FromStored(std::vector<Lyra2Db::StoredRecord>&& inRecords, std::vector<dto::MediaLocator>& outLocators)
{
    enum class State : std::uint8_t
    {
        Waiting,
        Read,
        Unreadable
    };
    std::vector<dto::MediaLocator> locators(inRecords.size());
    std::vector<State> states(inRecords.size());
    const auto readShare = [&](std::size_t inIndex, std::size_t inCount) {
        StoredReader reader;
        const std::size_t end = inRecords.size() * (inIndex + 1) / inCount;
        for (std::size_t place = inRecords.size() * inIndex / inCount; place < end; ++place) {
            const Lyra2Db::StoredRecord record = std::move(inRecords[place]);
            states[place] = reader.Read(record, locators[place]) ? State::Read : State::Unreadable;
        }
    };
    if (inRecords.size() < kLocatorsWorthSharing) {
        readShare(0, 1);
    } else {
        noxcore::threads::ExecuteCPUBoundTaskOnAllProcessors(readShare);
    }
    if (std::count(states.begin(), states.end(), State::Waiting) != 0) return false;
    std::size_t place = 0;
    std::erase_if(locators, [&](const dto::MediaLocator&) { return states[place++] == State::Unreadable; });
    outLocators = std::move(locators);
    return true;
}

/// Links are made anew for each answer.
std::string ToStored(dto::MediaLocator& ioLocator)
{
    ioLocator.mLinks.clear();
    return dto::ToJSON(ioLocator);
}

/// The later of two times, either of which may be no time.
RFC3339DateTime Later(const RFC3339DateTime& inLeft, const RFC3339DateTime& inRight)
{
    if (!inLeft.IsValid() || !inRight.IsValid()) return inLeft.IsValid() ? inLeft : inRight;
    return std::max(inLeft, inRight);
}

/// Whose edit it is, and when.
struct Stamp
{
    RFC3339DateTime mTime = RFC3339DateTime::Now();
    std::string mUser = MakeAuthor().mName;
};

void StampFirstWrite(const Stamp& inStamp, dto::MediaLocator& ioLocator)
{
    ioLocator.mCreated = inStamp.mTime;
    ioLocator.mCreatedBy = inStamp.mUser;
    ioLocator.mLastModified = inStamp.mTime;
    ioLocator.mLastModifiedBy = inStamp.mUser;
}

void KeepCreation(const dto::MediaLocator& inStored, dto::MediaLocator& ioLocator)
{
    ioLocator.mCreated = inStored.mCreated;
    ioLocator.mCreatedBy = inStored.mCreatedBy;
}

/// Stamps local edits that add locators. Those that are there already stay created when they were.
bool StampAdded(SideDb& inDb, std::span<dto::MediaLocator> ioLocators)
{
    const Stamp stamp;
    std::vector<std::string_view> ids;
    ids.reserve(ioLocators.size());
    for (dto::MediaLocator& locator : ioLocators) {
        StampFirstWrite(stamp, locator);
        ids.emplace_back(locator.mMediaLocatorID);
    }
    return inDb.ReadMediaLocatorsByID(ids, [&](std::size_t inPlace, const Lyra2Db::StoredRecord& inRecord) {
        dto::MediaLocator stored;
        if (FromStored(inRecord, stored)) KeepCreation(stored, ioLocators[inPlace]);
    });
}

/// Equal in what both sides read: keys that only the local client knows do not make a difference.
bool HaveEqualProperties(const dto::MediaLocator& inLeft, const dto::MediaLocator& inRight)
{
    if (inLeft.mProperties.Text() == inRight.mProperties.Text()) return true;
    dto::MediaLocatorProperties left;
    dto::MediaLocatorProperties right;
    return dto::FromJSON(inLeft.mProperties.Text(), left) && dto::FromJSON(inRight.mProperties.Text(), right) &&
           left == right;
}

void LogKeptLocal(const dto::MediaLocator& inLocal, const SyncChangeCount& inLocalCount,
                  const dto::MediaLocator& inRemote, const SyncChangeCount& inExchanged)
{
    LogInformation("HubSync", "Unsynchronized local media locator: will not replace with remote media locator",
                   {{"changeCount", inLocalCount.Text()},
                    {"lastSyncChangeCount", inExchanged.Text()},
                    {"localModifiedTime", inLocal.mLastModified.Text()},
                    {"remoteModifiedTime", inRemote.mLastModified.Text()},
                    {"remoteMediaLocator", dto::ToJSON(inRemote)},
                    {"localMediaLocator", dto::ToJSON(inLocal)}});
}

}  // namespace

bool Sandbox::LoadNewestLocatorLocked(SideDb& inDb, RFC3339DateTime& outTime)
{
    if (mNewestLocator) {
        outTime = *mNewestLocator;
        return true;
    }
    RFC3339DateTime stored;
    inDb.ReadLastModifiedMediaLocatorTime(stored);
    if (!FindNewestLocatorLocked(inDb, stored)) return false;
    outTime = *mNewestLocator;
    return true;
}

bool Sandbox::FindNewestLocatorLocked(SideDb& inDb, const RFC3339DateTime& inAtLeast)
{
    std::vector<Lyra2Db::StoredRecord> records;
    if (!inDb.ReadMediaLocators(records)) return false;
    std::vector<std::string_view> views;
    views.reserve(records.size());
    for (const Lyra2Db::StoredRecord& record : records) {
        views.emplace_back(record.mDTO);
    }
    RFC3339DateTime stored;
    const bool isThere = inDb.ReadLastModifiedMediaLocatorTime(stored);
    RFC3339DateTime newest = inAtLeast;
    Lyra2Db::CompareLastModifiedMediaLocatorTime(views, newest);
    if (newest.IsValid() && (!isThere || newest != stored)) inDb.WriteLastModifiedMediaLocatorTime(newest);
    mNewestLocator = newest;
    return true;
}

void Sandbox::RaiseNewestLocatorLocked(SideDb& inDb, const RFC3339DateTime& inTime)
{
    RFC3339DateTime before;
    if (mNewestLocator) {
        before = *mNewestLocator;
    } else {
        inDb.ReadLastModifiedMediaLocatorTime(before);
    }
    const RFC3339DateTime newest = Later(before, inTime);
    if (newest == before) return;
    if (mNewestLocator) mNewestLocator = newest;
    // One that fails is made up for when the session is opened anew: the time is found to be older than a locator's.
    inDb.WriteLastModifiedMediaLocatorTime(newest);
}

int Sandbox::GetLastModifiedMediaLocatorTime(RFC3339DateTime& outTime)
{
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    const ScopedLock lock(mChangeMutex);
    return LoadNewestLocatorLocked(handles.Db(), outTime) ? kHTTPStatus_OK : kHTTPStatus_InternalServerError;
}

int Sandbox::GetMediaLocators(std::vector<dto::MediaLocator>& outLocators)
{
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    std::vector<Lyra2Db::StoredRecord> records;
    {
        const ScopedLock lock(mChangeMutex);
        if (!handles.Db().ReadMediaLocators(records)) return kHTTPStatus_InternalServerError;
    }
    return FromStored(std::move(records), outLocators) ? kHTTPStatus_OK : kHTTPStatus_InternalServerError;
}

int Sandbox::GetUnsynchronizedLocallyModifiedMediaLocators(std::vector<dto::MediaLocator>& outLocators,
                                                           SyncChangeCount& outSyncTo)
{
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    std::vector<Lyra2Db::StoredRecord> records;
    SyncChangeCount syncTo;
    {
        const ScopedLock lock(mChangeMutex);
        SyncChangeCount exchanged;
        if (!LoadSyncToLocked(handles, SideData::MediaLocators, syncTo) ||
            !ReadExchangedCountLocked(handles, SideData::MediaLocators, exchanged) ||
            !handles.Db().ReadMediaLocatorsChangedAfter(exchanged.mCount, records)) {
            return kHTTPStatus_InternalServerError;
        }
    }
    if (!FromStored(std::move(records), outLocators)) return kHTTPStatus_InternalServerError;
    outSyncTo = syncTo;
    return kHTTPStatus_OK;
}

int Sandbox::GetMediaLocator(const ImmutableString& inLocatorID, dto::MediaLocator& outLocator)
{
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    const ScopedLock lock(mChangeMutex);
    std::int64_t ignored = 0;
    return ReadMediaLocatorLocked(handles.Db(), inLocatorID, outLocator, ignored);
}

int Sandbox::ReadMediaLocatorLocked(SideDb& inDb, const ImmutableString& inLocatorID, dto::MediaLocator& outLocator,
                                    std::int64_t& outChangeCount)
{
    Lyra2Db::StoredRecord record;
    const Lyra2Db::Lookup found = inDb.ReadMediaLocator(inLocatorID, record);
    if (found == Lyra2Db::Lookup::Absent) return kHTTPStatus_NotFound;
    dto::MediaLocator locator;
    if (found == Lyra2Db::Lookup::Failed || !FromStored(record, locator)) return kHTTPStatus_InternalServerError;
    outLocator = std::move(locator);
    outChangeCount = record.mChangeCount;
    return kHTTPStatus_OK;
}

int Sandbox::AddMediaLocator(WriteMode inMode, dto::MediaLocator& ioLocator)
{
    if (ioLocator.mMediaLocatorID.empty()) return kHTTPStatus_BadRequest;
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    const ScopedLock lock(mChangeMutex);
    return AddMediaLocatorLocked(handles, inMode, ioLocator);
}

int Sandbox::AddMediaLocatorLocked(const SideDataHandles& inHandles, WriteMode inMode, dto::MediaLocator& ioLocator)
{
    SideDb& db = inHandles.Db();
    dto::MediaLocator locator = ioLocator;
    std::int64_t count = 0;
    if ((inMode != WriteMode::SyncEngine && !StampAdded(db, {&locator, 1})) ||
        !CountWriteLocked(inHandles, SideData::MediaLocators, inMode,
                          "AddMediaLocator: Failed to increment change count.", count) ||
        !db.WriteMediaLocator(locator.mMediaLocatorID, ToStored(locator), count)) {
        if (IsRope()) LogError("GitBox", "AddMediaLocator: Failed to write media locator to Db.");
        return kHTTPStatus_InternalServerError;
    }
    RaiseNewestLocatorLocked(db, locator.mLastModified);
    ioLocator = std::move(locator);
    return kHTTPStatus_OK;
}

int Sandbox::AddMediaLocators(WriteMode inMode, std::vector<dto::MediaLocator>& ioLocators)
{
    if (ioLocators.empty()) return kHTTPStatus_OK;
    const auto hasNoID = [](const dto::MediaLocator& inLocator) { return inLocator.mMediaLocatorID.empty(); };
    if (std::any_of(ioLocators.begin(), ioLocators.end(), hasNoID)) return kHTTPStatus_BadRequest;
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    std::vector<dto::MediaLocator> locators = ioLocators;
    const ScopedLock lock(mChangeMutex);
    std::int64_t count = 0;
    if ((inMode != WriteMode::SyncEngine && !StampAdded(handles.Db(), locators)) ||
        !CountWriteLocked(handles, SideData::MediaLocators, inMode,
                          "AddMediaLocators: Failed to increment change count.", count)) {
        return kHTTPStatus_InternalServerError;
    }
    std::vector<Lyra2Db::MediaLocatorRow> rows;
    rows.reserve(locators.size());
    RFC3339DateTime newest;
    for (dto::MediaLocator& locator : locators) {
        rows.push_back({locator.mMediaLocatorID.Text(), ToStored(locator)});
        newest = Later(newest, locator.mLastModified);
    }
    if (!handles.Db().WriteMediaLocators(rows, count)) return kHTTPStatus_InternalServerError;
    if (mNewestLocator) mNewestLocator = Later(*mNewestLocator, newest);
    ioLocators = std::move(locators);
    return kHTTPStatus_OK;
}

int Sandbox::EditMediaLocator(WriteMode inMode, dto::MediaLocator& ioLocator)
{
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    const ScopedLock lock(mChangeMutex);
    dto::MediaLocator stored;
    std::int64_t ignored = 0;
    const int status = ReadMediaLocatorLocked(handles.Db(), ioLocator.mMediaLocatorID, stored, ignored);
    if (status == kHTTPStatus_NotFound) {
        LogError("GitBox", "Media locator not found to edit", {{"mediaLocatorId", ioLocator.mMediaLocatorID}});
    }
    return status == kHTTPStatus_OK ? EditMediaLocatorLocked(handles, inMode, stored, ioLocator) : status;
}

int Sandbox::EditMediaLocatorLocked(const SideDataHandles& inHandles, WriteMode inMode,
                                    const dto::MediaLocator& inStored, dto::MediaLocator& ioLocator)
{
    dto::MediaLocator locator = ioLocator;
    if (locator.mProperties.empty()) locator.mProperties = inStored.mProperties;
    if (inMode != WriteMode::SyncEngine) {
        StampFirstWrite(Stamp(), locator);
        KeepCreation(inStored, locator);
    }
    std::int64_t count = 0;
    if (!CountWriteLocked(inHandles, SideData::MediaLocators, inMode,
                          "EditMediaLocator: Failed to increment change count.", count) ||
        !inHandles.Db().UpdateMediaLocator(locator.mMediaLocatorID, ToStored(locator), count)) {
        return kHTTPStatus_InternalServerError;
    }
    RaiseNewestLocatorLocked(inHandles.Db(), locator.mLastModified);
    ioLocator = std::move(locator);
    return kHTTPStatus_OK;
}

int Sandbox::ApplyRemoteMediaLocatorIfNotLocallyModified(const dto::MediaLocator& inRemote,
                                                         const ImmutableString& inLocalUser, bool& outChanged)
{
    if (inRemote.mMediaLocatorID.empty()) return kHTTPStatus_BadRequest;
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    dto::MediaLocator remote = inRemote;
    if (remote.mCreatedBy.empty()) remote.mCreatedBy = inLocalUser.Text();
    if (remote.mLastModifiedBy.empty()) remote.mLastModifiedBy = inLocalUser.Text();
    // Held from the look at the local one to the write: an edit in between would be overwritten.
    const ScopedLock lock(mChangeMutex);
    dto::MediaLocator local;
    SyncChangeCount localCount;
    int status = ReadMediaLocatorLocked(handles.Db(), remote.mMediaLocatorID, local, localCount.mCount);
    if (status == kHTTPStatus_NotFound) {
        status = AddMediaLocatorLocked(handles, WriteMode::SyncEngine, remote);
    } else if (status == kHTTPStatus_OK) {
        SyncChangeCount exchanged;
        const bool isEqual = HaveEqualProperties(remote, local);
        if (!isEqual && !ReadExchangedCountLocked(handles, SideData::MediaLocators, exchanged)) {
            return kHTTPStatus_InternalServerError;
        }
        const bool isModified = !isEqual && !exchanged.IsNone() && !localCount.IsWithin(exchanged);
        if (isModified) LogKeptLocal(local, localCount, remote, exchanged);
        if (isEqual || isModified) {
            outChanged = false;
            return kHTTPStatus_OK;
        }
        status = EditMediaLocatorLocked(handles, WriteMode::SyncEngine, local, remote);
    }
    if (status == kHTTPStatus_OK) outChanged = true;
    return status;
}

}  // namespace VantryLocalHub::GitBox

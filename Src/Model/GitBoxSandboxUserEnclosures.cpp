#include "Inc/Model/GitBoxSandbox.h"
#include "Inc/Model/UserEnclosureIDs.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxcore::logging::LogError;
using noxcore::threads::ScopedLock;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_NotFound;
using noxnet::kHTTPStatus_OK;

namespace {

bool FromStored(const std::string& inDTO, dto::UserEnclosure& outEnclosure)
{
    if (dto::FromJSON(inDTO, outEnclosure)) return true;
    LogError("GitBox", "Stored user enclosure is not readable", {{"record", inDTO}});
    return false;
}

/// One that cannot be read is left out.
std::vector<dto::UserEnclosure> FromStored(const std::vector<Lyra2Db::StoredRecord>& inRecords)
{
    std::vector<dto::UserEnclosure> enclosures;
    enclosures.reserve(inRecords.size());
    for (const Lyra2Db::StoredRecord& record : inRecords) {
        if (!FromStored(record.mDTO, enclosures.emplace_back())) enclosures.pop_back();
    }
    return enclosures;
}

/// Links are made anew for each answer.
std::string ToStored(dto::UserEnclosure& ioEnclosure)
{
    ioEnclosure.mLinks.clear();
    return dto::ToJSON(ioEnclosure);
}

/// Gives a record its ids. What the sync engine brings keeps those of the remote side, by which it is compared later.
void Identify(WriteMode inMode, std::string_view inContent, dto::UserEnclosure& ioEnclosure)
{
    const dto::UserEnclosure given = ioEnclosure;
    SetOwnIDs(inContent, ioEnclosure);
    if (inMode != WriteMode::SyncEngine) return;
    for (const auto member :
         {&dto::UserEnclosure::mEnclosureContentID, &dto::UserEnclosure::mDataContentID, &dto::UserEnclosure::mEtag})
        if (!(given.*member).empty()) ioEnclosure.*member = given.*member;
}

}  // namespace

int Sandbox::GetUserEnclosures(const ImmutableString& inUser, std::vector<dto::UserEnclosure>& outEnclosures)
{
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    std::vector<Lyra2Db::StoredRecord> records;
    const ScopedLock lock(mChangeMutex);
    if (!handles.Db().ReadUserEnclosures(inUser, records)) return kHTTPStatus_InternalServerError;
    outEnclosures = FromStored(records);
    return kHTTPStatus_OK;
}

int Sandbox::GetUnsynchronizedLocallyModifiedUserEnclosures(const ImmutableString& inUser,
                                                            std::vector<dto::UserEnclosure>& outEnclosures,
                                                            SyncChangeCount& outSyncTo)
{
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    std::vector<Lyra2Db::StoredRecord> records;
    const ScopedLock lock(mChangeMutex);
    SyncChangeCount exchanged;
    SyncChangeCount syncTo;
    if (!LoadSyncToLocked(handles, SideData::UserEnclosures, syncTo) ||
        !ReadExchangedCountLocked(handles, SideData::UserEnclosures, exchanged) ||
        !handles.Db().ReadUserEnclosuresChangedAfter(inUser, exchanged.mCount, records)) {
        return kHTTPStatus_InternalServerError;
    }
    outSyncTo = syncTo;
    outEnclosures = FromStored(records);
    return kHTTPStatus_OK;
}

int Sandbox::ReadUserEnclosureLocked(SideDb& inDb, const ImmutableString& inUser, const ImmutableString& inEnclosureID,
                                     dto::UserEnclosure& outEnclosure)
{
    std::string metadata;
    const Lyra2Db::Lookup found = inDb.ReadUserEnclosureMetadata(inUser, inEnclosureID, metadata);
    if (found == Lyra2Db::Lookup::Absent) return kHTTPStatus_NotFound;
    dto::UserEnclosure enclosure;
    if (found == Lyra2Db::Lookup::Failed || !FromStored(metadata, enclosure)) return kHTTPStatus_InternalServerError;
    outEnclosure = std::move(enclosure);
    return kHTTPStatus_OK;
}

int Sandbox::GetUserEnclosure(const ImmutableString& inUser, const ImmutableString& inEnclosureID,
                              dto::UserEnclosure& outEnclosure, ConstRecycledMemoryPtr& outPayload)
{
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    const ScopedLock lock(mChangeMutex);
    dto::UserEnclosure enclosure;
    const int status = ReadUserEnclosureLocked(handles.Db(), inUser, inEnclosureID, enclosure);
    if (status != kHTTPStatus_OK) return status;
    std::string content;
    if (handles.Db().ReadUserEnclosureContent(inUser, inEnclosureID, content) != Lyra2Db::Lookup::Found) {
        return kHTTPStatus_InternalServerError;
    }
    outEnclosure = std::move(enclosure);
    outPayload = noxcore::utility::MakeRecycledMemory(std::move(content));
    return kHTTPStatus_OK;
}

int Sandbox::AddUserEnclosure(const ImmutableString& inUser, WriteMode inMode, const ConstRecycledMemoryPtr& inPayload,
                              dto::UserEnclosure& ioEnclosure)
{
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    const std::string_view content = inPayload ? inPayload->View() : std::string_view();
    dto::UserEnclosure enclosure = ioEnclosure;
    if (enclosure.mEnclosureID.empty()) enclosure.mEnclosureID = noxcore::utility::Guid::CreateUnique().Text();
    Identify(inMode, content, enclosure);
    const ScopedLock lock(mChangeMutex);
    std::int64_t count = 0;
    if (!CountWriteLocked(handles, SideData::UserEnclosures, inMode,
                          "AddUserEnclosure: Failed to increment change count.", count) ||
        !handles.Db().WriteUserEnclosure(
            {inUser.Text(), enclosure.mEnclosureID.Text(), ToStored(enclosure), std::string(content)}, count)) {
        return kHTTPStatus_InternalServerError;
    }
    ioEnclosure = std::move(enclosure);
    return kHTTPStatus_OK;
}

int Sandbox::UpdateUserEnclosure(const ImmutableString& inUser, WriteMode inMode,
                                 const ConstRecycledMemoryPtr& inPayload, dto::UserEnclosure& ioEnclosure)
{
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    const ScopedLock lock(mChangeMutex);
    dto::UserEnclosure stored;
    const int status = ReadUserEnclosureLocked(handles.Db(), inUser, ioEnclosure.mEnclosureID, stored);
    if (status != kHTTPStatus_OK) return status;
    std::string kept;
    if (!inPayload &&
        handles.Db().ReadUserEnclosureContent(inUser, ioEnclosure.mEnclosureID, kept) != Lyra2Db::Lookup::Found) {
        return kHTTPStatus_InternalServerError;
    }
    const std::string_view content = inPayload ? inPayload->View() : std::string_view(kept);
    dto::UserEnclosure enclosure = ioEnclosure;
    if (enclosure.mName.empty()) enclosure.mName = stored.mName;
    Identify(inMode, content, enclosure);
    std::int64_t count = 0;
    if (!CountWriteLocked(handles, SideData::UserEnclosures, inMode,
                          "UpdateUserEnclosure: Failed to increment change count.", count) ||
        !handles.Db().UpdateUserEnclosure(
            {inUser.Text(), enclosure.mEnclosureID.Text(), ToStored(enclosure), std::string(content)}, count)) {
        return kHTTPStatus_InternalServerError;
    }
    ioEnclosure = std::move(enclosure);
    return kHTTPStatus_OK;
}

int Sandbox::DeleteUserEnclosure(const ImmutableString& inUser, const ImmutableString& inEnclosureID)
{
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    // Under the mutex of all side data: a batch under way would take the deletion along if it is rolled back.
    const ScopedLock lock(mChangeMutex);
    dto::UserEnclosure stored;
    const int status = ReadUserEnclosureLocked(handles.Db(), inUser, inEnclosureID, stored);
    if (status != kHTTPStatus_OK) return status;
    return NoteFurtherWriteLocked(handles, SideData::UserEnclosures) &&
                   handles.Db().DeleteUserEnclosure(inUser, inEnclosureID)
               ? kHTTPStatus_OK
               : kHTTPStatus_InternalServerError;
}

}  // namespace VantryLocalHub::GitBox

// What a session takes over from a snapshot, and gives to a copy.

#include <utility>

#include "Inc/Model/CommitMessages.h"
#include "Inc/Model/GitBoxIOZip.h"
#include "Inc/Model/GitBoxSandbox.h"
#include "Inc/Model/RopeFileCopy.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxcore::threads::ScopedLock;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_NotFound;
using noxnet::kHTTPStatus_OK;

int Sandbox::ApplySnapshot(const std::string& inZipFile, bool inKeepSessionProperties, bool inDeleteWhatIsNotInSnapshot,
                           dto::Session& outSession)
{
    Handles handles;
    IO::AppliedSnapshot applied;
    if (!RetainDB(handles) || !IO::ApplySnapshot(inZipFile, handles.mRepo, applied)) {
        return kHTTPStatus_InternalServerError;
    }
    if (inKeepSessionProperties) applied.mChanges.mProperties.reset();
    // What goes depends on the head, which nobody moves meanwhile.
    const ScopedLock write(mWriteMutex);
    const ImmutableString head = inDeleteWhatIsNotInSnapshot ? GetSession().mRevision : ImmutableString();
    if (inDeleteWhatIsNotInSnapshot && !IO::DeleteWhatIsNotIn(handles.mRepo, head, applied.mChanges))
        return kHTTPStatus_InternalServerError;
    handles = {};  // after some failures the files are opened anew, once nobody has them open
    // Before the commit: what is answered as failed has not become a part of the history then.
    Lyra2Db::RecordsBefore before;
    ImmutableString ignored;
    int status = kHTTPStatus_InternalServerError;
    if (WriteAppliedLocators(applied.mLocators, before))
        status = CommitTransaction(inDeleteWhatIsNotInSnapshot, MakeCommitMessage(CommitMessageCode::SnapshotApplied),
                                   head, applied.mChanges, outSession, ignored);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) TakeBackAppliedLocators(applied.mLocators, before);
    return status;
}

void Sandbox::TakeBackAppliedLocators(const std::vector<Lyra2Db::MediaLocatorRow>& inRows,
                                      const Lyra2Db::RecordsBefore& inBefore)
{
    SideDataHandles handles;
    if (inBefore.empty() || !RetainSideData(handles)) return;
    const ScopedLock lock(mChangeMutex);
    handles.Db().TakeBackMediaLocators(inRows, inBefore);
    FindNewestLocatorLocked(handles.Db(), {});
}

bool Sandbox::WriteAppliedLocators(const std::vector<Lyra2Db::MediaLocatorRow>& inRows,
                                   Lyra2Db::RecordsBefore& outBefore)
{
    SideDataHandles handles;
    if (!RetainSideData(handles)) return false;
    const ScopedLock lock(mChangeMutex);
    std::int64_t count = 0;
    if (!CountWriteLocked(handles, SideData::MediaLocators, WriteMode::LocalEdit,
                          "Failed to add the media locators of a snapshot", count)) {
        return false;
    }
    if (inRows.empty()) return true;
    std::vector<std::string_view> ids;
    for (const Lyra2Db::MediaLocatorRow& row : inRows)
        ids.emplace_back(row.mID);
    Lyra2Db::RecordsBefore before(ids.size());
    const auto note = [&](std::size_t inPlace, const Lyra2Db::StoredRecord& inRecord) { before[inPlace] = inRecord; };
    if (!handles.Db().ReadMediaLocatorsByID(ids, note)) return false;
    outBefore = std::move(before);  // not by half: what is missing in it is taken for new, and removed
    RopeFile::SessionData data;
    for (const Lyra2Db::MediaLocatorRow& row : inRows)
        data.mLocators.push_back({row.mDTO, count});
    const bool isWritten = IsRope() ? RopeFile::CopySessionDataToRepo(handles.mHandles.mRepo, data)
                                    : handles.Db().WriteMediaLocators(inRows, count);
    return isWritten && FindNewestLocatorLocked(handles.Db(), {});
}

void Sandbox::SetSnapshotRootAssetID(const ImmutableString& inAssetID)
{
    const ScopedLock lock(mMainMutex);
    mSession.mSnapshotRootAssetID = inAssetID;
}

int Sandbox::GetLocatorRows(std::vector<Lyra2Db::MediaLocatorRow>& outRows)
{
    SideDataHandles handles;
    if (!RetainSideData(handles)) return kHTTPStatus_InternalServerError;
    std::vector<Lyra2Db::StoredRecord> records;
    {
        const ScopedLock lock(mChangeMutex);
        if (!handles.Db().ReadMediaLocators(records)) return kHTTPStatus_InternalServerError;
    }
    outRows = IO::ToLocatorRows(std::move(records));
    return kHTTPStatus_OK;
}

int Sandbox::GetTemplateRecipients(dto::RawArray& outRecipients)
{
    Handles handles;
    if (IsRope()) return kHTTPStatus_NotFound;
    if (!RetainDB(handles)) return kHTTPStatus_InternalServerError;
    std::string text;
    {
        const ScopedLock lock(mChangeMutex);
        if (!Lyra2Db::ReadTemplateRecipients(*handles.mDb, text)) return kHTTPStatus_NotFound;
    }
    if (dto::RawArray::FromText(text, outRecipients)) return kHTTPStatus_OK;
    noxcore::logging::LogError("GitBox", "Stored recipients of a template are not readable", {{"path", mFolder}});
    return kHTTPStatus_InternalServerError;
}

}  // namespace VantryLocalHub::GitBox

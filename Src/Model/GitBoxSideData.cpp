// The operations of the interface on media locators and user enclosures: find the session, forward to its sandbox, and
// tell of the change. A session is named by either of its ids; the records call it by its production.

#include "Inc/Model/GitBox.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxcore::logging::LogError;
using noxnet::IsSuccessfulHTTPStatus;
using noxnet::kHTTPStatus_BadRequest;
using noxnet::kHTTPStatus_NotFound;

namespace {

constexpr std::string_view kCategory = "GitBox";

int LogNoProduction(std::string_view inMessage, const ImmutableString& inSessionID)
{
    LogError(kCategory, inMessage, {{"productionId", inSessionID}});
    return kHTTPStatus_NotFound;
}

int LogNoProduction(std::string_view inMessage, const ImmutableString& inSessionID, const ImmutableString& inLocatorID)
{
    LogError(kCategory, inMessage, {{"productionId", inSessionID}, {"mediaLocatorId", inLocatorID}});
    return kHTTPStatus_NotFound;
}

constexpr std::string_view kNoProductionToRead = "Failed to get media locators. Production not found";

}  // namespace

int GitBox::GetSideDataTags(const ImmutableString& inSessionID, SideDataTags& outTags)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetSideDataTags(outTags) : kHTTPStatus_NotFound;
}

int GitBox::GetLastModifiedMediaLocatorTime(const ImmutableString& inSessionID, RFC3339DateTime& outTime)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetLastModifiedMediaLocatorTime(outTime) : kHTTPStatus_NotFound;
}

int GitBox::GetMediaLocators(const ImmutableString& inSessionID, std::vector<dto::MediaLocator>& outLocators)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetMediaLocators(outLocators) : LogNoProduction(kNoProductionToRead, inSessionID);
}

int GitBox::GetUnsynchronizedLocallyModifiedMediaLocators(const ImmutableString& inSessionID,
                                                          std::vector<dto::MediaLocator>& outLocators,
                                                          SyncChangeCount& outSyncTo)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetUnsynchronizedLocallyModifiedMediaLocators(outLocators, outSyncTo)
                   : LogNoProduction(kNoProductionToRead, inSessionID);
}

int GitBox::GetMediaLocator(const ImmutableString& inSessionID, const ImmutableString& inLocatorID,
                            dto::MediaLocator& outLocator)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetMediaLocator(inLocatorID, outLocator)
                   : LogNoProduction("Failed to get media locator. Production not found", inSessionID, inLocatorID);
}

int GitBox::AddMediaLocator(const ImmutableString& inSessionID, WriteMode inMode, dto::MediaLocator& ioLocator)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (sandbox) return NoteChange(*sandbox, sandbox->AddMediaLocator(inMode, ioLocator));
    return LogNoProduction("Failed to add media locator to production. Production not found", inSessionID,
                           ioLocator.mMediaLocatorID);
}

int GitBox::AddMediaLocators(const ImmutableString& inSessionID, WriteMode inMode,
                             std::vector<dto::MediaLocator>& ioLocators)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) {
        return LogNoProduction("Failed to add media locators to production. Production not found", inSessionID);
    }
    const int status = sandbox->AddMediaLocators(inMode, ioLocators);
    return ioLocators.empty() ? status : NoteChange(*sandbox, status);
}

int GitBox::EditMediaLocator(const ImmutableString& inSessionID, const ImmutableString& inTransactionID,
                             WriteMode inMode, dto::MediaLocator& ioLocator)
{
    if (!inTransactionID.empty()) {
        LogError(kCategory, "You cannot edit a media locator on a transaction",
                 {{"trasactionId", inTransactionID}, {"mediaLocatorId", ioLocator.mMediaLocatorID}});
        return kHTTPStatus_BadRequest;
    }
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? NoteChange(*sandbox, sandbox->EditMediaLocator(inMode, ioLocator))
                   : LogNoProduction("Failed to get media locator. Production not found", inSessionID);
}

int GitBox::ApplyRemoteMediaLocatorIfNotLocallyModified(const ImmutableString& inSessionID,
                                                        const dto::MediaLocator& inRemote,
                                                        const ImmutableString& inLocalUser, bool& outChanged)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    bool changed = false;
    const int status = sandbox->ApplyRemoteMediaLocatorIfNotLocallyModified(inRemote, inLocalUser, changed);
    if (changed) PostSessionChanged(sandbox->GetLocalSessionID());
    if (IsSuccessfulHTTPStatus(status)) outChanged = changed;
    return NoteWrite(*sandbox, status);
}

int GitBox::GetUserEnclosures(const ImmutableString& inSessionID, const ImmutableString& inUser,
                              std::vector<dto::UserEnclosure>& outEnclosures)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetUserEnclosures(inUser, outEnclosures) : kHTTPStatus_NotFound;
}

int GitBox::GetUnsynchronizedLocallyModifiedUserEnclosures(const ImmutableString& inSessionID,
                                                           const ImmutableString& inUser,
                                                           std::vector<dto::UserEnclosure>& outEnclosures,
                                                           SyncChangeCount& outSyncTo)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetUnsynchronizedLocallyModifiedUserEnclosures(inUser, outEnclosures, outSyncTo)
                   : kHTTPStatus_NotFound;
}

int GitBox::GetUserEnclosure(const ImmutableString& inSessionID, const ImmutableString& inUser,
                             const ImmutableString& inEnclosureID, dto::UserEnclosure& outEnclosure,
                             ConstRecycledMemoryPtr& outPayload)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetUserEnclosure(inUser, inEnclosureID, outEnclosure, outPayload) : kHTTPStatus_NotFound;
}

int GitBox::AddUserEnclosure(const ImmutableString& inSessionID, const ImmutableString& inUser, WriteMode inMode,
                             const ConstRecycledMemoryPtr& inPayload, dto::UserEnclosure& ioEnclosure)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    return NoteChange(*sandbox, sandbox->AddUserEnclosure(inUser, inMode, inPayload, ioEnclosure));
}

int GitBox::UpdateUserEnclosure(const ImmutableString& inSessionID, const ImmutableString& inUser, WriteMode inMode,
                                const ConstRecycledMemoryPtr& inPayload, dto::UserEnclosure& ioEnclosure)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    return NoteChange(*sandbox, sandbox->UpdateUserEnclosure(inUser, inMode, inPayload, ioEnclosure));
}

int GitBox::DeleteUserEnclosure(const ImmutableString& inSessionID, const ImmutableString& inUser,
                                const ImmutableString& inEnclosureID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    return NoteChange(*sandbox, sandbox->DeleteUserEnclosure(inUser, inEnclosureID));
}

}  // namespace VantryLocalHub::GitBox

#include "Inc/Service/SessionStatusService.h"

#include "Client/Wire/Status.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/ServiceUtils.h"
#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

namespace {

int CreatePayload(const noxnet::http::server::Request& inRequest, std::string& outPayload)
{
    const auto projectBox = ProjectBox::Instance();
    const auto syncBox = SyncBox::Instance();
    if (projectBox == nullptr || syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString id;
    if (!ExtractSubExpression(inRequest, 1, id)) return noxnet::kHTTPStatus_BadRequest;
    dto::Session session;
    int status = projectBox->GetProduction(id, VYCL::LocalHub::Revision_HEAD(), session);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    SideDataTags tags;
    status = projectBox->GetSideDataTags(session.mIdentifier, tags);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    SyncStatus syncStatus;
    // A failure leaves Unknown, which is the answer, unless the session was closed meanwhile.
    status = syncBox->GetSyncStatusForSession(session.mIdentifier, syncStatus);
    if (!noxnet::IsSuccessfulHTTPStatus(status) && !projectBox->SessionExists(session.mIdentifier))
        return noxnet::kHTTPStatus_NotFound;

    dto::SessionStatus resource;
    resource.mProduction.mEtag = session.mProductionRevision;
    resource.mSession = {session.mRevision, session.mModified};
    resource.mMediaLocators.mEtag = tags.mMediaLocators;
    resource.mUserEnclosures.mEtag = tags.mUserEnclosures;
    resource.mStatus = syncStatus.mState;
    outPayload = dto::ToJSON(resource);
    return noxnet::kHTTPStatus_OK;
}

/// Readers wait under the session's own id, whichever of its two ids their URL has.
int FindKey(const RequestPtr& inRequest, ImmutableString& outSessionID)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString id;
    if (!ExtractSubExpression(*inRequest, 1, id)) return noxnet::kHTTPStatus_BadRequest;
    dto::Session session;
    const int status = projectBox->GetSession(id, session);
    if (noxnet::IsSuccessfulHTTPStatus(status)) outSessionID = session.mIdentifier;
    return status;
}

}  // namespace

SessionStatusService::SessionStatusService()
{
    Async("GET", {}, [this](const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion) {
        ImmutableString sessionID;
        const int status = FindKey(inRequest, sessionID);
        if (noxnet::IsSuccessfulHTTPStatus(status))
            Answer(sessionID, CreatePayload, inRequest, inResponse, std::move(inCompletion));
        else
            inCompletion(status);
    });
    WakeOn<ProjectBox::SessionChangedMessage>(
        ProjectBox::Station(), [](const ProjectBox::SessionChangedMessage& inMessage) { return inMessage.mSessionID; });
    // The sync state is part of the status, and changes without the store.
    WakeOn<SyncBox::SyncStatusChangedMessage>(
        SyncBox::Station(), [](const SyncBox::SyncStatusChangedMessage& inMessage) { return inMessage.mSessionID; });
}

}  // namespace VantryLocalHub

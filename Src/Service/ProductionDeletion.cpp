#include <algorithm>
#include <array>

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/ComplaintBox.h"
#include "Inc/Service/Resources.h"
#include "Platform/noxcore/Logging.h"
#include "Src/Service/ProductionHandlers.h"

namespace VantryLocalHub::ProductionHandlers {

using noxcore::logging::LogInformation;
using noxcore::logging::LogWarning;

namespace {

constexpr int kSelectorGroup = 3;

bool IsUnreachable(const ImmutableString& inState)
{
    using namespace VYCL::LocalHub;
    const std::array states = {SyncState_Unknown(), SyncState_Disconnected(), SyncState_LocalOnly(),
                               SyncState_NotAuthorized(), SyncState_RevokedOrDeleted()};
    return std::ranges::find(states, inState) != states.end();
}

/// A success where the session may go; 412 or 423 with a record where it may not.
int CheckSyncState(SyncBox& inSyncBox, const ImmutableString& inSessionID, bool inRemoteToo)
{
    SyncStatus syncStatus;
    const int status = inSyncBox.GetSyncStatusForSession(inSessionID, syncStatus);
    if (inRemoteToo && IsUnreachable(syncStatus.mState)) {
        LogWarning(kServiceLogCategory, "Cannot delete a synchronized session while disconnected",
                   {{"syncStatus", syncStatus.mState.View()}, {"status", status}});
        return noxnet::kHTTPStatus_PreconditionFailed;
    }
    for (const dto::Job& job : inSyncBox.GetSyncJobs(inSessionID)) {
        if (!(job.mJobState == VYCL::GetJobState_Running())) continue;
        LogWarning(kServiceLogCategory, "Cannot delete a synchronized session while it is synchronizing",
                   {{"syncStatus", syncStatus.mState.View()}, {"job", job.mID.View()}});
        return noxnet::kHTTPStatus_Locked;
    }
    return noxnet::kHTTPStatus_OK;
}

int DeleteLocalSession(SyncBox& inSyncBox, const ImmutableString& inSessionID)
{
    LogInformation(kServiceLogCategory, "Deleting local session", {{"sessionID", inSessionID.View()}});
    const ImmutableString remoteProductionID = inSyncBox.GetRemoteProductionID(inSessionID);
    // A session that was never linked has no link to cut: that is no failure.
    inSyncBox.DisassociateForSync(inSessionID);
    const int status = inSyncBox.DisconnectOrDeleteSession(inSessionID, true);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) {
        LogWarning(
            kServiceLogCategory, "ProductionService: Failed to delete production",
            {{"sessionID", inSessionID.View()}, {"remoteProductionID", remoteProductionID.View()}, {"status", status}});
        return status;
    }
    // Cutting the session off filed a complaint about it, which nobody could act on any more.
    ComplaintBox::Instance()->RemoveComplaintsOfSession(inSessionID);
    return noxnet::kHTTPStatus_NoContent;
}

void DeleteRemoteThenLocal(const std::shared_ptr<SyncBox>& inSyncBox, const ImmutableString& inSessionID,
                           Completion inCompletion)
{
    const ImmutableString remoteProductionID = inSyncBox->GetRemoteProductionID(inSessionID);
    LogInformation(kServiceLogCategory, "Deleting local session and remote production",
                   {{"localSessionID", inSessionID.View()}, {"remoteProductionID", remoteProductionID.View()}});
    inSyncBox->DeleteRemoteProduction(remoteProductionID, [weakSyncBox = std::weak_ptr(inSyncBox), inSessionID,
                                                           completion = std::move(inCompletion)](int inStatus) {
        const auto syncBox = weakSyncBox.lock();
        if (syncBox == nullptr)
            completion(noxnet::kHTTPStatus_InternalServerError);
        else if (noxnet::IsSuccessfulHTTPStatus(inStatus) || inStatus == noxnet::kHTTPStatus_NotFound)
            completion(DeleteLocalSession(*syncBox, inSessionID));
        else
            completion(inStatus);
    });
}

}  // namespace

void Delete(const RequestPtr& inRequest, const ResponsePtr&, Completion inCompletion)
{
    const auto projectBox = ProjectBox::Instance();
    const auto syncBox = SyncBox::Instance();
    if (projectBox == nullptr || syncBox == nullptr) return inCompletion(noxnet::kHTTPStatus_InternalServerError);
    Place place;
    ImmutableString selector;
    if (!ReadPlace(inRequest, place) || !ExtractSubExpression(*inRequest, kSelectorGroup, selector))
        return inCompletion(noxnet::kHTTPStatus_BadRequest);
    // What stands for none or for all is no production, and a part of one must not take the whole with it.
    if (place.mProductionID == "-" || place.mProductionID == "*") return inCompletion(noxnet::kHTTPStatus_BadRequest);
    if (!selector.empty()) return inCompletion(noxnet::kHTTPStatus_NotImplemented);

    dto::Session production;
    int status = GetAtHead(*projectBox, place.mProductionID, production);
    if (status == noxnet::kHTTPStatus_NotFound) {
        LogInformation(kServiceLogCategory, "Deleting remote production",
                       {{"remoteProductionID", place.mProductionID.View()}});
        return syncBox->DeleteRemoteProduction(place.mProductionID, std::move(inCompletion));
    }
    // A session that is here but cannot be read is no reason to delete anything on the server.
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);

    const std::string_view tag = inRequest->Header(noxnet::kHEADER_IfNoneMatch);
    if (!tag.empty() && tag != ProductionTag(production)) return inCompletion(noxnet::kHTTPStatus_PreconditionFailed);

    const bool remoteToo =
        syncBox->IsAssociated(production.mIdentifier) && !QueryIsTrue(*inRequest, VYCL::QueryKeys::kLocalOnly);
    status = CheckSyncState(*syncBox, production.mIdentifier, remoteToo);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);
    if (remoteToo) return DeleteRemoteThenLocal(syncBox, production.mIdentifier, std::move(inCompletion));
    inCompletion(DeleteLocalSession(*syncBox, production.mIdentifier));
}

}  // namespace VantryLocalHub::ProductionHandlers

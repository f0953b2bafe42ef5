#include "Inc/Sync/ResolutionCentre.h"

#include <utility>

#include "Inc/Model/CommitMessages.h"
#include "Inc/Model/ProjectBox.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub {

using namespace VYCL::LocalHub;

namespace {

/// What was shared last, as the store knows it by name.
constexpr std::string_view kProductionHead = "production";

/// Copies one payload, unless it is there. Payloads are copied one after the other: only one is in memory at a time.
int BringContent(ProjectBox& inBox, const ImmutableString& inFromSession, const ImmutableString& inToSession,
                 dto::Enclosure& ioEnclosure)
{
    int status = inBox.HasContent(inToSession, ioEnclosure.mEnclosureContentID);
    if (status != noxnet::kHTTPStatus_NotFound) return status;
    ConstRecycledMemoryPtr payload;
    status = inBox.GetAssetEnclosureByContentHash(inFromSession, ioEnclosure.mEnclosureContentID, payload);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    ioEnclosure.mEnclosureContentID = inBox.ComputeContentHash(inToSession, payload);
    return ioEnclosure.mEnclosureContentID.empty() ? noxnet::kHTTPStatus_InternalServerError : status;
}

/// Writes an asset of one session to the repository of another, so that it can be restored from there.
int BringAsset(ProjectBox& inBox, const ImmutableString& inFromSession, const ImmutableString& inToSession,
               dto::Asset& ioAsset)
{
    for (dto::Enclosure& enclosure : ioAsset.mEnclosures) {
        const int status = BringContent(inBox, inFromSession, inToSession, enclosure);
        if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    }
    return inBox.ComputeContentHashAndEmbedInAsset(inToSession, ioAsset);
}

/// Whether the head has the asset with that content already, and no conflict marked at it.
bool IsAtHead(ProjectBox& inBox, const ImmutableString& inSessionID, const dto::Asset& inAsset)
{
    dto::Asset current;
    dto::ConflictMarker marker;
    return noxnet::IsSuccessfulHTTPStatus(inBox.GetAsset(inSessionID, Revision_HEAD(), inAsset.mAssetID, current)) &&
           current.mAssetContentID == inAsset.mAssetContentID &&
           inBox.GetConflictInfo(inSessionID, Revision_HEAD(), inAsset.mAssetID.Text(), marker) ==
               noxnet::kHTTPStatus_NotFound;
}

}  // namespace

void ResolutionCentre::RestoreAssetFromProduction(const ImmutableString& inSessionID,
                                                  const ImmutableString& inProductionID,
                                                  const ImmutableString& inAssetID, StatusCompletion inCompletion)
{
    const auto box = ProjectBox::Instance();
    dto::Session target;
    dto::Session source;
    dto::Asset asset;
    int status = box ? box->GetSession(inSessionID, target) : noxnet::kHTTPStatus_InternalServerError;
    if (noxnet::IsSuccessfulHTTPStatus(status)) {
        status = box->GetSession(inProductionID, source);
        if (noxnet::IsSuccessfulHTTPStatus(status)) {
            const ImmutableString revision =
                source.mIdentifier == target.mIdentifier ? ImmutableString(kProductionHead) : Revision_HEAD();
            status = box->GetAsset(source.mIdentifier, revision, inAssetID, asset);
        }
        if (status == noxnet::kHTTPStatus_NotFound) {
            return SyncBox::RestoreAssetFromProduction(inSessionID, inProductionID, inAssetID, std::move(inCompletion));
        }
    }
    if (noxnet::IsSuccessfulHTTPStatus(status) && !(source.mIdentifier == target.mIdentifier)) {
        status = BringAsset(*box, source.mIdentifier, target.mIdentifier, asset);
    }
    if (noxnet::IsSuccessfulHTTPStatus(status) && !IsAtHead(*box, target.mIdentifier, asset))
        status = CommitRestored(*box, target.mIdentifier, asset);
    if (inCompletion) inCompletion(status);
}

/// A restored asset is taken by its content, which knows of no conflict.
int ResolutionCentre::CommitRestored(ProjectBox& inBox, const ImmutableString& inSessionID, const dto::Asset& inAsset)
{
    dto::TransactionResource transaction;
    int status = inBox.OpenTransaction(inSessionID, {}, VYCL::GetTransactionType_Edit(), {}, transaction);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    dto::Asset restored;
    status = inBox.RestoreAsset(transaction.mTransactionID, inAsset.mAssetID, inAsset.mAssetContentID, restored);
    if (noxnet::IsSuccessfulHTTPStatus(status)) {
        CommitOutcome outcome;
        status = CommitTransaction(transaction.mTransactionID,
                                   {GitBox::MakeCommitMessage(GitBox::CommitMessageCode::AssetRestored)}, {}, outcome);
    }
    if (!noxnet::IsSuccessfulHTTPStatus(status)) inBox.CloseTransaction(transaction.mTransactionID);
    return status;
}

void ResolutionCentre::DiscardLocalChanges(const ImmutableString& inSessionID, StatusCompletion inCompletion)
{
    SyncStatus syncStatus;
    int status = GetSyncStatusForSession(inSessionID, syncStatus);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) {
        noxcore::logging::LogWarning("HubSync", "Cannot discard local changes",
                                     {{"localSessionID", inSessionID.View()}, {"status", status}});
    } else if (syncStatus.mState == VYCL::LocalHub::SyncState_LocalSessionConflict()) {
        SyncBox::DiscardLocalChanges(inSessionID, std::move(inCompletion));
        return;
    } else {
        status = noxnet::kHTTPStatus_NotModified;
    }
    if (inCompletion) inCompletion(status);
}

}  // namespace VantryLocalHub

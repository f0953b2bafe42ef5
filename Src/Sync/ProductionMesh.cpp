#include "Inc/Sync/ProductionMesh.h"

#include <utility>

#include "Client/Wire/OpaqueMembers.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Sync/ProductionListMesh.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub {

using namespace noxcore::logging;
using namespace VYCL::LocalHub;

namespace {

constexpr std::string_view kCategory = "HubSync";
constexpr std::string_view kActivityCategory = "CollaboratorsActivity";
/// From here on a job starts at once, without waiting for its turn.
constexpr int kImmediatePriority = 100;
/// Where a client notes in a production's properties of what type it is.
constexpr std::string_view kProductionTypeKey = "lumo:productionType";
constexpr int kNoSyncWanted = 320;  ///< in the log only

bool IsSprint(const dto::Session& inSession)
{
    const auto type = dto::FindMember(inSession.mProperties.Text(), kProductionTypeKey);
    return dto::TextOf(type) == VYCL::GetProductionType_Sprint().View();
}

SyncJobRequest MakePushRequest(const ImmutableString& inSessionID)
{
    SyncJobRequest request;
    request.mSessionID = inSessionID;
    request.mJobID = Guid::CreateUnique();
    request.mResults = std::make_shared<JobResults>();
    request.mParams.mTimestamp = RFC3339DateTime::Now();
    request.mParams.mDirection = SyncDirection_Push();
    request.mParams.mFromRevision = Revision_LatestSyncPoint();
    request.mParams.mToRevision = Revision_HEAD();
    request.mParams.mPriority = kImmediatePriority;
    return request;
}

}  // namespace

void ProductionMesh::GetProductionList(SessionListCompletion inCompletion)
{
    std::vector<dto::Session> sessions;
    const auto box = ProjectBox::Instance();
    if (box) {
        for (const auto& listed : box->GetSessions()) {
            dto::Session session;
            const int status = box->GetProduction(listed.mIdentifier, Revision_HEAD(), session);
            if (noxnet::IsSuccessfulHTTPStatus(status)) sessions.push_back(std::move(session));
        }
        HideFromViewer(sessions);
    }
    if (inCompletion) inCompletion(box ? noxnet::kHTTPStatus_OK : noxnet::kHTTPStatus_InternalServerError, sessions);
}

void ProductionMesh::GetArchivedProductionList(SessionListCompletion inCompletion)
{
    // The archive is the remote hub's; without one there is nothing in it.
    if (inCompletion) inCompletion(noxnet::kHTTPStatus_OK, {});
}

int ProductionMesh::GetProduction(const ImmutableString& inProductionID, dto::Session& outProduction)
{
    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    std::vector<dto::Session> sessions(1);
    const int status = box->GetProduction(inProductionID, Revision_HEAD(), sessions.front());
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    HideFromViewer(sessions);
    if (sessions.empty()) return noxnet::kHTTPStatus_NotFound;
    outProduction = std::move(sessions.front());
    return noxnet::kHTTPStatus_OK;
}

/// What the list of productions leaves out is left out everywhere that it is shown as one.
void ProductionMesh::HideFromViewer(std::vector<dto::Session>& ioSessions)
{
    if (!noxcore::debug::DebugDatabase::Instance()->GetBoolean("VY.Config.LocalHub.FilterProductionList", true)) return;
    const ProductionViewer viewer = ReadProductionViewer(*this);
    if (!viewer.IsUnknown()) HideSessionsOfOthers(*this, viewer, ioSessions);
}

int ProductionMesh::CreateSession(const dto::ProductionProperties& inProperties, const ImmutableString& inUserEmail,
                                  bool inLocalOnly, dto::Session& outSession)
{
    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    const SessionKind kind = inLocalOnly ? SessionKind::LocalOnly : SessionKind::Synchronized;
    const int status = box->CreateSession({}, inProperties, kind, outSession);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    const int associated = AssociateWithUserOnly(outSession.mIdentifier, inUserEmail, inLocalOnly);
    if (noxnet::IsSuccessfulHTTPStatus(associated)) {
        outSession.mLocalOnly = inLocalOnly;
    } else {
        LogError(kCategory, "CreateSession: cannot associate session with user",
                 {{"localSessionID", outSession.mIdentifier.View()}, {"status", associated}});
    }
    if (!inLocalOnly) CreateRemoteAssociatedSession(outSession.mIdentifier, {});
    return status;
}

int ProductionMesh::OpenSnapshot(const std::string& inZipFile, const ImmutableString& inRootAssetID,
                                 const dto::ProductionProperties& inProperties, bool inCreateSession,
                                 dto::Session& outSession)
{
    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    const int status = inCreateSession ? box->CreateSessionFromSnapshot(inZipFile, inProperties, outSession)
                                       : box->ExtractSnapshot(inZipFile, inRootAssetID, outSession);
    if (noxnet::IsSuccessfulHTTPStatus(status)) {
        AssociateWithUserOnly(outSession.mIdentifier, {}, outSession.mLocalOnly);
    }
    return status;
}

int ProductionMesh::CloseSnapshot(const ImmutableString& inSessionID)
{
    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    const int status = box->ClearExtractedSnapshot(inSessionID);
    const bool isClosed = noxnet::IsSuccessfulHTTPStatus(status);
    dto::Session ignored;
    // One that only cannot be struck off the list is closed as well.
    if (!isClosed && box->GetSession(inSessionID, ignored) != noxnet::kHTTPStatus_NotFound) return status;
    // The folder stays, so that what was unpacked is found again: of the session only a link can be left.
    DisconnectOrDeleteSession(inSessionID, false);
    return isClosed ? noxnet::kHTTPStatus_NoContent : status;
}

int ProductionMesh::CommitTransaction(const ImmutableString& inTransactionID, const CommitMessage& inMessage,
                                      const ImmutableString& inResolveStrategy, CommitOutcome& outOutcome)
{
    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    const bool clearConflicts = !inResolveStrategy.empty();
    const int status = box->CommitTransaction(inTransactionID, inMessage, clearConflicts, outOutcome);
    const bool isNewRevision = !(outOutcome.mSession.mRevision == outOutcome.mPreviousRevision);
    if (noxnet::IsSuccessfulHTTPStatus(status) && isNewRevision) ShareCommit(outOutcome);
    return status;
}

/// What follows a commit for the other side. The commit stands, whatever becomes of this.
void ProductionMesh::ShareCommit(const CommitOutcome& inOutcome)
{
    const ImmutableString& sessionID = inOutcome.mSession.mIdentifier;
    if (!inOutcome.mRestoredAssets.empty()) {
        ResolveRestoredAssetConflicts(sessionID, inOutcome.mRestoredAssets, [](int inStatus) {
            LogInformation(kCategory, "CommitTransaction: ResolveRestoredAssetConflicts complete",
                           {{"result", inStatus}});
        });
    }
    LogDetail(kActivityCategory, "Generating activity after CommitTransaction", {{"localSessionID", sessionID.View()}});
    UpdateCollaboratorActivity(sessionID, {});
    if (IsSprint(inOutcome.mSession)) {
        LogDetail(kCategory, "CommitTransaction: a sprint is not synchronized",
                  {{"localSessionID", sessionID.View()}, {"status", kNoSyncWanted}});
        return;
    }

    SyncStatus syncStatus;
    if (!noxnet::IsSuccessfulHTTPStatus(GetSyncStatusForSession(sessionID, syncStatus)) ||
        !(syncStatus.mState == SyncState_OutOfSync())) {
        return;
    }
    dto::Job job;
    const int status = RequestSyncJob(MakePushRequest(sessionID), job);
    if (noxnet::IsSuccessfulHTTPStatus(status)) return;
    LogWarning(kCategory, "CommitTransaction: cannot request sync job",
               {{"localSessionID", sessionID.View()}, {"status", status}});
}

}  // namespace VantryLocalHub

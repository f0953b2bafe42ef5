#include <algorithm>
#include <memory>
#include <utility>

#include "Client/VYClient/Interfaces.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Sync/HubSyncLink.h"
#include "Platform/noxnet/HTTPStatus.h"

// How a link comes to its sync state.

namespace VantryLocalHub {

using namespace VYCL::LocalHub;
using noxcore::threads::ScopedLock;

void HubSync::SyncLink::DetermineSyncStatus(SyncBox& inEngine, SyncStatus& outStatus)
{
    SyncStatus status;
    status.mLocalSessionID = mLocalSessionID;
    {
        const ScopedLock lock(mMutex);
        TouchLocked();
        status.mServerURL = mServerURL;
        status.mSyncPoint = mSyncPoint;
        status.mRemoteSessionID = mSyncPoint.mRemoteSessionID;
    }
    status.mState = SelectState(inEngine);
    // Nothing keeps the two sides apart: what is left is how far each has moved.
    if (status.mState == SyncState_Unknown()) DetermineTargets(status);
    StoreStatus(status);
    outStatus = std::move(status);
}

/// The first reason why the session cannot be exchanged; Unknown when there is none.
ImmutableString HubSync::SyncLink::SelectState(SyncBox& inEngine) const
{
    const auto hubs = inEngine.GetRemoteHubStatusList();
    const auto server = inEngine.GetLoggedInDataServer();
    const std::string serverURL = server ? server->GetServerURL() : std::string();
    const std::string userID = server ? server->GetUser().mUserID : std::string();
    const ScopedLock lock(mMutex);
    if (mForciblyDisconnected) return SyncState_RevokedOrDeleted();
    if (mLocalOnly) return SyncState_LocalOnly();
    if (mRemoteProductionID.empty()) return SyncState_NotAssociated();
    const auto hub = std::ranges::find_if(hubs, [wanted = mServerURL](const dto::RemoteLoginStatus& inHub) {
        return wanted == std::string_view(inHub.mServerURL);
    });
    if (hub == hubs.end() || !hub->mConnected) return SyncState_Disconnected();
    const bool wrongUser = server && mServerURL == std::string_view(serverURL) && !mUserID.empty() &&
                           !(mUserID == std::string_view(userID));
    if (!hub->mAuthorized || wrongUser) return SyncState_NotAuthorized();
    return SyncState_Unknown();
}

void HubSync::SyncLink::DetermineTargets(SyncStatus& ioStatus)
{
    const auto box = ProjectBox::Instance();
    dto::Session session;
    if (!box || !noxnet::IsSuccessfulHTTPStatus(box->GetProduction(mLocalSessionID, Revision_HEAD(), session)) ||
        session.mRevision.empty()) {
        ioStatus.mState = SyncState_Disconnected();
        return;
    }
    bool known = false;
    {
        const ScopedLock lock(mMutex);
        ioStatus.mSyncPoint = mSyncPoint;
        known = !mLocalRevisions.empty() && mLocalRevisions.back() == session.mRevision;
    }
    const SyncPoint& point = ioStatus.mSyncPoint;
    if (!known) RefreshLocalRevisions(session.mRevision, point.mLocalRevision);

    const ScopedLock lock(mMutex);
    if (session.mRevision == point.mLocalRevision) {
        ioStatus.mTargetLocalRevision = point.mLocalRevision;
    } else if (!mLocalRevisions.empty()) {
        ioStatus.mTargetLocalRevision = mLocalRevisions.back();
    }
    ioStatus.mTargetRemoteRevision = mRemoteRevisions.empty() ? point.mRemoteRevision : mRemoteRevisions.back();
    if (mConflictState) {
        ioStatus.mState = SyncState_LocalSessionConflict();
    } else if (ioStatus.mTargetLocalRevision == point.mLocalRevision &&
               ioStatus.mTargetRemoteRevision == point.mRemoteRevision) {
        ioStatus.mState = SyncState_InSync();
    } else {
        ioStatus.mState = SyncState_OutOfSync();
    }
}

/// Rebuilds the list of local revisions: from the one after the sync point to the head.
void HubSync::SyncLink::RefreshLocalRevisions(const ImmutableString& inHead, const ImmutableString& inSyncPointRevision)
{
    constexpr std::size_t kVersionsAtOnce = 100;
    std::vector<ImmutableString> revisions;
    const auto box = ProjectBox::Instance();
    bool reached = !box || inHead == inSyncPointRevision;
    std::size_t total = 1;
    for (std::size_t start = 0; !reached && start < total; start += kVersionsAtOnce) {
        std::vector<StoredVersion> versions;
        if (!noxnet::IsSuccessfulHTTPStatus(
                box->GetSessionHistory(mLocalSessionID, start, kVersionsAtOnce, versions, total)) ||
            versions.empty()) {
            break;
        }
        for (const auto& version : versions) {
            reached = version.mCommitID == inSyncPointRevision;
            if (reached) break;
            revisions.push_back(version.mCommitID);
        }
    }
    std::ranges::reverse(revisions);
    const ScopedLock lock(mMutex);
    mLocalRevisions.swap(revisions);
}

void HubSync::SyncLink::StoreStatus(const SyncStatus& inStatus)
{
    bool changed = false;
    {
        const ScopedLock lock(mMutex);
        // The first state is no change: a link that is kept has been announced as such.
        changed = mStatus && !(mStatus->mState == inStatus.mState);
        mStatus = inStatus;
    }
    if (!changed) return;
    noxcore::messaging::PostMessageToUIThread(SyncBox::Station(),
                                              std::make_shared<SyncBox::SyncStatusChangedMessage>(mLocalSessionID));
}

bool HubSync::SyncLink::NeedsToPullRemoteRevision(const ImmutableString& inRemoteRevision) const
{
    const ScopedLock lock(mMutex);
    if (mSyncPoint.mLocalRevision.empty()) return true;
    const auto wanted = std::find(mRemoteRevisions.rbegin(), mRemoteRevisions.rend(), inRemoteRevision);
    const auto present = std::find(mRemoteRevisions.rbegin(), mRemoteRevisions.rend(), mSyncPoint.mRemoteRevision);
    if (wanted == mRemoteRevisions.rend() || present == mRemoteRevisions.rend()) return true;
    return wanted < present;  // counted from the newest
}

int HubSync::SyncLink::GetSyncRequestStatus(SyncBox& inEngine, const JobParams& inParams, SyncStatus& outStatus)
{
    DetermineSyncStatus(inEngine, outStatus);
    const ImmutableString& state = outStatus.mState;
    const bool isPush = inParams.mDirection == SyncDirection_Push();
    const bool isPull = inParams.mDirection == SyncDirection_Pull();
    if (state == SyncState_InSync()) {
        const bool pullsWhatNobodyWatches =
            isPull && inParams.mToRevision == Revision_HEAD() && !inEngine.IsPollingForSync(mLocalSessionID);
        return pullsWhatNobodyWatches || (isPush && inParams.mForce) ? noxnet::kHTTPStatus_OK
                                                                     : noxnet::kHTTPStatus_NotModified;
    }
    if (state == SyncState_OutOfSync()) {
        if (isPush || (isPull && NeedsToPullRemoteRevision(inParams.mToRevision))) return noxnet::kHTTPStatus_OK;
        return isPull ? noxnet::kHTTPStatus_NotModified : noxnet::kHTTPStatus_BadRequest;
    }
    if (state == SyncState_Disconnected()) return noxnet::kHTTPStatus_PreconditionFailed;
    if (state == SyncState_NotAuthorized()) return noxnet::kHTTPStatus_Unauthorized;
    if (state == SyncState_RevokedOrDeleted()) return noxnet::kHTTPStatus_Forbidden;
    if (state == SyncState_LocalOnly()) return noxnet::kHTTPStatus_UpgradeRequired;
    return noxnet::kHTTPStatus_BadRequest;
}

}  // namespace VantryLocalHub

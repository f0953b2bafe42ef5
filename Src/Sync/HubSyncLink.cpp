#include "Inc/Sync/HubSyncLink.h"

#include <algorithm>
#include <utility>

#include "Inc/Model/ComplaintBox.h"
#include "Inc/Model/ProjectBox.h"
#include "Platform/noxcore/Clock.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub {

using namespace noxcore::logging;
using namespace VYCL::LocalHub;
using noxcore::threads::ScopedLock;

namespace {

constexpr std::string_view kCategory = "HubSync";
constexpr int kAccessDenied = 403;
constexpr std::int64_t kDefaultDeleteDelaySeconds = 86400;
constexpr std::int64_t kLongestDeleteDelaySeconds = 10LL * 365 * 24 * 3600;

void DropUpTo(std::vector<ImmutableString>& ioRevisions, const ImmutableString& inLast)
{
    const auto last = std::ranges::find(ioRevisions, inLast);
    if (last != ioRevisions.end()) ioRevisions.erase(ioRevisions.begin(), last + 1);
}

bool IsRealRevision(const ImmutableString& inRevision)
{
    return !inRevision.empty() && !(inRevision == Revision_HEAD()) && !(inRevision == Revision_LatestSyncPoint());
}

int StatusOf(bool inWritten)
{
    return inWritten ? noxnet::kHTTPStatus_OK : noxnet::kHTTPStatus_InternalServerError;
}

std::int64_t MonotonicNow()
{
    return noxcore::HubContext::Current()->GetClock().MonotonicTicks();
}

}  // namespace

HubSync::SyncLink::SyncLink(ImmutableString inLocalSessionID, ImmutableString inLocalProductionID)
    : mLocalSessionID(std::move(inLocalSessionID)),
      mLocalProductionID(std::move(inLocalProductionID)),
      mLastUsed(MonotonicNow())
{
    const auto box = ProjectBox::Instance();
    LinkState state;
    mWasRead = box && box->ReadLinkState(mLocalSessionID, state);

    const ScopedLock lock(mMutex);
    mLocalOnly = !mWasRead || state.mLocalOnly;
    mUserID = state.mAssociation.mUserID;
    mCorvaneID = state.mAssociation.mCorvaneID;
    if (!state.mAssociated) return;
    mServerURL = state.mAssociation.mServerURL;
    mRemoteProductionID = state.mAssociation.mProductionID;
    mRemoteSessionID = state.mAssociation.mSessionID;
    mSyncPoint = state.mSyncPoint;
}

void HubSync::SyncLink::TouchLocked()
{
    mLastUsed = MonotonicNow();
}

bool HubSync::SyncLink::IsAssociated() const
{
    const ScopedLock lock(mMutex);
    return !mRemoteProductionID.empty();
}

bool HubSync::SyncLink::IsForciblyDisconnected() const
{
    const ScopedLock lock(mMutex);
    return mForciblyDisconnected;
}

ImmutableString HubSync::SyncLink::GetRemoteServerURL() const
{
    const ScopedLock lock(mMutex);
    return mServerURL;
}

ImmutableString HubSync::SyncLink::GetRemoteProductionID() const
{
    const ScopedLock lock(mMutex);
    return mRemoteProductionID;
}

ImmutableString HubSync::SyncLink::GetUserID() const
{
    const ScopedLock lock(mMutex);
    return mUserID;
}

ImmutableString HubSync::SyncLink::GetCorvaneID() const
{
    const ScopedLock lock(mMutex);
    return mCorvaneID;
}

bool HubSync::SyncLink::GetLatestSyncPoint(SyncPoint& outPoint) const
{
    const ScopedLock lock(mMutex);
    if (mSyncPoint.mLocalRevision.empty()) return false;
    outPoint = mSyncPoint;
    return true;
}

int HubSync::SyncLink::AssociateWithUserOnly(const ImmutableString& inUserID, const ImmutableString& inCorvaneID,
                                             bool inLocalOnly)
{
    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    const ScopedLock lock(mMutex);
    if (inLocalOnly) {
        if (!box->WriteLocalOnlyMode(mLocalSessionID)) return noxnet::kHTTPStatus_InternalServerError;
        mLocalOnly = true;
    }
    if (!box->WriteUserID(mLocalSessionID, inUserID, inCorvaneID)) return noxnet::kHTTPStatus_InternalServerError;
    mUserID = inUserID;
    mCorvaneID = inCorvaneID;
    return noxnet::kHTTPStatus_OK;
}

int HubSync::SyncLink::DisassociateForSync()
{
    const auto box = ProjectBox::Instance();
    const ScopedLock lock(mMutex);
    TouchLocked();
    if (mRemoteProductionID.empty()) return noxnet::kHTTPStatus_OK;
    AssociationForSync ended;
    ended.mServerURL = mServerURL;
    ended.mProductionID = mRemoteProductionID;
    ended.mSessionID = mRemoteSessionID;
    ended.mDate = RFC3339DateTime::Now();
    if (!box || !box->InvalidateAssociationForSync(mLocalSessionID, ended)) {
        return noxnet::kHTTPStatus_InternalServerError;
    }
    mServerURL = {};
    mRemoteProductionID = {};
    mRemoteSessionID = {};
    mSyncPoint = {};
    mRemoteRevisions.clear();
    const bool written = box->WriteUserID(mLocalSessionID, {}, {});
    mUserID = {};
    mCorvaneID = {};
    return StatusOf(written);
}

int HubSync::SyncLink::RecordSyncPoint(const ImmutableString& inLocalRevision, const ImmutableString& inRemoteRevision)
{
    if (!IsRealRevision(inLocalRevision) || !IsRealRevision(inRemoteRevision)) {
        LogError(kCategory, "Invalid sync point request!",
                 {{"localRevision", inLocalRevision.View()}, {"remoteRevision", inRemoteRevision.View()}});
        return noxnet::kHTTPStatus_InternalServerError;
    }
    const auto box = ProjectBox::Instance();
    const ScopedLock lock(mMutex);
    TouchLocked();
    SyncPoint point = mSyncPoint;
    point.mRemoteSessionID = mRemoteSessionID;
    point.mLocalRevision = inLocalRevision;
    point.mRemoteRevision = inRemoteRevision;
    point.mDate = RFC3339DateTime::Now();
    std::int64_t changeCount = 0;
    if (!box || !box->WriteSyncPoint(mLocalSessionID, point, changeCount)) {
        return noxnet::kHTTPStatus_InternalServerError;
    }
    DropUpTo(mLocalRevisions, inLocalRevision);
    DropUpTo(mRemoteRevisions, inRemoteRevision);
    mSyncPoint = point;
    LogInformation(kCategory, "RecordSyncPoint",
                   {{"localSessionID", mLocalSessionID.View()},
                    {"localRevision", inLocalRevision.View()},
                    {"remoteSessionID", mRemoteSessionID.View()},
                    {"remoteRevision", inRemoteRevision.View()}});
    return noxnet::kHTTPStatus_OK;
}

void HubSync::SyncLink::UpdateRemoteRevisionList(const ImmutableString& inRemoteRevision)
{
    const ScopedLock lock(mMutex);
    TouchLocked();
    const auto known = std::ranges::find(mRemoteRevisions, inRemoteRevision);
    if (known == mRemoteRevisions.end()) {
        mRemoteRevisions.push_back(inRemoteRevision);
    } else if (known + 1 != mRemoteRevisions.end()) {
        LogWarning(kCategory, "Attempting to update SyncLink revision with an older revision!",
                   {{"remoteRevision", inRemoteRevision.View()}});
    }
}

void HubSync::SyncLink::UpdateSessionConflictState(const std::optional<ImmutableString>& inConflictState)
{
    const ScopedLock lock(mMutex);
    mConflictState = inConflictState;
}

bool HubSync::SyncLink::DisconnectOrDelete(bool inDeleteNow)
{
    const auto box = ProjectBox::Instance();
    dto::Session session;
    const bool loaded =
        box && noxnet::IsSuccessfulHTTPStatus(box->GetProduction(mLocalSessionID, Revision_HEAD(), session));

    bool fileComplaint = false;
    bool mayExpire = false;
    {
        const ScopedLock lock(mMutex);
        TouchLocked();
        fileComplaint = !std::exchange(mForciblyDisconnected, true) && !inDeleteNow;
        mayExpire = loaded && !session.mRevision.empty() && session.mRevision == mSyncPoint.mLocalRevision;
    }
    if (fileComplaint) {
        WithdrawComplaint();
        std::string id = ComplaintBox::Instance()->FileComplaint(mLocalSessionID, kAccessDenied,
                                                                 "session access revoked or deleted");
        {
            const ScopedLock lock(mMutex);
            if (mForciblyDisconnected) mComplaintID.swap(id);
        }
        // Access came back while the complaint was being filed.
        if (!id.empty()) ComplaintBox::Instance()->RemoveComplaint(id);
    }
    const bool expired = HasDisconnectionExpired() && mayExpire;
    return expired || inDeleteNow;
}

/// Reads since when the session has been cut off, and begins to count where nothing is stored.
bool HubSync::SyncLink::HasDisconnectionExpired() const
{
    const auto box = ProjectBox::Instance();
    {
        const ScopedLock lock(mMutex);
        if (!box || mLocalOnly) return false;
    }
    const RFC3339DateTime now = RFC3339DateTime::Now();
    std::string text;
    if (box->ReadDeletedDate(mLocalSessionID, text)) {
        if (const auto first = RFC3339DateTime::FromText(text); first.IsValid()) {
            const std::int64_t configured = noxcore::debug::DebugDatabase::Instance()->GetInteger(
                "VY.Config.LocalHub.SessionDeleteDelay", kDefaultDeleteDelaySeconds);
            const std::int64_t delay = std::clamp<std::int64_t>(configured, 0, kLongestDeleteDelaySeconds);
            return now.Ticks() - first.Ticks() > delay * noxcore::kTicksPerSecond;
        }
    }
    if (!box->WriteDeletedDate(mLocalSessionID, now.Text())) {
        LogWarning(kCategory, "Cannot note since when the session is disconnected",
                   {{"localSessionID", mLocalSessionID.View()}});
    }
    return false;
}

void HubSync::SyncLink::WithdrawComplaint()
{
    std::string id;
    {
        const ScopedLock lock(mMutex);
        id.swap(mComplaintID);
    }
    if (!id.empty()) ComplaintBox::Instance()->RemoveComplaint(id);
}

void HubSync::SyncLink::Reconnect()
{
    bool disconnected = false;
    {
        const ScopedLock lock(mMutex);
        TouchLocked();
        disconnected = std::exchange(mForciblyDisconnected, false);
    }
    WithdrawComplaint();
    const auto box = ProjectBox::Instance();
    if (disconnected && box) box->RemoveDeletedDate(mLocalSessionID);
}

void HubSync::SyncLink::ReleaseIfUnused(std::int64_t inCutOffTicks)
{
    if (!mMutex.TryLock()) return;
    if (mLastUsed < inCutOffTicks) {
        // A link keeps no database open, the store does; the next status reads this list anew.
        mLocalRevisions.clear();
        mLocalRevisions.shrink_to_fit();
    }
    mMutex.Unlock();
}

}  // namespace VantryLocalHub

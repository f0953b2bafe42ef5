#include "Inc/Sync/HubSync.h"

#include <algorithm>
#include <utility>

#include "Client/VYClient/LocalHub.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Sync/HubSyncLink.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub {

using namespace noxcore::logging;
using noxcore::threads::ScopedLock;

namespace {

constexpr std::string_view kCategory = "HubSync";

/// The list of all links is another one.
void PostLinksChanged(const ImmutableString& inSessionID)
{
    noxcore::messaging::PostMessageToUIThread(SyncBox::Station(),
                                              std::make_shared<SyncBox::SyncStatusChangedMessage>(inSessionID));
}

}  // namespace

HubSync::HubSync() = default;
HubSync::~HubSync() = default;

void HubSync::Terminate()
{
    LinkMap ended;  // go after the mutex
    {
        const ScopedLock lock(mMutex);
        ended.swap(mLinks);
    }
    // Counted before the jobs are cancelled: the record tells what was still open when the engine stopped.
    if (const std::size_t jobCount = GetUnfinishedSyncJobCount(); jobCount != 0) {
        LogInformation(kCategory, "Unfinished sync jobs at shutdown!",
                       {{"jobCount", jobCount}, {"expression", "jobCount != 0"}});
    }
    TerminateSyncJobs();
}

void HubSync::ReleaseUnusedDB(std::int64_t inCutOffTicks)
{
    const ScopedLock lock(mMutex);
    for (const auto& [id, link] : mLinks)
        link->ReleaseIfUnused(inCutOffTicks);
}

HubSync::SyncLinkPtr HubSync::FindLink(const ImmutableString& inSessionID)
{
    const ScopedLock lock(mMutex);
    const auto link = mLinks.find(inSessionID);
    return link == mLinks.end() ? nullptr : link->second;
}

HubSync::SyncLinkPtr HubSync::GetSyncLink(const ImmutableString& inID)
{
    if (auto link = FindLink(inID)) return link;
    const auto box = ProjectBox::Instance();
    dto::Session session;
    if (!box || !noxnet::IsSuccessfulHTTPStatus(box->GetSession(inID, session))) return nullptr;
    return FindLink(session.mIdentifier);
}

HubSync::SyncLinkPtr HubSync::GetOrCreateSyncLink(const ImmutableString& inID)
{
    if (auto link = FindLink(inID)) return link;
    const auto box = ProjectBox::Instance();
    dto::Session session;
    if (!box || !noxnet::IsSuccessfulHTTPStatus(box->GetSession(inID, session))) return nullptr;
    SyncLinkPtr link = FindLink(session.mIdentifier);
    while (!link) {
        std::uint64_t removals = 0;
        {
            const ScopedLock lock(mMutex);
            removals = mRemovals;
        }
        // Read from disk without the mutex.
        const auto made = std::make_shared<SyncLink>(session.mIdentifier, session.mProductionID);
        if (!made->WasRead()) return made;
        link = InsertLink(made, removals);
    }
    // Whoever deletes the session removes its link afterwards, and may have done so before this one was there.
    if (box->SessionExists(session.mIdentifier)) return link;
    RemoveLink(session.mIdentifier);
    return nullptr;
}

HubSync::SyncLinkPtr HubSync::InsertLink(const SyncLinkPtr& inLink, std::uint64_t inRemovals)
{
    {
        const ScopedLock lock(mMutex);
        if (mRemovals != inRemovals) return FindLink(inLink->LocalSessionID());
        const auto [entry, isNew] = mLinks.try_emplace(inLink->LocalSessionID(), inLink);
        if (!isNew) return entry->second;
    }
    PostLinksChanged(inLink->LocalSessionID());
    return inLink;
}

HubSync::SyncLinkPtr HubSync::RemoveLink(const ImmutableString& inID)
{
    SyncLinkPtr removed;
    {
        const ScopedLock lock(mMutex);
        ++mRemovals;
        auto found = mLinks.find(inID);
        if (found == mLinks.end()) {
            found = std::ranges::find_if(
                mLinks, [&](const auto& inEntry) { return inEntry.second->LocalProductionID() == inID; });
        }
        if (found == mLinks.end()) return nullptr;
        removed = std::move(found->second);
        mLinks.erase(found);
    }
    PostLinksChanged(removed->LocalSessionID());
    return removed;
}

std::vector<HubSync::SyncLinkPtr> HubSync::AllLinks()
{
    std::vector<SyncLinkPtr> links;
    const ScopedLock lock(mMutex);
    links.reserve(mLinks.size());
    for (const auto& [id, link] : mLinks)
        links.push_back(link);
    return links;
}

std::vector<SyncStatus> HubSync::GetSyncStatus()
{
    std::vector<SyncStatus> statuses;
    for (const auto& link : AllLinks())
        link->DetermineSyncStatus(*this, statuses.emplace_back());
    return statuses;
}

std::vector<SyncStatus> HubSync::GetSyncStatusForServer(const ImmutableString& inServerURL)
{
    using VYCL::LocalHub::MakeEscapedServerAndPortURIElement;
    const std::string server = MakeEscapedServerAndPortURIElement(inServerURL.View());
    std::vector<SyncStatus> statuses;
    for (const auto& link : AllLinks()) {
        const ImmutableString url = link->GetRemoteServerURL();
        if (url.empty() || MakeEscapedServerAndPortURIElement(url.View()) != server) continue;
        link->DetermineSyncStatus(*this, statuses.emplace_back());
    }
    return statuses;
}

int HubSync::GetSyncStatusForSession(const ImmutableString& inSessionID, SyncStatus& outStatus)
{
    const auto link = GetOrCreateSyncLink(inSessionID);
    if (!link) return noxnet::kHTTPStatus_NotFound;
    link->DetermineSyncStatus(*this, outStatus);
    return noxnet::kHTTPStatus_OK;
}

int HubSync::GetSyncRequestStatus(const ImmutableString& inSessionID, const JobParams& inParams, SyncStatus& outStatus)
{
    outStatus = {};
    const auto link = GetOrCreateSyncLink(inSessionID);
    return link ? link->GetSyncRequestStatus(*this, inParams, outStatus) : noxnet::kHTTPStatus_NotFound;
}

bool HubSync::IsAssociated(const ImmutableString& inSessionID)
{
    const auto link = GetOrCreateSyncLink(inSessionID);
    return link && link->IsAssociated();
}

bool HubSync::IsLinked(const ImmutableString& inSessionID)
{
    const auto link = GetOrCreateSyncLink(inSessionID);
    return link && !link->GetUserID().empty();
}

ImmutableString HubSync::FindAssociatedLocalSession(const ImmutableString& inRemoteProductionID)
{
    const auto box = ProjectBox::Instance();
    if (!box || inRemoteProductionID.empty()) return {};
    for (const auto& session : box->GetSessions()) {
        const auto link = GetOrCreateSyncLink(session.mIdentifier);
        if (link && link->GetRemoteProductionID() == inRemoteProductionID) return session.mIdentifier;
    }
    return {};
}

ImmutableString HubSync::GetRemoteProductionID(const ImmutableString& inSessionID)
{
    const auto link = GetOrCreateSyncLink(inSessionID);
    return link ? link->GetRemoteProductionID() : ImmutableString();
}

ImmutableString HubSync::GetUserID(const ImmutableString& inSessionID)
{
    const auto link = GetOrCreateSyncLink(inSessionID);
    return link ? link->GetUserID() : ImmutableString();
}

ImmutableString HubSync::GetCorvaneID(const ImmutableString& inSessionID)
{
    const auto link = GetOrCreateSyncLink(inSessionID);
    return link ? link->GetCorvaneID() : ImmutableString();
}

bool HubSync::GetLatestSyncPoint(const ImmutableString& inSessionID, SyncPoint& outPoint)
{
    const auto link = GetOrCreateSyncLink(inSessionID);
    return link && link->GetLatestSyncPoint(outPoint);
}

int HubSync::AssociateWithUserOnly(const ImmutableString& inSessionID, const ImmutableString& inUserID,
                                   bool inLocalOnly)
{
    const auto link = GetOrCreateSyncLink(inSessionID);
    if (!link) return noxnet::kHTTPStatus_NotFound;
    // The user's identity at the sign-in service comes with a login; nobody can be logged in yet.
    const int result = link->AssociateWithUserOnly(inUserID, {}, inLocalOnly);
    SyncStatus status;
    link->DetermineSyncStatus(*this, status);
    return result;
}

int HubSync::DisassociateForSync(const ImmutableString& inSessionID)
{
    const auto link = GetSyncLink(inSessionID);
    if (!link) return noxnet::kHTTPStatus_NotFound;
    const int result = link->DisassociateForSync();
    SyncStatus status;
    link->DetermineSyncStatus(*this, status);
    return result;
}

int HubSync::RecordSyncPoint(const ImmutableString& inSessionID, const ImmutableString& inLocalRevision,
                             const ImmutableString& inRemoteRevision)
{
    const auto link = GetOrCreateSyncLink(inSessionID);
    if (!link) return noxnet::kHTTPStatus_NotFound;
    const int result = link->RecordSyncPoint(inLocalRevision, inRemoteRevision);
    if (!noxnet::IsSuccessfulHTTPStatus(result)) return result;
    SyncStatus status;
    link->DetermineSyncStatus(*this, status);
    return result;
}

int HubSync::UpdateRemoteRevisionList(const ImmutableString& inSessionID, const ImmutableString& inRemoteRevision)
{
    const auto link = GetOrCreateSyncLink(inSessionID);
    if (!link) return noxnet::kHTTPStatus_NotFound;
    link->UpdateRemoteRevisionList(inRemoteRevision);
    return noxnet::kHTTPStatus_OK;
}

int HubSync::EngageSessionConflictState(const ImmutableString& inSessionID, const ImmutableString& inRemoteRevision)
{
    LogInformation(kCategory, "EngageSessionConflictState",
                   {{"localSessionID", inSessionID.View()}, {"remoteRevision", inRemoteRevision.View()}});
    return UpdateSessionConflictState(inSessionID, inRemoteRevision);
}

int HubSync::UpdateSessionConflictState(const ImmutableString& inSessionID,
                                        const std::optional<ImmutableString>& inConflictState)
{
    const auto link = GetOrCreateSyncLink(inSessionID);
    if (!link) return noxnet::kHTTPStatus_NotFound;
    link->UpdateSessionConflictState(inConflictState);
    return noxnet::kHTTPStatus_OK;
}

int HubSync::DisconnectOrDeleteSession(const ImmutableString& inSessionID, bool inDeleteNow)
{
    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    dto::Session session;
    const int loaded = box->GetProduction(inSessionID, VYCL::LocalHub::Revision_HEAD(), session);
    if (!noxnet::IsSuccessfulHTTPStatus(loaded)) {
        // What the store no longer has needs no link either.
        RemoveLink(inSessionID);
        return loaded;
    }
    TerminateSyncJobsForSession(session.mIdentifier);
    const auto link = GetOrCreateSyncLink(session.mIdentifier);
    if (!link) return noxnet::kHTTPStatus_NotFound;
    // A link that is not kept would not remember the cut.
    if (!link->WasRead() && !inDeleteNow) return noxnet::kHTTPStatus_InternalServerError;
    const bool wasCut = link->IsForciblyDisconnected();
    if (!link->DisconnectOrDelete(inDeleteNow)) {
        SyncStatus status;
        link->DetermineSyncStatus(*this, status);
        return noxnet::kHTTPStatus_NoContent;
    }
    const int deleted = box->DeletePersistedSessionData(session.mIdentifier);
    if (!noxnet::IsSuccessfulHTTPStatus(deleted)) {
        // The session is still there; what had cut it off before stays.
        if (!wasCut) link->Reconnect();
        return deleted;
    }
    RemoveLink(session.mIdentifier);
    // Whoever deletes knows it: that it had been cut off before is nothing to complain about any more.
    if (inDeleteNow) link->WithdrawComplaint();
    return noxnet::kHTTPStatus_NoContent;
}

int HubSync::DisconnectAndCloseSession(const ImmutableString& inSessionID)
{
    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    dto::Session session;
    const int loaded = box->GetProduction(inSessionID, VYCL::LocalHub::Revision_HEAD(), session);
    const bool isThere = noxnet::IsSuccessfulHTTPStatus(loaded);
    // What the store no longer has needs no link and no jobs either.
    const ImmutableString& sessionID = isThere ? session.mIdentifier : inSessionID;
    TerminateSyncJobsForSession(sessionID);
    // Only this link knows the complaint; the next one files its own if the server still denies the session.
    if (const auto link = RemoveLink(sessionID)) link->WithdrawComplaint();
    return isThere ? noxnet::kHTTPStatus_NoContent : loaded;
}

void HubSync::ReconnectDisconnectedSessions(const ImmutableString& inRemoteProductionID)
{
    for (const auto& link : AllLinks()) {
        if (!(link->GetRemoteProductionID() == inRemoteProductionID) || !link->IsForciblyDisconnected()) continue;
        link->Reconnect();
        SyncStatus status;
        link->DetermineSyncStatus(*this, status);
    }
}

}  // namespace VantryLocalHub

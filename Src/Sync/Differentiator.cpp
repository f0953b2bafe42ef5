#include "Inc/Sync/Differentiator.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "Inc/Model/ProjectBox.h"
#include "Inc/Sync/DifferenceMesh.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Src/Sync/LocalDifferences.h"

namespace VantryLocalHub {

using namespace noxcore::logging;
using namespace VYCL::LocalHub;

namespace {

constexpr std::string_view kCategory = "HubSync";
constexpr unsigned kLifetimeSeconds = 7200;
constexpr unsigned kSweepSeconds = 1200;
constexpr std::size_t kMostDifferences = 500000;  ///< kept, in all lists together: about 200 MB

/// The heads of a session, as the store knows them by name.
constexpr std::string_view kSessionHead = "session";
constexpr std::string_view kProductionHead = "production";

/// Of something that moves. An empty text is one as well: the head to the right, the first commit to the left.
bool IsName(const ImmutableString& inRevision)
{
    return inRevision.empty() || inRevision == Revision_HEAD() || inRevision == Revision_LatestSyncPoint() ||
           inRevision.View() == kSessionHead || inRevision.View() == kProductionHead;
}

template <class Difference>
bool IsConflictToFind(const Difference& inDifference)
{
    return (!inDifference.mBaseCommitID.empty() || !inDifference.mConflictsWithContentID.empty()) &&
           !(inDifference.mDifferenceType == VYCL::GetDifferenceType_Removed());
}

void PostProcessAssets(ProjectBox& inBox, const ImmutableString& inSessionID,
                       std::vector<dto::AssetDifference>& ioDifferences)
{
    for (dto::AssetDifference& difference : ioDifferences) {
        if (!IsConflictToFind(difference)) continue;
        dto::Asset asset;
        const int status = inBox.GetAsset(inSessionID, Revision_HEAD(), difference.mAssetID, asset);
        const bool isThere = noxnet::IsSuccessfulHTTPStatus(status);
        difference.mConflictsWithContentID = isThere ? asset.mAssetContentID : ImmutableString();
        if (isThere) continue;
        LogWarning(
            kCategory, "PostProcessDifferences: conflicting asset missing",
            {{"localSessionID", inSessionID.View()}, {"assetID", difference.mAssetID.View()}, {"status", status}});
    }
}

void PostProcessEnclosures(ProjectBox& inBox, const ImmutableString& inSessionID,
                           std::vector<dto::EnclosureDifference>& ioDifferences)
{
    std::vector<dto::Enclosure> enclosures;
    if (std::ranges::any_of(ioDifferences, IsConflictToFind<dto::EnclosureDifference>)) {
        inBox.GetProductionEnclosures(inSessionID, Revision_HEAD(), enclosures);
    }
    for (dto::EnclosureDifference& difference : ioDifferences) {
        if (!IsConflictToFind(difference)) continue;
        const auto found = std::ranges::find_if(enclosures, [&](const dto::Enclosure& inEnclosure) {
            return inEnclosure.mName == difference.mName || inEnclosure.mEnclosureID.View() == difference.mName;
        });
        const bool isThere = found != enclosures.end();
        difference.mConflictsWithContentID = isThere ? found->mEnclosureContentID : ImmutableString();
        if (isThere) continue;
        LogWarning(kCategory, "PostProcessDifferences: conflicting production enclosure missing",
                   {{"localSessionID", inSessionID.View()}, {"name", difference.mName}});
    }
}

}  // namespace

Differentiator::Differentiator()
    : mCache(Cache::Create(noxcore::threads::CreateSubExecutor(noxcore::threads::IOBoundExecutor(), 1),
                           kLifetimeSeconds, kSweepSeconds, kMostDifferences))
{
}

void Differentiator::GetDifferences(const ImmutableString& inSessionID, const ImmutableString& inFromRevision,
                                    const ImmutableString& inToRevision, DifferencesCompletion inCompletion)
{
    ResourcePtr differences;
    const int status = FindOrLoad({inSessionID, 0, inFromRevision, inToRevision}, differences);
    if (!inCompletion) return;
    const dto::DifferencesResource none;
    inCompletion(status, differences ? *differences : none);
}

int Differentiator::FindOrLoad(Range inRange, ResourcePtr& outDifferences)
{
    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    const int status = ResolveRange(*box, inRange);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    if (outDifferences = mCache->Find(inRange); outDifferences) return noxnet::kHTTPStatus_OK;
    const auto& [sessionID, generation, from, to] = inRange;
    const bool isLocal = box->RevisionExists(sessionID, from) && box->RevisionExists(sessionID, to);
    if (isLocal) return LoadLocal(*box, inRange, outDifferences);
    // The remote side may know what is not here, where there is one.
    return IsAssociated(sessionID) ? noxnet::kHTTPStatus_NotImplemented : noxnet::kHTTPStatus_NotFound;
}

/// Puts the session's own id for that of its production, and commits for names that move.
int Differentiator::ResolveRange(ProjectBox& inBox, Range& ioRange)
{
    auto& [sessionID, generation, from, to] = ioRange;
    dto::Session session;
    const int status = inBox.GetSession(sessionID, session);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    sessionID = session.mIdentifier;
    generation = inBox.GetHistoryGeneration(sessionID);
    from = ResolveRevision(session, from);
    to = to.empty() ? session.mRevision : ResolveRevision(session, to);
    return status;
}

ImmutableString Differentiator::ResolveRevision(const dto::Session& inSession, const ImmutableString& inRevision)
{
    if (inRevision == Revision_HEAD() || inRevision.View() == kSessionHead) return inSession.mRevision;
    if (inRevision.View() == kProductionHead) return inSession.mProductionRevision;
    SyncPoint point;
    const bool isSyncPoint =
        inRevision == Revision_LatestSyncPoint() && GetLatestSyncPoint(inSession.mIdentifier, point);
    return isSyncPoint ? point.mLocalRevision : inRevision;
}

int Differentiator::LoadLocal(ProjectBox& inBox, const Range& inRange, ResourcePtr& outDifferences)
{
    const auto& [sessionID, generation, from, to] = inRange;
    auto differences = std::make_shared<dto::DifferencesResource>();
    const int status = ReadLocalDifferences(inBox, sessionID, from, to, *differences);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    outDifferences = std::move(differences);
    // Under the commits that the store has read: names that only the store knows move too.
    CacheDifferencesOrWarn(
        {sessionID, generation, outDifferences->mLeftSideCommitID, outDifferences->mRightSideCommitID}, outDifferences);
    return status;
}

void Differentiator::CacheDifferences(const ImmutableString& inSessionID, const ImmutableString& inFromRevision,
                                      const ImmutableString& inToRevision,
                                      const dto::DifferencesResource& inDifferences)
{
    if (IsName(inFromRevision) || IsName(inToRevision)) return;
    const auto box = ProjectBox::Instance();
    const std::uint64_t generation = box ? box->GetHistoryGeneration(inSessionID) : 0;
    CacheDifferencesOrWarn({inSessionID, generation, inFromRevision, inToRevision},
                           std::make_shared<dto::DifferencesResource>(inDifferences));
}

void Differentiator::CacheDifferencesOrWarn(const Range& inRange, const ResourcePtr& inDifferences)
{
    const dto::DifferenceLists& lists = inDifferences->mDifferences;
    const bool result = mCache->Insert(inRange, inDifferences, lists.mAssets.size() + lists.mEnclosures.size());
    if (result) return;
    const auto& [sessionID, generation, from, to] = inRange;
    LogWarning(kCategory, "CacheDifferences: already cached",
               {{"localSessionID", sessionID.View()},
                {"fromRevision", from.View()},
                {"toRevision", to.View()},
                {"expression", "!result"}});
}

void Differentiator::PostProcessDifferences(ProjectBox& inBox, const ImmutableString& inSessionID,
                                            dto::DifferenceLists& ioDifferences)
{
    SortByIdentifier(ioDifferences);
    PostProcessAssets(inBox, inSessionID, ioDifferences.mAssets);
    PostProcessEnclosures(inBox, inSessionID, ioDifferences.mEnclosures);
}

}  // namespace VantryLocalHub

#include "Inc/Service/RootService.h"

#include <charconv>

#include "Client/Wire/Discovery.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Inc/Service/ApplicationVersion.h"
#include "Inc/Service/ServiceUtils.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;

namespace {

constexpr int kAPIMajorVersion = 1;
constexpr int kAPIMinorVersion = 0;

struct Endpoint
{
    const ImmutableString& (*mRelation)();
    URLFormat mTemplate;
};

constexpr Endpoint kEndpoints[] = {
    {Relation::DiscoveryV1, Template::kDiscovery},
    {Relation::LocalHubErrors_All, Template::kErrorsAll},
    {Relation::LocalHubRemoteLogin, Template::kRemoteLogin},
    {Relation::LocalHubRemoteLogout, Template::kRemoteLogout},
    {Relation::LocalHubResolve_Session, Template::kResolve_SessionIdSession},
    {Relation::LocalHubSyncStatus_All, Template::kSyncStatusAll},
    {Relation::LocalHubSyncStatus_ByServer, Template::kSyncStatusServer_ServerAndPort},
    {Relation::LocalHubSyncStatus_BySessionId, Template::kSyncStatusSession_SessionId},
    {Relation::LocalHubSyncControl_Sync, Template::kSyncControlSync},
    {Relation::LocalHubSyncControl_PollingBySessionId, Template::kSyncControlPolling_SessionId},
    {Relation::LocalHubSyncControl_ClientAppState, Template::kSyncControlClientAppState},
    {Relation::LocalHubSnapshot_Open, Template::kSnapshotOpen},
    {Relation::LocalHubSnapshot_Take, Template::kSnapshotTake_ProductionId_CommitId},
    {Relation::LocalHubSnapshot_Close, Template::kSnapshotClose_ProductionId},
    {Relation::LocalHubSnapshot_Apply, Template::kSnapshotApply_SessionId},
    {Relation::LocalHubRopeFile_Open, Template::kRopeFileOpen},
    {Relation::LocalHubRopeFile_Close, Template::kRopeFileClose_ProductionId},
    {Relation::LocalHubRopeFile_CopyTo, Template::kRopeFileCopyTo_ProductionId_CommitId},
    {Relation::LocalHubRopeFile_SetSyncMode, Template::kRopeFileSetSyncMode_ProductionId},
    {Relation::LocalHubPreferences_Save, Template::kPreferencesSave},
    {Relation::LocalHubPreferences_Read, Template::kPreferencesRead},
    {Relation::Productions, Template::kProductions},
    {Relation::ProductionsProduction_ByIdAndCommitId, Template::kProduction_ProductionId_CommitId},
    {Relation::ProductionsProduction_DifferenceByCommit, Template::kDifferences_ProductionId_BaseCommitId_CommitId},
    {Relation::UsersUser_Current, Template::kUserCurrentUser},
    {Relation::Jobs, Template::kJobsList},
    {Relation::Invites, Template::kInvites_Type},
    {Relation::Archives, Template::kArchives},
    {Relation::ProductionsTemplates, Template::kTemplateList},
    {Relation::Sessions_ByProductionId, Template::kSessions_ProductionId},
    {Relation::Collaborators_ByProductionId, Template::kCollaborators_ProductionId},
    {Relation::Collaborators_ByNimboStorageUrl, Template::kCollaborators_Url},
};

/// What the hub takes in one request: the bounds of its HTTP server. Calls are not counted.
std::vector<dto::Limit> MakeLimits()
{
    constexpr std::int64_t kUncounted = 0;
    constexpr std::int64_t kLarge = 10LL * 1024 * 1024;
    const auto limits = noxnet::http::server::Limits::FromSettings();
    const auto payload = static_cast<std::int64_t>(limits.mMaxBodyBytes);
    const auto elements = static_cast<std::int64_t>(limits.mMaxFormFields);  // an element takes a field at least
    return {{"GET", 0, kUncounted, 0, kLarge, kLarge},
            {"POST", payload, kUncounted, elements, kLarge, kLarge},
            {"PUT", payload, kUncounted, elements, kLarge, kLarge}};
}

dto::ServerDescription DescribeServer()
{
    dto::ServerDescription server;
    server.mID = noxcore::utility::Guid::CreateUnique().Text();
    server.mEnv = "local";
    server.mName = "TesselProjectsLocalHub";
    server.mDescription = "Tessel Projects Local Hub";
    server.mVersion = ApplicationVersion().ServerVersion();
    server.mRemoteRendering = false;
    server.mLocalHub = true;
    return server;
}

int GetDiscovery(const std::vector<dto::Limit>& inLimits, const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    if (!CanMakeURLs(*inRequest)) return noxnet::kHTTPStatus_InternalServerError;
    LinkMaker maker(*inRequest);
    dto::DiscoveryResource discovery;
    discovery.mServer = DescribeServer();
    discovery.mMajorVersion = kAPIMajorVersion;
    discovery.mMinorVersion = kAPIMinorVersion;
    discovery.mLimits = inLimits;
    maker.Add(discovery.mLinks, Relation::Self(), Template::kDiscovery);
    for (const Endpoint& endpoint : kEndpoints)
        maker.Add(discovery.mEndpoints, endpoint.mRelation(), endpoint.mTemplate);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    SetPayload(dto::ToJSON(discovery), *inResponse);
    return noxnet::kHTTPStatus_OK;
}

}  // namespace

std::string ApplicationVersion::ServerVersion() const
{
    const char* const end = mBuildNumber.data() + mBuildNumber.size();
    int number = 0;
    const auto [parsed, error] = std::from_chars(mBuildNumber.data(), end, number);
    const bool isNumber = error == std::errc() && parsed == end;
    return std::to_string(mMajor) + "_" + std::to_string(mMinor) + "_" + std::to_string(mPatch) + "." +
           (isNumber ? mBuildNumber : mDataModelVersion) + ".TesselProjectsLocalHub 2.0.2";
}

RootService::RootService()
{
    Sync("GET", {}, [limits = MakeLimits()](const RequestPtr& inRequest, const ResponsePtr& inResponse) {
        return GetDiscovery(limits, inRequest, inResponse);
    });
}

bool RootService::AnswersAtOnce(const noxnet::http::server::Request& inRequest) const
{
    // Without a host the answer is an error whose record takes longer than the answer.
    return !inRequest.Header(noxnet::kHEADER_Host).empty();
}

}  // namespace VantryLocalHub

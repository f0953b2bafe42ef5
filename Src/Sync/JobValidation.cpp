#include "Src/Sync/JobValidation.h"

#include <string_view>

#include "Client/Wire/Record.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace {

using namespace VYCL::LocalHub;

bool MovesHistory(const JobParams& inParams)
{
    return !inParams.HasMediaLocatorIDs() && !inParams.mUserEnclosures;
}

constexpr std::string_view kCategory = "HubSync";

void LogRefusal(std::string_view inMessage, const SyncJobRequest& inRequest)
{
    noxcore::logging::LogWarning(kCategory, inMessage,
                                 {{"localSessionID", inRequest.mSessionID.View()},
                                  {"name", inRequest.mName.View()},
                                  {"params", JobParamsText(inRequest.mParams)}});
}

void LogRefusal(std::string_view inMessage, const SyncJobRequest& inRequest, const SyncStatus& inStatus)
{
    noxcore::logging::LogWarning(kCategory, inMessage,
                                 {{"localSessionID", inRequest.mSessionID.View()},
                                  {"name", inRequest.mName.View()},
                                  {"params", JobParamsText(inRequest.mParams)},
                                  {"syncStatus", inStatus.mState.View()}});
}

}  // namespace

std::string JobParamsText(const JobParams& inParams)
{
    return dto::ToJSON(static_cast<const dto::SyncJobParameters&>(inParams));
}

bool ValidateJobParameters(const SyncJobRequest& inRequest)
{
    const JobParams& params = inRequest.mParams;
    if (!MovesHistory(params)) return true;
    if (!(params.mDirection == SyncDirection_Pull()) && !(params.mDirection == SyncDirection_Push())) {
        LogRefusal("JobControl: invalid direction", inRequest);
        return false;
    }
    if (params.mFromRevision.empty() || params.mToRevision.empty()) {
        LogRefusal("JobControl: invalid revision", inRequest);
        return false;
    }
    return true;
}

bool ValidateJobSyncPoint(const SyncJobRequest& inRequest, const SyncStatus& inStatus)
{
    for (const auto& state :
         {SyncState_Disconnected(), SyncState_NotAuthorized(), SyncState_LocalOnly(), SyncState_RevokedOrDeleted()}) {
        if (inStatus.mState == state) return false;
    }
    const JobParams& params = inRequest.mParams;
    if (!MovesHistory(params)) return true;
    const bool isPull = params.mDirection == SyncDirection_Pull();
    if (inStatus.mSyncPoint.mLocalRevision.empty()) {
        if (isPull) return true;
        LogRefusal("JobControl: attempting to push changes when there is no initial sync point", inRequest, inStatus);
        return false;
    }
    const ImmutableString& expected = isPull ? inStatus.mSyncPoint.mRemoteRevision : inStatus.mSyncPoint.mLocalRevision;
    if (params.mFromRevision == Revision_LatestSyncPoint() || params.mFromRevision == expected) return true;
    LogRefusal("JobControl: attempting to sync from somewhere other than the latest sync point", inRequest, inStatus);
    return false;
}

}  // namespace VantryLocalHub

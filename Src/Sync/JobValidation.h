#pragma once

#include "Inc/Sync/SyncRecords.h"

namespace VantryLocalHub {

/// Whether a request makes sense in itself. False with a record in the log.
bool ValidateJobParameters(const SyncJobRequest& inRequest);
/// Whether it may start where it wants to: at the latest sync point, and in a state that allows sync. False, with a
/// record where it is the request that is wrong.
bool ValidateJobSyncPoint(const SyncJobRequest& inRequest, const SyncStatus& inStatus);

/// The parameters as one text, for the log.
std::string JobParamsText(const JobParams& inParams);

}  // namespace VantryLocalHub

#pragma once

#include <string>
#include <vector>

#include "Inc/LocalHubOutOfProcess/HubParts.h"

namespace VantryLocalHub {

/// The whole life of the process, from its first system call to the last report: sets the runtime up, takes the data
/// folder, runs the server until the event loop is told to end, and takes everything down again. Always 0.
///
/// One hub a data folder, maintenance included: where another one has it, that is said on standard error and in the
/// log, and nothing else happens. An exception out of the set-up ends the process in order, with a record.
/// Threading: the main thread.
int RunLocalHub(const std::vector<std::string>& inArguments, HubParts inParts);

}  // namespace VantryLocalHub

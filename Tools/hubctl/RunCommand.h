#pragma once

#include <functional>
#include <iosfwd>
#include <string>

#include "Tools/hubctl/Commands.h"
#include "Tools/hubctl/HubAPI.h"
#include "Tools/hubctl/ProgressBar.h"

namespace hubctl {

struct RunSettings
{
    bool mJSON = false;
    /// Asked before each further request of a wait; true ends it. None: it goes on.
    std::function<bool()> mShouldStop = {};
    /// Tells that the hub works on a request that takes its time; none: nothing is told.
    ProgressBar* mProgress = nullptr;
};

/// Sends the request and shows the answer: with mJSON the body as it came and a line end, else text for people; a
/// payload as it is. A wait shows each new state until the hub refuses or is gone.
///
/// False with the reason, which tells the status where there was one.
bool RunCommand(const MadeRequest& inRequest, const RunSettings& inSettings, HubAPI& inAPI, std::ostream& outStream,
                std::string& outError);

}  // namespace hubctl

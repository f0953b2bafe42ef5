#pragma once

#include <string>

#include "Tools/hubctl/ProgressBar.h"

namespace hubctl {

/// `hubctl export-git SESSION FOLDER`: a session as an ordinary git repository, for backup and inspection. Reads the
/// session's own files and asks no hub, so it works whether one runs or not.
struct ExportArguments
{
    std::string mSession;  ///< the id of a session, or its folder
    std::string mFolder;   ///< must be absent or empty
};

/// False with the reason.
bool RunExport(const ExportArguments& inArguments, ProgressBar& ioProgress, std::string& outError);

}  // namespace hubctl

#pragma once

#include <iosfwd>
#include <string>

#include "Tools/hubctl/HubAPI.h"

namespace hubctl {

/// What stands behind a command's name.
struct ReadArguments
{
    std::string mID;  ///< of a production or session
    std::string mRevision = "HEAD";
    std::string mAsset;
    std::string mEnclosure;
};

/// Writes an enclosure's payload as it is. The enclosure is named by its id or its name.
bool RunCat(const ReadArguments& inArguments, HubAPI& inAPI, std::ostream& outStream, std::string& outError);
/// Deletes the local production; what it shares with a server stays there.
bool RunDelete(const ReadArguments& inArguments, bool inJSON, HubAPI& inAPI, std::ostream& outStream,
               std::string& outError);
/// What runs where, and how much it holds.
bool RunStatus(std::uint16_t inPort, bool inJSON, HubAPI& inAPI, std::ostream& outStream, std::string& outError);

}  // namespace hubctl

#pragma once

#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

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

/// A command that shows one answer of the hub.
struct ReadCommand
{
    const char* mName;
    const char* mHelp;
    std::string_view mTemplate;
    /// What fills the template: 'i' id, 'r' revision, 'a' asset.
    std::string_view mFilling;
    /// Whether the revision can be chosen.
    bool mTakesRevision;
    /// Writes the answer for people; false for one that cannot be understood.
    bool (*mPrint)(std::string_view inBody, std::ostream& outStream);
};

std::span<const ReadCommand> ReadCommands();

/// Asks and shows: the hub's own JSON, or a form for people. False with the reason.
bool RunReadCommand(const ReadCommand& inCommand, const ReadArguments& inArguments, bool inJSON, HubAPI& inAPI,
                    std::ostream& outStream, std::string& outError);

/// Writes an enclosure's payload as it is. The enclosure is named by its id or its name.
bool RunCat(const ReadArguments& inArguments, HubAPI& inAPI, std::ostream& outStream, std::string& outError);
/// Deletes the local production; what it shares with a server stays there.
bool RunDelete(const ReadArguments& inArguments, bool inJSON, HubAPI& inAPI, std::ostream& outStream,
               std::string& outError);
/// What runs where, and how much it holds.
bool RunStatus(std::uint16_t inPort, bool inJSON, HubAPI& inAPI, std::ostream& outStream, std::string& outError);

}  // namespace hubctl

#include "Inc/Model/SessionCreation.h"

#include <utility>

#include "Inc/Model/SessionDeletion.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub::GitBox {

using noxcore::filesupport::Files;

SessionCreation::SessionCreation(std::string inFolder) : mFolder(std::move(inFolder)) {}

SessionCreation::~SessionCreation()
{
    if (!mBegun) return;
    // The mark may have been taken away already, in a way that does not last.
    SessionDeletion::Mark(mFolder);
    if (SessionDeletion::Finish(mFolder)) return;
    noxcore::logging::LogWarning("GitBox", "Cannot remove a session that could not be made", {{"path", mFolder}});
}

bool SessionCreation::Begin()
{
    if (Files().DirectoryExists(mFolder)) return false;
    mBegun = true;
    return Files().EnsureDirectoryExists(mFolder) && SessionDeletion::Mark(mFolder) &&
           SessionDeletion::IsMarked(mFolder);
}

bool SessionCreation::Finish()
{
    if (!SessionDeletion::Unmark(mFolder)) return false;
    mBegun = false;
    return true;
}

}  // namespace VantryLocalHub::GitBox

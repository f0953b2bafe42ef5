#include "Inc/Model/SessionDeletion.h"

#include "Inc/Model/GitBoxIO.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub::GitBox::SessionDeletion {

using noxcore::filesupport::Files;
using noxcore::filesupport::Join;

namespace {

constexpr std::string_view kMark = "deleted";

/// The mark may be the first to go of all that is in the folder: what makes it a session goes before, for good, or the
/// folder stays with its mark. True as well where somebody else has taken it away.
bool UnmakeSession(const std::string& inFolder)
{
    if (!Files().DirectoryExists(inFolder)) return true;
    const std::string id = Join(inFolder, "sessionid");
    return (Files().DeleteFile(id) || !Files().FileExists(id)) && Files().SyncDirectory(inFolder);
}

/// Whether the store gives its sessions such names. Others may have put theirs beside them.
bool HasNameOfASession(const std::string& inFolder)
{
    return noxcore::filesupport::BaseName(inFolder).ends_with("." + std::string(IO::kFolderSuffix));
}

}  // namespace

bool Mark(const std::string& inFolder)
{
    const std::string mark = Join(inFolder, kMark);
    if (Files().WriteFileDurably(mark, {})) return true;
    // The session must be able to live on, so that a mark that stands there all the same is taken back; one that cannot
    // be has made it none.
    Files().DeleteFile(mark);
    return Files().FileExists(mark) || !Files().SyncDirectory(inFolder);
}

bool IsMarked(const std::string& inFolder)
{
    return Files().FileExists(Join(inFolder, kMark));
}

bool Unmark(const std::string& inFolder)
{
    return Files().DeleteFile(Join(inFolder, kMark)) && Files().SyncDirectory(inFolder);
}

bool Finish(const std::string& inFolder)
{
    return UnmakeSession(inFolder) && noxcore::filesupport::Dir::Delete(inFolder);
}

bool ClearUpLeftover(const std::string& inFolder)
{
    if (!HasNameOfASession(inFolder) || IO::IsLiveSessionFolder(inFolder)) return false;
    if (IsMarked(inFolder)) {
        const bool removed = Finish(inFolder);
        noxcore::logging::LogInformation("GitBox", "Removed what a deletion had left",
                                         {{"folder", inFolder}, {"deletedFolder", removed}});
    } else {
        noxcore::logging::LogWarning("GitBox", "A folder is no whole session and is left as it is",
                                     {{"folder", inFolder}});
    }
    return true;
}

}  // namespace VantryLocalHub::GitBox::SessionDeletion

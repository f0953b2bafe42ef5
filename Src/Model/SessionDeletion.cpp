#include "Inc/Model/SessionDeletion.h"

#include <vector>

#include "Inc/Model/GitBoxIO.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub::GitBox::SessionDeletion {

using noxcore::filesupport::Files;
using noxcore::filesupport::Join;

namespace {

constexpr std::string_view kMark = "deleted";

/// What makes the folder a session goes before all else, for good, or the folder stays with its mark. True as well
/// where somebody else has taken it away.
bool UnmakeSession(const std::string& inFolder)
{
    if (!Files().DirectoryExists(inFolder)) return true;
    const std::string id = Join(inFolder, "sessionid");
    return (Files().DeleteFile(id) || !Files().FileExists(id)) && Files().SyncDirectory(inFolder);
}

/// Removes all but the mark, for good: what was left otherwise would be a folder that nobody may take away.
bool DeleteContent(const std::string& inFolder)
{
    std::vector<noxcore::filesupport::DirectoryEntry> entries;
    if (!Files().DirectoryExists(inFolder)) return true;
    if (!Files().ListDirectory(inFolder, entries)) return false;
    for (const auto& entry : entries) {
        const std::string path = Join(inFolder, entry.mName);
        // A link is a file, whatever it leads to.
        if (entry.mName != kMark && !Files().DeleteFile(path) && !Files().DeleteDirectory(path)) return false;
    }
    return Files().SyncDirectory(inFolder);
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
    return UnmakeSession(inFolder) && DeleteContent(inFolder) && noxcore::filesupport::Dir::Delete(inFolder);
}

bool MarkAndFinish(const std::string& inFolder)
{
    Mark(inFolder);  // what cannot be marked may be removed all the same
    return Finish(inFolder);
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

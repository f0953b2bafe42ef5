#pragma once

#include <string>
#include <vector>

#include "Inc/Model/StoreRecords.h"

/// Where things lie on disk.
namespace VantryLocalHub::GitBox::Folder {

/// What kind of projects a folder holds.
enum class ProjectType
{
    LocalSession,
    SynchronizedSession,
    RopeFile,
    ExtractedSnapshot
};

struct FolderWithProjectType
{
    std::string mFolder;
    ProjectType mType = ProjectType::LocalSession;
};

std::string LocalSessions();
std::string SynchronizedSessions();
/// The key VY.Config.LocalHub.TemplatesFolder, else `templates` in the suite's data folder.
std::string Templates();
std::string Extracted();

/// The folders that session folders lie in, scanned at start.
std::vector<FolderWithProjectType> SessionFolders();

/// The folder of a session: its id, "." and the suffix, below the kind's parent folder.
std::string SessionFolder(const ImmutableString& inSessionID, SessionKind inKind);

}  // namespace VantryLocalHub::GitBox::Folder

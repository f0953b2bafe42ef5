#pragma once

#include <string>
#include <vector>

#include "Inc/Model/StoreRecords.h"

/// Where things lie on disk.
namespace VantryLocalHub::GitBox::Folder {

/// A folder that is scanned, and by which suffix the projects in it go.
struct FolderWithProjectType
{
    std::string mFolder;
    std::string mProjectType;
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

/// Where single-file projects go for which the user chose no place: as the user's preferences say, else the default.
std::string GetDefaultRopeFileAutosaveLocation();

/// A path in the autosave location at which nothing lies, for a new single-file project. Of inName counts what follows
/// the last "/"; without a name that can be used there is a new one.
///
/// 200; 415 when neither the user's location nor the default one can be made and written to. A location of the user's
/// that cannot be used is forgotten for good, the default stored in its place.
int CreateUniqueRopeFileName(const std::string& inName, std::string& outFile);

}  // namespace VantryLocalHub::GitBox::Folder

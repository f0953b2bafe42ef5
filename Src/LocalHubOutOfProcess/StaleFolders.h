#pragma once

#include <string>
#include <string_view>

namespace VantryLocalHub {

/// Deletes, later and on the executor for work before the end, every subfolder of the program's temporary folder that
/// is named neither by this process nor by another one that lives.
///
/// inProcessIdentifier is this process's, as the folders' names write it. Threading: any thread.
void DeleteOldTempRepositories(const std::string& inTempFolder, std::string_view inProcessIdentifier);

/// Makes the program's temporary folder, with the two above it that bear the company's and the program's name, so that
/// no other user can look into or replace any of them. False, with a record, when one of them is somebody else's.
bool EnsurePrivateTempFolder(const std::string& inTempFolder);

}  // namespace VantryLocalHub

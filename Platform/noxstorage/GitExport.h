#pragma once

#include <functional>
#include <string>

#include "Platform/noxstorage/Git.h"

namespace noxstorage::git {

/// Objects packed so far, and in all.
using ExportProgress = std::function<void(std::size_t inDone, std::size_t inTotal)>;

/// Copies all that the repository's references reach, and the references, into a new bare repository of git's own
/// format: one pack. The folder must be absent or empty. Reads only; false with a record otherwise, and what was made
/// stays for somebody to look at.
bool ExportToGit(const RepoPtr& inRepo, const std::string& inFolder, const ExportProgress& inProgress = {});

}  // namespace noxstorage::git

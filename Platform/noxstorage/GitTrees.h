#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Platform/noxstorage/GitObjects.h"

namespace noxstorage::git {

/// Order of two entries of a tree as git keeps it: by bytes, a folder's name counting as if it ended in "/".
int CompareEntryNames(std::string_view inLeft, bool inLeftIsTree, std::string_view inRight, bool inRightIsTree);

/// False for names that git forbids in a tree: empty, ".", "..", ".git" in any case, with "/" or a zero byte.
bool IsAllowedEntryName(std::string_view inName);

/// The entries of a tree given as git's bytes; false when these are not well formed.
bool VisitEntries(std::string_view inTree, const std::function<void(const TreeEntry&)>& inVisitor);

void AppendTreeEntry(std::string& outTree, std::string_view inName, std::uint32_t inMode, const Oid& inOid);

}  // namespace noxstorage::git

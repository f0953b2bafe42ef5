#pragma once

#include <string>
#include <string_view>

#include "Platform/noxstorage/GitObjects.h"

namespace noxstorage::git {

namespace odb {
class Store;
}

/// "refs/heads/" before a bare branch name; "HEAD" and full names stay.
std::string FullReferenceName(std::string_view inName);

/// Where a reference leads, over symbolic ones. Absent: nowhere.
Answer ResolveReference(odb::Store& inStore, std::string inName, Oid& outOid);

}  // namespace noxstorage::git

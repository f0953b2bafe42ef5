#pragma once

#include <string>
#include <string_view>

#include "Platform/noxstorage/GitOid.h"

namespace noxstorage::git {

namespace odb {
class Store;
}

/// "refs/heads/" before a bare branch name; "HEAD" and full names stay.
std::string FullReferenceName(std::string_view inName);

/// Where a reference leads, over symbolic ones; zero when it leads nowhere.
Oid ResolveReference(odb::Store& inStore, std::string inName);

}  // namespace noxstorage::git

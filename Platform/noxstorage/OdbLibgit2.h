#pragma once

#include <memory>

struct git_repository;

namespace noxstorage::git::odb {

class Store;

/// libgit2's view of a store: a repository that lives in no folder, whose objects and references are the store's and
/// whose settings are empty. Null, with a log, on failure.
git_repository* MakeLibgit2Repository(const std::shared_ptr<Store>& inStore);

}  // namespace noxstorage::git::odb

#pragma once

#include <memory>

struct git_refdb;
struct git_repository;

namespace noxstorage::git::odb {

class Store;

/// A reference database of the store for the repository; false, with a log, on failure.
bool MakeReferences(git_repository* inRepository, const std::shared_ptr<Store>& inStore, git_refdb** outReferences);

}  // namespace noxstorage::git::odb

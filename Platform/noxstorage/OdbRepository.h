#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "Platform/noxstorage/Git.h"
#include "Platform/noxstorage/OdbStore.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"

/// What the kinds of repositories have in common: a store, libgit2's view of it, and a first commit.
namespace noxstorage::git::odb {

/// Null with SQLite's code, which is logged.
RepoPtr OpenRepo(const Store::Options& inOptions, int& outCode);

/// A first commit of the payloads as a flat tree, without a branch; durable on return.
CommitPtr WriteFirstCommit(const RepoPtr& inRepo, const std::vector<SQLite3OdbBackend::NamedPayload>& inPayloads,
                           const Signature& inAuthor, const Signature& inCommitter, std::string_view inMessage);

/// A new file is durable once its folder is, and that folder's entry in its own.
bool SyncFolder(const std::string& inFolder);

}  // namespace noxstorage::git::odb

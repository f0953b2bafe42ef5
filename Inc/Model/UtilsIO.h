#pragma once

#include <string>
#include <string_view>

#include "Platform/noxstorage/Git.h"

namespace VantryLocalHub::GitBox {

/// The branches of a session's repository, and the names that hold a rope file's previous heads.
constexpr std::string_view kBranch_Session = "session";
constexpr std::string_view kBranch_Production = "production";
constexpr std::string_view kBranch_SessionBackup = "session_backup";
constexpr std::string_view kBranch_ProductionBackup = "production_backup";

/// Who commits are by: the signed-in user of the remote hub; the system's user with an empty e-mail address while
/// nobody is signed in. The time is now.
noxstorage::git::Signature MakeAuthor();
/// "localhub " and the program's version, with an empty e-mail address. The time is now.
noxstorage::git::Signature MakeCommitter();

/// The ending of every write that is no edit: finalizes the node and commits its tree on the branch. Null on failure.
noxstorage::git::CommitPtr CommitBranchTreeBuilderNode(const noxstorage::git::RepoPtr& inRepo,
                                                       std::string_view inBranch,
                                                       const noxstorage::git::TreeBuilderNodePtr& inNode,
                                                       std::string_view inMessage, std::string_view inBackup);

}  // namespace VantryLocalHub::GitBox

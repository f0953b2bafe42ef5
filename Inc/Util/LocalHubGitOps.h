#pragma once

#include <cstddef>
#include <string_view>

#include "Platform/noxcore/ImmutableString.h"
#include "Platform/noxstorage/Git.h"

/// The store's short ways to git: text revisions in, shared objects out.
///
/// Results: a failure gives null or an empty text, logged under "noxstorage" as "Git operation error".
/// Threading: any thread.
namespace VantryLocalHub::git {

using noxcore::utility::ImmutableString;
using noxstorage::git::BlobPtr;
using noxstorage::git::CommitPtr;
using noxstorage::git::Oid;
using noxstorage::git::RepoPtr;
using noxstorage::git::Signature;
using noxstorage::git::TreePtr;

/// The id that the bytes would have as a blob; nothing is stored.
ImmutableString ComputeContentHash(const void* inData, std::size_t inSize);

BlobPtr GetBlob(const RepoPtr& inRepo, std::string_view inOidText);
CommitPtr GetCommit(const RepoPtr& inRepo, std::string_view inOidText);
ImmutableString GetCommitID(const CommitPtr& inCommit);
TreePtr GetTree(const RepoPtr& inRepo, std::string_view inOidText);
/// The tree of a commit's full id, or of whatever git's revision syntax names ("session", "HEAD", "session~2").
TreePtr GetTreeAtRevision(const RepoPtr& inRepo, std::string_view inRevision);

/// 40 hexadecimal digits.
ImmutableString OidToText(const Oid& inOid);

/// Writes a commit of a tree whose id is given as text; see noxstorage::git::WriteCommit.
CommitPtr WriteCommit(const RepoPtr& inRepo, std::string_view inTreeText, const Signature& inAuthor,
                      const Signature& inCommitter, std::string_view inMessage, std::string_view inBranch,
                      std::string_view inBackup);

}  // namespace VantryLocalHub::git

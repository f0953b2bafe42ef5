#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Platform/noxstorage/Git.h"

/// The side branches of a single-file project: what a session folder keeps in its databases lies here as small files,
/// and each change of it is a commit.
///
///     medialocators    medialocators/<local|remote>/<xx>/<id>              blob: JSON of the record
///     userenclosures   userenclosures/<user>/<local|remote>/<xx>/<id>/name, content
///     keyvalue         keyvalue/<session|sync>/<key>, and at the root: sync
///     syncpoint        a commit a sync point, with all it says in its message
///
/// What lies under `local` has changed here since it was last exchanged with the remote side; an id lies under one of
/// the two.
/// Threading: any thread. Locks: none; changes of one branch that meet follow one another.
namespace VantryLocalHub::GitBox::RopeFile {

using noxstorage::git::CommitPtr;
using noxstorage::git::Oid;
using noxstorage::git::RepoPtr;
using noxstorage::git::TreeBuilderNodePtr;
using noxstorage::git::TreePtr;

constexpr std::string_view kCategory = "RopeFile";

constexpr std::string_view kBranch_MediaLocators = "medialocators";
constexpr std::string_view kBranch_UserEnclosures = "userenclosures";
constexpr std::string_view kBranch_KeyValue = "keyvalue";
constexpr std::string_view kBranch_SyncPoint = "syncpoint";

constexpr std::string_view kLocal = "local";
constexpr std::string_view kRemote = "remote";

/// The tree at the head of a branch; null, and true, where there is no such branch yet.
bool ReadBranch(const RepoPtr& inRepo, std::string_view inBranch, TreePtr& outTree);

/// Puts a change into the tree at the branch's head (null: an empty one), which it may look at; false leaves all as it
/// was. Called again when somebody else changed the branch meanwhile.
using TreeChange = std::function<bool(const TreePtr& inTree, const TreeBuilderNodePtr& inRoot)>;
/// Makes a commit of a change, unless it changes nothing. Durable on return.
bool ChangeBranch(const RepoPtr& inRepo, std::string_view inBranch, std::string_view inMessage,
                  const TreeChange& inChange);

/// Puts a text at a path, or takes away what is there; true as well when there is nothing.
bool PutText(const RepoPtr& inRepo, const TreeBuilderNodePtr& inRoot, std::string_view inPath, std::string_view inText);
bool PutEntry(const RepoPtr& inRepo, const TreeBuilderNodePtr& inRoot, std::string_view inPath, const Oid& inOid,
              std::uint32_t inMode);
bool RemovePath(const RepoPtr& inRepo, const TreeBuilderNodePtr& inRoot, std::string_view inPath);

/// Moves the entries that lay under `local` at a commit of the branch, and are unchanged since, to `remote`.
bool MarkExchanged(const RepoPtr& inRepo, std::string_view inBranch, std::string_view inCommitID);
/// Moves all entries back to `local`.
bool MarkNotExchanged(const RepoPtr& inRepo, std::string_view inBranch);

}  // namespace VantryLocalHub::GitBox::RopeFile

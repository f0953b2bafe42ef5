#include "Inc/Model/RopeFileBranches.h"

#include <vector>

#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"
#include "Src/Model/RopeFileEntries.h"

namespace VantryLocalHub::GitBox::RopeFile {

namespace git = noxstorage::git;
using git::ObjectType;
using git::TreeEntry;

namespace {

constexpr std::size_t kDigitsOfCommit = 6;

enum class Attempt
{
    Done,
    Overtaken,
    Failed
};

/// The tree of a head; zero: an empty one.
bool GetTreeOfHead(const RepoPtr& inRepo, const Oid& inHead, TreePtr& outTree)
{
    outTree = nullptr;
    if (inHead.IsZero()) return true;
    const CommitPtr commit = git::GetCommit(inRepo, inHead);
    outTree = commit ? git::GetTreeAtCommit(inRepo, commit) : nullptr;
    return outTree != nullptr;
}

bool FindHead(const RepoPtr& inRepo, std::string_view inBranch, Oid& outHead)
{
    outHead = Oid();
    return git::FindBranchHead(inRepo, inBranch, outHead) != git::Answer::Failed;
}

Attempt TryChange(const RepoPtr& inRepo, std::string_view inBranch, std::string_view inMessage,
                  const TreeChange& inChange)
{
    Oid head;
    TreePtr tree;
    if (!FindHead(inRepo, inBranch, head) || !GetTreeOfHead(inRepo, head, tree)) return Attempt::Failed;
    const auto root = git::ConstructRootTreeBuilderNode(inRepo, tree);
    if (!root || !inChange(tree, root)) return Attempt::Failed;
    const Oid changed = git::FinalizeTreeBuilderNode(inRepo, root);
    if (changed.IsZero()) return Attempt::Failed;
    if (changed == (tree ? tree->ID() : git::ComputeObjectID(ObjectType::Tree, {}))) return Attempt::Done;
    const auto scope = git::SQLite3OdbBackend::CommitScope::Begin(inRepo);
    if (!scope) return Attempt::Failed;
    if (scope->GetReference(inBranch) != head) return Attempt::Overtaken;
    const Oid commit = scope->AddCommit(changed, head, MakeAuthor(), MakeCommitter(), inMessage);
    return !commit.IsZero() && scope->SetReference(inBranch, commit) && scope->Commit() ? Attempt::Done
                                                                                        : Attempt::Failed;
}

std::string Join(std::string_view inFolder, std::string_view inName)
{
    return std::string(inFolder).append(inFolder.empty() ? "" : "/").append(inName);
}

/// The folders that have a `local` and a `remote`: one of media locators, one of each user's enclosures.
bool ListSides(const RepoPtr& inRepo, std::string_view inBranch, const TreePtr& inTree,
               std::vector<std::string>& outFolders)
{
    const std::string top(inBranch);
    if (inBranch != kBranch_UserEnclosures) {
        outFolders.push_back(top);
        return true;
    }
    TreeEntry entry;
    if (!inTree || !inTree->Find(top, entry)) return true;
    const TreePtr users = git::GetTree(inRepo, entry.mOid);
    if (!users) return false;
    for (const TreeEntry& user : *users)
        outFolders.push_back(Join(top, user.mName));
    return true;
}

/// Moves one entry from a side to the other.
bool Move(const RepoPtr& inRepo, const TreeBuilderNodePtr& inRoot, const std::string& inFrom, const std::string& inTo,
          const TreeEntry& inEntry)
{
    return RemovePath(inRepo, inRoot, inFrom) && PutEntry(inRepo, inRoot, inTo, inEntry.mOid, inEntry.mMode);
}

}  // namespace

bool ReadBranch(const RepoPtr& inRepo, std::string_view inBranch, TreePtr& outTree)
{
    Oid head;
    return inRepo && FindHead(inRepo, inBranch, head) && GetTreeOfHead(inRepo, head, outTree);
}

bool ChangeBranch(const RepoPtr& inRepo, std::string_view inBranch, std::string_view inMessage,
                  const TreeChange& inChange)
{
    Attempt attempt = Attempt::Failed;
    do
        attempt = inRepo ? TryChange(inRepo, inBranch, inMessage, inChange) : Attempt::Failed;
    while (attempt == Attempt::Overtaken);
    return attempt == Attempt::Done;
}

bool PutText(const RepoPtr& inRepo, const TreeBuilderNodePtr& inRoot, std::string_view inPath, std::string_view inText)
{
    std::string leaf;
    const auto node = git::ConstructSubTreeBuilderNodeForPath(inRepo, inRoot, inPath, leaf);
    return node && git::TreeBuilderInsertBuffer(inRepo, node, leaf, inText.data(), inText.size());
}

bool PutEntry(const RepoPtr& inRepo, const TreeBuilderNodePtr& inRoot, std::string_view inPath, const Oid& inOid,
              std::uint32_t inMode)
{
    std::string leaf;
    const auto node = git::ConstructSubTreeBuilderNodeForPath(inRepo, inRoot, inPath, leaf);
    return node && node->Insert(leaf, inOid, inMode);
}

bool RemovePath(const RepoPtr& inRepo, const TreeBuilderNodePtr& inRoot, std::string_view inPath)
{
    std::string leaf;
    const auto node = git::ConstructSubTreeBuilderNodeForPath(inRepo, inRoot, inPath, leaf);
    if (node) node->Remove(leaf);
    return node != nullptr;
}

bool MarkExchanged(const RepoPtr& inRepo, std::string_view inBranch, std::string_view inCommitID)
{
    Oid id;
    TreePtr then;
    if (!Oid::FromText(inCommitID, id) || !GetTreeOfHead(inRepo, id, then)) return false;
    const std::string message = "sync @" + std::string(inCommitID.substr(0, kDigitsOfCommit));
    return ChangeBranch(inRepo, inBranch, message, [&](const TreePtr& inTree, const TreeBuilderNodePtr& inRoot) {
        std::vector<std::string> folders;
        if (!ListSides(inRepo, inBranch, then, folders)) return false;
        for (const std::string& folder : folders) {
            const std::string local = Join(folder, kLocal);
            const bool moved = ForEachBelowFanOut(inRepo, then, local, [&](const TreeEntry& inEntry) {
                const std::string path = IO::MakeObjectPath(folder, kLocal, inEntry.mName);
                TreeEntry now;
                const git::Answer answer = inTree ? git::FindEntry(inRepo, inTree, path, now) : git::Answer::Absent;
                if (answer != git::Answer::Found || now.mOid != inEntry.mOid) return answer != git::Answer::Failed;
                return Move(inRepo, inRoot, path, IO::MakeObjectPath(folder, kRemote, inEntry.mName), inEntry);
            });
            if (!moved) return false;
        }
        return true;
    });
}

bool MarkNotExchanged(const RepoPtr& inRepo, std::string_view inBranch)
{
    return ChangeBranch(inRepo, inBranch, "desync", [&](const TreePtr& inTree, const TreeBuilderNodePtr& inRoot) {
        std::vector<std::string> folders;
        if (!ListSides(inRepo, inBranch, inTree, folders)) return false;
        for (const std::string& folder : folders) {
            const std::string remote = Join(folder, kRemote);
            const bool moved = ForEachBelowFanOut(inRepo, inTree, remote, [&](const TreeEntry& inEntry) {
                return Move(inRepo, inRoot, IO::MakeObjectPath(folder, kRemote, inEntry.mName),
                            IO::MakeObjectPath(folder, kLocal, inEntry.mName), inEntry);
            });
            if (!moved) return false;
        }
        return true;
    });
}

}  // namespace VantryLocalHub::GitBox::RopeFile

// Copies of sessions into single-file projects.

#include <algorithm>
#include <atomic>
#include <span>
#include <vector>

#include "Inc/Model/CommitMessages.h"
#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/RopeFileCopy.h"
#include "Inc/Model/RopeFileDb.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/WorkSharing.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Src/Model/RopeFileEntries.h"

namespace VantryLocalHub::GitBox::RopeFile {

namespace git = noxstorage::git;
using git::ObjectType;
using git::TreeEntry;
using noxcore::logging::LogError;

namespace {

constexpr std::size_t kCopiersBesideTheCaller = 3;

/// Copies what a tree names into another repository. What that has already is not read.
///
/// Threading: Copy is called from one thread; it has the folders of the second level copied by several.
class WalkAndCopyContext
{
public:
    WalkAndCopyContext(RepoPtr inSource, RepoPtr inDestination)
        : mSource(std::move(inSource)), mDestination(std::move(inDestination))
    {
    }

    bool Copy(const Oid& inTree)
    {
        TreePtr root;
        if (!CopyTree(inTree, root)) return Failed();
        if (!root) return true;
        std::vector<TreeEntry> folders;
        std::vector<TreePtr> owners;  // the entries' names point into them
        for (const TreeEntry& entry : *root) {
            TreePtr tree;
            if (entry.Type() != ObjectType::Tree) {
                if (!CopyBlob(entry.mOid)) return Failed();
                continue;
            }
            if (!CopyTree(entry.mOid, tree)) return Failed();
            if (!tree) continue;
            folders.insert(folders.end(), tree->begin(), tree->end());
            owners.push_back(std::move(tree));
        }
        noxcore::threads::ShareWork(noxcore::threads::IOBoundExecutor(), kCopiersBesideTheCaller, folders.size(),
                                    [&](std::size_t inIndex) { AsyncCopyEntry(folders[inIndex]); });
        return !mFailed || Failed();
    }

private:
    bool Failed() const
    {
        LogError(kCategory, "Failure in WalkAndCopy", {{"srcRepo", mSource->Path()}});
        return false;
    }

    void AsyncCopyEntry(const TreeEntry& inEntry)
    {
        if (mFailed) return;
        const git::ReadScope scope(mSource);
        if (!CopyEntry(inEntry)) mFailed = true;
    }

    bool CopyEntry(const TreeEntry& inEntry)
    {
        if (inEntry.Type() != ObjectType::Tree) return CopyBlob(inEntry.mOid);
        TreePtr tree;
        if (!CopyTree(inEntry.mOid, tree)) return false;
        return !tree ||
               std::all_of(tree->begin(), tree->end(), [this](const TreeEntry& inChild) { return CopyEntry(inChild); });
    }

    /// Null where the destination has the tree, and so all below it, already.
    bool CopyTree(const Oid& inTree, TreePtr& outTree)
    {
        if (git::HasObject(mDestination, inTree)) return true;
        const TreePtr tree = git::GetTree(mSource, inTree);
        if (!tree || git::WriteObject(mDestination, ObjectType::Tree, tree->Raw()) != inTree) return false;
        outTree = tree;
        return true;
    }

    bool CopyBlob(const Oid& inBlob)
    {
        if (git::HasObject(mDestination, inBlob)) return true;
        const auto blob = git::GetBlob(mSource, inBlob);
        // The id is computed anew: content that was changed behind the store's back is no copy.
        return blob && git::WriteBlob(mDestination, git::BlobToConstRecycledMemoryPtr(blob)) == inBlob;
    }

    const RepoPtr mSource;
    const RepoPtr mDestination;
    std::atomic<bool> mFailed{false};
};

/// The tree of a session as it is to be in its new file: under its own ids.
Oid MakeRootTree(const RepoPtr& inSource, const Oid& inTree, const RepoPtr& inDestination)
{
    const CommitPtr first = git::GetCommitForBranch(inDestination, kBranch_Session);
    const TreePtr own = first ? git::GetTreeAtCommit(inDestination, first) : nullptr;
    const TreePtr copied = git::GetTree(inDestination, inTree);
    if (!own || !copied) {
        LogError(kCategory, "Unable to read session for copy", {{"srcRepo", inSource->Path()}});
        return Oid();
    }
    const auto root = git::ConstructRootTreeBuilderNode(inDestination, copied);
    for (const std::string_view name : {"filepath", "productionid", "sessionid", "uniqueid"}) {
        TreeEntry entry;
        if (!own->Find(name, entry) || !root->Insert(name, entry.mOid, entry.mMode)) return Oid();
    }
    return git::FinalizeTreeBuilderNode(inDestination, root);
}

bool PutLocators(const RepoPtr& inRepo, const std::vector<Lyra2Db::StoredRecord>& inLocators)
{
    const auto put = [&](const TreePtr&, const TreeBuilderNodePtr& inRoot) {
        noxcore::serialization::JSONDocument document;
        return std::all_of(inLocators.begin(), inLocators.end(), [&](const Lyra2Db::StoredRecord& inRecord) {
            std::string id;
            if (!document.Parse(inRecord.mDTO) || !document.Root()["vy:mediaLocatorId"].GetString(id)) return true;
            return !IsUsableName(id) ||
                   PutText(inRepo, inRoot, GitBox::IO::MakeObjectPath(kBranch_MediaLocators, kLocal, id),
                           inRecord.mDTO);
        });
    };
    return inLocators.empty() || ChangeBranch(inRepo, kBranch_MediaLocators, kCopyMessage, put);
}

bool PutUserEnclosures(const RepoPtr& inRepo, const std::vector<Lyra2Db::UserEnclosureRow>& inRows)
{
    RopeSideDb db(inRepo);
    return std::all_of(inRows.begin(), inRows.end(),
                       [&](const Lyra2Db::UserEnclosureRow& inRow) { return db.WriteUserEnclosure(inRow, 1); });
}

}  // namespace

bool WalkAndCopy(const RepoPtr& inSource, const RepoPtr& inDestination, const Oid& inTree)
{
    return WalkAndCopyContext(inSource, inDestination).Copy(inTree);
}

bool CopySessionDataToRepo(const RepoPtr& inRepo, const SessionData& inData)
{
    return PutLocators(inRepo, inData.mLocators) && PutUserEnclosures(inRepo, inData.mUserEnclosures);
}

namespace IO {

int CopyToRopeFile(const RepoPtr& inSource, const std::string& inRevision, const SessionData& inData,
                   const std::string& inFile, bool inOverwrite, OpenFile& outFile)
{
    using noxnet::kHTTPStatus_InternalServerError;
    CommitPtr source;
    dto::RawJSON properties;
    RFC3339DateTime ignored;
    const GitBox::IO::ReadResult found = GitBox::IO::ResolveCommit(inSource, inRevision, source);
    if (found == GitBox::IO::ReadResult::Absent) return noxnet::kHTTPStatus_NotFound;
    if (found == GitBox::IO::ReadResult::Failed ||
        !GitBox::IO::ReadSessionProperties(inSource, source->ID().Text(), properties, ignored))
        return kHTTPStatus_InternalServerError;
    OpenFile file;
    const int status = CreateRopeFile(inFile, inOverwrite, properties, file);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    const Oid tree = WalkAndCopy(inSource, file.mRepo, source->TreeID())
                         ? MakeRootTree(inSource, source->TreeID(), file.mRepo)
                         : Oid();
    const CommitPtr commit = tree.IsZero() ? nullptr
                                           : git::WriteCommit(file.mRepo, tree, MakeAuthor(), MakeCommitter(),
                                                              MakeCommitMessage(CommitMessageCode::CopiedFromSession),
                                                              kBranch_Session, kBranch_SessionBackup);
    if (commit && CopySessionDataToRepo(file.mRepo, inData)) {
        file.mSession.mRevision = commit->ID().Text();
        file.mSession.mModified = RFC3339DateTime::FromSeconds(commit->Time());
        outFile = std::move(file);
        return status;
    }
    LogError(kCategory, "CopySessionData: Unable to copy local session",
             {{"destRepo", inFile}, {"srcRepo", inSource->Path()}});
    RemoveFailedFile(inFile, file);
    return kHTTPStatus_InternalServerError;
}

}  // namespace IO

}  // namespace VantryLocalHub::GitBox::RopeFile

// Copies of sessions into single-file projects.

#include <algorithm>
#include <vector>

#include "Inc/Model/CommitMessages.h"
#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/RopeFileCopy.h"
#include "Inc/Model/RopeFileDb.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxstorage/RopeBackends.h"
#include "Src/Model/RopeFileEntries.h"
#include "Src/Model/WalkAndCopy.h"

namespace VantryLocalHub::GitBox::RopeFile {

namespace git = noxstorage::git;
using git::TreeEntry;
using noxcore::logging::LogError;

namespace {

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

/// Fills a new file with what a tree names, in one commit, and with what lies beside the history.
bool CopyState(const RepoPtr& inSource, const Oid& inTree, const SessionData& inData, IO::OpenFile& ioFile)
{
    const git::RopeBackends::BulkLoad load(ioFile.mRepo);
    const bool isCopied = GitBox::WalkAndCopyContext(inSource, ioFile.mRepo).Copy(inTree);
    const Oid tree = isCopied ? MakeRootTree(inSource, inTree, ioFile.mRepo) : Oid();
    if (tree.IsZero()) return false;
    const CommitPtr commit = git::WriteCommit(ioFile.mRepo, tree, MakeAuthor(), MakeCommitter(),
                                              MakeCommitMessage(CommitMessageCode::CopiedFromSession), kBranch_Session,
                                              kBranch_SessionBackup);
    if (!commit || !CopySessionDataToRepo(ioFile.mRepo, inData)) return false;
    ioFile.mSession.mRevision = commit->ID().Text();
    ioFile.mSession.mModified = RFC3339DateTime::FromSeconds(commit->Time());
    return true;
}

}  // namespace

bool CopySessionDataToRepo(const RepoPtr& inRepo, const SessionData& inData)
{
    return PutLocators(inRepo, inData.mLocators) && WriteUserEnclosures(inRepo, inData.mUserEnclosures, kCopyMessage);
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
    // Over a file that is there the copy is built beside it: the old one stays until the new one is whole.
    const bool isOver = inOverwrite && noxcore::filesupport::Files().FileExists(inFile);
    const std::string beside = isOver ? inFile + "-copying" : inFile;
    OpenFile file;
    int status = CreateRopeFile(beside, isOver, properties, file, inFile);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    if (CopyState(inSource, source->TreeID(), inData, file)) {
        if (!isOver) {
            outFile = std::move(file);
            return status;
        }
        if (MoveIntoPlace(beside, inFile, file)) return OpenRopeFile(inFile, outFile);
    }
    LogError(kCategory, "CopySessionData: Unable to copy local session",
             {{"destRepo", inFile}, {"srcRepo", inSource->Path()}});
    RemoveFailedFile(beside, file);
    return kHTTPStatus_InternalServerError;
}

}  // namespace IO

}  // namespace VantryLocalHub::GitBox::RopeFile

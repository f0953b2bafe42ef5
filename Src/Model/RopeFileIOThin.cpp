// Single-file projects with less history.

#include <algorithm>
#include <map>
#include <set>

#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/RopeFileCopy.h"
#include "Inc/Model/RopeFileDb.h"
#include "Inc/Model/RopeFileSyncDb.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/Timer.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxstorage/RopeBackends.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"
#include "Src/Model/WalkAndCopy.h"

namespace VantryLocalHub::GitBox::RopeFile {

namespace git = noxstorage::git;
using noxcore::logging::LogError;
using noxcore::logging::LogInformation;

namespace {

using NewIDs = std::map<Oid, Oid>;  ///< commit in the source -> its copy

struct Copying
{
    const RepoPtr& mSource;
    const RepoPtr& mDestination;
    GitBox::WalkAndCopyContext& mContext;
};

bool Fail(std::string_view inMessage, const RepoPtr& inSource)
{
    LogError(kCategory, inMessage, {{"srcRepo", inSource->Path()}});
    return false;
}

enum class Head
{
    AnyOther,  ///< kept where it is wanted, or nothing else is
    Kept
};

/// The commits of a chain that are kept, oldest first.
bool ChooseRevisions(const RepoPtr& inSource, const CommitPtr& inHead, const std::vector<ImmutableString>& inWanted,
                     Head inKind, std::vector<CommitPtr>& outCommits)
{
    std::set<ImmutableString> wanted(inWanted.begin(), inWanted.end());
    if (inKind == Head::Kept) wanted.insert(ImmutableString(inHead->ID().Text()));
    const bool walked = git::WalkFirstParents(inSource, inHead, [&](const CommitPtr& inCommit) {
        if (wanted.contains(ImmutableString(inCommit->ID().Text()))) outCommits.push_back(inCommit);
        return true;
    });
    if (outCommits.empty()) outCommits.push_back(inHead);
    std::reverse(outCommits.begin(), outCommits.end());
    return walked;
}

/// Writes a commit like another one: its tree, message, author and committer, on a parent of the destination's.
Oid WriteLike(const RepoPtr& inDestination, const CommitPtr& inCommit, const Oid& inParent)
{
    const auto scope = git::SQLite3OdbBackend::CommitScope::Begin(inDestination);
    if (!scope) return Oid();
    const Oid commit =
        scope->AddCommit(inCommit->TreeID(), inParent, inCommit->Author(), inCommit->Committer(), inCommit->Message());
    return !commit.IsZero() && scope->Commit() ? commit : Oid();
}

/// Copies the commits in their order, each on the one before, and makes a branch of them.
bool CopyBranch(const Copying& inCopying, const std::vector<CommitPtr>& inCommits, std::string_view inBranch,
                std::string_view inBackup, NewIDs& outNewIDs)
{
    Oid parent;
    for (const CommitPtr& commit : inCommits) {
        const noxcore::utility::Timer timer;
        const Oid copy =
            inCopying.mContext.Copy(commit->TreeID()) ? WriteLike(inCopying.mDestination, commit, parent) : Oid();
        if (copy.IsZero()) {
            LogError(kCategory, "Unable to copy session revision",
                     {{"revision", commit->ID().Text()}, {"srcRepo", inCopying.mSource->Path()}});
            return false;
        }
        LogInformation(kCategory, "Copied a revision",
                       {{"revision", commit->ID().Text()}, {"branch", inBranch}, {"seconds", timer.Seconds()}});
        outNewIDs[commit->ID()] = copy;
        parent = copy;
    }
    // The backup is the one before, as after a commit; not what the file was made with.
    const CommitPtr head = git::GetCommit(inCopying.mDestination, parent);
    const CommitPtr before = head ? git::GetFirstParent(inCopying.mDestination, head) : nullptr;
    return head && git::SetBranchToCommit(inCopying.mDestination, before ? before : head, inBackup) &&
           git::SetBranchToCommit(inCopying.mDestination, head, inBranch);
}

/// The content of a side branch, as one commit.
bool CopySideBranch(const Copying& inCopying, std::string_view inBranch)
{
    TreePtr tree;
    if (!ReadBranch(inCopying.mSource, inBranch, tree)) return false;
    return !tree ||
           (inCopying.mContext.Copy(tree->ID()) && git::WriteCommit(inCopying.mDestination, tree->ID(), MakeAuthor(),
                                                                    MakeCommitter(), kCopyMessage, inBranch));
}

/// What says which revision it is of says so of the new one.
bool MoveBinCount(const RepoPtr& inSource, const RepoPtr& inDestination, const NewIDs& inNewIDs)
{
    std::int64_t count = 0;
    const Oid head = git::GetBranchHead(inSource, kBranch_Session);
    const auto moved = inNewIDs.find(head);
    if (moved == inNewIDs.end() || !Db::ReadBinCount(inSource, head.Text(), count)) return true;
    return Db::WriteBinCount(inDestination, moved->second.Text(), count);
}

/// The sync points whose revisions are still there, with the new ids of these.
bool CopySyncPoints(const RepoPtr& inSource, const RepoPtr& inDestination, const NewIDs& inNewIDs)
{
    std::vector<SyncPoint> points;
    if (!ReadSyncPoints(inSource, points)) return false;
    const auto isEarlier = [](const SyncPoint& inPoint) { return inPoint.mRemoteSessionID.empty(); };
    const auto firstOfNow = std::find_if_not(points.begin(), points.end(), isEarlier);
    for (auto next = points.begin(); next != points.end(); ++next) {
        if (next == firstOfNow && next != points.begin() && !CloseSyncPoints(inDestination)) return false;
        const SyncPoint& point = *next;
        Oid local;
        const bool isID = Oid::FromText(point.mLocalRevision, local);
        const auto moved = isID ? inNewIDs.find(local) : inNewIDs.end();
        if (moved == inNewIDs.end()) continue;
        SyncPoint copy = point;
        copy.mLocalRevision = moved->second.Text();
        if (!AppendSyncPoint(inDestination, copy)) return false;
    }
    return firstOfNow != points.end() || CloseSyncPoints(inDestination);
}

bool CopyHistory(const Copying& inCopying, const std::vector<ImmutableString>& inRevisions, NewIDs& outNewIDs)
{
    const RepoPtr& source = inCopying.mSource;
    const CommitPtr session = git::GetCommitForBranch(source, kBranch_Session, kBranch_SessionBackup);
    std::vector<CommitPtr> commits;
    if (!session || !ChooseRevisions(source, session, inRevisions, Head::AnyOther, commits))
        return Fail("Unable to read session for copy", source);
    if (!CopyBranch(inCopying, commits, kBranch_Session, kBranch_SessionBackup, outNewIDs))
        return Fail("Unable to copy session branch", source);
    NewIDs ofProduction;  // nobody goes by them: sync points are of the session's history
    const CommitPtr production = git::GetCommitForBranch(source, kBranch_Production, kBranch_ProductionBackup);
    commits.clear();
    // What has been agreed on does not go back, whatever is kept of what led to it.
    if (!production || !ChooseRevisions(source, production, inRevisions, Head::Kept, commits) ||
        !CopyBranch(inCopying, commits, kBranch_Production, kBranch_ProductionBackup, ofProduction))
        return Fail("Unable to copy production branch", source);
    return true;
}

bool CopySideData(const Copying& inCopying, const NewIDs& inNewIDs)
{
    const RepoPtr& source = inCopying.mSource;
    for (const std::string_view branch : {kBranch_MediaLocators, kBranch_UserEnclosures, kBranch_KeyValue})
        if (!CopySideBranch(inCopying, branch)) return Fail("Unable to copy what lies beside the history", source);
    return (MoveBinCount(source, inCopying.mDestination, inNewIDs) &&
            CopySyncPoints(source, inCopying.mDestination, inNewIDs)) ||
           Fail("Unable to copy what lies beside the history", source);
}

}  // namespace

namespace IO {

int ThinHistoryToRopeFile(const RepoPtr& inSource, const std::vector<ImmutableString>& inRevisions,
                          const std::string& inFile, const std::string& inPlace)
{
    dto::RawJSON properties;
    RFC3339DateTime ignored;
    if (!GitBox::IO::ReadSessionProperties(inSource, kBranch_Session, properties, ignored)) {
        Fail("Unable to read session for copy", inSource);
        return noxnet::kHTTPStatus_InternalServerError;
    }
    OpenFile file;
    const int status = CreateRopeFile(inFile, true, Mode::OfItsBranches, properties, file, inPlace);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) {
        Fail("Unable to initialize new local session for copy", inSource);
        return status;
    }
    NewIDs newIDs;
    bool isCopied = false;
    {
        const git::RopeBackends::BulkLoad load(file.mRepo);
        GitBox::WalkAndCopyContext context(inSource, file.mRepo);
        const Copying copying{inSource, file.mRepo, context};
        isCopied = CopyHistory(copying, inRevisions, newIDs) && CopySideData(copying, newIDs);
    }
    if (isCopied) {
        CloseFile(file);
        return noxnet::kHTTPStatus_OK;
    }
    RemoveFailedFile(inFile, file);
    return noxnet::kHTTPStatus_InternalServerError;
}

}  // namespace IO

}  // namespace VantryLocalHub::GitBox::RopeFile

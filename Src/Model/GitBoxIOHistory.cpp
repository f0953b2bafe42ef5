#include <algorithm>

#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxstorage/GitError.h"

namespace VantryLocalHub::GitBox::IO {

namespace git = noxstorage::git;

StoredVersion ReadVersion(const CommitPtr& inCommit)
{
    StoredVersion version;
    version.mCommitID = inCommit->ID().Text();
    version.mAuthorName = inCommit->Author().mName;
    version.mAuthorEmail = inCommit->Author().mEmail;
    version.mCommitter = inCommit->Committer().mName;
    version.mMessage = inCommit->Message();
    version.mTime = RFC3339DateTime::FromSeconds(inCommit->Time());
    for (std::size_t i = 0; i < inCommit->ParentCount(); ++i) {
        version.mParents.emplace_back(inCommit->ParentID(i).Text());
    }
    return version;
}

ReadResult ResolveCommit(const RepoPtr& inRepo, std::string_view inRevision, CommitPtr& outCommit)
{
    Oid id;
    if (Oid::FromText(inRevision, id)) return git::FindCommit(inRepo, id, outCommit);
    const bool isHead = inRevision.empty() || inRevision == "HEAD";
    const std::string_view branch = isHead ? kBranch_Session : inRevision;
    const ReadResult result = git::FindBranchHead(inRepo, branch, id);
    if (result == ReadResult::Absent)
        git::LogGitError(git::kErrorNotFound, branch, git::kErrorClassReference, "no such branch");
    if (result != ReadResult::Found) return result;
    outCommit = git::GetCommit(inRepo, id);
    return outCommit ? ReadResult::Found : ReadResult::Failed;
}

CommitPtr ResolveCommit(const RepoPtr& inRepo, std::string_view inRevision)
{
    CommitPtr commit;
    return ResolveCommit(inRepo, inRevision, commit) == ReadResult::Found ? commit : nullptr;
}

bool ListVersionsFromCommit(const RepoPtr& inRepo, const CommitPtr& inFrom, std::string_view inStop,
                            const std::function<bool(const CommitPtr&)>& inVisitor)
{
    return git::WalkFirstParents(inRepo, inFrom, [&](const CommitPtr& inCommit) {
        const std::size_t parentCount = inCommit->ParentCount();
        if (parentCount > 1) {
            noxcore::logging::LogError(
                "GitBox", "Unsupported parent count",
                {{"commit", inCommit->ID().Text()}, {"count", parentCount}, {"expression", "parentCount > 1"}});
            return false;
        }
        return inCommit->ID().Text() != inStop && inVisitor(inCommit);
    });
}

bool ReadSessionHistory(const RepoPtr& inRepo, std::string_view inBranch, std::size_t inStart, std::size_t inCount,
                        std::vector<StoredVersion>& outVersions, std::size_t& outTotal)
{
    const CommitPtr head = ResolveCommit(inRepo, inBranch);
    if (!head) return false;
    std::vector<StoredVersion> versions;
    std::size_t place = 0;
    const bool complete = ListVersionsFromCommit(inRepo, head, {}, [&](const CommitPtr& inCommit) {
        if (place >= inStart && place - inStart < inCount) versions.push_back(ReadVersion(inCommit));
        ++place;
        return true;
    });
    if (!complete) return false;
    // Numbers count from the first version of the session, which is the last of the walk.
    for (std::size_t i = 0; i < versions.size(); ++i) {
        versions[i].mVersionNumber = static_cast<std::int64_t>(place - inStart - i);
    }
    outVersions = std::move(versions);
    outTotal = place;
    return true;
}

bool SetProductionCommitContentHash(const RepoPtr& inRepo, std::string_view inRevision, bool inUseBackup,
                                    ImmutableString& outRevision, RFC3339DateTime& outTime)
{
    const CommitPtr commit = ResolveCommit(inRepo, inRevision);
    if (!commit) return false;
    const CommitPtr written =
        git::WriteCommit(inRepo, commit->TreeID(), MakeAuthor(), MakeCommitter(), commit->Message(), kBranch_Production,
                         inUseBackup ? kBranch_ProductionBackup : std::string_view());
    if (!written) return false;
    outRevision = written->ID().Text();
    outTime = RFC3339DateTime::FromSeconds(written->Time());
    return true;
}

bool DifferInContent(const RepoPtr& inRepo, std::string_view inLeft, std::string_view inRight)
{
    CommitPtr left;
    CommitPtr right;
    const ReadResult results[] = {ResolveCommit(inRepo, inLeft, left), ResolveCommit(inRepo, inRight, right)};
    if (std::ranges::find(results, ReadResult::Failed) != std::end(results)) return true;
    if (!left && !right) return false;
    return !left || !right || left->TreeID() != right->TreeID();
}

}  // namespace VantryLocalHub::GitBox::IO

#include "Inc/Model/RopeFileSyncDb.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "Inc/Model/RopeFileDb.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub::GitBox::RopeFile {

namespace git = noxstorage::git;
using noxcore::logging::LogError;
using noxcore::logging::LogInformation;
using noxcore::threads::ScopedLock;

namespace {

constexpr std::string_view kSyncCategory = "HubSync";
constexpr std::string_view kModePath = "sync";  // at the root of the branch
constexpr std::string_view kModeSynchronized = "synchronized";
constexpr std::string_view kModeLocalOnly = "localOnly";

constexpr std::string_view kServerURL = "ServerURL";
constexpr std::string_view kProductionID = "ProductionID";
constexpr std::string_view kSessionID = "SessionID";
constexpr std::string_view kUserID = "UserID";
constexpr std::string_view kCorvaneID = "CorvaneID";
constexpr std::string_view kDeleted = "Deleted";
constexpr std::string_view kEtag = "UserEnclosureSyncEtag";
/// Of the chain of sync points: whose the newest ones are once the association has ended, and the last point that is an
/// earlier one's.
constexpr std::string_view kPointsOf = "SyncPointSessionID";
constexpr std::string_view kPointsBefore = "SyncPointsBefore";

std::string SyncPath(std::string_view inKey)
{
    return std::string(kBranch_KeyValue).append("/").append(kSection_Sync).append("/").append(inKey);
}

/// A value to write at a path, or nothing where what is there is to go.
struct Edit
{
    std::string mPath;
    std::optional<std::string> mValue;
};

bool WriteKeys(const RepoPtr& inRepo, std::string_view inMessage, const std::vector<Edit>& inEdits)
{
    const auto apply = [&](const TreePtr&, const TreeBuilderNodePtr& inRoot) {
        return std::all_of(inEdits.begin(), inEdits.end(), [&](const Edit& inEdit) {
            return inEdit.mValue ? PutText(inRepo, inRoot, inEdit.mPath, *inEdit.mValue)
                                 : RemovePath(inRepo, inRoot, inEdit.mPath);
        });
    };
    if (ChangeBranch(inRepo, kBranch_KeyValue, inMessage, apply)) return true;
    LogError(kCategory, "Cannot write key values", {{"message", inMessage}});
    return false;
}

Db::Lookup ReadKey(const RepoPtr& inRepo, std::string_view inKey, ImmutableString& outValue)
{
    std::string value;
    const Db::Lookup found = Db::ReadValue(inRepo, kSection_Sync, inKey, value);
    if (found == Db::Lookup::Found) outValue = value;
    return found;
}

bool ReadMode(const RepoPtr& inRepo, bool& outLocalOnly)
{
    TreePtr tree;
    if (!ReadBranch(inRepo, kBranch_KeyValue, tree)) return false;
    git::TreeEntry entry;
    if (!tree || !tree->Find(kModePath, entry)) {
        outLocalOnly = false;
        return true;
    }
    const auto blob = git::GetBlob(inRepo, entry.mOid);
    if (!blob) return false;
    outLocalOnly = blob->Content() == kModeLocalOnly;
    return true;
}

/// Where there is none, the user's ids are given all the same.
Db::Lookup FindAssociation(const RepoPtr& inRepo, RemoteAssociation& outAssociation)
{
    RemoteAssociation found;
    const std::pair<std::string_view, ImmutableString*> fields[] = {{kUserID, &found.mUserID},
                                                                    {kCorvaneID, &found.mCorvaneID},
                                                                    {kServerURL, &found.mServerURL},
                                                                    {kProductionID, &found.mProductionID},
                                                                    {kSessionID, &found.mSessionID}};
    Db::Lookup server = Db::Lookup::Absent;
    for (const auto& [key, field] : fields) {
        const Db::Lookup read = ReadKey(inRepo, key, *field);
        if (read == Db::Lookup::Failed) return read;
        if (key == kServerURL) server = read;
    }
    if (server == Db::Lookup::Found) {
        outAssociation = std::move(found);
    } else {
        outAssociation.mUserID = std::move(found.mUserID);
        outAssociation.mCorvaneID = std::move(found.mCorvaneID);
    }
    return server;
}

bool ReadAssociation(const RepoPtr& inRepo, RemoteAssociation& outAssociation)
{
    return FindAssociation(inRepo, outAssociation) == Db::Lookup::Found;
}

// ---- Sync points

std::string PointText(const SyncPoint& inPoint)
{
    noxcore::serialization::JSONWriter writer;
    writer.BeginObject();
    writer.Member("remote", inPoint.mRemoteRevision.View());
    writer.Member("local", inPoint.mLocalRevision.View());
    writer.Member("date", inPoint.mDate.Text());
    writer.EndObject();
    return writer.TakeText();
}

bool ParsePoint(const std::string& inText, SyncPoint& outPoint)
{
    noxcore::serialization::JSONDocument document;
    std::string remote;
    std::string local;
    std::string date;
    if (!document.Parse(inText) || !document.Root()["remote"].GetString(remote) ||
        !document.Root()["local"].GetString(local))
        return false;
    document.Root()["date"].GetString(date);
    outPoint.mRemoteRevision = remote;
    outPoint.mLocalRevision = local;
    outPoint.mDate = RFC3339DateTime::FromText(date);
    return true;
}

/// The remote session of the association, or of the last one where that has ended.
bool ReadOwnerOfPoints(const RepoPtr& inRepo, ImmutableString& outSessionID)
{
    return ReadKey(inRepo, kSessionID, outSessionID) != Db::Lookup::Failed &&
           (!outSessionID.empty() || ReadKey(inRepo, kPointsOf, outSessionID) != Db::Lookup::Failed);
}

/// Visits the points, newest first, until the visitor answers false. False when one cannot be read.
bool WalkPoints(const RepoPtr& inRepo, const std::function<bool(const CommitPtr&, const SyncPoint&)>& inVisitor)
{
    git::Oid head;
    const git::Answer answer = git::FindBranchHead(inRepo, kBranch_SyncPoint, head);
    if (answer != git::Answer::Found) return answer == git::Answer::Absent;
    ImmutableString session;
    ImmutableString before;
    if (!ReadOwnerOfPoints(inRepo, session) || ReadKey(inRepo, kPointsBefore, before) == Db::Lookup::Failed)
        return false;
    bool isReadable = true;
    const bool walked = git::WalkFirstParents(inRepo, git::GetCommit(inRepo, head), [&](const CommitPtr& inCommit) {
        SyncPoint point;
        isReadable = ParsePoint(inCommit->Message(), point);
        // Whose those of an earlier association are is not told.
        if (inCommit->ID().Text() == before.View()) session = {};
        point.mRemoteSessionID = session;
        if (isReadable) return inVisitor(inCommit, point);
        LogError(kCategory, "A sync point is not readable", {{"commit", inCommit->ID().Text()}});
        return false;
    });
    return walked && isReadable;
}

/// The first one, newest first, that has the property.
bool FindPoint(const RepoPtr& inRepo, const std::function<bool(const SyncPoint&)>& inTest, SyncPoint& outPoint,
               CommitPtr& outCommit)
{
    bool isFound = false;
    const bool read = WalkPoints(inRepo, [&](const CommitPtr& inCommit, const SyncPoint& inPoint) {
        if (!inTest(inPoint)) return true;
        outPoint = inPoint;
        outCommit = inCommit;
        isFound = true;
        return false;
    });
    return read && isFound;
}

/// That of the association: to the next remote session nothing has been said yet.
bool FindLatest(const RepoPtr& inRepo, SyncPoint& outPoint)
{
    CommitPtr ignored;
    SyncPoint latest;
    ImmutableString before;
    const auto first = [](const SyncPoint&) { return true; };
    if (ReadKey(inRepo, kPointsBefore, before) == Db::Lookup::Failed || !FindPoint(inRepo, first, latest, ignored) ||
        ignored->ID().Text() == before.View())
        return false;
    outPoint = std::move(latest);
    return true;
}

/// What the beginning or the end of an association says of the points that are there: those of another remote session
/// are not its own. Empty: it ends.
bool AddWhosePoints(const RepoPtr& inRepo, const ImmutableString& inSessionID, std::vector<Edit>& ioEdits)
{
    git::Oid head;
    ImmutableString owner;
    const git::Answer answer = git::FindBranchHead(inRepo, kBranch_SyncPoint, head);
    if (answer != git::Answer::Found) return answer == git::Answer::Absent;
    if (!ReadOwnerOfPoints(inRepo, owner)) return false;
    if (inSessionID.empty()) {
        ioEdits.push_back({SyncPath(kPointsOf), owner.Text()});
        return true;
    }
    ioEdits.push_back({SyncPath(kPointsOf), {}});
    if (!(owner == inSessionID)) ioEdits.push_back({SyncPath(kPointsBefore), head.Text()});
    return true;
}

/// The tree of the points' commits says nothing: it is that of the first one.
git::Oid TreeOfNextPoint(const RepoPtr& inRepo)
{
    git::Oid head;
    const bool isFirst = git::FindBranchHead(inRepo, kBranch_SyncPoint, head) != git::Answer::Found;
    const CommitPtr commit = isFirst ? git::GetCommitForBranch(inRepo, kBranch_Session, kBranch_SessionBackup)
                                     : git::GetCommit(inRepo, head);
    return commit ? commit->TreeID() : git::Oid();
}

bool Rewind(const RepoPtr& inRepo, const ImmutableString& inRemoteRevision)
{
    SyncPoint latest;
    SyncPoint restored;
    CommitPtr commit;
    if (!FindLatest(inRepo, latest)) return true;
    const bool known = FindPoint(
        inRepo, [&](const SyncPoint& inPoint) { return inPoint.mRemoteRevision == inRemoteRevision; }, restored,
        commit);
    if (!known || latest.mRemoteRevision == inRemoteRevision) return true;
    LogInformation(kSyncCategory, "Rewinding sync history",
                   {{"latestRevision", latest.mRemoteRevision}, {"rewoundRevision", inRemoteRevision}});
    return git::SetBranchToCommit(inRepo, commit, kBranch_SyncPoint);
}

}  // namespace

bool WriteMode(const RepoPtr& inRepo, bool inLocalOnly)
{
    return WriteKeys(inRepo, inLocalOnly ? "localonly" : "synchronized",
                     {{std::string(kModePath), std::string(inLocalOnly ? kModeLocalOnly : kModeSynchronized)}});
}

bool ReadSyncPoints(const RepoPtr& inRepo, std::vector<SyncPoint>& outPoints)
{
    std::vector<SyncPoint> points;
    const bool read = WalkPoints(inRepo, [&](const CommitPtr&, const SyncPoint& inPoint) {
        points.push_back(inPoint);
        return true;
    });
    if (read) outPoints.assign(points.rbegin(), points.rend());
    return read;
}

bool AppendSyncPoint(const RepoPtr& inRepo, const SyncPoint& inPoint)
{
    SyncPoint latest;
    if (FindLatest(inRepo, latest) && latest.mRemoteRevision == inPoint.mRemoteRevision &&
        latest.mLocalRevision == inPoint.mLocalRevision)
        return true;
    const git::Oid tree = TreeOfNextPoint(inRepo);
    if (!tree.IsZero() &&
        git::WriteCommit(inRepo, tree, MakeAuthor(), MakeCommitter(), PointText(inPoint), kBranch_SyncPoint))
        return true;
    LogError(kCategory, "Cannot write session sync point into db", {{"syncPoint", PointText(inPoint)}});
    return false;
}

bool CloseSyncPoints(const RepoPtr& inRepo)
{
    git::Oid head;
    const git::Answer answer = git::FindBranchHead(inRepo, kBranch_SyncPoint, head);
    if (answer != git::Answer::Found) return answer == git::Answer::Absent;
    return WriteKeys(inRepo, "write", {{SyncPath(kPointsBefore), head.Text()}});
}

template <class Function>
bool SyncDb::WithRepo(const Function& inFunction)
{
    // The repository is opened under the session's own mutex, which comes before this one.
    const auto source = mSource.lock();
    RepoPtr repo;
    if (source == nullptr || !source->RetainRepo(repo)) return false;
    const ScopedLock lock(mMutex);
    return inFunction(repo);
}

bool SyncDb::GetRemoteSessionID(ImmutableString& outSessionID)
{
    return WithRepo(
        [&](const RepoPtr& inRepo) { return ReadKey(inRepo, kSessionID, outSessionID) == Db::Lookup::Found; });
}

bool SyncDb::ReadCurrentRemoteAssociation(RemoteAssociation& outAssociation)
{
    return WithRepo([&](const RepoPtr& inRepo) { return ReadAssociation(inRepo, outAssociation); });
}

bool SyncDb::ReadLatestSyncPoint(SyncPoint& outPoint)
{
    return WithRepo([&](const RepoPtr& inRepo) {
        RemoteAssociation association;
        return ReadAssociation(inRepo, association) && FindLatest(inRepo, outPoint);
    });
}

bool SyncDb::WriteUserID(const ImmutableString& inUserID, const ImmutableString& inCorvaneID)
{
    return WithRepo([&](const RepoPtr& inRepo) {
        return WriteKeys(inRepo, "userid",
                         {{SyncPath(kUserID), inUserID.Text()}, {SyncPath(kCorvaneID), inCorvaneID.Text()}});
    });
}

bool SyncDb::RemoveUserIDs()
{
    return WithRepo([&](const RepoPtr& inRepo) {
        return WriteKeys(inRepo, "removeuserids", {{SyncPath(kUserID), {}}, {SyncPath(kCorvaneID), {}}});
    });
}

bool SyncDb::WriteAssociationForSync(const AssociationForSync& inAssociation)
{
    return WithRepo([&](const RepoPtr& inRepo) {
        std::vector<Edit> edits{{SyncPath(kServerURL), inAssociation.mServerURL.Text()},
                                {SyncPath(kProductionID), inAssociation.mProductionID.Text()},
                                {SyncPath(kSessionID), inAssociation.mSessionID.Text()},
                                {SyncPath(kUserID), inAssociation.mUserID.Text()},
                                {SyncPath(kCorvaneID), inAssociation.mCorvaneID.Text()},
                                {std::string(kModePath), std::string(kModeSynchronized)}};
        return AddWhosePoints(inRepo, inAssociation.mSessionID, edits) && WriteKeys(inRepo, "associate", edits);
    });
}

bool SyncDb::InvalidateAssociationForSync(const AssociationForSync& inAssociation)
{
    return WithRepo([&](const RepoPtr& inRepo) {
        RemoteAssociation current;
        const bool isCurrent = ReadAssociation(inRepo, current) && current.mServerURL == inAssociation.mServerURL &&
                               current.mProductionID == inAssociation.mProductionID &&
                               current.mSessionID == inAssociation.mSessionID;
        if (!isCurrent) return true;
        std::vector<Edit> edits{{SyncPath(kServerURL), {}}, {SyncPath(kProductionID), {}}, {SyncPath(kSessionID), {}}};
        return AddWhosePoints(inRepo, {}, edits) && WriteKeys(inRepo, "disassociate", edits);
    });
}

bool SyncDb::WriteSyncPoint(const SyncPoint& inPoint, std::int64_t& outChangeCount)
{
    return WithRepo([&](const RepoPtr& inRepo) {
        RemoteAssociation association;
        if (!ReadAssociation(inRepo, association)) {
            LogError(kSyncCategory, "Cannot read current remote association from db");
            return false;
        }
        if (!AppendSyncPoint(inRepo, inPoint)) return false;
        // The point stands whatever becomes of the mode: a caller told of a failure would write it a second time.
        WriteMode(inRepo, false);
        outChangeCount = kNoChangeCount;
        return true;
    });
}

bool SyncDb::ReadSyncPointForLocalRevision(const ImmutableString& inRevision, SyncPoint& outPoint)
{
    CommitPtr ignored;
    const auto test = [&](const SyncPoint& inPoint) { return inPoint.mLocalRevision == inRevision; };
    return WithRepo([&](const RepoPtr& inRepo) { return FindPoint(inRepo, test, outPoint, ignored); });
}

bool SyncDb::ReadSyncPointForRemoteRevision(const ImmutableString& inRevision, SyncPoint& outPoint)
{
    CommitPtr ignored;
    const auto test = [&](const SyncPoint& inPoint) { return inPoint.mRemoteRevision == inRevision; };
    return WithRepo([&](const RepoPtr& inRepo) { return FindPoint(inRepo, test, outPoint, ignored); });
}

bool SyncDb::ReadSyncPointRevisions(std::vector<ImmutableString>& outLocal, std::vector<ImmutableString>& outRemote)
{
    std::vector<ImmutableString> local;
    std::vector<ImmutableString> remote;
    bool isValid = true;
    const bool read = WithRepo([&](const RepoPtr& inRepo) {
        return WalkPoints(inRepo, [&](const CommitPtr&, const SyncPoint& inPoint) {
            isValid = !inPoint.mLocalRevision.empty() && !inPoint.mRemoteRevision.empty();
            if (!isValid)
                LogError(kSyncCategory, "Invalid sync point in history",
                         {{"localRevision", inPoint.mLocalRevision}, {"remoteRevision", inPoint.mRemoteRevision}});
            local.push_back(inPoint.mLocalRevision);
            remote.push_back(inPoint.mRemoteRevision);
            return isValid;
        });
    });
    if (!read || !isValid) return false;
    outLocal.assign(local.rbegin(), local.rend());
    outRemote.assign(remote.rbegin(), remote.rend());
    return true;
}

bool SyncDb::SetMediaLocatorSyncChangeCount(const SyncChangeCount& inCount)
{
    if (inCount.IsNone()) return true;
    return WithRepo(
        [&](const RepoPtr& inRepo) { return MarkExchanged(inRepo, kBranch_MediaLocators, inCount.mCommitID); });
}

bool SyncDb::ResetMediaLocatorSyncChangeCount()
{
    return WithRepo([](const RepoPtr& inRepo) { return MarkNotExchanged(inRepo, kBranch_MediaLocators); });
}

bool SyncDb::SetUserEnclosureSyncChangeCount(const SyncChangeCount& inCount)
{
    if (inCount.IsNone()) return true;
    return WithRepo(
        [&](const RepoPtr& inRepo) { return MarkExchanged(inRepo, kBranch_UserEnclosures, inCount.mCommitID); });
}

bool SyncDb::ResetUserEnclosureSyncChangeCount()
{
    return WithRepo([](const RepoPtr& inRepo) { return MarkNotExchanged(inRepo, kBranch_UserEnclosures); });
}

bool SyncDb::SetUserEnclosureSyncEtag(const ImmutableString& inEtag)
{
    return WithRepo([&](const RepoPtr& inRepo) {
        return WriteKeys(inRepo, "sync", {{SyncPath(kEtag), inEtag.Text()}});
    });
}

bool SyncDb::ReadDeletedDate(std::string& outDate)
{
    return WithRepo([&](const RepoPtr& inRepo) {
        return Db::ReadValue(inRepo, kSection_Sync, kDeleted, outDate) == Db::Lookup::Found;
    });
}

bool SyncDb::WriteDeletedDate(const std::string& inDate)
{
    return WithRepo([&](const RepoPtr& inRepo) { return WriteKeys(inRepo, "date", {{SyncPath(kDeleted), inDate}}); });
}

bool SyncDb::RemoveDeletedDate()
{
    return WithRepo([](const RepoPtr& inRepo) { return WriteKeys(inRepo, "undelete", {{SyncPath(kDeleted), {}}}); });
}

bool SyncDb::ResolveRestoredRemoteRevision(const ImmutableString& inRemoteRevision,
                                           ImmutableString& outLatestRemoteRevision)
{
    return WithRepo([&](const RepoPtr& inRepo) {
        SyncPoint latest;
        if (!Rewind(inRepo, inRemoteRevision) || !FindLatest(inRepo, latest)) return false;
        outLatestRemoteRevision = latest.mRemoteRevision;
        return true;
    });
}

bool SyncDb::IsLocalOnly()
{
    bool localOnly = true;
    ReadLocalOnly(localOnly);
    return localOnly;
}

bool SyncDb::WriteSynchronizedMode()
{
    return WithRepo([](const RepoPtr& inRepo) { return WriteMode(inRepo, false); });
}

bool SyncDb::WriteLocalOnlyMode()
{
    return WithRepo([](const RepoPtr& inRepo) { return WriteMode(inRepo, true); });
}

bool SyncDb::ReadLocalOnly(bool& outLocalOnly)
{
    return WithRepo([&](const RepoPtr& inRepo) { return ReadMode(inRepo, outLocalOnly); });
}

bool SyncDb::ReadLinkState(LinkState& outState)
{
    return WithRepo([&](const RepoPtr& inRepo) {
        LinkState state;
        if (!ReadMode(inRepo, state.mLocalOnly)) return false;
        const Db::Lookup association = FindAssociation(inRepo, state.mAssociation);
        if (association == Db::Lookup::Failed) return false;
        state.mAssociated = association == Db::Lookup::Found;
        if (state.mAssociated) FindLatest(inRepo, state.mSyncPoint);
        outState = std::move(state);
        return true;
    });
}

}  // namespace VantryLocalHub::GitBox::RopeFile

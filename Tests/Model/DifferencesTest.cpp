#include "Inc/Model/GitBoxIODiff.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <random>
#include <set>
#include <sstream>

#include "Inc/Model/UtilsIO.h"
#include "Platform/noxstorage/GitExport.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"
#include "Tests/Support/CommandOutput.h"
#include "Tests/Support/StoreTest.h"

namespace VantryLocalHub {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::Bytes;
using testing_support::CommandOutput;

std::vector<std::string> IDs(const std::vector<AssetChange>& inChanges)
{
    std::vector<std::string> ids;
    ids.reserve(inChanges.size());
    for (const AssetChange& change : inChanges)
        ids.push_back(change.mID.Text());
    return ids;
}

class DifferencesTest : public testing_support::StoreTest
{
protected:
    const dto::Session mSession = CreateSession();
    const ImmutableString mFirst{"11111111-1111-4111-8111-111111111111"};
    const ImmutableString mSecond{"22222222-2222-4222-8222-222222222222"};
    const ImmutableString mEnclosure{"33333333-3333-4333-8333-333333333333"};

    [[nodiscard]] GitBox::IO::RepoPtr Repo() const
    {
        GitBox::Sandbox::Handles handles;
        const auto sandbox = GitBox::Sandboxes::Instance()->FindSandbox(mSession.mIdentifier);
        EXPECT_TRUE(sandbox && sandbox->RetainDB(handles));
        return handles.mRepo;
    }

    /// Commits one asset under the name given; no name deletes it. Gives the new head.
    ImmutableString Set(const ImmutableString& inID, const std::string& inName)
    {
        const ImmutableString transaction = OpenTransaction(mSession.mIdentifier);
        dto::Asset ignored;
        EXPECT_EQ(200, inName.empty() ? mStore->DeleteAsset(transaction, inID)
                                      : mStore->EditAsset(transaction, inID, MakeAsset(inName), ignored));
        dto::Session session;
        EXPECT_EQ(200, Commit(transaction, &session));
        return session.mRevision;
    }

    /// Commits an asset that carries a marker.
    ImmutableString SetInConflict(const ImmutableString& inID, const std::string& inName,
                                  const ImmutableString& inOtherContent)
    {
        const ImmutableString transaction = OpenTransaction(mSession.mIdentifier);
        AssetContent content = MakeAsset(inName);
        content.mAsset.mBaseCommitID = mSession.mRevision;
        content.mAsset.mConflictsWithContentID = inOtherContent;
        dto::Asset ignored;
        EXPECT_EQ(200, mStore->EditAsset(transaction, inID, content, ignored));
        dto::Session session;
        EXPECT_EQ(200, Commit(transaction, &session));
        return session.mRevision;
    }

    SessionDifferences Differences(const ImmutableString& inFrom, const ImmutableString& inTo)
    {
        SessionDifferences differences;
        EXPECT_EQ(200, mStore->GetDifferences(mSession.mIdentifier, inFrom, inTo, differences));
        return differences;
    }
    SessionDifferences Outgoing(const ImmutableString& inFrom, const ImmutableString& inTo)
    {
        SessionDifferences differences;
        EXPECT_EQ(200, mStore->GetOutgoingChanges(mSession.mIdentifier, inFrom, inTo, differences));
        return differences;
    }
    ImmutableString ContentOf(const ImmutableString& inRevision, const ImmutableString& inID)
    {
        dto::Asset asset;
        EXPECT_EQ(200, mStore->GetAsset(mSession.mIdentifier, inRevision, inID, asset));
        return asset.mAssetContentID;
    }
};

TEST_F(DifferencesTest, AddedEditedAndDeletedAssetsCarryTheContentOfEachSide)
{
    const ImmutableString one = Set(mFirst, "one");
    const ImmutableString two = Set(mSecond, "two");
    const SessionDifferences added = Differences(one, two);
    EXPECT_THAT(IDs(added.mAddedAssets), ElementsAre(mSecond.Text()));
    EXPECT_TRUE(added.mAddedAssets[0].mFromContentID.empty());
    EXPECT_EQ(ContentOf(two, mSecond), added.mAddedAssets[0].mToContentID);
    const ImmutableString three = Set(mFirst, "another");
    const SessionDifferences edited = Differences(two, three);
    EXPECT_THAT(IDs(edited.mEditedAssets), ElementsAre(mFirst.Text()));
    EXPECT_EQ(ContentOf(two, mFirst), edited.mEditedAssets[0].mFromContentID);
    EXPECT_EQ(ContentOf(three, mFirst), edited.mEditedAssets[0].mToContentID);
    const ImmutableString four = Set(mSecond, "");
    const SessionDifferences deleted = Differences(three, four);
    EXPECT_THAT(IDs(deleted.mDeletedAssets), ElementsAre(mSecond.Text()));
    EXPECT_TRUE(deleted.mDeletedAssets[0].mToContentID.empty());
    EXPECT_EQ(three, deleted.mFromRevision);
    EXPECT_EQ(four, deleted.mToRevision);
}

TEST_F(DifferencesTest, ProductionEnclosuresAndPropertiesAreCompared)
{
    const ImmutableString transaction = OpenTransaction(mSession.mIdentifier);
    EnclosureContent enclosure;
    enclosure.mEnclosure.mEnclosureID = mEnclosure;
    enclosure.mEnclosure.mName = "poster";
    enclosure.mPayload = Bytes("picture");
    dto::Enclosure added;
    ASSERT_EQ(200, mStore->AddOrUpdateProductionEnclosure(transaction, enclosure, added));
    ASSERT_EQ(200, mStore->EditSessionProperties(transaction, {dto::RawJSON(R"({"name":"Renamed"})"), {}}));
    ASSERT_EQ(200, Commit(transaction));
    const SessionDifferences differences = Differences(mSession.mRevision, {});
    EXPECT_THAT(IDs(differences.mAddedEnclosures), ElementsAre(mEnclosure.Text()));
    EXPECT_FALSE(differences.mFromProperties.empty());
    EXPECT_NE(differences.mFromProperties, differences.mToProperties);
}

TEST_F(DifferencesTest, EqualTreesOfDifferentCommitsGiveAnEmptyRecord)
{
    const ImmutableString one = Set(mFirst, "one");
    Set(mFirst, "two");
    const ImmutableString back = Set(mFirst, "one");
    const SessionDifferences differences = Differences(one, back);
    EXPECT_NE(differences.mFromRevision, differences.mToRevision);
    EXPECT_THAT(differences.mEditedAssets, IsEmpty());
    EXPECT_TRUE(differences.mFromProperties.empty());
}

TEST_F(DifferencesTest, WhatIsNoRevisionStartsAtTheFirstCommitAndAnEmptyEndIsTheHead)
{
    const ImmutableString one = Set(mFirst, "one");
    const SessionDifferences differences = Differences("nothing of that name", {});
    EXPECT_EQ(mSession.mRevision, differences.mFromRevision);
    EXPECT_EQ(one, differences.mToRevision);
    EXPECT_EQ(mSession.mRevision, Differences("production", "session").mFromRevision);
}

TEST_F(DifferencesTest, AnUnknownCommitIdIsToldAsSuch)
{
    SessionDifferences differences;
    const ImmutableString unknown(std::string(40, '7'));
    EXPECT_EQ(404, mStore->GetDifferences(mSession.mIdentifier, unknown, {}, differences));
    EXPECT_EQ(404, mStore->GetDifferences("no session", {}, {}, differences));
    EXPECT_FALSE(GitBox::IO::ReadSessionDifferences(Repo(), unknown, "session", false, differences));
    EXPECT_EQ(1U, mLog->Count("Unable to get tree(s) for differences"));
}

TEST_F(DifferencesTest, OutgoingChangesLeaveOutWhatTheOtherSideChanged)
{
    Set(mFirst, "one");
    const ImmutableString base = Set(mSecond, "two");
    // The other side edited the second asset on the same base; its commit is no ancestor of ours.
    const ImmutableString theirs = Set(mSecond, "theirs");
    ImmutableString reverted;
    ASSERT_EQ(200, mStore->RevertSession(mSession.mIdentifier, base, reverted));
    const auto repo = Repo();
    const auto baseCommit = GitBox::IO::ResolveCommit(repo, base);
    ASSERT_TRUE(noxstorage::git::SetBranchToCommit(repo, baseCommit, "session"));
    const auto ours = noxstorage::git::WriteCommit(repo, GitBox::IO::ResolveCommit(repo, Set(mFirst, "ours"))->TreeID(),
                                                   GitBox::MakeAuthor(), GitBox::MakeCommitter(), "ours", "side");
    ASSERT_NE(nullptr, ours);
    const SessionDifferences all = Differences(theirs, {});
    EXPECT_THAT(IDs(all.mEditedAssets), ElementsAre(mFirst.Text(), mSecond.Text()));
    EXPECT_THAT(IDs(Outgoing(theirs, {}).mEditedAssets), ElementsAre(mFirst.Text()));
}

TEST_F(DifferencesTest, AnAssetThatWentBackToWhatItWasIsNoOutgoingChange)
{
    const ImmutableString one = Set(mFirst, "one");
    Set(mFirst, "two");
    Set(mSecond, "other");
    const ImmutableString back = Set(mFirst, "one");
    EXPECT_THAT(Outgoing(one, back).mEditedAssets, IsEmpty());
    EXPECT_THAT(IDs(Outgoing(one, back).mAddedAssets), ElementsAre(mSecond.Text()));
}

TEST_F(DifferencesTest, AHistoryEndsAtItsStopOrAtTheRoot)
{
    const ImmutableString one = Set(mFirst, "one");
    const ImmutableString two = Set(mFirst, "two");
    const auto repo = Repo();
    EXPECT_EQ(2U, GitBox::IO::GetHistoryOIDs(repo, one, two).size());
    const auto tree = GitBox::IO::ResolveCommit(repo, one)->TreeID().Text();
    EXPECT_EQ(2U, GitBox::IO::GetHistoryOIDs(repo, tree, two).size());
    EXPECT_EQ(0U, mLog->Count("Unsupported parent count"));
    EXPECT_EQ(3U, GitBox::IO::GetHistoryOIDs(repo, std::string(40, '7'), two).size());
    EXPECT_EQ(1U, mLog->Count("Unsupported parent count"));
    EXPECT_THAT(GitBox::IO::GetHistoryOIDs(repo, "no id", two), IsEmpty());
}

TEST_F(DifferencesTest, MarkersThatChangedAreConflictsWhereBothSidesHaveSome)
{
    const ImmutableString other = ContentOf(Set(mSecond, "other"), mSecond);
    const ImmutableString plain = Set(mFirst, "one");
    const ImmutableString marked = SetInConflict(mFirst, "mine", other);
    EXPECT_THAT(Differences(plain, marked).mConflicts, IsEmpty());
    const ImmutableString both = SetInConflict(mSecond, "mine too", other);
    const SessionDifferences differences = Differences(marked, both);
    ASSERT_EQ(1U, differences.mConflicts.size());
    EXPECT_EQ(ConflictChange::Kind::Asset, differences.mConflicts[0].mKind);
    EXPECT_EQ(mSecond, differences.mConflicts[0].mID);
    EXPECT_EQ(other, differences.mConflicts[0].mMarker.mConflictsWithContentID);
    dto::ConflictMarker marker;
    EXPECT_EQ(200, mStore->GetConflictInfo(mSession.mIdentifier, both, mFirst, marker));
    EXPECT_EQ(mSession.mRevision, marker.mBaseCommitID);
    EXPECT_EQ(404, mStore->GetConflictInfo(mSession.mIdentifier, plain, mFirst, marker));
    EXPECT_EQ(404, mStore->GetConflictInfo(mSession.mIdentifier, both, marker));
}

TEST_F(DifferencesTest, AnAuditTakesStaleMarkersAwayAndCommitsNothingWithoutThem)
{
    const ImmutableString other = ContentOf(Set(mSecond, "other"), mSecond);
    SetInConflict(mFirst, "mine", other);
    const ImmutableString head = SetInConflict(mSecond, "mine too", other);
    dto::Session session;
    ASSERT_EQ(200, mStore->AuditConflictMarkers(mSession.mIdentifier, session));
    EXPECT_EQ(head, session.mRevision);
    // The second asset takes the other side's content; its marker stays until somebody audits.
    const ImmutableString resolved = SetInConflict(mSecond, "other", other);
    ASSERT_EQ(200, mStore->AuditConflictMarkers(mSession.mIdentifier, session));
    EXPECT_NE(resolved, session.mRevision);
    EXPECT_EQ(session.mRevision, GetSession(mSession.mIdentifier).mRevision);
    dto::ConflictMarker marker;
    EXPECT_EQ(404, mStore->GetConflictInfo(mSession.mIdentifier, {}, mSecond, marker));
    EXPECT_EQ(200, mStore->GetConflictInfo(mSession.mIdentifier, {}, mFirst, marker));
    std::size_t total = 0;
    std::vector<StoredVersion> versions;
    ASSERT_EQ(200, mStore->GetSessionHistory(mSession.mIdentifier, 0, 1, versions, total));
    EXPECT_EQ("AuditConflictMarkers", versions[0].mMessage);
    // The last marker goes, and the folder with it.
    const auto repo = Repo();
    GitBox::IO::ConflictMarkers none;
    GitBox::IO::CommitPtr commit;
    const auto tree = noxstorage::git::GetTreeAtCommit(repo, GitBox::IO::ResolveCommit(repo, session.mRevision));
    ASSERT_TRUE(GitBox::IO::WriteAllConflicts(repo, tree, none, {}, false, "none", commit));
    EXPECT_EQ(nullptr, noxstorage::git::GetTree(repo, noxstorage::git::GetTreeAtCommit(repo, commit), "conflict"));
}

TEST_F(DifferencesTest, AMarkerThatIsNoRecordIsToldAndFailsTheReading)
{
    const auto repo = Repo();
    const auto head = GitBox::IO::ResolveCommit(repo, mSession.mRevision);
    const auto root = noxstorage::git::ConstructRootTreeBuilderNode(repo, noxstorage::git::GetTreeAtCommit(repo, head));
    std::string leaf;
    const auto node = noxstorage::git::ConstructSubTreeBuilderNodeForPath(repo, root, "conflict/conflict", leaf);
    ASSERT_TRUE(noxstorage::git::TreeBuilderInsertBuffer(repo, node, leaf, "{broken", 7));
    ASSERT_NE(nullptr, GitBox::CommitBranchTreeBuilderNode(repo, "session", root, "broken", {}));
    dto::ConflictMarker marker;
    EXPECT_EQ(500, mStore->GetConflictInfo(mSession.mIdentifier, "session", marker));
    EXPECT_EQ(1U, mLog->Count("Unable to read conflict marker"));
    dto::Session session;
    EXPECT_EQ(500, mStore->AuditConflictMarkers(mSession.mIdentifier, session));
}

/// A session with a random history, and the listing of each of its revisions.
class RandomHistory : public DifferencesTest
{
protected:
    using Listing = std::map<std::string, std::string>;  ///< asset -> content id

    struct Revision
    {
        ImmutableString mID;
        Listing mListing;
    };

    void Build(std::mt19937_64& ioRandom, std::size_t inCommits)
    {
        constexpr std::size_t kIDs = 40;
        for (std::size_t commit = 0; commit < inCommits; ++commit) {
            const ImmutableString transaction = OpenTransaction(mSession.mIdentifier);
            const std::size_t changes = 1 + ioRandom() % 6;
            for (std::size_t change = 0; change < changes; ++change)
                Change(ioRandom, transaction, ID(ioRandom() % kIDs));
            dto::Session session;
            ASSERT_EQ(200, Commit(transaction, &session));
            Listing listing;
            for (const dto::Asset& asset : GetAssets(mSession.mIdentifier, session.mRevision))
                listing.emplace(asset.mAssetID, asset.mAssetContentID);
            mRevisions.push_back({session.mRevision, std::move(listing)});
        }
    }

    /// Few ids that share few fan-out folders, few contents, so that things come back to what they were.
    static ImmutableString ID(std::size_t inNumber)
    {
        char text[40];
        std::snprintf(text, sizeof(text), "%02zx%06zx-0000-4000-8000-000000000000", inNumber % 7, inNumber);
        return text;
    }

    void Change(std::mt19937_64& ioRandom, const ImmutableString& inTransaction, const ImmutableString& inID)
    {
        // What the rules of a transaction refuse (editing what it deleted) changes nothing and is fine here.
        dto::Asset ignored;
        switch (ioRandom() % 5) {
            case 0:
                mStore->DeleteAsset(inTransaction, inID);
                break;
            case 1:
                if (!mRevisions.empty()) Restore(ioRandom, inTransaction, inID);
                break;
            default:
                mStore->EditAsset(inTransaction, inID, MakeAsset("take " + std::to_string(ioRandom() % 3)), ignored);
        }
    }

    void Restore(std::mt19937_64& ioRandom, const ImmutableString& inTransaction, const ImmutableString& inID)
    {
        const Listing& listing = mRevisions[ioRandom() % mRevisions.size()].mListing;
        const auto found = listing.find(inID.Text());
        dto::Asset ignored;
        if (found != listing.end()) mStore->RestoreAsset(inTransaction, inID, found->second, ignored);
    }

    static void ExpectEqual(const Listing& inFrom, const Listing& inTo, const SessionDifferences& inDifferences)
    {
        std::vector<std::string> added;
        std::vector<std::string> edited;
        std::vector<std::string> deleted;
        for (const auto& [id, content] : inTo) {
            const auto before = inFrom.find(id);
            if (before == inFrom.end()) added.push_back(id);
            if (before != inFrom.end() && before->second != content) edited.push_back(id);
        }
        for (const auto& [id, content] : inFrom)
            if (!inTo.contains(id)) deleted.push_back(id);
        EXPECT_EQ(added, IDs(inDifferences.mAddedAssets));
        EXPECT_EQ(edited, IDs(inDifferences.mEditedAssets));
        EXPECT_EQ(deleted, IDs(inDifferences.mDeletedAssets));
    }

    std::vector<Revision> mRevisions;
};

TEST_F(RandomHistory, EveryPairOfRevisionsDiffersAsItsFullListingsSay)
{
    std::mt19937_64 random(testing_support::TestSeed());
    Build(random, 40);
    for (const Revision& from : mRevisions)
        for (const Revision& to : mRevisions)
            ExpectEqual(from.mListing, to.mListing, Differences(from.mID, to.mID));
}

/// The assets below which a listing of git names paths.
std::set<std::string> AssetsIn(const std::string& inPaths)
{
    std::set<std::string> ids;
    std::istringstream lines(inPaths);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("assets/")) ids.insert(line.substr(10, line.find('/', 10) - 10));
    return ids;
}

TEST_F(RandomHistory, AnExportIsAWholeRepositoryInWhichGitSeesTheSameDifferences)
{
    namespace backend = noxstorage::git::SQLite3OdbBackend;
    std::mt19937_64 random(testing_support::TestSeed());
    Build(random, 12);
    const std::string folder = mHome / "export";
    // Beside the store that has the file open for writing.
    const auto repo = backend::OpenRepository(Repo()->Path(), backend::kReadOnly);
    ASSERT_TRUE(noxstorage::git::ExportToGit(repo, folder));
    EXPECT_FALSE(noxstorage::git::ExportToGit(repo, folder));
    const std::string git = "git -C '" + folder + "' ";
    EXPECT_EQ("", CommandOutput(git + "fsck --strict --no-progress"));
    EXPECT_EQ(mRevisions.back().mID.Text() + "\n", CommandOutput(git + "rev-parse session"));
    EXPECT_EQ("refs/heads/session\n", CommandOutput(git + "symbolic-ref HEAD"));
    for (const Revision& from : mRevisions) {
        for (const Revision& to : {mRevisions.front(), mRevisions.back()}) {
            const SessionDifferences ours = Differences(from.mID, to.mID);
            std::set<std::string> ids;
            for (const auto* list : {&ours.mAddedAssets, &ours.mEditedAssets, &ours.mDeletedAssets})
                for (const AssetChange& change : *list)
                    ids.insert(change.mID.Text());
            EXPECT_EQ(ids, AssetsIn(CommandOutput(git + "diff-tree -r --name-only " + from.mID.Text() + " " +
                                                  to.mID.Text())));
        }
    }
}

}  // namespace
}  // namespace VantryLocalHub

// Copies into single files, and their thinning.

#include <gmock/gmock.h>

#include "Tests/Support/RopeFileFixture.h"

namespace {

using namespace testing_support;
using testing::ElementsAre;

class RopeFileCopyTest : public RopeFileFixture
{
protected:
    /// Writes a commit by others than who commits here, at times of their own, on top of a branch.
    static git::CommitPtr WriteByOthers(const git::RepoPtr& inRepo, const git::Oid& inTree, std::string_view inBranch,
                                        int inNumber)
    {
        const std::string number = std::to_string(inNumber);
        const git::Signature author{"Anna " + number, "anna" + number + "@example.com", 1600000000 + inNumber, 120};
        const git::Signature committer{"Ben " + number, "ben" + number + "@example.com", 1650000000 + inNumber, -330};
        const auto commit = git::WriteCommit(inRepo, inTree, author, committer,
                                             std::string(inBranch) + " " + number + "\nof two lines", inBranch);
        EXPECT_TRUE(commit);
        return commit;
    }
    static std::vector<git::CommitPtr> CommitsOf(const ImmutableString& inID, std::string_view inBranch)
    {
        std::vector<git::CommitPtr> commits;
        const git::RepoPtr repo = RepoOf(inID);
        EXPECT_TRUE(git::WalkFirstParents(repo, git::GetCommitForBranch(repo, inBranch), [&](const auto& inCommit) {
            commits.push_back(inCommit);
            return true;
        }));
        return {commits.rbegin(), commits.rend()};
    }
    static void ExpectSame(const git::Signature& inLeft, const git::Signature& inRight)
    {
        EXPECT_EQ(inLeft.mName, inRight.mName);
        EXPECT_EQ(inLeft.mEmail, inRight.mEmail);
        EXPECT_EQ(inLeft.mTime, inRight.mTime);
        EXPECT_EQ(inLeft.mOffsetMinutes, inRight.mOffsetMinutes);
    }
};

TEST_F(RopeFileCopyTest, ACopyHasTheValuesOfItsSourceButForThoseOfItsRevisions)
{
    const dto::Session source = Create(File());
    ASSERT_EQ(200, mStore->WriteRopeFileValue(source.mIdentifier, "Purpose", "trailer"));
    CommitAsset(source.mIdentifier, "11111111-1111-4111-8111-111111111111", "bin");
    dto::Session copy;
    ASSERT_EQ(201, mStore->CopyToRopeFile(source.mIdentifier, {}, File("Copy.lyr"), false, copy));
    std::string value;
    ASSERT_EQ(200, mStore->ReadRopeFileValue(copy.mIdentifier, "Purpose", value));
    EXPECT_EQ("trailer", value);
    EXPECT_THAT(Messages(copy.mIdentifier, RopeFile::kBranch_KeyValue),
                ElementsAre("bincount", "RopeFile::CopySessionDataToRepo", "localonly"));
}

TEST_F(RopeFileCopyTest, ACopyHoldsTheStateAtARevisionUnderIdsOfItsOwn)
{
    dto::Session fromFile = Create(File());
    for (const dto::Session& source : {CreateSession(), fromFile}) {
        const ImmutableString id = source.mIdentifier;
        const dto::Session first = CommitAsset(id, mFirst, "one");
        CommitAsset(id, mSecond, "two");
        dto::MediaLocator locator;
        locator.mMediaLocatorID = "abc";
        locator.mProperties = dto::RawJSON(R"({"href":"x"})");
        ASSERT_EQ(200, mStore->AddMediaLocator(id, WriteMode::LocalEdit, locator));
        dto::UserEnclosure enclosure;
        enclosure.mEnclosureID = "enc1";
        enclosure.mName = "notes";
        ASSERT_EQ(200, mStore->AddUserEnclosure(id, "ann", WriteMode::LocalEdit, Bytes("mine"), enclosure));

        const std::string file = File("Copy of " + id.Text() + ".lyr");
        dto::Session copy;
        ASSERT_EQ(201, mStore->CopyToRopeFile(id, first.mRevision, file, false, copy));
        EXPECT_NE(id, copy.mIdentifier);
        EXPECT_NE(source.mRopeFileID, copy.mRopeFileID);
        EXPECT_EQ(GetAssets(id, first.mRevision), GetAssets(copy.mIdentifier)) << "content ids and all";
        std::vector<StoredVersion> versions;
        std::size_t total = 0;
        ASSERT_EQ(200, mStore->GetSessionHistory(copy.mIdentifier, 0, 10, versions, total));
        EXPECT_EQ(2U, total);
        EXPECT_NE(std::string::npos,
                  versions.front().mMessage.find("New Tessel Project created from an existing local Tessel Project"));
        dto::MediaLocator copied;
        ASSERT_EQ(200, mStore->GetMediaLocator(copy.mIdentifier, "abc", copied));
        EXPECT_EQ(locator, copied);
        ConstRecycledMemoryPtr payload;
        ASSERT_EQ(200, mStore->GetUserEnclosure(copy.mIdentifier, "ann", "enc1", enclosure, payload));
        EXPECT_EQ("mine", payload->View());
        EXPECT_TRUE(GetSession(copy.mIdentifier).mHasBin);

        EXPECT_EQ(409, mStore->CopyToRopeFile(id, {}, file, false, copy));
        EXPECT_EQ(201, mStore->CopyToRopeFile(id, {}, file, true, copy));
        EXPECT_EQ(2U, GetAssets(copy.mIdentifier).size());
        EXPECT_EQ(2U, GetAssets(id).size());
        EXPECT_EQ(404, mStore->CopyToRopeFile(id, std::string(40, 'a'), File("None.lyr"), false, copy));
        EXPECT_EQ(400, mStore->CopyToRopeFile(id, {}, File("No:ne.lyr"), false, copy));
        EXPECT_FALSE(fs::exists(File("None.lyr")));
        Close(copy.mIdentifier);
        EXPECT_EQ(2U, GetAssets(Open(file).mIdentifier).size());
    }
    dto::Session copy;
    EXPECT_EQ(400, mStore->CopyToRopeFile(fromFile.mIdentifier, {}, File(), true, copy));
    EXPECT_EQ(2U, GetAssets(fromFile.mIdentifier).size());
}

TEST_F(RopeFileCopyTest, ContentThatWasChangedBehindTheStoresBackStopsACopyAndLeavesNothing)
{
    const dto::Session session = Create(File());
    CommitAsset(session.mIdentifier, mFirst, "one");
    Close(session.mIdentifier);
    Execute(File(), "UPDATE objects SET data='eno payload' WHERE data=CAST('one payload' AS BLOB)");
    const dto::Session opened = Open(File());
    dto::Session copy;
    EXPECT_EQ(500, mStore->CopyToRopeFile(opened.mIdentifier, {}, File("Copy.lyr"), false, copy));
    EXPECT_EQ(1U, mLog->Count("Failure in WalkAndCopy"));
    EXPECT_EQ(1U, mLog->Count("CopySessionData: Unable to copy local session"));
    EXPECT_FALSE(fs::exists(File("Copy.lyr")));
}

TEST_F(RopeFileCopyTest, ThinningKeepsTheTreesAuthorsAndMessagesOfWhatIsKeptAndNothingElse)
{
    const ImmutableString id = Create(File()).mIdentifier;
    std::vector<ImmutableString> revisions;
    for (int count = 0; count < 30; ++count)
        revisions.push_back(CommitAsset(id, mFirst,
                                        std::to_string(count) + Hex(Noise(20000, static_cast<std::uint64_t>(count))),
                                        "commit " + std::to_string(count))
                                .mRevision);
    const AssociationForSync association{"https://hub.example", "p-remote", "remote", {}, "user", "corvane"};
    ASSERT_TRUE(mStore->WriteAssociationForSync(id, association));
    std::int64_t count = 0;
    for (const std::size_t which : {std::size_t{5}, std::size_t{20}}) {
        SyncPoint point;
        point.mLocalRevision = revisions[which];
        point.mRemoteRevision = "r" + std::to_string(which);
        ASSERT_TRUE(mStore->WriteSyncPoint(id, point, count));
    }
    const AssetList assets = GetAssets(id);
    const AssetList ofTen = GetAssets(id, revisions[10]);
    const std::string author = [&] {
        StoredVersion version;
        EXPECT_EQ(200, mStore->GetHistoryRevision(id, revisions[10], version));
        return version.mAuthorName;
    }();

    // Beside, into another file.
    const std::vector<ImmutableString> kept{revisions[10], revisions[20], revisions[29]};
    ASSERT_EQ(200, mStore->ThinHistoryToRopeFile(id, File("Thin.lyr"), kept));
    const dto::Session thin = Open(File("Thin.lyr"));
    std::vector<StoredVersion> versions;
    std::size_t total = 0;
    ASSERT_EQ(200, mStore->GetSessionHistory(thin.mIdentifier, 0, 10, versions, total));
    ASSERT_EQ(3U, total);
    EXPECT_EQ("commit 29", versions[0].mMessage);
    EXPECT_EQ("commit 20", versions[1].mMessage);
    EXPECT_EQ("commit 10", versions[2].mMessage);
    EXPECT_EQ(author, versions[2].mAuthorName);
    EXPECT_EQ(ofTen, GetAssets(thin.mIdentifier, versions[2].mCommitID));
    EXPECT_EQ(assets, GetAssets(thin.mIdentifier));
    SyncPoint point;
    ASSERT_TRUE(mStore->ReadLatestSyncPoint(thin.mIdentifier, point));
    EXPECT_EQ(versions[1].mCommitID, point.mLocalRevision);
    EXPECT_EQ("r20", point.mRemoteRevision);
    EXPECT_FALSE(mStore->ReadSyncPointForRemoteRevision(thin.mIdentifier, "r5", point)) << "its revision is gone";
    Close(thin.mIdentifier);

    // In its own place.
    const auto before = fs::file_size(File());
    {
        const git::RepoPtr used = RepoOf(id);
        EXPECT_EQ(423, mStore->ThinHistoryToRopeFile(id, File(), {}));
        EXPECT_EQ(31U, [&] {
            mStore->GetSessionHistory(id, 0, 1, versions, total);
            return total;
        }());
    }
    ASSERT_EQ(200, mStore->ThinHistoryToRopeFile(id, File(), {}));
    ASSERT_EQ(200, mStore->GetSessionHistory(id, 0, 10, versions, total));
    ASSERT_EQ(3U, total) << "the head, and what was synchronized";
    EXPECT_EQ("commit 29", versions[0].mMessage);
    ASSERT_TRUE(mStore->ReadSyncPointForRemoteRevision(id, "r20", point));
    EXPECT_EQ(versions[1].mCommitID, point.mLocalRevision);
    ASSERT_TRUE(mStore->ReadSyncPointForRemoteRevision(id, "r5", point));
    EXPECT_EQ(versions[2].mCommitID, point.mLocalRevision);
    EXPECT_EQ(assets, GetAssets(id));
    EXPECT_TRUE(GetSession(id).mHasBin);
    CommitAsset(id, mSecond, "afterwards");
    Close(id);
    EXPECT_LT(fs::file_size(File()), before / 3);
    EXPECT_THAT(Beside(), ElementsAre("Feature.lyr", "Thin.lyr"));
    EXPECT_EQ(2U, GetAssets(Open(File()).mIdentifier).size());
    EXPECT_EQ(400, mStore->ThinHistoryToRopeFile(CreateSession().mIdentifier, File("Folder.lyr"), {}));
}

TEST_F(RopeFileCopyTest, OfEachRevisionThatThinningKeepsAllButItsParentStays)
{
    const ImmutableString id = Create(File()).mIdentifier;
    std::vector<git::CommitPtr> expected[2];
    std::vector<ImmutableString> kept;
    constexpr const char* kBranches[] = {"session", "production"};
    for (int number = 0; number < 6; ++number) {
        CommitAsset(id, mFirst, std::to_string(number));
        const git::RepoPtr repo = RepoOf(id);
        const git::Oid tree = git::GetCommitForBranch(repo, "session")->TreeID();
        for (const std::size_t branch : {std::size_t{0}, std::size_t{1}}) {
            const auto commit = WriteByOthers(repo, tree, kBranches[branch], number);
            if (number % 2 == 0) continue;
            expected[branch].push_back(commit);
            kept.emplace_back(commit->ID().Text());
        }
    }
    Close(id);
    ASSERT_EQ(id, Open(File()).mIdentifier);
    ASSERT_EQ(200, mStore->ThinHistoryToRopeFile(id, File("Thin.lyr"), kept));
    const dto::Session thin = Open(File("Thin.lyr"));
    for (const std::size_t branch : {std::size_t{0}, std::size_t{1}}) {
        SCOPED_TRACE(kBranches[branch]);
        const auto commits = CommitsOf(thin.mIdentifier, kBranches[branch]);
        ASSERT_EQ(expected[branch].size(), commits.size());
        for (std::size_t place = 0; place < commits.size(); ++place) {
            EXPECT_EQ(expected[branch][place]->TreeID(), commits[place]->TreeID());
            EXPECT_EQ(expected[branch][place]->Message(), commits[place]->Message());
            ExpectSame(expected[branch][place]->Author(), commits[place]->Author());
            ExpectSame(expected[branch][place]->Committer(), commits[place]->Committer());
            EXPECT_EQ(place == 0 ? 0U : 1U, commits[place]->ParentCount());
            EXPECT_NE(expected[branch][place]->ID(), commits[place]->ID());
        }
    }
}

TEST_F(RopeFileCopyTest, ThinningEndsAtWhatCannotBeReadAndLeavesNothing)
{
    const ImmutableString id = Create(File()).mIdentifier;
    const auto transaction = OpenTransaction(id);
    ASSERT_EQ(200, mStore->EditSessionProperties(transaction, {dto::RawJSON(R"({"name":"Later"})"), {}}));
    ASSERT_EQ(200, Commit(transaction));
    CommitAsset(id, mFirst, "one");
    Close(id);
    // Only the first commit has it, at which the production stands.
    Execute(File(), R"(UPDATE objects SET data='{"name":"Erutaef"}' WHERE data=CAST('{"name":"Feature"}' AS BLOB))");
    ASSERT_EQ(id, Open(File()).mIdentifier);
    EXPECT_EQ(500, mStore->ThinHistoryToRopeFile(id, File("Thin.lyr"), {}));
    EXPECT_EQ(1U, mLog->Count("Unable to copy production branch"));
    EXPECT_EQ(0U, mLog->Count("Unable to copy session branch"));
    EXPECT_EQ(500, mStore->ThinHistoryToRopeFile(id, File(), {}));
    Close(id);
    Execute(File(), "UPDATE objects SET data='eno payload' WHERE data=CAST('one payload' AS BLOB)");
    const ImmutableString head = Open(File()).mRevision;
    EXPECT_EQ(500, mStore->ThinHistoryToRopeFile(id, File("Thin.lyr"), {}));
    EXPECT_EQ(1U, mLog->Count("Unable to copy session branch"));
    EXPECT_EQ(head, mLog->Find("Unable to copy session revision").back().Value("revision"));
    EXPECT_EQ(500, mStore->ThinHistoryToRopeFile(id, File(), {}));
    EXPECT_EQ(head, GetSession(id).mRevision);
    Close(id);
    EXPECT_THAT(Beside(), ElementsAre("Feature.lyr"));
}

TEST_F(RopeFileCopyTest, TheProductionStaysWhereItIsWhateverIsKeptOfWhatLedToIt)
{
    const dto::Session first = Create(File());
    const ImmutableString id = first.mIdentifier;
    ASSERT_EQ(200, mStore->AdvanceProduction(id, CommitAsset(id, mFirst, "one").mRevision));
    CommitAsset(id, mSecond, "two");
    const AssetList shared = GetAssets(id, GetSession(id).mProductionRevision);
    ASSERT_EQ(1U, shared.size());
    // The first commit is one of both branches.
    ASSERT_EQ(200, mStore->ThinHistoryToRopeFile(id, File(), {first.mRevision}));
    EXPECT_EQ(shared, GetAssets(id, GetSession(id).mProductionRevision));
    EXPECT_EQ(2U, GetAssets(id).size());
}

TEST_F(RopeFileCopyTest, AListOfOneRevisionGivesAFileOfOneCommitWithItselfAsBackup)
{
    const ImmutableString id = Create(File()).mIdentifier;
    const dto::Session first = CommitAsset(id, mFirst, "one");
    CommitAsset(id, mSecond, "two");
    ASSERT_EQ(200, mStore->ThinHistoryToRopeFile(id, File("Thin.lyr"), {first.mRevision}));
    const dto::Session thin = Open(File("Thin.lyr"));
    EXPECT_EQ(1U, Messages(thin.mIdentifier, "session").size());
    EXPECT_EQ(1U, GetAssets(thin.mIdentifier).size());
    const git::RepoPtr repo = RepoOf(thin.mIdentifier);
    EXPECT_EQ(thin.mRevision.Text(), git::GetBranchHead(repo, "session_backup").Text());
    const auto tree = git::GetTreeAtCommit(repo, git::GetCommitForBranch(repo, "production_backup"));
    EXPECT_EQ(thin.mRopeFileID.View(), git::GetBlob(repo, tree, "uniqueid")->Content()) << "of this project";
}

TEST_F(RopeFileCopyTest, WhatAnOpenTransactionBroughtStandsInTheWayOfCompaction)
{
    const ImmutableString id = Create(File()).mIdentifier;
    CommitAsset(id, mFirst, "one");
    const ImmutableString transaction = OpenTransaction(id);
    Add(transaction, MakeAsset("two", "clip", {{"payload", "bytes"}}), mSecond);
    EXPECT_EQ(423, mStore->ThinHistoryToRopeFile(id, File(), {}));
    ASSERT_EQ(200, Commit(transaction));
    EXPECT_EQ(200, mStore->ThinHistoryToRopeFile(id, File(), {}));
    EXPECT_EQ(2U, GetAssets(id).size());
}

TEST_F(RopeFileCopyTest, ACopyThatFailsLeavesTheFileThatItWasToReplace)
{
    const dto::Session source = Create(File());
    CommitAsset(source.mIdentifier, mFirst, "one");
    Close(source.mIdentifier);
    Execute(File(), "UPDATE objects SET data='eno payload' WHERE data=CAST('one payload' AS BLOB)");
    const dto::Session target = Create(File("Target.lyr"));
    const dto::Session kept = CommitAsset(target.mIdentifier, mSecond, "kept");
    const ImmutableString id = Open(File()).mIdentifier;
    dto::Session copy;
    EXPECT_EQ(404, mStore->CopyToRopeFile(id, std::string(40, 'a'), File("Target.lyr"), true, copy));
    EXPECT_EQ(kept.mRevision, GetSession(target.mIdentifier).mRevision) << "nothing was closed for it";
    EXPECT_EQ(500, mStore->CopyToRopeFile(id, {}, File("Target.lyr"), true, copy));
    EXPECT_EQ(kept.mRevision, Open(File("Target.lyr")).mRevision);
    mScheduler->RunUntilIdle();
    EXPECT_THAT(Beside(), testing::Not(testing::Contains(testing::HasSubstr("-localhub-"))));
}

TEST_F(RopeFileCopyTest, ACopyStaysHereUntilSomebodySaysOtherwise)
{
    dto::Session copy;
    ASSERT_EQ(201, mStore->CopyToRopeFile(CreateSession().mIdentifier, {}, File(), false, copy));
    EXPECT_TRUE(copy.mLocalOnly);
    Close(copy.mIdentifier);
    EXPECT_TRUE(Open(File()).mLocalOnly);
}

}  // namespace

// What lies on the side branches of a single file, path by path: a file outlives the program that wrote it.

#include <gmock/gmock.h>

#include "Tests/Support/RopeFileFixture.h"

namespace {

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using Blobs = std::map<std::string, std::string>;  ///< path -> content

class RopeFileBranchesTest : public RopeFileFixture
{
protected:
    static RopeFile::TreePtr TreeOf(const git::RepoPtr& inRepo, std::string_view inBranch)
    {
        RopeFile::TreePtr tree;
        EXPECT_TRUE(RopeFile::ReadBranch(inRepo, inBranch, tree));
        return tree;
    }
    /// All blobs below a tree. Each is a plain file, whatever it holds.
    static void Collect(const git::RepoPtr& inRepo, const RopeFile::TreePtr& inTree, const std::string& inFolder,
                        Blobs& outBlobs)
    {
        ASSERT_TRUE(inTree);
        for (const git::TreeEntry& entry : *inTree) {
            const std::string path = inFolder + std::string(entry.mName);
            if (entry.mMode == git::kModeTree) {
                Collect(inRepo, git::GetTree(inRepo, entry.mOid), path + "/", outBlobs);
                continue;
            }
            EXPECT_EQ(0100644U, entry.mMode) << path;
            const auto blob = git::GetBlob(inRepo, entry.mOid);
            ASSERT_TRUE(blob) << path;
            outBlobs[path] = blob->Content();
        }
    }
    static Blobs BlobsOf(const ImmutableString& inID, std::string_view inBranch)
    {
        Blobs blobs;
        const git::RepoPtr repo = RepoOf(inID);
        if (const auto tree = TreeOf(repo, inBranch)) Collect(repo, tree, {}, blobs);
        return blobs;
    }

    static AssociationForSync Association()
    {
        return {"https://hub.example", "p-remote", "remote", {}, "user", "corvane"};
    }
    int AddEnclosure(const ImmutableString& inID, const std::string& inUser, const std::string& inEnclosureID,
                     const std::string& inName, const std::string& inContent, WriteMode inMode = WriteMode::LocalEdit)
    {
        dto::UserEnclosure enclosure;
        enclosure.mEnclosureID = inEnclosureID;
        enclosure.mName = inName;
        return mStore->AddUserEnclosure(inID, inUser, inMode, Bytes(inContent), enclosure);
    }
    int AddLocator(const ImmutableString& inID, const std::string& inLocatorID, WriteMode inMode = WriteMode::LocalEdit)
    {
        dto::MediaLocator locator;
        locator.mMediaLocatorID = inLocatorID;
        locator.mProperties = dto::RawJSON(R"({"href":"x"})");
        return mStore->AddMediaLocator(inID, inMode, locator);
    }
    SyncChangeCount UnsynchronizedEnclosures(const ImmutableString& inID, const std::string& inUser)
    {
        std::vector<dto::UserEnclosure> enclosures;
        SyncChangeCount count;
        EXPECT_EQ(200, mStore->GetUnsynchronizedLocallyModifiedUserEnclosures(inID, inUser, enclosures, count));
        return count;
    }
};

TEST_F(RopeFileBranchesTest, TheNumberOfBinsStandsAsDecimalText)
{
    const ImmutableString id = Create(File()).mIdentifier;
    CommitAsset(id, mFirst, "one");
    const dto::Session head = CommitAsset(id, mSecond, "two");
    ASSERT_TRUE(GetSession(id).mHasBin);
    const Blobs blobs = BlobsOf(id, RopeFile::kBranch_KeyValue);
    EXPECT_EQ("2", blobs.at("keyvalue/session/BinCount"));
    EXPECT_EQ("bincount", Messages(id, RopeFile::kBranch_KeyValue).front());
    const auto transaction = OpenTransaction(id);
    ASSERT_EQ(200, mStore->DeleteAsset(transaction, mFirst));
    ASSERT_EQ(200, mStore->DeleteAsset(transaction, mSecond));
    ASSERT_EQ(200, Commit(transaction));
    EXPECT_FALSE(GetSession(id).mHasBin);
    EXPECT_EQ("0", BlobsOf(id, RopeFile::kBranch_KeyValue).at("keyvalue/session/BinCount"));
}

TEST_F(RopeFileBranchesTest, WhatIsKnownOfTheRemoteSideStandsUnderOneKeyEachAndGoesWithIt)
{
    const ImmutableString id = Create(File()).mIdentifier;
    const auto synced = [&] {
        Blobs blobs = BlobsOf(id, RopeFile::kBranch_KeyValue);
        std::erase_if(blobs, [](const auto& inBlob) { return inBlob.first.starts_with("keyvalue/session/"); });
        return blobs;
    };
    EXPECT_THAT(synced(), ElementsAre(Pair("sync", "localOnly")));
    ASSERT_TRUE(mStore->WriteAssociationForSync(id, Association()));
    ASSERT_TRUE(mStore->WriteDeletedDate(id, "2026-05-02"));
    ASSERT_TRUE(mStore->SetUserEnclosureSyncEtag(id, "tag-1"));
    EXPECT_THAT(
        synced(),
        ElementsAre(Pair("keyvalue/sync/CorvaneID", "corvane"), Pair("keyvalue/sync/Deleted", "2026-05-02"),
                    Pair("keyvalue/sync/ProductionID", "p-remote"),
                    Pair("keyvalue/sync/ServerURL", "https://hub.example"), Pair("keyvalue/sync/SessionID", "remote"),
                    Pair("keyvalue/sync/UserEnclosureSyncEtag", "tag-1"), Pair("keyvalue/sync/UserID", "user"),
                    Pair("sync", "synchronized")));
    ASSERT_TRUE(mStore->RemoveDeletedDate(id));
    ASSERT_TRUE(mStore->InvalidateAssociationForSync(id, Association()));
    EXPECT_THAT(synced(), ElementsAre(Pair("keyvalue/sync/CorvaneID", "corvane"),
                                      Pair("keyvalue/sync/UserEnclosureSyncEtag", "tag-1"),
                                      Pair("keyvalue/sync/UserID", "user"), Pair("sync", "synchronized")));
    ASSERT_TRUE(mStore->WriteUserID(id, "another", "account"));
    EXPECT_EQ("another", synced()["keyvalue/sync/UserID"]);
    EXPECT_EQ("account", synced()["keyvalue/sync/CorvaneID"]);
    ASSERT_EQ(200, mStore->SetSyncModeOfRopeFile(id, VYCL::LocalHub::SyncMode_LocalOnly()));
    EXPECT_THAT(synced(), ElementsAre(Pair("keyvalue/sync/UserEnclosureSyncEtag", "tag-1"), Pair("sync", "localOnly")));
}

TEST_F(RopeFileBranchesTest, AMediaLocatorIsItsRecordUnderTheSideThatWroteItLast)
{
    const ImmutableString id = Create(File()).mIdentifier;
    ASSERT_EQ(200, AddLocator(id, "abc"));
    ASSERT_EQ(200, AddLocator(id, "xyz", WriteMode::SyncEngine));
    const Blobs blobs = BlobsOf(id, RopeFile::kBranch_MediaLocators);
    ASSERT_EQ(2U, blobs.size());
    for (const auto& [path, locatorID] :
         {std::pair("medialocators/local/ab/abc", "abc"), std::pair("medialocators/remote/xy/xyz", "xyz")}) {
        dto::MediaLocator record;
        ASSERT_TRUE(blobs.contains(path));
        ASSERT_TRUE(dto::FromJSON(blobs.at(path), record));
        dto::MediaLocator read;
        ASSERT_EQ(200, mStore->GetMediaLocator(id, locatorID, read));
        EXPECT_EQ(read, record);
    }
}

TEST_F(RopeFileBranchesTest, AUserEnclosureIsANameAndItsContentBelowItsUser)
{
    const ImmutableString id = Create(File()).mIdentifier;
    const std::string content("a\nb\0c", 5);
    ASSERT_EQ(200, AddEnclosure(id, "ann", "enc1", "notes", content));
    ASSERT_EQ(200, AddEnclosure(id, "ben", "other", "marks", "m", WriteMode::SyncEngine));
    EXPECT_THAT(BlobsOf(id, RopeFile::kBranch_UserEnclosures),
                ElementsAre(Pair("userenclosures/ann/local/en/enc1/content", content),
                            Pair("userenclosures/ann/local/en/enc1/name", "notes"),
                            Pair("userenclosures/ben/remote/ot/other/content", "m"),
                            Pair("userenclosures/ben/remote/ot/other/name", "marks")));
    const git::RepoPtr repo = RepoOf(id);
    git::TreeEntry entry;
    ASSERT_EQ(git::Answer::Found, git::FindEntry(repo, TreeOf(repo, RopeFile::kBranch_UserEnclosures),
                                                 "userenclosures/ann/local/en/enc1/content", entry));
    EXPECT_EQ(git::ComputeObjectID(git::ObjectType::Blob, content), entry.mOid);
    ASSERT_EQ(200, mStore->DeleteUserEnclosure(id, "ann", "enc1"));
    EXPECT_EQ(2U, BlobsOf(id, RopeFile::kBranch_UserEnclosures).size());
}

TEST_F(RopeFileBranchesTest, AnExchangeOfUserEnclosuresMovesThoseOfItsCommitAndItsEndAllOfThem)
{
    const ImmutableString id = Create(File()).mIdentifier;
    ASSERT_EQ(200, AddEnclosure(id, "ann", "enc1", "notes", "one"));
    ASSERT_EQ(200, AddEnclosure(id, "ben", "enc2", "marks", "two"));
    const SyncChangeCount count = UnsynchronizedEnclosures(id, "ann");
    ASSERT_EQ(200, AddEnclosure(id, "ann", "enc3", "late", "three"));  // while the exchange is under way
    ASSERT_TRUE(mStore->SetUserEnclosureSyncChangeCount(id, count));
    const Blobs moved = BlobsOf(id, RopeFile::kBranch_UserEnclosures);
    EXPECT_EQ(6U, moved.size());
    EXPECT_EQ("one", moved.at("userenclosures/ann/remote/en/enc1/content"));
    EXPECT_EQ("two", moved.at("userenclosures/ben/remote/en/enc2/content"));
    EXPECT_EQ("three", moved.at("userenclosures/ann/local/en/enc3/content"));
    ASSERT_TRUE(mStore->ResetUserEnclosureSyncChangeCount(id));
    const Blobs back = BlobsOf(id, RopeFile::kBranch_UserEnclosures);
    EXPECT_EQ(6U, back.size());
    for (const auto& [path, content] : back)
        EXPECT_THAT(path, testing::HasSubstr("/local/en/"));
    const std::string commit = count.mCommitID.Text();
    ASSERT_EQ(40U, commit.size());
    EXPECT_THAT(Messages(id, RopeFile::kBranch_UserEnclosures),
                ElementsAre("desync", "sync @" + commit.substr(0, 6), "write", "write", "write"));
}

TEST_F(RopeFileBranchesTest, WhatACopyBringsAlongIsOneCommitOfEachBranch)
{
    for (const ImmutableString& source : {CreateSession().mIdentifier, Create(File()).mIdentifier}) {
        ASSERT_EQ(200, AddLocator(source, "abc"));
        ASSERT_EQ(200, AddLocator(source, "xyz", WriteMode::SyncEngine));
        ASSERT_EQ(200, AddEnclosure(source, "ann", "enc1", "notes", "one"));
        ASSERT_EQ(200, AddEnclosure(source, "ben", "enc2", "marks", "two", WriteMode::SyncEngine));
        dto::Session copy;
        ASSERT_EQ(201, mStore->CopyToRopeFile(source, {}, File("Copy.lyr"), true, copy));
        for (const std::string_view branch : {RopeFile::kBranch_MediaLocators, RopeFile::kBranch_UserEnclosures})
            EXPECT_THAT(Messages(copy.mIdentifier, branch), ElementsAre("RopeFile::CopySessionDataToRepo"));
        // Of the copy's remote side nobody knows anything yet.
        const Blobs locators = BlobsOf(copy.mIdentifier, RopeFile::kBranch_MediaLocators);
        EXPECT_EQ(2U, locators.size());
        EXPECT_TRUE(locators.contains("medialocators/local/ab/abc"));
        EXPECT_TRUE(locators.contains("medialocators/local/xy/xyz"));
        EXPECT_THAT(BlobsOf(copy.mIdentifier, RopeFile::kBranch_UserEnclosures),
                    ElementsAre(Pair("userenclosures/ann/local/en/enc1/content", "one"),
                                Pair("userenclosures/ann/local/en/enc1/name", "notes"),
                                Pair("userenclosures/ben/local/en/enc2/content", "two"),
                                Pair("userenclosures/ben/local/en/enc2/name", "marks")));
    }
}

TEST_F(RopeFileBranchesTest, TheTreeOfEverySyncPointIsThatOfTheSessionAtTheFirst)
{
    const ImmutableString id = Create(File()).mIdentifier;
    CommitAsset(id, mFirst, "one");
    ASSERT_TRUE(mStore->WriteAssociationForSync(id, Association()));
    EXPECT_THAT(Messages(id, RopeFile::kBranch_SyncPoint), IsEmpty());
    const git::Oid expected = git::GetCommitForBranch(RepoOf(id), "session")->TreeID();
    for (const char* const name : {"first", "second"}) {
        SyncPoint point;
        point.mLocalRevision = name;
        point.mRemoteRevision = name;
        std::int64_t count = 0;
        ASSERT_TRUE(mStore->WriteSyncPoint(id, point, count));
        EXPECT_EQ(expected, git::GetCommitForBranch(RepoOf(id), "syncpoint")->TreeID()) << name;
        CommitAsset(id, mSecond, name);
        EXPECT_NE(expected, git::GetCommitForBranch(RepoOf(id), "session")->TreeID());
    }
}

}  // namespace

// Single-file projects whose heads cannot be read: damaged ones go back to their backups, and what cannot be read just
// now changes nothing.

#include "Tests/Model/RopeFilePlaces.h"

namespace {

using namespace testing_support;

class RopeFileHeads : public RopeFilePlaces
{
protected:
    void ExpectThatItIsRefusedAndStaysAsItIs()
    {
        const std::string before = ReadWhole(File());
        EXPECT_TRUE(HeadOf(File()).empty());
        EXPECT_EQ(1U, mLog->Count("OpenRopeFile: The requested session does not exist"));
        EXPECT_EQ(0U, mLog->Count("A branch cannot be read, and goes back to its backup"));
        EXPECT_EQ(before, ReadWhole(File()));
    }
};

TEST_F(RopeFileHeads, AHeadThatIsDamagedGoesBackToItsBackup)
{
    constexpr std::pair<const char*, const char*> kDamages[] = {
        {"a commit of other content", "UPDATE objects SET data=replace(CAST(data AS TEXT),'tree ','tref ') WHERE "},
        {"a commit cut short", "UPDATE objects SET data=substr(data,1,20) WHERE "},
        {"a frame that is none", "UPDATE objects SET kind=kind|8, data=x'00' WHERE "},
        {"another type", "UPDATE objects SET kind=(kind&~7)|3 WHERE "}};
    for (const auto& [name, command] : kDamages) {
        SCOPED_TRACE(name);
        const ImmutableString before = MakeFile().mRevision;
        dto::Session opened;
        ASSERT_EQ(200, mStore->OpenRopeFile(File(), opened));
        const ImmutableString head = CommitAsset(opened.mIdentifier, "two").mRevision;
        CloseAll();
        ForgetAll();
        Execute(File(), std::string(command) + "oid=x'" + head.Text() + "'");
        ASSERT_EQ(200, mStore->OpenRopeFile(File(), opened));
        EXPECT_EQ(before, opened.mRevision);
        EXPECT_EQ(1U, mLog->Count("A branch cannot be read, and goes back to its backup"));
        mLog->Clear();
        EXPECT_EQ(1U, GetAssets(opened.mIdentifier).size());
        const ImmutableString next = CommitAsset(opened.mIdentifier, "three").mRevision;
        CloseAll();
        ForgetAll();
        EXPECT_EQ(next, HeadOf(File()));
        ASSERT_EQ(200, mStore->DeletePersistedSessionData(opened.mIdentifier));
    }
}

TEST_F(RopeFileHeads, AHeadWhoseTreeIsDamagedGoesBackToItsBackup)
{
    const ImmutableString before = MakeFile().mRevision;
    dto::Session opened;
    ASSERT_EQ(200, mStore->OpenRopeFile(File(), opened));
    const dto::Session committed = CommitAsset(opened.mIdentifier, "two");
    git::RepoPtr repo;
    ASSERT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(opened.mIdentifier)->RetainRepo(repo));
    const std::string tree = git::GetCommitForBranch(repo, "session")->TreeID().Text();
    repo = nullptr;
    CloseAll();
    ForgetAll();
    Execute(File(), "UPDATE objects SET data=substr(data,1,20) WHERE oid=x'" + tree + "'");
    EXPECT_EQ(before, HeadOf(File()));
}

TEST_F(RopeFileHeads, AProductionWhoseHeadIsDamagedGoesBackToWhereItStoodBeforeItsLastMove)
{
    using Move = std::function<int(const ImmutableString& inID, const ImmutableString& inRevision)>;
    const std::pair<const char*, Move> moves[] = {
        {"advanced",
         [&](const auto& inID, const auto& inRevision) { return mStore->AdvanceProduction(inID, inRevision); }},
        {"reset",
         [&](const auto& inID, const auto& inRevision) { return mStore->ResetProductionToRevision(inID, inRevision); }},
    };
    for (const auto& [name, move] : moves) {
        SCOPED_TRACE(name);
        const dto::Session first = MakeFile();
        const ImmutableString id = first.mIdentifier;
        const ImmutableString second = CommitAsset(id, "two").mRevision;
        const ImmutableString head = CommitAsset(id, "three").mRevision;
        // Not by the first commit: the production's would be the same ones as the session's.
        ASSERT_EQ(200, mStore->AdvanceProduction(id, second));
        const ImmutableString before = GetSession(id).mProductionRevision;
        ASSERT_EQ(200, move(id, head));
        const ImmutableString lost = GetSession(id).mProductionRevision;
        ASSERT_NE(before, lost);
        dto::Session opened = OpenWithDamaged(lost.Text());
        EXPECT_EQ(before, opened.mProductionRevision);
        EXPECT_EQ(head, opened.mRevision);
        EXPECT_EQ(2U, GetAssets(id, opened.mProductionRevision).size());
        const auto told = mLog->Find("A branch cannot be read, and goes back to its backup");
        ASSERT_EQ(1U, told.size());
        EXPECT_EQ("production", told.front().Value("branch"));
        EXPECT_EQ(lost, told.front().Value("lostRevision"));
        mLog->Clear();
        // It goes on from there.
        ASSERT_EQ(200, mStore->AdvanceProduction(id, first.mRevision));
        const ImmutableString next = GetSession(id).mProductionRevision;
        CloseAll();
        ForgetAll();
        ASSERT_EQ(200, mStore->OpenRopeFile(File(), opened));
        EXPECT_EQ(next, opened.mProductionRevision);
        EXPECT_EQ(0U, mLog->Count("A branch cannot be read, and goes back to its backup"));
        ASSERT_EQ(200, mStore->DeletePersistedSessionData(id));
    }
}

TEST_F(RopeFileHeads, ARevertedSessionWhoseHeadIsDamagedIsWhatItWasBeforeTheRevert)
{
    const dto::Session first = MakeFile();
    const ImmutableString second = CommitAsset(first.mIdentifier, "two").mRevision;
    const ImmutableString production = GetSession(first.mIdentifier).mProductionRevision;
    ImmutableString reverted;
    ASSERT_EQ(200, mStore->RevertSession(first.mIdentifier, first.mRevision, reverted));
    dto::Session opened = OpenWithDamaged(reverted.Text());
    EXPECT_EQ(second, opened.mRevision);
    EXPECT_EQ(production, opened.mProductionRevision);
    EXPECT_EQ(2U, GetAssets(opened.mIdentifier).size());
}

TEST_F(RopeFileHeads, AnAdvanceThatIsRepeatedAfterDamageIsThereAfterARestart)
{
    const ImmutableString id = MakeFile().mIdentifier;
    const ImmutableString second = CommitAsset(id, "two").mRevision;
    const ImmutableString head = CommitAsset(id, "three").mRevision;
    ASSERT_EQ(200, mStore->AdvanceProduction(id, second));
    ASSERT_EQ(200, mStore->AdvanceProduction(id, head));
    const ImmutableString lost = GetSession(id).mProductionRevision;
    for (const std::string damage : {"data=substr(data,1,20)", "data=replace(data,x'0a',x'0b')"}) {
        CloseAll();
        ForgetAll();
        Execute(File(), "UPDATE objects SET " + damage + " WHERE oid=x'" + lost.Text() + "'");
        dto::Session opened;
        ASSERT_EQ(200, mStore->OpenRopeFile(File(), opened));
        ASSERT_NE(lost, opened.mProductionRevision) << damage;
        // Author and time are the source's: it is the same commit.
        ASSERT_EQ(200, mStore->AdvanceProduction(id, head));
        EXPECT_EQ(lost, GetSession(id).mProductionRevision);
        CloseAll();
        ForgetAll();
        ASSERT_EQ(200, mStore->OpenRopeFile(File(), opened));
        EXPECT_EQ(lost, opened.mProductionRevision) << damage;
    }
}

TEST_F(RopeFileHeads, WhereHeadAndBackupAreDamagedTheFileIsRefusedAndStaysAsItIs)
{
    MakeFile();
    ForgetAll();
    Execute(File(), "UPDATE objects SET data=substr(data,1,20) WHERE kind&7=1");
    ExpectThatItIsRefusedAndStaysAsItIs();
}

TEST_F(RopeFileHeads, NothingIsWrittenIntoAFileWhoseHeadIsLostAndWhosePagesDoNotBelongTogether)
{
    const dto::Session session = MakeFile();
    const ImmutableString head = CommitAsset(session.mIdentifier, "two").mRevision;
    CloseAll();
    ForgetAll();
    Execute(File(), "UPDATE objects SET data=substr(data,1,20) WHERE oid=x'" + head.Text() + "'");
    // The number of free pages: there are none.
    constexpr std::streamoff kPlaceOfFreePages = 39;
    {
        std::fstream file(File(), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(kPlaceOfFreePages).put('\x09');
    }
    ExpectThatItIsRefusedAndStaysAsItIs();
}

TEST_F(RopeFileHeads, AReadThatFailsNeverTakesTheBackupForTheHead)
{
    const dto::Session first = MakeFile();
    const ImmutableString head = CommitAsset(first.mIdentifier, "two").mRevision;
    CloseAll();
    ForgetAll();
    std::size_t refused = 0;
    for (const bool fromThenOn : {false, true}) {
        for (unsigned nth = 1; nth < 200; ++nth) {
            SCOPED_TRACE("read " + std::to_string(nth) + (fromThenOn ? " and all later ones" : ""));
            mVfs->SetFault({.mOperation = FileOperation::Read,
                            .mNth = nth,
                            .mCode = SQLITE_IOERR_READ,
                            .mFromThenOn = fromThenOn,
                            .mOnlyEndingIn = ".lyr"});
            const unsigned reported = mVfs->FaultsReported();
            dto::Session opened;
            const int status = mStore->OpenRopeFile(File(), opened);
            const bool wasReached = mVfs->FaultsReported() != reported;
            if (status == 200) {
                EXPECT_EQ(head, opened.mRevision);
            } else {
                ++refused;
            }
            mVfs->ClearFaults();
            ForgetAll();
            ASSERT_EQ(head, HeadOf(File()));
            ForgetAll();
            if (!wasReached) break;
        }
    }
    EXPECT_EQ(0U, mLog->Count("A branch cannot be read, and goes back to its backup"));
    EXPECT_LT(5U, refused);
}

TEST_F(RopeFileHeads, AReadThatFailsWhileWritingOrThinningLosesNoCommit)
{
    for (const bool thins : {false, true}) {
        const ImmutableString id = MakeFile().mIdentifier;
        CommitAsset(id, "two");
        std::size_t assets = 2;
        unsigned points = 0;
        for (unsigned nth = 1; nth < 100; ++nth) {
            SCOPED_TRACE((thins ? "thinning, read " : "a commit, read ") + std::to_string(nth));
            CloseAll();
            ASSERT_EQ(assets, GetAssets(id).size());
            CloseAll();
            mVfs->SetFault(
                {.mOperation = FileOperation::Read, .mNth = nth, .mCode = SQLITE_IOERR_READ, .mOnlyEndingIn = ".lyr"});
            const unsigned reported = mVfs->FaultsReported();
            int status = 0;
            if (thins) {
                status = mStore->ThinHistoryToRopeFile(id, File(), {});
            } else {
                dto::TransactionResource transaction;
                dto::Asset added;
                CommitOutcome outcome;
                status = mStore->OpenTransaction(id, {}, VYCL::GetTransactionType_Edit(), {}, transaction);
                if (status < 300) status = mStore->AddAsset(transaction.mTransactionID, {}, MakeAsset("more"), added);
                if (status < 300)
                    status = mStore->CommitTransaction(transaction.mTransactionID, {"more"}, false, outcome);
                if (status == 200) ++assets;
                mStore->CloseTransaction(transaction.mTransactionID);
            }
            const bool wasReached = mVfs->FaultsReported() != reported;
            mVfs->ClearFaults();
            if (!wasReached) break;
            ++points;
        }
        EXPECT_LT(10U, points);
        ASSERT_EQ(assets, GetAssets(id).size());
        ASSERT_EQ(200, mStore->DeletePersistedSessionData(id));
    }
}

}  // namespace

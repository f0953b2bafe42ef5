#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "Client/Wire/OpaqueMembers.h"
#include "Platform/noxcore/Guid.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/hubctl/FakeHub.h"
#include "Tests/noxnet/ServerFixture.h"
#include "Tools/hubctl/ImportCommand.h"
#include "Tools/hubctl/ReadCommands.h"
#include "Tools/hubctl/RunCommand.h"
#include "Tools/hubctl/WaitLine.h"

namespace {

using hubctl::AssetRow;
using hubctl::Importer;
using hubctl::ImportOutcome;
using hubctl::ImportSettings;
using hubctl::Payload;
using noxcore::utility::Guid;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing_support::FakeHub;

const std::string kSession = FakeHub::kSession;

/// Rows that a test wrote down.
class ListedRows final : public hubctl::RowSource
{
public:
    explicit ListedRows(std::vector<AssetRow> inRows) : mRows(std::move(inRows)) {}
    [[nodiscard]] std::size_t Count() const override { return mRows.size(); }
    bool Next(AssetRow& outRow) override
    {
        if (mNext == mRows.size()) return false;
        outRow = mRows[mNext++];
        return true;
    }
    [[nodiscard]] const std::vector<hubctl::Remark>& Remarks() const override { return mRemarks; }

private:
    const std::vector<AssetRow> mRows;
    const std::vector<hubctl::Remark> mRemarks;
    std::size_t mNext = 0;
};

class ImportTest : public testing_support::ServerTest
{
protected:
    ImportTest()
    {
        const auto server = MakeServer();
        server->RegisterService(mHub->Expression(), mHub);
        EXPECT_EQ(200, server->Start());
        mPort = server->GetPort();
        mAPI = std::make_unique<hubctl::HubAPI>(noxnet::http::client::Client::Create("127.0.0.1", mPort, {}));
    }

    /// A root bin and clips below it, each with a payload.
    static std::vector<AssetRow> Rows(std::size_t inClips)
    {
        std::vector<AssetRow> rows;
        const std::string root = Guid::CreateUnique().Text();
        rows.push_back({root, "root", R"({"name":"root"})", true, {}});
        for (std::size_t i = 0; i < inClips; ++i) {
            const std::string name = "clip" + std::to_string(i);
            const std::string properties = R"({"name":")" + name + R"(","vy:parent":")" + root + R"("})";
            rows.push_back({Guid::CreateUnique().Text(), name, properties, false,
                            Payload{Guid::CreateUnique().Text(), "content", "bytes of " + name, {}}});
        }
        return rows;
    }
    bool Import(std::vector<AssetRow> inRows, ImportSettings inSettings = {})
    {
        inSettings.mName = "cut";
        ListedRows rows(std::move(inRows));
        return Importer(*mAPI, mProgress).Run(rows, inSettings, mOutcome, mError);
    }
    bool RunCommand(const hubctl::ImportArguments& inArguments, bool inJSON = false)
    {
        hubctl::ImportSource source;
        return hubctl::OpenSource(inArguments, source, mError) &&
               hubctl::RunImport(source, inJSON, *mAPI, mProgress, {}, mOut, mErr, mError);
    }
    bool Read(std::string_view inWords, const hubctl::Values& inValues, bool inJSON)
    {
        hubctl::MadeRequest request;
        hubctl::RequestError error;
        if (!hubctl::MakeRequest(*hubctl::FindCommand(inWords), inValues, request, error)) {
            mError = error.mText;
            return false;
        }
        return hubctl::RunCommand(request, {.mJSON = inJSON}, *mAPI, mOut, mError);
    }

    const std::shared_ptr<FakeHub> mHub = std::make_shared<FakeHub>();
    std::uint16_t mPort = 0;
    std::unique_ptr<hubctl::HubAPI> mAPI;
    std::ostringstream mBar;
    hubctl::ProgressBar mProgress{mBar, false};
    ImportOutcome mOutcome;
    std::string mError;
    std::ostringstream mOut;
    std::ostringstream mErr;
};

TEST_F(ImportTest, ProductionRowsCommitEditCommitAndComparisonComeInThisOrder)
{
    const auto rows = Rows(2);
    ASSERT_TRUE(Import(rows)) << mError;
    const std::string first = std::string(39, '0') + "1";
    const std::string second = std::string(39, '0') + "2";
    EXPECT_THAT(
        mHub->Calls(),
        ElementsAre("POST /api/productions?localOnly=true", "POST /api/transactions/" + kSession + "/HEAD",
                    "POST /api/transaction/T1/bulkCreate", "POST /api/transaction/T1/commit",
                    "POST /api/transactions/" + kSession + "/HEAD",
                    "GET /api/asset/" + kSession + "/" + first + "/" + rows[1].mID, "POST /api/transaction/T2/bulkEdit",
                    "POST /api/transaction/T2/commit", "GET /api/assets/" + kSession + "/" + first + "?view=CONDENSED",
                    "GET /api/assets/" + kSession + "/" + second + "?view=CONDENSED",
                    "GET /api/asset/" + kSession + "/" + second + "/" + rows[1].mID));
    EXPECT_THAT(mHub->Complaints(), IsEmpty());
    const auto commits = mHub->Commits();
    ASSERT_EQ(3U, commits.size());
    EXPECT_EQ(3U, commits[1].size());
    EXPECT_EQ("bytes of clip0", commits[2].at(rows[1].mID).mEnclosures.at(rows[1].mPayload->mID).second);
    ASSERT_EQ(1U, mOutcome.mChanges.size());
    EXPECT_EQ(hubctl::ChangeKind::Edited, mOutcome.mChanges[0].mKind);
    EXPECT_EQ("clip0", mOutcome.mChanges[0].mName);
    EXPECT_EQ(1U, mOutcome.mBins);
    EXPECT_EQ(2U, mOutcome.mClips);
}

TEST_F(ImportTest, RowsAreSentInRequestsOfBoundedSize)
{
    auto rows = Rows(30);
    for (auto& row : rows) {
        if (row.mPayload) row.mPayload->mBytes = std::string(1000, 'x');
    }
    ASSERT_TRUE(Import(rows, {.mName = {}, .mMaxRows = 1000, .mMaxBytes = 5000, .mShouldStop = {}})) << mError;
    EXPECT_LT(mHub->LargestBody(), 10000U);
    EXPECT_GT(mHub->LargestBody(), 4000U);
    EXPECT_EQ(31U, mHub->Commits()[1].size());
    EXPECT_THAT(mHub->Complaints(), IsEmpty());
}

TEST_F(ImportTest, ARequestThatFailsInTheMiddleRollsEverythingBack)
{
    mHub->FailAt("POST /api/transaction/T1/bulkCreate", 3, 500);
    EXPECT_FALSE(Import(Rows(9), {.mName = {}, .mMaxRows = 2, .mMaxBytes = 100000, .mShouldStop = {}}));
    EXPECT_THAT(mError, HasSubstr("status 500"));
    EXPECT_THAT(mError, HasSubstr("; the transaction is rolled back"));
    EXPECT_EQ("POST /api/transaction/T1/rollback", mHub->Calls().back());
    EXPECT_EQ(0U, mHub->OpenTransactions());
    EXPECT_EQ(1U, mHub->Commits().size());
}

TEST_F(ImportTest, ACommitThatIsRefusedRollsEverythingBack)
{
    mHub->FailAt("POST /api/transaction/T1/commit", 1, 412);
    EXPECT_FALSE(Import(Rows(1)));
    EXPECT_THAT(mError, HasSubstr("the commit failed"));
    EXPECT_EQ("POST /api/transaction/T1/rollback", mHub->Calls().back());
    EXPECT_EQ(0U, mHub->OpenTransactions());
}

TEST_F(ImportTest, AnEditThatFailsRollsBackTheEditAlone)
{
    mHub->FailAt("POST /api/transaction/T2/bulkEdit", 1, 409);
    EXPECT_FALSE(Import(Rows(1)));
    EXPECT_EQ("POST /api/transaction/T2/rollback", mHub->Calls().back());
    EXPECT_EQ(2U, mHub->Commits().size());
}

TEST_F(ImportTest, ARollbackThatFailsIsToldAsSuch)
{
    mHub->FailAt("POST /api/transaction/T1/bulkCreate", 1, 500);
    mHub->FailAt("POST /api/transaction/T1/rollback", 1, 500);
    EXPECT_FALSE(Import(Rows(1)));
    EXPECT_THAT(mError, HasSubstr("could not be rolled back"));
}

TEST_F(ImportTest, AnInterruptionBetweenTwoRequestsRollsBack)
{
    int asked = 0;
    EXPECT_FALSE(
        Import(Rows(9), {.mName = {}, .mMaxRows = 2, .mMaxBytes = 100000, .mShouldStop = [&] { return ++asked > 2; }}));
    EXPECT_EQ("interrupted; the transaction is rolled back", mError);
    EXPECT_EQ(0U, mHub->OpenTransactions());
    EXPECT_EQ(1U, mHub->Commits().size());
}

TEST_F(ImportTest, AnInterruptionBeforeTheFirstRequestMakesNoProduction)
{
    EXPECT_FALSE(Import(Rows(1), {.mName = {}, .mMaxRows = 2, .mMaxBytes = 1000, .mShouldStop = [] { return true; }}));
    EXPECT_EQ("interrupted", mError);
    EXPECT_THAT(mHub->Calls(), IsEmpty());
}

TEST_F(ImportTest, AFileThatChangesWhileItIsSentLosesItsContentAndNothingElse)
{
    const testing_support::TempFolder folder;
    std::ofstream(folder / "good") << std::string(300000, 'g');
    std::ofstream(folder / "bad") << "short";
    auto rows = Rows(2);
    rows[1].mPayload = Payload{Guid::CreateUnique().Text(), "content", {}, folder / "good", 300000};
    rows[2].mPayload = Payload{Guid::CreateUnique().Text(), "content", {}, folder / "bad", 900000};
    ASSERT_TRUE(Import(rows)) << mError;
    EXPECT_THAT(mHub->Complaints(), IsEmpty());
    const auto assets = mHub->Commits()[1];
    EXPECT_EQ(std::string(300000, 'g'), assets.at(rows[1].mID).mEnclosures.at(rows[1].mPayload->mID).second);
    EXPECT_THAT(assets.at(rows[2].mID).mEnclosures, IsEmpty());
    ASSERT_EQ(1U, mOutcome.mRemarks.size());
    EXPECT_EQ(folder / "bad", mOutcome.mRemarks[0].mPath);
    EXPECT_EQ(1U, mOutcome.mPayloads);
}

TEST_F(ImportTest, WithoutAHubNothingIsClaimed)
{
    mServers.front()->Stop();
    EXPECT_FALSE(Import(Rows(1)));
    EXPECT_THAT(mError, HasSubstr("the production cannot be made"));
    EXPECT_EQ("", mOutcome.mSessionID);
}

TEST_F(ImportTest, AFolderIsImportedAndTheChangeIsPrintedWithItsName)
{
    const testing_support::TempFolder folder;
    std::filesystem::create_directory(folder / "day");
    std::ofstream(folder / "day/take.mov") << "frames";
    std::filesystem::create_symlink("nowhere", folder / "broken");
    ASSERT_TRUE(RunCommand({.mSource = folder.Path(), .mName = "My \x1b[1mcut"})) << mError;
    EXPECT_THAT(mOut.str(), HasSubstr("Imported 2 bins and 1 clips, 1 of them with content (6 bytes)\n"));
    EXPECT_THAT(mOut.str(), HasSubstr("production My ?[1mcut\n"));
    EXPECT_THAT(mOut.str(), HasSubstr("  edited "));
    EXPECT_THAT(mOut.str(), HasSubstr(" take.mov\n"));
    EXPECT_EQ("hubctl: broken: left out, a broken link\n", mErr.str());
    EXPECT_EQ("", mBar.str());
    EXPECT_THAT(mHub->Complaints(), IsEmpty());
}

TEST_F(ImportTest, ATimelineIsImportedAndTheSummaryIsJSON)
{
    const testing_support::TempFolder folder;
    std::ofstream(folder / "cut.otio")
        << R"({"OTIO_SCHEMA":"Timeline.1","name":"cut","tracks":{"OTIO_SCHEMA":"Stack.1","children":[]}})";
    ASSERT_TRUE(RunCommand({.mSource = folder / "cut.otio", .mName = {}}, true)) << mError;
    const std::string json = mOut.str();
    EXPECT_THAT(json, HasSubstr(R"("name":"cut","vy:sessionId":")" + kSession + "\""));
    EXPECT_THAT(json, HasSubstr(R"("bins":2,"clips":0,"payloads":1,)"));
    EXPECT_THAT(json, HasSubstr(R"([{"change":"edited",)"));
    EXPECT_THAT(mHub->Complaints(), IsEmpty());
}

TEST_F(ImportTest, ASourceThatIsNoneMakesNoProduction)
{
    const testing_support::TempFolder folder;
    std::ofstream(folder / "bad.otio") << "{";
    EXPECT_FALSE(RunCommand({.mSource = folder / "bad.otio", .mName = {}}));
    EXPECT_FALSE(RunCommand({.mSource = folder / "none", .mName = {}}));
    EXPECT_THAT(mError, HasSubstr("none: No such file or directory"));
    std::ofstream(folder / "text") << "x";
    EXPECT_FALSE(RunCommand({.mSource = folder / "text", .mName = {}}));
    EXPECT_THAT(mError, HasSubstr("neither a folder"));
    EXPECT_THAT(mHub->Calls(), IsEmpty());
}

TEST(CompareAssets, AddedEditedAndRemovedAreTold)
{
    const auto asset = [](const char* inID, const char* inContent) {
        hubctl::dto::CondensedAsset made;
        made.mAssetID = inID;
        made.mAssetContentID = inContent;
        return made;
    };
    const auto changes = hubctl::CompareAssets({asset("same", "1"), asset("edited", "1"), asset("removed", "1")},
                                               {asset("added", "1"), asset("edited", "2"), asset("same", "1")});
    std::vector<std::string> texts;
    for (const auto& change : changes)
        texts.push_back(std::string(TextOf(change.mKind)) + " " + change.mAssetID);
    EXPECT_THAT(texts, ElementsAre("added added", "edited edited", "removed removed"));
}

TEST_F(ImportTest, AReadAtTheHeadFollowsToTheConcreteRevisionWithItsQuery)
{
    ASSERT_TRUE(Import(Rows(1)));
    hubctl::dto::CondensedAssetsResource assets;
    hubctl::Failure failure;
    ASSERT_TRUE(mAPI->GetCondensedAssets(kSession, "HEAD", assets, failure)) << failure.mText;
    EXPECT_EQ(2U, assets.mAssets.size());
    EXPECT_EQ("GET /api/assets/" + kSession + "/" + std::string(39, '0') + "2?view=CONDENSED", mHub->Calls().back());
}

TEST_F(ImportTest, AssetsAreListedForPeopleAndAsTheHubsJSON)
{
    ASSERT_TRUE(Import(Rows(1)));
    ASSERT_TRUE(Read("assets", {{"PRODUCTION", {kSession}}}, false)) << mError;
    EXPECT_THAT(mOut.str(), HasSubstr("clip0"));
    mOut.str({});
    ASSERT_TRUE(Read("assets", {{"PRODUCTION", {kSession}}}, true));
    hubctl::dto::AssetsResource resource;
    EXPECT_TRUE(hubctl::dto::FromJSON(mOut.str(), resource));
    EXPECT_EQ(2U, resource.mAssets.size());
}

TEST_F(ImportTest, AnIdentifierThatCouldBeAnotherPathIsNotSent)
{
    EXPECT_FALSE(Read("assets", {{"PRODUCTION", {".."}}}, false));
    EXPECT_EQ("\"..\" cannot be PRODUCTION", mError);
    EXPECT_FALSE(hubctl::RunDelete({.mID = "*", .mAsset = {}, .mEnclosure = {}}, false, *mAPI, mOut, mError));
    EXPECT_THAT(mHub->Calls(), IsEmpty());
}

TEST_F(ImportTest, CatWritesAPayloadByNameOrId)
{
    auto rows = Rows(1);
    rows[1].mPayload->mBytes = std::string("\0\xff\r\n bytes", 10);
    ASSERT_TRUE(Import(rows));
    for (const std::string& name : {std::string("content"), rows[1].mPayload->mID}) {
        mOut.str({});
        ASSERT_TRUE(hubctl::RunCat({.mID = kSession, .mAsset = rows[1].mID, .mEnclosure = name}, *mAPI, mOut, mError))
            << mError;
        EXPECT_EQ(rows[1].mPayload->mBytes, mOut.str());
    }
    EXPECT_FALSE(hubctl::RunCat({.mID = kSession, .mAsset = rows[1].mID, .mEnclosure = "none"}, *mAPI, mOut, mError));
    EXPECT_EQ("the asset has no enclosure \"none\"", mError);
}

TEST_F(ImportTest, WhatIsNotThereIsToldWithItsStatus)
{
    ASSERT_TRUE(Import(Rows(1)));
    EXPECT_FALSE(Read("asset get", {{"PRODUCTION", {kSession}}, {"ASSET", {Guid::CreateUnique().Text()}}}, false));
    EXPECT_THAT(mError, HasSubstr("status 404, no such production, revision or asset"));
}

TEST_F(ImportTest, StatusCountsTheProductionsAndDeleteTakesOneAway)
{
    ASSERT_TRUE(Import(Rows(1)));
    ASSERT_TRUE(hubctl::RunStatus(mPort, true, *mAPI, mOut, mError)) << mError;
    EXPECT_THAT(mOut.str(), HasSubstr(R"("productions":1)"));
    ASSERT_TRUE(hubctl::RunDelete({.mID = kSession, .mAsset = {}, .mEnclosure = {}}, false, *mAPI, mOut, mError));
    EXPECT_FALSE(mHub->HasProduction());
}

TEST(ProgressBar, ShowsThatWorkGoesOnWhoseEndNobodyKnows)
{
    std::ostringstream shown;
    {
        hubctl::ProgressBar bar(shown, true);
        bar.ShowBusy("snapshot take", 0, 3, 0);
        EXPECT_EQ("snapshot take [######........................] 3 s", shown.str());
        shown.str({});
        bar.ShowBusy("snapshot take", 25, 4, 214'700'000);
        EXPECT_THAT(shown.str(), testing::HasSubstr("snapshot take [.......................######.] 4 s, 214 MB"));
    }
    EXPECT_TRUE(shown.str().ends_with('\r'));
}

TEST(WaitLine, CountsTheBytesOfWhatIsBuiltBesideAPlaceRatherThanOfWhatLiesThere)
{
    const testing_support::TempFolder folder;
    const std::string file = folder / "film.lyr";
    EXPECT_EQ(0U, hubctl::BytesOfFileInTheMaking({}));
    EXPECT_EQ(0U, hubctl::BytesOfFileInTheMaking(file));
    std::ofstream(file) << "the one that is there";
    EXPECT_EQ(21U, hubctl::BytesOfFileInTheMaking(file));
    std::ofstream(file + "-copying") << "the new";
    EXPECT_EQ(7U, hubctl::BytesOfFileInTheMaking(file));
    EXPECT_EQ(0U, hubctl::BytesOfFileInTheMaking("/no/such/folder/film.lyr"));
}

TEST(ProgressBar, IsQuietUnlessEnabled)
{
    std::ostringstream quiet;
    hubctl::ProgressBar(quiet, false).Show("Importing", 1, 2);
    EXPECT_EQ("", quiet.str());
    std::ostringstream shown;
    hubctl::ProgressBar(shown, true).Show("Importing", 1, 2);
    EXPECT_THAT(shown.str(), HasSubstr("1/2"));
}

}  // namespace

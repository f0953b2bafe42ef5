// Single files under odd names, files that others change meanwhile, and what a file says of the side where it belongs.

#include "Inc/Model/ComplaintBox.h"
#include "Inc/Model/RopeFileSyncDb.h"
#include "Tests/Model/RopeFilePlaces.h"

namespace {

using namespace testing_support;

class RopeFileElsewhere : public RopeFilePlaces
{
protected:
    void Forget(const ImmutableString& inID)
    {
        CloseAll();
        EXPECT_EQ(200, mStore->ClearSandbox(inID));
        CloseAll();
    }
};

// ---- Whether a project stays here

TEST_F(RopeFileElsewhere, ANewFileThatIsAnsweredStaysHereWhateverCannotBeWrittenBehindIt)
{
    const dto::Session source = MakeFile(File("Source.lyr"));
    for (const bool isCopy : {false, true}) {
        unsigned answered = 0;
        for (unsigned nth = 1; nth < 300 && answered == 0; ++nth) {
            SCOPED_TRACE(std::string(isCopy ? "copy" : "create") + ", full at write " + std::to_string(nth));
            mVfs->SetFault(
                {.mOperation = FileOperation::Write, .mNth = nth, .mCode = SQLITE_FULL, .mFromThenOn = true});
            const unsigned reported = mVfs->FaultsReported();
            dto::Session made;
            const int status =
                isCopy ? mStore->CopyToRopeFile(source.mIdentifier, {}, File(), false, made) : Create(made);
            const bool wasReached = mVfs->FaultsReported() != reported;
            mVfs->ClearFaults();
            CloseAll();
            if (status == 201) {
                EXPECT_TRUE(made.mLocalOnly);
                Forget(made.mIdentifier);
            }
            if (fs::exists(File())) {
                dto::Session opened;
                ASSERT_EQ(200, mStore->OpenRopeFile(File(), opened));
                EXPECT_TRUE(opened.mLocalOnly);
                ASSERT_EQ(200, mStore->DeletePersistedSessionData(opened.mIdentifier));
                CloseAll();
            }
            if (!wasReached) ++answered;
        }
        EXPECT_EQ(1U, answered);
    }
}

TEST_F(RopeFileElsewhere, ANewFileThatAKilledProcessLeftStaysHere)
{
    mVfs->StartRecording(mFolder);
    dto::Session session;
    ASSERT_EQ(201, Create(session));
    const FileRecording recording = mVfs->StopRecording();
    std::size_t found = 0;
    for (std::size_t moment = 0; moment <= recording.Events().size(); ++moment) {
        mStore.reset();
        mScheduler->RunUntilIdle();
        fs::remove_all(mFolder);
        fs::create_directories(mFolder);
        WriteFolderImage(recording.AfterKill(moment), mFolder);
        mStore = std::make_shared<VantryLocalHub::GitBox::GitBox>(true);
        dto::Session opened;
        if (mStore->OpenRopeFile(File(), opened) != 200) continue;
        ++found;
        EXPECT_TRUE(opened.mLocalOnly) << "killed after " << moment << " events";
    }
    EXPECT_LT(0U, found);
}

TEST_F(RopeFileElsewhere, AModeOfWhichOnlyAPartCouldBeWrittenIsToldAsTheFileHasIt)
{
    const ImmutableString id = MakeFile().mIdentifier;
    unsigned failures = 0;
    int status = 0;
    for (unsigned nth = 1; nth < 60 && status != 200; ++nth) {
        ASSERT_EQ(200, mStore->SetSyncModeOfRopeFile(id, "Synchronized"));
        ASSERT_TRUE(mStore->WriteUserID(id, "ann", "guid"));
        mVfs->SetFault({.mOperation = FileOperation::Write,
                        .mNth = nth,
                        .mCode = SQLITE_FULL,
                        .mFromThenOn = true,
                        .mOnlyEndingIn = ".lyr"});
        status = mStore->SetSyncModeOfRopeFile(id, "LocalOnly");
        mVfs->ClearFaults();
        failures += status == 200 ? 0U : 1U;
        dto::Session told;
        EXPECT_EQ(200, mStore->GetSession(id, told));
        Forget(id);
        dto::Session read;
        ASSERT_EQ(200, mStore->OpenRopeFile(File(), read));
        EXPECT_EQ(read.mLocalOnly, told.mLocalOnly) << "write " << nth;
    }
    EXPECT_EQ(200, status);
    EXPECT_LT(0U, failures);
}

// ---- Associations

TEST_F(RopeFileElsewhere, WhatWasAgreedOnWithOneRemoteSessionIsNotAgreedOnWithTheNext)
{
    for (const SessionKind kind : {SessionKind::LocalOnly, SessionKind::RopeFile}) {
        SCOPED_TRACE(static_cast<int>(kind));
        dto::Session session;
        ASSERT_EQ(201, mStore->CreateSession({}, {dto::RawJSON(R"({"name":"Feature"})"), {}}, kind, session));
        const ImmutableString id = session.mIdentifier;
        const auto association = [](const std::string& inSession) {
            return AssociationForSync{"https://hub.example",
                                      "p-" + inSession,
                                      inSession,
                                      RFC3339DateTime::FromText("2026-05-01T00:00:00Z"),
                                      "user",
                                      "corvane"};
        };
        const auto write = [&](const std::string& inLocal, const std::string& inRemote) {
            SyncPoint point;
            point.mLocalRevision = inLocal;
            point.mRemoteRevision = inRemote;
            point.mDate = RFC3339DateTime::FromText("2026-05-02T10:11:12.5Z");
            std::int64_t count = 0;
            EXPECT_TRUE(mStore->WriteSyncPoint(id, point, count));
        };
        const auto latest = [&] {
            SyncPoint point;
            LinkState state;
            EXPECT_TRUE(mStore->ReadLinkState(id, state));
            const bool isThere = mStore->ReadLatestSyncPoint(id, point);
            EXPECT_EQ(point.mRemoteRevision, state.mSyncPoint.mRemoteRevision);
            return isThere ? point.mRemoteRevision.Text() : std::string();
        };
        ASSERT_TRUE(mStore->WriteAssociationForSync(id, association("first")));
        write("l1", "r1");
        EXPECT_EQ("r1", latest());
        ASSERT_TRUE(mStore->InvalidateAssociationForSync(id, association("first")));
        EXPECT_EQ("", latest());
        if (kind == SessionKind::RopeFile) {  // a folder never gets the same one again
            ASSERT_TRUE(mStore->WriteAssociationForSync(id, association("first")));
            EXPECT_EQ("r1", latest()) << "the same remote session again";
            ASSERT_TRUE(mStore->InvalidateAssociationForSync(id, association("first")));
        }
        ASSERT_TRUE(mStore->WriteAssociationForSync(id, association("second")));
        EXPECT_EQ("", latest());
        SyncPoint found;
        EXPECT_TRUE(mStore->ReadSyncPointForRemoteRevision(id, "r1", found)) << "it stays known";
        EXPECT_EQ(kind == SessionKind::RopeFile ? "" : "first", found.mRemoteSessionID);
        if (kind == SessionKind::RopeFile) {  // nor the same pair
            write("l1", "r1");
            EXPECT_EQ("r1", latest());
        }
        write("l2", "r2");
        EXPECT_EQ("r2", latest());
    }
}

TEST_F(RopeFileElsewhere, AThinnedFileKnowsWhichPointsAreOfItsRemoteSession)
{
    const auto associate = [&](const ImmutableString& inID, const std::string& inSession) {
        const AssociationForSync association{"https://hub.example",
                                             "p-" + inSession,
                                             inSession,
                                             RFC3339DateTime::FromText("2026-05-01T00:00:00Z"),
                                             "user",
                                             "corvane"};
        ASSERT_TRUE(mStore->WriteAssociationForSync(inID, association));
    };
    const auto write = [&](const ImmutableString& inID, const ImmutableString& inLocal, const std::string& inRemote) {
        SyncPoint point;
        point.mLocalRevision = inLocal;
        point.mRemoteRevision = inRemote;
        std::int64_t count = 0;
        EXPECT_TRUE(mStore->WriteSyncPoint(inID, point, count));
    };
    const dto::Session session = MakeFile();
    const ImmutableString id = session.mIdentifier;
    associate(id, "first");
    write(id, session.mRevision, "r1");
    associate(id, "second");
    SyncPoint latest;
    CloseAll();
    ASSERT_EQ(200, mStore->ThinHistoryToRopeFile(id, File(), {}));
    EXPECT_FALSE(mStore->ReadLatestSyncPoint(id, latest));
    write(id, GetSession(id).mRevision, "s1");
    CloseAll();
    ASSERT_EQ(200, mStore->ThinHistoryToRopeFile(id, File(), {}));
    ASSERT_TRUE(mStore->ReadLatestSyncPoint(id, latest));
    EXPECT_EQ("s1", latest.mRemoteRevision);
    EXPECT_EQ("second", latest.mRemoteSessionID);
    ASSERT_TRUE(mStore->ReadSyncPointForRemoteRevision(id, "r1", latest));
    EXPECT_EQ("", latest.mRemoteSessionID);
}

// ---- Names

TEST_F(RopeFileElsewhere, APathThatIsNoUTF8IsRefusedSinceSeveralWouldBeTheSameSession)
{
    const std::string odd = File("caf\xe9.lyr");
    dto::Session session;
    EXPECT_EQ(400, Create(session, false, odd));
    const dto::Session source = MakeFile();
    EXPECT_EQ(400, mStore->CopyToRopeFile(source.mIdentifier, {}, odd, false, session));
    EXPECT_EQ(400, mStore->ThinHistoryToRopeFile(source.mIdentifier, odd, {}));
    fs::copy_file(File(), odd);
    EXPECT_EQ(400, mStore->OpenRopeFile(odd, session));
    EXPECT_THAT(Listed(), ElementsAre("Film.lyr", "caf\xe9.lyr"));
    EXPECT_EQ(1U, GetAssets(source.mIdentifier).size());
}

TEST_F(RopeFileElsewhere, AProjectOfWhateverNameIsMadeWhereNewProjectsGo)
{
    const std::pair<std::string, std::string> names[] = {{"Act 1: The Start", "Act 1- The Start.lyr"},
                                                         {"Who?", "Who-.lyr"},
                                                         {"a\\tb", "a-b.lyr"},
                                                         {"5/7", "7.lyr"},
                                                         {std::string(300, 'b'), std::string(200, 'b') + ".lyr"}};
    for (const auto& [name, file] : names) {
        dto::Session session;
        EXPECT_EQ(201, mStore->CreateSession({}, {dto::RawJSON("{\"name\":\"" + name + "\"}"), {}},
                                             SessionKind::RopeFile, session))
            << name;
        std::string path;
        EXPECT_EQ(200, mStore->GetRopeFilePath(session.mIdentifier, path));
        EXPECT_EQ(file, fs::path(path).filename());
    }
    // No letter is cut in two.
    std::string letters = "x";
    for (int count = 0; count < 150; ++count)
        letters += "\xc3\xa9";
    dto::Session session;
    ASSERT_EQ(201, mStore->CreateSession({}, {dto::RawJSON("{\"name\":\"" + letters + "\"}"), {}},
                                         SessionKind::RopeFile, session));
    std::string path;
    EXPECT_EQ(200, mStore->GetRopeFilePath(session.mIdentifier, path));
    EXPECT_EQ(letters.substr(0, 199) + ".lyr", fs::path(path).filename());
}

TEST_F(RopeFileElsewhere, ThinningIntoAPlaceThatTakesNoFileSaysWhy)
{
    const ImmutableString id = MakeFile().mIdentifier;
    EXPECT_EQ(400, mStore->ThinHistoryToRopeFile(id, File("a:b.lyr"), {}));
    EXPECT_EQ(404, mStore->ThinHistoryToRopeFile(id, mFolder + "/none/b.lyr", {}));
    fs::create_directories(File("Folder.lyr"));
    EXPECT_EQ(409, mStore->ThinHistoryToRopeFile(id, File("Folder.lyr"), {}));
    CloseAll();
    EXPECT_THAT(Listed(), ElementsAre("Film.lyr", "Folder.lyr"));
}

TEST_F(RopeFileElsewhere, AMediaLocatorOfAnyIdIsKeptAndCopied)
{
    const std::vector<std::string> ids{"plain", "a/b", "..x", ".git", "%2f", "%"};
    dto::Session folder;
    ASSERT_EQ(201, mStore->CreateSession({}, {dto::RawJSON("{}"), {}}, SessionKind::LocalOnly, folder));
    for (const std::string& locator : ids)
        EXPECT_EQ(200, AddLocator(folder.mIdentifier, locator));
    dto::Session copy;
    ASSERT_EQ(201, mStore->CopyToRopeFile(folder.mIdentifier, {}, File(), false, copy));
    for (const ImmutableString& id : {copy.mIdentifier, MakeFile(File("Own.lyr")).mIdentifier}) {
        for (const std::string& locator : ids) {
            if (id != copy.mIdentifier) {
                EXPECT_EQ(200, AddLocator(id, locator));
            }
            dto::MediaLocator found;
            EXPECT_EQ(200, mStore->GetMediaLocator(id, locator, found)) << locator;
            EXPECT_EQ(locator, found.mMediaLocatorID);
        }
        std::vector<dto::MediaLocator> all;
        EXPECT_EQ(200, mStore->GetMediaLocators(id, all));
        EXPECT_EQ(ids.size(), all.size());
    }
}

// ---- Changed by others

TEST_F(RopeFileElsewhere, AFileThatAnotherHubWorkedInWhileItWasClosedIsReadAnew)
{
    dto::Session session;
    ASSERT_EQ(201, Create(session));
    const ImmutableString id = session.mIdentifier;
    const ImmutableString first = CommitAsset(id, "one").mRevision;
    CloseAll();
    const std::string before = ReadWhole(File());
    const ImmutableString second = CommitAsset(id, "two").mRevision;
    CloseAll();
    const std::string after = ReadWhole(File());
    WriteWhole(File(), before);
    ForgetAll();
    ASSERT_EQ(200, mStore->OpenRopeFile(File(), session));
    EXPECT_EQ(first, session.mRevision);
    CloseAll();
    WriteWhole(File(), after);
    EXPECT_EQ(second, GetSession(id).mRevision);
    dto::TransactionResource transaction;
    EXPECT_EQ(201, mStore->OpenTransaction(id, second, {}, {}, transaction));
    EXPECT_EQ(2U, GetAssets(id).size());
}

TEST_F(RopeFileElsewhere, WhatIsComplainedOfAClosedFileGoesWithIt)
{
    const ImmutableString id = MakeFile().mIdentifier;
    fs::rename(File(), File("away"));
    std::vector<dto::MediaLocator> locators;
    EXPECT_EQ(500, mStore->GetMediaLocators(id, locators));
    const auto complaints = [&] { return ComplaintBox::Instance()->SessionComplaints()[id.Text()].size(); };
    EXPECT_EQ(1U, complaints());
    EXPECT_EQ(200, mStore->ClearSandbox(id));
    EXPECT_EQ(0U, complaints());
}

}  // namespace

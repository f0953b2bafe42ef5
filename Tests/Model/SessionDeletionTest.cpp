#include "Inc/Model/SessionDeletion.h"

#include <sqlite3.h>

#include <filesystem>

#include "Inc/Model/GitBoxFolders.h"
#include "Platform/noxcore/FileSupport.h"
#include "Tests/Support/FaultFiles.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/StoreTest.h"

namespace {

using namespace testing_support;
namespace SessionDeletion = GitBox::SessionDeletion;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;

constexpr const char* kRemoved = "Removed what a deletion had left";
constexpr const char* kLeftAlone = "A folder is no whole session and is left as it is";

/// A store with one session, and what killed processes left beside it.
class SessionDeletionTest : public StoreTest
{
protected:
    SessionDeletionTest() : SessionDeletionTest(std::make_shared<FaultFiles>()) {}
    ~SessionDeletionTest() override
    {
        mStore.reset();
        mScheduler->RunUntilIdle();
        mFiles->ReportTo(nullptr);
        mVfs.reset();
    }

    static std::string FolderOf(const dto::Session& inSession)
    {
        return GitBox::Folder::SessionFolder(inSession.mIdentifier, SessionKind::LocalOnly);
    }
    static std::string Beside(const std::string& inName) { return Join(GitBox::Folder::LocalSessions(), inName); }
    /// What a start finds in place of a session.
    void Restart(const std::function<void()>& inBefore)
    {
        mStore.reset();
        inBefore();
        mLog->Clear();
        ReopenStore();
    }
    void ExpectTheOtherSessionIsThere()
    {
        EXPECT_EQ(1U, mStore->GetSessions().size());
        EXPECT_EQ(mKept.mRevision, GetSession(mKept.mIdentifier).mRevision);
    }
    /// As a deletion does that is killed in its middle.
    std::string CutOffDeletion()
    {
        std::string folder = FolderOf(CreateSession());
        mStore.reset();
        EXPECT_TRUE(SessionDeletion::Mark(folder));
        return folder;
    }

private:
    explicit SessionDeletionTest(std::shared_ptr<FaultFiles> inFiles) : StoreTest(inFiles), mFiles(std::move(inFiles))
    {
        mFiles->ReportTo(mVfs.get());
    }

protected:
    const std::shared_ptr<FaultFiles> mFiles;
    std::unique_ptr<FaultVfs> mVfs = std::make_unique<FaultVfs>(mContext);
    const dto::Session mKept = CreateSession();
};

TEST_F(SessionDeletionTest, ADeletionThatWasCutOffAfterItsMarkIsFinishedByTheNextStart)
{
    const std::string folder = CutOffDeletion();
    std::filesystem::permissions(folder, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    Restart([] {});
    EXPECT_FALSE(Files().DirectoryExists(folder));
    const auto records = mLog->Find(kRemoved);
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(folder, records.front().Value("folder"));
    EXPECT_EQ("true", records.front().Value("deletedFolder"));
    ExpectTheOtherSessionIsThere();
}

TEST_F(SessionDeletionTest, WhatCannotBeRemovedKeepsItsMarkForTheStartAfterThat)
{
    const std::string folder = CutOffDeletion();
    mVfs->SetFault({FileOperation::DeleteFolder, 1, SQLITE_IOERR});
    Restart([] {});
    mVfs->ClearFaults();
    const auto records = mLog->Find(kRemoved);
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("false", records.front().Value("deletedFolder"));
    EXPECT_TRUE(SessionDeletion::IsMarked(folder));
    ExpectTheOtherSessionIsThere();
    Restart([] {});
    EXPECT_FALSE(Files().DirectoryExists(folder));
}

TEST_F(SessionDeletionTest, ACreationThatWasCutOffIsToldOfAtEachStartAndLeftAsItIs)
{
    const std::string folder = FolderOf(CreateSession());
    const std::string content = Join(folder, "git/odb.sqlite3");
    Restart([&] { ASSERT_TRUE(Files().DeleteFile(Join(folder, "sessionid"))); });
    for (const bool again : {false, true}) {
        if (again) Restart([] {});
        const auto records = mLog->Find(kLeftAlone);
        ASSERT_EQ(1U, records.size());
        EXPECT_EQ(folder, records.front().Value("folder"));
        EXPECT_TRUE(Files().FileExists(content));
        ExpectTheOtherSessionIsThere();
    }
}

TEST_F(SessionDeletionTest, AFolderOfSomebodyElseIsNeitherRemovedNorToldOf)
{
    const std::string foreign[] = {Beside("my takes"), Beside("my takes.lyra2.bak")};
    Restart([&] {
        for (const std::string& folder : foreign) {
            ASSERT_TRUE(Files().EnsureDirectoryExists(folder));
            ASSERT_TRUE(Files().WriteFileDurably(Join(folder, "deleted"), "notes"));
        }
    });
    for (const std::string& folder : foreign)
        EXPECT_TRUE(Files().FileExists(Join(folder, "deleted"))) << folder;
    EXPECT_EQ(0U, mLog->Count(kRemoved) + mLog->Count(kLeftAlone));
    ExpectTheOtherSessionIsThere();
}

TEST_F(SessionDeletionTest, WhoLooksForASessionWhileItIsBeingDeletedLeavesThatToTheDeletion)
{
    const std::string folder = FolderOf(mKept);
    ASSERT_TRUE(SessionDeletion::Mark(folder));
    GitBox::Sandboxes::Instance()->ClearSandbox(mKept.mIdentifier);
    EXPECT_EQ(404, mStore->UpgradeRepository(mKept.mIdentifier));
    EXPECT_TRUE(SessionDeletion::IsMarked(folder));
    EXPECT_TRUE(Files().FileExists(Join(folder, "sessionid")));
}

}  // namespace

#include "Inc/Model/GitBoxFolders.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "Client/VYClient/LocalHub.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Guid.h"
#include "Tests/Support/FaultFiles.h"
#include "Tests/Support/StoreTest.h"

namespace {

using namespace testing_support;
namespace Folder = GitBox::Folder;

constexpr const char* kCannotCreate = "Cannot create default auto save location";
constexpr const char* kReset = "Reset auto save location";

/// Real files, of which one folder may not be written to, whoever asks.
class ReadOnlyFiles final : public FaultFiles
{
public:
    bool IsReadOnly(const Path& inPath) override { return inPath == mReadOnly || FaultFiles::IsReadOnly(inPath); }
    Path mReadOnly;
};

class FoldersTest : public StoreTest
{
protected:
    FoldersTest() : FoldersTest(std::make_shared<ReadOnlyFiles>()) {}

    void StoreLocation(const std::string& inFolder)
    {
        ASSERT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure("AutosaveLocation", inFolder));
    }
    static std::string StoredLocation()
    {
        std::string folder;
        SystemDb::GetSystemEnclosure("AutosaveLocation", folder);
        return folder;
    }
    std::string NewFile(const std::string& inName)
    {
        std::string file;
        EXPECT_EQ(200, mStore->CreateRopeFileName(inName, file));
        return file;
    }
    static void PutFile(const std::string& inPath) { std::ofstream(inPath) << "something"; }

private:
    explicit FoldersTest(std::shared_ptr<ReadOnlyFiles> inFiles) : StoreTest(inFiles), mFiles(std::move(inFiles)) {}

protected:
    const std::shared_ptr<ReadOnlyFiles> mFiles;
    const std::string mDefault = VYCL::LocalHub::GetDefaultRopeFileAutosaveLocation();
    const std::string mChosen = mHome / "films/autosaves";
};

TEST_F(FoldersTest, TheAutosaveLocationIsTheUsersElseTheLocalFolderOfTheSuite)
{
    EXPECT_EQ(mDefault, Folder::GetDefaultRopeFileAutosaveLocation());
    EXPECT_EQ(Folder::LocalSessions(), mDefault);
    StoreLocation(mChosen);
    EXPECT_EQ(mChosen, Folder::GetDefaultRopeFileAutosaveLocation());
    StoreLocation("");
    EXPECT_EQ(mDefault, Folder::GetDefaultRopeFileAutosaveLocation());
}

TEST_F(FoldersTest, ANewFileIsNamedInTheUsersLocationWhichIsMade)
{
    StoreLocation(mChosen);
    EXPECT_EQ(mChosen + "/Feature.lyr", NewFile("Feature"));
    EXPECT_TRUE(noxcore::filesupport::Files().DirectoryExists(mChosen));
    EXPECT_FALSE(noxcore::filesupport::Files().FileExists(mChosen + "/Feature.lyr"));
    EXPECT_EQ(0u, mLog->Count(kReset));
}

TEST_F(FoldersTest, ANameThatIsTakenIsNumbered)
{
    EXPECT_EQ(mDefault + "/Feature.lyr", NewFile("Feature.lyr"));
    PutFile(mDefault + "/Feature.lyr");
    EXPECT_EQ(mDefault + "/Feature 2.lyr", NewFile("Feature.lyr"));
    std::filesystem::create_directory(mDefault + "/Feature 2.lyr");
    EXPECT_EQ(mDefault + "/Feature 3.lyr", NewFile("Feature"));
}

TEST_F(FoldersTest, ANameLeadsNowhereElse)
{
    EXPECT_EQ(mDefault + "/passwd.lyr", NewFile("../../etc/passwd"));
    for (const char* name : {"", "..", ".", "../", "a/..", ".lyr", " "}) {
        const std::string file = NewFile(name);
        EXPECT_EQ(mDefault, noxcore::filesupport::ParentFolder(file));
        const std::string title(noxcore::filesupport::BaseName(file));
        EXPECT_TRUE(noxcore::utility::Guid::FromText(title.substr(0, 36))) << file;
        EXPECT_EQ(".lyr", title.substr(36));
    }
}

TEST_F(FoldersTest, ALocationThatCannotBeUsedGivesWayToTheDefaultForGood)
{
    const auto blockedByAFile = [&] { PutFile(mHome / "films"); };
    const auto readOnly = [&] {
        std::filesystem::remove(mHome / "films");
        mFiles->mReadOnly = mChosen;
    };
    for (const std::function<void()>& spoil :
         {std::function<void()>(blockedByAFile), std::function<void()>(readOnly)}) {
        StoreLocation(mChosen);
        spoil();
        mLog->Clear();
        EXPECT_EQ(mDefault + "/Feature.lyr", NewFile("Feature"));
        EXPECT_EQ(mDefault, StoredLocation());
        const auto resets = mLog->Find(kReset);
        ASSERT_EQ(1u, resets.size());
        EXPECT_EQ(mChosen, resets[0].Value("old"));
        EXPECT_EQ(mDefault, resets[0].Value("new"));
        EXPECT_EQ("200", resets[0].Value("status"));
        NewFile("Feature");
        EXPECT_EQ(1u, mLog->Count(kReset));
    }
}

TEST_F(FoldersTest, WithoutALocationThatCanBeUsedThereIsNoName)
{
    mFiles->mReadOnly = mDefault;
    for (const bool stored : {false, true}) {
        mLog->Clear();
        if (stored) {
            PutFile(mHome / "films");
            StoreLocation(mChosen);
        }
        std::string file = "as it was";
        EXPECT_EQ(415, mStore->CreateRopeFileName("Feature", file));
        EXPECT_EQ("as it was", file);
        ASSERT_EQ(1u, mLog->Count(kCannotCreate));
        EXPECT_EQ(mDefault, mLog->Find(kCannotCreate)[0].Value("path"));
        EXPECT_EQ(0u, mLog->Count(kReset));
    }
    EXPECT_EQ(mChosen, StoredLocation());
}

TEST_F(FoldersTest, SessionFoldersAreScannedForTheSuffixOfSessions)
{
    const auto places = Folder::SessionFolders();
    ASSERT_EQ(2u, places.size());
    EXPECT_EQ(Folder::LocalSessions(), places[0].mFolder);
    EXPECT_EQ(Folder::SynchronizedSessions(), places[1].mFolder);
    for (const auto& place : places)
        EXPECT_EQ("lyra2", place.mProjectType);
}

}  // namespace

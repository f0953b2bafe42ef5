// Where single-file projects are looked for when a store is opened.

#include <gmock/gmock.h>

#include "Tests/Support/RopeFileFixture.h"

namespace {

using namespace testing_support;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class RopeFileScansTest : public RopeFileFixture
{
protected:
    RopeFileScansTest()
    {
        fs::create_directories(mDefault + "/local");
        fs::create_directories(mChosen + "/local");
    }

    static void Choose(const std::string& inFolder)
    {
        EXPECT_EQ(200, VantryLocalHub::SystemDb::AddOrUpdateSystemEnclosure(
                           VYCL::LocalHub::LocalHubPreferenceName_AutosaveLocation().View(), inFolder));
    }
    /// A project with an asset, closed and known to nobody.
    ImmutableString Leave(const std::string& inFile)
    {
        const dto::Session session = Create(inFile);
        CommitAsset(session.mIdentifier, mFirst, "one");
        Close(session.mIdentifier);
        return session.mIdentifier;
    }
    std::vector<std::string> FilesFound()
    {
        std::vector<std::string> files;
        for (const dto::Session& session : mStore->GetSessions()) {
            std::string file;
            EXPECT_EQ(200, mStore->GetRopeFilePath(session.mIdentifier, file));
            EXPECT_EQ(1U, GetAssets(session.mIdentifier).size()) << file;
            files.push_back(file);
        }
        return files;
    }

    const std::string mDefault = VYCL::LocalHub::GetDefaultRopeFileAutosaveLocation();
    const std::string mChosen = mHome / "chosen";
};

TEST_F(RopeFileScansTest, FilesOfBothPlacesAndOfTheFolderLocalInThemAreFound)
{
    const std::vector<std::string> files{mDefault + "/a.lyr", mDefault + "/local/b.lyr", mChosen + "/c.lyr",
                                         mChosen + "/local/d.lyr"};
    for (const std::string& file : files)
        Leave(file);
    fs::create_directories(mDefault + "/other");
    Leave(mDefault + "/other/e.lyr");
    Leave(mDefault + "/f.film");
    ReopenStore();
    EXPECT_THAT(FilesFound(), UnorderedElementsAre(files[0], files[1])) << "no other place was chosen yet";
    Choose(mChosen);
    ReopenStore();
    EXPECT_THAT(FilesFound(), testing::UnorderedElementsAreArray(files));
    EXPECT_EQ(0U, Complaints());
}

TEST_F(RopeFileScansTest, APlaceThatIsPartOfTheDefaultOneOrLeadsThereGivesOneSessionAndNoComplaint)
{
    Leave(mDefault + "/a.lyr");
    Leave(mDefault + "/local/b.lyr");
    fs::create_directory_symlink(mDefault, mHome / "link");
    for (const std::string& place : {mDefault + "/local", mHome / "link", mHome / "link/local", mDefault + "/"}) {
        SCOPED_TRACE(place);
        Choose(place);
        ReopenStore();
        EXPECT_THAT(FilesFound(), UnorderedElementsAre(mDefault + "/a.lyr", mDefault + "/local/b.lyr"));
        EXPECT_EQ(0U, Complaints());
        EXPECT_EQ(0U, mLog->Count("Autosave exists in multiple folders. Skipping"));
    }
}

TEST_F(RopeFileScansTest, OfCopiesInTwoPlacesThatOfTheDefaultOneStaysAndTheOtherIsComplainedOf)
{
    const ImmutableString id = Leave(mDefault + "/Film.lyr");
    fs::copy_file(mDefault + "/Film.lyr", mChosen + "/Film.lyr");
    Choose(mChosen);
    ReopenStore();
    EXPECT_THAT(FilesFound(), ElementsAre(mDefault + "/Film.lyr"));
    const auto complaints = ComplaintBox::Instance()->SessionComplaints();
    ASSERT_EQ(1U, Complaints());
    const auto& [complainant, list] = *complaints.begin();
    EXPECT_EQ(id.Text(), complainant);
    EXPECT_EQ("Autosave exists in multiple folders. Using: " + mDefault + "/Film.lyr (" + id.Text() +
                  ") Skipping: " + mChosen + "/Film.lyr",
              list.begin()->second.mErrorString);
    const auto told = mLog->Find("Autosave exists in multiple folders. Skipping");
    ASSERT_EQ(1U, told.size());
    EXPECT_EQ(mChosen + "/Film.lyr", told.front().Value("ropeFile"));
    EXPECT_EQ(mDefault + "/Film.lyr", told.front().Value("existingRopeFile"));
    EXPECT_EQ(id, told.front().Value("existingSessionID"));
}

TEST_F(RopeFileScansTest, AProjectThatWentFromTheDefaultPlaceIsFoundInTheOther)
{
    Leave(mDefault + "/Film.lyr");
    fs::rename(mDefault + "/Film.lyr", mChosen + "/Film.lyr");
    ReopenStore();
    EXPECT_THAT(FilesFound(), IsEmpty());
    Choose(mChosen);
    ReopenStore();
    EXPECT_THAT(FilesFound(), ElementsAre(mChosen + "/Film.lyr"));
    EXPECT_EQ(0U, Complaints());
}

}  // namespace

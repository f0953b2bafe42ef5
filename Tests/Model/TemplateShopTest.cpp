#include <gmock/gmock.h>
#include <sqlite3.h>

#include "Platform/noxcore/DebugDatabase.h"
#include "Tests/Support/PackedSession.h"
#include "Tests/Support/SnapshotFixture.h"

namespace {

using namespace testing_support;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
namespace Folder = VantryLocalHub::GitBox::Folder;

class TemplateShopTest : public SnapshotFixture
{
protected:
    dto::Session MakeTemplate(const std::string& inProperties = {}, const std::string& inRecipients = "[]")
    {
        dto::Session made;
        EXPECT_EQ(201, mStore->CreateTemplate(mSession.mIdentifier, {dto::RawJSON(inProperties), {}},
                                              dto::RawArray(inRecipients), made));
        return made;
    }
    /// Template files and extracted folders.
    static std::vector<std::string> NamesIn(const std::string& inFolder)
    {
        std::vector<noxcore::filesupport::DirectoryEntry> entries;
        Files().ListDirectory(inFolder, entries);
        std::vector<std::string> names;
        for (const auto& entry : entries) {
            if (entry.mName != "extracted") names.push_back(entry.mName);
        }
        return names;
    }
};

TEST_F(TemplateShopTest, WithoutATemplatesFolderThereAreNone)
{
    EXPECT_TRUE(mStore->GetTemplates().empty());
    dto::Session none;
    EXPECT_EQ(404, mStore->GetTemplate("t-1", none));
    EXPECT_EQ(404, mStore->CreateTemplate("nobody", {}, {}, none));
    EXPECT_FALSE(Files().DirectoryExists(Folder::Templates()));
}

TEST_F(TemplateShopTest, ATemplateIsMadeOfASessionAndListed)
{
    const dto::Session made = MakeTemplate(R"({"name":"Documentary"})", R"(["ann@example.com"])");
    EXPECT_EQ(R"({"name":"Documentary"})", made.mProperties.mText);
    EXPECT_EQ("p-" + made.mIdentifier.Text(), made.mProductionID.Text());
    const auto listed = mStore->GetTemplates();
    ASSERT_EQ(1U, listed.size());
    EXPECT_EQ(made, listed[0]);
    for (const ImmutableString& id : {made.mIdentifier, made.mProductionID}) {
        dto::Session found;
        ASSERT_EQ(200, mStore->GetTemplate(id, found));
        EXPECT_EQ(made, found);
        dto::RawArray recipients;
        ASSERT_EQ(200, mStore->GetTemplateRecipients(id, recipients));
        EXPECT_EQ(R"(["ann@example.com"])", recipients.mText);
    }
    EXPECT_EQ(1U, mStore->GetSessions().size());
    EXPECT_EQ(1U, mLog->Count("TemplateShop: Extracted template"));
    EXPECT_EQ(0U, TemporaryFolders());
}

TEST_F(TemplateShopTest, TheNextRunExtractsNothingAgainAndGivesNewIDs)
{
    const dto::Session made = MakeTemplate();
    ReopenStore();
    mLog->Clear();
    const auto listed = mStore->GetTemplates();
    ASSERT_EQ(1U, listed.size());
    EXPECT_NE(made.mIdentifier, listed[0].mIdentifier);
    EXPECT_EQ(made.mRevision, listed[0].mRevision);
    EXPECT_EQ(0U, mLog->Count("TemplateShop: Extracted template"));
    EXPECT_EQ(1U, mLog->Count("TemplateShop: Will not replace existing extracted template"));
    EXPECT_EQ(listed[0].mIdentifier, mStore->GetTemplates().at(0).mIdentifier);
}

TEST_F(TemplateShopTest, ATemplateWhoseFileHasGoneIsNotOfferedAnyMore)
{
    const dto::Session made = MakeTemplate();
    MakeTemplate();
    EXPECT_EQ(2U, mStore->GetTemplates().size());
    for (const std::string& name : NamesIn(Folder::Templates()))
        ASSERT_TRUE(Files().DeleteFile(Join(Folder::Templates(), name)));
    EXPECT_TRUE(mStore->GetTemplates().empty());
    dto::Session none;
    EXPECT_EQ(404, mStore->GetTemplate(made.mIdentifier, none));
}

TEST_F(TemplateShopTest, AFileThatIsNoTemplateIsSkipped)
{
    MakeTemplate();
    std::ofstream(Join(Folder::Templates(), "broken.lyra2template")) << "no archive";
    std::ofstream(Join(Folder::Templates(), "readme.txt")) << "text";
    // A snapshot says nothing of whom it is for.
    ASSERT_EQ(200, Take(Join(Folder::Templates(), "snapshot.lyra2template")));
    EXPECT_EQ(1U, mStore->GetTemplates().size());
    EXPECT_EQ(2U, NamesIn(Folder::Extracted()).size());
}

TEST_F(TemplateShopTest, TheFolderIsTheOneThatTheSettingsName)
{
    noxcore::debug::DebugDatabase::Instance()->SetEntry("VY.Config.LocalHub.TemplatesFolder", In("chosen"));
    MakeTemplate();
    EXPECT_EQ(1U, NamesIn(In("chosen")).size());
    EXPECT_EQ(1U, NamesIn(In("chosen/extracted")).size());
}

TEST_F(TemplateShopTest, ASessionIsMadeOfATemplateAndRemembersWhomItIsFor)
{
    const dto::Session made = MakeTemplate({}, R"([{"email":"bob@example.com"}])");
    dto::Session session;
    ASSERT_EQ(201, Copy(made.mProductionID, made.mRevision, session, R"({"name":"From a template"})"));
    auto expected = Content(mSession.mIdentifier);
    expected["properties"] = R"({"name":"From a template"})";
    ReopenStore();
    EXPECT_EQ(expected, Content(session.mIdentifier));
    dto::RawArray recipients;
    ASSERT_EQ(200, mStore->GetTemplateRecipients(session.mProductionID, recipients));
    EXPECT_EQ(R"([{"email":"bob@example.com"}])", recipients.mText);
    EXPECT_EQ(404, mStore->GetTemplateRecipients(mSession.mIdentifier, recipients));
}

TEST_F(TemplateShopTest, ATemplateThatIsAnsweredAsFailedIsNotThere)
{
    unsigned failures = 0;
    for (const FileOperation kind : {FileOperation::MakeFolder, FileOperation::Rename, FileOperation::ReadPlain,
                                     FileOperation::WritePlain, FileOperation::SyncFolder}) {
        bool isReached = true;
        for (unsigned nth = 1; isReached && nth < 60; ++nth) {
            const auto files = NamesIn(Folder::Templates());
            const auto folders = NamesIn(Folder::Extracted());
            const unsigned reported = mVfs->FaultsReported();
            mVfs->SetFault({.mOperation = kind, .mNth = nth, .mCode = SQLITE_IOERR});
            dto::Session made;
            const int status = mStore->CreateTemplate(mSession.mIdentifier, {}, dto::RawArray("[]"), made);
            isReached = mVfs->FaultsReported() != reported;
            mVfs->ClearFaults();
            if (status == 201) continue;
            ++failures;
            EXPECT_EQ(files.size(), NamesIn(Folder::Templates()).size()) << static_cast<int>(kind) << " " << nth;
            EXPECT_EQ(folders.size(), NamesIn(Folder::Extracted()).size()) << static_cast<int>(kind) << " " << nth;
            EXPECT_EQ(files.size(), mStore->GetTemplates().size());
        }
    }
    EXPECT_LT(10U, failures);
}

TEST_F(TemplateShopTest, ATemplateWhosePropertiesAreNoJSONObjectIsNotOfferedAndLeavesNothing)
{
    const std::size_t before = 1;
    MakeTemplate();
    const std::string sound = NamesIn(Folder::Templates()).at(0);
    for (const std::string asset : {"", "c1000000-0000-4000-8000-000000000001"}) {
        const std::string file = Join(Folder::Templates(), "foreign" + asset + ".lyra2template");
        std::filesystem::copy_file(Join(Folder::Templates(), sound), file);
        WritePropertiesIntoPacked(file, R"({"name":)", asset);
    }
    EXPECT_EQ(before, mStore->GetTemplates().size());
    EXPECT_EQ(before, NamesIn(Folder::Extracted()).size());
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>

#include "Client/Wire/OpaqueMembers.h"
#include "Platform/noxnet/Forms.h"
#include "Platform/noxnet/MultipartForm.h"
#include "Tests/Support/TempFolder.h"
#include "Tools/hubctl/FolderRows.h"
#include "Tools/hubctl/OTIORows.h"
#include "Tools/hubctl/UTF8Text.h"

namespace {

using hubctl::AssetRow;
using hubctl::FolderRows;
using hubctl::OTIORows;
using noxnet::http::client::MultipartForm;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;
using VantryLocalHub::dto::FindMember;

constexpr std::uint64_t kLimit = 1024 * 1024;

void Write(const std::string& inPath, std::string_view inText)
{
    std::ofstream(inPath, std::ios::binary) << inText;
}

std::string Text(const AssetRow& inRow, std::string_view inKey)
{
    return VantryLocalHub::dto::TextOf(FindMember(inRow.mProperties, inKey));
}

std::vector<AssetRow> AllRows(hubctl::RowSource& inSource)
{
    std::vector<AssetRow> rows;
    AssetRow row;
    while (inSource.Next(row))
        rows.push_back(row);
    return rows;
}

std::vector<std::string> Names(const std::vector<AssetRow>& inRows)
{
    std::vector<std::string> names;
    for (const AssetRow& row : inRows)
        names.push_back(row.mName);
    return names;
}

std::map<std::string, std::string> RemarksByPath(const hubctl::RowSource& inSource)
{
    std::map<std::string, std::string> remarks;
    for (const auto& remark : inSource.Remarks())
        remarks[remark.mPath] += remark.mText;
    return remarks;
}

class FolderRowsTest : public ::testing::Test
{
protected:
    std::unique_ptr<FolderRows> Open(std::uint64_t inLimit = kLimit)
    {
        std::string error;
        auto rows = FolderRows::Open(mFolder.Path(), inLimit, error);
        EXPECT_TRUE(rows) << error;
        return rows;
    }

    testing_support::TempFolder mFolder;
};

TEST_F(FolderRowsTest, FoldersAreBinsAndFilesAreClipsBelowThem)
{
    std::filesystem::create_directories(mFolder / "day 1/scene");
    Write(mFolder / "day 1/take.mov", "first take");
    const auto rows = AllRows(*Open());
    ASSERT_EQ(4U, rows.size());
    EXPECT_TRUE(rows[0].mIsBin);
    EXPECT_EQ("", Text(rows[0], "vy:parent"));
    EXPECT_EQ("bin", Text(rows[1], "lumo:assetType"));
    EXPECT_EQ(rows[0].mID, Text(rows[1], "vy:parent"));
    const AssetRow& take = rows[2].mIsBin ? rows[3] : rows[2];
    EXPECT_EQ("take.mov", take.mName);
    EXPECT_EQ("clip", Text(take, "lumo:assetType"));
    EXPECT_EQ(rows[1].mID, Text(take, "vy:parent"));
    const auto file = FindMember(take.mProperties, "fileProperties");
    EXPECT_EQ("\"day 1/take.mov\"", FindMember(file, "mFilePath"));
    EXPECT_EQ("10", FindMember(file, "mSize"));
    ASSERT_TRUE(take.mPayload);
    EXPECT_EQ("first take", take.mPayload->mBytes);
}

TEST_F(FolderRowsTest, AnEmptyFileHasNoPayloadAndALargeOneIsLeftWithout)
{
    Write(mFolder / "a", "");
    Write(mFolder / "b", "12345");
    Write(mFolder / "c", "1234");
    const auto rows = AllRows(*Open(4));
    ASSERT_EQ(4U, rows.size());
    EXPECT_FALSE(rows[1].mPayload);
    EXPECT_FALSE(rows[2].mPayload);
    EXPECT_TRUE(rows[3].mPayload);
}

TEST_F(FolderRowsTest, LinksThatLoopAreNotFollowedAndBrokenOnesAreReported)
{
    std::filesystem::create_directory(mFolder / "sub");
    Write(mFolder / "file", "x");
    std::filesystem::create_symlink("..", mFolder / "sub/up");
    std::filesystem::create_symlink("nowhere", mFolder / "broken");
    std::filesystem::create_symlink("self", mFolder / "self");
    std::filesystem::create_symlink("file", mFolder / "to file");
    const auto source = Open();
    const auto rows = AllRows(*source);
    EXPECT_THAT(Names(rows), UnorderedElementsAre(source->RootName(), "file", "sub", "to file"));
    const auto remarks = RemarksByPath(*source);
    EXPECT_EQ(3U, remarks.size());
    EXPECT_EQ("left out, a link to a folder", remarks.at("sub/up"));
    EXPECT_EQ("left out, a broken link", remarks.at("broken"));
    EXPECT_EQ("left out, a broken link", remarks.at("self"));
}

TEST_F(FolderRowsTest, SocketsAndPipesAreLeftOut)
{
    ASSERT_EQ(0, mkfifo((mFolder / "pipe").c_str(), 0600));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (mFolder / "socket").c_str(), sizeof address.sun_path - 1);
    const int file = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(0, bind(file, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    const auto source = Open();
    EXPECT_EQ(1U, AllRows(*source).size());
    EXPECT_EQ("left out, a pipe", RemarksByPath(*source).at("pipe"));
    EXPECT_EQ("left out, a socket", RemarksByPath(*source).at("socket"));
    close(file);
}

TEST_F(FolderRowsTest, ANameThatIsNoUTF8IsMadeOneAndItsBytesAreKept)
{
    Write(mFolder / "caf\xe9.mov", "x");
    Write(mFolder / "caf\xc3\xa9.mov", "y");
    const auto source = Open();
    const auto rows = AllRows(*source);
    EXPECT_THAT(Names(rows), UnorderedElementsAre(source->RootName(), "caf\xEF\xBF\xBD.mov", "caf\xc3\xa9.mov"));
    ASSERT_EQ(1U, source->Remarks().size());
    EXPECT_EQ("caf\xe9.mov", source->Remarks()[0].mPath);
    const auto& odd = rows[1].mName == "caf\xc3\xa9.mov" ? rows[2] : rows[1];
    EXPECT_EQ("\"caf%E9.mov\"", FindMember(FindMember(odd.mProperties, "fileProperties"), "mFilePathBytes"));
}

TEST_F(FolderRowsTest, AFileThatGrowsShrinksOrGoesAfterTheWalkIsReportedAndNeverTorn)
{
    Write(mFolder / "gone", "1234");
    Write(mFolder / "grown", "1234");
    Write(mFolder / "shrunk", "1234");
    const auto source = Open();
    std::filesystem::remove(mFolder / "gone");
    Write(mFolder / "grown", "123456789");
    Write(mFolder / "shrunk", "12");
    const auto rows = AllRows(*source);
    EXPECT_THAT(Names(rows), ElementsAre(source->RootName(), "grown", "shrunk"));
    EXPECT_FALSE(rows[1].mPayload);
    EXPECT_FALSE(rows[2].mPayload);
    const auto remarks = RemarksByPath(*source);
    EXPECT_EQ("left out: it has gone", remarks.at("gone"));
    EXPECT_EQ("the content is left out: it changed while it was read", remarks.at("grown"));
    EXPECT_EQ("the content is left out: it changed while it was read", remarks.at("shrunk"));
}

/// Root reads everything: another user's eyes for a scope.
class AsOtherUser
{
public:
    AsOtherUser() : mUser(geteuid())
    {
        if (mUser == 0) EXPECT_EQ(0, seteuid(65534));
    }
    ~AsOtherUser() { EXPECT_EQ(0, seteuid(mUser)); }
    AsOtherUser(const AsOtherUser&) = delete;
    AsOtherUser& operator=(const AsOtherUser&) = delete;

private:
    const uid_t mUser;
};

TEST_F(FolderRowsTest, WhatCannotBeReadIsReportedAndItsRowStays)
{
    std::filesystem::create_directory(mFolder / "closed");
    Write(mFolder / "secret", "x");
    chmod(mFolder.Path().c_str(), 0755);
    chmod((mFolder / "closed").c_str(), 0);
    chmod((mFolder / "secret").c_str(), 0);
    {
        const AsOtherUser other;
        const auto source = Open();
        const auto rows = AllRows(*source);
        EXPECT_THAT(Names(rows), ElementsAre(source->RootName(), "closed", "secret"));
        EXPECT_FALSE(rows[2].mPayload);
        EXPECT_THAT(RemarksByPath(*source).at("closed"), HasSubstr("Permission denied"));
        EXPECT_THAT(RemarksByPath(*source).at("secret"), HasSubstr("Permission denied"));
    }
    chmod((mFolder / "closed").c_str(), 0700);
}

TEST_F(FolderRowsTest, AFolderThatIsNotThereCannotBeOpened)
{
    std::string error;
    EXPECT_FALSE(FolderRows::Open(mFolder / "none", kLimit, error));
    EXPECT_EQ("No such file or directory", error);
}

std::unique_ptr<OTIORows> ReadTimeline(std::string_view inText)
{
    std::string error;
    auto rows = OTIORows::Read(inText, "cut.otio", kLimit, error);
    EXPECT_TRUE(rows) << error;
    return rows;
}

constexpr std::string_view kTimeline = R"({
  "OTIO_SCHEMA": "Timeline.1", "name": "cut", "global_start_time": null,
  "tracks": {"OTIO_SCHEMA": "Stack.1", "name": "tracks", "children": [
    {"OTIO_SCHEMA": "Track.1", "name": "V1", "kind": "Video", "children": [
      {"OTIO_SCHEMA": "Clip.2", "name": "a", "media_references": {"DEFAULT": {"target_url": "a.mov"}}},
      {"OTIO_SCHEMA": "Transition.1", "in_offset": 5},
      {"OTIO_SCHEMA": "Stack.1", "name": "", "children": [{"OTIO_SCHEMA": "Clip.1", "name": "inner"}]},
      {"OTIO_SCHEMA": "Gap.1", "source_range": 12.0},
      null]}]}})";

TEST(OTIORows, TimelineStacksTracksAndClipsBecomeAssetsBelowEachOther)
{
    const auto rows = AllRows(*ReadTimeline(kTimeline));
    EXPECT_THAT(Names(rows), ElementsAre("cut", "tracks", "V1", "a", "Stack", "inner"));
    EXPECT_EQ("sequence", Text(rows[0], "lumo:assetType"));
    EXPECT_EQ("bin", Text(rows[2], "lumo:assetType"));
    EXPECT_EQ("clip", Text(rows[3], "lumo:assetType"));
    EXPECT_EQ("", Text(rows[0], "vy:parent"));
    EXPECT_EQ(rows[0].mID, Text(rows[1], "vy:parent"));
    EXPECT_EQ(rows[2].mID, Text(rows[3], "vy:parent"));
    EXPECT_EQ(rows[4].mID, Text(rows[5], "vy:parent"));
    EXPECT_EQ(R"({"OTIO_SCHEMA":"Clip.2","name":"a","media_references":{"DEFAULT":{"target_url":"a.mov"}}})",
              FindMember(rows[3].mProperties, "otio"));
}

TEST(OTIORows, ATrackKeepsTheOrderOfItsClipsGapsAndTransitions)
{
    const auto rows = AllRows(*ReadTimeline(kTimeline));
    EXPECT_EQ(R"([{"vy:assetId":")" + rows[3].mID +
                  R"("},{"OTIO_SCHEMA":"Transition.1","in_offset":5},{"vy:assetId":")" + rows[4].mID +
                  R"("},{"OTIO_SCHEMA":"Gap.1","source_range":12.0},null])",
              FindMember(FindMember(rows[2].mProperties, "otio"), "children"));
}

TEST(OTIORows, NumbersAndUnknownMembersPassThroughDigitForDigit)
{
    const std::string metadata =
        R"({"max":9223372036854775807,"over":9223372036854775808,"min":-9223372036854775808,)"
        R"("wide":57896044618658097711785492504343953926634992332820282019728792003956564819968,)"
        R"("exact":0.1000,"power":1E+400,"text":"\u0041 NaN \"Inf\"","again":1,"again":2})";
    const auto rows =
        AllRows(*ReadTimeline(R"({"OTIO_SCHEMA":"Clip.1","name":"c","metadata":)" + metadata + R"(,"later":-0.0})"));
    ASSERT_EQ(1U, rows.size());
    EXPECT_EQ(metadata, FindMember(FindMember(rows[0].mProperties, "otio"), "metadata"));
    EXPECT_EQ("-0.0", FindMember(FindMember(rows[0].mProperties, "otio"), "later"));
}

TEST(OTIORows, NumbersThatAreNotFiniteBecomeTextsWithARemark)
{
    const std::string text = R"({"OTIO_SCHEMA":"Clip.1","metadata":[Inf,-Infinity,NaN,-1,"NaN"]})";
    const auto source = ReadTimeline(text);
    const auto rows = AllRows(*source);
    EXPECT_EQ(R"(["Inf","-Infinity","NaN",-1,"NaN"])", FindMember(FindMember(rows[0].mProperties, "otio"), "metadata"));
    ASSERT_EQ(1U, source->Remarks().size());
    EXPECT_EQ("3 numbers that are not finite are kept as texts", source->Remarks()[0].mText);
    ASSERT_TRUE(rows[0].mPayload);
    EXPECT_EQ(text, rows[0].mPayload->mBytes);
}

TEST(OTIORows, ACollectionHoldsItsTimelines)
{
    const auto rows = AllRows(*ReadTimeline(
        R"({"OTIO_SCHEMA":"SerializableCollection.1","children":[{"OTIO_SCHEMA":"Timeline.1","tracks":7}]})"));
    EXPECT_THAT(Names(rows), ElementsAre("cut.otio", "Timeline"));
    EXPECT_EQ("7", FindMember(FindMember(rows[1].mProperties, "otio"), "tracks"));
}

TEST(OTIORows, DamagedTextsAreRefused)
{
    const std::string deep = std::string(600, '[') + std::string(600, ']');
    const std::string texts[] = {"",
                                 "[]",
                                 "{}",
                                 "7",
                                 R"({"OTIO_SCHEMA":"Gap.1"})",
                                 R"({"OTIO_SCHEMA":17})",
                                 std::string(kTimeline.substr(0, kTimeline.size() - 1)),
                                 R"({"OTIO_SCHEMA":"Clip.1","a":Nan})",
                                 R"({"OTIO_SCHEMA":"Clip.1","a":NaNa})",
                                 R"({"OTIO_SCHEMA":"Clip.1","a":")",
                                 "{\"OTIO_SCHEMA\":\"Clip.1\",\"a\":\"\xff\"}",
                                 R"({"OTIO_SCHEMA":"Clip.1","a":)" + deep + "}"};
    for (const std::string& text : texts) {
        std::string error;
        EXPECT_FALSE(OTIORows::Read(text, "cut.otio", kLimit, error)) << text;
        EXPECT_FALSE(error.empty());
        if (text.size() > deep.size()) EXPECT_THAT(error, testing::HasSubstr("deeper than 512 levels"));
    }
}

/// The body as a reader would get it that takes a few bytes at a time; nothing when it gave up.
std::optional<std::string> Deliver(MultipartForm& ioForm, std::size_t inPiece)
{
    std::string body;
    std::string piece(inPiece, '\0');
    for (;;) {
        const auto size = ioForm.Read(piece);
        if (!size) return {};
        if (*size == 0) return body;
        body.append(piece, 0, *size);
    }
}

TEST(MultipartForm, TheServersParserReadsWhatWasWritten)
{
    const testing_support::TempFolder folder;
    Write(folder / "file", std::string(100000, 'f'));
    MultipartForm form;
    EXPECT_TRUE(form.AddText("assets+a+properties", R"({"name":"x"})"));
    EXPECT_TRUE(form.AddText(R"(quo"ted\na%me)", ""));
    EXPECT_TRUE(form.AddContent("content", std::string("\r\n--\0bytes\r\n", 12)));
    EXPECT_TRUE(form.AddFile("file", folder / "file", 100000));
    for (const std::size_t piece : {1UL, 7UL, 65536UL}) {
        ASSERT_TRUE(form.Rewind());
        const auto body = Deliver(form, piece);
        ASSERT_TRUE(body);
        EXPECT_EQ(form.Size(), body->size());
        std::vector<noxnet::http::server::FormField> fields;
        ASSERT_TRUE(noxnet::http::server::ParseForm(*noxcore::utility::CopyToRecycledMemory(*body), form.ContentType(),
                                                    100, fields));
        ASSERT_EQ(4U, fields.size());
        EXPECT_EQ("assets+a+properties", fields[0].mName);
        EXPECT_EQ(R"({"name":"x"})", fields[0].mValue.View());
        EXPECT_EQ("", fields[0].mFileName);
        EXPECT_EQ(R"(quo"ted\na%me)", fields[1].mName);
        EXPECT_EQ("", fields[1].mValue.View());
        EXPECT_EQ(std::string_view("\r\n--\0bytes\r\n", 12), fields[2].mValue.View());
        EXPECT_EQ("application/octet-stream", fields[2].mContentType);
        EXPECT_EQ(std::string(100000, 'f'), fields[3].mValue.View());
    }
}

TEST(MultipartForm, AReaderGetsWhatFitsWithEachCall)
{
    MultipartForm form;
    for (int row = 0; row < 50; ++row)
        EXPECT_TRUE(form.AddText("assets+" + std::to_string(row) + "+name", "x"));
    ASSERT_TRUE(form.Rewind());
    std::string buffer(form.Size() - 1, '\0');
    EXPECT_EQ(buffer.size(), form.Read(buffer));
    EXPECT_EQ(1U, form.Read(buffer));
    EXPECT_EQ(0U, form.Read(buffer));
}

TEST(MultipartForm, NamesThatAPartsHeadCannotHoldAreRefused)
{
    MultipartForm form;
    EXPECT_FALSE(form.AddText("a\r\nb", "x"));
    EXPECT_FALSE(form.AddText("a%22b", "x"));
    EXPECT_EQ(0U, form.PartCount());
    EXPECT_EQ(0U, form.Size());
}

TEST(MultipartForm, AFileThatIsNotAsLongAsSaidGivesTheBodyUp)
{
    const testing_support::TempFolder folder;
    Write(folder / "file", "12345");
    const auto failedFile = [&](const std::string& inPath, std::uint64_t inSize) {
        MultipartForm form;
        EXPECT_TRUE(form.AddFile("file", inPath, inSize));
        EXPECT_TRUE(form.AddText("last", "x"));
        const bool delivered = Deliver(form, 64).has_value();
        EXPECT_EQ(delivered, form.FailedFile().empty());
        return form.FailedFile();
    };
    EXPECT_EQ("", failedFile(folder / "file", 5));
    EXPECT_EQ(folder / "file", failedFile(folder / "file", 6));
    EXPECT_EQ(folder / "file", failedFile(folder / "file", 4));
    EXPECT_EQ(folder / "none", failedFile(folder / "none", 4));
}

TEST(Printable, ControlCharactersAndBytesThatAreNoUTF8AreReplaced)
{
    EXPECT_EQ("a?[31mb? \xEF\xBF\xBD \xc3\xa9 ?", hubctl::Printable("a\x1b[31mb\n \xff \xc3\xa9 \xc2\x9b"));
    EXPECT_EQ("a?b?c \xe2\x80\x94", hubctl::Printable("a\xe2\x80\xae"
                                                      "b\xe2\x81\xa9"
                                                      "c \xe2\x80\x94"));
}

}  // namespace

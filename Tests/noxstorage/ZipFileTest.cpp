#include <sqlite3.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "Tests/Support/Noise.h"
#include "Tests/noxstorage/ZipFixture.h"

namespace {

using namespace testing_support;
using noxcore::filesupport::Files;

class ZipFileTest : public ZipFixture
{
protected:
    /// A tree of files of many sizes, some of which pack well and some not at all; an empty file and an empty folder.
    FolderImage MakeTree(const std::string& inFolder)
    {
        FolderImage tree;
        tree["sessionid"] = "an id";
        tree["empty"] = "";
        tree["git/odb.sqlite3"] = Noise(3'000'000, 1);
        tree["git/deeper/text"] = std::string(700'000, 'a') + Noise(1000, 2);
        tree["Sch\u00f6n \U0001F3AC.txt"] = "a name of many kinds of letters";
        WriteFolderImage(tree, inFolder);
        std::filesystem::create_directories(inFolder + "/void/below");
        return tree;
    }
};

TEST_F(ZipFileTest, WhatWasPackedIsUnpackedAsItWas)
{
    const FolderImage tree = MakeTree(In("source"));
    ASSERT_TRUE(Zip(In("source"), In("a.zip")));
    ASSERT_TRUE(UnZip(In("a.zip"), In("target")));
    EXPECT_EQ(tree, ReadFolderImage(In("target")));
    EXPECT_TRUE(Files().DirectoryExists(In("target/void/below")));
    EXPECT_EQ((std::set<std::string>{"a.zip", "source", "target"}), Names());
}

TEST_F(ZipFileTest, WhatDoesNotShrinkIsKeptAsItIsAndTheRestIsPacked)
{
    WriteFolderImage({{"noise", Noise(2'000'000, 3)}}, In("noise"));
    WriteFolderImage({{"text", std::string(2'000'000, 'x')}}, In("text"));
    ASSERT_TRUE(Zip(In("noise"), In("noise.zip")));
    ASSERT_TRUE(Zip(In("text"), In("text.zip")));
    EXPECT_GT(2'001'000U, Files().Size(In("noise.zip")));
    EXPECT_LT(2'000'000U, Files().Size(In("noise.zip")));
    EXPECT_GT(100'000U, Files().Size(In("text.zip")));
}

TEST_F(ZipFileTest, ContentOfEachSizeAroundWhatIsPackedAtATimeIsUnpackedAsItWas)
{
    constexpr std::size_t kPiece = 256 * 1024;
    FolderImage tree;
    for (const std::size_t size :
         {std::size_t{1}, std::size_t{100}, kPiece - 1, kPiece, kPiece + 1, 3 * kPiece, 5 * kPiece + 12345}) {
        std::string content = Noise(size, size);
        for (std::size_t place = 0; place < size; ++place)
            if (place % 1000 < 700) content[place] = static_cast<char>('a' + place / 1000 % 26);
        tree[std::to_string(size)] = content;
    }
    WriteFolderImage(tree, In("source"));
    ASSERT_TRUE(Zip(In("source"), In("a.zip")));
    EXPECT_GT(Files().Size(In("source")) / 2, Files().Size(In("a.zip")));
    ASSERT_TRUE(UnZip(In("a.zip"), In("target")));
    EXPECT_EQ(tree, ReadFolderImage(In("target")));
}

TEST_F(ZipFileTest, AnArchiveTakesThePlaceOfTheOneBefore)
{
    WriteFolderImage({{"a", "one"}}, In("one"));
    WriteFolderImage({{"b", "two"}}, In("two"));
    ASSERT_TRUE(Zip(In("one"), In("a.zip")));
    ASSERT_TRUE(Zip(In("two"), In("a.zip")));
    ASSERT_TRUE(UnZip(In("a.zip"), In("target")));
    EXPECT_EQ((FolderImage{{"b", "two"}}), ReadFolderImage(In("target")));
}

TEST_F(ZipFileTest, AFileOfMoreThanFourGigabytesGoesThere)
{
    // A file of one hole takes no room; neither does what it is packed to.
    constexpr std::uint64_t kSize = (1ULL << 32) + 12345;
    std::filesystem::create_directories(In("source"));
    std::ofstream(In("source/large")).put('a');
    std::filesystem::resize_file(In("source/large"), kSize);
    ASSERT_TRUE(Zip(In("source"), In("a.zip")));
    EXPECT_GT(64U * 1024 * 1024, Files().Size(In("a.zip")));
    mFiles->mFree = kSize;
    EXPECT_FALSE(UnZip(In("a.zip"), In("target")));
    EXPECT_EQ("The volume has no room for the content", Reason());
    EXPECT_EQ((std::set<std::string>{"a.zip", "source"}), Names());
}

TEST_F(ZipFileTest, ThePackingTellsHowFarItIsAndStopsWhenTold)
{
    MakeTree(In("source"));
    struct Seen
    {
        std::uint64_t mDone = 0;
        std::uint64_t mTotal = 0;
        std::uint64_t mStopAt = ~0ULL;
    };
    const auto note = [](void* inContext, std::uint64_t inDone, std::uint64_t inTotal) {
        auto* seen = static_cast<Seen*>(inContext);
        EXPECT_LE(seen->mDone, inDone);
        seen->mDone = inDone;
        seen->mTotal = inTotal;
        return inDone < seen->mStopAt;
    };
    Seen seen;
    ASSERT_TRUE(noxstorage::ZipFile(In("a.zip"), {}).Zip(In("source"), note, &seen));
    EXPECT_EQ(Files().Size(In("source")), seen.mTotal);
    EXPECT_EQ(seen.mTotal, seen.mDone);
    Seen stopped;
    stopped.mStopAt = 1'000'000;
    EXPECT_FALSE(noxstorage::ZipFile(In("b.zip"), {}).Zip(In("source"), note, &stopped));
    EXPECT_EQ((std::set<std::string>{"a.zip", "source"}), Names());
}

TEST_F(ZipFileTest, AFolderWithNothingOrWithASpecialFileIsNotPacked)
{
    std::filesystem::create_directories(In("empty"));
    EXPECT_FALSE(Zip(In("empty"), In("a.zip")));
    EXPECT_FALSE(Zip(In("absent"), In("a.zip")));
    WriteFolderImage({{"a", "one"}}, In("odd"));
    ASSERT_EQ(0, mkfifo(In("odd/pipe").c_str(), 0600));
    EXPECT_FALSE(Zip(In("odd"), In("a.zip")));
    EXPECT_EQ((std::set<std::string>{"empty", "odd"}), Names());
}

TEST_F(ZipFileTest, AnArchiveWithAPasswordIsNeitherMadeNorRead)
{
    WriteFolderImage({{"a", "one"}}, In("source"));
    EXPECT_FALSE(noxstorage::ZipFile(In("a.zip"), "secret").Zip(In("source"), nullptr, nullptr));
    ASSERT_TRUE(Zip(In("source"), In("a.zip")));
    EXPECT_FALSE(noxstorage::ZipFile(In("a.zip"), "secret").UnZip(In("target"), false));
    EXPECT_EQ(2U, mLog->Count("ZipFile: archives with a password are not supported"));
}

TEST_F(ZipFileTest, AFolderThatIsThereKeepsItsFilesAndGetsBackWhatAFailureTook)
{
    WriteFolderImage({{"b", "new"}, {"sub/c", "new"}, {"z", "new"}}, In("source"));
    ASSERT_TRUE(Zip(In("source"), In("a.zip")));
    WriteFolderImage({{"a", "old"}, {"z", "old"}}, In("target"));
    EXPECT_FALSE(UnZip(In("a.zip"), In("target")));
    EXPECT_EQ((FolderImage{{"a", "old"}, {"z", "old"}}), ReadFolderImage(In("target")));
    EXPECT_FALSE(Files().DirectoryExists(In("target/sub")));
    ASSERT_TRUE(UnZip(In("a.zip"), In("target"), true));
    EXPECT_EQ((FolderImage{{"a", "old"}, {"b", "new"}, {"sub/c", "new"}, {"z", "new"}}), ReadFolderImage(In("target")));
}

/// Each operation on files fails in turn: nothing that looks whole is left.
TEST_F(ZipFileTest, AnyFailureOnTheWayLeavesNoArchiveAndNoFolder)
{
    const FolderImage tree{{"sessionid", "an id"}, {"git/odb.sqlite3", Noise(300'000, 1)}, {"git/text", "text"}};
    WriteFolderImage(tree, In("source"));
    ASSERT_TRUE(Zip(In("source"), In("whole.zip")));
    const FileOperation kinds[] = {FileOperation::ReadPlain, FileOperation::WritePlain, FileOperation::Sync,
                                   FileOperation::MakeFolder, FileOperation::Rename};
    unsigned reached = 0;
    for (const FileOperation kind : kinds) {
        for (const bool inPart : {false, true}) {
            for (unsigned nth = 1, failed = 1; failed != 0; ++nth) {
                mVfs->SetFault({kind, nth, SQLITE_IOERR, false, {}, 0, inPart});
                const bool zipped = Zip(In("source"), In("a.zip"));
                mVfs->ClearFaults();
                // What failed behind the whole work may be there, and is whole then.
                if (!zipped && Files().FileExists(In("a.zip"))) {
                    EXPECT_EQ(Files().Size(In("whole.zip")), Files().Size(In("a.zip")));
                }
                Files().DeleteFile(In("a.zip"));
                mVfs->SetFault({kind, nth, SQLITE_IOERR, false, {}, 0, inPart});
                const bool unzipped = UnZip(In("whole.zip"), In("target"));
                mVfs->ClearFaults();
                if (unzipped) {
                    EXPECT_EQ(tree, ReadFolderImage(In("target")));
                } else {
                    EXPECT_FALSE(Files().DirectoryExists(In("target")));
                }
                Files().DeleteDirectory(In("target"));
                failed = (zipped ? 0U : 1U) + (unzipped ? 0U : 1U);
                reached += failed;
                ASSERT_EQ((std::set<std::string>{"source", "whole.zip"}), Names())
                    << static_cast<int>(kind) << " " << nth << " " << inPart;
            }
        }
    }
    EXPECT_LT(60U, reached);
}

TEST_F(ZipFileTest, APowerCutLeavesTheArchiveWholeOrNotThere)
{
    MakeTree(In("source"));
    const std::uint64_t seed = FreshTestSeed();
    mVfs->StartRecording(mFolder.Path());
    ASSERT_TRUE(Zip(In("source"), In("a.zip")));
    const FileRecording recording = mVfs->StopRecording();
    std::string whole;
    ASSERT_TRUE(Files().ReadFile(In("a.zip"), whole));
    for (std::size_t moment = 0; moment <= recording.Events().size(); ++moment) {
        for (std::uint64_t cut = seed; cut < seed + 8; ++cut) {
            const FolderImage image = recording.AfterPowerCut(moment, cut);
            const auto found = image.find("a.zip");
            if (moment == recording.Events().size()) {
                ASSERT_NE(image.end(), found) << "seed " << cut;
            }
            if (found != image.end()) {
                EXPECT_EQ(whole, found->second) << "moment " << moment << ", seed " << cut;
            }
        }
    }
}

}  // namespace

// Archives that no careful program makes, put together byte by byte.

#include <zlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>

#include "Tests/Support/Noise.h"
#include "Tests/noxstorage/ZipFixture.h"

namespace {

using namespace testing_support;
using noxcore::filesupport::Files;

struct OddEntry
{
    std::string mName = "a";
    std::string mContent = "content";
    std::uint32_t mMode = 0100644;
    std::uint16_t mFlags = 0;
    std::uint16_t mMethod = 0;
    std::optional<std::uint32_t> mSaidSize = {};  ///< else that of the content
    bool mDeflated = false;
    std::string mField = {};                 ///< an extra field, with its head
    std::optional<std::size_t> mPlace = {};  ///< where its bytes lie already, as a part of another's
};

void Put(std::string& ioBytes, std::uint64_t inValue, int inSize)
{
    for (int i = 0; i < inSize; ++i)
        ioBytes.push_back(static_cast<char>(inValue >> (8 * i)));
}

std::string Deflate(const std::string& inContent)
{
    z_stream stream = {};
    EXPECT_EQ(Z_OK, deflateInit2(&stream, 9, Z_DEFLATED, -MAX_WBITS, 9, Z_DEFAULT_STRATEGY));
    std::string packed(deflateBound(&stream, inContent.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(inContent.data()));
    stream.avail_in = static_cast<uInt>(inContent.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    EXPECT_EQ(Z_STREAM_END, deflate(&stream, Z_FINISH));
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

/// What a local header and the directory say alike: from the version to the length of the name.
std::string CommonPart(const OddEntry& inEntry, const std::string& inPacked)
{
    std::string part;
    Put(part, 20, 2);
    Put(part, inEntry.mFlags, 2);
    Put(part, inEntry.mDeflated ? 8 : inEntry.mMethod, 2);
    Put(part, 0x58210000, 4);
    Put(part,
        crc32(0, reinterpret_cast<const Bytef*>(inEntry.mContent.data()), static_cast<uInt>(inEntry.mContent.size())),
        4);
    Put(part, inPacked.size(), 4);
    Put(part, inEntry.mSaidSize.value_or(static_cast<std::uint32_t>(inEntry.mContent.size())), 4);
    Put(part, inEntry.mName.size(), 2);
    Put(part, inEntry.mField.size(), 2);
    return part;
}

/// An entry as it lies in an archive, without the directory.
std::string LocalPart(const OddEntry& inEntry, const std::string& inPacked)
{
    std::string part;
    Put(part, 0x04034b50, 4);
    return part + CommonPart(inEntry, inPacked) + inEntry.mName + inEntry.mField + inPacked;
}

std::string MakeArchive(const std::vector<OddEntry>& inEntries)
{
    std::string archive;
    std::string directory;
    for (const OddEntry& entry : inEntries) {
        const std::string packed = entry.mDeflated ? Deflate(entry.mContent) : entry.mContent;
        const std::size_t place = entry.mPlace.value_or(archive.size());
        if (!entry.mPlace) archive += LocalPart(entry, packed);
        Put(directory, 0x02014b50, 4);
        Put(directory, 0x0314, 2);
        directory += CommonPart(entry, packed);
        Put(directory, 0, 6);
        Put(directory, static_cast<std::uint64_t>(entry.mMode) << 16, 4);
        Put(directory, place, 4);
        directory += entry.mName + entry.mField;
    }
    const std::size_t place = archive.size();
    archive += directory;
    Put(archive, 0x06054b50, 4);
    Put(archive, 0, 4);
    Put(archive, inEntries.size(), 2);
    Put(archive, inEntries.size(), 2);
    Put(archive, directory.size(), 4);
    Put(archive, place, 4);
    Put(archive, 0, 2);
    return archive;
}

class ZipRefusalsTest : public ZipFixture
{
protected:
    void WriteArchive(const std::string& inBytes) { std::ofstream(In("a.zip"), std::ios::binary) << inBytes; }
    /// Whether it is unpacked; what is not leaves nothing behind.
    bool IsTaken(const std::string& inBytes)
    {
        Files().DeleteDirectory(In("box"));
        std::filesystem::create_directories(In("box/in"));
        WriteArchive(inBytes);
        mLog->Clear();
        const bool taken = UnZip(In("a.zip"), In("box/in/target"));
        if (!taken) {
            EXPECT_FALSE(Files().DirectoryExists(In("box/in/target")));
            EXPECT_EQ(0U, Files().Size(In("box")));
            EXPECT_EQ(1, std::distance(std::filesystem::recursive_directory_iterator(In("box")), {}));
        }
        return taken;
    }
    bool IsTaken(const std::vector<OddEntry>& inEntries) { return IsTaken(MakeArchive(inEntries)); }
};

TEST_F(ZipRefusalsTest, AnArchiveOfAnotherProgramIsTaken)
{
    EXPECT_TRUE(IsTaken(
        {{"a"}, {"folder/", "", 040755}, {"folder/b"}, {"folder/c", std::string(100000, 'c'), 0, 0, 0, {}, true}}));
    EXPECT_EQ((FolderImage{{"a", "content"}, {"folder/b", "content"}, {"folder/c", std::string(100000, 'c')}}),
              ReadFolderImage(In("box/in/target")));
}

TEST_F(ZipRefusalsTest, ANameThatIsNotSafelyBelowTheFolderIsRefused)
{
    const std::string names[] = {"../a",  "a/../../b", "..",   ".",    "a/./b", "/a", "/",    "a//b", "a\\b",
                                 "..\\a", "C:a",       "c:/a", "a\nb", "a\x7f", "",   "a/..", "../",  "a/../"};
    for (const std::string& name : names)
        EXPECT_FALSE(IsTaken({{"first"}, {name}})) << name;
}

TEST_F(ZipRefusalsTest, AZeroInANameIsRefused)
{
    EXPECT_FALSE(IsTaken({{std::string("safe\0/../../out", 15), "content"}}));
    for (const std::string& name : {std::string("a\0b", 3), std::string("a\0", 2), std::string("\0", 1)}) {
        EXPECT_FALSE(IsTaken({{"first"}, {name}, {"last"}}));
        EXPECT_EQ("A name has a zero in it", Reason());
    }
    EXPECT_TRUE(IsTaken({{"a b"}, {" "}}));
}

TEST_F(ZipRefusalsTest, AZeroInASecondNameOfAnEntryIsRefused)
{
    for (const bool hasZero : {true, false}) {
        const std::string second = hasZero ? std::string("a\0b", 3) : "abc";
        std::string field;
        Put(field, 0x7075, 2);
        Put(field, 5 + second.size(), 2);
        Put(field, 1, 1);
        Put(field, crc32(0, reinterpret_cast<const Bytef*>("a"), 1), 4);
        field += second;
        EXPECT_EQ(!hasZero, IsTaken(MakeArchive({{.mName = "a", .mField = field}}))) << Reason();
    }
}

TEST_F(ZipRefusalsTest, AnArchiveWithTwoEndsIsRefused)
{
    // Whoever reads it takes the one or the other.
    const std::string inner = MakeArchive({OddEntry{"inner"}});
    std::string archive = MakeArchive({OddEntry{"outer"}});
    archive[archive.size() - 2] = static_cast<char>(inner.size());
    EXPECT_FALSE(IsTaken(archive + inner));
}

TEST_F(ZipRefusalsTest, ANameInAnotherEncodingIsRefused)
{
    EXPECT_FALSE(IsTaken({OddEntry{"caf\xe9"}}));
    EXPECT_EQ("A name is not UTF-8", Reason());
    EXPECT_FALSE(IsTaken({{"caf\xe9", "content", 0100644, 0x0800}}));
    EXPECT_TRUE(IsTaken({{"caf\u00e9", "content", 0100644, 0x0800}}));
    EXPECT_TRUE(IsTaken({OddEntry{"caf\u00e9"}}));
}

TEST_F(ZipRefusalsTest, ANameThatStandsTwiceOrIsFileAndFolderIsRefused)
{
    EXPECT_FALSE(IsTaken({{"a"}, {"b"}, {"a"}}));
    EXPECT_FALSE(IsTaken({{"a"}, {"a/", "", 040755}}));
    EXPECT_FALSE(IsTaken({{"a"}, {"a/b"}}));
    EXPECT_FALSE(IsTaken({{"a/b"}, {"a"}}));
}

TEST_F(ZipRefusalsTest, EntriesThatShareTheirBytesAreRefused)
{
    // A few of them, each a part of the one before, would be far more than the archive holds.
    const OddEntry inner{"c", Noise(2000, 7)};
    const OddEntry middle{"b", LocalPart(inner, inner.mContent)};
    const OddEntry outer{"a", LocalPart(middle, middle.mContent)};
    constexpr std::size_t kHead = 31;  // of a local entry, with its name of one letter
    const auto at = [](OddEntry inEntry, std::size_t inPlace) {
        inEntry.mPlace = inPlace;
        return inEntry;
    };
    EXPECT_TRUE(IsTaken({outer, {"else"}}));
    EXPECT_FALSE(IsTaken({outer, at(middle, kHead)}));
    EXPECT_EQ("Entries overlap", Reason());
    EXPECT_FALSE(IsTaken({outer, at(middle, kHead), at(inner, 2 * kHead)}));
    EXPECT_EQ("Entries overlap", Reason());
    // The same bytes under several names.
    OddEntry again = at(inner, 0);
    EXPECT_FALSE(IsTaken({inner, again}));
    again.mName = "d";
    EXPECT_FALSE(IsTaken({inner, again}));
}

TEST_F(ZipRefusalsTest, AnArchiveInAnArchiveIsAFileLikeAnyOther)
{
    const std::string inner = MakeArchive({{"../a"}, {"b", "linked", 0120777}});
    for (const bool isDeflated : {false, true}) {
        ASSERT_TRUE(IsTaken({{"inner.zip", inner, 0, 0, 0, {}, isDeflated}}));
        std::ifstream file(In("box/in/target/inner.zip"), std::ios::binary);
        EXPECT_EQ(inner, std::string(std::istreambuf_iterator<char>(file), {}));
        EXPECT_EQ(1, std::distance(std::filesystem::recursive_directory_iterator(In("box/in/target")), {}));
    }
    EXPECT_FALSE(IsTaken(inner));
}

TEST_F(ZipRefusalsTest, LinksAndSpecialFilesAreRefused)
{
    for (const std::uint32_t mode : {0120777U, 0010644U, 0020644U, 0060644U, 0140644U, 0040755U})
        EXPECT_FALSE(IsTaken({{"first"}, {"a", "/etc/passwd", mode}})) << std::oct << mode;
    EXPECT_EQ("An entry is a link or a special file", Reason());
    EXPECT_FALSE(IsTaken({{"folder/", "", 0120777}}));
    EXPECT_FALSE(IsTaken({{"folder/", "content", 040755}}));
}

TEST_F(ZipRefusalsTest, EncryptedEntriesAndUnknownMethodsAreRefused)
{
    EXPECT_FALSE(IsTaken({{"a", "content", 0100644, 1}}));
    EXPECT_EQ("An entry is encrypted", Reason());
    for (const std::uint16_t method : {1, 6, 9, 12, 14, 93, 98, 99})
        EXPECT_FALSE(IsTaken({{"a", "content", 0100644, 0, method}})) << method;
}

TEST_F(ZipRefusalsTest, ContentThatIsNotAsLargeAsItSaysIsRefused)
{
    const std::string content(1'000'000, 'x');
    EXPECT_TRUE(IsTaken({{"a", content, 0, 0, 0, {}, true}}));
    for (const std::uint32_t said : {0U, 1U, 999'999U, 1'000'001U, 4'000'000U})
        EXPECT_FALSE(IsTaken({{"first"}, {"a", content, 0, 0, 0, said, true}})) << said;
    EXPECT_FALSE(IsTaken({{"a", "content", 0, 0, 0, 8U}}));
    EXPECT_FALSE(IsTaken({{"a", "content", 0, 0, 0, 6U}}));
}

TEST_F(ZipRefusalsTest, ContentThatWouldFillTheVolumeIsRefusedBeforeAnythingIsWritten)
{
    const std::string content(8'000'000, 'x');
    mFiles->mFree = 64 * 1024 * 1024 + 15'999'999;
    EXPECT_FALSE(IsTaken({{"a", content, 0, 0, 0, {}, true}, {"b", content, 0, 0, 0, {}, true}}));
    EXPECT_EQ("The volume has no room for the content", Reason());
    mFiles->mFree += 1;
    EXPECT_TRUE(IsTaken({{"a", content, 0, 0, 0, {}, true}, {"b", content, 0, 0, 0, {}, true}}));
}

TEST_F(ZipRefusalsTest, WhatIsNoArchiveIsRefused)
{
    EXPECT_FALSE(UnZip(In("absent.zip"), In("target")));
    EXPECT_FALSE(IsTaken(std::string()));
    EXPECT_FALSE(IsTaken("This is no archive"));
    EXPECT_FALSE(IsTaken(Noise(100'000, 5)));
}

TEST_F(ZipRefusalsTest, ATruncatedArchiveIsRefusedWhereverItEnds)
{
    const std::string whole = MakeArchive({{"a"}, {"folder/b", std::string(3000, 'b'), 0, 0, 0, {}, true}, {"c"}});
    ASSERT_TRUE(IsTaken(whole));
    for (std::size_t size = 0; size < whole.size(); ++size)
        ASSERT_FALSE(IsTaken(whole.substr(0, size))) << size;
}

TEST_F(ZipRefusalsTest, ADamagedArchiveIsRefusedOrGivesNothingButWhatItHeld)
{
    const std::vector<OddEntry> entries = {{"a"}, {"folder/b", Noise(3000, 7), 0, 0, 0, {}, true}, {"c"}};
    const std::string whole = MakeArchive(entries);
    const std::uint64_t seed = FreshTestSeed();
    std::mt19937_64 chance(seed);
    unsigned refused = 0;
    for (int turn = 0; turn < 200; ++turn) {
        std::string damaged = whole;
        const std::size_t place = chance() % damaged.size();
        damaged[place] = static_cast<char>(damaged[place] ^ (1 << chance() % 8));
        if (!IsTaken(damaged)) {
            ++refused;
            continue;
        }
        // Dates, versions and names are nobody's check sum; contents are.
        for (const auto& [name, content] : ReadFolderImage(In("box/in/target"))) {
            const bool isKnown = std::any_of(entries.begin(), entries.end(),
                                             [&, &known = content](const OddEntry& e) { return e.mContent == known; });
            EXPECT_TRUE(isKnown) << name << ", place " << place << ", seed " << seed;
        }
    }
    EXPECT_LT(100U, refused) << "seed " << seed;
}

}  // namespace

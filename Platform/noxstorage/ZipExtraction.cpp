// Unpacking: an archive comes from anywhere, and nothing that it says is believed.

#include <sys/stat.h>

#include <memory>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxstorage/ZipFile.h"
#include "Platform/noxstorage/ZipNames.h"
#include "Platform/noxstorage/ZipSources.h"

namespace noxstorage {

using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
using noxcore::filesupport::ParentFolder;
using noxcore::filesupport::Path;

namespace {

constexpr std::size_t kPiece = 256 * 1024;
constexpr std::uint64_t kRoomToLeave = 64 * 1024 * 1024;
constexpr std::uint64_t kAlwaysUnpacked = 256 * 1024 * 1024;
constexpr unsigned kModeBits = 16;  ///< the file mode stands in the upper half of the attributes

/// Empty, or why the whole archive is refused or given up.
using Failure = std::string;

/// Whether a name stays below the folder it is put into, on every system that the archive may be handed to.
bool IsSafeName(std::string_view inName)
{
    if (inName.ends_with('/')) inName.remove_suffix(1);
    if (inName.empty() || (inName.size() > 1 && inName[1] == ':')) return false;
    for (const char character : inName) {
        if (static_cast<unsigned char>(character) < ' ' || character == '\x7f' || character == '\\') return false;
    }
    while (true) {
        const std::size_t end = inName.find('/');
        const std::string_view part = inName.substr(0, end);
        if (part.empty() || part == "." || part == "..") return false;
        if (end == std::string_view::npos) return true;
        inName.remove_prefix(end + 1);
    }
}

/// What is to be unpacked. A name with "/" at its end is a folder.
struct Entry
{
    std::string mName;
    zip_uint64_t mIndex = 0;
    std::uint64_t mSize = 0;
};

/// Looks at everything that an archive says about itself.
class Inspection
{
public:
    Inspection(zip_t* inArchive, std::uint64_t inArchiveSize, std::uint64_t inMostTimes)
        : mArchive(inArchive), mArchiveSize(inArchiveSize), mMostTimes(inMostTimes)
    {
    }

    Failure Inspect(std::vector<Entry>& outEntries)
    {
        const auto count = static_cast<zip_uint64_t>(zip_get_num_entries(mArchive, 0));
        if (count == 0) return "There is nothing in the archive";
        for (zip_uint64_t index = 0; index < count; ++index) {
            Entry entry{{}, index, 0};
            Failure failure = InspectName(index, entry.mName);
            if (failure.empty()) failure = InspectEntry(entry);
            if (!failure.empty()) return failure;
            outEntries.push_back(std::move(entry));
        }
        if (mPacked > mArchiveSize) return "Entries overlap";
        const bool isBomb = mMostTimes != 0 && mTotal > kAlwaysUnpacked && mTotal / mMostTimes > mArchiveSize;
        return isBomb ? "The content is out of all proportion to the archive" : Failure();
    }
    [[nodiscard]] std::uint64_t Total() const { return mTotal; }

private:
    Failure InspectName(zip_uint64_t inIndex, std::string& outName)
    {
        const char* stored = zip_get_name(mArchive, inIndex, ZIP_FL_ENC_RAW);
        if (stored == nullptr) return zip_strerror(mArchive);
        outName = stored;
        // A name in another encoding is read as another one than stands there.
        const char* read = zip_get_name(mArchive, inIndex, ZIP_FL_ENC_GUESS);
        if (read == nullptr || outName != read) return "A name is not UTF-8";
        if (!IsSafeName(outName)) return "A name leads out of the folder";
        const std::string bare = outName.ends_with('/') ? outName.substr(0, outName.size() - 1) : outName;
        return mNames.insert(bare).second ? Failure() : "A name stands twice";
    }

    Failure InspectEntry(Entry& ioEntry)
    {
        constexpr zip_uint64_t kNeeded =
            ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD | ZIP_STAT_ENCRYPTION_METHOD;
        zip_stat_t stat;
        if (zip_stat_index(mArchive, ioEntry.mIndex, 0, &stat) != 0) return zip_strerror(mArchive);
        if ((stat.valid & kNeeded) != kNeeded) return "An entry is incomplete";
        if (stat.encryption_method != ZIP_EM_NONE) return "An entry is encrypted";
        if (stat.comp_method != ZIP_CM_STORE && stat.comp_method != ZIP_CM_DEFLATE) {
            return "An entry is packed in an unknown way";
        }
        const bool isFolder = ioEntry.mName.ends_with('/');
        if (!HasUsableMode(ioEntry.mIndex, isFolder)) return "An entry is a link or a special file";
        if (isFolder && stat.size != 0) return "A folder has content";
        ioEntry.mSize = stat.size;
        if (mTotal + stat.size < mTotal || mPacked + stat.comp_size < mPacked) return "Sizes are impossible";
        mTotal += stat.size;
        mPacked += stat.comp_size;
        return {};
    }

    bool HasUsableMode(zip_uint64_t inIndex, bool inIsFolder)
    {
        zip_uint8_t system = ZIP_OPSYS_UNIX;
        zip_uint32_t attributes = 0;
        if (zip_file_get_external_attributes(mArchive, inIndex, 0, &system, &attributes) != 0) return false;
        const mode_t type = (attributes >> kModeBits) & S_IFMT;
        const bool isUnix = system == ZIP_OPSYS_UNIX || system == ZIP_OPSYS_OS_X;
        return !isUnix || type == 0 || type == static_cast<mode_t>(inIsFolder ? S_IFDIR : S_IFREG);
    }

    zip_t* const mArchive;
    const std::uint64_t mArchiveSize;
    const std::uint64_t mMostTimes;
    std::set<std::string> mNames;
    std::uint64_t mTotal = 0;
    std::uint64_t mPacked = 0;
};

struct CloseEntry
{
    void operator()(zip_file_t* inFile) const { zip_fclose(inFile); }
};

/// Puts entries into a folder that is there, and takes back what it put there when told so.
class Unpacking
{
public:
    Unpacking(zip_t* inArchive, Path inFolder, bool inReplace)
        : mArchive(inArchive), mFolder(std::move(inFolder)), mReplace(inReplace)
    {
    }

    Failure Unpack(const std::vector<Entry>& inEntries)
    {
        for (const Entry& entry : inEntries) {
            const bool isFolder = entry.mName.ends_with('/');
            const Path path =
                Join(mFolder, std::string_view(entry.mName).substr(0, entry.mName.size() - (isFolder ? 1 : 0)));
            if (!MakeFolders(isFolder ? path : Path(ParentFolder(path)))) return "A folder cannot be made";
            Failure failure = isFolder ? Failure() : UnpackFile(entry, path);
            if (!failure.empty()) return failure;
        }
        return Sync() ? Failure() : "What was unpacked cannot be made durable";
    }

    void TakeBack()
    {
        for (auto path = mFiles.rbegin(); path != mFiles.rend(); ++path)
            Files().DeleteFile(*path);
        for (auto path = mMadeFolders.rbegin(); path != mMadeFolders.rend(); ++path)
            Files().DeleteEmptyDirectory(*path);
    }

private:
    bool MakeFolders(const Path& inPath)
    {
        if (inPath == mFolder || mKnownFolders.contains(inPath)) return true;
        if (!MakeFolders(Path(ParentFolder(inPath)))) return false;
        if (!Files().DirectoryExists(inPath)) {
            mMadeFolders.push_back(inPath);  // one whose making failed may be there all the same
            if (!Files().MakeDirectory(inPath)) return false;
        }
        mKnownFolders.insert(inPath);
        return true;
    }

    Failure UnpackFile(const Entry& inEntry, const Path& inPath)
    {
        if (Files().FileExists(inPath) && (!mReplace || !Files().DeleteFile(inPath))) {
            return mReplace ? "A file cannot be replaced" : "A file of a name in the archive is there";
        }
        mFiles.push_back(inPath);  // one whose making failed may be there all the same
        const auto writer = Files().CreateFile(inPath);
        if (!writer) return "A file cannot be made";
        const std::unique_ptr<zip_file_t, CloseEntry> file(zip_fopen_index(mArchive, inEntry.mIndex, 0));
        if (file == nullptr) return zip_strerror(mArchive);
        Failure failure = CopyContent(file.get(), inEntry.mSize, *writer);
        if (failure.empty() && !writer->Sync()) failure = "A file cannot be synced";
        return failure;
    }

    /// The end of a file is where libzip holds the check sum against it.
    Failure CopyContent(zip_file_t* inFile, std::uint64_t inSize, noxcore::filesupport::FileWriter& ioWriter)
    {
        std::uint64_t place = 0;
        while (true) {
            const zip_int64_t read = zip_fread(inFile, mPiece.data(), mPiece.size());
            if (read < 0) return zip_file_strerror(inFile);
            if (read == 0) return place == inSize ? Failure() : "A file is shorter than it says";
            const auto size = static_cast<std::size_t>(read);
            if (size > inSize - place) return "A file is longer than it says";
            if (!ioWriter.WriteAt(place, {mPiece.data(), size})) return "A file cannot be written";
            place += size;
        }
    }

    /// The deepest first: a folder is durable before the one that lists it.
    bool Sync()
    {
        for (auto path = mKnownFolders.rbegin(); path != mKnownFolders.rend(); ++path) {
            if (!Files().SyncDirectory(*path)) return false;
        }
        return Files().SyncDirectory(mFolder);
    }

    zip_t* const mArchive;
    const Path mFolder;
    const bool mReplace;
    std::string mPiece = std::string(kPiece, '\0');
    std::set<Path> mKnownFolders;
    std::vector<Path> mMadeFolders;
    std::vector<Path> mFiles;
};

bool HasRoom(const Path& inPlace, std::uint64_t inBytes)
{
    std::uint64_t free = 0;
    return Files().GetVolumeFreeSpace(inPlace, free) && free >= kRoomToLeave && inBytes <= free - kRoomToLeave;
}

/// A folder that is made for it, beside its place until it is whole.
Failure UnpackToNewFolder(zip_t* inArchive, const std::vector<Entry>& inEntries, const Path& inFolder)
{
    const Path parent(ParentFolder(inFolder));
    noxcore::filesupport::Dir::RemoveStaleTemporaries(parent, noxcore::filesupport::BaseName(inFolder));
    const Path beside = inFolder + "." + noxcore::utility::Guid::CreateUnique().Text() + ".tmp";
    Failure failure = Files().MakeDirectory(beside) ? Unpacking(inArchive, beside, false).Unpack(inEntries)
                                                    : Failure("A folder cannot be made");
    if (!failure.empty()) {
        Files().DeleteDirectory(beside);
        return failure;
    }
    if (Files().Rename(beside, inFolder) && Files().SyncDirectory(parent)) return {};
    // Where it is not beside its place, it has taken it.
    Files().DeleteDirectory(Files().DirectoryExists(beside) ? beside : inFolder);
    return "The folder cannot be put in its place";
}

Failure UnpackToFolder(zip_t* inArchive, const std::vector<Entry>& inEntries, const Path& inFolder, bool inReplace)
{
    Unpacking unpacking(inArchive, inFolder, inReplace);
    Failure failure = unpacking.Unpack(inEntries);
    if (!failure.empty()) unpacking.TakeBack();
    return failure;
}

Failure UnpackArchive(const Path& inFile, const Path& inFolder, bool inReplace, const ZipFile::Choice& inChoice,
                      std::uint64_t inMostTimes)
{
    Failure failure;
    const zip::ArchivePtr archive = zip::OpenArchive(zip::OpenForReading(inFile), ZIP_RDONLY | ZIP_CHECKCONS, failure);
    if (!archive) return failure;
    std::vector<Entry> entries;
    Inspection inspection(archive.get(), Files().Size(inFile), inMostTimes);
    failure = inspection.Inspect(entries);
    if (failure.empty()) failure = zip::FindFaultInNames(inFile, entries.size());
    if (!failure.empty()) return failure;
    if (inChoice) std::erase_if(entries, [&](const Entry& inEntry) { return !inChoice(inEntry.mName); });
    if (entries.empty()) return "There is nothing in the archive that is wanted";
    const bool isNew = !Files().DirectoryExists(inFolder);
    if (!HasRoom(isNew ? Path(ParentFolder(inFolder)) : inFolder, inspection.Total())) {
        return "The volume has no room for the content";
    }
    return isNew ? UnpackToNewFolder(archive.get(), entries, inFolder)
                 : UnpackToFolder(archive.get(), entries, inFolder, inReplace);
}

}  // namespace

bool ZipFile::UnZip(const Path& inFolder, bool inReplace, const Choice& inChoice, std::uint64_t inMostTimes)
{
    if (HasPassword()) return false;
    const Failure failure = UnpackArchive(mFile, inFolder, inReplace, inChoice, inMostTimes);
    if (failure.empty()) return true;
    noxcore::logging::LogError("noxstorage", "ZipFile: cannot unpack",
                               {{"path", mFile}, {"folder", inFolder}, {"error", failure}});
    return false;
}

}  // namespace noxstorage

#include "Platform/noxstorage/ZipFile.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxstorage/ZipDeflater.h"
#include "Platform/noxstorage/ZipSources.h"

namespace noxstorage {

using noxcore::filesupport::DirectoryEntry;
using noxcore::filesupport::FileReader;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
using noxcore::filesupport::ParentFolder;
using noxcore::filesupport::Path;

namespace {

constexpr std::size_t kSample = 64 * 1024;
constexpr std::size_t kSamples = 8;

/// What goes into an archive: the name there, with "/" at the end of a folder.
struct Item
{
    std::string mName;
    std::uint64_t mSize = 0;
};

bool ListBelow(const Path& inFolder, const std::string& inPrefix, std::vector<Item>& outItems)
{
    std::vector<DirectoryEntry> entries;
    if (!Files().ListDirectory(inFolder, entries)) return false;
    std::sort(entries.begin(), entries.end(),
              [](const DirectoryEntry& inLeft, const DirectoryEntry& inRight) { return inLeft.mName < inRight.mName; });
    for (const DirectoryEntry& entry : entries) {
        const Path path = Join(inFolder, entry.mName);
        if (entry.mIsDirectory) {
            const std::string name = inPrefix + entry.mName + "/";
            outItems.push_back({name, 0});
            if (!ListBelow(path, name, outItems)) return false;
            continue;
        }
        const auto file = Files().OpenFile(path);
        if (!file) return false;
        outItems.push_back({inPrefix + entry.mName, file->Size()});
    }
    return true;
}

/// Whether a file is worth packing, told by pieces from all over it: most of a session is compressed already.
bool Shrinks(const Path& inFile)
{
    const auto file = Files().OpenFile(inFile);
    if (!file) return false;
    const std::uint64_t step = std::max<std::uint64_t>(kSample, file->Size() / kSamples);
    std::string piece(kSample, '\0');
    std::string packed(2 * kSample, '\0');
    std::size_t before = 0;
    std::size_t after = 0;
    for (std::uint64_t place = 0; place < file->Size(); place += step) {
        std::size_t read = 0;
        if (!file->ReadAt(place, piece.size(), piece.data(), read)) return false;
        std::string_view waiting = std::string_view(piece).substr(0, read);
        std::span<char> room(packed);
        if (!zip::Deflater().Pack(waiting, true, room)) return false;
        before += read;
        after += packed.size() - room.size();
    }
    return after * 16 < before * 15;
}

/// An archive in the making.
class Packing
{
public:
    Packing(Path inFolder, ZipFile::Progress inProgress, void* inContext)
        : mFolder(std::move(inFolder)), mProgress(inProgress), mContext(inContext)
    {
    }

    /// Empty when it is written, else what went wrong.
    std::string WriteTo(const Path& inFile)
    {
        std::vector<Item> items;
        if (!ListBelow(mFolder, {}, items)) return "The folder cannot be read";
        if (items.empty()) return "There is nothing to pack";
        for (const Item& item : items)
            mTotal += item.mSize;
        const auto writer = Files().CreateFile(inFile);
        if (!writer) return "The archive cannot be made";
        std::string failure = WriteItems(items, *writer);
        if (failure.empty() && !writer->Sync()) failure = "The archive cannot be synced";
        return failure;
    }

private:
    std::string WriteItems(const std::vector<Item>& inItems, noxcore::filesupport::FileWriter& ioWriter)
    {
        std::string failure;
        zip::ArchivePtr archive = zip::OpenArchive(zip::OpenForWriting(ioWriter), ZIP_CREATE | ZIP_TRUNCATE, failure);
        if (!archive) return failure;
        for (const Item& item : inItems) {
            if (!Add(archive.get(), item)) return zip_strerror(archive.get());
        }
        if (zip_close(archive.get()) != 0) return zip_strerror(archive.get());
        static_cast<void>(archive.release());  // gone with its closing
        return {};
    }

    /// Contents are read only when the archive is closed.
    bool Add(zip_t* inArchive, const Item& inItem)
    {
        if (inItem.mName.ends_with('/')) return zip_dir_add(inArchive, inItem.mName.c_str(), ZIP_FL_ENC_UTF_8) >= 0;
        const Path path = Join(mFolder, inItem.mName);
        const bool shrinks = Shrinks(path);
        const auto note = [this](std::uint64_t inBytes) { return NoteRead(inBytes); };
        zip::SourcePtr source =
            shrinks ? zip::DeflateLater(path, inItem.mSize, note) : zip::ReadLater(path, inItem.mSize, note);
        if (!source) return false;
        const zip_int64_t index = zip_file_add(inArchive, inItem.mName.c_str(), source.get(), ZIP_FL_ENC_UTF_8);
        if (index < 0) return false;
        static_cast<void>(source.release());
        return zip_set_file_compression(inArchive, static_cast<zip_uint64_t>(index),
                                        shrinks ? ZIP_CM_DEFLATE : ZIP_CM_STORE, 0) == 0;
    }

    bool NoteRead(std::uint64_t inBytes)
    {
        mDone += inBytes;
        return mProgress == nullptr || mProgress(mContext, mDone, mTotal);
    }

    const Path mFolder;
    const ZipFile::Progress mProgress;
    void* const mContext;
    std::uint64_t mDone = 0;
    std::uint64_t mTotal = 0;
};

}  // namespace

ZipFile::ZipFile(Path inFile, std::string inPassword) : mFile(std::move(inFile)), mPassword(std::move(inPassword)) {}

bool ZipFile::HasPassword() const
{
    if (mPassword.empty()) return false;
    noxcore::logging::LogError("noxstorage", "ZipFile: archives with a password are not supported", {{"path", mFile}});
    return true;
}

bool ZipFile::Zip(const Path& inFolder, Progress inProgress, void* inContext)
{
    if (HasPassword()) return false;
    noxcore::filesupport::Dir::RemoveStaleTemporaries(Path(ParentFolder(mFile)), noxcore::filesupport::BaseName(mFile));
    const Path beside = mFile + "." + noxcore::utility::Guid::CreateUnique().Text() + ".tmp";
    std::string failure = Packing(inFolder, inProgress, inContext).WriteTo(beside);
    if (failure.empty() && (!Files().Rename(beside, mFile) || !Files().SyncDirectory(Path(ParentFolder(mFile))))) {
        failure = "The archive cannot be put in its place";
    }
    if (failure.empty()) return true;
    Files().DeleteFile(beside);
    noxcore::logging::LogError("noxstorage", "ZipFile: cannot pack",
                               {{"path", mFile}, {"folder", inFolder}, {"error", failure}});
    return false;
}

}  // namespace noxstorage

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <set>
#include <utility>

#include "Platform/noxcore/FileSupport.h"
#include "Tests/Support/FaultVfs.h"

namespace testing_support {

namespace {

using noxcore::filesupport::ParentFolder;

constexpr std::size_t kSector = 512;

using Chance = std::mt19937_64;

void Put(std::string& ioContent, std::size_t inOffset, std::string_view inBytes)
{
    if (ioContent.size() < inOffset + inBytes.size()) ioContent.resize(inOffset + inBytes.size());
    std::copy(inBytes.begin(), inBytes.end(), ioContent.begin() + static_cast<std::ptrdiff_t>(inOffset));
}

void Apply(const FileEvent& inEvent, std::string& ioContent)
{
    if (inEvent.mOperation == FileOperation::Write) {
        Put(ioContent, static_cast<std::size_t>(inEvent.mOffset), inEvent.mBytes);
    } else if (inEvent.mOperation == FileOperation::Truncate) {
        ioContent.resize(static_cast<std::size_t>(inEvent.mOffset));
    }
}

// Each sector that the write touched is kept or lost by itself.
void ApplyTorn(const FileEvent& inEvent, std::string& ioContent, Chance& ioChance)
{
    const auto begin = static_cast<std::size_t>(inEvent.mOffset);
    const std::size_t end = begin + inEvent.mBytes.size();
    for (std::size_t from = begin; from < end;) {
        const std::size_t to = std::min(end, (from / kSector + 1) * kSector);
        if (ioChance() % 2 == 0) Put(ioContent, from, std::string_view(inEvent.mBytes).substr(from - begin, to - from));
        from = to;
    }
}

struct FileState;

/// What may or may not have happened to a file.
struct Pending
{
    const FileEvent* mEvent;
    std::shared_ptr<const FileState> mReplacement = nullptr;  ///< of a renaming: the file that takes the name over
};

/// One file on its way through the events: what is safe, and what came after.
struct FileState
{
    std::optional<std::string> mDurable;  ///< content; nothing: none was synced
    bool mNamed = false;                  ///< its folder lists it for good
    std::vector<Pending> mPending;        ///< since the last sync
};

std::optional<std::string> Survivor(const FileState& inState, Chance& ioChance)
{
    std::optional<std::string> content = inState.mDurable;
    if (content && !inState.mNamed && ioChance() % 2 == 0) return std::nullopt;
    for (const auto& [event, replacement] : inState.mPending) {
        const auto fate = ioChance() % 3;
        const bool names = event->mOperation == FileOperation::Delete || event->mOperation == FileOperation::Rename;
        // A folder keeps the order of what is done to it: with this, what a later file of the name held is lost.
        if (names && fate == 0) break;
        if (event->mOperation == FileOperation::Delete) {
            content.reset();
        } else if (replacement != nullptr) {
            content = Survivor(*replacement, ioChance).value_or(std::string());
        } else if (event->mOperation == FileOperation::Open) {
            if (!content && fate == 0) return std::nullopt;
            if (!content) content.emplace();
        } else if (fate != 0) {
            if (!content) content.emplace();
            if (fate == 1 && event->mOperation == FileOperation::Write) {
                ApplyTorn(*event, *content, ioChance);
            } else {
                Apply(*event, *content);
            }
        }
    }
    return content;
}

/// Which file has the name is settled, though not what it holds.
void SettleFile(FileState& ioState)
{
    auto& pending = ioState.mPending;
    const auto last = std::find_if(pending.rbegin(), pending.rend(), [](const Pending& inPending) {
        return inPending.mEvent->mOperation == FileOperation::Delete || inPending.mReplacement != nullptr;
    });
    if (last != pending.rend()) {
        const Pending named = *last;
        pending.erase(pending.begin(), last.base());
        ioState.mNamed = false;
        ioState.mDurable.reset();
        if (named.mReplacement != nullptr) {
            ioState.mDurable = named.mReplacement->mDurable.value_or(std::string());
            const auto& carried = named.mReplacement->mPending;
            pending.insert(pending.begin(), carried.begin(), carried.end());
        }
    }
    if (!ioState.mDurable && !pending.empty()) ioState.mDurable.emplace();
}

void SettleContent(FileState& ioState)
{
    SettleFile(ioState);
    for (const Pending& pending : ioState.mPending)
        Apply(*pending.mEvent, *ioState.mDurable);
    ioState.mPending.clear();
}

/// A sync failed: what it was to write is nowhere but in the system's memory, and the system will not write it again.
void DropWrites(FileState& ioState)
{
    std::erase_if(ioState.mPending, [](const Pending& inPending) {
        return inPending.mEvent->mOperation == FileOperation::Write ||
               inPending.mEvent->mOperation == FileOperation::Truncate;
    });
}

/// A folder with all that is below it.
struct FolderState
{
    std::map<std::string, FileState> mFiles;
    std::set<std::string> mNewFolders;  ///< that the folders above them do not list for good

    void SettleNames(std::string_view inFolder)
    {
        for (auto& [path, state] : mFiles) {
            if (ParentFolder(path) != inFolder) continue;
            SettleFile(state);
            state.mNamed = state.mDurable.has_value();
        }
        std::erase_if(mNewFolders, [&](const std::string& inPath) { return ParentFolder(inPath) == inFolder; });
    }

    void Follow(const FileEvent& inEvent)
    {
        static const FileEvent kDeletion{FileOperation::Delete, {}, 0, {}, false};
        switch (inEvent.mOperation) {
            case FileOperation::Sync:
                (inEvent.mFailed ? DropWrites : SettleContent)(mFiles[inEvent.mPath]);
                break;
            case FileOperation::SyncFolder:
                SettleNames(inEvent.mPath);
                break;
            case FileOperation::MakeFolder:
                mNewFolders.insert(inEvent.mPath);
                break;
            case FileOperation::Rename: {
                FileState& from = mFiles[inEvent.mFrom];
                // Where the new name is there, the file is, whatever became of its old name.
                const auto renamed = std::make_shared<FileState>(from);
                renamed->mNamed = true;
                if (!renamed->mDurable) renamed->mDurable.emplace();
                mFiles[inEvent.mPath].mPending.push_back({&inEvent, renamed});
                from.mPending.push_back({&kDeletion});
                break;
            }
            default:
                mFiles[inEvent.mPath].mPending.push_back({&inEvent});
        }
        if (inEvent.mFolderToo) SettleNames(ParentFolder(inEvent.mPath));
    }
};

}  // namespace

FolderImage FileRecording::AfterPowerCut(std::size_t inCount, std::uint64_t inSeed) const
{
    FolderState folder;
    for (const auto& [path, content] : mStart)
        folder.mFiles[path] = {content, true, {}};
    for (std::size_t i = 0; i < std::min(inCount, mEvents.size()); ++i) {
        folder.Follow(mEvents[i]);
    }
    Chance chance(inSeed);
    FolderImage image;
    for (const auto& [path, state] : folder.mFiles) {
        if (auto content = Survivor(state, chance)) image[path] = std::move(*content);
    }
    for (const std::string& lost : folder.mNewFolders) {
        if (chance() % 2 == 0) continue;
        std::erase_if(image, [&](const auto& inFile) { return inFile.first.starts_with(lost + "/"); });
    }
    return image;
}

FolderImage FileRecording::AfterKill(std::size_t inCount) const
{
    FolderImage image = mStart;
    for (std::size_t i = 0; i < std::min(inCount, mEvents.size()); ++i) {
        const FileEvent& event = mEvents[i];
        switch (event.mOperation) {
            case FileOperation::Delete:
                image.erase(event.mPath);
                break;
            case FileOperation::Rename:
                image[event.mPath] = std::move(image[event.mFrom]);
                image.erase(event.mFrom);
                break;
            case FileOperation::Open:
            case FileOperation::Write:
            case FileOperation::Truncate:
                Apply(event, image[event.mPath]);
                break;
            default:
                break;
        }
    }
    return image;
}

FolderImage ReadFolderImage(const std::string& inFolder)
{
    FolderImage image;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(inFolder)) {
        const std::string path = std::filesystem::relative(entry.path(), inFolder).string();
        if (!entry.is_regular_file() || path.ends_with("-shm")) continue;
        std::ifstream file(entry.path(), std::ios::binary);
        image[path].assign(std::istreambuf_iterator<char>(file), {});
    }
    return image;
}

void WriteFolderImage(const FolderImage& inImage, const std::string& inFolder)
{
    std::filesystem::remove_all(inFolder);
    std::filesystem::create_directories(inFolder);
    for (const auto& [path, content] : inImage) {
        const std::filesystem::path file = std::filesystem::path(inFolder) / path;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
    }
}

}  // namespace testing_support

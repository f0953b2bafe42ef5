#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <utility>

#include "Tests/Support/FaultVfs.h"

namespace testing_support {

namespace {

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

/// One file on its way through the events: what is safe, and what came after.
struct FileState
{
    std::optional<std::string> mDurable;     ///< nothing: the file may not be there after a power cut
    std::vector<const FileEvent*> mPending;  ///< since the last sync
};

std::optional<std::string> Survivor(const FileState& inState, Chance& ioChance)
{
    if (!inState.mDurable && ioChance() % 2 == 0) return std::nullopt;
    std::optional<std::string> content = inState.mDurable.value_or(std::string());
    for (const FileEvent* event : inState.mPending) {
        const auto fate = ioChance() % 3;
        if (event->mOperation == FileOperation::Delete) {
            // A folder keeps the order of what is done to it: with the deletion a later file of that name is lost.
            if (fate == 0) break;
            content.reset();
            continue;
        }
        if (fate == 0) continue;
        if (!content) content.emplace();
        if (fate == 1 && event->mOperation == FileOperation::Write) {
            ApplyTorn(*event, *content, ioChance);
        } else {
            Apply(*event, *content);
        }
    }
    return content;
}

// The folder was synced: which files there are is settled, though not what they hold.
void SettleExistence(FileState& ioState)
{
    auto& pending = ioState.mPending;
    const auto lastDeletion = std::find_if(pending.rbegin(), pending.rend(), [](const FileEvent* inEvent) {
        return inEvent->mOperation == FileOperation::Delete;
    });
    if (lastDeletion != pending.rend()) {
        pending.erase(pending.begin(), lastDeletion.base());
        ioState.mDurable.reset();
    }
    if (!ioState.mDurable && !pending.empty()) ioState.mDurable.emplace();
}

void SettleContent(FileState& ioState)
{
    SettleExistence(ioState);
    for (const FileEvent* event : ioState.mPending)
        Apply(*event, *ioState.mDurable);
    ioState.mPending.clear();
}

void Follow(const FileEvent& inEvent, std::map<std::string, FileState>& ioStates)
{
    if (inEvent.mOperation == FileOperation::Sync) {
        SettleContent(ioStates[inEvent.mPath]);
    } else {
        ioStates[inEvent.mPath].mPending.push_back(&inEvent);
    }
    if (inEvent.mFolderToo) {
        for (auto& [path, state] : ioStates)
            SettleExistence(state);
    }
}

}  // namespace

FolderImage FileRecording::AfterPowerCut(std::size_t inCount, std::uint64_t inSeed) const
{
    std::map<std::string, FileState> states;
    for (const auto& [path, content] : mStart)
        states[path].mDurable = content;
    for (std::size_t i = 0; i < std::min(inCount, mEvents.size()); ++i) {
        Follow(mEvents[i], states);
    }
    Chance chance(inSeed);
    FolderImage image;
    for (const auto& [path, state] : states) {
        if (auto content = Survivor(state, chance)) image[path] = std::move(*content);
    }
    return image;
}

FolderImage FileRecording::AfterKill(std::size_t inCount) const
{
    FolderImage image = mStart;
    for (std::size_t i = 0; i < std::min(inCount, mEvents.size()); ++i) {
        if (mEvents[i].mOperation == FileOperation::Delete) {
            image.erase(mEvents[i].mPath);
        } else {
            Apply(mEvents[i], image[mEvents[i].mPath]);
        }
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

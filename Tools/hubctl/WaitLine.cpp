#include "Tools/hubctl/WaitLine.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <utility>

namespace hubctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kStep{150};
constexpr std::chrono::milliseconds kWorthALine{400};  ///< most requests are answered before

}  // namespace

WaitLine::WaitLine(ProgressBar& inBar, std::string inLabel, std::string inFile)
    : mBar(inBar), mLabel(std::move(inLabel)), mFile(std::move(inFile))
{
    if (mBar.IsEnabled()) mThread = std::thread([this] { Run(); });
}

WaitLine::~WaitLine()
{
    {
        const std::lock_guard lock(mMutex);
        mIsOver = true;
    }
    mEnd.notify_all();
    if (mThread.joinable()) mThread.join();
    mBar.Clear();
}

void WaitLine::Run()
{
    const auto start = Clock::now();
    std::unique_lock lock(mMutex);
    std::size_t step = 0;
    for (auto wait = kWorthALine; !mEnd.wait_for(lock, wait, [this] { return mIsOver; }); wait = kStep) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start).count();
        mBar.ShowBusy(mLabel, step++, static_cast<std::uint64_t>(seconds), BytesOfFileInTheMaking(mFile));
    }
}

std::uint64_t BytesOfFileInTheMaking(const std::string& inFile)
{
    namespace fs = std::filesystem;
    if (inFile.empty()) return 0;
    const fs::path path(inFile);
    const std::string name = path.filename().string();
    std::uint64_t bytes = 0;
    std::uint64_t ofPlace = 0;
    std::error_code error;
    for (fs::directory_iterator entry(path.parent_path(), error), end; !error && entry != end; entry.increment(error)) {
        const std::string found = entry->path().filename().string();
        std::error_code ignored;
        if (!found.starts_with(name) || !entry->is_regular_file(ignored)) continue;
        const std::uint64_t size = entry->file_size(ignored);
        if (ignored) continue;  // gone meanwhile
        (found == name ? ofPlace : bytes) += size;
    }
    // What lies in the place while something is built beside it is to go.
    return bytes != 0 ? bytes : ofPlace;
}

}  // namespace hubctl

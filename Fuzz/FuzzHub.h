#pragma once

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <string_view>

#include "Client/VYClient/Environment.h"
#include "Platform/noxcore/Clock.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"

/// What a fuzz target needs that works on files: a hub with a home of its own, whose log is only looked at, and a
/// folder that is empty before each input.
namespace fuzzing {

namespace fs = std::filesystem;

/// Keeps no more of the log than how much of it there was.
class CountingLog final : public noxcore::logging::Sink
{
public:
    void Write(const noxcore::logging::Record&) override { ++mRecords; }
    std::atomic<std::size_t> mRecords = 0;
};

/// What is made by chance or by the clock is the same in each run, so that an input that fails can be tried again.
class FixedClock final : public noxcore::Clock
{
public:
    std::int64_t NowTicks() override { return 17000000000000000; }
    std::int64_t MonotonicTicks() override { return ++mTicks; }

private:
    std::atomic<std::int64_t> mTicks = 0;
};

class FixedRandom final : public noxcore::RandomSource
{
public:
    void Fill(std::span<std::uint8_t> outBytes) override
    {
        const std::lock_guard lock(mMutex);
        for (std::uint8_t& byte : outBytes)
            byte = static_cast<std::uint8_t>(mGenerator());
    }

private:
    std::mutex mMutex;
    std::mt19937_64 mGenerator{1};
};

inline std::string MakeRoot()
{
    std::string path = "/tmp/hub-fuzz-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) std::abort();
    return path;
}

/// Stays until the process ends: the fuzzer calls from a thread that outlives what is static.
class FuzzHub
{
public:
    FuzzHub()
    {
        static const std::string root = mRoot;
        std::atexit([] { fs::remove_all(root); });
        mContext->SetLog(mLog);
        mContext->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(
            mRoot, std::map<std::string, std::string, std::less<>>{{"TMPDIR", mRoot + "/tmp"}}));
        fs::create_directories(mRoot + "/tmp");
    }
    FuzzHub(const FuzzHub&) = delete;
    FuzzHub& operator=(const FuzzHub&) = delete;

    /// Empties the folder and puts the input into a file there.
    std::string Begin(const std::string& inName, std::string_view inBytes)
    {
        fs::remove_all(Folder());
        fs::create_directories(Folder());
        mLog->mRecords = 0;
        std::ofstream(Folder() + "/" + inName, std::ios::binary)
            .write(inBytes.data(), static_cast<std::streamsize>(inBytes.size()));
        return Folder() + "/" + inName;
    }
    [[nodiscard]] std::string Folder() const { return mRoot + "/input"; }
    [[nodiscard]] const std::string& Root() const { return mRoot; }
    [[nodiscard]] std::size_t LogRecords() const { return mLog->mRecords; }

private:
    const std::string mRoot = MakeRoot();
    const std::shared_ptr<CountingLog> mLog = std::make_shared<CountingLog>();
    /// Nothing is pressed onto the disk: that takes long, and nobody cuts the power.
    const std::shared_ptr<noxcore::HubContext> mContext =
        noxcore::HubContext::Create({std::make_shared<FixedClock>(), std::make_shared<FixedRandom>(), nullptr,
                                     noxcore::filesupport::MakeFileSystem([](int) { return 0; }), nullptr});
    const noxcore::HubContext::Scope mScope{mContext};
};

inline std::string ReadWhole(const std::string& inFile)
{
    std::ifstream file(inFile, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace fuzzing

#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "Tests/Support/FaultFiles.h"

namespace testing_support {

/// Files on volumes of the test's choosing, which counts how often their free space was asked for.
///
/// Stricter than a system: who asks for the space of anything but a volume fails the test.
class VolumeFiles final : public FaultFiles
{
public:
    struct Volume
    {
        std::optional<std::uint64_t> mFree;  ///< none: it cannot be told
        unsigned mAsked = 0;
        bool mThrows = false;
        std::function<void()> mMeanwhile;  ///< happens once, between the look and what is made of it
    };

    bool GetVolumePath(const Path& inPath, Path& outVolume) override
    {
        for (const auto& [folder, volume] : mVolumes) {
            if (!inPath.starts_with(folder)) continue;
            outVolume = folder;
            return true;
        }
        return false;
    }

    bool GetVolumeFreeSpace(const Path& inPath, std::uint64_t& outBytes) override
    {
        const auto found = mVolumes.find(inPath);
        if (found == mVolumes.end()) {
            ADD_FAILURE() << inPath << " is no volume";
            return false;
        }
        ++found->second.mAsked;
        if (found->second.mThrows) throw std::runtime_error("no such disk");
        const auto free = found->second.mFree;
        if (const auto meanwhile = std::exchange(found->second.mMeanwhile, nullptr)) meanwhile();
        outBytes = free.value_or(0);
        return free.has_value();
    }

    std::map<Path, Volume> mVolumes;  ///< mount point -> volume
};

}  // namespace testing_support

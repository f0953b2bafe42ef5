#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxstorage/ZipFile.h"
#include "Tests/Support/FaultFiles.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/VirtualHub.h"

namespace testing_support {

/// Real files, on a volume whose free space the test may choose.
class RoomyFiles final : public FaultFiles
{
public:
    bool GetVolumeFreeSpace(const Path& inPath, std::uint64_t& outBytes) override
    {
        if (!FaultFiles::GetVolumeFreeSpace(inPath, outBytes)) return false;
        if (mFree != 0) outBytes = mFree;
        return true;
    }
    std::uint64_t mFree = 0;  ///< 0: what there is
};

/// A folder to work in, whose files fail when the test says so.
class ZipFixture : public testing::Test
{
protected:
    ZipFixture() { mFiles->ReportTo(mVfs.get()); }
    ~ZipFixture() override
    {
        mFiles->ReportTo(nullptr);
        mVfs.reset();
    }

    [[nodiscard]] std::string In(std::string_view inName) const { return mFolder / inName; }
    bool Zip(const std::string& inFolder, const std::string& inFile)
    {
        return noxstorage::ZipFile(inFile, {}).Zip(inFolder, nullptr, nullptr);
    }
    bool UnZip(const std::string& inFile, const std::string& inFolder, bool inReplace = false)
    {
        return noxstorage::ZipFile(inFile, {}).UnZip(inFolder, inReplace);
    }
    /// What a failed unpacking gave as its reason.
    [[nodiscard]] std::string Reason() const
    {
        const auto records = mLog->Find("ZipFile: cannot unpack");
        return records.empty() ? std::string() : std::string(records.back().Value("error"));
    }
    /// Names of all that lies in the working folder itself.
    [[nodiscard]] std::set<std::string> Names() const
    {
        std::vector<noxcore::filesupport::DirectoryEntry> entries;
        noxcore::filesupport::Files().ListDirectory(mFolder.Path(), entries);
        std::set<std::string> names;
        for (const auto& entry : entries)
            names.insert(entry.mName);
        return names;
    }

    const TempFolder mFolder;
    const std::shared_ptr<VirtualScheduler> mScheduler = std::make_shared<VirtualScheduler>(TestSeed());
    const std::shared_ptr<LogCapture> mLog = std::make_shared<LogCapture>();
    const std::shared_ptr<RoomyFiles> mFiles = std::make_shared<RoomyFiles>();
    const std::shared_ptr<noxcore::HubContext> mContext = mScheduler->MakeContext(mLog, mFiles);
    const noxcore::HubContext::Scope mScope{mContext};
    std::unique_ptr<FaultVfs> mVfs = std::make_unique<FaultVfs>(mContext);
};

}  // namespace testing_support

#pragma once

#include <cstdlib>
#include <memory>
#include <string>

#include "Platform/noxcore/FileSupport.h"

namespace testing_support {

/// A folder of its own for one test, removed with all it holds.
class TempFolder
{
public:
    TempFolder() : mPath("/tmp/hub-test-XXXXXX")
    {
        // Not named by a Guid: two programs that run under the same seed would share the folder.
        if (mkdtemp(mPath.data()) == nullptr) std::abort();
    }
    ~TempFolder() { mFiles->DeleteDirectory(mPath); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    [[nodiscard]] const std::string& Path() const { return mPath; }
    [[nodiscard]] std::string operator/(std::string_view inName) const
    {
        return noxcore::filesupport::Join(mPath, inName);
    }

private:
    /// Real files always, whatever the test puts into its context.
    std::shared_ptr<noxcore::filesupport::FileSystem> mFiles = noxcore::filesupport::MakeFileSystem();
    std::string mPath;
};

}  // namespace testing_support

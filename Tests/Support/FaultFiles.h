#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Platform/noxcore/FileSupport.h"

namespace testing_support {

class FaultVfs;

/// Plain files and folders that fail and are recorded together with the databases, in one sequence with them.
///
/// Works on the real files. Nothing is pressed onto the disk: a test's machine does not lose its power.
/// Threading: any thread, once ReportTo was called.
class FaultFiles : public noxcore::filesupport::FileSystem
{
public:
    using Path = noxcore::filesupport::Path;

    /// Who counts the operations, lets them fail and records them; null, as at first: nobody.
    void ReportTo(FaultVfs* inVfs) { mVfs = inVfs; }

    bool ReadFile(const Path& inPath, std::string& outContent) override;
    std::unique_ptr<noxcore::filesupport::FileReader> OpenFile(const Path& inPath) override;
    std::unique_ptr<noxcore::filesupport::FileWriter> CreateFile(const Path& inPath) override;
    bool WriteNewFile(const Path& inPath, std::string_view inContent) override;
    bool MakeDirectory(const Path& inPath) override;
    bool DirectoryExists(const Path& inPath) override;
    bool FileExists(const Path& inPath) override;
    bool ListDirectory(const Path& inPath, std::vector<noxcore::filesupport::DirectoryEntry>& outEntries) override;
    bool DeleteFile(const Path& inPath) override;
    bool DeleteEmptyDirectory(const Path& inPath) override;
    bool DeleteDirectory(const Path& inPath) override;
    bool Rename(const Path& inFrom, const Path& inTo) override;
    bool RenameUnlessTaken(const Path& inFrom, const Path& inTo) override;
    bool SyncDirectory(const Path& inPath) override;
    bool IsReadOnly(const Path& inPath) override;
    std::uint64_t Size(const Path& inPath) override;
    bool ModifiedTime(const Path& inPath, std::int64_t& outTicks) override;
    bool GetVolumeFreeSpace(const Path& inPath, std::uint64_t& outBytes) override;
    bool GetVolumePath(const Path& inPath, Path& outVolume) override;
    std::shared_ptr<noxcore::filesupport::FileLock> TryLock(const Path& inPath, bool& outHeldElsewhere) override;

private:
    using FileSystem = noxcore::filesupport::FileSystem;
    bool MakeRename(bool (FileSystem::*inRenaming)(const Path&, const Path&), const Path& inFrom, const Path& inTo);
    bool MayLook(const Path& inPath);
    /// Removes the first so many files below a folder, in the order of their names.
    void DeleteFilesBelow(const Path& inPath, bool inAll);

    const std::shared_ptr<FileSystem> mReal = noxcore::filesupport::MakeFileSystem();
    FaultVfs* mVfs = nullptr;
};

}  // namespace testing_support

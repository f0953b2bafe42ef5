#include "Tests/Support/FaultFiles.h"

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "Tests/Support/FaultVfs.h"

namespace testing_support {

namespace {

namespace fs = std::filesystem;
using noxcore::filesupport::DirectoryEntry;

/// As SQLite names its files, so that both lie in the recorded folder.
std::string FullPath(const std::string& inPath)
{
    std::error_code ignored;
    return fs::weakly_canonical(inPath, ignored).string();
}

FaultVfs::Verdict Judge(FaultVfs* inVfs, FileOperation inOperation, const std::string& inPath)
{
    return inVfs != nullptr ? inVfs->Judge(inOperation, inPath) : FaultVfs::Verdict();
}

void Record(FaultVfs* inVfs, FileOperation inOperation, const std::string& inPath, std::string inBytes = {},
            std::string inFrom = {})
{
    if (inVfs != nullptr) inVfs->Record({inOperation, inPath, 0, std::move(inBytes), false, std::move(inFrom)});
}

/// Each piece that is read may fail.
class FaultReader final : public noxcore::filesupport::FileReader
{
public:
    FaultReader(FaultVfs* inVfs, std::string inPath, std::unique_ptr<FileReader> inReal)
        : mVfs(inVfs), mPath(std::move(inPath)), mReal(std::move(inReal))
    {
    }
    bool ReadAt(std::uint64_t inPlace, std::size_t inSize, char* outBytes, std::size_t& outRead) override
    {
        return Judge(mVfs, FileOperation::ReadPlain, mPath).mCode == 0 &&
               mReal->ReadAt(inPlace, inSize, outBytes, outRead);
    }
    [[nodiscard]] std::uint64_t Size() const override { return mReal->Size(); }

private:
    FaultVfs* const mVfs;
    const std::string mPath;
    const std::unique_ptr<FileReader> mReal;
};

/// Each piece that is written may fail or reach the file in part, and so may the sync.
class FaultWriter final : public noxcore::filesupport::FileWriter
{
public:
    FaultWriter(FaultVfs* inVfs, std::string inPath, std::unique_ptr<FileWriter> inReal)
        : mVfs(inVfs), mPath(std::move(inPath)), mReal(std::move(inReal))
    {
    }
    bool WriteAt(std::uint64_t inPlace, std::string_view inBytes) override
    {
        const auto verdict = Judge(mVfs, FileOperation::WritePlain, mPath);
        const std::string_view passing = inBytes.substr(0, verdict.Passing(inBytes.size()));
        if (!passing.empty() && !mReal->WriteAt(inPlace, passing)) return false;
        if (!passing.empty() && mVfs != nullptr) {
            mVfs->Record({FileOperation::Write, mPath, static_cast<std::int64_t>(inPlace), std::string(passing)});
        }
        return verdict.mCode == 0;
    }
    bool Sync() override
    {
        const bool fails = Judge(mVfs, FileOperation::Sync, mPath).mCode != 0;
        if (mVfs != nullptr) mVfs->Record({FileOperation::Sync, mPath, 0, {}, false, {}, fails});
        return !fails;
    }

private:
    FaultVfs* const mVfs;
    const std::string mPath;
    const std::unique_ptr<FileWriter> mReal;
};

}  // namespace

std::unique_ptr<noxcore::filesupport::FileReader> FaultFiles::OpenFile(const Path& inPath)
{
    auto real = Judge(mVfs, FileOperation::ReadPlain, inPath).mCode == 0 ? mReal->OpenFile(inPath) : nullptr;
    return real ? std::make_unique<FaultReader>(mVfs, inPath, std::move(real)) : nullptr;
}

std::unique_ptr<noxcore::filesupport::FileWriter> FaultFiles::CreateFile(const Path& inPath)
{
    const auto verdict = Judge(mVfs, FileOperation::WritePlain, inPath);
    auto real = verdict.Happens() ? mReal->CreateFile(inPath) : nullptr;
    if (!real) return nullptr;
    const std::string path = FullPath(inPath);
    Record(mVfs, FileOperation::Open, path);
    return verdict.mCode == 0 ? std::make_unique<FaultWriter>(mVfs, path, std::move(real)) : nullptr;
}

bool FaultFiles::MayLook(const Path& inPath)
{
    return Judge(mVfs, FileOperation::Look, inPath).mCode == 0;
}

bool FaultFiles::ReadFile(const Path& inPath, std::string& outContent)
{
    return Judge(mVfs, FileOperation::ReadPlain, inPath).mCode == 0 && mReal->ReadFile(inPath, outContent);
}

bool FaultFiles::WriteNewFile(const Path& inPath, std::string_view inContent)
{
    const auto verdict = Judge(mVfs, FileOperation::WritePlain, inPath);
    // On a full disk there is still room for the name.
    if (!verdict.Happens() && verdict.mCode != SQLITE_FULL) return false;
    std::error_code error;
    if (fs::exists(inPath, error) || error) return false;
    const std::string_view passing = inContent.substr(0, verdict.Passing(inContent.size()));
    std::ofstream file(inPath, std::ios::binary);
    if (!file.write(passing.data(), static_cast<std::streamsize>(passing.size())).flush()) return false;
    const std::string path = FullPath(inPath);
    Record(mVfs, FileOperation::Open, path);
    if (!passing.empty()) Record(mVfs, FileOperation::Write, path, std::string(passing));
    if (verdict.mCode != 0) return false;
    Record(mVfs, FileOperation::Sync, path);
    return true;
}

bool FaultFiles::MakeDirectory(const Path& inPath)
{
    const auto verdict = Judge(mVfs, FileOperation::MakeFolder, inPath);
    if (!verdict.Happens()) return false;
    const bool isNew = !mReal->DirectoryExists(inPath);
    if (!mReal->MakeDirectory(inPath)) return false;
    if (isNew) Record(mVfs, FileOperation::MakeFolder, FullPath(inPath));
    return verdict.mCode == 0;
}

bool FaultFiles::DirectoryExists(const Path& inPath)
{
    return MayLook(inPath) && mReal->DirectoryExists(inPath);
}

bool FaultFiles::FileExists(const Path& inPath)
{
    return MayLook(inPath) && mReal->FileExists(inPath);
}

bool FaultFiles::ListDirectory(const Path& inPath, std::vector<DirectoryEntry>& outEntries)
{
    return MayLook(inPath) && mReal->ListDirectory(inPath, outEntries);
}

bool FaultFiles::DeleteFile(const Path& inPath)
{
    const auto verdict = Judge(mVfs, FileOperation::DeletePlain, inPath);
    const std::string path = FullPath(inPath);
    if (!verdict.Happens() || !mReal->DeleteFile(inPath)) return false;
    Record(mVfs, FileOperation::Delete, path);
    return verdict.mCode == 0;
}

void FaultFiles::DeleteFilesBelow(const Path& inPath, bool inAll)
{
    std::vector<std::string> files;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(inPath, error), end; !error && entry != end; entry.increment(error)) {
        if (!entry->is_directory(error)) files.push_back(entry->path().string());
    }
    std::sort(files.begin(), files.end());
    if (!inAll) files.resize(files.size() / 2);
    for (const std::string& file : files) {
        const std::string path = FullPath(file);
        if (mReal->DeleteFile(file)) Record(mVfs, FileOperation::Delete, path);
    }
}

bool FaultFiles::DeleteEmptyDirectory(const Path& inPath)
{
    const auto verdict = Judge(mVfs, FileOperation::DeleteFolder, inPath);
    return verdict.Happens() && mReal->DeleteEmptyDirectory(inPath) && verdict.mCode == 0;
}

bool FaultFiles::DeleteDirectory(const Path& inPath)
{
    const auto verdict = Judge(mVfs, FileOperation::DeleteFolder, inPath);
    if (verdict.Happens()) DeleteFilesBelow(inPath, verdict.mCode == 0);
    return verdict.mCode == 0 && mReal->DeleteDirectory(inPath);
}

bool FaultFiles::Rename(const Path& inFrom, const Path& inTo)
{
    return MakeRename(&FileSystem::Rename, inFrom, inTo);
}

bool FaultFiles::RenameUnlessTaken(const Path& inFrom, const Path& inTo)
{
    return MakeRename(&FileSystem::RenameUnlessTaken, inFrom, inTo);
}

bool FaultFiles::MakeRename(bool (FileSystem::*inRenaming)(const Path&, const Path&), const Path& inFrom,
                            const Path& inTo)
{
    const auto verdict = Judge(mVfs, FileOperation::Rename, inTo);
    const std::string from = FullPath(inFrom);
    if (!verdict.Happens() || !((*mReal).*inRenaming)(inFrom, inTo)) return false;
    Record(mVfs, FileOperation::Rename, FullPath(inTo), {}, from);
    return verdict.mCode == 0;
}

bool FaultFiles::SyncDirectory(const Path& inPath)
{
    const auto verdict = Judge(mVfs, FileOperation::SyncFolder, inPath);
    if (!verdict.Happens() || !mReal->DirectoryExists(inPath)) return false;
    Record(mVfs, FileOperation::SyncFolder, FullPath(inPath));
    return verdict.mCode == 0;
}

bool FaultFiles::IsReadOnly(const Path& inPath)
{
    return !MayLook(inPath) || mReal->IsReadOnly(inPath);
}

std::uint64_t FaultFiles::Size(const Path& inPath)
{
    return MayLook(inPath) ? mReal->Size(inPath) : 0;
}

bool FaultFiles::ModifiedTime(const Path& inPath, std::int64_t& outTicks)
{
    return MayLook(inPath) && mReal->ModifiedTime(inPath, outTicks);
}

bool FaultFiles::GetVolumeFreeSpace(const Path& inPath, std::uint64_t& outBytes)
{
    return MayLook(inPath) && mReal->GetVolumeFreeSpace(inPath, outBytes);
}

bool FaultFiles::GetVolumePath(const Path& inPath, Path& outVolume)
{
    return MayLook(inPath) && mReal->GetVolumePath(inPath, outVolume);
}

std::shared_ptr<noxcore::filesupport::FileLock> FaultFiles::TryLock(const Path& inPath, bool& outHeldElsewhere)
{
    outHeldElsewhere = false;
    return MayLook(inPath) ? mReal->TryLock(inPath, outHeldElsewhere) : nullptr;
}

}  // namespace testing_support

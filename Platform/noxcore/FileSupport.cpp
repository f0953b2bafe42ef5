#include "Platform/noxcore/FileSupport.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <algorithm>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace noxcore::filesupport {

namespace {

namespace fs = std::filesystem;

class Descriptor
{
public:
    Descriptor(const Path& inPath, int inFlags, mode_t inMode = 0)
        : mValue(open(inPath.c_str(), inFlags | O_CLOEXEC, inMode))
    {
    }
    ~Descriptor()
    {
        if (mValue >= 0) close(mValue);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] bool IsOpen() const { return mValue >= 0; }
    [[nodiscard]] int Value() const { return mValue; }

private:
    int mValue;
};

class OpenFileReader final : public FileReader
{
public:
    // What is no plain file must not be waited for: a pipe without a writer would block the opening.
    explicit OpenFileReader(const Path& inPath) : mFile(inPath, O_RDONLY | O_NONBLOCK)
    {
        struct stat status = {};
        mIsPlain = mFile.IsOpen() && fstat(mFile.Value(), &status) == 0 && S_ISREG(status.st_mode);
        mSize = static_cast<std::uint64_t>(status.st_size);
    }
    [[nodiscard]] bool IsPlain() const { return mIsPlain; }
    [[nodiscard]] std::uint64_t Size() const override { return mSize; }

    bool ReadAt(std::uint64_t inPlace, std::size_t inSize, char* outBytes, std::size_t& outRead) override
    {
        outRead = 0;
        while (outRead < inSize) {
            const ssize_t got =
                pread(mFile.Value(), outBytes + outRead, inSize - outRead, static_cast<off_t>(inPlace + outRead));
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) return false;
            if (got == 0) break;
            outRead += static_cast<std::size_t>(got);
        }
        return true;
    }

private:
    const Descriptor mFile;
    bool mIsPlain = false;
    std::uint64_t mSize = 0;
};

class NewFileWriter final : public FileWriter
{
public:
    NewFileWriter(const Path& inPath, SyncCall inSync)
        : mFile(inPath, O_WRONLY | O_CREAT | O_EXCL, 0600), mSync(std::move(inSync))
    {
    }
    [[nodiscard]] bool IsOpen() const { return mFile.IsOpen(); }

    bool WriteAt(std::uint64_t inPlace, std::string_view inBytes) override
    {
        while (!inBytes.empty()) {
            const ssize_t written = pwrite(mFile.Value(), inBytes.data(), inBytes.size(), static_cast<off_t>(inPlace));
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) return false;
            inPlace += static_cast<std::uint64_t>(written);
            inBytes.remove_prefix(static_cast<std::size_t>(written));
        }
        return true;
    }
    bool Sync() override { return mSync(mFile.Value()) == 0; }

private:
    const Descriptor mFile;
    const SyncCall mSync;
};

bool WriteAll(int inDescriptor, std::string_view inContent)
{
    while (!inContent.empty()) {
        const ssize_t written = write(inDescriptor, inContent.data(), inContent.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        inContent.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

bool ReadAll(int inDescriptor, std::string& outContent)
{
    char buffer[16384];
    outContent.clear();
    for (;;) {
        const ssize_t got = read(inDescriptor, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        outContent.append(buffer, static_cast<std::size_t>(got));
    }
}

class HeldLock final : public FileLock
{
public:
    explicit HeldLock(const Path& inPath) : mFile(inPath, O_RDWR | O_CREAT, 0600) {}
    [[nodiscard]] bool IsOpen() const { return mFile.IsOpen(); }
    bool Take() { return mFile.IsOpen() && flock(mFile.Value(), LOCK_EX | LOCK_NB) == 0; }

private:
    Descriptor mFile;
};

/// Gives the owner of everything below a folder the right to write it, so that it can be removed.
void MakeWritable(const fs::path& inFolder)
{
    std::error_code ignored;
    fs::permissions(inFolder, fs::perms::owner_all, fs::perm_options::add, ignored);
    const auto options = fs::directory_options::skip_permission_denied;
    for (fs::recursive_directory_iterator entry(inFolder, options, ignored), end; entry != end && !ignored;
         entry.increment(ignored)) {
        if (entry->is_symlink(ignored)) continue;
        fs::permissions(entry->path(), fs::perms::owner_write, fs::perm_options::add, ignored);
    }
}

/// The volumes that cannot sync folders, as some that lie in user space or on another machine. Each is told of once.
class VolumesWithoutFolderSync
{
public:
    void Note(int inFolder, const Path& inPath)
    {
        struct stat status = {};
        if (fstat(inFolder, &status) != 0) return;
        const threads::ScopedLock lock(mMutex);
        if (!mDevices.insert(status.st_dev).second) return;
        logging::LogWarning("noxcore",
                            "A volume cannot sync folders: what a power cut leaves of their names is its own",
                            {{"path", inPath}});
    }

private:
    threads::RecursiveMutex mMutex{threads::LockRank::None};
    std::set<dev_t> mDevices GUARDED_BY(mMutex);
};

class SystemFileSystem final : public FileSystem
{
public:
    explicit SystemFileSystem(SyncCall inSync) : mSync(std::move(inSync)) {}

    bool ReadFile(const Path& inPath, std::string& outContent) override
    {
        const Descriptor file(inPath, O_RDONLY);
        return file.IsOpen() && ReadAll(file.Value(), outContent);
    }

    std::unique_ptr<FileReader> OpenFile(const Path& inPath) override
    {
        auto file = std::make_unique<OpenFileReader>(inPath);
        return file->IsPlain() ? std::move(file) : nullptr;
    }

    std::unique_ptr<FileWriter> CreateFile(const Path& inPath) override
    {
        auto file = std::make_unique<NewFileWriter>(inPath, mSync);
        return file->IsOpen() ? std::move(file) : nullptr;
    }

    bool WriteNewFile(const Path& inPath, std::string_view inContent) override
    {
        const Descriptor file(inPath, O_WRONLY | O_CREAT | O_EXCL, 0600);
        return file.IsOpen() && WriteAll(file.Value(), inContent) && mSync(file.Value()) == 0;
    }

    bool MakeDirectory(const Path& inPath) override
    {
        if (mkdir(inPath.c_str(), 0700) == 0) return true;
        // What lies there may also be no folder.
        return errno == EEXIST && DirectoryExists(inPath);
    }

    bool DirectoryExists(const Path& inPath) override
    {
        std::error_code error;
        return fs::is_directory(inPath, error);
    }

    bool FileExists(const Path& inPath) override
    {
        std::error_code error;
        return fs::is_regular_file(inPath, error);
    }

    bool ListDirectory(const Path& inPath, std::vector<DirectoryEntry>& outEntries) override
    {
        std::error_code error;
        outEntries.clear();
        for (fs::directory_iterator entry(inPath, error), end; !error && entry != end; entry.increment(error)) {
            std::error_code ignored;
            outEntries.push_back({entry->path().filename().string(), entry->is_directory(ignored)});
        }
        return !error;
    }

    bool DeleteFile(const Path& inPath) override { return unlink(inPath.c_str()) == 0; }

    bool DeleteEmptyDirectory(const Path& inPath) override { return rmdir(inPath.c_str()) == 0; }

    bool DeleteDirectory(const Path& inPath) override
    {
        std::error_code error;
        if (!fs::exists(fs::symlink_status(inPath, error))) return true;
        MakeWritable(inPath);
        fs::remove_all(inPath, error);
        return !error && !fs::exists(fs::symlink_status(inPath, error));
    }

    bool Rename(const Path& inFrom, const Path& inTo) override { return rename(inFrom.c_str(), inTo.c_str()) == 0; }

    bool RenameUnlessTaken(const Path& inFrom, const Path& inTo) override
    {
        if (renameat2(AT_FDCWD, inFrom.c_str(), AT_FDCWD, inTo.c_str(), RENAME_NOREPLACE) == 0) return true;
        // What a volume that does not offer it answers. A second name takes nobody's place either.
        if (errno != EINVAL && errno != ENOSYS) return false;
        if (link(inFrom.c_str(), inTo.c_str()) == 0) {
            if (unlink(inFrom.c_str()) == 0) return true;
            unlink(inTo.c_str());
            return false;
        }
        if (errno == EEXIST) return false;
        // Nor second names: the place is taken by an empty file, which the rename replaces.
        if (!Descriptor(inTo, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR).IsOpen()) return false;
        if (rename(inFrom.c_str(), inTo.c_str()) == 0) return true;
        unlink(inTo.c_str());
        return false;
    }

    bool SyncDirectory(const Path& inPath) override
    {
        const Descriptor folder(inPath.empty() ? "." : inPath, O_RDONLY | O_DIRECTORY);
        // A folder that may not be read fails like one that is not there: its volume may well sync it for somebody who
        // may, and nobody would find again what is put into it.
        if (!folder.IsOpen()) return false;
        if (mSync(folder.Value()) == 0) return true;
        // Offered by no volume that answers so, whatever the folder. Every other failure may have lost something.
        if (errno != EINVAL && errno != EOPNOTSUPP) return false;
        mWithoutFolderSync.Note(folder.Value(), inPath);
        return true;
    }

    bool IsReadOnly(const Path& inPath) override { return access(inPath.c_str(), W_OK) != 0; }

    std::uint64_t Size(const Path& inPath) override
    {
        std::error_code error;
        if (fs::is_regular_file(inPath, error)) return fs::file_size(inPath, error);
        std::uint64_t total = 0;
        const auto options = fs::directory_options::skip_permission_denied;
        for (fs::recursive_directory_iterator entry(inPath, options, error), end; !error && entry != end;
             entry.increment(error)) {
            std::error_code ignored;
            if (entry->is_regular_file(ignored)) total += entry->file_size(ignored);
        }
        return total;
    }

    bool ModifiedTime(const Path& inPath, std::int64_t& outTicks) override
    {
        struct stat status = {};
        if (stat(inPath.c_str(), &status) != 0) return false;
        outTicks = status.st_mtim.tv_sec * kTicksPerSecond + status.st_mtim.tv_nsec / 100;
        return true;
    }

    bool GetVolumeFreeSpace(const Path& inPath, std::uint64_t& outBytes) override
    {
        struct statvfs volume = {};
        if (statvfs(inPath.c_str(), &volume) != 0) return false;
        outBytes = static_cast<std::uint64_t>(volume.f_bavail) * volume.f_frsize;
        return true;
    }

    bool GetVolumePath(const Path& inPath, Path& outVolume) override
    {
        std::error_code error;
        fs::path place = fs::canonical(inPath, error);
        struct stat status = {};
        if (error || stat(place.c_str(), &status) != 0) return false;
        // The mount point is the highest folder that still lies on the same device.
        while (place.has_parent_path() && place != place.parent_path()) {
            struct stat above = {};
            if (stat(place.parent_path().c_str(), &above) != 0 || above.st_dev != status.st_dev) break;
            place = place.parent_path();
        }
        outVolume = place.string();
        return true;
    }

    std::shared_ptr<FileLock> TryLock(const Path& inPath, bool& outHeldElsewhere) override
    {
        const auto lock = std::make_shared<HeldLock>(inPath);
        outHeldElsewhere = false;
        if (lock->Take()) return lock;
        outHeldElsewhere = lock->IsOpen() && errno == EWOULDBLOCK;
        return nullptr;
    }

private:
    const SyncCall mSync;
    VolumesWithoutFolderSync mWithoutFolderSync;
};

}  // namespace

void Dir::RemoveStaleTemporaries(const Path& inFolder, std::string_view inName)
{
    constexpr std::string_view kEnd = ".tmp";
    constexpr std::size_t kGuidSize = 36;
    constexpr std::int64_t kDay = 24 * 3600 * kTicksPerSecond;
    const std::int64_t now = HubContext::Current()->GetClock().NowTicks();
    std::vector<DirectoryEntry> entries;
    Files().ListDirectory(inFolder, entries);
    for (const DirectoryEntry& entry : entries) {
        std::string_view name = entry.mName;
        if (!name.ends_with(kEnd) || name.size() < kEnd.size() + kGuidSize + 1) continue;
        name.remove_suffix(kEnd.size());
        const std::string_view guid = name.substr(name.size() - kGuidSize);
        name.remove_suffix(kGuidSize);
        const bool isOfName = name.ends_with('.') && (inName.empty() || name.substr(0, name.size() - 1) == inName);
        const Path path = Join(inFolder, entry.mName);
        std::int64_t modified = 0;
        if (!isOfName || !utility::Guid::FromText(guid) || !Files().ModifiedTime(path, modified) ||
            now - modified < kDay)
            continue;
        if (entry.mIsDirectory)
            Files().DeleteDirectory(path);
        else
            Files().DeleteFile(path);
    }
}

bool FileSystem::WriteFileDurably(const Path& inPath, std::string_view inContent)
{
    const Path temporary = inPath + "." + utility::Guid::CreateUnique().Text() + ".tmp";
    if (!WriteNewFile(temporary, inContent) || !Rename(temporary, inPath)) {
        DeleteFile(temporary);
        return false;
    }
    return SyncDirectory(Path(ParentFolder(inPath)));
}

bool FileSystem::EnsureDirectoryExists(const Path& inPath)
{
    if (DirectoryExists(inPath)) return true;
    const Path parent(ParentFolder(inPath));
    if (!parent.empty() && parent != inPath && !EnsureDirectoryExists(parent)) return false;
    if (!MakeDirectory(inPath)) return false;
    if (parent.empty() || SyncDirectory(parent)) return true;
    DeleteEmptyDirectory(inPath);
    return false;
}

std::shared_ptr<FileSystem> MakeFileSystem()
{
    return MakeFileSystem(fsync);
}

std::shared_ptr<FileSystem> MakeFileSystem(SyncCall inSync)
{
    return std::make_shared<SystemFileSystem>(std::move(inSync));
}

FileSystem& Files()
{
    return HubContext::Current()->GetFiles();
}

Path Join(std::string_view inFolder, std::string_view inName)
{
    Path path(inFolder);
    if (!path.empty() && path.back() != '/') path.push_back('/');
    path.append(inName);
    return path;
}

std::string_view BaseName(std::string_view inPath)
{
    const std::size_t slash = inPath.rfind('/');
    return slash == std::string_view::npos ? inPath : inPath.substr(slash + 1);
}

std::string_view ParentFolder(std::string_view inPath)
{
    const std::size_t slash = inPath.rfind('/');
    if (slash == std::string_view::npos) return {};
    return inPath.substr(0, slash == 0 ? 1 : slash);
}

namespace FileUtils {

bool IsValidFileName(std::string_view inName)
{
    constexpr std::size_t kLongestName = 255;
    constexpr std::string_view kForbidden = "/\\:*?\"<>|\x7f";
    const auto isForbidden = [&](char inLetter) {
        return static_cast<unsigned char>(inLetter) < ' ' || kForbidden.find(inLetter) != std::string_view::npos;
    };
    return !inName.empty() && inName.size() <= kLongestName && inName != "." && inName != ".." &&
           std::none_of(inName.begin(), inName.end(), isForbidden);
}

}  // namespace FileUtils

}  // namespace noxcore::filesupport

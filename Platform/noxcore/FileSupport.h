#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace noxcore::filesupport {

/// Paths are UTF-8 texts with "/" between their parts.
using Path = std::string;

struct DirectoryEntry
{
    std::string mName;
    bool mIsDirectory = false;
};

/// A lock on a file, held while the object lives; it goes with the process.
class FileLock
{
public:
    virtual ~FileLock() = default;
};

/// A file that is read in pieces. Closed with the object. Threading: one thread at a time.
class FileReader
{
public:
    virtual ~FileReader() = default;
    /// Less than was asked for only at the end of the file.
    virtual bool ReadAt(std::uint64_t inPlace, std::size_t inSize, char* outBytes, std::size_t& outRead) = 0;
    [[nodiscard]] virtual std::uint64_t Size() const = 0;
};

/// A file that is written in pieces. Closed with the object; only Sync makes its content durable. Threading: one thread
/// at a time.
class FileWriter
{
public:
    virtual ~FileWriter() = default;
    virtual bool WriteAt(std::uint64_t inPlace, std::string_view inBytes) = 0;
    virtual bool Sync() = 0;
};

/// The hub's way to plain files and folders. A test replaces it by one that fails, tears or records; what takes several
/// steps on the disk is therefore put together here, of operations that can each fail or be cut off by itself.
///
/// Results are true on success; a failure is the caller's to log, with LastError() of the same thread.
/// Threading: any thread.
class FileSystem
{
public:
    virtual ~FileSystem() = default;

    virtual bool ReadFile(const Path& inPath, std::string& outContent) = 0;
    /// Null for what is no plain file, or cannot be read.
    virtual std::unique_ptr<FileReader> OpenFile(const Path& inPath) = 0;
    /// Makes a file that is not there yet, for the owner alone. Null where that fails, or something of the name is
    /// there.
    virtual std::unique_ptr<FileWriter> CreateFile(const Path& inPath) = 0;
    /// Puts the content in place of what was there, all or nothing, durable with its folder when true is returned.
    /// After a failure it may be in place all the same.
    bool WriteFileDurably(const Path& inPath, std::string_view inContent);
    /// Makes what is missing of the path, each folder durable before the next. One that cannot be made durable is taken
    /// away again, lest the next call take it for durable.
    bool EnsureDirectoryExists(const Path& inPath);
    /// Makes a file that is not there yet and presses its content, though not its name, onto the disk. After a failure
    /// a part of it may lie there.
    virtual bool WriteNewFile(const Path& inPath, std::string_view inContent) = 0;
    /// For the owner alone. True as well when another process has made it meanwhile.
    virtual bool MakeDirectory(const Path& inPath) = 0;
    virtual bool DirectoryExists(const Path& inPath) = 0;
    virtual bool FileExists(const Path& inPath) = 0;
    virtual bool ListDirectory(const Path& inPath, std::vector<DirectoryEntry>& outEntries) = 0;
    virtual bool DeleteFile(const Path& inPath) = 0;
    virtual bool DeleteEmptyDirectory(const Path& inPath) = 0;
    /// Removes a folder with all it holds, taking read-only marks away first. True when it is gone.
    virtual bool DeleteDirectory(const Path& inPath) = 0;
    virtual bool Rename(const Path& inFrom, const Path& inTo) = 0;
    /// The same where nothing of the name is there. False with EEXIST where something is: it stays as it is.
    virtual bool RenameUnlessTaken(const Path& inFrom, const Path& inTo) = 0;
    /// Makes what a folder lists durable. True as well where its file system offers no such thing: names there are as
    /// durable as it makes them by itself.
    virtual bool SyncDirectory(const Path& inPath) = 0;
    virtual bool IsReadOnly(const Path& inPath) = 0;
    /// Bytes of a file, or of all files below a folder; 0 when there is nothing.
    virtual std::uint64_t Size(const Path& inPath) = 0;
    /// When a file was last written to: ticks of 100 ns since 1970-01-01T00:00:00Z.
    virtual bool ModifiedTime(const Path& inPath, std::int64_t& outTicks) = 0;
    virtual bool GetVolumeFreeSpace(const Path& inPath, std::uint64_t& outBytes) = 0;
    /// The mount point that holds the path.
    virtual bool GetVolumePath(const Path& inPath, Path& outVolume) = 0;
    /// Null when another process or object holds the lock (outHeldElsewhere), or the file cannot be used.
    virtual std::shared_ptr<FileLock> TryLock(const Path& inPath, bool& outHeldElsewhere) = 0;
    std::shared_ptr<FileLock> TryLock(const Path& inPath)
    {
        bool heldElsewhere = false;
        return TryLock(inPath, heldElsewhere);
    }
};

/// Presses what is open under a descriptor onto the disk. 0, or -1 with errno, like fsync.
using SyncCall = std::function<int(int inDescriptor)>;

/// The real one.
std::shared_ptr<FileSystem> MakeFileSystem();
/// The same with another way to sync.
std::shared_ptr<FileSystem> MakeFileSystem(SyncCall inSync);

/// The current context's file system.
FileSystem& Files();

/// Joins with one "/".
Path Join(std::string_view inFolder, std::string_view inName);
/// The last part of a path.
std::string_view BaseName(std::string_view inPath);
/// All but the last part.
std::string_view ParentFolder(std::string_view inPath);

namespace Dir {
/// Removes what killed processes left in a folder of files and folders that were to get a name: NAME.<guid>.tmp, of all
/// names where none is given, that nobody has written to for a day.
void RemoveStaleTemporaries(const Path& inFolder, std::string_view inName = {});

inline std::uint64_t Size(const Path& inPath)
{
    return Files().Size(inPath);
}
inline bool Delete(const Path& inPath)
{
    return Files().DeleteDirectory(inPath);
}
}  // namespace Dir

namespace FileUtils {
/// Whether every usual system takes this as the name of a file, not only ours: at most 255 bytes, none of the letters
/// that are forbidden somewhere.
bool IsValidFileName(std::string_view inName);
inline bool GetVolumeFreeSpace(const Path& inPath, std::uint64_t& outBytes)
{
    return Files().GetVolumeFreeSpace(inPath, outBytes);
}
inline bool GetVolumePath(const Path& inPath, Path& outVolume)
{
    return Files().GetVolumePath(inPath, outVolume);
}
}  // namespace FileUtils

}  // namespace noxcore::filesupport

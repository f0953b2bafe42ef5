#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/RecursiveMutex.h"

struct sqlite3_vfs;

namespace testing_support {

/// What a database does to its files, as far as it can go wrong or get lost.
enum class FileOperation : std::uint8_t
{
    Open,
    Write,
    Sync,
    Truncate,
    Delete,
    Read
};
constexpr std::size_t kFileOperations = 6;

/// Which operation goes wrong, and how.
struct FileFault
{
    FileOperation mOperation = FileOperation::Write;
    unsigned mNth = 1;               ///< counted from 1, from the moment the fault is set
    int mCode = 0;                   ///< the SQLite code that is reported, such as SQLITE_FULL
    bool mFromThenOn = false;        ///< every later one as well
    std::string mOnlyEndingIn = {};  ///< counts only files whose name ends so; empty: all
    /// Bytes of a failing write that reach the file all the same.
    std::size_t mBytesThatPass = 0;
};

/// What happened to one file, in the order it happened. Paths are relative to the recorded folder.
struct FileEvent
{
    FileOperation mOperation = FileOperation::Write;
    std::string mPath;
    std::int64_t mOffset = 0;  ///< of a write; the new size for a truncation
    std::string mBytes;        ///< of a write
    bool mFolderToo =
        false;  ///< the folder was synced with it: of a deletion, or of the first sync of a journal or log
};

/// The files of one folder by their names in it, with their contents.
using FolderImage = std::map<std::string, std::string>;

/// Everything databases did to a folder since the recording began, and what a power cut could have left of it.
///
/// What was synced stays. What was not is, piece by piece and as the seed decides, kept, lost, or kept in some of its
/// 512-byte sectors only; pieces need not be kept in the order they were written. A file that was never synced may be
/// missing as a whole, and a deletion may not have happened, unless the folder was synced since. Shared-memory files do
/// not survive: they hold nothing that must.
class FileRecording
{
public:
    [[nodiscard]] const std::vector<FileEvent>& Events() const { return mEvents; }
    /// The folder after a power cut that came after the first inCount events. The same seed gives the same image.
    [[nodiscard]] FolderImage AfterPowerCut(std::size_t inCount, std::uint64_t inSeed) const;
    /// The folder as a killed process would leave it: all of the first inCount events happened.
    [[nodiscard]] FolderImage AfterKill(std::size_t inCount) const;

private:
    friend class FaultVfs;
    FolderImage mStart;
    std::vector<FileEvent> mEvents;
};

/// Puts the files of an image into a folder, which is made. Files that are there already are removed first.
void WriteFolderImage(const FolderImage& inImage, const std::string& inFolder);

/// A SQLite VFS around the default one, for the databases of one hub. It counts what they do to their files, lets the
/// test make it fail, and can record it. Waiting for a lock takes no time through it: a busy database is asked about a
/// hundred times at once and then given up.
///
/// While it lives it is registered under a name of its own and published in its context. All databases that were
/// opened through it must be closed first.
/// Threading: any thread. mMutex guards counts, faults and the recording; it is not held over a file operation
/// (rank Leaf).
class FaultVfs
{
public:
    explicit FaultVfs(std::shared_ptr<noxcore::HubContext> inContext);
    ~FaultVfs();
    FaultVfs(const FaultVfs&) = delete;
    FaultVfs& operator=(const FaultVfs&) = delete;

    [[nodiscard]] const std::string& Name() const { return mName; }

    /// How often an operation was asked for, failed ones included.
    [[nodiscard]] unsigned Count(FileOperation inOperation) const;
    void ResetCounts();
    /// How often a lock was waited for.
    [[nodiscard]] unsigned Waits() const;

    void SetFault(FileFault inFault);
    void ClearFaults();
    /// How often a fault was reported.
    [[nodiscard]] unsigned FaultsReported() const;

    /// Records what happens below a folder from now on, starting from what lies there; that counts as durable.
    void StartRecording(const std::string& inFolder);
    /// Number of events so far: a moment that a power cut can be put at.
    [[nodiscard]] std::size_t RecordedEvents() const;
    FileRecording StopRecording();

    struct Impl;  ///< the functions that SQLite calls

private:
    struct ArmedFault
    {
        FileFault mFault;
        unsigned mSeen = 0;
    };
    /// What to do with one operation: the code to report (0: none) and how much of a write passes.
    struct Verdict
    {
        int mCode = 0;
        std::size_t mBytesThatPass = 0;
    };

    /// Whether a fault waits for a read: pages are then read one by one, not mapped.
    bool MayFailReads() const;
    Verdict Judge(FileOperation inOperation, std::string_view inPath);
    void Record(FileEvent inEvent);
    void NoteWait();

    const std::shared_ptr<noxcore::HubContext> mContext;
    std::string mName;
    std::unique_ptr<sqlite3_vfs> mVfs;

    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::array<unsigned, kFileOperations> mCounts GUARDED_BY(mMutex){};
    std::vector<ArmedFault> mFaults GUARDED_BY(mMutex);
    unsigned mFaultsReported GUARDED_BY(mMutex) = 0;
    unsigned mWaits GUARDED_BY(mMutex) = 0;
    std::string mRecordedFolder GUARDED_BY(mMutex);  ///< empty while nothing is recorded
    FileRecording mRecording GUARDED_BY(mMutex);
};

}  // namespace testing_support

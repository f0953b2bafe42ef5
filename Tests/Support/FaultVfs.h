#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/RecursiveMutex.h"

struct sqlite3_vfs;

namespace testing_support {

/// What is done to files, as far as it can go wrong or get lost: by databases, and by the hub to plain files.
enum class FileOperation : std::uint8_t
{
    Open,
    Write,
    Sync,
    Truncate,
    Delete,
    Read,
    // of plain files and folders (FaultFiles.h)
    ReadPlain,
    Look,  ///< what is there, how large, how old
    WritePlain,
    MakeFolder,
    Rename,
    DeletePlain,
    DeleteFolder,
    SyncFolder
};
constexpr std::size_t kFileOperations = 14;

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
    bool mHappensInPart = false;  ///< half of a write, all of what has no halves, is done before the error
    bool mFillsDisk = false;      ///< from then on nothing that needs room succeeds
};

/// What happened to one file, in the order it happened. Paths are relative to the recorded folder.
struct FileEvent
{
    FileOperation mOperation = FileOperation::Write;
    std::string mPath;
    std::int64_t mOffset = 0;  ///< of a write; the new size for a truncation
    std::string mBytes;        ///< of a write
    bool mFolderToo =
        false;               ///< the folder was synced with it: of a deletion, or of the first sync of a journal or log
    std::string mFrom = {};  ///< the old name, of a renaming; mPath is the new one
    bool mFailed = false;    ///< of a sync
};

/// The files of one folder by their names in it, with their contents.
using FolderImage = std::map<std::string, std::string>;

/// Everything that was done to a folder since the recording began, and what a power cut could have left of it.
///
/// What was synced stays. What was not is, piece by piece and as the seed decides, kept, lost, or kept in some of its
/// 512-byte sectors only; pieces need not be kept in the order they were written. A file that was never synced may be
/// missing as a whole, and a deletion may not have happened, unless the folder was synced since; so may a file that was
/// made, a folder, and a change of name, whatever of their content was synced. What was written before a sync that
/// failed is lost even if a later one succeeds: the system takes it for written then. Shared-memory files do not
/// survive: they hold nothing that must.
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

/// The files below a folder as they lie there now, without shared memory.
FolderImage ReadFolderImage(const std::string& inFolder);
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
    /// Calls a function before each operation of a kind, on the thread that wants it: a test may hold it up there.
    void SetHook(FileOperation inOperation, std::function<void()> inHook);
    /// How often a fault was reported.
    [[nodiscard]] unsigned FaultsReported() const;

    /// Records what happens below a folder from now on, starting from what lies there; that counts as durable.
    void StartRecording(const std::string& inFolder);
    /// Number of events so far: a moment that a power cut can be put at.
    [[nodiscard]] std::size_t RecordedEvents() const;
    FileRecording StopRecording();

    /// What to do with one operation: the code to report (0: none) and how much of it happens all the same.
    struct Verdict
    {
        int mCode = 0;
        std::size_t mBytesThatPass = 0;
        bool mHappensInPart = false;

        /// How much of a write reaches the file.
        [[nodiscard]] std::size_t Passing(std::size_t inSize) const;
        [[nodiscard]] bool Happens() const { return mCode == 0 || mHappensInPart; }
    };
    /// For what else goes to files beside the databases: counts an operation and tells what is to become of it.
    Verdict Judge(FileOperation inOperation, std::string_view inPath);
    /// Takes an event into the recording, its path in full; dropped when that is not in the recorded folder.
    void Record(FileEvent inEvent);

    struct Impl;  ///< the functions that SQLite calls

private:
    struct ArmedFault
    {
        FileFault mFault;
        unsigned mSeen = 0;
    };
    /// Whether a fault waits for a read: pages are then read one by one, not mapped.
    bool MayFailReads() const;
    void NoteWait();

    const std::shared_ptr<noxcore::HubContext> mContext;
    std::string mName;
    std::unique_ptr<sqlite3_vfs> mVfs;

    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::array<unsigned, kFileOperations> mCounts GUARDED_BY(mMutex){};
    std::vector<ArmedFault> mFaults GUARDED_BY(mMutex);
    std::array<std::function<void()>, kFileOperations> mHooks GUARDED_BY(mMutex);
    unsigned mFaultsReported GUARDED_BY(mMutex) = 0;
    bool mDiskIsFull GUARDED_BY(mMutex) = false;
    unsigned mWaits GUARDED_BY(mMutex) = 0;
    std::string mRecordedFolder GUARDED_BY(mMutex);  ///< empty while nothing is recorded
    FileRecording mRecording GUARDED_BY(mMutex);
};

}  // namespace testing_support

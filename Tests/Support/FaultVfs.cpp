#include "Tests/Support/FaultVfs.h"

#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <utility>

#include "Platform/noxstorage/SQLite.h"

namespace testing_support {

using noxcore::threads::ScopedLock;

namespace {

/// One open file: SQLite's part first, then ours; the default VFS's own file lies behind it in the same memory.
struct FaultFile
{
    sqlite3_file mBase;
    FaultVfs* mOwner;
    std::string* mPath;  ///< null for a temporary file without a name
    bool mSyncsFolder;   ///< a new journal or log: its first sync makes its name durable too

    sqlite3_file* Real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
    [[nodiscard]] std::string_view Path() const { return mPath != nullptr ? *mPath : std::string_view(); }
};
static_assert(sizeof(FaultFile) % 8 == 0, "SQLite aligns files to 8 bytes");

FaultFile& Ours(sqlite3_file* inFile)
{
    return *reinterpret_cast<FaultFile*>(inFile);
}
sqlite3_file* Real(sqlite3_file* inFile)
{
    return Ours(inFile).Real();
}
const sqlite3_io_methods& Methods(sqlite3_file* inFile)
{
    return *Real(inFile)->pMethods;
}

sqlite3_vfs* DefaultVfs()
{
    return sqlite3_vfs_find(nullptr);
}

std::atomic<unsigned> sNextName{1};

bool NeedsRoom(FileOperation inOperation)
{
    return inOperation == FileOperation::Write || inOperation == FileOperation::WritePlain ||
           inOperation == FileOperation::MakeFolder;
}

}  // namespace

/// What SQLite calls. Each function does its own part and hands on to the default VFS.
struct FaultVfs::Impl
{
    static FaultVfs& Owner(sqlite3_vfs* inVfs) { return *static_cast<FaultVfs*>(inVfs->pAppData); }

    static int Close(sqlite3_file* inFile)
    {
        const int result = Methods(inFile).xClose(Real(inFile));
        delete Ours(inFile).mPath;
        return result;
    }

    static int Read(sqlite3_file* inFile, void* outBytes, int inSize, sqlite3_int64 inOffset)
    {
        FaultFile& file = Ours(inFile);
        const Verdict verdict = file.mOwner->Judge(FileOperation::Read, file.Path());
        if (verdict.mCode != SQLITE_OK) return verdict.mCode;
        return Methods(inFile).xRead(Real(inFile), outBytes, inSize, inOffset);
    }

    static int Write(sqlite3_file* inFile, const void* inBytes, int inSize, sqlite3_int64 inOffset)
    {
        FaultFile& file = Ours(inFile);
        const Verdict verdict = file.mOwner->Judge(FileOperation::Write, file.Path());
        const std::size_t passing = verdict.Passing(static_cast<std::size_t>(inSize));
        int result = SQLITE_OK;
        if (passing > 0) {
            result = Methods(inFile).xWrite(Real(inFile), inBytes, static_cast<int>(passing), inOffset);
            if (result == SQLITE_OK) {
                file.mOwner->Record({FileOperation::Write, std::string(file.Path()), inOffset,
                                     std::string(static_cast<const char*>(inBytes), passing), false});
            }
        }
        return verdict.mCode != SQLITE_OK ? verdict.mCode : result;
    }

    static int Truncate(sqlite3_file* inFile, sqlite3_int64 inSize)
    {
        FaultFile& file = Ours(inFile);
        const Verdict verdict = file.mOwner->Judge(FileOperation::Truncate, file.Path());
        if (!verdict.Happens()) return verdict.mCode;
        const int result = Methods(inFile).xTruncate(Real(inFile), inSize);
        if (result == SQLITE_OK) {
            file.mOwner->Record({FileOperation::Truncate, std::string(file.Path()), inSize, {}, false});
        }
        return verdict.mCode != SQLITE_OK ? verdict.mCode : result;
    }

    // Nothing is pressed onto the disk: a test's machine does not lose its power, and the recording knows.
    static int Sync(sqlite3_file* inFile, int)
    {
        FaultFile& file = Ours(inFile);
        const Verdict verdict = file.mOwner->Judge(FileOperation::Sync, file.Path());
        if (!verdict.Happens()) {
            file.mOwner->Record({FileOperation::Sync, std::string(file.Path()), 0, {}, false, {}, true});
            return verdict.mCode;
        }
        file.mOwner->Record({FileOperation::Sync, std::string(file.Path()), 0, {}, file.mSyncsFolder});
        file.mSyncsFolder = false;
        return verdict.mCode;
    }

    static int FileSize(sqlite3_file* inFile, sqlite3_int64* outSize)
    {
        return Methods(inFile).xFileSize(Real(inFile), outSize);
    }
    static int Lock(sqlite3_file* inFile, int inLevel) { return Methods(inFile).xLock(Real(inFile), inLevel); }
    static int Unlock(sqlite3_file* inFile, int inLevel) { return Methods(inFile).xUnlock(Real(inFile), inLevel); }
    static int CheckReservedLock(sqlite3_file* inFile, int* outHeld)
    {
        return Methods(inFile).xCheckReservedLock(Real(inFile), outHeld);
    }

    static int FileControl(sqlite3_file* inFile, int inOperation, void* ioArgument)
    {
        // A size hint would let the file grow behind the recording; it may be refused.
        if (inOperation == SQLITE_FCNTL_SIZE_HINT) return SQLITE_NOTFOUND;
        return Methods(inFile).xFileControl(Real(inFile), inOperation, ioArgument);
    }

    static int SectorSize(sqlite3_file* inFile) { return Methods(inFile).xSectorSize(Real(inFile)); }
    static int DeviceCharacteristics(sqlite3_file* inFile)
    {
        return Methods(inFile).xDeviceCharacteristics(Real(inFile));
    }

    static int ShmMap(sqlite3_file* inFile, int inRegion, int inSize, int inExtend, void volatile** outMemory)
    {
        return Methods(inFile).xShmMap(Real(inFile), inRegion, inSize, inExtend, outMemory);
    }
    static int ShmLock(sqlite3_file* inFile, int inOffset, int inCount, int inFlags)
    {
        return Methods(inFile).xShmLock(Real(inFile), inOffset, inCount, inFlags);
    }
    static void ShmBarrier(sqlite3_file* inFile) { Methods(inFile).xShmBarrier(Real(inFile)); }
    static int ShmUnmap(sqlite3_file* inFile, int inDelete)
    {
        return Methods(inFile).xShmUnmap(Real(inFile), inDelete);
    }

    static int Fetch(sqlite3_file* inFile, sqlite3_int64 inOffset, int inSize, void** outPage)
    {
        *outPage = nullptr;
        if (Ours(inFile).mOwner->MayFailReads()) return SQLITE_OK;
        return Methods(inFile).xFetch(Real(inFile), inOffset, inSize, outPage);
    }
    static int Unfetch(sqlite3_file* inFile, sqlite3_int64 inOffset, void* inPage)
    {
        return Methods(inFile).xUnfetch(Real(inFile), inOffset, inPage);
    }

    static const sqlite3_io_methods& OurMethods()
    {
        static const sqlite3_io_methods methods = {3,
                                                   Close,
                                                   Read,
                                                   Write,
                                                   Truncate,
                                                   Sync,
                                                   FileSize,
                                                   Lock,
                                                   Unlock,
                                                   CheckReservedLock,
                                                   FileControl,
                                                   SectorSize,
                                                   DeviceCharacteristics,
                                                   ShmMap,
                                                   ShmLock,
                                                   ShmBarrier,
                                                   ShmUnmap,
                                                   Fetch,
                                                   Unfetch};
        return methods;
    }

    static int Open(sqlite3_vfs* inVfs, const char* inPath, sqlite3_file* outFile, int inFlags, int* outFlags)
    {
        FaultVfs& owner = Owner(inVfs);
        outFile->pMethods = nullptr;
        auto path = inPath != nullptr ? std::make_unique<std::string>(inPath) : nullptr;
        const Verdict verdict = owner.Judge(FileOperation::Open, path != nullptr ? *path : std::string_view());
        if (!verdict.Happens()) return verdict.mCode;
        FaultFile& file = Ours(outFile);
        std::memset(file.Real(), 0, static_cast<std::size_t>(DefaultVfs()->szOsFile));
        const int result = DefaultVfs()->xOpen(DefaultVfs(), inPath, file.Real(), inFlags, outFlags);
        // A file that failed to open has methods only where it must be closed all the same.
        if (file.Real()->pMethods == nullptr) return result;
        file.mOwner = &owner;
        file.mPath = path.release();
        constexpr int kJournals = SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_SUPER_JOURNAL | SQLITE_OPEN_WAL;
        file.mSyncsFolder = (inFlags & SQLITE_OPEN_CREATE) != 0 && (inFlags & kJournals) != 0;
        outFile->pMethods = &OurMethods();
        if (result == SQLITE_OK && (inFlags & SQLITE_OPEN_CREATE) != 0) {
            owner.Record({FileOperation::Open, std::string(file.Path()), 0, {}, false});
        }
        if (verdict.mCode == SQLITE_OK) return result;
        Close(outFile);
        outFile->pMethods = nullptr;
        return verdict.mCode;
    }

    static int Delete(sqlite3_vfs* inVfs, const char* inPath, int inSyncFolder)
    {
        FaultVfs& owner = Owner(inVfs);
        const Verdict verdict = owner.Judge(FileOperation::Delete, inPath);
        if (!verdict.Happens()) return verdict.mCode;
        const int result = DefaultVfs()->xDelete(DefaultVfs(), inPath, 0);
        if (result == SQLITE_OK) owner.Record({FileOperation::Delete, inPath, 0, {}, inSyncFolder != 0});
        return verdict.mCode != SQLITE_OK ? verdict.mCode : result;
    }

    static int Access(sqlite3_vfs*, const char* inPath, int inFlags, int* outResult)
    {
        return DefaultVfs()->xAccess(DefaultVfs(), inPath, inFlags, outResult);
    }
    static int FullPathname(sqlite3_vfs*, const char* inPath, int inSize, char* outPath)
    {
        return DefaultVfs()->xFullPathname(DefaultVfs(), inPath, inSize, outPath);
    }
    static int Randomness(sqlite3_vfs*, int inSize, char* outBytes)
    {
        return DefaultVfs()->xRandomness(DefaultVfs(), inSize, outBytes);
    }
    static int Sleep(sqlite3_vfs* inVfs, int inMicroseconds)
    {
        Owner(inVfs).NoteWait();
        return inMicroseconds;
    }
    static int CurrentTime(sqlite3_vfs*, double* outTime) { return DefaultVfs()->xCurrentTime(DefaultVfs(), outTime); }
    static int GetLastError(sqlite3_vfs*, int inSize, char* outText)
    {
        return DefaultVfs()->xGetLastError(DefaultVfs(), inSize, outText);
    }
    static int CurrentTimeInt64(sqlite3_vfs*, sqlite3_int64* outTime)
    {
        return DefaultVfs()->xCurrentTimeInt64(DefaultVfs(), outTime);
    }
};

FaultVfs::FaultVfs(std::shared_ptr<noxcore::HubContext> inContext)
    : mContext(std::move(inContext)),
      mName("fault-vfs-" + std::to_string(sNextName.fetch_add(1))),
      mVfs(std::make_unique<sqlite3_vfs>())
{
    sqlite3_initialize();
    mVfs->iVersion = 2;
    mVfs->szOsFile = static_cast<int>(sizeof(FaultFile)) + DefaultVfs()->szOsFile;
    mVfs->mxPathname = DefaultVfs()->mxPathname;
    mVfs->zName = mName.c_str();
    mVfs->pAppData = this;
    mVfs->xOpen = Impl::Open;
    mVfs->xDelete = Impl::Delete;
    mVfs->xAccess = Impl::Access;
    mVfs->xFullPathname = Impl::FullPathname;
    mVfs->xRandomness = Impl::Randomness;
    mVfs->xSleep = Impl::Sleep;
    mVfs->xCurrentTime = Impl::CurrentTime;
    mVfs->xGetLastError = Impl::GetLastError;
    mVfs->xCurrentTimeInt64 = Impl::CurrentTimeInt64;
    sqlite3_vfs_register(mVfs.get(), 0);
    mContext->SetInstance(std::make_shared<noxstorage::sqlite::VfsChoice>(noxstorage::sqlite::VfsChoice{mName}));
}

FaultVfs::~FaultVfs()
{
    mContext->SetInstance<noxstorage::sqlite::VfsChoice>(nullptr);
    sqlite3_vfs_unregister(mVfs.get());
}

unsigned FaultVfs::Count(FileOperation inOperation) const
{
    const ScopedLock lock(mMutex);
    return mCounts[static_cast<std::size_t>(inOperation)];
}

void FaultVfs::ResetCounts()
{
    const ScopedLock lock(mMutex);
    mCounts = {};
}

unsigned FaultVfs::Waits() const
{
    const ScopedLock lock(mMutex);
    return mWaits;
}

void FaultVfs::SetFault(FileFault inFault)
{
    const ScopedLock lock(mMutex);
    mFaults.push_back({std::move(inFault), 0});
}

void FaultVfs::ClearFaults()
{
    const ScopedLock lock(mMutex);
    mFaults.clear();
    mDiskIsFull = false;
}

unsigned FaultVfs::FaultsReported() const
{
    const ScopedLock lock(mMutex);
    return mFaultsReported;
}

void FaultVfs::StartRecording(const std::string& inFolder)
{
    // SQLite names its files by their real paths.
    const std::string folder = std::filesystem::canonical(inFolder).string();
    FolderImage start = ReadFolderImage(folder);
    const ScopedLock lock(mMutex);
    mRecordedFolder = folder + "/";
    mRecording = {};
    mRecording.mStart = std::move(start);
}

std::size_t FaultVfs::RecordedEvents() const
{
    const ScopedLock lock(mMutex);
    return mRecording.mEvents.size();
}

FileRecording FaultVfs::StopRecording()
{
    const ScopedLock lock(mMutex);
    mRecordedFolder.clear();
    return std::exchange(mRecording, {});
}

bool FaultVfs::MayFailReads() const
{
    const ScopedLock lock(mMutex);
    return std::any_of(mFaults.begin(), mFaults.end(),
                       [](const ArmedFault& inArmed) { return inArmed.mFault.mOperation == FileOperation::Read; });
}

std::size_t FaultVfs::Verdict::Passing(std::size_t inSize) const
{
    if (mCode == SQLITE_OK) return inSize;
    return mHappensInPart ? inSize / 2 : std::min(inSize, mBytesThatPass);
}

void FaultVfs::SetHook(FileOperation inOperation, std::function<void()> inHook)
{
    const ScopedLock lock(mMutex);
    mHooks[static_cast<std::size_t>(inOperation)] = std::move(inHook);
}

FaultVfs::Verdict FaultVfs::Judge(FileOperation inOperation, std::string_view inPath)
{
    std::function<void()> hook;
    {
        const ScopedLock lock(mMutex);
        hook = mHooks[static_cast<std::size_t>(inOperation)];
    }
    if (hook) hook();
    const ScopedLock lock(mMutex);
    ++mCounts[static_cast<std::size_t>(inOperation)];
    Verdict verdict;
    if (mDiskIsFull && NeedsRoom(inOperation)) verdict.mCode = SQLITE_FULL;
    for (ArmedFault& armed : mFaults) {
        const FileFault& fault = armed.mFault;
        if (fault.mOperation != inOperation || !inPath.ends_with(fault.mOnlyEndingIn)) continue;
        ++armed.mSeen;
        const bool due = fault.mFromThenOn ? armed.mSeen >= fault.mNth : armed.mSeen == fault.mNth;
        if (!due) continue;
        verdict = {fault.mCode, fault.mBytesThatPass, fault.mHappensInPart};
        mDiskIsFull |= fault.mFillsDisk;
    }
    if (verdict.mCode != SQLITE_OK) ++mFaultsReported;
    return verdict;
}

void FaultVfs::Record(FileEvent inEvent)
{
    const ScopedLock lock(mMutex);
    if (mRecordedFolder.empty()) return;
    for (std::string* path : {&inEvent.mPath, &inEvent.mFrom}) {
        if (path->empty()) continue;
        if (*path + "/" == mRecordedFolder) {
            path->clear();
            continue;
        }
        if (!path->starts_with(mRecordedFolder)) return;
        path->erase(0, mRecordedFolder.size());
    }
    mRecording.mEvents.push_back(std::move(inEvent));
}

void FaultVfs::NoteWait()
{
    const ScopedLock lock(mMutex);
    ++mWaits;
}

}  // namespace testing_support

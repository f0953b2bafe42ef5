#include "Platform/noxstorage/OdbStore.h"

#include <sqlite3.h>

#include <algorithm>
#include <bit>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbSchema.h"
#include "Platform/noxstorage/SQLite.h"

namespace noxstorage::git::odb {

using noxcore::threads::ScopedLock;

namespace {

constexpr const char* kWriterSettings =
    "PRAGMA wal_autocheckpoint=0;"         // checkpoints are ours
    "PRAGMA journal_size_limit=67108864;"  // a log that grew beyond is cut when it is reused
    "PRAGMA cache_size=-16384;"
    "PRAGMA mmap_size=1073741824;"
    "PRAGMA synchronous=NORMAL";
/// No memory mapping: a file on a network volume may be cut short by others.
constexpr const char* kOneFileSettings =
    "PRAGMA busy_timeout=0;"
    "PRAGMA locking_mode=EXCLUSIVE;"
    "PRAGMA journal_mode=TRUNCATE;"
    "PRAGMA cache_size=-16384;"
    "PRAGMA synchronous=FULL";
constexpr unsigned kIdleMilliseconds = 1000;  ///< two looks this far apart without a write between them: idle

std::string ChosenVfs()
{
    const auto choice = noxcore::HubContext::Current()->GetInstance<sqlite::VfsChoice>();
    return choice != nullptr ? choice->mName : std::string();
}

/// The threads of all repositories of a hub: two that flush, merge and checkpoint.
struct MaintenanceThreads
{
    std::shared_ptr<noxcore::threads::Executor> mExecutor =
        noxcore::threads::CreateIOBoundExecutor("object database", 2);
};

std::int64_t ReadSetting(Connection& inConnection, std::string_view inName, int& outCode)
{
    Query query(inConnection, Sql::GetSetting);
    outCode = query.Text(inName).Step();
    return outCode == SQLITE_ROW ? query.NumberAt(0) : 0;
}

std::int64_t ApplicationID(Store::Journal inJournal)
{
    return inJournal == Store::Journal::Rollback ? kOneFileApplicationID : kApplicationID;
}

std::size_t ValidPageSize(std::size_t inSize)
{
    return std::has_single_bit(inSize) && inSize >= 512 && inSize <= 65536 ? inSize : 16384;
}

}  // namespace

Store::Store(const Options& inOptions) : mOptions(inOptions), mVfs(ChosenVfs()) {}

std::shared_ptr<Store> Store::Open(const Options& inOptions, int& outCode)
{
    auto store = std::make_shared<Store>(inOptions);
    {
        const ScopedLock lock(store->mWriter);
        outCode = store->OpenLocked();
        if (outCode != SQLITE_OK) return nullptr;
        store->mIsOpen = true;
    }
    if (!inOptions.mWritable) return store;
    const auto executor = noxcore::HubContext::Current()->GetOrCreateInstance<MaintenanceThreads>()->mExecutor;
    store->mMaintenance = noxcore::threads::QueueOnlyOnce::Create(
        executor, [weak = std::weak_ptr<Store>(store)] { WeakMaintain(weak); }, kIdleMilliseconds);
    store->mBackgroundFlush = noxcore::threads::QueueOnlyOnce::Create(
        executor, [weak = std::weak_ptr<Store>(store)] { WeakFlush(weak); }, 0);
    return store;
}

Store::~Store()
{
    Close();
}

void Store::Close()
{
    const ScopedLock lock(mWriter);
    if (mClosed) return;
    if (mIsOpen && mClaimed && !mNeedsReopen) {
        FlushLocked();
        // By its name the journal may be that of another file by now.
        if (IsOneFile() && !mNeedsReopen && !HasMoved()) RemoveJournalLocked();
    }
    mClosed = true;
    mReaders.Clear();
    const ScopedLock shared(mSharedConnection);
    // A connection whose sync failed must not sync again: what its log holds is for the next opening to see.
    if (mNeedsReopen) mWriterConnection.ForbidCheckpointOnClose();
    mWriterConnection.Close();
    if (!mClaimed) return;
    const bool lost = mNeedsReopen || mWaiting.WaitingBytes() != 0;
    if (lost) LogGitError(SQLITE_ABORT, mOptions.mFile, kErrorClassOdb, "closed with objects that are not durable");
    mRegistry->Release(mOptions.mFile, {mNeedsReopen || mDoubtful, lost || mMayLackContent});
}

int Store::LogGrew(void* inStore, sqlite3*, const char*, int inPages)
{
    auto* store = static_cast<Store*>(inStore);
    store->mLogBytes = inPages * store->mPageSize;
    return SQLITE_OK;
}

int Store::OpenLocked()
{
    Connection& connection = mWriterConnection;
    if (mOptions.mWritable) {
        FileRegistry::Legacy legacy;
        mClaimed = mRegistry->Claim(mOptions.mFile, legacy);
        if (!mClaimed) return SQLITE_BUSY;
        mMayLackContent = legacy.mLostContent;
        mDoubtful = legacy.mDoubtful;
    }
    int code = connection.Open(mOptions.mFile, mVfs, mOptions.mWritable, mOptions.mCreate);
    if (code != SQLITE_OK) return code;
    if (IsOneFile()) {
        if (!mRegistry->NoteOpened(mOptions.mFile)) return SQLITE_BUSY;
        // SQLite opens what may not be written for reading; no commit would ever be taken.
        if (mOptions.mWritable && sqlite3_db_readonly(connection.Handle(), "main") != 0) return SQLITE_READONLY;
    }
    // Nothing is changed in a file before it is known to be ours.
    if (mOptions.mCreate)
        code = connection.Execute("PRAGMA page_size=" + std::to_string(ValidPageSize(mOptions.mPageSize)));
    if (code == SQLITE_OK) code = connection.Execute("SELECT count(*) FROM sqlite_schema");
    if (code != SQLITE_OK) return code;
    const std::int64_t application = connection.Number("PRAGMA application_id", -1);
    const bool isEmpty = application == 0 && connection.Number("SELECT count(*) FROM sqlite_schema", 1) == 0;
    if (isEmpty && !mOptions.mCreate) return SQLITE_EMPTY;
    if (!isEmpty && (application != ApplicationID(mOptions.mJournal) ||
                     connection.Number("PRAGMA user_version", 0) != kSchemaVersion))
        return SQLITE_NOTADB;
    if (mOptions.mWritable) code = SetUpLocked(isEmpty);
    if (code != SQLITE_OK) return code;
    mPageSize = connection.Number("PRAGMA page_size", 16384);
    code = LoadLocked();
    if (code != SQLITE_OK || !mOptions.mWritable || IsOneFile()) return code;
    sqlite3_wal_hook(connection.Handle(), &Store::LogGrew, this);
    // What a session that ended uncleanly left in the log goes into the file first. After a failed sync this writes
    // anew what the system may have dropped from memory; a commit behind a log that is not whole could be lost with it.
    bool complete = false;
    CheckpointLocked(complete);
    if (complete) mDoubtful = false;
    if (mDoubtful) mNeedsReopen = true;
    return SQLITE_OK;
}

int Store::SetUpLocked(bool inIsNew)
{
    int code = SetUpJournalLocked();
    if (code == SQLITE_OK && inIsNew) code = CreateTablesLocked();
    return code;
}

int Store::SetUpJournalLocked()
{
    if (!IsOneFile()) {
        const int code = mWriterConnection.Execute("PRAGMA journal_mode=WAL");
        return code == SQLITE_OK ? mWriterConnection.Execute(kWriterSettings) : code;
    }
    int code = mWriterConnection.Execute(kOneFileSettings);
    // Whoever has the file open elsewhere is not waited for: they may have it open for hours.
    if (code == SQLITE_OK) code = mWriterConnection.Execute("BEGIN EXCLUSIVE; COMMIT");
    // The end of a commit whose sync failed may be undone by a power cut as long as nothing is written after it.
    if (code == SQLITE_OK && mDoubtful)
        code = mWriterConnection.Execute("PRAGMA user_version=" + std::to_string(kSchemaVersion));
    if (code == SQLITE_OK) mDoubtful = false;
    return code;
}

void Store::RemoveJournalLocked()
{
    // The next opening looks at each row that the index does not have. A file that nothing was written into stays as it
    // is: it may be one that is refused.
    if (mWrites != 0) MergeIndexLocked(Merging::Whole);
    if (mNeedsReopen) return;
    const ScopedLock shared(mSharedConnection);
    const int code = mWriterConnection.Execute(
        "PRAGMA locking_mode=NORMAL; SELECT count(*) FROM sqlite_schema; PRAGMA journal_mode=DELETE");
    if (code != SQLITE_OK) NoteFailureLocked(code, "close");
}

void Store::HoldSharedConnectionLocked()
{
    if (!IsOneFile() || mHoldsSharedConnection) return;
    mSharedConnection.Lock();
    mHoldsSharedConnection = true;
}

void Store::GiveSharedConnectionBackLocked()
{
    if (!mHoldsSharedConnection) return;
    mHoldsSharedConnection = false;
    mSharedConnection.Unlock();
}

int Store::CreateTablesLocked()
{
    return TransactLocked(true, [&]() REQUIRES(mWriter) {
        int code = mWriterConnection.Execute(kCreateTables);
        if (code == SQLITE_OK)
            code =
                mWriterConnection.Execute("PRAGMA application_id=" + std::to_string(ApplicationID(mOptions.mJournal)) +
                                          ";PRAGMA user_version=" + std::to_string(kSchemaVersion));
        if (code != SQLITE_OK) return code;
        Query query(mWriterConnection, Sql::SetSetting);
        code = query.Text("maxBlobSize").Number(static_cast<std::int64_t>(mOptions.mMaxBlobSize)).Step();
        return code == SQLITE_DONE ? SQLITE_OK : code;
    });
}

int Store::LoadLocked()
{
    Connection& connection = mWriterConnection;
    // One transaction: another process may index rows meanwhile when this one only reads.
    int code = connection.Run(Sql::Begin);
    if (code != SQLITE_DONE) return code;
    mMaxBlobSize = static_cast<std::size_t>(ReadSetting(connection, "maxBlobSize", code));
    const std::int64_t indexedRow = ReadSetting(connection, "indexedRow", code);
    if (code == SQLITE_ROW || code == SQLITE_DONE) {
        Query query(connection, Sql::MaxRow);
        code = query.Step();
        if (code == SQLITE_ROW) mLastRow = std::max(query.NumberAt(0), indexedRow);
    }
    if (code == SQLITE_ROW) {
        Query query(connection, Sql::NewRows);
        query.Number(indexedRow);
        while ((code = query.Step()) == SQLITE_ROW)
            AddStoredRow(query);
    }
    connection.Run(Sql::Rollback);
    return code == SQLITE_DONE ? SQLITE_OK : code;
}

void Store::AddStoredRow(const Query& inNewRow)
{
    if (inNewRow.BytesAt(1).size() != Oid::kSize) return;
    const auto type = static_cast<ObjectType>(inNewRow.NumberAt(2) & kKindMask);
    mWaiting.AddStored(Oid(inNewRow.BytesAt(1).data()), inNewRow.NumberAt(0), type);
}

}  // namespace noxstorage::git::odb

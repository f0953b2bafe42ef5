#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <source_location>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxstorage/OdbBatch.h"
#include "Platform/noxstorage/OdbConnection.h"
#include "Platform/noxstorage/OdbContent.h"
#include "Platform/noxstorage/OdbContentsInUse.h"
#include "Platform/noxstorage/OdbDamagedObjects.h"
#include "Platform/noxstorage/OdbFiles.h"
#include "Platform/noxstorage/OdbReadPool.h"
#include "Platform/noxstorage/OdbTreeCache.h"
#include "Platform/noxstorage/OdbWaiting.h"

namespace noxstorage::git::odb {

using git::Answer;

struct Header
{
    ObjectType mType = ObjectType::Invalid;
    std::uint64_t mSize = 0;
};

struct Reference
{
    std::string mName;
    Oid mOid;             ///< zero in a symbolic reference
    std::string mTarget;  ///< the other reference's name; empty in a direct one
};

using PieceVisitor = std::function<bool(std::string_view)>;
using ObjectVisitor = std::function<bool(const Oid&, ObjectType, std::uint64_t, std::string_view)>;
/// Rows, from the first to the last, that cannot be read; the id of the object where that is known, else zero.
using DamageVisitor = std::function<void(const Oid&, std::int64_t inFirstRow, std::int64_t inLastRow)>;

/// Objects and references of one repository in one SQLite file (OdbSchema.h), written ahead and checkpointed here.
///
/// One connection writes, and one store a file (FileRegistry). Objects wait in memory (WaitingObjects) until a flush,
/// unsynced, or a transaction, synced, writes them. Readers take connections from a pool and see the waiting ones too.
/// After a failed sync nothing is written any more, nor by the store that opens the file next until a checkpoint has
/// brought all that the log holds into the file.
///
/// A file that people move, mail and put on network volumes is opened with Journal::Rollback: no log and no shared
/// memory beside it, nothing at all once it is closed, and its one connection, which keeps the file locked, reads too.
/// Each write of such a file costs several syncs, so that content waits for its commit as long as there is little of
/// it.
///
/// Threading: any thread. Lock order: mWriter (rank RepositoryWriter) guards the writing connection; it is held for a
/// flush, a transaction from Begin to End, an upgrade or a checkpoint. Reading takes no mutex but for moments; of one
/// file, it takes mSharedConnection (rank RepositoryFile) for each object, which a write transaction holds throughout.
class Store : public std::enable_shared_from_this<Store>
{
public:
    enum class Journal
    {
        WriteAhead,
        Rollback
    };
    struct Options
    {
        std::string mFolder;
        std::string mFile;
        bool mWritable = true;
        bool mCreate = false;
        std::size_t mPageSize = 16384;  ///< of a file that is made
        std::size_t mMaxBlobSize = 0;   ///< of a file that is made
        Journal mJournal = Journal::WriteAhead;
    };
    /// Null with SQLite's code in outCode (SQLITE_NOTADB for a database that is no repository).
    static std::shared_ptr<Store> Open(const Options& inOptions, int& outCode);
    explicit Store(const Options& inOptions);
    ~Store();
    /// Writes what waits and closes the writer, once maintenance that is under way has ended. Nothing is written
    /// afterwards; readers go on.
    void Close();

    [[nodiscard]] const std::string& Folder() const { return mOptions.mFolder; }
    [[nodiscard]] bool NeedsReopen() const { return mNeedsReopen; }
    /// An earlier store of this file took objects on and lost them: content is to be looked for, not relied on.
    [[nodiscard]] bool MayLackContent() const { return mMayLackContent; }

    // Reading (OdbStoreRead.cpp)
    Answer Read(const Oid& inOid, ObjectType& outType, Bytes& outContent);
    Answer ReadHeader(const Oid& inOid, Header& outHeader);
    /// Without a look into the file for an object that its index does not know yet.
    Answer ReadType(const Oid& inOid, ObjectType& outType);
    Answer ReadPieces(const Oid& inOid, Header& outHeader, const PieceVisitor& inVisitor);
    /// The same from memory and the index alone; Invalid where only the index knows the object.
    Answer LookUp(const Oid& inOid, ObjectType& outType);
    /// True when the object is known; a failed question counts as unknown.
    bool Contains(const Oid& inOid);
    /// Ids that begin with the hexadecimal digits given, at most two of them.
    Answer FindByPrefix(std::string_view inDigits, std::vector<Oid>& outOids);
    /// False when the visitor stopped or the file could not be read to its end. Rows that are damaged end the walk, or
    /// are told of and passed over where there is somebody to tell.
    bool ForEach(const ObjectVisitor& inVisitor, const DamageVisitor& inDamaged = {});
    /// Where objects lie in the file, 0 where that is not known: whoever reads many of them does so fastest in that
    /// order, each announced with ReadAheadOfScope within a scope of the thread.
    std::vector<std::int64_t> FindRows(std::span<const Oid> inOids);
    /// The same for objects in the order of their ids. False when the file cannot be read.
    bool FindRows(std::span<PlacedObject> ioObjects);
    void ReadAheadOfScope(std::int64_t inRow);
    enum class Between
    {
        PassedOver,
        Read  ///< as not wanted; some may be passed over nonetheless
    };
    /// Fills an empty batch with the first of the objects, which are in the order of their rows, and takes them off
    /// the list; one at least. The batch has all in the order of their rows. False when one cannot be read.
    bool ReadEncoded(std::span<const PlacedObject>& ioObjects, Between inBetween, EncodedBatch& outBatch);
    Answer ReadReference(std::string_view inName, Reference& outReference);
    bool ListReferences(std::vector<Reference>& outReferences);
    TreeCache& Trees() { return mTrees; }
    /// What was found damaged when it was read, or is said to be.
    DamagedObjects& KnownDamage() { return mDamaged; }
    ContentsInUse& LargeContents() { return mContentsInUse; }
    ReadPool& Readers() { return mReaders; }

    // Writing (OdbStoreWrite.cpp)
    /// The object is stored or waits; false: it cannot be kept. One that is known to be damaged is written anew.
    bool Write(const Oid& inOid, ObjectType inType, Content inContent);
    bool Flush();
    /// The same without waiting: false as well when the writer is busy.
    bool TryFlush();
    /// Takes the writer and begins a synced transaction; false: refused, and the writer is free. The thread that began
    /// ends it.
    bool BeginTransaction() NO_THREAD_SAFETY_ANALYSIS;
    /// Writes what waits and commits, or rolls back. True when it was committed.
    bool EndTransaction(bool inCommit) NO_THREAD_SAFETY_ANALYSIS;
    /// Of one file alone: flushes are not synced, as those of a write-ahead log are not.
    void SetBulkLoad(bool inBulkLoad) { mIsBulkLoad = inBulkLoad && IsOneFile(); }
    Answer ReadReferenceInTransaction(std::string_view inName, Reference& outReference) NO_THREAD_SAFETY_ANALYSIS;
    bool WriteReferenceInTransaction(const Reference& inReference) NO_THREAD_SAFETY_ANALYSIS;
    bool DeleteReferenceInTransaction(std::string_view inName) NO_THREAD_SAFETY_ANALYSIS;
    [[nodiscard]] Connection& WriterInTransaction() NO_THREAD_SAFETY_ANALYSIS { return mWriterConnection; }

    // In bulk (OdbStoreBulk.cpp)
    /// From here on rows of WriteEncoded may lack in the index, until EndTransfer. Where that is not reached, or fails,
    /// whoever opens the file next takes them up.
    void BeginTransfer();
    /// Writes rows, unsynced; they are found only after EndTransfer. What the store has in memory is passed over; what
    /// it has in the file is the caller's to know.
    bool WriteEncoded(std::span<const EncodedObject> inObjects, std::vector<PlacedObject>& outRows);
    /// Brings the rows that were written into the index. Those of a bulk load go onto the disk meanwhile.
    bool EndTransfer(std::vector<PlacedObject> inRows);

    /// Whether a single file is no more what lies at its path: it was moved, deleted or replaced.
    [[nodiscard]] bool HasMoved();

    // Maintenance (OdbStoreMaintenance.cpp)
    bool Checkpoint(bool& outComplete);
    /// Whether the pages of the file belong together; all of it is read. Bytes that are others than they were inside an
    /// object are not noticed.
    [[nodiscard]] bool IsSound();
    /// Splits what is larger than a row may be, or with 0 puts everything back into one row each.
    bool Rewrite(std::size_t inMaxBlobSize);
    /// Written objects that the index of the file does not know yet.
    [[nodiscard]] std::size_t NotIndexed() const { return mWaiting.NotIndexedCount(); }
    /// In the write-ahead log, not yet in the file.
    [[nodiscard]] std::int64_t LogBytes() const { return mLogBytes; }
    [[nodiscard]] std::size_t MaxBlobSize() const { return mMaxBlobSize; }

private:
    friend class ReadPool;
    using Mutex = noxcore::threads::RecursiveMutex;
    using IndexEntries = std::span<const std::pair<Oid, std::int64_t>>;

    // Opening (OdbStore.cpp)
    int OpenLocked() REQUIRES(mWriter);
    int CreateTablesLocked() REQUIRES(mWriter);
    int SetUpLocked(bool inIsNew) REQUIRES(mWriter);
    int SetUpJournalLocked() REQUIRES(mWriter);
    /// Leaves nothing beside a single file.
    void RemoveJournalLocked() REQUIRES(mWriter);
    [[nodiscard]] bool IsOneFile() const { return mOptions.mJournal == Journal::Rollback; }
    void HoldSharedConnectionLocked() NO_THREAD_SAFETY_ANALYSIS;
    void GiveSharedConnectionBackLocked() NO_THREAD_SAFETY_ANALYSIS;
    static int LogGrew(void* inStore, sqlite3*, const char*, int inPages);
    int LoadLocked() REQUIRES(mWriter);
    /// Takes up a row that the index does not know (row, oid, kind).
    void AddStoredRow(const Query& inNewRow);

    /// Logs and notes that an object's rows are not what they should be.
    Answer Damaged(const Oid& inOid, const std::source_location& inWhere = std::source_location::current());
    Answer ReadAt(Connection& inConnection, const Oid& inOid, std::int64_t inRow, ObjectType& outType,
                  std::string& outContent);
    Answer PiecesAt(Connection& inConnection, const Oid& inOid, std::int64_t inRow, Header& outHeader,
                    const PieceVisitor& inVisitor);
    Answer HeaderAt(Connection& inConnection, const Oid& inOid, std::int64_t inRow, Header& outHeader);
    /// One row of ForEach. Absent: the visitor stopped.
    Answer VisitObject(Connection& inConnection, const Query& inRow, const ObjectVisitor& inVisitor);
    /// Up to the first that lies far behind the one before it, which begins the rest.
    bool FindRowsFrom(Connection& inConnection, std::span<PlacedObject>& ioObjects);
    Answer ReadEncodedRows(std::span<const PlacedObject>& ioObjects, Between inBetween, EncodedBatch& outBatch);
    /// Up to the first that lies far behind the one before it, and is searched for anew.
    Answer ReadEncodedRowsFrom(std::span<const PlacedObject>& ioObjects, Between inBetween, EncodedBatch& outBatch,
                               bool& outIsFull);
    Answer AddLargeRow(Connection& inConnection, const PlacedObject& inObject, EncodedBatch& outBatch, bool& outIsFull);
    Answer AddEncodedRow(Connection& inConnection, const Query& inRow, const Oid& inOid, EncodedBatch& outBatch,
                         bool& outIsFull);
    Answer ReadEncodedByOid(const Oid& inOid, EncodedBatch& outBatch);
    bool VisitPieces(Connection& inConnection, std::int64_t inFirstRow, std::uint64_t inSize,
                     const PieceVisitor& inVisitor);
    /// Asks memory, then the file; a second time, on a fresh connection, when the thread's read transaction may be too
    /// old to know the object.
    template <class FromMemory, class FromFile>
    Answer Ask(const Oid& inOid, bool inFresh, FromMemory inFromMemory, FromFile inFromFile);
    /// For a reader of a file that another process writes: takes up the rows written since. False: there are none.
    bool TakeUpNewRows();

    /// Writes what waits. Indexes first where maintenance has fallen behind, so that what is kept in memory of a commit
    /// has a bound whatever its size.
    bool FlushLocked() REQUIRES(mWriter);
    /// Writes an object at once, in the place of the damaged one.
    bool WriteInPlaceOfDamaged(const Oid& inOid, ObjectType inType, Content inContent);
    int ReplaceObjectLocked(const Oid& inOid, const Encoded& inObject) REQUIRES(mWriter);
    bool WriteLarge(const Oid& inOid, ObjectType inType, std::string_view inBytes);
    bool RefusesToWrite(std::string_view inArgument) const;
    /// SQLITE_READONLY when the store writes no more, as when the single file is another's or nobody's by now.
    bool HasMovedLocked() REQUIRES(mWriter);
    int BeginLocked(bool inSynced) REQUIRES(mWriter);
    /// Ends in any case: committed, or rolled back with the code that says why.
    int CommitLocked() REQUIRES(mWriter);
    void RollbackLocked() REQUIRES(mWriter);
    /// A transaction around the function, which answers with a code; rolled back unless that is SQLITE_OK, after an
    /// exception too.
    template <class Function>
    int TransactLocked(bool inSynced, const Function& inFunction) REQUIRES(mWriter);
    /// The same that ends what has begun.
    template <class Function>
    int FinishLocked(const Function& inFunction) REQUIRES(mWriter);
    /// Writes all that waits, in a transaction of its own or in the one that has begun; what was not written waits on.
    enum class Transaction
    {
        Own,
        Begun
    };
    int WriteWaitingLocked(Transaction inTransaction) REQUIRES(mWriter);
    int InsertBatchLocked(const WaitingObjects::Batch& inBatch, std::vector<std::int64_t>& outRows) REQUIRES(mWriter);
    int InsertObjectLocked(const Oid& inOid, const Encoded& inObject, std::int64_t& outRow) REQUIRES(mWriter);
    /// The pieces of one that is split come behind the last row.
    int InsertRowLocked(std::int64_t inRow, const Oid& inOid, const Encoded& inObject) REQUIRES(mWriter);
    int InsertPiecesLocked(std::string_view inBytes, std::size_t inMaxBlobSize, std::int64_t& outFirstRow)
        REQUIRES(mWriter);
    /// Logs a failed writing call; a failed sync closes the store for writing.
    void NoteFailureLocked(int inCode, std::string_view inWhat) REQUIRES(mWriter);

    enum class Merging
    {
        Whole,
        GivingWay  ///< ends early when somebody wants to write; the rest comes with the next maintenance
    };
    int MergeIndexLocked(Merging inMerging) REQUIRES(mWriter);
    /// Brings the entries into the index in one transaction, with the row up to which all are in it, 0: not known.
    int IndexRowsLocked(IndexEntries inEntries, std::int64_t inIndexedRow) REQUIRES(mWriter);
    int IndexPartLocked(IndexEntries inPart) REQUIRES(mWriter);
    int IndexRowLocked(const Oid& inOid, std::int64_t inRow) REQUIRES(mWriter);
    /// The last row, where each up to it will be in the index once the waiting ones are; else 0.
    [[nodiscard]] std::int64_t IndexedUpToLocked() const REQUIRES(mWriter) { return mTransfers == 0 ? mLastRow : 0; }
    int CheckpointLocked(bool& outComplete) REQUIRES(mWriter);
    int RewriteLocked(std::size_t inMaxBlobSize) REQUIRES(mWriter);
    int RewriteObjectsLocked(std::size_t inMaxBlobSize) REQUIRES(mWriter);
    int SplitRowLocked(std::int64_t inRow, unsigned inKind, std::string_view inBytes, std::size_t inMaxBlobSize)
        REQUIRES(mWriter);
    int JoinRowLocked(Connection& inReader, std::int64_t inRow, unsigned inKind, std::int64_t inFirstPiece)
        REQUIRES(mWriter);
    void ScheduleMaintenance();
    void Maintain();
    static void WeakMaintain(const std::weak_ptr<Store>& inStore);
    static void WeakFlush(const std::weak_ptr<Store>& inStore);

    // constant after opening
    const Options mOptions;
    const std::string mVfs;
    const std::shared_ptr<FileRegistry> mRegistry = FileRegistry::Current();
    std::shared_ptr<noxcore::threads::QueueOnlyOnce> mMaintenance;
    std::shared_ptr<noxcore::threads::QueueOnlyOnce> mBackgroundFlush;

    // any thread
    WaitingObjects mWaiting;
    TreeCache mTrees;
    ContentsInUse mContentsInUse;
    DamagedObjects mDamaged;
    ReadPool mReaders{*this};
    std::atomic<bool> mIsBulkLoad{false};
    std::atomic<bool> mNeedsReopen{false};
    std::atomic<bool> mMayLackContent{false};
    std::atomic<std::size_t> mMaxBlobSize{0};
    std::atomic<std::uint64_t> mWrites{0};  ///< counts flushes and commits, to tell an idle time
    std::atomic<std::uint64_t> mWritesAtLastLook{0};
    std::atomic<int> mWriterWanted{0};  ///< threads that wait for mWriter to write objects
    std::atomic<std::int64_t> mPageSize{0};
    std::atomic<std::int64_t> mLogBytes{0};  ///< in the write-ahead log, not yet in the file

    Mutex mWriter{noxcore::threads::LockRank::RepositoryWriter};
    Connection mWriterConnection GUARDED_BY(mWriter);
    const char* mSynchronous GUARDED_BY(mWriter) = nullptr;  ///< the setting as it stands
    bool mInTransaction GUARDED_BY(mWriter) = false;
    bool mClaimed GUARDED_BY(mWriter) = false;   ///< this store is the file's writer
    bool mDoubtful GUARDED_BY(mWriter) = false;  ///< the log holds what a failed sync left there
    bool mIsOpen GUARDED_BY(mWriter) = false;    ///< the file is ours, and was opened whole
    bool mClosed GUARDED_BY(mWriter) = false;
    Mutex mSharedConnection{noxcore::threads::LockRank::RepositoryFile};
    bool mHoldsSharedConnection GUARDED_BY(mWriter) = false;
    unsigned mTransfers GUARDED_BY(mWriter) = 0;      ///< under way: rows of theirs are not in the index
    std::size_t mNotPressed GUARDED_BY(mWriter) = 0;  ///< bytes that transfers wrote since the disk was given some
    std::int64_t mLastRow GUARDED_BY(mWriter) = 0;
    std::int64_t mLastRowAtBegin GUARDED_BY(mWriter) = 0;
};

template <class Function>
int Store::FinishLocked(const Function& inFunction)
{
    int code = 0;
    try {
        code = inFunction();
    } catch (...) {
        RollbackLocked();
        throw;
    }
    if (code == 0) return CommitLocked();
    RollbackLocked();
    return code;
}

template <class Function>
int Store::TransactLocked(bool inSynced, const Function& inFunction)
{
    const int code = BeginLocked(inSynced);
    return code == 0 ? FinishLocked(inFunction) : code;
}

}  // namespace noxstorage::git::odb

#include <sqlite3.h>

#include <boost/unordered/unordered_flat_set.hpp>
#include <new>

#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbSchema.h"
#include "Platform/noxstorage/OdbStore.h"

namespace noxstorage::git::odb {

using noxcore::threads::ScopedLock;

namespace {

constexpr std::size_t kFlushBytes = 4 * 1024 * 1024;  ///< waiting; beyond, a thread begins to write them
constexpr std::size_t kBehindBytes = 12 * 1024 * 1024;
constexpr std::size_t kMostBytes = 32 * 1024 * 1024;  ///< waiting; beyond, whoever adds one writes them first
constexpr std::size_t kMostNotIndexed = 131072;       ///< written; twice what maintenance lets come together
constexpr std::size_t kLookedForFirst = 64 * 1024;
constexpr const char* kFull = "PRAGMA synchronous=FULL";
constexpr const char* kNormal = "PRAGMA synchronous=NORMAL";
constexpr const char* kOff = "PRAGMA synchronous=OFF";
constexpr std::size_t kLargeObject = 1024 * 1024;  ///< written at once from the caller's bytes

/// The store whose transaction this thread has open.
thread_local const Store* tOpenTransaction = nullptr;

bool IsFailedSync(int inCode)
{
    return inCode == SQLITE_IOERR_FSYNC || inCode == SQLITE_IOERR_DIR_FSYNC;
}

/// Whether a tree names one of the objects: what names something new is new itself, and need not be looked for.
template <class Oids>
bool RefersToAny(const Encoded& inObject, const Oids& inOids)
{
    if (inObject.mType != ObjectType::Tree) return false;
    std::string_view rest = inObject.mData.mView;
    for (std::size_t end = 0; (end = rest.find('\0')) != std::string_view::npos;) {
        if (rest.size() - end - 1 < Oid::kSize) return false;
        if (inOids.contains(Oid(rest.data() + end + 1))) return true;
        rest.remove_prefix(end + 1 + Oid::kSize);
    }
    return false;
}

}  // namespace

bool Store::RefusesToWrite(std::string_view inArgument) const
{
    if (!mNeedsReopen && mOptions.mWritable) return false;
    LogGitError(SQLITE_READONLY, inArgument, kErrorClassOdb,
                mOptions.mWritable ? "a sync failed: the repository must be opened anew" : "opened for reading");
    return true;
}

bool Store::Write(const Oid& inOid, ObjectType inType, Content inContent)
{
    if (mDamaged.Contains(inOid)) return WriteInPlaceOfDamaged(inOid, inType, std::move(inContent));
    // Small objects are looked for when they are written: a look-up each would cost the caller more than they do.
    if (inContent.mView.size() < kLookedForFirst ? mWaiting.Contains(inOid) : Contains(inOid)) return true;
    if (RefusesToWrite(mOptions.mFile)) return false;
    const bool ownTransaction = tOpenTransaction == this;
    if (inContent.mView.size() >= kLargeObject && !ownTransaction) return WriteLarge(inOid, inType, inContent.mView);
    if (mWaiting.WaitingBytes() > kMostBytes && !ownTransaction && !Flush()) return false;
    // Whoever writes compresses too; when that falls behind, those who add share the work.
    const bool isBehind = mWaiting.WaitingBytes() > kBehindBytes;
    mWaiting.Add(inOid, Encode(inType, std::move(inContent), isBehind));
    if (mWaiting.WaitingBytes() > kFlushBytes) mBackgroundFlush->Queue();
    return true;
}

bool Store::WriteLarge(const Oid& inOid, ObjectType inType, std::string_view inBytes)
{
    Encoded object{inType, 0, inBytes.size(), {nullptr, inBytes}, {}, false};
    std::string compressed;
    const std::size_t most = mMaxBlobSize;
    if ((most == 0 || inBytes.size() <= most) && TryCompress(inBytes, compressed)) {
        object.mEncoding = kEncodingZstd;
        object.mData.mView = compressed;
    }
    ++mWriterWanted;
    const ScopedLock lock(mWriter);
    --mWriterWanted;
    std::int64_t row = 0;
    const int code = TransactLocked(false, [&]() REQUIRES(mWriter) { return InsertObjectLocked(inOid, object, row); });
    if (code != SQLITE_OK) {
        NoteFailureLocked(code, inOid.Text());
        return false;
    }
    mWaiting.AddStored(inOid, row, inType);
    ScheduleMaintenance();
    return true;
}

bool Store::WriteInPlaceOfDamaged(const Oid& inOid, ObjectType inType, Content inContent)
{
    if (RefusesToWrite(mOptions.mFile)) return false;
    const auto object = Encode(inType, std::move(inContent), true);
    ++mWriterWanted;
    const ScopedLock lock(mWriter);
    --mWriterWanted;
    const auto replace = [&]() REQUIRES(mWriter) { return ReplaceObjectLocked(inOid, *object); };
    const int code = mInTransaction ? replace() : TransactLocked(true, replace);
    if (code != SQLITE_OK) {
        NoteFailureLocked(code, inOid.Text());
        return false;
    }
    if (mInTransaction) return true;  // it may be rolled back yet, and what is noted here is noted anew then
    mDamaged.Remove(inOid);
    return true;
}

int Store::ReplaceObjectLocked(const Oid& inOid, const Encoded& inObject)
{
    WaitingObjects::Place place;
    if (!mWaiting.Find(inOid, place) || place.mRow == 0) {
        Query query(mWriterConnection, Sql::RowByOid);
        const int code = query.Number(inOid.Key()).Bytes(inOid.View()).Step();
        if (code != SQLITE_ROW && code != SQLITE_DONE) return code;
        place.mRow = code == SQLITE_ROW ? query.NumberAt(0) : 0;
    }
    if (place.mRow == 0) {
        const int code = InsertObjectLocked(inOid, inObject, place.mRow);
        return code == SQLITE_OK && IndexRowLocked(inOid, place.mRow) != SQLITE_DONE ? SQLITE_CORRUPT : code;
    }
    // Under the same number, so that whoever knows where it lies is right. What it was split into is of no use.
    const int code = Query(mWriterConnection, Sql::DeleteRows).Number(place.mRow).Number(place.mRow).Step();
    return code == SQLITE_DONE ? InsertRowLocked(place.mRow, inOid, inObject) : code;
}

bool Store::Flush()
{
    if (IsOneFile() && mWaiting.WaitingBytes() < kFlushBytes) return true;
    ++mWriterWanted;
    const ScopedLock lock(mWriter);
    --mWriterWanted;
    return FlushLocked();
}

bool Store::TryFlush()
{
    if (!mWriter.TryLock()) return false;
    const bool flushed = FlushLocked();
    mWriter.Unlock();
    return flushed;
}

void Store::WeakFlush(const std::weak_ptr<Store>& inStore)
{
    if (const auto store = inStore.lock(); store != nullptr && !store->mNeedsReopen) store->Flush();
}

bool Store::FlushLocked()
{
    if (mInTransaction) return true;  // its end writes them
    if (mClosed) return mWaiting.WaitingBytes() == 0;
    if (mWaiting.NotIndexedCount() >= kMostNotIndexed) {
        const int indexed = MergeIndexLocked(Merging::Whole);
        if (indexed != SQLITE_OK) NoteFailureLocked(indexed, "index");
    }
    if (!mWaiting.HasWaiting()) return true;
    const int code = WriteWaitingLocked(Transaction::Own);
    if (code != SQLITE_OK) {
        NoteFailureLocked(code, "flush");
        return false;
    }
    ScheduleMaintenance();
    return true;
}

int Store::WriteWaitingLocked(Transaction inTransaction)
{
    WaitingObjects::Batch batch = mWaiting.Take();
    std::vector<std::int64_t> rows;
    const auto insert = [&]() REQUIRES(mWriter) { return InsertBatchLocked(batch, rows); };
    int code = SQLITE_OK;
    try {
        code = inTransaction == Transaction::Own ? TransactLocked(false, insert) : FinishLocked(insert);
    } catch (const std::bad_alloc&) {
        code = SQLITE_NOMEM;
    }
    try {
        if (code == SQLITE_OK)
            mWaiting.MarkStored(batch, rows);
        else
            mWaiting.PutBack(std::move(batch));
    } catch (const std::bad_alloc&) {
        // What is known here is not what the file holds any more.
        mNeedsReopen = true;
        code = SQLITE_NOMEM;
    }
    return code;
}

int Store::BeginLocked(bool inSynced)
{
    if (mNeedsReopen || mClosed) return SQLITE_READONLY;
    mReaders.EndTransactions();
    HoldSharedConnectionLocked();  // from here on nobody reads through a single file's connection
    if (HasMovedLocked()) {
        mNeedsReopen = true;
        GiveSharedConnectionBackLocked();
        return SQLITE_READONLY_DBMOVED;
    }
    // A rollback journal that is synced once may be taken for whole after a power cut where its end is missing.
    const bool isSynced = inSynced || (IsOneFile() && !mIsBulkLoad);
    const char* const synchronous = isSynced ? kFull : mIsBulkLoad ? kOff : kNormal;
    int code = SQLITE_OK;
    if (mSynchronous != synchronous) code = mWriterConnection.Execute(synchronous);
    if (code == SQLITE_OK) {
        mSynchronous = synchronous;
        code = mWriterConnection.Run(Sql::BeginImmediate);
    }
    if (code != SQLITE_DONE) {
        GiveSharedConnectionBackLocked();
        return code;
    }
    mLastRowAtBegin = mLastRow;
    return SQLITE_OK;
}

bool Store::HasMovedLocked()
{
    int moved = 0;
    if (mWriterConnection.Handle() == nullptr) return false;
    // Of a log SQLite itself notices; a journal that stays open it does not look after.
    return IsOneFile() &&
           sqlite3_file_control(mWriterConnection.Handle(), "main", SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK &&
           moved != 0;
}

bool Store::HasMoved()
{
    const ScopedLock lock(mWriter);
    const ScopedLock shared(mSharedConnection);
    return HasMovedLocked();
}

int Store::CommitLocked()
{
    const int code = mWriterConnection.Run(Sql::Commit);
    if (code == SQLITE_DONE) {
        ++mWrites;
        GiveSharedConnectionBackLocked();
        return SQLITE_OK;
    }
    // The journal of a single file may be gone all the same, and the commit be there with it: only who opens the file
    // anew can tell.
    if (IsOneFile() && (code & 0xff) == SQLITE_IOERR) mNeedsReopen = true;
    RollbackLocked();
    return code;
}

void Store::RollbackLocked()
{
    mLastRow = mLastRowAtBegin;
    // SQLite has rolled back by itself after some failures.
    if (mWriterConnection.InTransaction()) mWriterConnection.Run(Sql::Rollback);
    if (mWriterConnection.InTransaction()) mNeedsReopen = true;
    GiveSharedConnectionBackLocked();
}

void Store::NoteFailureLocked(int inCode, std::string_view inWhat)
{
    if (IsFailedSync(inCode)) mNeedsReopen = true;
    LogGitError(inCode, inWhat, kErrorClassOdb, mOptions.mFile + ": " + sqlite3_errstr(inCode));
}

int Store::InsertBatchLocked(const WaitingObjects::Batch& inBatch, std::vector<std::int64_t>& outRows)
{
    outRows.resize(inBatch.size());
    boost::unordered_flat_set<Oid, std::hash<Oid>> inserted;
    inserted.reserve(inBatch.size());
    for (std::size_t index = 0; index < inBatch.size(); ++index) {
        const auto& [oid, object] = inBatch[index];
        if (object->mSize < kLookedForFirst && !RefersToAny(*object, inserted)) {
            const int code = mWriterConnection.Find(oid);
            outRows[index] = WaitingObjects::kIndexed;
            if (code == SQLITE_ROW) continue;
            if (code != SQLITE_DONE) return code;
        }
        const int code = InsertObjectLocked(oid, *object, outRows[index]);
        if (code != SQLITE_OK) return code;
        inserted.insert(oid);
    }
    return SQLITE_OK;
}

int Store::InsertObjectLocked(const Oid& inOid, const Encoded& inObject, std::int64_t& outRow)
{
    outRow = ++mLastRow;
    return InsertRowLocked(outRow, inOid, inObject);
}

int Store::InsertRowLocked(std::int64_t inRow, const Oid& inOid, const Encoded& inObject)
{
    const auto kind = static_cast<unsigned>(inObject.mType);
    const std::size_t most = mMaxBlobSize;
    const bool split = most != 0 && inObject.mSize > most;
    std::string compressed;
    {
        const bool gained = !split && inObject.mMayGain && TryCompress(inObject.mData.mView, compressed);
        const unsigned encoding = split ? kEncodingSplit : gained ? kEncodingZstd : inObject.mEncoding;
        Query query(mWriterConnection, Sql::InsertObject);
        query.Number(inRow).Bytes(inOid.View()).Number(kind | encoding);
        query.Number(static_cast<std::int64_t>(inObject.mSize));
        if (split)
            query.Number(mLastRow + 1).Bytes({});
        else
            query.Null().Bytes(gained ? std::string_view(compressed) : inObject.mData.mView);
        const int code = query.Step();
        if (code != SQLITE_DONE) return code;
    }
    if (!split) return SQLITE_OK;
    std::string plain;
    std::string_view bytes = inObject.mData.mView;
    if (inObject.mEncoding != 0) {
        if (!Decode(inObject.mEncoding, bytes, inObject.mSize, plain)) return SQLITE_CORRUPT;
        bytes = plain;
    }
    std::int64_t firstRow = 0;
    return InsertPiecesLocked(bytes, most, firstRow);
}

int Store::InsertPiecesLocked(std::string_view inBytes, std::size_t inMaxBlobSize, std::int64_t& outFirstRow)
{
    outFirstRow = mLastRow + 1;
    std::string compressed;
    for (std::size_t offset = 0; offset < inBytes.size(); offset += inMaxBlobSize) {
        const std::string_view piece = inBytes.substr(offset, inMaxBlobSize);
        const bool smaller = TryCompress(piece, compressed);
        Query query(mWriterConnection, Sql::InsertObject);
        query.Number(++mLastRow).Null().Number(kKindPiece | (smaller ? kEncodingZstd : 0));
        query.Number(static_cast<std::int64_t>(piece.size())).Null();
        const int code = query.Bytes(smaller ? std::string_view(compressed) : piece).Step();
        if (code != SQLITE_DONE) return code;
    }
    return SQLITE_OK;
}

bool Store::BeginTransaction()
{
    if (RefusesToWrite(mOptions.mFile)) return false;
    ++mWriterWanted;
    mWriter.Lock();
    --mWriterWanted;
    const int code = mInTransaction ? SQLITE_MISUSE : BeginLocked(true);
    if (code == SQLITE_OK) {
        mInTransaction = true;
        tOpenTransaction = this;
        return true;
    }
    NoteFailureLocked(code, "begin");
    mWriter.Unlock();
    return false;
}

bool Store::EndTransaction(bool inCommit)
{
    int code = SQLITE_OK;
    if (inCommit) {
        code = WriteWaitingLocked(Transaction::Begun);
        if (code != SQLITE_OK) NoteFailureLocked(code, "commit");
    } else {
        RollbackLocked();
    }
    mInTransaction = false;
    tOpenTransaction = nullptr;
    mWriter.Unlock();
    const bool committed = inCommit && code == SQLITE_OK;
    if (committed) {
        mReaders.RenewScope();
        ScheduleMaintenance();
    }
    return committed;
}

Answer Store::ReadReferenceInTransaction(std::string_view inName, Reference& outReference)
{
    Query query(mWriterConnection, Sql::GetRef);
    const int code = query.Text(inName).Step();
    if (code == SQLITE_DONE) return Answer::Absent;
    if (code != SQLITE_ROW) {
        NoteFailureLocked(code, inName);
        return Answer::Failed;
    }
    outReference = {std::string(inName), Oid(), std::string(query.BytesAt(1))};
    if (query.BytesAt(0).size() == Oid::kSize) outReference.mOid = Oid(query.BytesAt(0).data());
    return Answer::Found;
}

bool Store::WriteReferenceInTransaction(const Reference& inReference)
{
    Query query(mWriterConnection, Sql::SetRef);
    query.Text(inReference.mName);
    if (inReference.mTarget.empty())
        query.Bytes(inReference.mOid.View()).Null();
    else
        query.Null().Text(inReference.mTarget);
    const int code = query.Step();
    if (code != SQLITE_DONE) NoteFailureLocked(code, inReference.mName);
    return code == SQLITE_DONE;
}

bool Store::DeleteReferenceInTransaction(std::string_view inName)
{
    Query query(mWriterConnection, Sql::DeleteRef);
    const int code = query.Text(inName).Step();
    if (code != SQLITE_DONE) NoteFailureLocked(code, inName);
    return code == SQLITE_DONE;
}

}  // namespace noxstorage::git::odb

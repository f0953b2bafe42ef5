#include <sqlite3.h>

#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbSchema.h"
#include "Platform/noxstorage/OdbStore.h"

namespace noxstorage::git::odb {

using noxcore::threads::ScopedLock;

namespace {

// Work that an idle moment is used for, and work that waits for none.
constexpr std::size_t kIndexWhenIdle = 1024;  ///< objects without an index entry
constexpr std::size_t kIndexAtLast = 65536;
constexpr std::size_t kIndexedAtOnce = 4096;           ///< before a look whether somebody wants to write
constexpr std::int64_t kCheckpointWhenIdle = 8 << 20;  ///< bytes of the write-ahead log
constexpr std::int64_t kCheckpointAtLast = 512 << 20;

}  // namespace

void Store::ScheduleMaintenance()
{
    if (mWaiting.NotIndexedCount() >= kIndexWhenIdle || mLogBytes >= kCheckpointWhenIdle) mMaintenance->Queue();
}

void Store::WeakMaintain(const std::weak_ptr<Store>& inStore)
{
    if (const auto store = inStore.lock()) store->Maintain();
}

void Store::Maintain()
{
    const std::uint64_t writes = mWrites;
    const bool idle = mWritesAtLastLook.exchange(writes) == writes;
    {
        const ScopedLock lock(mWriter);
        if (mClosed || mNeedsReopen || mInTransaction) return;
        const std::size_t notIndexed = mWaiting.NotIndexedCount();
        if (notIndexed >= kIndexAtLast || (idle && notIndexed >= kIndexWhenIdle)) {
            const int code = MergeIndexLocked(Merging::GivingWay);
            if (code != SQLITE_OK) return NoteFailureLocked(code, "index");
        }
        if (mLogBytes >= kCheckpointAtLast || (idle && mLogBytes >= kCheckpointWhenIdle)) {
            bool complete = false;
            // A reader may hold it up: then it is tried again after the next write, not in a circle.
            if (CheckpointLocked(complete) != SQLITE_OK || !complete) return;
        }
    }
    if (!idle) ScheduleMaintenance();
}

int Store::MergeIndexLocked(Merging inMerging)
{
    const auto entries = mWaiting.NotIndexed();
    // Only when all are in the index does the file say so: what a part brought is found there nonetheless.
    const std::int64_t lastRow = IndexedUpToLocked();
    const std::size_t step = inMerging == Merging::Whole ? entries.size() : kIndexedAtOnce;
    for (std::size_t done = 0; done < entries.size(); done += step) {
        if (done != 0 && mWriterWanted != 0) return SQLITE_OK;
        const bool isLast = entries.size() - done <= step;
        const auto part = std::span(entries).subspan(done, isLast ? entries.size() - done : step);
        const int code = IndexRowsLocked(part, isLast ? lastRow : 0);
        if (code != SQLITE_OK) return code;
        mWaiting.Forget(part);
    }
    return SQLITE_OK;
}

int Store::IndexRowsLocked(IndexEntries inEntries, std::int64_t inIndexedRow)
{
    return TransactLocked(false, [&]() REQUIRES(mWriter) {
        while (!inEntries.empty()) {
            const auto part = inEntries.first(std::min(inEntries.size(), kOidsAtOnce));
            if (const int code = IndexPartLocked(part); code != SQLITE_DONE) return code;
            inEntries = inEntries.subspan(part.size());
        }
        if (inIndexedRow == 0) return SQLITE_OK;
        Query query(mWriterConnection, Sql::SetSetting);
        const int code = query.Text("indexedRow").Number(inIndexedRow).Step();
        return code == SQLITE_DONE ? SQLITE_OK : code;
    });
}

int Store::IndexPartLocked(IndexEntries inPart)
{
    if (inPart.size() == kOidsAtOnce) {
        Query query(mWriterConnection, Sql::InsertOids);
        for (const auto& [oid, row] : inPart)
            query.Number(oid.Key()).Number(row);
        const int code = query.Step();
        const bool areAllNew = sqlite3_changes64(mWriterConnection.Handle()) == static_cast<std::int64_t>(kOidsAtOnce);
        if (code != SQLITE_DONE || areAllNew) return code;
    }
    for (const auto& [oid, row] : inPart)
        if (const int code = IndexRowLocked(oid, row); code != SQLITE_DONE) return code;
    return SQLITE_DONE;
}

int Store::IndexRowLocked(const Oid& inOid, std::int64_t inRow)
{
    {
        Query query(mWriterConnection, Sql::InsertOid);
        const int code = query.Number(inOid.Key()).Number(inRow).Step();
        if (code != SQLITE_DONE || sqlite3_changes64(mWriterConnection.Handle()) != 0) return code;
    }
    {
        Query query(mWriterConnection, Sql::OidAtKey);
        const int code = query.Number(inOid.Key()).Step();
        // The entry of a damaged index may lead to no row at all: that is another one's as well.
        if (code != SQLITE_ROW && code != SQLITE_DONE) return code;
        if (code == SQLITE_ROW && query.BytesAt(0) == inOid.View()) return SQLITE_DONE;
    }
    Query query(mWriterConnection, Sql::InsertCollided);
    return query.Bytes(inOid.View()).Number(inRow).Step();
}

int Store::CheckpointLocked(bool& outComplete)
{
    outComplete = IsOneFile();
    if (outComplete) return SQLITE_OK;
    mReaders.EndTransactions();
    int inLog = 0;
    int moved = 0;
    const int code =
        sqlite3_wal_checkpoint_v2(mWriterConnection.Handle(), nullptr, SQLITE_CHECKPOINT_PASSIVE, &inLog, &moved);
    if (code != SQLITE_OK) {
        NoteFailureLocked(mWriterConnection.ErrorCode(), "checkpoint");
        return code;
    }
    outComplete = inLog == moved;
    if (outComplete) mLogBytes = 0;
    return SQLITE_OK;
}

bool Store::IsSound()
{
    const ReadPool::Lease lease(mReaders);
    return lease.Get() != nullptr &&
           lease.Get()->Number("SELECT 1 FROM pragma_quick_check(1) WHERE quick_check='ok'", 0) == 1;
}

bool Store::Checkpoint(bool& outComplete)
{
    outComplete = false;
    const ScopedLock lock(mWriter);
    if (mClosed || mNeedsReopen || mInTransaction || !mOptions.mWritable || !FlushLocked()) return false;
    const int code = MergeIndexLocked(Merging::Whole);
    if (code != SQLITE_OK) {
        NoteFailureLocked(code, "index");
        return false;
    }
    return CheckpointLocked(outComplete) == SQLITE_OK;
}

bool Store::Rewrite(std::size_t inMaxBlobSize)
{
    if (RefusesToWrite(mOptions.mFile)) return false;
    const ScopedLock lock(mWriter);
    if (mInTransaction || !FlushLocked()) return false;
    int code = MergeIndexLocked(Merging::Whole);
    if (code == SQLITE_OK)
        code = TransactLocked(true, [&]() REQUIRES(mWriter) { return RewriteLocked(inMaxBlobSize); });
    if (code != SQLITE_OK) {
        NoteFailureLocked(code, "rewrite");
        return false;
    }
    mMaxBlobSize = inMaxBlobSize;
    ScheduleMaintenance();
    return true;
}

int Store::RewriteLocked(std::size_t inMaxBlobSize)
{
    const int code = RewriteObjectsLocked(inMaxBlobSize);
    if (code != SQLITE_OK) return code;
    const std::pair<const char*, std::int64_t> settings[] = {{"maxBlobSize", static_cast<std::int64_t>(inMaxBlobSize)},
                                                             {"indexedRow", mLastRow}};
    for (const auto& [name, value] : settings) {
        Query query(mWriterConnection, Sql::SetSetting);
        const int set = query.Text(name).Number(value).Step();
        if (set != SQLITE_DONE) return set;
    }
    return SQLITE_OK;
}

int Store::RewriteObjectsLocked(std::size_t inMaxBlobSize)
{
    // A connection of its own shows the rows as they were: those added on the way are not met.
    const ReadPool::Lease lease(mReaders, ReadPool::Use::Fresh);
    if (lease.Get() == nullptr) return SQLITE_CANTOPEN;
    lease.Get()->Run(Sql::Begin);
    int code = SQLITE_OK;
    {
        Query query(*lease.Get(), Sql::AllObjects);
        query.Number(0);
        while ((code = query.Step()) == SQLITE_ROW) {
            const auto kind = static_cast<unsigned>(query.NumberAt(2));
            const auto size = static_cast<std::size_t>(query.NumberAt(3));
            const bool isSplit = (kind & kEncodingSplit) != 0;
            code = SQLITE_OK;
            if (isSplit) code = JoinRowLocked(*lease.Get(), query.NumberAt(0), kind, query.NumberAt(4));
            if (code != SQLITE_OK) break;
            if (inMaxBlobSize == 0 || size <= inMaxBlobSize) continue;
            std::string content;
            const Oid oid(query.BytesAt(1).data());
            ObjectType type = ObjectType::Invalid;
            if (ReadAt(*lease.Get(), oid, query.NumberAt(0), type, content) != Answer::Found) code = SQLITE_CORRUPT;
            if (code == SQLITE_OK) code = SplitRowLocked(query.NumberAt(0), kind, content, inMaxBlobSize);
            if (code != SQLITE_OK) break;
        }
    }
    lease.Get()->Run(Sql::Rollback);
    return code == SQLITE_DONE ? SQLITE_OK : code;
}

int Store::SplitRowLocked(std::int64_t inRow, unsigned inKind, std::string_view inBytes, std::size_t inMaxBlobSize)
{
    std::int64_t firstRow = 0;
    const int code = InsertPiecesLocked(inBytes, inMaxBlobSize, firstRow);
    if (code != SQLITE_OK) return code;
    Query update(mWriterConnection, Sql::UpdateObject);
    update.Number(inRow).Number((inKind & kKindMask) | kEncodingSplit).Number(firstRow).Bytes({});
    const int updated = update.Step();
    return updated == SQLITE_DONE ? SQLITE_OK : updated;
}

int Store::JoinRowLocked(Connection& inReader, std::int64_t inRow, unsigned inKind, std::int64_t inFirstPiece)
{
    Header header;
    std::string content;
    std::int64_t pieces = 0;
    const Answer answer = PiecesAt(inReader, Oid(), inRow, header, [&](std::string_view inPiece) {
        content.append(inPiece);
        ++pieces;
        return true;
    });
    if (answer != Answer::Found) return SQLITE_CORRUPT;
    {
        Query remove(mWriterConnection, Sql::DeleteRows);
        const int code = remove.Number(inFirstPiece).Number(inFirstPiece + pieces - 1).Step();
        if (code != SQLITE_DONE) return code;
    }
    Query update(mWriterConnection, Sql::UpdateObject);
    const int code = update.Number(inRow).Number(inKind & kKindMask).Null().Bytes(content).Step();
    return code == SQLITE_DONE ? SQLITE_OK : code;
}

}  // namespace noxstorage::git::odb

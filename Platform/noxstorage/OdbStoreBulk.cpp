// Many objects at once, in the form of their rows: nothing is compressed anew, and the index grows in its own order.

#include <sqlite3.h>

#include "Platform/noxcore/WorkSharing.h"
#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbSchema.h"
#include "Platform/noxstorage/OdbStore.h"

namespace noxstorage::git::odb {

using noxcore::threads::ScopedLock;

namespace {

constexpr std::int64_t kStepped = 16;              ///< rows that are passed over rather than searched past
constexpr std::int64_t kReadOnTheWay = 16 * 1024;  ///< bytes of a row; a larger one is read when it is wanted
constexpr std::size_t kWorthPressing = 16 * 1024 * 1024;

void AddEncodedNeighbour(const Query& inRow, EncodedBatch& ioBatch)
{
    const auto kind = static_cast<unsigned>(inRow.NumberAt(2));
    const std::string_view oid = inRow.BytesAt(1);
    const std::string_view data = inRow.BytesAt(5);
    const bool isSmall = !inRow.IsNullAt(5) && (kind & kEncodingSplit) == 0;
    if (!isSmall || oid.size() != Oid::kSize || !ioBatch.HasRoomBeside(data.size())) return;
    ioBatch.Add(Oid(oid.data()), static_cast<ObjectType>(kind & kKindMask), kind & kEncodingZstd,
                static_cast<std::uint64_t>(inRow.NumberAt(3)), {nullptr, data}, false);
}

struct FreeFile
{
    void operator()(sqlite3_file* inFile) const
    {
        if (inFile->pMethods != nullptr) inFile->pMethods->xClose(inFile);
        sqlite3_free(inFile);
    }
};

/// Presses onto the disk what an open file has been given so far. A handle of its own lets the connection go on;
/// SQLite's own, since to close another one would end the process's locks of the file. A file that cannot be opened
/// once more is left to its connection.
int PressOntoDisk(const std::string& inVfs, const char* inFile)
{
    sqlite3_vfs* const vfs = sqlite3_vfs_find(inVfs.empty() ? nullptr : inVfs.c_str());
    if (vfs == nullptr) return SQLITE_OK;
    const std::unique_ptr<sqlite3_file, FreeFile> file(static_cast<sqlite3_file*>(sqlite3_malloc(vfs->szOsFile)));
    if (file == nullptr) return SQLITE_OK;
    file->pMethods = nullptr;
    if (vfs->xOpen(vfs, inFile, file.get(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_MAIN_DB, nullptr) != SQLITE_OK)
        return SQLITE_OK;
    return file->pMethods->xSync(file.get(), SQLITE_SYNC_NORMAL);
}

}  // namespace

bool Store::ReadEncoded(std::span<const PlacedObject>& ioObjects, Between inBetween, EncodedBatch& outBatch)
{
    if (ioObjects.empty()) return true;
    const std::size_t before = ioObjects.size();
    Answer answer = ioObjects.front().mPlace > 0 ? ReadEncodedRows(ioObjects, inBetween, outBatch) : Answer::Absent;
    // In no row yet, or not in the one that the index tells of.
    if (answer == Answer::Absent && ioObjects.size() == before) {
        outBatch.Clear();
        answer = ReadEncodedByOid(ioObjects.front().mOid, outBatch);
        ioObjects = ioObjects.subspan(1);
    }
    return answer != Answer::Failed;
}

Answer Store::ReadEncodedRows(std::span<const PlacedObject>& ioObjects, Between inBetween, EncodedBatch& outBatch)
{
    Answer answer = Answer::Found;
    bool isDirect = false;
    for (bool isFull = false; answer == Answer::Found && !isFull && !ioObjects.empty();) {
        answer = ReadEncodedRowsFrom(ioObjects, isDirect ? Between::PassedOver : inBetween, outBatch, isFull);
        // A row on the way there may be damaged, and is nobody's loss.
        isDirect = answer == Answer::Failed && !isDirect;
        if (isDirect) answer = Answer::Found;
    }
    return answer;
}

Answer Store::ReadEncodedRowsFrom(std::span<const PlacedObject>& ioObjects, Between inBetween, EncodedBatch& outBatch,
                                  bool& outIsFull)
{
    // Given back before the next search: whoever wants a single file meanwhile has it.
    const ReadPool::Lease lease(mReaders, ReadPool::Use::InBulk);
    if (lease.Get() == nullptr) return Answer::Failed;
    Query query(*lease.Get(), Sql::EncodedRows);
    // What a tree names was often written just before it.
    query.Number(ioObjects.front().mPlace - 1 - (inBetween == Between::Read ? kStepped : 0)).Number(kReadOnTheWay);
    for (bool isFirst = true; !ioObjects.empty();) {
        const PlacedObject& wanted = ioObjects.front();
        const int code = query.Step();
        if (code == SQLITE_DONE) return Answer::Absent;
        if (code != SQLITE_ROW) {
            LogGitError(code, wanted.mOid.Text(), kErrorClassOdb, lease.Get()->ErrorMessage());
            return Answer::Failed;
        }
        const std::int64_t row = query.NumberAt(0);
        if (row < wanted.mPlace && (isFirst || wanted.mPlace - row < kStepped)) {
            if (inBetween == Between::Read) AddEncodedNeighbour(query, outBatch);
            continue;
        }
        if (row < wanted.mPlace) return Answer::Found;
        if (row != wanted.mPlace || query.BytesAt(1) != wanted.mOid.View()) return Answer::Absent;
        const Answer answer = query.IsNullAt(5) ? AddLargeRow(*lease.Get(), wanted, outBatch, outIsFull)
                                                : AddEncodedRow(*lease.Get(), query, wanted.mOid, outBatch, outIsFull);
        if (answer != Answer::Found || outIsFull) return answer;
        ioObjects = ioObjects.subspan(1);
        isFirst = false;
    }
    return Answer::Found;
}

Answer Store::AddLargeRow(Connection& inConnection, const PlacedObject& inObject, EncodedBatch& outBatch,
                          bool& outIsFull)
{
    Query query(inConnection, Sql::AllObjects);
    const int code = query.Number(inObject.mPlace - 1).Step();
    if (code == SQLITE_ROW) return AddEncodedRow(inConnection, query, inObject.mOid, outBatch, outIsFull);
    LogGitError(code, inObject.mOid.Text(), kErrorClassOdb, inConnection.ErrorMessage());
    return Answer::Failed;
}

Answer Store::AddEncodedRow(Connection& inConnection, const Query& inRow, const Oid& inOid, EncodedBatch& outBatch,
                            bool& outIsFull)
{
    const auto kind = static_cast<unsigned>(inRow.NumberAt(2));
    const auto size = static_cast<std::uint64_t>(inRow.NumberAt(3));
    const bool isSplit = (kind & kEncodingSplit) != 0;
    outIsFull = !outBatch.HasRoomFor(isSplit ? size : inRow.BytesAt(5).size());
    if (outIsFull) return Answer::Found;
    Content data{nullptr, inRow.BytesAt(5)};
    if (isSplit) {
        auto content = std::make_shared<std::string>();
        const auto append = [&](std::string_view inPiece) {
            content->append(inPiece);
            return true;
        };
        if (!VisitPieces(inConnection, inRow.NumberAt(4), size, append)) return Answer::Failed;
        data = Content::Share(std::move(content));
    }
    outBatch.Add(inOid, static_cast<ObjectType>(kind & kKindMask), kind & kEncodingZstd, size, std::move(data));
    return Answer::Found;
}

Answer Store::ReadEncodedByOid(const Oid& inOid, EncodedBatch& outBatch)
{
    ObjectType type = ObjectType::Invalid;
    Bytes content;
    if (Read(inOid, type, content) != Answer::Found) return Answer::Failed;
    const std::size_t size = content->size();
    outBatch.Add(inOid, type, 0, size, Content::Share(std::move(content)));
    return Answer::Found;
}

void Store::BeginTransfer()
{
    const ScopedLock lock(mWriter);
    ++mTransfers;
}

bool Store::WriteEncoded(std::span<const EncodedObject> inObjects, std::vector<PlacedObject>& outRows)
{
    if (RefusesToWrite(mOptions.mFile)) return false;
    const std::size_t before = outRows.size();
    ++mWriterWanted;
    const ScopedLock lock(mWriter);
    --mWriterWanted;
    const auto insert = [&]() REQUIRES(mWriter) {
        for (const EncodedObject& object : inObjects) {
            std::int64_t row = 0;
            if (mWaiting.Contains(object.mOid)) continue;
            const bool isDamaged = mDamaged.Contains(object.mOid);
            const int code = isDamaged ? ReplaceObjectLocked(object.mOid, object.mObject)
                                       : InsertObjectLocked(object.mOid, object.mObject, row);
            if (code != SQLITE_OK) return code;
            mNotPressed += object.mObject.mData.mView.size();
            if (!isDamaged) outRows.push_back({object.mOid, row});
        }
        return SQLITE_OK;
    };
    const int code = mInTransaction ? SQLITE_MISUSE : TransactLocked(false, insert);
    if (code == SQLITE_OK) return true;
    outRows.resize(before);
    NoteFailureLocked(code, "transfer");
    return false;
}

bool Store::EndTransfer(std::vector<PlacedObject> inRows)
{
    const ScopedLock lock(mWriter);
    const auto waiting = mWaiting.NotIndexed();
    std::vector<std::pair<Oid, std::int64_t>> entries(waiting);
    entries.reserve(waiting.size() + inRows.size());
    for (const PlacedObject& placed : inRows)
        entries.emplace_back(placed.mOid, placed.mPlace);
    inRows = {};
    noxcore::threads::SortShared(noxcore::threads::IOBoundExecutor(), entries);
    int code = SQLITE_MISUSE;
    std::atomic<int> pressed = SQLITE_OK;
    const auto index = [&]() REQUIRES(mWriter) {
        if (!mInTransaction) code = IndexRowsLocked(entries, mTransfers == 1 ? mLastRow : 0);
    };
    if (mIsBulkLoad && mNotPressed >= kWorthPressing) {
        const char* const file = sqlite3_db_filename(mWriterConnection.Handle(), "main");
        noxcore::threads::WorkWithHelp(noxcore::threads::IOBoundExecutor(), index, [&] {
            pressed = PressOntoDisk(mVfs, file);
            if (pressed != SQLITE_OK) mNeedsReopen = true;  // whatever becomes of the index
        });
        mNotPressed = 0;
    } else {
        index();
    }
    if (code == SQLITE_OK) code = pressed;
    if (code != SQLITE_OK) {
        NoteFailureLocked(code, "index");
        return false;
    }
    --mTransfers;
    mWaiting.Forget(waiting);
    ScheduleMaintenance();
    return true;
}

}  // namespace noxstorage::git::odb

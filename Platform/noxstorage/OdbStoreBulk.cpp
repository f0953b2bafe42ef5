// Many objects at once, in the form of their rows: nothing is compressed anew, and the index grows in its own order.

#include <sqlite3.h>

#include "Platform/noxcore/WorkSharing.h"
#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbSchema.h"
#include "Platform/noxstorage/OdbStore.h"

namespace noxstorage::git::odb {

using noxcore::threads::ScopedLock;

namespace {

constexpr std::int64_t kStepped = 16;  ///< rows that are passed over rather than searched past

}  // namespace

bool Store::ReadEncoded(std::span<const PlacedObject>& ioObjects, EncodedBatch& outBatch)
{
    if (ioObjects.empty()) return true;
    Answer answer = ioObjects.front().mPlace != 0 ? ReadEncodedRows(ioObjects, outBatch) : Answer::Absent;
    // In no row yet, or not in the one that the index tells of.
    if (answer == Answer::Absent && outBatch.Objects().empty()) {
        answer = ReadEncodedByOid(ioObjects.front().mOid, outBatch);
        ioObjects = ioObjects.subspan(1);
    }
    return answer != Answer::Failed && !outBatch.Objects().empty();
}

Answer Store::ReadEncodedRows(std::span<const PlacedObject>& ioObjects, EncodedBatch& outBatch)
{
    const ReadPool::Lease lease(mReaders, ReadPool::Use::InBulk);
    if (lease.Get() == nullptr) return Answer::Failed;
    Query query(*lease.Get(), Sql::AllObjects);
    query.Number(ioObjects.front().mPlace - 1);
    while (!ioObjects.empty()) {
        const PlacedObject& wanted = ioObjects.front();
        const int code = query.Step();
        if (code == SQLITE_DONE) return Answer::Absent;
        if (code != SQLITE_ROW) {
            LogGitError(code, wanted.mOid.Text(), kErrorClassOdb, lease.Get()->ErrorMessage());
            return Answer::Failed;
        }
        const std::int64_t row = query.NumberAt(0);
        if (row < wanted.mPlace && wanted.mPlace - row < kStepped) continue;
        if (row < wanted.mPlace) return Answer::Found;  // far away: searched for anew
        if (row != wanted.mPlace || query.BytesAt(1) != wanted.mOid.View()) return Answer::Absent;
        const auto kind = static_cast<unsigned>(query.NumberAt(2));
        const auto size = static_cast<std::uint64_t>(query.NumberAt(3));
        const bool isSplit = (kind & kEncodingSplit) != 0;
        if (!outBatch.HasRoomFor(isSplit ? size : query.BytesAt(5).size())) return Answer::Found;
        Content data{nullptr, query.BytesAt(5)};
        if (isSplit) {
            auto content = std::make_shared<std::string>();
            const auto append = [&](std::string_view inPiece) {
                content->append(inPiece);
                return true;
            };
            if (!VisitPieces(*lease.Get(), query.NumberAt(4), size, append)) return Answer::Failed;
            data = Content::Share(std::move(content));
        }
        outBatch.Add(wanted.mOid, static_cast<ObjectType>(kind & kKindMask), kind & kEncodingZstd, size,
                     std::move(data));
        ioObjects = ioObjects.subspan(1);
    }
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
            const int code = InsertObjectLocked(object.mOid, object.mObject, row);
            if (code != SQLITE_OK) return code;
            outRows.push_back({object.mOid, row});
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
    const int code = mInTransaction ? SQLITE_MISUSE : IndexRowsLocked(entries, mTransfers == 1 ? mLastRow : 0);
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

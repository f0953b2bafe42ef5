#include <sqlite3.h>

#include <algorithm>
#include <numeric>

#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbSchema.h"
#include "Platform/noxstorage/OdbStore.h"
#include "Platform/noxstorage/SQLite.h"

namespace noxstorage::git::odb {

using noxcore::threads::ScopedLock;

namespace {

constexpr std::int64_t kMostUnreadable = 65536;  ///< rows in succession
constexpr unsigned kStepped = 8;  ///< entries of the index that are passed over rather than searched past

Answer Failure(const Connection& inConnection, int inCode, std::string_view inArgument,
               const std::source_location& inWhere = std::source_location::current())
{
    LogGitError(inCode, inArgument, kErrorClassOdb, inConnection.ErrorMessage(), inWhere);
    return Answer::Failed;
}

ObjectType TypeOf(std::int64_t inKind)
{
    return static_cast<ObjectType>(inKind & kKindMask);
}

/// The id in a row of objects; zero where there is none.
Oid IDAt(const Query& inRow)
{
    const std::string_view bytes = inRow.BytesAt(1);
    return bytes.size() == Oid::kSize ? Oid(bytes.data()) : Oid();
}

/// A read transaction for a part of a connection's work, unless it has one already.
class Snapshot
{
public:
    explicit Snapshot(Connection& inConnection) : mConnection(inConnection), mOwn(!inConnection.InTransaction())
    {
        if (mOwn) mConnection.Run(Sql::Begin);
    }
    ~Snapshot()
    {
        if (mOwn) mConnection.Run(Sql::Rollback);
    }

private:
    Connection& mConnection;
    const bool mOwn;
};

/// Takes along a row and what lies before it. What cannot be read is asked for by itself later, and fails then.
void ReadAheadUpTo(Connection& inConnection, std::int64_t inRow, ReadAhead& outAhead)
{
    Query query(inConnection, Sql::SmallRowsUpTo);
    query.Number(inRow).Number(ReadAhead::kRows).Number(ReadAhead::kLargestObject);
    while (query.Step() == SQLITE_ROW) {
        const auto kind = static_cast<unsigned>(query.NumberAt(1));
        const std::string_view oid = query.BytesAt(0);
        if (oid.size() != Oid::kSize || (kind & kEncodingSplit) != 0 || query.IsNullAt(3)) continue;
        outAhead.Add(Oid(oid.data()), kind, static_cast<std::uint64_t>(query.NumberAt(2)), query.BytesAt(3));
    }
}

/// A look-up by row where that is known, else by id.
class ObjectQuery : public Query
{
public:
    ObjectQuery(Connection& inConnection, const Oid& inOid, std::int64_t inRow, Sql inByRow, Sql inByOid)
        : Query(inConnection, inRow != 0 ? inByRow : inByOid)
    {
        if (inRow != 0)
            Number(inRow);
        else
            Number(inOid.Key()).Bytes(inOid.View());
    }
};

}  // namespace

Answer Store::Damaged(const Oid& inOid, const std::source_location& inWhere)
{
    mDamaged.Add(inOid);
    LogGitError(SQLITE_CORRUPT, inOid.Text(), kErrorClassOdb, "the object's rows are damaged", inWhere);
    return Answer::Failed;
}

template <class FromMemory, class FromFile>
Answer Store::Ask(const Oid& inOid, bool inFresh, FromMemory inFromMemory, FromFile inFromFile)
{
    for (bool fresh = inFresh;; fresh = true) {
        WaitingObjects::Place place;
        if (mWaiting.Find(inOid, place) && place.mObject != nullptr) return inFromMemory(*place.mObject);
        const ReadPool::Lease lease(mReaders, fresh ? ReadPool::Use::Fresh : ReadPool::Use::OfThread);
        if (lease.Get() == nullptr) return Answer::Failed;
        const Answer answer = inFromFile(*lease.Get(), place.mRow);
        if (answer != Answer::Absent) return answer;
        if (!lease.OfScope() && !TakeUpNewRows()) return Answer::Absent;
    }
}

Answer Store::Read(const Oid& inOid, ObjectType& outType, Bytes& outContent)
{
    std::string content;
    const Answer answer = Ask(
        inOid, false,
        [&](const Encoded& inObject) {
            outType = inObject.mType;
            const bool decoded = Decode(inObject.mEncoding, inObject.mData.mView, inObject.mSize, content);
            return decoded ? Answer::Found : Damaged(inOid);
        },
        [&](Connection& inConnection, std::int64_t inRow) {
            return ReadAt(inConnection, inOid, inRow, outType, content);
        });
    if (answer == Answer::Found) outContent = std::make_shared<const std::string>(std::move(content));
    return answer;
}

Answer Store::ReadAt(Connection& inConnection, const Oid& inOid, std::int64_t inRow, ObjectType& outType,
                     std::string& outContent)
{
    ReadAhead* const ahead = inConnection.Ahead();
    if (const ReadAhead::Object* const object = ahead != nullptr ? ahead->Find(inOid) : nullptr) {
        outType = TypeOf(object->mKind);
        return Decode(object->mKind, object->mData, object->mSize, outContent) ? Answer::Found : Damaged(inOid);
    }
    std::int64_t row = 0;
    {
        ObjectQuery query(inConnection, inOid, inRow, Sql::ObjectByRow, Sql::ObjectByOid);
        const int code = query.Step();
        if (code == SQLITE_DONE) return Answer::Absent;
        if (code != SQLITE_ROW) return Failure(inConnection, code, inOid.Text());
        const auto kind = static_cast<unsigned>(query.NumberAt(1));
        outType = TypeOf(kind);
        if ((kind & kEncodingSplit) == 0) {
            const auto size = static_cast<std::uint64_t>(query.NumberAt(2));
            if (!Decode(kind, query.BytesAt(4), size, outContent)) return Damaged(inOid);
            if (ahead != nullptr && outContent.size() <= ReadAhead::kLargestShared)
                ahead->Add(inOid, kind, size, query.BytesAt(4));
            row = query.NumberAt(0);
        }
    }
    if (row != 0) {
        if (ahead != nullptr && outType == ObjectType::Tree && outContent.size() <= ReadAhead::kLargestTree)
            ReadAheadUpTo(inConnection, row - 1, *ahead);
        return Answer::Found;
    }
    Header header;
    outContent.clear();
    return PiecesAt(inConnection, inOid, inRow, header, [&](std::string_view inPiece) {
        outContent.append(inPiece);
        return true;
    });
}

Answer Store::PiecesAt(Connection& inConnection, const Oid& inOid, std::int64_t inRow, Header& outHeader,
                       const PieceVisitor& inVisitor)
{
    const Snapshot snapshot(inConnection);
    std::int64_t firstRow = 0;
    {
        ObjectQuery query(inConnection, inOid, inRow, Sql::ObjectByRow, Sql::ObjectByOid);
        const int code = query.Step();
        if (code == SQLITE_DONE) return Answer::Absent;
        if (code != SQLITE_ROW) return Failure(inConnection, code, inOid.Text());
        const auto kind = static_cast<unsigned>(query.NumberAt(1));
        outHeader = {TypeOf(kind), static_cast<std::uint64_t>(query.NumberAt(2))};
        if ((kind & kEncodingSplit) == 0) {
            std::string content;
            if (!Decode(kind, query.BytesAt(4), outHeader.mSize, content)) return Damaged(inOid);
            return inVisitor(content) ? Answer::Found : Answer::Failed;
        }
        firstRow = query.NumberAt(3);
    }
    return VisitPieces(inConnection, firstRow, outHeader.mSize, inVisitor) ? Answer::Found : Damaged(inOid);
}

bool Store::VisitPieces(Connection& inConnection, std::int64_t inFirstRow, std::uint64_t inSize,
                        const PieceVisitor& inVisitor)
{
    Query query(inConnection, Sql::PiecesFrom);
    query.Number(inFirstRow);
    std::string piece;
    std::uint64_t rest = inSize;
    while (rest != 0) {
        if (query.Step() != SQLITE_ROW) return false;
        const auto kind = static_cast<unsigned>(query.NumberAt(0));
        const auto size = static_cast<std::uint64_t>(query.NumberAt(1));
        if ((kind & kKindMask) != kKindPiece || size == 0 || size > rest) return false;
        if (!Decode(kind, query.BytesAt(2), size, piece) || !inVisitor(piece)) return false;
        rest -= size;
    }
    return true;
}

Answer Store::ReadPieces(const Oid& inOid, Header& outHeader, const PieceVisitor& inVisitor)
{
    // A connection of its own, since the visitor may read with the thread's.
    return Ask(
        inOid, true,
        [&](const Encoded& inObject) {
            outHeader = {inObject.mType, inObject.mSize};
            std::string content;
            if (!Decode(inObject.mEncoding, inObject.mData.mView, inObject.mSize, content)) return Damaged(inOid);
            return inVisitor(content) ? Answer::Found : Answer::Failed;
        },
        [&](Connection& inConnection, std::int64_t inRow) {
            return PiecesAt(inConnection, inOid, inRow, outHeader, inVisitor);
        });
}

Answer Store::HeaderAt(Connection& inConnection, const Oid& inOid, std::int64_t inRow, Header& outHeader)
{
    ObjectQuery query(inConnection, inOid, inRow, Sql::HeaderByRow, Sql::HeaderByOid);
    const int code = query.Step();
    if (code == SQLITE_DONE) return Answer::Absent;
    if (code != SQLITE_ROW) return Failure(inConnection, code, inOid.Text());
    outHeader = {TypeOf(query.NumberAt(1)), static_cast<std::uint64_t>(query.NumberAt(2))};
    return Answer::Found;
}

std::vector<std::int64_t> Store::FindRows(std::span<const Oid> inOids)
{
    std::vector<std::uint32_t> order(inOids.size());
    std::iota(order.begin(), order.end(), 0U);
    std::sort(order.begin(), order.end(),
              [&](std::uint32_t inLeft, std::uint32_t inRight) { return inOids[inLeft] < inOids[inRight]; });
    std::vector<PlacedObject> objects;
    objects.reserve(inOids.size());
    for (const std::uint32_t index : order)
        objects.push_back({inOids[index], 0});
    FindRows(objects);
    std::vector<std::int64_t> rows(inOids.size());
    for (std::size_t at = 0; at < order.size(); ++at)
        rows[order[at]] = objects[at].mPlace;
    return rows;
}

bool Store::FindRows(std::span<PlacedObject> ioObjects)
{
    const ReadPool::Lease lease(mReaders);
    if (lease.Get() == nullptr) return false;
    const Snapshot snapshot(*lease.Get());
    while (!ioObjects.empty()) {
        if (!FindRowsFrom(*lease.Get(), ioObjects)) return false;
    }
    return true;
}

bool Store::FindRowsFrom(Connection& inConnection, std::span<PlacedObject>& ioObjects)
{
    Query query(inConnection, Sql::KeysFrom);
    query.Number(ioObjects.front().mOid.Key());
    int code = query.Step();
    for (std::size_t index = 0; index < ioObjects.size(); ++index) {
        PlacedObject& object = ioObjects[index];
        WaitingObjects::Place place;
        if (mWaiting.Find(object.mOid, place)) {
            object.mPlace = place.mRow;
            continue;
        }
        // Steps that are taken here cost less than a search from the top as long as they are few.
        for (unsigned steps = 0; code == SQLITE_ROW && query.NumberAt(0) < object.mOid.Key(); ++steps) {
            if (steps == kStepped) {
                ioObjects = ioObjects.subspan(index);
                return true;
            }
            code = query.Step();
        }
        if (code == SQLITE_ROW && query.NumberAt(0) == object.mOid.Key()) object.mPlace = query.NumberAt(1);
    }
    ioObjects = {};
    return code == SQLITE_ROW || code == SQLITE_DONE || Failure(inConnection, code, mOptions.mFile) == Answer::Found;
}

void Store::ReadAheadOfScope(std::int64_t inRow)
{
    const ReadPool::Lease lease(mReaders);
    if (lease.OfScope() && inRow > 0) ReadAheadUpTo(*lease.Get(), inRow, *lease.Get()->Ahead());
}

Answer Store::ReadHeader(const Oid& inOid, Header& outHeader)
{
    return Ask(
        inOid, false,
        [&](const Encoded& inObject) {
            outHeader = {inObject.mType, inObject.mSize};
            return Answer::Found;
        },
        [&](Connection& inConnection, std::int64_t inRow) { return HeaderAt(inConnection, inOid, inRow, outHeader); });
}

Answer Store::ReadType(const Oid& inOid, ObjectType& outType)
{
    WaitingObjects::Place place;
    if (mWaiting.Find(inOid, place)) {
        outType = place.mType;
        return Answer::Found;
    }
    Header header;
    const Answer answer = ReadHeader(inOid, header);
    if (answer == Answer::Found) outType = header.mType;
    return answer;
}

Answer Store::LookUp(const Oid& inOid, ObjectType& outType)
{
    const auto ofIndex = [&](Connection& inConnection, std::int64_t) {
        outType = ObjectType::Invalid;
        Query query(inConnection, Sql::HasKey);
        const int code = query.Number(inOid.Key()).Step();
        if (code == SQLITE_ROW) return Answer::Found;
        return code == SQLITE_DONE ? Answer::Absent : Failure(inConnection, code, inOid.Text());
    };
    WaitingObjects::Place place;
    if (!mWaiting.Find(inOid, place)) {
        return Ask(
            inOid, false, [](const Encoded&) { return Answer::Found; }, ofIndex);
    }
    outType = place.mType;
    return Answer::Found;
}

bool Store::Contains(const Oid& inOid)
{
    if (mWaiting.Contains(inOid)) return true;
    const ReadPool::Lease lease(mReaders);
    if (lease.Get() == nullptr) return false;
    return lease.Get()->Find(inOid) == SQLITE_ROW;
}

bool Store::TakeUpNewRows()
{
    if (mOptions.mWritable) return false;
    const ScopedLock lock(mWriter);
    if (mClosed) return false;
    const std::int64_t known = mLastRow;
    Query query(mWriterConnection, Sql::NewRows);
    query.Number(known);
    while (query.Step() == SQLITE_ROW) {
        mLastRow = query.NumberAt(0);
        AddStoredRow(query);
    }
    return mLastRow != known;
}

Answer Store::FindByPrefix(std::string_view inDigits, std::vector<Oid>& outOids)
{
    Oid first;
    std::string padded(inDigits.substr(0, Oid::kTextSize));
    padded.resize(Oid::kTextSize, '0');
    if (!Oid::FromText(padded, first)) return Answer::Absent;
    const std::string digits = first.Text().substr(0, inDigits.size());

    mWaiting.CollectByPrefix(first.View().substr(0, digits.size() / 2), outOids);
    const ReadPool::Lease lease(mReaders);
    if (lease.Get() == nullptr) return Answer::Failed;
    const auto collect = [&](Query& inQuery) {
        for (unsigned count = 0; count < 2 && inQuery.Step() == SQLITE_ROW;) {
            const Oid oid(inQuery.BytesAt(0).data());
            if (oid < first) continue;
            outOids.push_back(oid);
            ++count;
        }
    };
    Query query(*lease.Get(), Sql::OidsFrom);
    collect(query.Number(first.Key()));
    Query collided(*lease.Get(), Sql::CollidedFrom);
    collect(collided.Bytes(first.View()));
    std::erase_if(outOids, [&](const Oid& inOid) { return !inOid.Text().starts_with(digits); });
    std::sort(outOids.begin(), outOids.end());
    outOids.erase(std::unique(outOids.begin(), outOids.end()), outOids.end());
    return outOids.empty() ? Answer::Absent : Answer::Found;
}

bool Store::ForEach(const ObjectVisitor& inVisitor, const DamageVisitor& inDamaged)
{
    const ReadPool::Lease lease(mReaders, ReadPool::Use::Fresh);
    if (lease.Get() == nullptr) return false;
    const Snapshot snapshot(*lease.Get());
    std::int64_t row = 0;  // all up to here are done
    bool passesOver = false;
    std::int64_t lastReadable = 0;  // while rows have to be passed over
    for (;;) {
        Query query(*lease.Get(), Sql::AllObjects);
        query.Number(row);
        int code = SQLITE_OK;
        while ((code = query.Step()) == SQLITE_ROW) {
            row = query.NumberAt(0);
            if (passesOver) inDamaged(Oid(), lastReadable + 1, row - 1);
            passesOver = false;
            const Answer answer = VisitObject(*lease.Get(), query, inVisitor);
            if (answer == Answer::Absent || (answer == Answer::Failed && !inDamaged)) return false;
            if (answer == Answer::Failed) inDamaged(IDAt(query), row, row);
        }
        if (code == SQLITE_DONE && !passesOver) return true;
        // The row that failed is not known: one place after the other is passed over until reading goes on.
        if (!passesOver) {
            Failure(*lease.Get(), code, mOptions.mFile);
            passesOver = true;
            lastReadable = row;
        }
        const bool mayGoOn = sqlite::IsDamage(code) && row - lastReadable < kMostUnreadable;
        if (inDamaged && mayGoOn) {
            ++row;
            continue;
        }
        if (inDamaged) inDamaged(Oid(), lastReadable + 1, row);
        return code == SQLITE_DONE;
    }
}

Answer Store::VisitObject(Connection& inConnection, const Query& inRow, const ObjectVisitor& inVisitor)
{
    const Oid oid = IDAt(inRow);
    if (oid.IsZero()) return Answer::Failed;
    const auto kind = static_cast<unsigned>(inRow.NumberAt(2));
    const auto size = static_cast<std::uint64_t>(inRow.NumberAt(3));
    bool goOn = true;
    const auto visit = [&](std::string_view inPiece) {
        goOn = inVisitor(oid, TypeOf(kind), size, inPiece);
        return goOn;
    };
    if ((kind & kEncodingSplit) != 0) {
        const bool whole = VisitPieces(inConnection, inRow.NumberAt(4), size, visit);
        if (!whole && goOn) return Damaged(oid);
    } else {
        std::string content;
        if (!Decode(kind, inRow.BytesAt(5), size, content)) return Damaged(oid);
        if (!content.empty()) visit(content);
    }
    return goOn && visit({}) ? Answer::Found : Answer::Absent;
}

Answer Store::ReadReference(std::string_view inName, Reference& outReference)
{
    const ReadPool::Lease lease(mReaders);
    if (lease.Get() == nullptr) return Answer::Failed;
    Query query(*lease.Get(), Sql::GetRef);
    const int code = query.Text(inName).Step();
    if (code == SQLITE_DONE) return Answer::Absent;
    if (code != SQLITE_ROW) return Failure(*lease.Get(), code, inName);
    outReference = {std::string(inName), Oid(), std::string(query.BytesAt(1))};
    if (query.BytesAt(0).size() == Oid::kSize) outReference.mOid = Oid(query.BytesAt(0).data());
    return Answer::Found;
}

bool Store::ListReferences(std::vector<Reference>& outReferences)
{
    const ReadPool::Lease lease(mReaders);
    if (lease.Get() == nullptr) return false;
    Query query(*lease.Get(), Sql::ListRefs);
    int code = SQLITE_OK;
    while ((code = query.Step()) == SQLITE_ROW) {
        outReferences.push_back({std::string(query.BytesAt(0)), Oid(), std::string(query.BytesAt(2))});
        if (query.BytesAt(1).size() == Oid::kSize) outReferences.back().mOid = Oid(query.BytesAt(1).data());
    }
    return code == SQLITE_DONE || Failure(*lease.Get(), code, mOptions.mFile) == Answer::Found;
}

}  // namespace noxstorage::git::odb

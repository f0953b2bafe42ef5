#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/noxstorage/GitOid.h"
#include "Platform/noxstorage/OdbReadAhead.h"

struct sqlite3;
struct sqlite3_stmt;

namespace noxstorage::git::odb {

/// The prepared statements of a connection; their texts stand in OdbConnection.cpp in the same order.
enum class Sql
{
    RowByOid,        ///< key, oid -> row
    ObjectByOid,     ///< key, oid -> row, kind, size, base, data
    ObjectByRow,     ///< row -> row, kind, size, base, data
    SmallRowsUpTo,   ///< row, number, bytes -> oid, kind, size, data of that row and so many before it; no data of
                     ///< larger
    HeaderByOid,     ///< key, oid -> row, kind, size
    HeaderByRow,     ///< row -> row, kind, size
    PiecesFrom,      ///< row -> kind, size, data of this and all later rows
    HasKey,          ///< key -> row when the index has it
    KeysFrom,        ///< key -> key, row of the index from there on
    OidsFrom,        ///< key -> oid from there on, in order of ids
    CollidedFrom,    ///< oid -> oid from there on, in order of ids
    NewRows,         ///< row -> row, oid, kind of all later rows
    AllObjects,      ///< row -> row, oid, kind, size, base, data of all later rows
    EncodedRows,     ///< row, bytes -> row, oid, kind, size, base, data of all later rows; no data of larger
    InsertObject,    ///< row, oid, kind, size, base, data
    InsertOid,       ///< key, row
    InsertOids,      ///< key, row, kOidsAtOnce times: twice as fast as one by one
    OidAtKey,        ///< key -> oid
    InsertCollided,  ///< oid, row
    UpdateObject,    ///< row, kind, base, data
    DeleteRows,      ///< first row, last row
    MaxRow,
    GetRef,          ///< name -> oid, target
    SetRef,          ///< name, oid, target
    DeleteRef,       ///< name
    ListRefs,        ///< -> name, oid, target
    GetSetting,      ///< name -> value
    SetSetting,      ///< name, value
    Begin,           ///< a read transaction
    BeginImmediate,  ///< a write transaction
    Commit,
    Rollback,
    Count
};

inline constexpr std::size_t kOidsAtOnce = 16;

/// One SQLite connection to a repository's file with its statements kept. Opened without SQLite's own mutexes.
/// Threading: one thread at a time.
class Connection
{
public:
    Connection() = default;
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// SQLite's code. inVfs empty: SQLite's default.
    int Open(const std::string& inPath, const std::string& inVfs, bool inWritable, bool inCreate);
    void Close();
    /// The last connection to a file moves the log into it when it closes, and syncs; not if this was called.
    void ForbidCheckpointOnClose();
    /// Runs statements that are not kept.
    int Execute(const std::string& inCommand);
    /// One number that a statement gives; the default when it gives none.
    std::int64_t Number(const char* inCommand, std::int64_t inDefault);
    /// Runs a kept statement without parameters and results.
    int Run(Sql inStatement);
    /// SQLITE_ROW when the index has the object, SQLITE_DONE when not, else the failure.
    int Find(const Oid& inOid);
    /// The kept statement, prepared if need be; null on failure.
    sqlite3_stmt* Prepared(Sql inStatement);

    [[nodiscard]] sqlite3* Handle() const { return mHandle; }
    [[nodiscard]] int ErrorCode() const;
    [[nodiscard]] std::string ErrorMessage() const;
    [[nodiscard]] bool InTransaction() const;

    /// A read transaction in which many objects are read. inState tells one state of the file from another: where the
    /// transaction of the last scope was kept and is of the same state, it goes on, which costs no call of the system.
    void BeginScope(std::uint64_t inState);
    /// With inKeep the read transaction stays open, for the next scope or until EndTransaction.
    void EndScope(bool inKeep);
    void EndTransaction();
    /// Null outside a scope.
    [[nodiscard]] ReadAhead* Ahead() const { return mInScope ? mAhead.get() : nullptr; }

private:
    sqlite3* mHandle = nullptr;
    std::array<sqlite3_stmt*, static_cast<std::size_t>(Sql::Count)> mStatements{};
    std::unique_ptr<ReadAhead> mAhead;  ///< as old as the read transaction
    std::uint64_t mState = 0;           ///< what the read transaction shows, or an earlier one
    bool mInScope = false;
};

/// One use of a kept statement; reset when it goes. Bytes bound are not copied and must outlive it.
class Query
{
public:
    Query(Connection& inConnection, Sql inStatement) : mStatement(inConnection.Prepared(inStatement)) {}
    ~Query();
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;

    Query& Number(std::int64_t inValue);
    Query& Bytes(std::string_view inBytes);
    Query& Text(std::string_view inText);
    Query& Null();
    /// SQLite's extended code: SQLITE_ROW, SQLITE_DONE or a failure.
    int Step();

    [[nodiscard]] std::int64_t NumberAt(int inColumn) const;
    [[nodiscard]] std::string_view BytesAt(int inColumn) const;
    [[nodiscard]] bool IsNullAt(int inColumn) const;

private:
    sqlite3_stmt* mStatement;
    int mIndex = 0;
};

}  // namespace noxstorage::git::odb

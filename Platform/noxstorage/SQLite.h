#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace noxstorage::sqlite {

constexpr int kOK = 0;
constexpr int kError = 1;
constexpr int kMismatch = 20;
constexpr int kRow = 100;
constexpr int kDone = 101;
constexpr int kDBConfigEnableFKey = 1002;

/// Which SQLite VFS databases of a hub are opened through. Published in the HubContext by a test that makes writes
/// fail, tear or be recorded; absent, SQLite's own default serves.
struct VfsChoice
{
    std::string mName;
};

/// Settings of the whole process, made before its first connection opens. Called by whatever opens one.
void Prepare();

/// A file comes from anywhere: nothing that its schema says is run, nor may it be made to say more. Called by whatever
/// opens one.
void DistrustSchema(sqlite3* inHandle);

/// Renames a damaged database, and its log with it, lest the log be taken for that of the file that comes in its place.
/// Kept, since somebody may still get something out of it. outAside: the new name. False when it cannot be renamed.
bool PutAside(const std::string& inPath, std::string& outAside);

/// What every side database of a session runs with. A killed process loses nothing; a power cut may drop the newest
/// transactions, never tear one.
constexpr std::string_view kWriteAheadLogSettings = "PRAGMA journal_mode = WAL;PRAGMA synchronous = NORMAL";
constexpr int kBusyTimeoutMilliseconds = 10000;

/// One database connection. Operations follow the SQLite functions of the same names and return SQLite's main codes.
///
/// Threading: opened in serialized mode, so any thread may use it; users that pair a statement with its results lock
/// above this class. Closed with its last owner; a statement that still lives keeps the file open until it goes.
class Db
{
public:
    Db() = default;
    ~Db();
    Db(const Db&) = delete;
    Db& operator=(const Db&) = delete;

    /// Opens or creates the file (":memory:" for none), through the context's VfsChoice. After a failure Errcode and
    /// Errmsg tell why, and every other operation fails. The file itself is not touched before its first use, so that
    /// a file that is no database shows later, as code 26.
    int Open16(const std::string& inPath);
    int OpenReadOnly(const std::string& inPath);
    int BusyTimeout(int inMilliseconds);
    /// Switches like kDBConfigEnableFKey: 1 on, 0 off.
    int DbConfig(int inOption, int inValue);
    /// Full path of the file; empty for a database in memory.
    [[nodiscard]] std::string DbFilename() const;
    /// Codes and text of the last operation that failed.
    [[nodiscard]] int Errcode() const;
    [[nodiscard]] int ExtendedErrcode() const;
    [[nodiscard]] std::string Errmsg() const;
    /// Runs one or more statements, whose rows are dropped; stops at the first that fails. kOK on success.
    int ExecuteCmd(std::string_view inCommand);
    /// Number of rows that the last INSERT, UPDATE or DELETE changed.
    [[nodiscard]] std::int64_t Changes() const;
    [[nodiscard]] sqlite3* Handle() const { return mHandle; }

private:
    int Open(const std::string& inPath, int inFlags);

    sqlite3* mHandle = nullptr;
};

/// A prepared statement. Parameters count from 1, columns from 0. Not for use by two threads at once.
class Statement
{
public:
    Statement() = default;
    ~Statement() { Finalize(); }
    Statement(Statement&& inOther) noexcept;
    Statement& operator=(Statement&& inOther) noexcept;

    int PrepareV2(Db& inDb, std::string_view inCommand);
    int BindInt64(int inIndex, std::int64_t inValue);
    /// The text is copied.
    int BindText(int inIndex, std::string_view inText);
    /// Bytes are not copied: they must live until Reset or Finalize.
    int BindBlob(int inIndex, std::string_view inBytes);
    /// kRow with a row at hand, kDone after the last one.
    int Step();
    int Reset();
    void Finalize();
    [[nodiscard]] std::int64_t ColumnInt64(int inColumn) const;
    /// Views of a column hold until the next Step, Reset or Finalize. NULL reads as empty.
    [[nodiscard]] std::string_view ColumnText(int inColumn) const;
    [[nodiscard]] std::string_view ColumnBlob(int inColumn) const;
    [[nodiscard]] int ColumnBytes(int inColumn) const;
    [[nodiscard]] bool IsPrepared() const { return mStatement != nullptr; }

private:
    sqlite3_stmt* mStatement = nullptr;
};

/// Marks bytes among the values of PrepareAndBindCmd; not copied, see BindBlob.
struct Bytes
{
    std::string_view mBytes;
};

namespace detail {
inline int Bind(Statement& inStatement, int inIndex, std::int64_t inValue)
{
    return inStatement.BindInt64(inIndex, inValue);
}
inline int Bind(Statement& inStatement, int inIndex, std::string_view inValue)
{
    return inStatement.BindText(inIndex, inValue);
}
inline int Bind(Statement& inStatement, int inIndex, Bytes inValue)
{
    return inStatement.BindBlob(inIndex, inValue.mBytes);
}
}  // namespace detail

/// Prepares a command and binds its parameters in order: whole numbers, texts and Bytes.
template <class... T>
int PrepareAndBindCmd(Db& inDb, Statement& outStatement, std::string_view inCommand, const T&... inValues)
{
    int result = outStatement.PrepareV2(inDb, inCommand);
    [[maybe_unused]] int index = 0;
    ((result = result == kOK ? detail::Bind(outStatement, ++index, inValues) : result), ...);
    return result;
}

/// Commands of one connection that become durable together. What was not ended is rolled back when the owner goes.
class Transaction
{
public:
    explicit Transaction(Db& inDb) : mDb(inDb) {}
    ~Transaction() { Rollback(); }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    /// Fails inside another transaction of the same connection, which stays as it is.
    int Begin();
    /// After a failure the transaction is still open unless SQLite closed it by itself.
    int End();
    void Rollback();

private:
    Db& mDb;
    bool mOpen = false;
};

/// Codes, main or extended, that say "not now" or "no room": never a sign of a damaged file.
[[nodiscard]] bool IsTransientOrFull(int inCode);
/// Codes, main or extended, that say the file is damaged or no database.
[[nodiscard]] bool IsDamage(int inCode);

}  // namespace noxstorage::sqlite

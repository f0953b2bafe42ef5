#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace noxstorage::sqlite {

constexpr int kOK = 0;
constexpr int kError = 1;
constexpr int kRow = 100;
constexpr int kDone = 101;
constexpr int kDBConfigEnableFKey = 1002;

/// Which SQLite VFS databases of a hub are opened through. Published in the HubContext by a test that makes writes
/// fail, tear or be recorded; absent, SQLite's own default serves.
struct VfsChoice
{
    std::string mName;
};

/// One database connection. Operations follow the SQLite functions of the same names and return SQLite's codes.
///
/// Threading: opened in serialized mode, so any thread may use it; users that pair a statement with its results lock
/// above this class. Closed with its last owner, statements first.
class Db
{
public:
    Db() = default;
    ~Db();
    Db(const Db&) = delete;
    Db& operator=(const Db&) = delete;

    /// Opens or creates the file (":memory:" for none).
    int Open16(const std::string& inPath);
    int OpenReadOnly(const std::string& inPath);
    int BusyTimeout(int inMilliseconds);
    int DbConfig(int inOption, int inValue);
    [[nodiscard]] std::string DbFilename() const;
    [[nodiscard]] int Errcode() const;
    [[nodiscard]] int ExtendedErrcode() const;
    [[nodiscard]] std::string Errmsg() const;
    /// Runs one or more statements that give no rows; stops at the first that fails.
    int ExecuteCmd(std::string_view inCommand);
    [[nodiscard]] sqlite3* Handle() const { return mHandle; }

private:
    sqlite3* mHandle = nullptr;
};

/// A prepared statement. Parameters count from 1, columns from 0.
class Statement
{
public:
    Statement() = default;
    ~Statement() { Finalize(); }
    Statement(Statement&& inOther) noexcept;
    Statement& operator=(Statement&& inOther) noexcept;

    int PrepareV2(Db& inDb, std::string_view inCommand);
    int BindInt64(int inIndex, std::int64_t inValue);
    int BindText(int inIndex, std::string_view inText);
    /// Bytes are not copied: they must live until Reset or Finalize.
    int BindBlob(int inIndex, std::string_view inBytes);
    int Step();
    int Reset();
    void Finalize();
    [[nodiscard]] std::int64_t ColumnInt64(int inColumn) const;
    [[nodiscard]] std::string_view ColumnText(int inColumn) const;
    [[nodiscard]] std::string_view ColumnBlob(int inColumn) const;
    [[nodiscard]] int ColumnBytes(int inColumn) const;
    [[nodiscard]] bool IsPrepared() const { return mStatement != nullptr; }

private:
    sqlite3_stmt* mStatement = nullptr;
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
}  // namespace detail

/// Prepares a command and binds its parameters in order: whole numbers and texts.
template <class... T>
int PrepareAndBindCmd(Db& inDb, Statement& outStatement, std::string_view inCommand, const T&... inValues)
{
    int result = outStatement.PrepareV2(inDb, inCommand);
    int index = 0;
    ((result = result == kOK ? detail::Bind(outStatement, ++index, inValues) : result), ...);
    return result;
}

/// Codes that say "not now" or "no room": never a sign of a damaged file.
[[nodiscard]] bool IsTransientOrFull(int inCode);

}  // namespace noxstorage::sqlite

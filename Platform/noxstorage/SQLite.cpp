#include "Platform/noxstorage/SQLite.h"

#include <sqlite3.h>

#include <climits>
#include <utility>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/HubContext.h"

namespace noxstorage::sqlite {

static_assert(kOK == SQLITE_OK && kError == SQLITE_ERROR && kMismatch == SQLITE_MISMATCH && kRow == SQLITE_ROW &&
              kDone == SQLITE_DONE && kDBConfigEnableFKey == SQLITE_DBCONFIG_ENABLE_FKEY);

namespace {

// SQLite takes a null pointer for NULL; an empty view may have one and is meant as an empty value.
const char* NotNull(std::string_view inBytes)
{
    return inBytes.data() != nullptr ? inBytes.data() : "";
}

}  // namespace

void Prepare()
{
    // Its counting of memory takes one mutex of the process for every allocation, so that connections wait for each
    // other. Refused, and of no harm, where SQLite runs already.
    static const int once = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    static_cast<void>(once);
}

bool PutAside(const std::string& inPath, std::string& outAside)
{
    auto& files = noxcore::filesupport::Files();
    const std::string aside =
        inPath + ".damaged-" + std::to_string(noxcore::HubContext::Current()->GetClock().NowTicks());
    for (const char* suffix : {"-wal", "-shm", ""}) {
        if (files.FileExists(inPath + suffix) && !files.Rename(inPath + suffix, aside + suffix)) return false;
    }
    outAside = aside;
    return true;
}

Db::~Db()
{
    sqlite3_close_v2(mHandle);
}

int Db::Open16(const std::string& inPath)
{
    return Open(inPath, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
}

int Db::OpenReadOnly(const std::string& inPath)
{
    return Open(inPath, SQLITE_OPEN_READONLY);
}

void DistrustSchema(sqlite3* inHandle)
{
    sqlite3_db_config(inHandle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(inHandle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
}

int Db::Open(const std::string& inPath, int inFlags)
{
    Prepare();
    sqlite3_close_v2(std::exchange(mHandle, nullptr));
    const auto choice = noxcore::HubContext::Current()->GetInstance<VfsChoice>();
    const int code = sqlite3_open_v2(inPath.c_str(), &mHandle, inFlags | SQLITE_OPEN_FULLMUTEX,
                                     choice != nullptr ? choice->mName.c_str() : nullptr);
    if (code == SQLITE_OK) DistrustSchema(mHandle);
    return code;
}

int Db::BusyTimeout(int inMilliseconds)
{
    return mHandle != nullptr ? sqlite3_busy_timeout(mHandle, inMilliseconds) : SQLITE_MISUSE;
}

int Db::DbConfig(int inOption, int inValue)
{
    return mHandle != nullptr ? sqlite3_db_config(mHandle, inOption, inValue, nullptr) : SQLITE_MISUSE;
}

std::string Db::DbFilename() const
{
    const char* name = mHandle != nullptr ? sqlite3_db_filename(mHandle, "main") : nullptr;
    return name != nullptr ? name : "";
}

int Db::Errcode() const
{
    return mHandle != nullptr ? sqlite3_errcode(mHandle) : SQLITE_MISUSE;
}

int Db::ExtendedErrcode() const
{
    return mHandle != nullptr ? sqlite3_extended_errcode(mHandle) : SQLITE_MISUSE;
}

std::string Db::Errmsg() const
{
    return mHandle != nullptr ? sqlite3_errmsg(mHandle) : sqlite3_errstr(SQLITE_MISUSE);
}

int Db::ExecuteCmd(std::string_view inCommand)
{
    if (mHandle == nullptr) return SQLITE_MISUSE;
    return sqlite3_exec(mHandle, std::string(inCommand).c_str(), nullptr, nullptr, nullptr);
}

std::int64_t Db::Changes() const
{
    return mHandle != nullptr ? sqlite3_changes64(mHandle) : 0;
}

Statement::Statement(Statement&& inOther) noexcept : mStatement(std::exchange(inOther.mStatement, nullptr)) {}

Statement& Statement::operator=(Statement&& inOther) noexcept
{
    std::swap(mStatement, inOther.mStatement);
    return *this;
}

int Statement::PrepareV2(Db& inDb, std::string_view inCommand)
{
    Finalize();
    if (inDb.Handle() == nullptr || inCommand.size() > INT_MAX) return SQLITE_MISUSE;
    return sqlite3_prepare_v2(inDb.Handle(), inCommand.data(), static_cast<int>(inCommand.size()), &mStatement,
                              nullptr);
}

int Statement::BindInt64(int inIndex, std::int64_t inValue)
{
    return sqlite3_bind_int64(mStatement, inIndex, inValue);
}

int Statement::BindText(int inIndex, std::string_view inText)
{
    return sqlite3_bind_text64(mStatement, inIndex, NotNull(inText), inText.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

int Statement::BindBlob(int inIndex, std::string_view inBytes)
{
    return sqlite3_bind_blob64(mStatement, inIndex, NotNull(inBytes), inBytes.size(), SQLITE_STATIC);
}

int Statement::Step()
{
    return sqlite3_step(mStatement);
}

int Statement::Reset()
{
    return sqlite3_reset(mStatement);
}

void Statement::Finalize()
{
    sqlite3_finalize(std::exchange(mStatement, nullptr));
}

std::int64_t Statement::ColumnInt64(int inColumn) const
{
    return sqlite3_column_int64(mStatement, inColumn);
}

std::string_view Statement::ColumnText(int inColumn) const
{
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(mStatement, inColumn));
    return text != nullptr ? std::string_view(text, static_cast<std::size_t>(ColumnBytes(inColumn)))
                           : std::string_view();
}

std::string_view Statement::ColumnBlob(int inColumn) const
{
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(mStatement, inColumn));
    return bytes != nullptr ? std::string_view(bytes, static_cast<std::size_t>(ColumnBytes(inColumn)))
                            : std::string_view();
}

int Statement::ColumnBytes(int inColumn) const
{
    return sqlite3_column_bytes(mStatement, inColumn);
}

int Transaction::Begin()
{
    const int result = mDb.ExecuteCmd("BEGIN");
    mOpen = result == kOK;
    return result;
}

int Transaction::End()
{
    const int result = mDb.ExecuteCmd("END");
    if (result == kOK) mOpen = false;
    return result;
}

void Transaction::Rollback()
{
    // A full disk or a failed write may have ended the transaction already; then there is nothing left to roll back.
    if (mOpen && sqlite3_get_autocommit(mDb.Handle()) == 0) mDb.ExecuteCmd("ROLLBACK");
    mOpen = false;
}

bool IsTransientOrFull(int inCode)
{
    switch (inCode & 0xff) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_NOMEM:
        case SQLITE_INTERRUPT:
        case SQLITE_IOERR:
        case SQLITE_FULL:
        case SQLITE_CANTOPEN:
        case SQLITE_PROTOCOL:
            return true;
        default:
            return false;
    }
}

bool IsDamage(int inCode)
{
    const int main = inCode & 0xff;
    return main == SQLITE_CORRUPT || main == SQLITE_NOTADB;
}

}  // namespace noxstorage::sqlite

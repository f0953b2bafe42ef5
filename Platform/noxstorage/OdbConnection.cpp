#include "Platform/noxstorage/OdbConnection.h"

#include <sqlite3.h>

#include <utility>

#include "Platform/noxstorage/SQLite.h"

namespace noxstorage::git::odb {

namespace {

// The second half runs only when the first has no answer.
#define BY_OID(columns)                                                                       \
    "SELECT " columns                                                                         \
    " FROM oids i CROSS JOIN objects o ON o.row=i.row WHERE i.key=?1 AND o.oid=?2 UNION ALL " \
    "SELECT " columns " FROM collided i CROSS JOIN objects o ON o.row=i.row WHERE i.oid=?2"

constexpr const char* kTexts[] = {
    BY_OID("o.row"),
    BY_OID("o.row,o.kind,o.size,o.base,o.data"),
    "SELECT row,kind,size,base,data FROM objects WHERE row=?",
    "SELECT oid,kind,size,CASE WHEN size<=?3 THEN data END FROM objects WHERE row BETWEEN ?1-?2 AND ?1",
    BY_OID("o.row,o.kind,o.size"),
    "SELECT row,kind,size FROM objects WHERE row=?",
    "SELECT kind,size,data FROM objects WHERE row>=? ORDER BY row",
    "SELECT row FROM oids WHERE key=?",
    "SELECT key,row FROM oids WHERE key>=? ORDER BY key",
    "SELECT o.oid FROM oids i JOIN objects o ON o.row=i.row WHERE i.key>=? ORDER BY i.key",
    "SELECT oid FROM collided WHERE oid>=? ORDER BY oid",
    "SELECT row,oid,kind FROM objects WHERE row>? AND oid IS NOT NULL ORDER BY row",
    "SELECT row,oid,kind,size,base,data FROM objects WHERE row>? AND oid IS NOT NULL ORDER BY row",
    // To ask for the length of a large value does not read it.
    ("SELECT row,oid,kind,size,base,CASE WHEN length(data)<=?2 THEN data END FROM objects"
     " WHERE row>?1 AND oid IS NOT NULL ORDER BY row"),
    "INSERT INTO objects(row,oid,kind,size,base,data) VALUES(?,?,?,?,?,?)",
    "INSERT OR IGNORE INTO oids(key,row) VALUES(?,?)",
    ("INSERT OR IGNORE INTO oids(key,row) VALUES"
     "(?,?),(?,?),(?,?),(?,?),(?,?),(?,?),(?,?),(?,?),(?,?),(?,?),(?,?),(?,?),(?,?),(?,?),(?,?),(?,?)"),
    "SELECT o.oid FROM oids i JOIN objects o ON o.row=i.row WHERE i.key=?",
    "INSERT OR IGNORE INTO collided(oid,row) VALUES(?,?)",
    "UPDATE objects SET kind=?2,base=?3,data=?4 WHERE row=?1",
    "DELETE FROM objects WHERE row BETWEEN ? AND ?",
    "SELECT max(row) FROM objects",
    "SELECT oid,target FROM refs WHERE name=?",
    "REPLACE INTO refs(name,oid,target) VALUES(?,?,?)",
    "DELETE FROM refs WHERE name=?",
    "SELECT name,oid,target FROM refs ORDER BY name",
    "SELECT value FROM settings WHERE name=?",
    "REPLACE INTO settings(name,value) VALUES(?,?)",
    "BEGIN",
    "BEGIN IMMEDIATE",
    "COMMIT",
    "ROLLBACK",
};
#undef BY_OID
static_assert(std::size(kTexts) == static_cast<std::size_t>(Sql::Count));

// SQLite takes a null pointer for NULL; an empty view may have one and is meant as an empty value.
const char* NotNull(std::string_view inBytes)
{
    return inBytes.data() != nullptr ? inBytes.data() : "";
}

}  // namespace

Connection::~Connection()
{
    Close();
}

void Connection::Close()
{
    for (sqlite3_stmt*& statement : mStatements)
        sqlite3_finalize(std::exchange(statement, nullptr));
    sqlite3_close_v2(std::exchange(mHandle, nullptr));
}

void Connection::ForbidCheckpointOnClose()
{
    if (mHandle != nullptr) sqlite3_db_config(mHandle, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

int Connection::Open(const std::string& inPath, const std::string& inVfs, bool inWritable, bool inCreate)
{
    sqlite::Prepare();
    const int flags = (inWritable ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) |
                      (inCreate ? SQLITE_OPEN_CREATE : 0) | SQLITE_OPEN_NOMUTEX;
    const int result = sqlite3_open_v2(inPath.c_str(), &mHandle, flags, inVfs.empty() ? nullptr : inVfs.c_str());
    if (result != SQLITE_OK) return result;
    sqlite3_extended_result_codes(mHandle, 1);
    sqlite::DistrustSchema(mHandle);
    return sqlite3_busy_timeout(mHandle, 10000);
}

int Connection::Execute(const std::string& inCommand)
{
    return sqlite3_exec(mHandle, inCommand.c_str(), nullptr, nullptr, nullptr);
}

std::int64_t Connection::Number(const char* inCommand, std::int64_t inDefault)
{
    sqlite3_stmt* statement = nullptr;
    std::int64_t value = inDefault;
    if (sqlite3_prepare_v2(mHandle, inCommand, -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW)
        value = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
    return value;
}

int Connection::Run(Sql inStatement)
{
    return Query(*this, inStatement).Step();
}

int Connection::Find(const Oid& inOid)
{
    {
        // Most that are asked for are not there: their key tells, without a look at the objects.
        const int code = Query(*this, Sql::HasKey).Number(inOid.Key()).Step();
        if (code != SQLITE_ROW) return code;
    }
    return Query(*this, Sql::RowByOid).Number(inOid.Key()).Bytes(inOid.View()).Step();
}

sqlite3_stmt* Connection::Prepared(Sql inStatement)
{
    const auto index = static_cast<std::size_t>(inStatement);
    if (mStatements[index] == nullptr)
        sqlite3_prepare_v3(mHandle, kTexts[index], -1, SQLITE_PREPARE_PERSISTENT, &mStatements[index], nullptr);
    return mStatements[index];
}

int Connection::ErrorCode() const
{
    return mHandle != nullptr ? sqlite3_extended_errcode(mHandle) : SQLITE_NOMEM;
}

std::string Connection::ErrorMessage() const
{
    return mHandle != nullptr ? sqlite3_errmsg(mHandle) : sqlite3_errstr(SQLITE_NOMEM);
}

void Connection::BeginScope(std::uint64_t inState)
{
    mInScope = true;
    if (InTransaction() && mState == inState) return;
    EndTransaction();
    mState = inState;
    Run(Sql::Begin);
    mAhead = std::make_unique<ReadAhead>();
}

void Connection::EndScope(bool inKeep)
{
    mInScope = false;
    if (!inKeep) EndTransaction();
}

void Connection::EndTransaction()
{
    mAhead.reset();
    if (InTransaction()) Run(Sql::Rollback);
}

bool Connection::InTransaction() const
{
    return mHandle != nullptr && sqlite3_get_autocommit(mHandle) == 0;
}

Query::~Query()
{
    if (mStatement != nullptr) sqlite3_reset(mStatement);
}

Query& Query::Number(std::int64_t inValue)
{
    sqlite3_bind_int64(mStatement, ++mIndex, inValue);
    return *this;
}

Query& Query::Bytes(std::string_view inBytes)
{
    sqlite3_bind_blob64(mStatement, ++mIndex, NotNull(inBytes), inBytes.size(), SQLITE_STATIC);
    return *this;
}

Query& Query::Text(std::string_view inText)
{
    sqlite3_bind_text64(mStatement, ++mIndex, NotNull(inText), inText.size(), SQLITE_STATIC, SQLITE_UTF8);
    return *this;
}

Query& Query::Null()
{
    sqlite3_bind_null(mStatement, ++mIndex);
    return *this;
}

int Query::Step()
{
    if (mStatement == nullptr) return SQLITE_ERROR;
    const int result = sqlite3_step(mStatement);
    if (result == SQLITE_ROW || result == SQLITE_DONE) return result;
    return sqlite3_extended_errcode(sqlite3_db_handle(mStatement));
}

std::int64_t Query::NumberAt(int inColumn) const
{
    return sqlite3_column_int64(mStatement, inColumn);
}

std::string_view Query::BytesAt(int inColumn) const
{
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(mStatement, inColumn));
    if (bytes == nullptr) return {};
    return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(mStatement, inColumn))};
}

bool Query::IsNullAt(int inColumn) const
{
    return sqlite3_column_type(mStatement, inColumn) == SQLITE_NULL;
}

}  // namespace noxstorage::git::odb

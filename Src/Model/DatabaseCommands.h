#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/noxcore/Logging.h"
#include "Platform/noxstorage/SQLite.h"

/// What the modules of the side databases share: opening, and running one command with one record for its failure.
namespace VantryLocalHub::DatabaseCommands {

using noxstorage::sqlite::Db;
using noxstorage::sqlite::Statement;
namespace sqlite = noxstorage::sqlite;

/// Opens a session's side database: busy time-out, then write-ahead log. outDb is set even after a failure, so that
/// its codes can be read.
int OpenSideDatabase(const std::string& inPath, bool inForeignKeys, std::shared_ptr<Db>& outDb);

struct Failure
{
    std::string_view mCategory;
    std::string_view mMessage;
};

/// Makes a database usable: its settings and tables. The database is set even after a failure.
using Opener = std::function<int(const std::string& inPath, std::shared_ptr<Db>& outDb)>;

/// Opens a database. One that is damaged is renamed, and another made in its place; each failure to open is logged.
/// outDb is null after a failure. Nobody else may have the file open.
bool OpenOrReplace(const Failure& inFailure, const std::string& inPath, const Opener& inOpen,
                   const Opener& inOpenReplacement, std::shared_ptr<Db>& outDb);

/// Logs a command that failed, with the codes of the connection's last operation.
inline void LogFailure(const Failure& inFailure, const Db& inDb, std::string_view inCommand, int inResult,
                       std::string_view inExpression = "result != sqlite::kDone",
                       const std::source_location& inWhere = std::source_location::current())
{
    noxcore::logging::LogError(inFailure.mCategory, inFailure.mMessage,
                               {{"command", inCommand},
                                {"main", inResult},
                                {"extended", inDb.ExtendedErrcode()},
                                {"expression", inExpression}},
                               inWhere);
}

/// Runs a command that gives no rows.
template <class... T>
bool Execute(const Failure& inFailure, Db& inDb, std::string_view inCommand, const T&... inValues)
{
    Statement statement;
    int result = PrepareAndBindCmd(inDb, statement, inCommand, inValues...);
    if (result == sqlite::kOK) result = statement.Step();
    if (result == sqlite::kDone) return true;
    LogFailure(inFailure, inDb, inCommand, result);
    return false;
}

enum class Found
{
    Yes,
    No,     ///< no row; not logged
    Failed  ///< logged
};

/// Runs a query and visits its first row.
template <class Visitor, class... T>
Found ReadRow(const Failure& inFailure, Db& inDb, const Visitor& inVisitor, std::string_view inCommand,
              const T&... inValues)
{
    Statement statement;
    int result = PrepareAndBindCmd(inDb, statement, inCommand, inValues...);
    if (result == sqlite::kOK) result = statement.Step();
    if (result == sqlite::kRow) {
        inVisitor(statement);
        return Found::Yes;
    }
    if (result == sqlite::kDone) return Found::No;
    LogFailure(inFailure, inDb, inCommand, result);
    return Found::Failed;
}

/// Runs a query and visits each row; no rows are a success.
template <class Visitor, class... T>
bool ReadRows(const Failure& inFailure, Db& inDb, const Visitor& inVisitor, std::string_view inCommand,
              const T&... inValues)
{
    Statement statement;
    int result = PrepareAndBindCmd(inDb, statement, inCommand, inValues...);
    if (result == sqlite::kOK) result = statement.Step();
    for (; result == sqlite::kRow; result = statement.Step()) {
        inVisitor(statement);
    }
    if (result == sqlite::kDone) return true;
    LogFailure(inFailure, inDb, inCommand, result);
    return false;
}

}  // namespace VantryLocalHub::DatabaseCommands

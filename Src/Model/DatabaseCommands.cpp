#include "Src/Model/DatabaseCommands.h"

namespace VantryLocalHub::DatabaseCommands {

namespace {

bool PutAside(std::string_view inCategory, const std::string& inPath)
{
    std::string aside;
    if (!sqlite::PutAside(inPath, aside)) return false;
    noxcore::logging::LogError(inCategory, "Put a damaged database aside", {{"path", inPath}, {"as", aside}});
    return true;
}

/// outDb is null after a failure.
int TryOpen(const Failure& inFailure, const std::string& inPath, const Opener& inOpen, std::shared_ptr<Db>& outDb)
{
    outDb = nullptr;
    std::shared_ptr<Db> db;
    const int result = inOpen(inPath, db);
    if (result == sqlite::kOK) {
        outDb = std::move(db);
    } else {
        noxcore::logging::LogError(inFailure.mCategory, inFailure.mMessage,
                                   {{"path", inPath}, {"main", result}, {"extended", db->ExtendedErrcode()}});
    }
    return result;
}

}  // namespace

int OpenSideDatabase(const std::string& inPath, bool inForeignKeys, std::shared_ptr<Db>& outDb)
{
    outDb = std::make_shared<Db>();
    int result = outDb->Open16(inPath);
    if (result == sqlite::kOK && inForeignKeys) result = outDb->DbConfig(sqlite::kDBConfigEnableFKey, 1);
    if (result == sqlite::kOK) result = outDb->BusyTimeout(sqlite::kBusyTimeoutMilliseconds);
    if (result == sqlite::kOK) result = outDb->ExecuteCmd(sqlite::kWriteAheadLogSettings);
    return result;
}

bool OpenOrReplace(const Failure& inFailure, const std::string& inPath, const Opener& inOpen,
                   const Opener& inOpenReplacement, std::shared_ptr<Db>& outDb)
{
    const int result = TryOpen(inFailure, inPath, inOpen, outDb);
    if (result == sqlite::kOK) return true;
    if (!sqlite::IsDamage(result) || !PutAside(inFailure.mCategory, inPath)) return false;
    return TryOpen(inFailure, inPath, inOpenReplacement, outDb) == sqlite::kOK;
}

}  // namespace VantryLocalHub::DatabaseCommands

#include "Src/Model/DatabaseCommands.h"

namespace VantryLocalHub::DatabaseCommands {

int OpenSideDatabase(const std::string& inPath, bool inForeignKeys, std::shared_ptr<Db>& outDb)
{
    outDb = std::make_shared<Db>();
    int result = outDb->Open16(inPath);
    if (result == sqlite::kOK && inForeignKeys) result = outDb->DbConfig(sqlite::kDBConfigEnableFKey, 1);
    if (result == sqlite::kOK) result = outDb->BusyTimeout(sqlite::kBusyTimeoutMilliseconds);
    if (result == sqlite::kOK) result = outDb->ExecuteCmd(sqlite::kWriteAheadLogSettings);
    return result;
}

}  // namespace VantryLocalHub::DatabaseCommands

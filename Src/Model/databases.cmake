# The databases beside a session's repository, and the hub's own.
hub_library(hub_databases
  SOURCES Model/DatabaseCommands.cpp Model/GitBoxSyncDb.cpp Model/Lyra2Db.cpp Model/Lyra2SyncDb.cpp Model/SystemDb.cpp
  LINK noxstorage_sqlite wire noxcore)

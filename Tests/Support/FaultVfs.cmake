# A SQLite VFS that counts, fails and records, for the tests of everything that keeps a database.
find_package(SQLite3 REQUIRED)

hub_library(hub_fault_vfs
  SOURCES FaultFiles.cpp FaultVfs.cpp FileRecording.cpp
  LINK noxstorage_sqlite noxcore
  PRIVATE_LINK SQLite::SQLite3)

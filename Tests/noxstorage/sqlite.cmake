hub_test(noxstorage_sqlite_test
  SOURCES SQLiteTest.cpp FaultVfsTest.cpp FaultFilesTest.cpp
  LINK noxstorage_sqlite hub_fault_vfs)

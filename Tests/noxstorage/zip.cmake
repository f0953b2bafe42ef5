find_package(ZLIB REQUIRED)

hub_test(noxstorage_zip_test
  SOURCES ZipFileTest.cpp ZipRefusalsTest.cpp
  LINK noxstorage_zip hub_fault_vfs SQLite::SQLite3 ZLIB::ZLIB)

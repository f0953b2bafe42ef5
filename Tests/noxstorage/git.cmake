find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBGIT2 REQUIRED IMPORTED_TARGET libgit2)
find_package(SQLite3 REQUIRED)
find_package(ZLIB REQUIRED)

hub_test(noxstorage_git_test
  SOURCES GitObjectsTest.cpp GitDamageTest.cpp GitTreeBuilderTest.cpp GitDurabilityTest.cpp GitExportTest.cpp GitTransferTest.cpp
    RopeBackendsTest.cpp
  LINK noxstorage_git hub_fault_vfs SQLite::SQLite3 PkgConfig::LIBGIT2 ZLIB::ZLIB)

hub_test(noxstorage_git_concurrency_test
  SOURCES GitConcurrencyTest.cpp
  LINK noxstorage_git
  CONCURRENCY)

find_package(SQLite3 REQUIRED)

hub_library(noxstorage_sqlite
  SOURCES SQLite.cpp KeyValueTable.cpp
  LINK noxcore
  PRIVATE_LINK SQLite::SQLite3)

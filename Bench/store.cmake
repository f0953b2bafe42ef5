find_package(SQLite3 REQUIRED)

hub_program(store_bench SOURCES StoreBench.cpp LINK noxstorage_git SQLite::SQLite3)

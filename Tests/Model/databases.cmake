hub_test(hub_databases_test
  SOURCES DatabasesSessionTest.cpp DatabasesSyncLifeTest.cpp DatabasesSyncTest.cpp DatabasesSystemTest.cpp
  LINK hub_databases hub_fault_vfs CONCURRENCY)

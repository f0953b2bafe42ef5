find_package(PkgConfig REQUIRED)
find_package(OpenSSL REQUIRED)
pkg_check_modules(LIBGIT2 REQUIRED IMPORTED_TARGET libgit2)
pkg_check_modules(ZSTD REQUIRED IMPORTED_TARGET libzstd)

hub_library(noxstorage_git
  SOURCES
    Git.cpp GitAllocator.cpp GitError.cpp GitExport.cpp GitObjects.cpp GitOid.cpp GitTransfer.cpp GitTreeBuilder.cpp GitTreeFinalizer.cpp GitWrite.cpp
    OdbCommitScope.cpp OdbConnection.cpp OdbContent.cpp OdbContentsInUse.cpp OdbFiles.cpp OdbLibgit2.cpp OdbLibgit2References.cpp OdbReadPool.cpp OdbRepository.cpp
    OdbScrub.cpp OdbStore.cpp OdbStoreBulk.cpp OdbStoreMaintenance.cpp OdbStoreRead.cpp OdbStoreWrite.cpp OdbTreeCache.cpp
    OdbWaiting.cpp RopeBackends.cpp RopeFileHold.cpp SQLite3OdbBackend.cpp
  LINK noxcore noxstorage_sqlite
  PRIVATE_LINK SQLite::SQLite3 PkgConfig::LIBGIT2 PkgConfig::ZSTD OpenSSL::Crypto)

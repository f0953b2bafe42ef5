find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBGIT2 REQUIRED IMPORTED_TARGET libgit2)

hub_library(hub_gitops
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/LocalHubGitOps.cpp
  LINK noxstorage_git
  PRIVATE_LINK PkgConfig::LIBGIT2)

find_package(PkgConfig REQUIRED)
pkg_check_modules(LIBZIP REQUIRED IMPORTED_TARGET libzip)
pkg_check_modules(ISAL REQUIRED IMPORTED_TARGET libisal)

hub_library(noxstorage_zip
  SOURCES ZipFile.cpp ZipExtraction.cpp ZipDeflater.cpp ZipNames.cpp ZipSources.cpp
  LINK noxcore
  PRIVATE_LINK PkgConfig::LIBZIP PkgConfig::ISAL)

#pragma once

#include <cstdint>
#include <string>

#include "Platform/noxcore/FileSupport.h"

namespace noxstorage::zip {

/// Looks at the names in an archive's directory as they stand there, in so many entries as libzip has found. libzip
/// gives a zero in a name as a blank, or ends the name there; who packed it meant neither.
///
/// Empty when all is well, else why the archive is to be refused: a zero in a name, or a directory that is another one
/// than libzip's.
std::string FindFaultInNames(const noxcore::filesupport::Path& inFile, std::uint64_t inEntries);

}  // namespace noxstorage::zip

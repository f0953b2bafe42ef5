#pragma once

#include <string_view>

#include "Platform/noxcore/RecycledMemory.h"

namespace noxcore::utility {

/// Copies bytes into a file that lies in memory alone and is never written again: a socket takes them out of it as they
/// are, which saves a large payload that is sent often a copy each time. Takes a descriptor as long as the bytes live.
/// Null when the system has none to give. Threading: any thread.
ConstRecycledMemoryPtr CopyToMemoryFile(std::string_view inBytes);

}  // namespace noxcore::utility

#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace swiftlatch {

/// The descriptor under which a started program finds the one it was given.
constexpr int kGivenDescriptor = 3;

/// Starts a program that outlives its starter: in a session of its own, in "/", without the starter's streams and
/// descriptors. inGiven is handed on as kGivenDescriptor; -1 for none. The process is a child, which the caller waits
/// for. -1, with a record, when it cannot be started.
pid_t StartProgram(const std::string& inProgram, const std::vector<std::string>& inArguments, int inGiven);

}  // namespace swiftlatch

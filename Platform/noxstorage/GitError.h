#pragma once

#include <source_location>
#include <string_view>

namespace noxstorage::git {

constexpr int kErrorClassOdb = 9;        ///< libgit2's class of object database errors
constexpr int kErrorClassReference = 4;  ///< and of reference errors
constexpr int kErrorNotFound = -3;       ///< libgit2's code for what is absent
constexpr int kErrorMismatch = -33;      ///< for content that is not what its id says

/// The one record of a failed storage operation: category "noxstorage", "Git operation error", with "result", "arg1",
/// "error", "file", "line" and "message". The first form takes libgit2's error of this thread, so it comes at once.
void LogGitError(int inResult, std::string_view inArgument,
                 const std::source_location& inWhere = std::source_location::current());
void LogGitError(int inResult, std::string_view inArgument, int inError, std::string_view inMessage,
                 const std::source_location& inWhere = std::source_location::current());

/// True for libgit2's success codes; logs otherwise.
bool GitSucceeded(int inResult, std::string_view inArgument,
                  const std::source_location& inWhere = std::source_location::current());

}  // namespace noxstorage::git

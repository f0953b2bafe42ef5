#include "Platform/noxstorage/GitError.h"

#include <git2.h>

#include "Platform/noxcore/Logging.h"

namespace noxstorage::git {

static_assert(kErrorClassOdb == GIT_ERROR_ODB && kErrorClassReference == GIT_ERROR_REFERENCE &&
              kErrorNotFound == GIT_ENOTFOUND);

void LogGitError(int inResult, std::string_view inArgument, int inError, std::string_view inMessage,
                 const std::source_location& inWhere)
{
    noxcore::logging::LogError("noxstorage", "Git operation error",
                               {{"result", inResult},
                                {"arg1", inArgument},
                                {"error", inError},
                                {"file", inWhere.file_name()},
                                {"line", inWhere.line()},
                                {"message", inMessage}},
                               inWhere);
}

void LogGitError(int inResult, std::string_view inArgument, const std::source_location& inWhere)
{
    const git_error* error = git_error_last();
    LogGitError(inResult, inArgument, error != nullptr ? error->klass : 0, error != nullptr ? error->message : "",
                inWhere);
}

bool GitSucceeded(int inResult, std::string_view inArgument, const std::source_location& inWhere)
{
    if (inResult >= 0) return true;
    LogGitError(inResult, inArgument, inWhere);
    return false;
}

}  // namespace noxstorage::git

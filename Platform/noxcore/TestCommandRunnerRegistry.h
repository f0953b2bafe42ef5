#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/noxcore/RecursiveMutex.h"

namespace noxcore::commands {

/// What can run tests inside the process, by name. A program that carries no tests has no runners.
///
/// Threading: any thread; the mutex guards the map (rank Leaf) and is not held while a runner runs.
class TestCommandRunnerRegistry
{
public:
    /// Runs what the arguments name; the result is the report's text.
    using Runner = std::function<std::string(const std::vector<std::string>&)>;

    /// The current context's.
    static void RegisterTestCommandRunner(std::string_view inName, Runner inRunner);
    /// The report; a sentence that says so when there is no such runner.
    static std::string ExecuteTestCommandRunner(const std::vector<std::string>& inArguments, std::string_view inName);

private:
    threads::RecursiveMutex mMutex{threads::LockRank::Leaf};
    std::map<std::string, Runner, std::less<>> mRunners GUARDED_BY(mMutex);
};

}  // namespace noxcore::commands

#include "Tools/linkbroker/HubStarter.h"

#include <sys/wait.h>

#include <cerrno>
#include <utility>

#include "Platform/noxcore/Logging.h"
#include "Platform/swiftlatch/ProgramStart.h"

namespace linkbroker {

HubStarter::HubStarter(std::map<std::string, std::string> inPrograms) : mPrograms(std::move(inPrograms)) {}

bool HubStarter::Start(const std::string& inServerName)
{
    const auto program = mPrograms.find(inServerName);
    if (program == mPrograms.end()) return false;
    const pid_t process = swiftlatch::StartProgram(program->second, {}, -1);
    if (process < 0) return false;
    mRunning[inServerName] = process;
    noxcore::logging::LogInformation("LinkBroker", "Server started",
                                     {{"name", inServerName}, {"program", program->second}, {"process", process}});
    return true;
}

ProgramState HubStarter::StateOf(const std::string& inServerName)
{
    const auto found = mRunning.find(inServerName);
    if (found == mRunning.end()) return ProgramState::Ended;
    int status = 0;
    pid_t ended = 0;
    do {
        ended = waitpid(found->second, &status, WNOHANG);
    } while (ended < 0 && errno == EINTR);
    if (ended == 0) return ProgramState::Running;
    mRunning.erase(found);
    if (ended < 0 || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) return ProgramState::Ended;
    noxcore::logging::LogWarning("LinkBroker", "A server has failed", {{"name", inServerName}, {"status", status}});
    return ProgramState::Failed;
}

}  // namespace linkbroker

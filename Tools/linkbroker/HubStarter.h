#pragma once

#include <sys/types.h>

#include <map>
#include <string>

#include "Tools/linkbroker/LinkBroker.h"

namespace linkbroker {

/// Starts programs from one folder, as children of this process.
class HubStarter final : public ProgramStarter
{
public:
    /// inPrograms: server name -> path of its program.
    explicit HubStarter(std::map<std::string, std::string> inPrograms);
    bool Start(const std::string& inServerName) override;
    ProgramState StateOf(const std::string& inServerName) override;

private:
    const std::map<std::string, std::string> mPrograms;
    std::map<std::string, pid_t> mRunning;  // server name -> process
};

}  // namespace linkbroker

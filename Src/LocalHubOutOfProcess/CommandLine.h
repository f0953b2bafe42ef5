#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace VantryLocalHub {

/// What the command line asks for. Every option takes the argument after it as its value:
///
///     -port          port to ask for from the HTTP server; 0, absent or no number: the server picks one
///     -infoPort      port that clients are told in place of the real one, when not 0
///     -downgradeRepo session whose repository is brought to the older format; then the program ends
///     -upgradeRepo   session whose repository is brought to the newer format; then the program ends
///     -test.run      names the tests to run; then the program ends
struct CommandLine
{
    std::uint16_t mPort = 0;
    std::uint16_t mInfoPort = 0;
    std::string mDowngradeSession;
    std::string mUpgradeSession;
    std::string mTestFilter;
};

/// Reads the arguments, the program's own name first. What an option waits for is its value, whatever it looks like; a
/// later occurrence wins; what matches no option is ignored, and so is an option without a value at the end.
CommandLine ParseCommandLine(const std::vector<std::string>& inArguments);

}  // namespace VantryLocalHub

#include "Src/LocalHubOutOfProcess/CommandLine.h"

#include <array>
#include <sstream>
#include <string_view>
#include <variant>

namespace VantryLocalHub {

namespace {

struct Option
{
    std::string_view mName;
    std::variant<std::uint16_t CommandLine::*, std::string CommandLine::*> mField;
};

constexpr std::array kOptions = {Option{"-port", &CommandLine::mPort}, Option{"-infoPort", &CommandLine::mInfoPort},
                                 Option{"-downgradeRepo", &CommandLine::mDowngradeSession},
                                 Option{"-upgradeRepo", &CommandLine::mUpgradeSession},
                                 Option{"-test.run", &CommandLine::mTestFilter}};

const Option* FindOption(std::string_view inArgument)
{
    for (const Option& option : kOptions) {
        if (option.mName == inArgument) return &option;
    }
    return nullptr;
}

std::uint16_t ParsePort(const std::string& inText)
{
    std::istringstream stream(inText);
    std::uint16_t port = 0;
    return stream >> port ? port : 0;
}

void SetValue(const Option& inOption, const std::string& inValue, CommandLine& outCommandLine)
{
    if (const auto* number = std::get_if<std::uint16_t CommandLine::*>(&inOption.mField)) {
        outCommandLine.** number = ParsePort(inValue);
    } else {
        outCommandLine.*std::get<std::string CommandLine::*>(inOption.mField) = inValue;
    }
}

}  // namespace

CommandLine ParseCommandLine(const std::vector<std::string>& inArguments)
{
    CommandLine commandLine;
    const Option* pending = nullptr;
    for (std::size_t i = 1; i < inArguments.size(); ++i) {
        if (pending != nullptr) {
            SetValue(*pending, inArguments[i], commandLine);
            pending = nullptr;
        } else {
            pending = FindOption(inArguments[i]);
        }
    }
    return commandLine;
}

}  // namespace VantryLocalHub

#include "Client/VYClient/Environment.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "Platform/noxcore/HubContext.h"

namespace VYCL {

namespace {

struct SystemUser
{
    std::string mName;
    std::string mHomeFolder;
};

SystemUser ReadSystemUser()
{
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr) {
        return {};
    }
    return {entry.pw_name != nullptr ? entry.pw_name : "", entry.pw_dir != nullptr ? entry.pw_dir : ""};
}

class SystemEnvironment final : public Environment
{
public:
    [[nodiscard]] std::optional<std::string> GetVariable(std::string_view inName) const override
    {
        const char* value = std::getenv(std::string(inName).c_str());
        if (value == nullptr || *value == '\0') {
            return std::nullopt;
        }
        return value;
    }
    [[nodiscard]] std::string GetHomeFolder() const override { return ReadSystemUser().mHomeFolder; }
    [[nodiscard]] unsigned GetUserID() const override { return geteuid(); }
    [[nodiscard]] std::string GetUserName() const override { return ReadSystemUser().mName; }
};

}  // namespace

std::shared_ptr<Environment> Environment::Instance()
{
    if (auto published = noxcore::HubContext::Current()->GetInstance<Environment>()) {
        return published;
    }
    static const std::shared_ptr<Environment> kSystem = std::make_shared<SystemEnvironment>();
    return kSystem;
}

std::optional<std::string> FixedEnvironment::GetVariable(std::string_view inName) const
{
    const auto found = mVariables.find(inName);
    return found == mVariables.end() || found->second.empty() ? std::nullopt : std::optional(found->second);
}

unsigned FixedEnvironment::GetUserID() const
{
    return geteuid();
}

std::string FixedEnvironment::GetUserName() const
{
    return ReadSystemUser().mName;
}

}  // namespace VYCL

#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace VYCL {

/// Where the library reads what the system knows of the user: environment variables, home folder and user id.
///
/// Published in the HubContext, so that hubs of one process can have homes of their own; the process's real one holds
/// where none was published. Threading: any thread.
class Environment
{
public:
    virtual ~Environment() = default;
    /// Nothing for a variable that is not set, or set to an empty text.
    [[nodiscard]] virtual std::optional<std::string> GetVariable(std::string_view inName) const = 0;
    /// The home folder that the system's user list names; empty when it names none.
    [[nodiscard]] virtual std::string GetHomeFolder() const = 0;
    [[nodiscard]] virtual unsigned GetUserID() const = 0;
    /// The login name of the user; empty when the system knows none.
    [[nodiscard]] virtual std::string GetUserName() const = 0;

    /// The current context's.
    static std::shared_ptr<Environment> Instance();
};

/// One that holds just what it is given.
class FixedEnvironment final : public Environment
{
public:
    FixedEnvironment(std::string inHomeFolder, std::map<std::string, std::string, std::less<>> inVariables = {})
        : mHomeFolder(std::move(inHomeFolder)), mVariables(std::move(inVariables))
    {
    }
    [[nodiscard]] std::optional<std::string> GetVariable(std::string_view inName) const override;
    [[nodiscard]] std::string GetHomeFolder() const override { return mHomeFolder; }
    [[nodiscard]] unsigned GetUserID() const override;
    [[nodiscard]] std::string GetUserName() const override;

private:
    const std::string mHomeFolder;
    const std::map<std::string, std::string, std::less<>> mVariables;
};

}  // namespace VYCL

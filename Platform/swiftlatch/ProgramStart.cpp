#include "Platform/swiftlatch/ProgramStart.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>
#include <csignal>

#include <system_error>

#include "Platform/noxcore/Logging.h"

namespace swiftlatch {

namespace {

class FileActions
{
public:
    explicit FileActions(int inGiven)
    {
        posix_spawn_file_actions_init(&mActions);
        posix_spawn_file_actions_addchdir_np(&mActions, "/");
        if (inGiven >= 0) posix_spawn_file_actions_adddup2(&mActions, inGiven, kGivenDescriptor);
        posix_spawn_file_actions_addopen(&mActions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&mActions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&mActions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&mActions, inGiven >= 0 ? kGivenDescriptor + 1 : kGivenDescriptor);
    }
    ~FileActions() { posix_spawn_file_actions_destroy(&mActions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    [[nodiscard]] const posix_spawn_file_actions_t* Get() const { return &mActions; }

private:
    posix_spawn_file_actions_t mActions{};
};

/// A session of its own, and signals as a program expects to find them.
class Attributes
{
public:
    Attributes()
    {
        sigset_t signals;
        posix_spawnattr_init(&mAttributes);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&mAttributes, &signals);
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&mAttributes, &signals);
        posix_spawnattr_setflags(&mAttributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    ~Attributes() { posix_spawnattr_destroy(&mAttributes); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    [[nodiscard]] const posix_spawnattr_t* Get() const { return &mAttributes; }

private:
    posix_spawnattr_t mAttributes{};
};

}  // namespace

pid_t StartProgram(const std::string& inProgram, const std::vector<std::string>& inArguments, int inGiven)
{
    std::vector<std::string> words{inProgram};
    words.insert(words.end(), inArguments.begin(), inArguments.end());
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    const FileActions actions(inGiven);
    const Attributes attributes;
    pid_t process = -1;
    const int error =
        posix_spawn(&process, inProgram.c_str(), actions.Get(), attributes.Get(), arguments.data(), environ);
    if (error == 0) return process;
    noxcore::logging::LogWarning("swiftlatch", "A program could not be started",
                                 {{"program", inProgram}, {"error", std::system_category().message(error)}});
    return -1;
}

}  // namespace swiftlatch

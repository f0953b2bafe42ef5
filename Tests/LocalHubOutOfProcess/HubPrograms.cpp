#include "Tests/LocalHubOutOfProcess/HubPrograms.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <string_view>

#include "Client/VYClient/Environment.h"
#include "Client/VYClient/LocalHub.h"
#include "Platform/noxmarshal/BuildCall.h"
#include "Platform/noxmarshal/RPCClient.h"
#include "Platform/swiftlatch/Paths.h"
#include "Platform/swiftlatch/Protocol.h"
#include "Platform/swiftlatch/SharedTransport.h"
#include "Tests/Support/WaitUntil.h"

namespace testing_support {

namespace fs = std::filesystem;
using noxcore::serialization::BuildCall;

namespace {

constexpr unsigned kAnswerLimitInMilliseconds = 60000;

std::shared_ptr<noxcore::HubContext> MakeContext(const TempFolder& inFolder)
{
    noxcore::HubContext::Parts parts;
    parts.mLog = std::make_shared<LogCapture>();
    auto context = noxcore::HubContext::Create(std::move(parts));
    context->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(
        inFolder.Path(), std::map<std::string, std::string, std::less<>>{{"XDG_RUNTIME_DIR", inFolder / "run"}}));
    return context;
}

int EndOf(int inStatus)
{
    return WIFSIGNALED(inStatus) ? -WTERMSIG(inStatus) : WEXITSTATUS(inStatus);
}

bool IsChild(const fs::path& inProcessFolder)
{
    std::ifstream file(inProcessFolder / "stat");
    std::string text;
    std::getline(file, text);
    // The fields behind the name, which may hold anything: state, then the parent.
    const std::size_t name = text.rfind(')');
    if (name == std::string::npos || text.size() < name + 4) return false;
    return std::strtol(text.c_str() + name + 4, nullptr, 10) == getpid();
}

void KillChildren()
{
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos || !IsChild(entry.path())) continue;
        kill(static_cast<pid_t>(std::stol(name)), SIGKILL);
    }
}

bool IsOfTheUsersHome(std::string_view inVariable)
{
    for (const std::string_view begin : {"HOME=", "TMPDIR=", "XDG_", "VY_"}) {
        if (inVariable.starts_with(begin)) return true;
    }
    return false;
}

}  // namespace

HubPrograms::HubPrograms()
    : mContext(MakeContext(mFolder)), mScope(mContext), mTransport(swiftlatch::GetSharedTransport())
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // the broker, and the hub that it starts, become children of the test
    for (const char* name : {"run", "tmp"}) {
        fs::create_directory(mFolder / name);
        fs::permissions(mFolder / name, fs::perms::owner_all);
    }
}

HubPrograms::~HubPrograms()
{
    mTransport.reset();
    do {
        KillChildren();
    } while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR);
}

std::vector<std::string> HubPrograms::MakeEnvironment() const
{
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (!IsOfTheUsersHome(*variable)) variables.emplace_back(*variable);
    }
    variables.push_back("HOME=" + mFolder.Path());
    variables.push_back("TMPDIR=" + (mFolder / "tmp"));
    variables.push_back("XDG_RUNTIME_DIR=" + (mFolder / "run"));
    return variables;
}

pid_t HubPrograms::Start(const std::string& inProgram, const std::vector<std::string>& inArguments)
{
    const auto pointers = [](std::vector<std::string>& inTexts) {
        std::vector<char*> result;
        result.reserve(inTexts.size() + 1);
        for (std::string& text : inTexts)
            result.push_back(text.data());
        result.push_back(nullptr);
        return result;
    };
    std::vector<std::string> words{std::string(PROGRAM_FOLDER "/") + inProgram};
    words.insert(words.end(), inArguments.begin(), inArguments.end());
    auto variables = MakeEnvironment();
    const std::string output = mFolder / ("output-" + std::to_string(++mStarted));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    posix_spawnattr_t attributes;  // who runs the tests may have made them deaf to signals
    sigset_t signals;
    posix_spawnattr_init(&attributes);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t process = 0;
    EXPECT_EQ(0, posix_spawn(&process, words[0].c_str(), &actions, &attributes, pointers(words).data(),
                             pointers(variables).data()));
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    mOutputs.emplace_back(process, output);
    return process;
}

std::string HubPrograms::OutputOf(pid_t inProcess) const
{
    std::string text;
    for (const auto& [process, path] : mOutputs) {
        if (process == inProcess) noxcore::filesupport::Files().ReadFile(path, text);
    }
    return text;
}

std::optional<int> HubPrograms::WaitForEnd(pid_t inProcess)
{
    int status = 0;
    pid_t ended = 0;
    WaitUntil([&] { return (ended = waitpid(inProcess, &status, WNOHANG)) != 0; });
    return ended == inProcess ? std::optional(EndOf(status)) : std::nullopt;
}

std::vector<int> HubPrograms::WaitForAll()
{
    std::vector<int> ends;
    WaitUntil([&] {
        int status = 0;
        const pid_t ended = waitpid(-1, &status, WNOHANG);
        if (ended > 0) ends.push_back(EndOf(status));
        return ended < 0 && errno == ECHILD;
    });
    return ends;
}

std::optional<swiftlatch::ServerAddress> HubPrograms::RegisteredHub() const
{
    const auto broker = noxmarshal::RPCClient::ConnectLocal(
        mTransport, swiftlatch::ManagerSocketPath(VYCL::LocalHub::GetSocketFolder()));
    if (!broker) return std::nullopt;
    swiftlatch::RegisteredServerList list;
    noxmarshal::RPCError error;
    if (!broker->Ask(BuildCall(swiftlatch::kMessage_ListServers), kAnswerLimitInMilliseconds, list, error))
        return std::nullopt;
    return list.mServers.empty() ? std::nullopt : std::optional(list.mServers.back().mAddress);
}

bool HubPrograms::WaitUntilNoHubIsRegistered() const
{
    return WaitUntil([this] { return !RegisteredHub(); });
}

std::shared_ptr<swiftlatch::HubConnection> HubPrograms::OpenSession(const swiftlatch::ServerAddress& inAddress) const
{
    noxmarshal::RPCError error;
    return swiftlatch::ConnectToHub(inAddress, {"tester", "1", "1", {true}}, error);
}

RunningHub HubPrograms::StartHub(const std::vector<std::string>& inArguments)
{
    RunningHub hub;
    EXPECT_TRUE(WaitUntilNoHubIsRegistered());
    hub.mProcess = Start("localhub", inArguments);
    bool ended = false;
    WaitUntil([&] {
        siginfo_t information{};
        ended = waitid(P_PID, static_cast<id_t>(hub.mProcess), &information, WEXITED | WNOHANG | WNOWAIT) == 0 &&
                information.si_pid != 0;
        if (const auto address = RegisteredHub()) hub.mSession = OpenSession(*address);
        return ended || hub.mSession;
    });
    if (!hub.mSession) {
        ADD_FAILURE() << "the hub does not come up" << (ended ? ", it has ended: " : ": ") << OutputOf(hub.mProcess);
        return hub;
    }
    hub.mAPI = std::make_unique<hubctl::HubAPI>(
        noxnet::http::client::Client::Create(hub.mSession->Address(), hub.mSession->HTTPPort(), {}));
    return hub;
}

std::string HubPrograms::LogOf(pid_t inProcess)
{
    std::string text;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(VYCL::LocalHub::GetLogFolder(), error)) {
        if (entry.path().string().ends_with("-" + std::to_string(inProcess) + ".log"))
            noxcore::filesupport::Files().ReadFile(entry.path().string(), text);
    }
    return text;
}

}  // namespace testing_support

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <string>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxmarshal/RPCServer.h"
#include "Platform/swiftlatch/Paths.h"
#include "Platform/swiftlatch/Protocol.h"
#include "Tools/linkbroker/HubStarter.h"
#include "Tools/linkbroker/LinkBroker.h"

namespace {

using noxcore::filesupport::Join;
using noxtransport::SocketTransport;

struct Options
{
    std::string mSocketFolder;
    std::string mHubProgram = "localhub";
    std::string mLogFolder;
    int mReadyDescriptor = -1;
    bool mForeground = false;
};

/// Empty when it cannot be told.
std::string OwnFolder()
{
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
}

/// Lets the starter go on and leaves its terminal. Before the first thread. False in the process that ends.
bool GoToBackground()
{
    const pid_t child = fork();
    if (child > 0) return false;
    if (child == 0) setsid();  // a failed fork leaves a broker in the foreground: better than none
    return true;
}

/// Tells the starter that the socket answers.
void SayReady(int inDescriptor)
{
    if (inDescriptor < 0) return;
    [[maybe_unused]] const ssize_t written = write(inDescriptor, "1", 1);
    close(inDescriptor);
}

int Serve(const Options& inOptions)
{
    const auto context = noxcore::HubContext::Current();
    if (!inOptions.mLogFolder.empty()) {
        if (auto sink = noxcore::logging::MakeFileSink(inOptions.mLogFolder, "linkbroker")) context->SetLog(sink);
    }
    noxcore::threads::RegisterCurrentThreadAsMainThread();
    if (!swiftlatch::EnsureSocketFolder(inOptions.mSocketFolder)) return 1;
    const auto lock = noxcore::filesupport::Files().TryLock(swiftlatch::ManagerLockPath(inOptions.mSocketFolder));
    if (lock == nullptr) {
        noxcore::logging::LogInformation("LinkBroker", "Another link broker of this user runs already");
        return 0;
    }
    const auto transport = SocketTransport::Create({});
    if (transport == nullptr) return 1;
    const auto server = transport->ServerStartLocal(swiftlatch::ManagerSocketPath(inOptions.mSocketFolder));
    if (server == nullptr) return 1;
    const noxmarshal::RPCServer rpcServer(server, "linkbroker");
    const auto starter = std::make_shared<linkbroker::HubStarter>(std::map<std::string, std::string>{
        {std::string(swiftlatch::kLocalHubServerName), Join(OwnFolder(), inOptions.mHubProgram)}});
    const auto broker = linkbroker::LinkBroker::Create(server, starter, {},
                                                       [] { noxcore::threads::GetRegisteredMainThread()->Quit(); });
    SayReady(inOptions.mReadyDescriptor);
    noxcore::threads::RunPlatformEventLoop();
    server->Stop();  // before the lock is given back: the next broker puts its socket at the same path
    return 0;
}

}  // namespace

int main(int inCount, char** inArguments)
{
    Options options;
    CLI::App app("Tells a user's applications where the servers of the suite listen.");
    app.add_option("--socket-folder", options.mSocketFolder, "Folder of the broker's socket, the user's alone")
        ->required();
    app.add_option("--hub-program", options.mHubProgram, "Program of the local hub, in this program's folder");
    app.add_option("--log-folder", options.mLogFolder, "Folder for log files; without it records go to standard error");
    app.add_option("--ready-descriptor", options.mReadyDescriptor,
                   "Descriptor that is written to once clients can come");
    app.add_flag("--foreground", options.mForeground, "Stay attached to the terminal");
    CLI11_PARSE(app, inCount, inArguments);
    if (!options.mForeground && !GoToBackground()) return 0;
    return Serve(options);
}

#include "Platform/swiftlatch/ManagerLauncher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxmarshal/BuildCall.h"
#include "Platform/noxtransport/Sockets.h"
#include "Platform/swiftlatch/Paths.h"
#include "Platform/swiftlatch/ProgramStart.h"
#include "Platform/swiftlatch/Protocol.h"
#include "Platform/swiftlatch/Records.h"
#include "Platform/swiftlatch/SharedTransport.h"

namespace swiftlatch {

using noxmarshal::RPCClient;
using noxtransport::Descriptor;
using noxtransport::SocketTransport;

namespace {

constexpr unsigned kAnswerLimitInMilliseconds = 5000;
constexpr int kReadyLimitInMilliseconds = 10000;
/// A manager that is about to end may still hold its lock when the next one starts.
constexpr int kStartAttempts = 5;

/// A session counts only once it was answered over: one that a manager lets in while it ends is closed again.
std::shared_ptr<RPCClient> TryManager(const std::shared_ptr<SocketTransport>& inTransport, const std::string& inSocket)
{
    auto client = RPCClient::ConnectLocal(inTransport, inSocket);
    if (client == nullptr) return nullptr;
    ManagerInformation information;
    noxmarshal::RPCError error;
    const auto call = noxcore::serialization::BuildCall(kMessage_GetProtocolVersion);
    if (!client->Ask(call, kAnswerLimitInMilliseconds, information, error)) return nullptr;
    return client;
}

/// Lets one process of the user at a time start a manager. It is held as long as the descriptor is open; the wait is
/// as short as the starting of whoever holds it, which has a limit.
Descriptor WaitForTurnToStart(const std::string& inSocketFolder)
{
    Descriptor file(open(ManagerStartPath(inSocketFolder).c_str(), O_CREAT | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR));
    while (file.IsOpen() && flock(file.Get(), LOCK_EX) != 0) {
        if (errno != EINTR) return {};
    }
    return file;
}

/// Waits until the manager has said that it listens, or has ended without it.
void WaitUntilReady(int inPipe)
{
    pollfd ready{inPipe, POLLIN, 0};
    while (poll(&ready, 1, kReadyLimitInMilliseconds) < 0 && errno == EINTR) {
    }
}

void StartManager(const Paths& inPaths)
{
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    const Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    const std::string program = noxcore::filesupport::Join(inPaths.mProgramFolder, "linkbroker");
    std::vector<std::string> arguments = {"--socket-folder", inPaths.mSocketFolder, "--ready-descriptor",
                                          std::to_string(kGivenDescriptor)};
    if (!inPaths.mLogFolder.empty()) arguments.insert(arguments.end(), {"--log-folder", inPaths.mLogFolder});
    const pid_t process = StartProgram(program, arguments, writeEnd.Get());
    writeEnd.Close();
    if (process < 0) return;
    // What was started only puts the manager into the background and ends at once.
    while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
    WaitUntilReady(readEnd.Get());
}

}  // namespace

std::shared_ptr<RPCClient> LaunchSwiftlatchManagerRPC()
{
    const auto paths = noxcore::HubContext::Current()->GetInstance<Paths>();
    if (paths == nullptr) throw LinkError("the folders of the link manager are not known");
    const auto transport = GetSharedTransport();
    if (transport == nullptr) throw LinkError("there is no transport");
    if (!EnsureSocketFolder(paths->mSocketFolder)) throw LinkError("the socket folder cannot be used");

    const std::string socket = ManagerSocketPath(paths->mSocketFolder);
    if (auto client = TryManager(transport, socket)) return client;
    const Descriptor turn = WaitForTurnToStart(paths->mSocketFolder);
    if (!turn.IsOpen()) throw LinkError("the socket folder cannot be written");
    for (int i = 0; i < kStartAttempts; ++i) {
        if (auto client = TryManager(transport, socket)) return client;
        StartManager(*paths);
    }
    if (auto client = TryManager(transport, socket)) return client;
    throw LinkError("no link manager answers");
}

}  // namespace swiftlatch

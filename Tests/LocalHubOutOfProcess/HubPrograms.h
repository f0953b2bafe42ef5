#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxtransport/SocketTransport.h"
#include "Platform/swiftlatch/HubFinder.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/TempFolder.h"
#include "Tools/hubctl/HubAPI.h"

namespace testing_support {

/// A hub that runs as a program of its own, with a session that keeps it running.
struct RunningHub
{
    pid_t mProcess = 0;
    std::shared_ptr<swiftlatch::HubConnection> mSession;
    std::unique_ptr<hubctl::HubAPI> mAPI;
};

/// Runs the programs as they are shipped, in a home of their own, and in real time: it waits for what happens, with
/// limits that only a broken build reaches. What a test leaves running is killed, the broker and the hub that it has
/// started included.
class HubPrograms : public testing::Test
{
protected:
    HubPrograms();
    ~HubPrograms() override;

    /// Starts "localhub", "hubctl" or "linkbroker"; what it prints goes to a file.
    pid_t Start(const std::string& inProgram, const std::vector<std::string>& inArguments);
    /// What a program that Start has started printed so far.
    [[nodiscard]] std::string OutputOf(pid_t inProcess) const;
    /// The exit status, or the signal as a negative number; nothing when it does not end.
    static std::optional<int> WaitForEnd(pid_t inProcess);

    /// Starts a hub and opens a session with it. Without a session, after a failure of the test, when it does not come
    /// up.
    RunningHub StartHub(const std::vector<std::string>& inArguments = {});
    std::shared_ptr<swiftlatch::HubConnection> OpenSession(const swiftlatch::ServerAddress& inAddress) const;
    /// Where the hub is that is registered with the broker; nothing when there is none.
    [[nodiscard]] std::optional<swiftlatch::ServerAddress> RegisteredHub() const;
    bool WaitUntilNoHubIsRegistered() const;
    /// The ends of all programs that still run or have ended unnoticed, as WaitForEnd gives them.
    static std::vector<int> WaitForAll();
    /// The text of the log file of a process.
    [[nodiscard]] static std::string LogOf(pid_t inProcess);

    TempFolder mFolder;

private:
    [[nodiscard]] std::vector<std::string> MakeEnvironment() const;
    [[nodiscard]] std::string OutputPath(pid_t inProcess) const;

    const std::shared_ptr<noxcore::HubContext> mContext;
    const noxcore::HubContext::Scope mScope;
    std::shared_ptr<noxtransport::SocketTransport> mTransport;
    int mStarted = 0;
    std::vector<std::pair<pid_t, std::string>> mOutputs;
};

}  // namespace testing_support

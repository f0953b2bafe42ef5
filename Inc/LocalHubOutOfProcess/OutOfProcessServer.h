#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Inc/LocalHubOutOfProcess/HubParts.h"
#include "Platform/noxcore/ClassWatcher.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub {

/// What makes the process a hub: creates store and engine, serves RPC and HTTP, registers with the link manager, counts
/// client sessions and decides when the process ends.
///
/// Everything happens in the constructor, a maintenance or test run included: after such a run the event loop is told
/// to end before it has begun. What the making of a part throws goes outward, once the parts that were made are closed.
///
/// Threading: construction and Terminate on the main thread; OnSessionOpened and OnSessionClosed on the transport's
/// threads; TerminateIfAppropriate and the release of databases on the server's executor, one at a time.
/// mMutex guards client count, tasks, executor, HTTP server and link manager connection; it is not held while one of
/// them is called or ends.
/// Lock order: rank OutOfProcessServer, before all others.
class OutOfProcessServer
{
public:
    OutOfProcessServer(HubParts inParts, const std::u16string& inName, std::uint16_t inPort, std::uint16_t inInfoPort,
                       const std::string& inDowngradeSession, const std::string& inUpgradeSession,
                       const std::string& inTestFilter);
    /// Terminates first, where that has not been done.
    ~OutOfProcessServer();
    OutOfProcessServer(const OutOfProcessServer&) = delete;
    OutOfProcessServer& operator=(const OutOfProcessServer&) = delete;

    /// Ends all that the constructor began, in order, and waits for it. After the event loop. A second call does
    /// nothing.
    void Terminate();
    /// Ends the event loop if no client is there and no sync job is open; with open jobs, drives them and looks again.
    void TerminateIfAppropriate();

    /// Counts a session in. Refused once the server has begun to terminate; the count stays raised then.
    noxtransport::TransportError OnSessionOpened(const std::string& inSession);
    void OnSessionClosed(const std::string& inSession);

private:
    using HTTPServer = HubParts::HTTPServer;
    using TaskPtr = std::shared_ptr<noxcore::threads::QueueOnlyOnce>;

    void RunMaintenance(std::string_view inWhat, const ImmutableString& inSessionID,
                        int (StorePart::*inOperation)(const ImmutableString&));
    void RunTests(const std::string& inFilter);
    void BeginService();
    void CreateTasks();
    void RegisterRPCRequests();
    void OpenRPCEndpoint();
    void RegisterServices();
    void StartHTTPServer();
    void RegisterWithLinkManager();
    void ReleaseUnusedDatabases();
    void QuitEventLoop();
    void ReleaseRPC();
    void UnregisterServices();

    [[nodiscard]] std::shared_ptr<HTTPServer> GetHTTPServer();
    void CreateHTTPServer(std::uint16_t inPort, bool inFirst);
    [[nodiscard]] std::uint16_t PortForClients();

    // Constant after construction.
    const noxcore::classref::ClassWatcher::Counter mCounter{"OutOfProcessServer"};
    const HubParts mParts;
    const std::string mName;
    const std::uint16_t mRequestedPort;
    const std::uint16_t mInfoPort;
    std::unique_ptr<StorePart> mStore;
    std::unique_ptr<EnginePart> mEngine;

    // Main thread only.
    std::shared_ptr<noxmarshal::RPCServer> mRPCServer;
    std::shared_ptr<noxtransport::SocketTransport> mTransport;
    std::shared_ptr<noxtransport::SocketTransport::Server> mTransportServer;
    std::vector<std::shared_ptr<VantryAPIService>> mServices;  ///< in the order of their registration

    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::OutOfProcessServer};
    std::uint64_t mClientCount GUARDED_BY(mMutex) = 0;  ///< open RPC sessions, and those refused
    std::shared_ptr<swiftlatch::server::SwiftLatchManagerConnection> mLinkManagerConnection GUARDED_BY(mMutex);
    std::shared_ptr<HTTPServer> mHTTPServer GUARDED_BY(mMutex);
    TaskPtr mReleaseTask GUARDED_BY(mMutex);
    TaskPtr mTerminateTask GUARDED_BY(mMutex);
    std::shared_ptr<noxcore::threads::Executor> mExecutor GUARDED_BY(mMutex);  ///< null: it has begun to terminate
};

}  // namespace VantryLocalHub

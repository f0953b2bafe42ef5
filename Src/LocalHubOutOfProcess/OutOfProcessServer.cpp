#include "Inc/LocalHubOutOfProcess/OutOfProcessServer.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "Client/VYClient/UTF16.h"
#include "Inc/Service/DropAllLongPolls.h"
#include "Platform/noxcore/Clock.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/ProcessConfiguration.h"
#include "Platform/noxcore/TestCommandRunnerRegistry.h"
#include "Platform/noxcore/TraceHandler.h"
#include "Platform/noxmarshal/MessageRegistrar.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/swiftlatch/Protocol.h"

namespace VantryLocalHub {

using namespace noxcore;
using noxtransport::TransportError;
using threads::QueueOnlyOnce;
using threads::ScopedLock;

namespace {

constexpr std::string_view kCategory = "VantryLocalHub";
constexpr std::string_view kRPCServerName = "VantryOutOfProcess";
constexpr int kReserved = -1;
constexpr unsigned kTaskDelayInMilliseconds = 5000;
constexpr int kMaxStartAttempts = 5;
constexpr int kStackDepth = 10;
constexpr std::int64_t kDefaultExpireTimeInSeconds = 180;
constexpr std::int64_t kLongestExpireTimeInSeconds = 10LL * 365 * 24 * 3600;

/// Lets a task queue itself again without keeping itself, and through itself the server, alive.
struct WeakLiberatorHolder
{
    std::weak_ptr<QueueOnlyOnce> mTask;
};

std::vector<std::string> SplitAtBlanks(const std::string& inText)
{
    std::istringstream stream(inText);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

}  // namespace

OutOfProcessServer::OutOfProcessServer(HubParts inParts, const std::u16string& inName, std::uint16_t inPort,
                                       std::uint16_t inInfoPort, const std::string& inDowngradeSession,
                                       const std::string& inUpgradeSession, const std::string& inTestFilter)
    : mParts(std::move(inParts)), mName(VYCL::ToUTF8(inName)), mRequestedPort(inPort), mInfoPort(inInfoPort)
{
    CreateHTTPServer(inPort, true);
    {
        const ScopedLock lock(mMutex);
        mExecutor = threads::CreateSubExecutor(threads::CreateIOBoundExecutor("OutOfProcessServer", 1), 1);
    }
    try {
        mStore = mParts.mCreateStore();
        mEngine = mParts.mCreateEngine();
        if (!inDowngradeSession.empty()) {
            RunMaintenance("Repository downgrade", inDowngradeSession, &StorePart::DowngradeRepository);
        } else if (!inUpgradeSession.empty()) {
            RunMaintenance("Repository upgrade", inUpgradeSession, &StorePart::UpgradeRepository);
        } else if (!inTestFilter.empty()) {
            RunTests(inTestFilter);
        } else {
            BeginService();
        }
    } catch (...) {
        Terminate();  // the destructor will not
        throw;
    }
}

OutOfProcessServer::~OutOfProcessServer()
{
    Terminate();
}

void OutOfProcessServer::RunMaintenance(std::string_view inWhat, const ImmutableString& inSessionID,
                                        int (StorePart::*inOperation)(const ImmutableString&))
{
    const int result = (*mStore.*inOperation)(inSessionID);
    logging::LogWarning("GitBox", inWhat, {{"sessionID", inSessionID.View()}, {"result", result}});
    QuitEventLoop();
}

void OutOfProcessServer::RunTests(const std::string& inFilter)
{
    debug::Trace("Test", "Running unit tests: " + inFilter);
    debug::Trace("Test",
                 commands::TestCommandRunnerRegistry::ExecuteTestCommandRunner(SplitAtBlanks(inFilter), "utest"));
    QuitEventLoop();
}

void OutOfProcessServer::BeginService()
{
    CreateTasks();
    RegisterRPCRequests();
    OpenRPCEndpoint();
    RegisterServices();
    StartHTTPServer();
    TaskPtr releaseTask;
    {
        const ScopedLock lock(mMutex);
        releaseTask = mReleaseTask;
    }
    releaseTask->Queue();
    RegisterWithLinkManager();
}

void OutOfProcessServer::CreateTasks()
{
    const auto holder = std::make_shared<WeakLiberatorHolder>();
    const ScopedLock lock(mMutex);
    mReleaseTask = QueueOnlyOnce::Create(
        mExecutor,
        [this, holder] {
            ReleaseUnusedDatabases();
            if (const auto task = holder->mTask.lock()) task->Queue();
        },
        kTaskDelayInMilliseconds);
    holder->mTask = mReleaseTask;
    mTerminateTask = QueueOnlyOnce::Create(
        mExecutor, [this] { TerminateIfAppropriate(); }, kTaskDelayInMilliseconds);
}

void OutOfProcessServer::RegisterRPCRequests()
{
    using noxmarshal::MessageRegistrar;
    using ResponderPtr = std::shared_ptr<noxmarshal::Responder>;
    MessageRegistrar::Register(swiftlatch::kMessage_GetServerInformation,
                               [this](const noxmarshal::Arguments&, const ResponderPtr& inResponder) {
                                   inResponder->SendGeneralResult(swiftlatch::PortInformation{PortForClients()});
                               });
    MessageRegistrar::Register(swiftlatch::kMessage_GiveClientInformation, [](const noxmarshal::Arguments& inArguments,
                                                                              const ResponderPtr& inResponder) {
        swiftlatch::ClientInformation client;
        if (!inArguments.Get(0, client)) {
            inResponder->SendError(noxmarshal::kRPCError_InvalidParams, "client information expected");
            return;
        }
        logging::LogInformation(kCategory, "Client connected",
                                {{"info", noxmarshal::ToJSON(client)}, {"session", inResponder->SessionID()}});
        inResponder->SendSimpleOK();
    });
}

void OutOfProcessServer::OpenRPCEndpoint()
{
    mTransport = mParts.mGetTransport();
    mTransportServer = mParts.mStartTransport(mTransport);
    if (!mTransportServer) {
        // No client can ever find this hub, so nothing would ever end it.
        logging::LogError(kCategory, "Unable to start the RPC transport. Giving up.");
        QuitEventLoop();
        return;
    }
    mRPCServer = mParts.mCreateRPCServer(mTransportServer, std::string(kRPCServerName));
    mTransportServer->SetSessionCallbacks([this](const std::string& inSession) { return OnSessionOpened(inSession); },
                                          [this](const std::string& inSession) { OnSessionClosed(inSession); });
}

void OutOfProcessServer::RegisterServices()
{
    const auto server = GetHTTPServer();
    for (auto& service : mParts.mMakeServices()) {
        service->Register(*server);
        mServices.push_back(std::move(service));
    }
}

void OutOfProcessServer::StartHTTPServer()
{
    for (int attempt = 0; attempt < kMaxStartAttempts; ++attempt) {
        const auto server = GetHTTPServer();
        if (server->Start() == noxnet::kHTTPStatus_OK) {
            logging::LogInformation(kCategory, "Started local HTTP server", {{"port", server->GetPort()}});
            return;
        }
        const std::uint16_t serverPort = server->GetPort();
        if (attempt + 1 < kMaxStartAttempts) {
            logging::LogWarning(kCategory, "Unable to start local HTTP server. Will retry on a different port.",
                                {{"requestedPort", mRequestedPort}, {"serverPort", serverPort}});
            // The services stay where they are: the replacement knows none, and answers every path with its default.
            CreateHTTPServer(0, false);
        } else {
            logging::LogError(kCategory, "Unable to start local HTTP server. Giving up.",
                              {{"requestedPort", mRequestedPort},
                               {"serverPort", serverPort},
                               {"stackTrace", logging::StackTrace(kStackDepth)}});
            QuitEventLoop();
        }
    }
}

void OutOfProcessServer::RegisterWithLinkManager()
{
    if (!mTransportServer) return;
    swiftlatch::ServerInformation information;
    information.mName = mName;
    information.mAppName = config::GetClientName();
    information.mAppVersion = config::GetClientVersion();
    information.mProtoVersion = swiftlatch::GetSwiftLatchProtocolVersion();
    information.mHeadless = true;
    information.mHeadlessOnly = true;
    information.mSelflinkOnly = false;
    auto connection =
        mParts.mConnectToLinkManager(information, {mTransportServer->GetAddress(), mTransportServer->GetPort()});
    const ScopedLock lock(mMutex);
    mLinkManagerConnection = std::move(connection);
}

void OutOfProcessServer::ReleaseUnusedDatabases()
{
    const std::int64_t configured = debug::DebugDatabase::Instance()->GetInteger(
        "VY.Config.LocalHub.ExpireDatabaseTimeInSeconds", kDefaultExpireTimeInSeconds);
    const std::int64_t seconds = std::clamp<std::int64_t>(configured, 0, kLongestExpireTimeInSeconds);
    const std::int64_t cutOff = HubContext::Current()->GetClock().MonotonicTicks() - seconds * kTicksPerSecond;
    mStore->ReleaseUnusedDB(cutOff);
    mEngine->ReleaseUnusedDB(cutOff);
}

void OutOfProcessServer::QuitEventLoop()
{
    std::shared_ptr<swiftlatch::server::SwiftLatchManagerConnection> connection;
    {
        const ScopedLock lock(mMutex);
        connection.swap(mLinkManagerConnection);
    }
    connection.reset();
    threads::GetRegisteredMainThread()->Quit();
}

TransportError OutOfProcessServer::OnSessionOpened(const std::string& inSession)
{
    ScopedLock lock(mMutex);
    ++mClientCount;
    if (!mExecutor || mExecutor->IsShuttingDown()) {
        logging::LogWarning(kCategory, "A client connected during local hub termination!", {{"sessionID", inSession}});
        return TransportError::Refused;
    }
    lock.Unlock();
    logging::LogInformation(kCategory, "Client connected", {{"session", inSession}});
    return TransportError::None;
}

void OutOfProcessServer::OnSessionClosed(const std::string& inSession)
{
    logging::LogInformation(kCategory, "Client disconnected", {{"session", inSession}});
    TaskPtr terminateTask;
    {
        const ScopedLock lock(mMutex);
        if (mClientCount > 0) --mClientCount;
        if (mClientCount == 0) terminateTask = mTerminateTask;
    }
    if (terminateTask) terminateTask->Queue();
    DropAllLongPollsMessage::Post();
}

void OutOfProcessServer::TerminateIfAppropriate()
{
    TaskPtr terminateTask;
    {
        const ScopedLock lock(mMutex);
        if (mClientCount != 0) return;
        terminateTask = mTerminateTask;
    }
    const auto jobCount = mEngine->GetUnfinishedSyncJobCount();
    if (jobCount && *jobCount == 0) {
        QuitEventLoop();
        return;
    }
    if (!terminateTask) return;
    if (jobCount) {
        logging::LogDetail(kCategory, "Will exit after jobs complete", {{"jobCount", *jobCount}});
        mEngine->RunUnfinishedSyncJobs();
    }
    terminateTask->Queue();
}

void OutOfProcessServer::Terminate()
{
    std::shared_ptr<threads::Executor> executor;
    TaskPtr releaseTask;
    std::shared_ptr<swiftlatch::server::SwiftLatchManagerConnection> connection;
    {
        const ScopedLock lock(mMutex);
        executor.swap(mExecutor);
        releaseTask.swap(mReleaseTask);
        connection.swap(mLinkManagerConnection);
    }
    if (!executor) return;
    connection.reset();  // still there when a signal ended the event loop
    ReleaseRPC();
    UnregisterServices();
    executor->ShutDownAndWait();
    GetHTTPServer()->Stop();
    if (mEngine) mEngine->Terminate();
    mParts.mShutDownNetwork();
    if (mEngine) mEngine->Close();
    if (mStore) mStore->Close();
}

void OutOfProcessServer::ReleaseRPC()
{
    mRPCServer.reset();
    mTransportServer.reset();
    mTransport.reset();
    noxmarshal::MessageRegistrar::Unregister(swiftlatch::kMessage_GetServerInformation);
    noxmarshal::MessageRegistrar::Unregister(swiftlatch::kMessage_GiveClientInformation);
}

void OutOfProcessServer::UnregisterServices()
{
    const auto server = GetHTTPServer();
    for (const auto& service : mServices) {
        service->Unregister(*server);
        service->FailAllAsyncFulfillments();
    }
}

std::shared_ptr<OutOfProcessServer::HTTPServer> OutOfProcessServer::GetHTTPServer()
{
    const ScopedLock lock(mMutex);
    return mHTTPServer;
}

void OutOfProcessServer::CreateHTTPServer(std::uint16_t inPort, bool inFirst)
{
    auto server = mParts.mCreateHTTPServer(inPort, inFirst, kReserved);
    server->SetInfoPort(mInfoPort);
    const ScopedLock lock(mMutex);
    mHTTPServer.swap(server);
}

std::uint16_t OutOfProcessServer::PortForClients()
{
    return mInfoPort != 0 ? mInfoPort : GetHTTPServer()->GetPort();
}

}  // namespace VantryLocalHub

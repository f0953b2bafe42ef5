#include "Src/LocalHubOutOfProcess/Entry.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <utility>

#include "Client/VYClient/LocalHub.h"
#include "Client/VYClient/UTF16.h"
#include "Client/VYClient/VYClient.h"
#include "Inc/LocalHubOutOfProcess/OutOfProcessServer.h"
#include "Platform/noxcore/AppStateManager.h"
#include "Platform/noxcore/ClassWatcher.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"
#include "Platform/noxcore/ProcessNotification.h"
#include "Platform/noxcore/ProcessParameters.h"
#include "Src/LocalHubOutOfProcess/CommandLine.h"
#include "Src/LocalHubOutOfProcess/InternalInitializer.h"

namespace VantryLocalHub {

using namespace noxcore;
using appstatemanager::ScSetStateWhenDestroyed;
using debug::kPlatformCall;
using debug::kPlatformCategory;

namespace {

constexpr std::uint32_t kShutdownLevel = 256;
constexpr std::uint32_t kShutdownWithoutRetry = 1;
constexpr const char* kUnusableDataFolder = "The data folder of the local hub cannot be used";
constexpr const char16_t* kServerName = u"TesselProjectsLocalHub.2";
constexpr int kExit_CannotRun = 1;
constexpr int kState_ServerStands = 2;
constexpr int kState_LoopEnded = 5;
constexpr int kState_LoopLeft = 6;
constexpr int kState_Terminated = 7;

config::ProcessBeginEndNotificationRegistry::Table ProcessConstants()
{
    return {{"kAppShortName", VYCL::ToUTF8(VYCL::LocalHub::VantryLocalHub_Name())},
            {"kAppMajorVersion", 25},
            {"kAppMinorVersion", 3},
            {"kAppPatchVersion", 0},
            {"kAppBuildNumber", 71},
            {"kSuiteVersion", 25},
            {"kSuiteBrandingVersion", 2025},
            {"kSuiteBrandingMinorVersion", 0},
            {"kAppIsHeadless", true},
            {"kEnableFastExit", true}};
}

void PrepareProcess()
{
    SetProcessShutdownParameters(kShutdownLevel, kShutdownWithoutRetry);
    SetErrorMode(SetErrorMode(0) | kErrorMode_FailCriticalErrors | kErrorMode_NoFaultDialog |
                 kErrorMode_NoOpenFileDialog);
    config::LimitedDLLHijackFix();
    config::ProcessBeginEndNotificationRegistry::NotifyProcessBegin(ProcessConstants());
    logging::LogDetail(kPlatformCategory, kPlatformCall, {{"name", "RegisterCurrentThreadAsMainThread"}});
    threads::RegisterCurrentThreadAsMainThread();
    debug::DebugDatabase::Instance()->LoadFile(VYCL::LocalHub::GetSettingsFile());
}

void Refuse(const char* inReason, const std::string& inFolder)
{
    std::fprintf(stderr, "%s: %s\n", inReason, inFolder.c_str());
    logging::LogWarning("VantryLocalHub", inReason, {{"path", inFolder}});
}

/// The lock that makes this process the only one to touch the user's data. Null, with the reason told, when it cannot
/// be had: because another hub has it, or because no hub could run here.
std::shared_ptr<filesupport::FileLock> TakeDataFolder(bool& outHeldElsewhere)
{
    const auto folder = VYCL::LocalHub::GetBaseSuiteDataFolder();
    if (!VYCL::LocalHub::EnsurePrivateFolder(folder)) {
        Refuse(kUnusableDataFolder, folder);
        return nullptr;
    }
    auto lock = filesupport::Files().TryLock(filesupport::Join(folder, "lock"), outHeldElsewhere);
    if (!lock) Refuse(outHeldElsewhere ? "Another local hub of this user is running" : kUnusableDataFolder, folder);
    return lock;
}

void RunEventLoop()
{
    // The one that is made last is published first.
    const ScSetStateWhenDestroyed left(kState_LoopLeft);
    const ScSetStateWhenDestroyed ended(kState_LoopEnded);
    logging::LogDetail(kPlatformCategory, kPlatformCall, {{"name", "RunPlatformEventLoop"}});
    threads::RunPlatformEventLoop();
}

void RunServer(const CommandLine& inCommandLine, HubParts inParts)
{
    OutOfProcessServer server(std::move(inParts), kServerName, inCommandLine.mPort, inCommandLine.mInfoPort,
                              inCommandLine.mDowngradeSession, inCommandLine.mUpgradeSession,
                              inCommandLine.mTestFilter);
    appstatemanager::SetState(kState_ServerStands);
    RunEventLoop();
    const ScSetStateWhenDestroyed terminated(kState_Terminated);
    server.Terminate();
}

/// Work that nobody waited for is done when this goes, folders that are to be deleted last.
struct BackgroundWork
{
    BackgroundWork() = default;
    ~BackgroundWork()
    {
        VYCL::Shutdown();
        threads::IOBoundExecutor()->ShutDownAndWait();
        threads::CPUBoundExecutor()->ShutDownAndWait();
        threads::PreTerminationExecutor()->ShutDownAndWait();
    }
    BackgroundWork(const BackgroundWork&) = delete;
    BackgroundWork& operator=(const BackgroundWork&) = delete;
};

/// The process's exit status. Not 0 where a hub cannot run at all, so that whoever starts it does not try on and on.
int Run(const std::vector<std::string>& inArguments, HubParts inParts)
{
    const auto initializer = std::make_shared<InternalInitializer>();
    bool heldElsewhere = false;
    const auto dataFolder = TakeDataFolder(heldElsewhere);
    const BackgroundWork backgroundWork;  // ends before the data folder is given back, however the server ends
    if (!dataFolder) return heldElsewhere ? 0 : kExit_CannotRun;
    RunServer(ParseCommandLine(inArguments), std::move(inParts));
    return 0;
}

}  // namespace

int RunLocalHub(const std::vector<std::string>& inArguments, HubParts inParts)
{
    PrepareProcess();
    int status = kExit_CannotRun;
    try {
        status = Run(inArguments, std::move(inParts));
    } catch (const std::exception& exception) {
        logging::LogError("VantryLocalHub", "The local hub cannot run", {{"exception", exception.what()}});
    }
    classref::ClassWatcher::DetectLeaks();
    logging::LogDetail(kPlatformCategory, kPlatformCall, {{"name", "UnregisterMainThread"}});
    threads::UnregisterMainThread();
    return status;
}

}  // namespace VantryLocalHub

#include "Src/LocalHubOutOfProcess/InternalInitializer.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include "Client/VYClient/LocalHub.h"
#include "Client/VYClient/Registry.h"
#include "Client/VYClient/UTF16.h"
#include "Client/VYClient/VYClient.h"
#include "Inc/Model/GitBoxIO.h"
#include "Platform/mediacore/DirectoryRegistry.h"
#include "Platform/mediacore/NOXErrorManager.h"
#include "Platform/mediacore/ProcessCoordination.h"
#include "Platform/mediacore/QRM.h"
#include "Platform/noxcore/AppStateManager.h"
#include "Platform/noxcore/CommonDirs.h"
#include "Platform/noxcore/ConsoleLogFile.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"
#include "Platform/noxcore/ProcessConfiguration.h"
#include "Platform/noxcore/ProcessNotification.h"
#include "Platform/noxcore/VersionInfo.h"
#include "Src/LocalHubOutOfProcess/StaleFolders.h"

namespace VantryLocalHub {

using namespace noxcore;

namespace {

constexpr std::string_view kCategory = "VantryLocalHub";
constexpr std::string_view kStartMessage = "TesselProjectsLocalHub.2";
/// Nobody has ever expanded this name, and clients know it as it stands.
constexpr std::string_view kPatchNumber = "NOX_PATCH_VERSION";
constexpr std::int64_t kDefaultMaxLogFileAgeInDays = 7;
constexpr int kQRMInterfaceVersion = 15;
constexpr int kQRMFlags = 1;
constexpr int kState_Initialized = 1;

std::string ProgramName()
{
    return VYCL::ToUTF8(VYCL::LocalHub::VantryLocalHub_Name());
}

/// What the user has set already stays.
void TurnOnLogSettings()
{
    const auto settings = debug::DebugDatabase::Instance();
    for (const char* key : {"AddTimestampToLogFileNames", "AddUTCTimestampToTraces", "CreateLogFilesThatDoNotExist"}) {
        if (!settings->HasEntry(key)) settings->SetEntry(key, "true");
    }
}

void CleanUpLogs()
{
    const auto days = debug::DebugDatabase::Instance()->GetInteger("VY.Config.LocalHub.MaxLogFileAgeInDays",
                                                                   kDefaultMaxLogFileAgeInDays);
    if (const auto file = console::ConsoleLogFile::GetInstanceP0()) file->DeleteOldLogFiles(days);
}

void CleanUpTempFolder()
{
    std::array<char, 16> identifier{};
    std::snprintf(identifier.data(), identifier.size(), "%u", static_cast<unsigned>(getpid()));
    const auto folder = VYCL::LocalHub::GetTempFolder();
    if (EnsurePrivateTempFolder(folder)) DeleteOldTempRepositories(folder, identifier.data());
}

void QueueCleanUps()
{
    const auto executor = threads::IOBoundExecutor();
    executor->Queue(CleanUpLogs);
    executor->Queue(CleanUpTempFolder);
}

void AnnounceStart()
{
    const std::initializer_list<logging::Pair> pairs = {
        {"platform", config::GetClientPlatform()},          {"sysVersion", config::GetClientVersion()},
        {"noxVersion", versioninfo::GetAppVersionString()}, {"build", config::GetClientBuildNumber()},
        {"dataModel", GitBox::IO::kDataModelVersion},       {"suiteClient", GitBox::IO::kSuiteClientVersion}};
    logging::LogInformation(kCategory, kStartMessage, pairs);
    logging::Record record;
    record.mMessage = kStartMessage;
    record.mPairs = pairs;
    debug::Trace(kCategory, record.Text());
}

}  // namespace

InternalInitializer::InternalInitializer()
{
    SetNamesAndVersions();
    TurnOnLogSettings();
    mTraceHandlerInstaller =
        std::make_shared<debug::TraceHandlerInstaller>(VYCL::LocalHub::GetLogFolder(), ProgramName());
    Localizer::Set(this);
    SetUpErrorManager();
    config::SetClientBuildNumber("");
    RegisterModules();
    InitializeModules();
    QueueCleanUps();
    appstatemanager::SetState(kState_Initialized);
    AnnounceStart();
}

void InternalInitializer::SetNamesAndVersions()
{
    config::SetCompanyName("Corvane");
    config::SetApplicationName(ProgramName());
    config::SetClientName(ProgramName());
    const std::string& version = VYCL::Registry::GetVYRegistryKeyVersionString();
    config::SetClientVersion(version + "." + std::string(kPatchNumber));
    config::SetClientInternalVersion(version);
    config::SetClientPatchNumber(kPatchNumber);
    config::SetSAPCode("VYLH", "");
}

void InternalInitializer::SetUpErrorManager()
{
    config::SetErrorManager(std::make_shared<MX::NOXErrorManager>());
    mNewHandlerInitializer = std::make_shared<config::ErrorManager::NewHandlerInitializer>();
}

void InternalInitializer::RegisterModules()
{
    const std::string preferencesVersion = versioninfo::GetAppPrefsVersionString();
    const std::string applicationVersion = versioninfo::GetAppVersionString();
    config::SetConfigurationForModule("QRM", [preferencesVersion, applicationVersion] {
        const auto name = config::ProcessBeginEndNotificationRegistry::GetText("kAppShortName");
        QRM_Initialize(kQRMInterfaceVersion, name, applicationVersion, preferencesVersion, kQRMFlags);
    });
    config::ExecuteOnInitializationCompleted("TFL::DirectoryRegistry", [] {
        TFL::DirectoryRegistry::RegisterDirectory("noxshared.documents",
                                                  filesupport::commondirs::NOXSharedDocumentsDir() + "/");
    });
}

void InternalInitializer::InitializeModules()
{
    config::Initialize();
    processcoordination::InitializeClient();
    mMediaCoreInitializer = std::make_shared<MX::Initializer>();
    logging::LogDetail(debug::kPlatformCategory, debug::kPlatformCall, {{"name", "VYCL::Initialize"}});
    VYCL::Initialize();
}

}  // namespace VantryLocalHub

#include "Src/LocalHubOutOfProcess/Entry.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "Client/VYClient/LocalHub.h"
#include "Client/VYClient/VYClient.h"
#include "Platform/mediacore/DirectoryRegistry.h"
#include "Platform/mediacore/Initializer.h"
#include "Platform/mediacore/QRM.h"
#include "Platform/noxcore/AppStateManager.h"
#include "Platform/noxcore/ClassWatcher.h"
#include "Platform/noxcore/ConsoleLogFile.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/Localizer.h"
#include "Platform/noxcore/ProcessConfiguration.h"
#include "Src/LocalHubOutOfProcess/StaleFolders.h"
#include "Tests/LocalHubOutOfProcess/FakeHub.h"

namespace VantryLocalHub {
namespace {

using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

constexpr std::int64_t kSecondsPerDay = 24 * 3600;

class EntryTest : public testing::Test, protected FakeProcess
{
protected:
    /// Runs the whole process, with one client that comes once everything stands and leaves at once.
    void Run(std::vector<std::string> inArguments = {}, int inStatus = 0)
    {
        if (!mScript->mWhenRegistered) mScript->mWhenRegistered = [this] { VisitAndLeave(); };
        inArguments.insert(inArguments.begin(), "localhub");
        EXPECT_EQ(inStatus, RunLocalHub(inArguments, MakeFakeParts(mScript)));
    }

    void VisitAndLeave() const
    {
        noxcore::threads::AsyncCallFromMainThread([script = mScript] {
            script->mOpened("s1");
            script->mClosed("s1");
        });
    }

    /// The names of the platform calls in their order, application states with their number.
    [[nodiscard]] std::vector<std::string> PlatformCalls() const
    {
        std::vector<std::string> names;
        for (const auto& record : mLog->All()) {
            if (record.mMessage == "TesselProjectsLocalHub.2") names.push_back(record.mMessage);
            if (record.mMessage != "Platform call") continue;
            EXPECT_EQ(noxcore::logging::Level::Detail, record.mLevel);
            const std::string name(record.Value("name"));
            if (name == "DeleteOldLogFiles") continue;  // on its own task, at any time
            names.push_back(name == "SetState" ? name + " " + std::string(record.Value("state")) : name);
        }
        return names;
    }

    [[nodiscard]] testing_support::LogCapture::Record Call(std::string_view inName, std::size_t inIndex = 0) const
    {
        auto records = mLog->Find("Platform call");
        std::erase_if(records, [&](const auto& inRecord) { return inRecord.Value("name") != inName; });
        EXPECT_LT(inIndex, records.size());
        return inIndex < records.size() ? records[inIndex] : testing_support::LogCapture::Record();
    }

    std::string WriteLog(const std::string& inName, std::int64_t inAgeInSeconds) const
    {
        const auto folder = VYCL::LocalHub::GetLogFolder();
        Files().EnsureDirectoryExists(folder);
        auto path = Join(folder, inName);
        std::ofstream(path) << "old";
        const std::int64_t now = mScheduler->GetClock()->NowTicks() / noxcore::kTicksPerSecond;
        const timespec times[2] = {{now - inAgeInSeconds, 0}, {now - inAgeInSeconds, 0}};
        EXPECT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
        return path;
    }

    static void Write(const std::string& inPath, const std::string& inText)
    {
        Files().EnsureDirectoryExists(std::string(noxcore::filesupport::ParentFolder(inPath)));
        ASSERT_TRUE(Files().WriteFileDurably(inPath, inText));
    }
};

TEST_F(EntryTest, TheProcessComesUpAndGoesDownInOneOrder)
{
    Run();
    EXPECT_THAT(
        PlatformCalls(),
        ElementsAre("SetProcessShutdownParameters", "SetErrorMode", "SetErrorMode", "LimitedDLLHijackFix",
                    "NotifyProcessBegin", "RegisterCurrentThreadAsMainThread", "SetCompanyName", "SetApplicationName",
                    "SetClientName", "SetClientVersion", "SetClientInternalVersion", "SetClientPatchNumber",
                    "SetSAPCode", "TraceHandlerInstaller", "Localizer::Set", "SetErrorManager", "NewHandlerInitializer",
                    "SetClientBuildNumber", "SetConfigurationForModule", "ExecuteOnInitializationCompleted",
                    "Initialize", "QRM_Initialize", "RegisterDirectory", "InitializeClient", "MX::Initializer",
                    "VYCL::Initialize", "SetState 1", "TesselProjectsLocalHub.2", "SetState 2", "RunPlatformEventLoop",
                    "SetState 5", "SetState 6", "SetState 7", "DetectLeaks", "UnregisterMainThread"));
    EXPECT_EQ(7, noxcore::appstatemanager::GetState());
}

TEST_F(EntryTest, TheSystemIsToldHowToTreatTheProcess)
{
    Run();
    EXPECT_EQ("256", Call("SetProcessShutdownParameters").Value("level"));
    EXPECT_EQ("1", Call("SetProcessShutdownParameters").Value("flags"));
    EXPECT_EQ("0", Call("SetErrorMode", 0).Value("mode"));
    EXPECT_EQ(std::to_string(0x8003), Call("SetErrorMode", 1).Value("mode"));
}

TEST_F(EntryTest, TheConstantsOfTheProcessAreToldAsOneTableInTheirOrder)
{
    Run();
    EXPECT_EQ(
        "kAppShortName=TesselProjectsLocalHub; kAppMajorVersion=25; kAppMinorVersion=3; kAppPatchVersion=0; "
        "kAppBuildNumber=71; kSuiteVersion=25; kSuiteBrandingVersion=2025; kSuiteBrandingMinorVersion=0; "
        "kAppIsHeadless=true; kEnableFastExit=true",
        Call("NotifyProcessBegin").Value("table"));
}

TEST_F(EntryTest, TheNameOfThePatchNumberStaysUnexpanded)
{
    Run();
    EXPECT_EQ("25.3.NOX_PATCH_VERSION", noxcore::config::GetClientVersion());
    EXPECT_EQ("25.3", noxcore::config::GetClientInternalVersion());
    EXPECT_EQ("NOX_PATCH_VERSION", noxcore::config::GetClientPatchNumber());
    EXPECT_EQ("Corvane", noxcore::config::GetCompanyName());
    EXPECT_EQ("TesselProjectsLocalHub", noxcore::config::GetApplicationName());
    EXPECT_EQ("TesselProjectsLocalHub", noxcore::config::GetClientName());
    EXPECT_EQ("VYLH", noxcore::config::GetSAPCode());
    EXPECT_EQ("", Call("SetSAPCode").Value("variant"));
}

TEST_F(EntryTest, TheModulesLearnTheirConfigurationWhenItIsInitialized)
{
    Run();
    const auto configuration = QRM_GetConfiguration();
    EXPECT_EQ(15, configuration.mInterfaceVersion);
    EXPECT_EQ("TesselProjectsLocalHub", configuration.mApplication);
    EXPECT_EQ("25.3.0", configuration.mApplicationVersion);
    EXPECT_EQ("25.0", configuration.mPreferencesVersion);
    EXPECT_EQ(1, configuration.mFlags);
    EXPECT_THAT(TFL::DirectoryRegistry::FindDirectory("noxshared.documents"),
                testing::EndsWith("/corvane/Shared Documents/"));
}

TEST_F(EntryTest, TheStartIsAnnouncedInTheLogAndTheTrace)
{
    Run();
    const auto records = mLog->Find("TesselProjectsLocalHub.2");
    ASSERT_THAT(records, SizeIs(1));
    EXPECT_EQ(noxcore::logging::Level::Information, records[0].mLevel);
    EXPECT_THAT(std::string(records[0].Value("platform")), StartsWith("Linux "));
    EXPECT_EQ("25.3.NOX_PATCH_VERSION", records[0].Value("sysVersion"));
    EXPECT_EQ("25.3.0", records[0].Value("noxVersion"));
    EXPECT_EQ("", records[0].Value("build"));
    EXPECT_EQ("2.0.1", records[0].Value("dataModel"));
    EXPECT_EQ("2025", records[0].Value("suiteClient"));
    EXPECT_EQ(1U, mLog->Count(records[0].Text()));
}

TEST_F(EntryTest, TheProcessEndsFiveSecondsAfterItsLastClientLeft)
{
    Run();
    EXPECT_EQ(5 * noxcore::kTicksPerSecond, mScheduler->GetClock()->MonotonicTicks());
    EXPECT_EQ(1U, mScript->Count("store closed"));
    EXPECT_EQ("HTTP server gone", mScript->mEvents.back());
}

TEST_F(EntryTest, NothingOfTheProcessIsLeftBehindButItsFiles)
{
    Run();
    EXPECT_EQ(nullptr, noxcore::config::Localizer::Get());
    EXPECT_FALSE(MX::Initializer::IsInitialized());
    EXPECT_EQ(0U, mLog->Count("Leaked objects"));
    EXPECT_EQ(0, noxcore::classref::ClassWatcher::DetectLeaks());
}

TEST_F(EntryTest, ALeakedObjectOfAWatchedClassIsReported)
{
    const noxcore::classref::ClassWatcher::Counter leaked("Leaky");
    [[maybe_unused]] auto copy = leaked;  // NOLINT(performance-unnecessary-copy-initialization): it counts
    Run();
    const auto records = mLog->Find("Leaked objects");
    ASSERT_THAT(records, SizeIs(1));
    EXPECT_EQ("Leaky", records[0].Value("class"));
    EXPECT_EQ("2", records[0].Value("count"));
}

TEST_F(EntryTest, TheCommandLineReachesTheServer)
{
    Run({"-port", "4000", "-infoPort", "5000"});
    EXPECT_EQ("HTTP server 4000 first -1", mScript->mEvents[0]);
    EXPECT_EQ("info port 5000", mScript->mEvents[1]);
}

TEST_F(EntryTest, AMaintenanceRunEndsByItselfInNoTime)
{
    Run({"-upgradeRepo", "s-2", "-downgradeRepo", "s-1"});
    EXPECT_EQ(1U, mScript->Count("downgrade s-1"));
    EXPECT_EQ(0U, mScript->Count("upgrade s-2"));
    EXPECT_EQ(0, mScheduler->GetClock()->MonotonicTicks());
    EXPECT_EQ(1U, mScript->Count("store closed"));
}

TEST_F(EntryTest, ASecondHubOfTheSameUserSaysSoAndDoesNothing)
{
    const auto folder = VYCL::LocalHub::GetBaseSuiteDataFolder();
    ASSERT_TRUE(Files().EnsureDirectoryExists(folder));
    const auto lock = Files().TryLock(Join(folder, "lock"));
    ASSERT_NE(nullptr, lock);
    testing::internal::CaptureStderr();
    Run();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), StartsWith("Another local hub of this user is running"));
    EXPECT_THAT(mScript->mEvents, IsEmpty());
    EXPECT_EQ(1U, mLog->Count("Another local hub of this user is running"));
    EXPECT_EQ("UnregisterMainThread", PlatformCalls().back());
}

TEST_F(EntryTest, ADataFolderThatCannotBeLockedIsNotTakenForThatOfARunningHub)
{
    const auto folder = VYCL::LocalHub::GetBaseSuiteDataFolder();
    ASSERT_TRUE(Files().EnsureDirectoryExists(Join(folder, "lock")));
    testing::internal::CaptureStderr();
    Run({}, 1);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                StartsWith("The data folder of the local hub cannot be used: "));
    EXPECT_THAT(mScript->mEvents, IsEmpty());
}

TEST_F(EntryTest, TheDataFolderIsThisHubsAloneWhileItServes)
{
    const auto folder = VYCL::LocalHub::GetBaseSuiteDataFolder();
    ASSERT_TRUE(Files().EnsureDirectoryExists(folder));
    ASSERT_EQ(0, chmod(folder.c_str(), 0755));
    bool asked = false;
    mScript->mWhenRegistered = [&] {
        asked = true;
        EXPECT_EQ(nullptr, Files().TryLock(Join(folder, "lock")));
        struct stat status = {};
        EXPECT_EQ(0, stat(folder.c_str(), &status));
        EXPECT_EQ(0700U, status.st_mode & 0777U);
        VisitAndLeave();
    };
    Run();
    EXPECT_TRUE(asked);
}

TEST_F(EntryTest, TheClientLibraryStandsWhileTheHubServes)
{
    bool stands = false;
    mScript->mWhenRegistered = [&] {
        stands = VYCL::GetCleanupExecutor() != nullptr;
        VisitAndLeave();
    };
    Run();
    EXPECT_TRUE(stands);
    EXPECT_EQ(nullptr, VYCL::GetCleanupExecutor());
}

TEST_F(EntryTest, TheServerIsTakenDownBetweenTheStatesOfLoopAndTermination)
{
    std::vector<int> states;
    auto parts = MakeFakeParts(mScript);
    mScript->mWhenRegistered = [this] { VisitAndLeave(); };
    parts.mShutDownNetwork = [&] { states.push_back(noxcore::appstatemanager::GetState()); };
    RunLocalHub({"localhub"}, std::move(parts));
    EXPECT_THAT(states, ElementsAre(6));
}

/// What is queued while the network is shut down: late, and waited for by nobody.
class LateWork : public EntryTest
{
protected:
    void Queue()
    {
        using namespace noxcore::threads;
        const std::shared_ptr<Executor> executors[] = {VYCL::GetCleanupExecutor(), IOBoundExecutor(),
                                                       CPUBoundExecutor(), PreTerminationExecutor()};
        for (const auto& executor : executors)
            EXPECT_TRUE(executor->Queue([this] { ++mRan; }));
    }

    int mRan = 0;
};

TEST_F(LateWork, IsDoneBeforeTheProcessEnds)
{
    auto parts = MakeFakeParts(mScript);
    parts.mShutDownNetwork = [this] { Queue(); };
    RunLocalHub({"localhub", "-upgradeRepo", "s-1"}, std::move(parts));
    EXPECT_EQ(4, mRan);
}

TEST_F(LateWork, IsDoneEvenWhereTheServerCannotBeMade)
{
    auto parts = MakeFakeParts(mScript);
    parts.mCreateStore = [this]() -> std::unique_ptr<StorePart> {
        Queue();
        throw std::runtime_error("no room");
    };
    RunLocalHub({"localhub"}, std::move(parts));
    EXPECT_EQ(4, mRan);
}

TEST_F(EntryTest, AMaintenanceRunKeepsAwayFromTheDataOfARunningHub)
{
    const auto folder = VYCL::LocalHub::GetBaseSuiteDataFolder();
    ASSERT_TRUE(Files().EnsureDirectoryExists(folder));
    const auto lock = Files().TryLock(Join(folder, "lock"));
    testing::internal::CaptureStderr();
    Run({"-upgradeRepo", "s-1"});
    EXPECT_NE("", testing::internal::GetCapturedStderr());
    EXPECT_THAT(mScript->mEvents, IsEmpty());
}

TEST_F(EntryTest, TheDataFolderIsFreeAgainAfterTheEnd)
{
    Run();
    EXPECT_NE(nullptr, Files().TryLock(Join(VYCL::LocalHub::GetBaseSuiteDataFolder(), "lock")));
}

TEST_F(EntryTest, AHubThatCannotMakeItsStoreEndsInOrder)
{
    auto parts = MakeFakeParts(mScript);
    parts.mCreateStore = []() -> std::unique_ptr<StorePart> { throw std::runtime_error("no room"); };
    EXPECT_EQ(1, RunLocalHub({"localhub"}, std::move(parts)));
    ASSERT_EQ(1U, mLog->Count("The local hub cannot run"));
    EXPECT_EQ("no room", mLog->Find("The local hub cannot run")[0].Value("exception"));
    EXPECT_EQ(0U, mLog->Count("Leaked objects"));
    EXPECT_NE(nullptr, Files().TryLock(Join(VYCL::LocalHub::GetBaseSuiteDataFolder(), "lock")));
}

TEST_F(EntryTest, TheLogSettingsAreTurnedOnWhereTheUserHasNotSetThem)
{
    Write(VYCL::LocalHub::GetSettingsFile(), "AddTimestampToLogFileNames = false\n");
    Run();
    const auto settings = noxcore::debug::DebugDatabase::Instance();
    EXPECT_EQ("false", settings->GetEntry("AddTimestampToLogFileNames"));
    EXPECT_EQ("true", settings->GetEntry("AddUTCTimestampToTraces"));
    EXPECT_EQ("true", settings->GetEntry("CreateLogFilesThatDoNotExist"));
    EXPECT_TRUE(Files().FileExists(Join(VYCL::LocalHub::GetLogFolder(), "TesselProjectsLocalHub.log")));
}

TEST_F(EntryTest, AUserWhoWantsNoNewLogFilesGetsNone)
{
    Write(VYCL::LocalHub::GetSettingsFile(), "CreateLogFilesThatDoNotExist = false\n");
    Run();
    EXPECT_FALSE(Files().DirectoryExists(VYCL::LocalHub::GetLogFolder()));
    EXPECT_EQ(nullptr, noxcore::console::ConsoleLogFile::GetInstanceP0());
}

TEST_F(EntryTest, LogFilesOlderThanSevenDaysAreDeleted)
{
    const auto old = WriteLog("TesselProjectsLocalHub-20231101T000000-7.log", 7 * kSecondsPerDay + 60);
    const auto young = WriteLog("TesselProjectsLocalHub-20231110T000000-8.log", 7 * kSecondsPerDay - 60);
    const auto foreign = WriteLog("linkbroker.log", 100 * kSecondsPerDay);
    const auto other = WriteLog("TesselProjectsLocalHub.txt", 100 * kSecondsPerDay);
    Run();
    EXPECT_FALSE(Files().FileExists(old));
    EXPECT_TRUE(Files().FileExists(young));
    EXPECT_TRUE(Files().FileExists(foreign));
    EXPECT_TRUE(Files().FileExists(other));
    EXPECT_EQ("7", Call("DeleteOldLogFiles").Value("days"));
}

TEST_F(EntryTest, OldLogFilesAreDeletedWhereAllRunsShareOneToo)
{
    Write(VYCL::LocalHub::GetSettingsFile(), "AddTimestampToLogFileNames = false\n");
    const auto own = WriteLog("TesselProjectsLocalHub.log", 100 * kSecondsPerDay);
    const auto rotated = WriteLog("TesselProjectsLocalHub.3.log", 8 * kSecondsPerDay);
    const auto young = WriteLog("TesselProjectsLocalHub.1.log", 6 * kSecondsPerDay);
    const auto old = WriteLog("TesselProjectsLocalHub-20231101T000000-7.log", 8 * kSecondsPerDay);
    Run();
    EXPECT_TRUE(Files().FileExists(own));
    EXPECT_TRUE(Files().FileExists(young));
    EXPECT_FALSE(Files().FileExists(rotated));
    EXPECT_FALSE(Files().FileExists(old));
}

TEST_F(EntryTest, TheAgeOfOldLogFilesIsASetting)
{
    Write(VYCL::LocalHub::GetSettingsFile(), "[VY.Config.LocalHub]\nMaxLogFileAgeInDays = 2\n");
    const auto old = WriteLog("TesselProjectsLocalHub-20231110T000000-8.log", 3 * kSecondsPerDay);
    const auto young = WriteLog("TesselProjectsLocalHub-20231112T000000-9.log", kSecondsPerDay);
    Run();
    EXPECT_FALSE(Files().FileExists(old));
    EXPECT_TRUE(Files().FileExists(young));
}

TEST_F(EntryTest, FoldersOfDeadProcessesAreSweptAndThoseOfLivingOnesStay)
{
    const auto folder = VYCL::LocalHub::GetTempFolder();
    const auto own = Join(folder, std::to_string(getpid()));
    const auto living = Join(folder, "1");
    const auto dead = Join(folder, "4194999");  // past the largest identifier that the kernel gives out
    const auto nobody = Join(folder, "left-over");
    for (const auto& path : {own, living, dead, nobody})
        Write(Join(path, "git/file"), "x");
    Write(Join(folder, "file"), "x");
    Run();
    EXPECT_TRUE(Files().DirectoryExists(own));
    EXPECT_TRUE(Files().DirectoryExists(living));
    EXPECT_FALSE(Files().DirectoryExists(dead));
    EXPECT_FALSE(Files().DirectoryExists(nobody));
    EXPECT_TRUE(Files().FileExists(Join(folder, "file")));
    EXPECT_EQ(2U, mLog->Count("Deleting old temp repositories for PID"));
}

TEST_F(EntryTest, SweptFoldersGoOnTheExecutorForWorkBeforeTheEnd)
{
    const auto dead = mHome / "tmp/4194999";
    Write(Join(dead, "file"), "x");
    DeleteOldTempRepositories(mHome / "tmp", "1");
    EXPECT_TRUE(Files().DirectoryExists(dead));
    noxcore::threads::PreTerminationExecutor()->ShutDownAndWait();
    EXPECT_FALSE(Files().DirectoryExists(dead));
}

TEST_F(EntryTest, TheTemporaryFolderIsClosedToOthersAtEveryLevel)
{
    Files().EnsureDirectoryExists(mHome / "tmp");
    Run();
    std::string path = VYCL::LocalHub::GetTempFolder();
    for (int level = 0; level < 3; ++level) {
        struct stat status = {};
        ASSERT_EQ(0, stat(path.c_str(), &status)) << path;
        EXPECT_EQ(0700U, status.st_mode & 0777U) << path;
        path = std::string(noxcore::filesupport::ParentFolder(path));
    }
}

TEST_F(EntryTest, ATemporaryFolderThatIsALinkIsLeftAlone)
{
    const auto folder = VYCL::LocalHub::GetTempFolder();
    const auto program = std::string(noxcore::filesupport::ParentFolder(folder));
    const auto company = std::string(noxcore::filesupport::ParentFolder(program));
    const auto elsewhere = mHome / "elsewhere";
    Write(Join(elsewhere, "TesselProjectsLocalHub/Projects/4194999/file"), "x");
    Files().EnsureDirectoryExists(std::string(noxcore::filesupport::ParentFolder(company)));
    ASSERT_EQ(0, symlink(elsewhere.c_str(), company.c_str()));
    Run();
    EXPECT_TRUE(Files().FileExists(Join(elsewhere, "TesselProjectsLocalHub/Projects/4194999/file")));
}

TEST_F(EntryTest, TwoProcessesCanBeSetUpSideBySide)
{
    FakeProcess other;
    noxcore::debug::DebugDatabase::Instance()->SetEntry("AddTimestampToLogFileNames", "false");
    // By address: a script that held itself would never go.
    HubScript* const script = other.mScript.get();
    script->mWhenRegistered = [script] {
        noxcore::threads::AsyncCallFromMainThread([script] { script->mClosed("s1"); });
    };
    RunLocalHub({"localhub", "-port", "1"}, MakeFakeParts(other.mScript));
    EXPECT_EQ(7, noxcore::appstatemanager::GetState());
    const noxcore::HubContext::Scope scope(mContext);
    EXPECT_EQ(0, noxcore::appstatemanager::GetState());
    EXPECT_EQ("", noxcore::config::GetCompanyName());
    Run({"-port", "2"});
    EXPECT_EQ("true", noxcore::debug::DebugDatabase::Instance()->GetEntry("AddTimestampToLogFileNames"));
    EXPECT_EQ("HTTP server 2 first -1", mScript->mEvents[0]);
    EXPECT_EQ("HTTP server 1 first -1", other.mScript->mEvents[0]);
}

}  // namespace
}  // namespace VantryLocalHub

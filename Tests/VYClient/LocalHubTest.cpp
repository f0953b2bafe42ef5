#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Client/VYClient/Environment.h"
#include "Client/VYClient/LocalHub.h"
#include "Client/VYClient/Registry.h"
#include "Client/VYClient/UTF16.h"
#include "Client/VYClient/VYClient.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/HubContext.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/TempFolder.h"

namespace VYCL {

namespace {

using noxcore::HubContext;
using Variables = std::map<std::string, std::string, std::less<>>;

/// One hub with a home of its own.
class Hub
{
public:
    explicit Hub(const std::string& inHome, const Variables& inVariables = {})
    {
        HubContext::Parts parts;
        parts.mLog = mLog;
        mContext = HubContext::Create(parts);
        mContext->SetInstance<Environment>(std::make_shared<FixedEnvironment>(inHome, inVariables));
    }

    template <class Function>
    auto Run(Function inFunction)
    {
        const HubContext::Scope scope(mContext);
        return inFunction();
    }

    std::shared_ptr<testing_support::LogCapture> mLog = std::make_shared<testing_support::LogCapture>();

private:
    std::shared_ptr<HubContext> mContext;
};

mode_t ModeOf(const std::string& inPath)
{
    struct stat status = {};
    return stat(inPath.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(Folders, LieBelowTheHomeFolderWhereNoBaseIsSet)
{
    Hub hub("/home/ada");
    EXPECT_EQ("/home/ada/.local/share/corvane/TesselProjectsLocalHub",
              hub.Run(LocalHub::GetBaseSuiteAgnosticDataFolder));
    EXPECT_EQ("/home/ada/.local/share/corvane/TesselProjectsLocalHub/2025", hub.Run(LocalHub::GetBaseSuiteDataFolder));
    EXPECT_EQ("/home/ada/.local/share/corvane/TesselProjectsLocalHub/2025/local",
              hub.Run(LocalHub::GetDefaultRopeFileAutosaveLocation));
    EXPECT_EQ("/home/ada/.local/state/corvane/TesselProjectsLocalHub/logs", hub.Run(LocalHub::GetLogFolder));
    EXPECT_EQ("/home/ada/.config/corvane/TesselProjectsLocalHub/settings.toml", hub.Run(LocalHub::GetSettingsFile));
    EXPECT_EQ("/home/ada/.local/state/corvane/TesselProjectsLocalHub/run", hub.Run(LocalHub::GetSocketFolder));
}

TEST(Folders, FollowTheBasesThatTheEnvironmentSets)
{
    Hub hub("/home/ada", {{"HOME", "/elsewhere"},
                          {"XDG_DATA_HOME", "/data"},
                          {"XDG_STATE_HOME", "/state"},
                          {"XDG_CONFIG_HOME", "/config"},
                          {"XDG_RUNTIME_DIR", "/run/user/7"},
                          {"TMPDIR", "/scratch"}});
    EXPECT_EQ("/data/corvane/TesselProjectsLocalHub", hub.Run(LocalHub::GetBaseSuiteAgnosticDataFolder));
    EXPECT_EQ("/data/corvane/TesselProjectsLocalHub/2024",
              hub.Run([] { return LocalHub::GetBaseDataFolderForSuite(u"2024"); }));
    EXPECT_EQ("/state/corvane/TesselProjectsLocalHub/logs", hub.Run(LocalHub::GetLogFolder));
    EXPECT_EQ("/config/corvane/TesselProjectsLocalHub", hub.Run(LocalHub::GetSettingsFolder));
    EXPECT_EQ("/run/user/7/corvane/TesselProjectsLocalHub", hub.Run(LocalHub::GetSocketFolder));
    EXPECT_EQ("/scratch/corvane-" + std::to_string(geteuid()) + "/TesselProjectsLocalHub/Projects",
              hub.Run(LocalHub::GetTempFolder));
}

TEST(Folders, TakeABaseThatIsNoAbsolutePathAsUnset)
{
    Hub hub("/home/ada", {{"XDG_DATA_HOME", "data"}, {"XDG_RUNTIME_DIR", ""}, {"HOME", "~"}});
    EXPECT_EQ("/home/ada/.local/share/corvane/TesselProjectsLocalHub",
              hub.Run(LocalHub::GetBaseSuiteAgnosticDataFolder));
    EXPECT_EQ("/home/ada/.local/state/corvane/TesselProjectsLocalHub/run", hub.Run(LocalHub::GetSocketFolder));
}

TEST(Folders, OfTwoHubsInOneProcessAreApart)
{
    Hub first("/home/ada");
    Hub second("/home/grace");
    EXPECT_NE(first.Run(LocalHub::GetBaseSuiteDataFolder), second.Run(LocalHub::GetBaseSuiteDataFolder));
}

TEST(PrivateFolder, IsClosedToEverybodyElse)
{
    testing_support::TempFolder temp;
    Hub hub(temp.Path());
    EXPECT_TRUE(hub.Run([&] { return LocalHub::EnsurePrivateFolder(temp / "new/deep"); }));
    EXPECT_EQ(0700U, ModeOf(temp / "new/deep"));
    ASSERT_EQ(0, mkdir((temp / "open").c_str(), 0700));
    ASSERT_EQ(0, chmod((temp / "open").c_str(), 0777));
    EXPECT_TRUE(hub.Run([&] { return LocalHub::EnsurePrivateFolder(temp / "open"); }));
    EXPECT_EQ(0700U, ModeOf(temp / "open"));
}

TEST(PrivateFolder, IsRefusedWhereALinkOrAFileStands)
{
    testing_support::TempFolder temp;
    Hub hub(temp.Path());
    ASSERT_EQ(0, mkdir((temp / "target").c_str(), 0700));
    ASSERT_EQ(0, symlink((temp / "target").c_str(), (temp / "link").c_str()));
    EXPECT_FALSE(hub.Run([&] { return LocalHub::EnsurePrivateFolder(temp / "link"); }));
    EXPECT_EQ(1U, hub.mLog->Count("Folder is open to others"));
    ASSERT_TRUE(noxcore::filesupport::Files().WriteFileDurably(temp / "file", "x"));
    EXPECT_FALSE(hub.Run([&] { return LocalHub::EnsurePrivateFolder(temp / "file"); }));
}

TEST(TempFolder, IsClosedOnTheWholeWayDown)
{
    testing_support::TempFolder temp;
    Hub hub(temp.Path(), {{"TMPDIR", temp.Path()}});
    ASSERT_TRUE(hub.Run(LocalHub::EnsureTempFolder));
    const auto user = temp / ("corvane-" + std::to_string(geteuid()));
    EXPECT_EQ(0700U, ModeOf(user));
    EXPECT_EQ(0700U, ModeOf(user + "/TesselProjectsLocalHub/Projects"));
}

TEST(MachineID, IsMadeOnceAndKeptForTheNextRun)
{
    testing_support::TempFolder temp;
    const auto made = Hub(temp.Path()).Run(GetMachineID);
    EXPECT_TRUE(noxcore::utility::Guid::FromText(made).has_value());
    EXPECT_EQ(made, Hub(temp.Path()).Run(GetMachineID));
    Hub(temp.Path()).Run([] { SetMachineID("workstation-7"); });
    EXPECT_EQ("workstation-7", Hub(temp.Path()).Run([] {
        SetMachineID("");
        return GetMachineID();
    }));
}

TEST(MachineID, IsNotReplacedWhereItsFileCannotBeReadNow)
{
    testing_support::TempFolder temp;
    const auto kept = Hub(temp.Path()).Run(GetMachineID);
    struct rlimit limit = {};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    const struct rlimit none = {0, limit.rlim_max};
    Hub hub(temp.Path());
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    const auto borrowed = hub.Run(GetMachineID);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    EXPECT_NE(kept, borrowed);
    EXPECT_EQ(borrowed, hub.Run(GetMachineID)) << "one identity a run";
    EXPECT_EQ(1U, hub.mLog->Count("Cannot read the machine identity"));
    EXPECT_EQ(kept, Hub(temp.Path()).Run(GetMachineID));
}

TEST(LastLogin, IsReadFromTheSettingsFolder)
{
    testing_support::TempFolder temp;
    Hub hub(temp.Path());
    VYLoginData data;
    data.mUserID = "before";
    EXPECT_FALSE(hub.Run([&] { return Registry::GetLastLoginData(data); }));
    EXPECT_EQ("before", data.mUserID);
    EXPECT_TRUE(hub.mLog->All().empty());

    const auto folder = hub.Run(LocalHub::GetSettingsFolder);
    auto& files = noxcore::filesupport::Files();
    ASSERT_TRUE(files.EnsureDirectoryExists(folder));
    ASSERT_TRUE(files.WriteFileDurably(folder + "/lastlogin.json",
                                       R"({"personGUID":"guid","userEmail":"ada@corvane.example","later":1})"));
    ASSERT_TRUE(hub.Run([&] { return Registry::GetLastLoginData(data); }));
    EXPECT_EQ("guid", data.mPersonGUID);
    EXPECT_EQ("", data.mUserID);

    ASSERT_TRUE(files.WriteFileDurably(folder + "/lastlogin.json", R"({"personGUID":)"));
    EXPECT_FALSE(hub.Run([&] { return Registry::GetLastLoginData(data); }));
    EXPECT_EQ("guid", data.mPersonGUID);
    EXPECT_EQ(1U, hub.mLog->Count("Cannot read the last login"));
}

TEST(Library, HasACleanUpExecutorBetweenItsStartAndItsEnd)
{
    Hub hub("/home/ada");
    EXPECT_EQ(nullptr, hub.Run(GetCleanupExecutor));
    EXPECT_TRUE(hub.Run(Initialize));
    EXPECT_FALSE(hub.Run(Initialize));
    const auto executor = hub.Run(GetCleanupExecutor);
    ASSERT_NE(nullptr, executor);
    bool ran = false;
    EXPECT_TRUE(executor->Queue([&ran] { ran = true; }));
    hub.Run(Shutdown);
    EXPECT_TRUE(ran);
    EXPECT_EQ(nullptr, hub.Run(GetCleanupExecutor));
    EXPECT_FALSE(executor->Queue([] {}));
}

TEST(Names, AreUTF16AndTheirSuiteFolderIsTheSuitesVersion)
{
    EXPECT_EQ(u"TesselProjectsLocalHub", LocalHub::VantryLocalHub_Name());
    EXPECT_EQ("2025", ToUTF8(LocalHub::SuiteVersion()));
    EXPECT_EQ(std::string::npos, Registry::GetVYRegistryKeyVersionString().find_first_not_of("0123456789."));
}

}  // namespace

}  // namespace VYCL

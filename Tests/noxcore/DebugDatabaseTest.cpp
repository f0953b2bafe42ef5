#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>

#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/FileSupport.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/VirtualHub.h"

namespace {

using noxcore::debug::DebugDatabase;

TEST(DebugDatabase, ASettingIsTheDefaultUntilItIsSet)
{
    DebugDatabase database;
    EXPECT_FALSE(database.HasEntry("VY.Config.Test.A"));
    EXPECT_EQ(180, database.GetInteger("VY.Config.Test.A", 180));
    database.SetEntry("VY.Config.Test.A", "7");
    EXPECT_TRUE(database.HasEntry("VY.Config.Test.A"));
    EXPECT_EQ(7, database.GetInteger("VY.Config.Test.A", 180));
    database.SetEntry("VY.Config.Test.A", "seven");
    EXPECT_EQ(180, database.GetInteger("VY.Config.Test.A", 180));
    EXPECT_TRUE(database.GetBoolean("VY.Config.Test.A", true));
}

TEST(DebugDatabase, AFileGivesItsKeysAndTheEnvironmentWins)
{
    const testing_support::TempFolder folder;
    const std::string path = folder.Path() + "/settings.toml";
    ASSERT_TRUE(noxcore::filesupport::Files().WriteFileDurably(
        path, "[VY.Config.LocalHub]\nJobInterval = 1000\nFilterProductionList = false\n\"ODB.PageSize\" = \"4096\"\n"));
    DebugDatabase database;
    ASSERT_TRUE(database.LoadFile(path));
    EXPECT_EQ(1000, database.GetInteger("VY.Config.LocalHub.JobInterval", 300000));
    EXPECT_FALSE(database.GetBoolean("VY.Config.LocalHub.FilterProductionList", true));
    EXPECT_EQ("4096", database.GetEntry("VY.Config.LocalHub.ODB.PageSize"));
    ASSERT_EQ(0, setenv("VY_Config_LocalHub_JobInterval", "5", 1));
    EXPECT_EQ(5, database.GetInteger("VY.Config.LocalHub.JobInterval", 300000));
    ASSERT_EQ(0, unsetenv("VY_Config_LocalHub_JobInterval"));
}

TEST(DebugDatabase, ABrokenFileIsReportedAndAnAbsentOneIsNot)
{
    const auto log = std::make_shared<testing_support::LogCapture>();
    noxcore::HubContext::Parts parts;
    parts.mLog = log;
    const noxcore::HubContext::Scope scope(noxcore::HubContext::Create(std::move(parts)));
    const testing_support::TempFolder folder;
    DebugDatabase database;
    EXPECT_TRUE(database.LoadFile(folder.Path() + "/absent.toml"));
    ASSERT_TRUE(noxcore::filesupport::Files().WriteFileDurably(folder.Path() + "/broken.toml", "[VY\nx = "));
    EXPECT_FALSE(database.LoadFile(folder.Path() + "/broken.toml"));
    EXPECT_EQ(1U, log->Count("Cannot read the settings file"));
    ASSERT_EQ(0, mkfifo((folder.Path() + "/pipe.toml").c_str(), 0600));
    EXPECT_TRUE(database.LoadFile(folder.Path() + "/pipe.toml"));  // nobody waits for the pipe's other end
}

TEST(DebugDatabase, AValueThatCannotBeUsedIsReportedOnce)
{
    const auto log = std::make_shared<testing_support::LogCapture>();
    noxcore::HubContext::Parts parts;
    parts.mLog = log;
    const noxcore::HubContext::Scope scope(noxcore::HubContext::Create(std::move(parts)));
    DebugDatabase database;
    database.SetEntry("VY.Config.Test.A", "seven");
    database.SetEntry("VY.Config.Test.B", "7");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(180, database.GetInteger("VY.Config.Test.A", 180));
        EXPECT_EQ(7, database.GetInteger("VY.Config.Test.B", 180));
        EXPECT_FALSE(database.GetBoolean("VY.Config.Test.C", false));
    }
    EXPECT_EQ(1U, log->Count("The value of a setting cannot be used"));
}

}  // namespace

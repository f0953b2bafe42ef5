#include "Src/LocalHubOutOfProcess/CommandLine.h"

#include <gtest/gtest.h>

namespace {

using VantryLocalHub::CommandLine;
using VantryLocalHub::ParseCommandLine;

CommandLine Parse(std::vector<std::string> inArguments)
{
    inArguments.insert(inArguments.begin(), "localhub");
    return ParseCommandLine(inArguments);
}

TEST(CommandLine, AnEmptyLineAsksForNothing)
{
    for (const auto& line : {Parse({}), ParseCommandLine({})}) {
        EXPECT_EQ(0, line.mPort);
        EXPECT_EQ(0, line.mInfoPort);
        EXPECT_EQ("", line.mDowngradeSession);
        EXPECT_EQ("", line.mUpgradeSession);
        EXPECT_EQ("", line.mTestFilter);
    }
}

TEST(CommandLine, EveryOptionTakesTheArgumentAfterIt)
{
    const auto line = Parse({"-port", "4000", "-infoPort", "5000", "-downgradeRepo", "a", "-upgradeRepo", "b",
                             "-test.run", "Suite.* Other.*"});
    EXPECT_EQ(4000, line.mPort);
    EXPECT_EQ(5000, line.mInfoPort);
    EXPECT_EQ("a", line.mDowngradeSession);
    EXPECT_EQ("b", line.mUpgradeSession);
    EXPECT_EQ("Suite.* Other.*", line.mTestFilter);
}

TEST(CommandLine, ThePortIsReadAsFarAsItIsANumberOfSixteenBits)
{
    struct Case
    {
        const char* mText;
        int mPort;
    };
    for (const Case& one : {Case{"0", 0},
                            {"1", 1},
                            {"65535", 65535},
                            {" 80", 80},
                            {"80x", 80},
                            {"65536", 0},
                            {"99999999999999999999", 0},
                            {"x80", 0},
                            {"", 0},
                            {"port", 0},
                            {"-infoPort", 0}}) {
        EXPECT_EQ(one.mPort, Parse({"-port", one.mText}).mPort) << one.mText;
        EXPECT_EQ(one.mPort, Parse({"-infoPort", one.mText}).mInfoPort) << one.mText;
    }
}

TEST(CommandLine, AValueThatIsNoNumberTakesAnEarlierPortBack)
{
    EXPECT_EQ(0, Parse({"-port", "4000", "-port", "none"}).mPort);
}

TEST(CommandLine, AWordAfterAnOptionIsItsValueEvenIfItLooksLikeAnOption)
{
    const auto ports = Parse({"-port", "-infoPort", "4000"});
    EXPECT_EQ(0, ports.mPort);
    EXPECT_EQ(0, ports.mInfoPort);
    const auto sessions = Parse({"-upgradeRepo", "-downgradeRepo", "-port", "7"});
    EXPECT_EQ("-downgradeRepo", sessions.mUpgradeSession);
    EXPECT_EQ("", sessions.mDowngradeSession);
    EXPECT_EQ(7, sessions.mPort);
}

TEST(CommandLine, ALaterOccurrenceOverwritesAnEarlierOne)
{
    const auto line = Parse({"-port", "1", "-upgradeRepo", "a", "-port", "2", "-upgradeRepo", "b"});
    EXPECT_EQ(2, line.mPort);
    EXPECT_EQ("b", line.mUpgradeSession);
}

TEST(CommandLine, AnOptionAtTheEndWithoutAValueHasNoEffect)
{
    EXPECT_EQ(0, Parse({"-port"}).mPort);
    EXPECT_EQ(3, Parse({"-port", "3", "-port"}).mPort);
    EXPECT_EQ("a", Parse({"-upgradeRepo", "a", "-upgradeRepo"}).mUpgradeSession);
}

TEST(CommandLine, AnUnknownArgumentBetweenTwoOptionsDisturbsNeither)
{
    const auto line = Parse({"-port", "1", "--verbose", "-infoPort", "2"});
    EXPECT_EQ(1, line.mPort);
    EXPECT_EQ(2, line.mInfoPort);
}

TEST(CommandLine, OptionNamesAreComparedWholeAndByCase)
{
    const auto line = Parse({"-Port", "1", "-portX", "2", "port", "3", "--port", "4", "-infoport", "5"});
    EXPECT_EQ(0, line.mPort);
    EXPECT_EQ(0, line.mInfoPort);
}

TEST(CommandLine, TheProgramsOwnNameIsNoOption)
{
    EXPECT_EQ(0, ParseCommandLine({"-port", "4000"}).mPort);
}

TEST(CommandLine, ASessionIsTakenAsItStands)
{
    EXPECT_EQ(" p-1 \xC3\xA4", Parse({"-downgradeRepo", " p-1 \xC3\xA4"}).mDowngradeSession);
}

}  // namespace

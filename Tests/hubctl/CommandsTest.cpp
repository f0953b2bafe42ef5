#include "Tools/hubctl/Commands.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <set>

#include "Tests/Support/TempFolder.h"
#include "Tools/apidoc/RecordShapes.h"
#include "Tools/hubctl/CommandLine.h"

namespace {

using hubctl::Command;
using hubctl::Commands;
using hubctl::MadeRequest;
using hubctl::Values;

using OperationKey = std::pair<std::string_view, std::string_view>;  // method and template

/// A program with the commands of the table, as hubctl has it.
class CommandLineTest : public testing::Test
{
protected:
    CommandLineTest()
    {
        mApp.require_subcommand(1);
        mApp.fallthrough();
        mApp.add_flag("--json", mJSON);
        hubctl::AddCommands(mApp);
    }
    /// The request of a command line; the exit status of one that is wrong.
    int Parse(const std::vector<std::string>& inArguments)
    {
        try {
            mApp.parse(std::vector<std::string>(inArguments.rbegin(), inArguments.rend()));
        } catch (const CLI::ParseError&) {
            return 2;
        }
        Values values;
        const Command* const command = hubctl::ChosenCommand(mApp, values);
        if (command == nullptr) return -1;
        if (hubctl::MakeRequest(*command, values, mRequest, mError)) return 0;
        return mError.mIsUsage ? 2 : 1;
    }
    [[nodiscard]] std::string Method() const { return std::string(mRequest.mCall->mOperation->mMethod); }

    CLI::App mApp;
    bool mJSON = false;
    MadeRequest mRequest;
    hubctl::RequestError mError;
};

TEST(CommandTable, HasACommandOrAReasonForEveryOperationAndNoneTwice)
{
    std::set<OperationKey> left;
    for (const auto& resource : VantryLocalHub::API::kResources)
        for (const auto& operation : resource.mOperations)
            left.emplace(operation.mMethod, operation.mPath.mTemplate);
    const auto all = left;
    for (const auto& row : hubctl::kCommandRows) {
        const OperationKey key{row.mMethod, row.mTemplate};
        EXPECT_TRUE(all.contains(key)) << row.mWords << " is no operation";
        if (std::ranges::count(hubctl::kShortForms, row.mWords) != 0) continue;
        EXPECT_EQ(1U, left.erase(key)) << row.mWords << " calls what another command calls";
    }
    for (const auto& exception : hubctl::kExceptions) {
        EXPECT_EQ(1U, left.erase({exception.mMethod, exception.mTemplate})) << exception.mTemplate;
        EXPECT_FALSE(exception.mWhy.empty());
    }
    for (const auto& [method, path] : left)
        ADD_FAILURE() << "no command for " << method << " " << path;
}

TEST(CommandTable, HasRowsOfACommandTogetherEachWithMoreOperands)
{
    std::set<std::string> words;
    for (const Command& command : Commands()) {
        EXPECT_TRUE(words.insert(command.mWords).second) << command.mWords << " stands in two places";
        for (std::size_t i = 1; i < command.mCalls.size(); ++i)
            EXPECT_GT(command.mCalls[i].CountOperands(), command.mCalls[i - 1].CountOperands()) << command.mWords;
    }
}

TEST(CommandTable, HasHelpForEveryNounAndNoOperandsWhereVerbsFollow)
{
    for (const Command& command : Commands()) {
        EXPECT_FALSE(command.Help().empty()) << command.mWords;
        if (command.Verb().empty()) continue;
        if (const Command* bare = hubctl::FindCommand(command.Noun()))
            EXPECT_EQ(0U, bare->mCalls.back().CountOperands()) << command.Noun();
        else
            EXPECT_EQ(1, std::ranges::count(hubctl::kNouns, command.Noun(), &hubctl::Noun::mName)) << command.Noun();
    }
}

TEST(CommandTable, HasArgumentsOfDifferentNames)
{
    for (const Command& command : Commands()) {
        for (const auto& call : command.mCalls) {
            std::set<std::string> names;
            for (const auto& argument : call.mArguments) {
                EXPECT_TRUE(names.insert(argument.mName).second) << command.mWords << " " << argument.mName;
                EXPECT_FALSE(argument.mMeaning.empty()) << command.mWords << " " << argument.mName;
            }
        }
    }
}

TEST(CommandTable, NamesRecordsAndKeysThatThereAre)
{
    for (const auto& option : hubctl::kRecordOptions) {
        const auto record = apidoc::AllRecordShapes().find(std::string(option.mRecord));
        ASSERT_NE(apidoc::AllRecordShapes().end(), record) << option.mRecord;
        EXPECT_EQ(1, std::ranges::count(record->second, option.mKey, &apidoc::KeyShape::mKey)) << option.mKey;
    }
}

TEST(CommandsDocument, StandsInTheTreeAsTheTableSays)
{
    std::ifstream file(SOURCE_FOLDER "/Docs/hubctl-commands.md", std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    EXPECT_TRUE(text == hubctl::CommandsDocument()) << "Renew it: cmake --build --preset debug --target hubctl_docs";
}

TEST_F(CommandLineTest, TakesEveryCommandWithAllThatItNeeds)
{
    for (const Command& command : Commands()) {
        for (const auto& call : command.mCalls) {
            CLI::App app;
            app.fallthrough();
            hubctl::AddCommands(app);
            std::vector<std::string> line{command.Noun()};
            if (!command.Verb().empty()) line.push_back(command.Verb());
            for (const auto& argument : call.mArguments) {
                if (!argument.mIsRequired) continue;
                if (!argument.IsOperand()) line.push_back(argument.mName);
                line.push_back(!argument.mWords.empty()                            ? argument.mWords.front()
                               : argument.mValue == hubctl::ArgumentValue::JSON    ? "{}"
                               : argument.mKind == hubctl::ArgumentKind::FreeField ? "a=b"
                               : argument.mKind == hubctl::ArgumentKind::Body      ? "/dev/null"
                                                                                   : "x");
            }
            try {
                app.parse(std::vector<std::string>(line.rbegin(), line.rend()));
            } catch (const CLI::ParseError& error) {
                ADD_FAILURE() << command.mWords << ": " << error.what();
                continue;
            }
            Values values;
            ASSERT_EQ(&command, hubctl::ChosenCommand(app, values)) << command.mWords;
            MadeRequest request;
            hubctl::RequestError error;
            EXPECT_TRUE(hubctl::MakeRequest(command, values, request, error)) << command.mWords << error.mText;
            EXPECT_EQ(&call, request.mCall) << command.mWords;
            EXPECT_EQ(std::string::npos, request.mTarget.find_first_of("{}% ")) << request.mTarget;
        }
    }
}

struct LineCase
{
    std::vector<std::string> mLine;
    std::string mMethod;
    std::string mTarget;
    std::string mBody;  ///< empty: a request without
};

class CommandLineCases : public CommandLineTest, public testing::WithParamInterface<LineCase>
{
};

TEST_P(CommandLineCases, MakeThisRequest)
{
    ASSERT_EQ(0, Parse(GetParam().mLine)) << mError.mText;
    EXPECT_EQ(GetParam().mMethod, Method());
    EXPECT_EQ(GetParam().mTarget, mRequest.mTarget);
    EXPECT_EQ(GetParam().mBody, mRequest.mBody);
    EXPECT_EQ(GetParam().mBody.empty() ? "" : "application/json; charset=utf-8", mRequest.mContentType);
    EXPECT_TRUE(mRequest.mRows.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Commands, CommandLineCases,
    testing::Values(
        LineCase{{"production", "get", "P"}, "GET", "/api/production/P/HEAD", ""},
        LineCase{{"production", "get", "P", "--revision", "c1"}, "GET", "/api/production/P/c1", ""},
        LineCase{{"production", "exists", "P"}, "HEAD", "/api/production/P/HEAD", ""},
        LineCase{{"production", "delete", "P", "--local-only"}, "DELETE", "/api/production/P/-?localOnly=true", ""},
        LineCase{{"production", "create", "--name", "a \"b\""}, "POST", "/api/productions", R"({"name":"a \"b\""})"},
        LineCase{{"production", "copy", "P", "--local-only"},
                 "POST",
                 "/api/production/P/HEAD/copy?localOnly=true",
                 R"({"vy:commitId":"HEAD"})"},
        LineCase{{"production", "copy", "P", "--revision", "c1", "--properties", "{\"a\": 1.0}"},
                 "POST",
                 "/api/production/P/c1/copy",
                 R"({"vy:commitId":"c1","properties":{"a":1.0}})"},
        LineCase{{"production", "clear-properties", "P"}, "DELETE", "/api/production/P/HEAD/properties", ""},
        LineCase{{"rollback", "P", "c1"}, "POST", "/api/production/P/-/rollback/c1", ""},
        LineCase{{"restore", "P", "A", "C"}, "POST", "/api/asset/P/HEAD/A/restore/C", ""},
        LineCase{{"asset", "restore", "P", "A", "C", "--transaction-id", "T"},
                 "POST",
                 "/api/asset/P/HEAD/A/restore/C",
                 R"({"vy:transactionId":"T"})"},
        LineCase{{"assets", "P", "--condensed", "--bin", "B&c"},
                 "GET",
                 "/api/assets/P/HEAD?view=CONDENSED&parentId=B%26c",
                 ""},
        LineCase{{"transactions", "P"}, "GET", "/api/transactions/P/-", ""},
        LineCase{{"transaction", "open", "P"}, "POST", "/api/transactions/P/HEAD", "{}"},
        LineCase{{"transaction", "open", "P", "--require-head"},
                 "POST",
                 "/api/transactions/P/HEAD",
                 R"({":requireHead":true})"},
        LineCase{{"transaction", "commit", "T", "--commit-message", "m"},
                 "POST",
                 "/api/transaction/T/commit",
                 R"({":commitMessage":"m"})"},
        LineCase{{"history", "P", "--start", "0", "--count", "5"}, "GET", "/api/history/P?startIndex=0&count=5", ""},
        LineCase{{"differences", "P", "c1", "c2"}, "GET", "/api/differences/P/c1/c2", ""},
        LineCase{{"jobs", "list"}, "GET", "/api/jobs/list", ""},
        LineCase{{"jobs", "list", "S"}, "GET", "/api/jobs/list/S", ""},
        LineCase{{"jobs", "list", "*", "c1"}, "GET", "/api/jobs/list/*/c1", ""},
        LineCase{
            {"jobs", "set", "J", "--job-state", "Cancel"}, "PUT", "/api/jobs/detail/J", R"({"vy:jobState":"Cancel"})"},
        LineCase{{"jobs", "start", "LocalHubSync", "S", "--parameters", R"({"direction":"Push"})"},
                 "POST",
                 "/api/jobs/control/LocalHubSync/S",
                 R"({"vy:parameters":{"direction":"Push"}})"},
        LineCase{{"sync-status"}, "GET", "/api/sync/status/all", ""},
        LineCase{{"sync-status", "server", "hub.example:443"}, "GET", "/api/sync/status/server/hub.example%3A443", ""},
        LineCase{
            {"sync-control", "sync", "--enabled", "false"}, "POST", "/api/sync/control/sync", R"({"enabled":"false"})"},
        LineCase{{"resolve", "asset", "S", "A", "c1", "--resolve-strategy", "accept-theirs"},
                 "POST",
                 "/api/resolve/S/asset/A/c1",
                 R"({":resolveStrategy":"accept-theirs"})"},
        LineCase{{"preferences", "read"}, "GET", "/api/preferences/read", ""},
        LineCase{{"preferences", "save", "--autosave-location", "/a/../b"},
                 "POST",
                 "/api/preferences/save",
                 R"({"autosaveLocation":"/b"})"},
        LineCase{{"user"}, "GET", "/api/user/-/currentUser", ""},
        LineCase{{"user", "enclosures", "S"}, "GET", "/api/user/-/enclosures/S", ""},
        LineCase{{"locators", "get", "S", "a/b c"}, "GET", "/api/medialocators/S/byMediaLocatorId/a%2Fb%20c", ""},
        LineCase{{"locators", "add", "S", "--medialocator", "{\"id\":\"x\"}"},
                 "POST",
                 "/api/medialocators/S/all",
                 R"({":medialocator":{"id":"x"}})"}));

TEST_F(CommandLineTest, RefusesWhatNoRequestCanBeMadeOf)
{
    const std::vector<std::vector<std::string>> lines = {
        {},
        {"production"},
        {"production", "get"},
        {"production", "get", "P", "Q"},
        {"production", "get", "P", "--revisions", "c1"},
        {"production", "get", ".."},
        {"production", "get", ""},
        {"production", "rollback", "P"},
        {"resolve", "asset", "S", "A", "c1", "--resolve-strategy", "mine"},
        {"sync-control", "polling", "S"},
        {"sync-control", "polling", "S", "--enabled", "yes"},
        {"jobs", "list", "S", "c1", "x"},
        {"locators", "add", "S", "--medialocator", "{"},
        {"transaction", "create", "T", "--field", "no-equals-sign"},
        {"locators", "add-many", "S"},
    };
    for (const auto& line : lines) {
        EXPECT_EQ(2, Parse(line)) << testing::PrintToString(line);
        mApp.clear();
    }
}

TEST_F(CommandLineTest, SendsABodyFromAFileAsItCame)
{
    const testing_support::TempFolder folder;
    std::ofstream(folder / "body") << "[ {\"id\": 1} ]\n";
    ASSERT_EQ(0, Parse({"locators", "add-many", "S", "--body", folder / "body"})) << mError.mText;
    EXPECT_EQ("[ {\"id\": 1} ]\n", mRequest.mBody);
    mApp.clear();
    EXPECT_EQ(1, Parse({"locators", "add-many", "S", "--body", folder / "none"}));
    mApp.clear();
    EXPECT_EQ(2, Parse({"production", "create", "--name", "x", "--body", folder / "body"}));
}

TEST_F(CommandLineTest, ReadsJSONOfAFieldFromAFile)
{
    const testing_support::TempFolder folder;
    std::ofstream(folder / "json") << "{\"a\" : 1}";
    ASSERT_EQ(0, Parse({"production", "set-properties", "P", "--properties", "@" + (folder / "json")})) << mError.mText;
    EXPECT_EQ(R"({"properties":{"a":1}})", mRequest.mBody);
    EXPECT_EQ("PUT", Method());
}

TEST_F(CommandLineTest, SendsAPathAsAnAbsoluteOne)
{
    ASSERT_EQ(0, Parse({"rope-file", "open", "--path", "cut.rope"})) << mError.mText;
    const std::string path = (std::filesystem::current_path() / "cut.rope").string();
    EXPECT_EQ("{\"path\":\"" + path + "\"}", mRequest.mBody);
}

TEST_F(CommandLineTest, KeepsTheOrderOfFreeFieldsAndTellsFilesFromTexts)
{
    ASSERT_EQ(0, Parse({"transaction", "create", "T", "--field", "assets+1+name=a=b", "--field", "e=@/x/y"}));
    ASSERT_EQ(2U, mRequest.mRows.size());
    EXPECT_EQ("assets+1+name", mRequest.mRows[0].mKey);
    EXPECT_EQ("a=b", mRequest.mRows[0].mValue);
    EXPECT_FALSE(mRequest.mRows[0].mIsFile);
    EXPECT_EQ("/x/y", mRequest.mRows[1].mValue);
    EXPECT_TRUE(mRequest.mRows[1].mIsFile);
    EXPECT_TRUE(mRequest.mContentType.empty());
}

TEST_F(CommandLineTest, NamesTheRevisionInPropertiesThatNameNone)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, R"({"vy:commitId":"HEAD"})"},
        {{"--revision", "c1"}, R"({"vy:commitId":"c1"})"},
        {{"--revision", "c1", "--properties", R"({ "a": 1.0 })"}, R"({"vy:commitId":"c1","a":1.0})"},
        {{"--properties", R"({"vy:commitId":"c2"})"}, R"({"vy:commitId":"c2"})"}};
    for (const auto& [more, sent] : cases) {
        for (const std::vector<std::string>& command :
             {std::vector<std::string>{"rope-file", "copy-to", "P", "--path", "/f.lyr"},
              std::vector<std::string>{"snapshot", "take", "P", "--zip-file", "/f.zip"}}) {
            auto line = command;
            line.insert(line.end(), more.begin(), more.end());
            ASSERT_EQ(0, Parse(line)) << mError.mText;
            EXPECT_NE(std::string::npos, mRequest.mBody.find(R"("properties":)" + sent)) << mRequest.mBody;
        }
    }
    EXPECT_NE(0, Parse({"snapshot", "take", "P", "--zip-file", "/f.zip", "--properties", "[1]"}));
}

TEST_F(CommandLineTest, SendsAPayloadAsAFormWithTheFieldsThatAreGiven)
{
    ASSERT_EQ(0, Parse({"user", "add-enclosure", "S", "--enclosure", "/x/y", "--name", "n"}));
    ASSERT_EQ(2U, mRequest.mRows.size());
    EXPECT_EQ(":enclosure", mRequest.mRows[0].mKey);
    EXPECT_TRUE(mRequest.mRows[0].mIsFile);
    EXPECT_EQ(":name", mRequest.mRows[1].mKey);
    EXPECT_EQ("n", mRequest.mRows[1].mValue);
}

TEST_F(CommandLineTest, OffersToWaitWhereTheHubCanWait)
{
    std::set<std::string> words;
    for (const Command& command : Commands())
        for (const auto& argument : command.Arguments())
            if (argument.mKind == hubctl::ArgumentKind::Wait) words.insert(command.mWords);
    EXPECT_EQ(
        (std::set<std::string>{"batons list", "errors", "presence", "remote-login", "session-status", "sync-status"}),
        words);
    ASSERT_EQ(0, Parse({"errors", "--wait", "--json"}));
    EXPECT_TRUE(mRequest.mWait);
    EXPECT_TRUE(mJSON);
}

}  // namespace

#include "Tools/hubctl/RunCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>
#include <streambuf>

#include "Tests/Support/TempFolder.h"
#include "Tests/noxnet/ServerFixture.h"

namespace {

using hubctl::Values;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

struct Told
{
    int mStatus = 200;
    std::string mBody;
    std::vector<std::pair<std::string, std::string>> mHeaders = {};
};

/// A terminal of one line: what is written after a carriage return goes over what stands there.
///
/// Threading: any thread; the mutex guards all.
class Terminal final : public std::streambuf
{
public:
    /// Waits until the line holds a text. False: it never did.
    bool ComesToShow(const std::string& inText)
    {
        std::unique_lock lock(mMutex);
        return mChanged.wait_for(lock, std::chrono::minutes(1),
                                 [&] { return mLine.find(inText) != std::string::npos; });
    }
    /// Whether nothing stands in the line, and what comes next begins at its start.
    bool IsClear()
    {
        const std::lock_guard lock(mMutex);
        return mColumn == 0 && mLine.find_first_not_of(' ') == std::string::npos;
    }

protected:
    std::streamsize xsputn(const char* inText, std::streamsize inSize) override
    {
        const std::lock_guard lock(mMutex);
        for (const char character : std::string_view(inText, static_cast<std::size_t>(inSize)))
            Put(character);
        mChanged.notify_all();
        return inSize;
    }
    int_type overflow(int_type inCharacter) override
    {
        const char character = traits_type::to_char_type(inCharacter);
        xsputn(&character, 1);
        return inCharacter;
    }

private:
    void Put(char inCharacter)
    {
        if (inCharacter == '\r') {
            mColumn = 0;
            return;
        }
        if (mLine.size() <= mColumn) mLine.resize(mColumn + 1, ' ');
        mLine[mColumn++] = inCharacter;
    }

    std::mutex mMutex;
    std::condition_variable mChanged;
    std::string mLine;
    std::size_t mColumn = 0;
};

/// A server that answers what the test tells it, one after the other, and keeps what it was asked.
class RunCommandTest : public testing_support::ServerTest
{
protected:
    RunCommandTest()
    {
        const auto service = std::make_shared<testing_support::TestService>(
            "^/api/.*$", [this](const auto& inRequest, const auto& inResponse, const auto& inDone) {
                Answer(*inRequest, *inResponse);
                inDone(inResponse);
            });
        mPort = Serve(service)->GetPort();
        mAPI = std::make_unique<hubctl::HubAPI>(noxnet::http::client::Client::Create("127.0.0.1", mPort, {}));
    }
    /// Runs the program itself, at a port, and gives its exit status and what it wrote to both its outputs.
    static int Program(std::uint16_t inPort, const std::string& inArguments, std::string& outText)
    {
        const std::string line =
            std::string(HUBCTL) + " --port " + std::to_string(inPort) + " " + inArguments + " 2>&1";
        FILE* const pipe = popen(line.c_str(), "r");
        if (pipe == nullptr) return -1;
        outText.clear();
        for (int letter = fgetc(pipe); letter != EOF; letter = fgetc(pipe))
            outText += static_cast<char>(letter);
        const int status = pclose(pipe);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    bool Run(std::string_view inWords, const Values& inValues, const hubctl::RunSettings& inSettings = {})
    {
        hubctl::MadeRequest request;
        hubctl::RequestError error;
        EXPECT_TRUE(hubctl::MakeRequest(*hubctl::FindCommand(inWords), inValues, request, error)) << error.mText;
        return hubctl::RunCommand(request, inSettings, *mAPI, mOut, mError);
    }

    std::vector<Told> mTold;
    std::function<void()> mMeanwhile;  ///< happens before each answer, on the server's thread
    std::vector<std::string> mAsked;   ///< method, target, and what else counts
    std::uint16_t mPort = 0;
    std::unique_ptr<hubctl::HubAPI> mAPI;
    std::ostringstream mOut;
    std::string mError;

private:
    void Answer(const testing_support::server::Request& inRequest,
                testing_support::server::MutableResponse& outResponse)
    {
        std::string asked = inRequest.Method().Text() + " " + std::string(inRequest.URL());
        for (const char* name : {"X-LongPoll", "If-None-Match", "Content-Type"})
            if (const auto value = inRequest.Header(name); !value.empty())
                asked.append(" ").append(name).append("=").append(value.substr(0, value.find(';')));
        mAsked.push_back(asked + (inRequest.Payload()->empty() ? "" : " " + std::string(inRequest.Payload()->View())));
        if (mMeanwhile) mMeanwhile();
        const Told told = mTold.empty() ? Told{500, {}} : mTold.front();
        if (!mTold.empty()) mTold.erase(mTold.begin());
        outResponse.mStatus = told.mStatus;
        outResponse.mPayload = noxcore::utility::MakeRecycledMemory(std::string(told.mBody));
        for (const auto& [name, value] : told.mHeaders)
            outResponse.SetHeader(noxcore::utility::ImmutableString(name), value);
    }
};

TEST_F(RunCommandTest, JSONIsTheBodyByteForByteAndALineEnd)
{
    const std::string body = "{\"z\" : 1.50,\"a\":\"\\u00e9\",\n \"z\":2}";
    mTold = {{200, body}};
    ASSERT_TRUE(Run("history", {{"PRODUCTION", {"P"}}}, {.mJSON = true})) << mError;
    EXPECT_EQ(body + "\n", mOut.str());
    EXPECT_THAT(mAsked, ElementsAre("GET /api/history/P"));
}

TEST_F(RunCommandTest, JSONOfAnAnswerWithoutBodyIsNothing)
{
    mTold = {{204, ""}};
    ASSERT_TRUE(Run("production delete", {{"PRODUCTION", {"P"}}}, {.mJSON = true})) << mError;
    EXPECT_EQ("", mOut.str());
}

TEST_F(RunCommandTest, AListIsATableWithoutLinksAndEmptyColumns)
{
    mTold = {{200,
              R"({"jobs":[{"id":"j2","vy:result":"","links":[{"rel":"self"}],"parents":["c1","c0"],"more":[{},{}],)"
              R"("vy:parameters":{"direction":"Push"},"properties":{"name":"cut","a":1}},{"id":"j1","n":null}],)"
              R"("stats":{"totalResults":7,"count":2},"links":[]})"}};
    ASSERT_TRUE(Run("jobs list", {})) << mError;
    EXPECT_EQ(
        "ID  PARENTS  MORE  PARAMETERS.DIRECTION  NAME\n"
        "j2  c1, c0   2     Push                  cut\n"
        "j1                                       \n"
        "2 of 7\n",
        mOut.str());
}

TEST_F(RunCommandTest, ListsBesideOtherKeysStandBelowTheirName)
{
    mTold = {{200, R"({"assets":[{"id":"a"}],"enclosures":[],"etag":"t"})"}};
    ASSERT_TRUE(Run("differences", {{"PRODUCTION", {"P"}}, {"FROM", {"c1"}}, {"TO", {"c2"}}})) << mError;
    EXPECT_EQ("assets:\n  ID\n  a\nenclosures: none\netag: t\n", mOut.str());
}

TEST_F(RunCommandTest, AHistoryShowsWhatPeopleLookFor)
{
    mTold = {{200, R"({"versions":[{"commitId":"c2","timestamp":"2026-01-31T23:59:59Z","title":"long","name":"ada",)"
                   R"("info":{"message":"cut"},"versionNumber":2}],"stats":{"totalResults":2,"count":1}})"}};
    ASSERT_TRUE(Run("history", {{"PRODUCTION", {"P"}}})) << mError;
    EXPECT_EQ(
        "VERSION  COMMIT  TIME                  NAME  MESSAGE\n"
        "2        c2      2026-01-31T23:59:59Z  ada   cut\n"
        "1 of 2\n",
        mOut.str());
}

TEST_F(RunCommandTest, ASwitchThatIsTakenIsDone)
{
    mTold = {{200, ""}};
    ASSERT_TRUE(Run("sync-control sync", {{"--enabled", {"false"}}})) << mError;
    EXPECT_EQ("done\n", mOut.str());
}

TEST_F(RunCommandTest, ARecordIsKeysAndValuesThatCannotSteerATerminal)
{
    mTold = {{200, R"({"vy:etag":"a\u001b[2J","session":{"vy:etag":"c1"},"status":"InSync","n":null})"}};
    ASSERT_TRUE(Run("session-status", {{"PRODUCTION", {"P"}}})) << mError;
    EXPECT_EQ("etag: a?[2J\nsession:\n  etag: c1\nstatus: InSync\nn:\n", mOut.str());
}

TEST_F(RunCommandTest, AnAnswerWithoutBodyIsToldInWords)
{
    mTold = {{200, ""}};
    ASSERT_TRUE(Run("preferences save", {{"--set-autosave-to-rope", {"true"}}})) << mError;
    EXPECT_EQ("saved\n", mOut.str());
    EXPECT_THAT(mAsked, ElementsAre("POST /api/preferences/save Content-Type=application/json "
                                    "{\"setAutosaveToRope\":\"true\"}"));
}

TEST_F(RunCommandTest, ABodyThatIsNoJSONIsAFailureInWordsOnly)
{
    mTold = {{200, "<html>"}, {200, "<html>"}};
    EXPECT_FALSE(Run("history", {{"PRODUCTION", {"P"}}}));
    EXPECT_THAT(mError, HasSubstr("cannot be understood"));
    EXPECT_TRUE(Run("history", {{"PRODUCTION", {"P"}}}, {.mJSON = true}));
}

TEST_F(RunCommandTest, AFailureTellsTheStatusAndWhatItMeansForThisOperation)
{
    mTold = {{404, ""}, {417, ""}, {599, ""}};
    EXPECT_FALSE(Run("history", {{"PRODUCTION", {"P"}}}));
    EXPECT_EQ("GET /api/history/P: status 404, no such production or session", mError);
    EXPECT_FALSE(Run("share pull", {{"SESSION", {"S"}}}));
    EXPECT_EQ("POST /api/share/S/pull: status 417, the session is not in sync", mError);
    EXPECT_FALSE(Run("user", {}));
    EXPECT_EQ("GET /api/user/-/currentUser: status 599, unexpected", mError);
    EXPECT_EQ("", mOut.str());
}

TEST_F(RunCommandTest, WhatTheHubCannotDoYetIsToldSo)
{
    mTold = {{501, ""}};
    EXPECT_FALSE(Run("archive list", {}));
    EXPECT_THAT(mError, HasSubstr("GET /api/archives: status 501, not available yet"));
}

TEST_F(RunCommandTest, ARedirectedHeadIsFollowedWithItsQueryForAnyMethod)
{
    mTold = {{307, "", {{"Location", "/api/assets/P/c1"}}},
             {200, R"({"assets":[]})"},
             {307, "", {{"Location", "/api/production/P/c1"}}},
             {200, ""}};
    ASSERT_TRUE(Run("assets", {{"PRODUCTION", {"P"}}, {"--condensed", {"true"}}})) << mError;
    ASSERT_TRUE(Run("production exists", {{"PRODUCTION", {"P"}}})) << mError;
    EXPECT_THAT(mAsked, ElementsAre("GET /api/assets/P/HEAD?view=CONDENSED", "GET /api/assets/P/c1?view=CONDENSED",
                                    "HEAD /api/production/P/HEAD", "HEAD /api/production/P/c1"));
}

TEST_F(RunCommandTest, AJobThatRunsAlreadyIsNoFailure)
{
    mTold = {{302, "", {{"Location", "/api/jobs/detail/J"}}}};
    ASSERT_TRUE(Run("jobs start", {{"TYPE", {"LocalHubSync"}}, {"SESSION", {"S"}}})) << mError;
    EXPECT_EQ("a job like this runs already; Location leads to it\nlocation: /api/jobs/detail/J\n", mOut.str());
}

TEST_F(RunCommandTest, ARollbackThatChangedNothingIsAFailure)
{
    mTold = {{304, ""}};
    EXPECT_FALSE(Run("rollback", {{"PRODUCTION", {"P"}}, {"REVISION", {"c1"}}}));
    EXPECT_THAT(mError, HasSubstr("status 304, the session stayed as it is"));
}

TEST_F(RunCommandTest, APayloadGoesOutAsItIs)
{
    const std::string bytes("\0\x1b\xff{", 4);
    mTold = {{200, bytes}};
    ASSERT_TRUE(Run("asset content", {{"PRODUCTION", {"P"}}, {"ASSET", {"A"}}, {"CONTENT", {"C"}}})) << mError;
    EXPECT_EQ(bytes, mOut.str());
}

TEST_F(RunCommandTest, APayloadGoesIntoItsFileAndAFailureLeavesNone)
{
    const testing_support::TempFolder folder;
    mTold = {{200, "image"}, {200, ""}, {404, ""}};
    const auto into = [&](const char* inName) {
        return Run("poster image", {{"PRODUCTION", {"P"}}, {"--output", {folder / inName}}});
    };
    ASSERT_TRUE(into("full")) << mError;
    ASSERT_TRUE(into("empty")) << mError;
    EXPECT_FALSE(into("none"));
    std::ifstream file(folder / "full");
    EXPECT_EQ("image", std::string(std::istreambuf_iterator<char>(file), {}));
    EXPECT_EQ(0U, std::filesystem::file_size(folder / "empty"));
    EXPECT_FALSE(std::filesystem::exists(folder / "none"));
    EXPECT_FALSE(into("no-such-folder/x"));
    EXPECT_EQ("", mOut.str());
}

TEST_F(RunCommandTest, AWaitAsksWithTheNewestTagAndShowsEachStateOnce)
{
    mTold = {{200, "{\"n\":1}", {{"ETag", "t1"}}}, {304, ""}, {200, "{\"n\":2}", {{"ETag", "t2"}}}, {503, ""}};
    hubctl::MadeRequest request;
    hubctl::RequestError error;
    ASSERT_TRUE(hubctl::MakeRequest(*hubctl::FindCommand("errors"), {{"--wait", {"true"}}}, request, error));
    EXPECT_FALSE(hubctl::RunCommand(request, {.mJSON = true}, *mAPI, mOut, mError));
    EXPECT_EQ("{\"n\":1}\n{\"n\":2}\n", mOut.str());
    EXPECT_THAT(mError, HasSubstr("status 503"));
    EXPECT_THAT(mAsked, ElementsAre("GET /api/errors/all", "GET /api/errors/all X-LongPoll=true If-None-Match=t1",
                                    "GET /api/errors/all X-LongPoll=true If-None-Match=t1",
                                    "GET /api/errors/all X-LongPoll=true If-None-Match=t2"));
}

TEST_F(RunCommandTest, AWaitEndsWhereItIsToldTo)
{
    mTold = {{200, "{}", {{"ETag", "t1"}}}};
    EXPECT_TRUE(Run("errors", {{"--wait", {"true"}}}, {.mJSON = true, .mShouldStop = [] { return true; }})) << mError;
    EXPECT_EQ(1U, mAsked.size());
}

TEST_F(RunCommandTest, WhileTheHubTakesItsTimeALineTellsAtWhatAndIsGoneWithTheAnswer)
{
    const std::pair<const char*, Values> commands[] = {
        {"rope-file open", {{"--path", {"/none/Film.lyr"}}}},
        {"rope-file copy-to", {{"PRODUCTION", {"P"}}, {"--path", {"/none/Film.lyr"}}}},
        {"production compact", {{"PRODUCTION", {"P"}}}},
        {"snapshot take", {{"PRODUCTION", {"P"}}, {"--zip-file", {"/none/a.zip"}}}},
        {"template create", {{"PRODUCTION", {"P"}}}}};
    Terminal terminal;
    std::ostream stream(&terminal);
    hubctl::ProgressBar bar(stream, true);
    for (const auto& [words, values] : commands) {
        SCOPED_TRACE(words);
        mOut.str({});
        mMeanwhile = [&terminal, label = std::string(words) + " ["] { EXPECT_TRUE(terminal.ComesToShow(label)); };
        mTold = {{201, "{}"}};
        EXPECT_TRUE(Run(words, values, {.mJSON = true, .mProgress = &bar})) << mError;
        EXPECT_TRUE(terminal.IsClear());
        EXPECT_EQ("{}\n", mOut.str()) << "the answer stands by itself";
        mTold = {{500, ""}};
        EXPECT_FALSE(Run(words, values, {.mProgress = &bar}));
        EXPECT_THAT(mError, HasSubstr("status 500"));
        EXPECT_TRUE(terminal.IsClear());
    }
}

TEST_F(RunCommandTest, TheLineTellsHowMuchOfTheFileIsThere)
{
    const testing_support::TempFolder folder;
    Terminal terminal;
    std::ostream stream(&terminal);
    hubctl::ProgressBar bar(stream, true);
    mMeanwhile = [&] {
        std::ofstream(folder / "Film.lyr") << "what is to be overwritten";
        std::ofstream(folder / "Film.lyr-localhub-copying") << std::string(3'000'000, 'x');
        EXPECT_TRUE(terminal.ComesToShow("rope-file copy-to ["));
        EXPECT_TRUE(terminal.ComesToShow(" s, 3 MB"));
    };
    mTold = {{201, "{}"}};
    EXPECT_TRUE(Run("rope-file copy-to", {{"PRODUCTION", {"P"}}, {"--path", {folder / "Film.lyr"}}},
                    {.mJSON = true, .mProgress = &bar}))
        << mError;
    EXPECT_TRUE(terminal.IsClear());
}

TEST_F(RunCommandTest, RowsGoAsAFormInTheirOrder)
{
    const testing_support::TempFolder folder;
    std::ofstream(folder / "payload") << "bytes";
    mTold = {{200, "{}"}};
    ASSERT_TRUE(Run("transaction create",
                    {{"TRANSACTION", {"T"}},
                     {"--field", {"assets+1+name=clip", "enclosures+1+content+1=@" + (folder / "payload")}}}))
        << mError;
    ASSERT_EQ(1U, mAsked.size());
    EXPECT_THAT(mAsked[0], HasSubstr("POST /api/transaction/T/bulkCreate Content-Type=multipart/form-data"));
    const auto name = mAsked[0].find("assets+1+name");
    const auto content = mAsked[0].find("enclosures+1+content+1");
    EXPECT_LT(name, content);
    EXPECT_LT(content, mAsked[0].find("bytes"));
    EXPECT_NE(std::string::npos, mAsked[0].find("bytes"));
    EXPECT_THAT(mAsked[0], Not(HasSubstr("@/")));
}

TEST_F(RunCommandTest, AFileThatIsNotThereIsAFailureBeforeAnyRequest)
{
    EXPECT_FALSE(Run("transaction create", {{"TRANSACTION", {"T"}}, {"--field", {"a=@/no/such/file"}}}));
    EXPECT_THAT(mError, HasSubstr("cannot be sent"));
    EXPECT_TRUE(mAsked.empty());
}

TEST_F(RunCommandTest, TheProgramTellsByItsExitStatusWhatHappened)
{
    const std::string discovery = R"({"server":{}})";  // the program looks whether a hub is there
    mTold = {{200, discovery}, {200, R"({"id":"u"})"}, {200, discovery}, {501, ""}};
    std::string text;
    EXPECT_EQ(0, Program(mPort, "user --json", text));
    EXPECT_EQ("{\"id\":\"u\"}\n", text);
    EXPECT_EQ(1, Program(mPort, "template list", text));
    EXPECT_THAT(text, HasSubstr("hubctl: GET /api/template/list: status 501, not available yet"));
    EXPECT_EQ(4U, mAsked.size());
    EXPECT_EQ(2, Program(mPort, "template", text));
    EXPECT_EQ(2, Program(mPort, "production get ..", text));
    EXPECT_EQ("hubctl: \"..\" cannot be PRODUCTION\n", text);
    EXPECT_EQ(4U, mAsked.size());
    mServers.front()->Stop();
    EXPECT_EQ(3, Program(mPort, "user", text));
    EXPECT_THAT(text, HasSubstr("no hub can be reached"));
}

}  // namespace

// The programs as they are shipped: how they start, find each other and end.

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <random>

#include "Client/Wire/URLTemplates.h"
#include "Platform/noxcore/FileSupport.h"
#include "Tests/LocalHubOutOfProcess/HubPrograms.h"
#include "Tests/Support/CommandOutput.h"
#include "Tests/Support/WaitUntil.h"

namespace {

using hubctl::Failure;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing_support::RunningHub;

const std::string kDiscovery(VYCL::URLTemplate::kDiscovery);

class ProgramTest : public testing_support::HubPrograms
{
protected:
    /// Imports the folder "source" and lets everything end. Gives the folder of the session.
    std::filesystem::path Import()
    {
        const pid_t import = Start("hubctl", {"import", mFolder / "source", "--once", "--limit", "16m"});
        EXPECT_EQ(0, WaitForEnd(import)) << OutputOf(import);
        WaitForAll();
        for (const auto& entry : std::filesystem::recursive_directory_iterator(mFolder.Path()))
            if (entry.path().extension() == ".lyra2") return entry.path();
        ADD_FAILURE() << "no session was made";
        return {};
    }

    /// All objects of a session with their ids, as git sees them in an export.
    std::string Objects(const std::string& inSession, const std::string& inExport)
    {
        const pid_t run = Start("hubctl", {"export-git", inSession, mFolder / inExport});
        EXPECT_EQ(0, WaitForEnd(run)) << OutputOf(run);
        const std::string git = "git -C '" + (mFolder / inExport) + "' ";
        EXPECT_EQ("", testing_support::CommandOutput(git + "fsck --strict --no-progress"));
        return testing_support::CommandOutput(git + "rev-list --all --objects | sort");
    }
};

/// Takes a port of the loopback interface.
class TakenPort
{
public:
    TakenPort() : mSocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const place = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof address;
        EXPECT_EQ(0, bind(mSocket, place, size));
        EXPECT_EQ(0, listen(mSocket, 1));
        EXPECT_EQ(0, getsockname(mSocket, place, &size));
        mPort = ntohs(address.sin_port);
    }
    ~TakenPort() { close(mSocket); }
    TakenPort(const TakenPort&) = delete;
    TakenPort& operator=(const TakenPort&) = delete;
    [[nodiscard]] std::uint16_t Port() const { return mPort; }

private:
    const int mSocket;
    std::uint16_t mPort = 0;
};

TEST_F(ProgramTest, AHubAnswersUntilASignalEndsItInOrder)
{
    const RunningHub hub = StartHub();
    ASSERT_TRUE(hub.mSession);
    std::string body;
    Failure failure;
    EXPECT_TRUE(hub.mAPI->Get(kDiscovery, body, failure)) << failure.mText;
    EXPECT_THAT(body, HasSubstr("\"links\""));
    ASSERT_EQ(0, kill(hub.mProcess, SIGTERM));
    EXPECT_EQ(0, WaitForEnd(hub.mProcess));
    EXPECT_TRUE(testing_support::WaitUntil([&] { return !hub.mSession->IsOpen(); }));
    EXPECT_THAT(LogOf(hub.mProcess), HasSubstr("ProjectBox is shut"));
    EXPECT_THAT(LogOf(hub.mProcess), Not(HasSubstr("Leaked objects")));
}

TEST_F(ProgramTest, AHubEndsByItselfOnceItsLastClientHasLeft)
{
    RunningHub hub = StartHub();
    ASSERT_TRUE(hub.mSession);
    const auto address = RegisteredHub();
    ASSERT_TRUE(address);
    auto second = OpenSession(*address);
    ASSERT_TRUE(second);
    hub.mSession.reset();
    std::string body;
    Failure failure;
    EXPECT_TRUE(hub.mAPI->Get(kDiscovery, body, failure)) << failure.mText;
    second.reset();
    EXPECT_EQ(0, WaitForEnd(hub.mProcess));
    // The broker, which the hub has started, has nobody left either.
    EXPECT_THAT(WaitForAll(), testing::ElementsAre(0));
}

TEST_F(ProgramTest, ASecondHubOfTheUserSaysSoAndTheFirstGoesOn)
{
    const RunningHub hub = StartHub();
    ASSERT_TRUE(hub.mSession);
    const pid_t second = Start("localhub", {});
    EXPECT_EQ(0, WaitForEnd(second));
    EXPECT_THAT(OutputOf(second), HasSubstr("Another local hub of this user is running"));
    EXPECT_TRUE(hub.mSession->IsOpen());
    std::string body;
    Failure failure;
    EXPECT_TRUE(hub.mAPI->Get(kDiscovery, body, failure)) << failure.mText;
}

TEST_F(ProgramTest, AMaintenanceRunEndsByItself)
{
    for (const char* option : {"-upgradeRepo", "-downgradeRepo", "-test.run"}) {
        const pid_t run = Start("localhub", {option, "x"});
        EXPECT_EQ(0, WaitForEnd(run)) << option;
    }
}

TEST_F(ProgramTest, AHubWhosePortIsTakenListensElsewhereAndKnowsNoPath)
{
    const TakenPort taken;
    const RunningHub hub = StartHub({"-port", std::to_string(taken.Port())});
    ASSERT_TRUE(hub.mSession);
    EXPECT_NE(taken.Port(), hub.mSession->HTTPPort());
    std::string body;
    Failure failure;
    EXPECT_FALSE(hub.mAPI->Get(kDiscovery, body, failure));
    EXPECT_EQ(404, failure.mStatus) << failure.mText;
}

TEST_F(ProgramTest, AnImportStartsWhatItNeedsAndLeavesNothingRunning)
{
    namespace fs = std::filesystem;
    fs::create_directories(mFolder / "source/below");
    for (const char* name : {"source/one", "source/below/two"})
        ASSERT_TRUE(noxcore::filesupport::Files().WriteFileDurably(mFolder / name, name));
    const pid_t import = Start("hubctl", {"import", mFolder / "source", "--once"});
    EXPECT_EQ(0, WaitForEnd(import)) << OutputOf(import);
    EXPECT_THAT(OutputOf(import), HasSubstr("Imported 2 bins and 2 clips, 2 of them with content"));
    EXPECT_THAT(OutputOf(import), HasSubstr("Edited one asset, commit "));
    const auto ends = WaitForAll();  // the broker; the hub is its child
    EXPECT_THAT(ends, Not(SizeIs(0)));
    EXPECT_THAT(ends, Each(0));
}

TEST_F(ProgramTest, ASessionIsExportedToAGitRepositoryWhetherAHubRunsOrNot)
{
    namespace fs = std::filesystem;
    using testing_support::CommandOutput;
    fs::create_directories(mFolder / "source");
    ASSERT_TRUE(noxcore::filesupport::Files().WriteFileDurably(mFolder / "source/one", "one"));
    const std::string session = Import().stem();
    for (const bool runs : {false, true}) {
        const RunningHub hub = runs ? StartHub() : RunningHub();
        const std::string folder = mFolder / (runs ? "beside" : "alone");
        const pid_t run = Start("hubctl", {"export-git", session, folder});
        EXPECT_EQ(0, WaitForEnd(run)) << OutputOf(run);
        const std::string git = "git -C '" + folder + "' ";
        EXPECT_EQ("", CommandOutput(git + "fsck --strict --no-progress"));
        EXPECT_EQ(session, CommandOutput(git + "cat-file -p session:sessionid"));
        EXPECT_THAT(CommandOutput(git + "log --format=%s session"), HasSubstr("Local Tessel Project data initialized"));
        const pid_t again = Start("hubctl", {"export-git", session, folder});
        EXPECT_NE(0, WaitForEnd(again));
        EXPECT_THAT(OutputOf(again), HasSubstr("is \"" + folder + "\" an empty folder?"));
    }
    const pid_t unknown = Start("hubctl", {"export-git", "nowhere", mFolder / "other"});
    EXPECT_NE(0, WaitForEnd(unknown));
    EXPECT_THAT(OutputOf(unknown), HasSubstr("there is no session \"nowhere\""));
}

TEST_F(ProgramTest, ARepositoryIsTurnedIntoTheFormerVersionAndBackWithEveryObject)
{
    std::filesystem::create_directories(mFolder / "source");
    auto& files = noxcore::filesupport::Files();
    ASSERT_TRUE(files.WriteFileDurably(mFolder / "source/small", "small"));
    std::string large(12 << 20, ' ');  // more than one row of the present version holds
    std::minstd_rand random(7);
    for (char& byte : large)
        byte = static_cast<char>(random());
    ASSERT_TRUE(files.WriteFileDurably(mFolder / "source/large", large));
    const std::filesystem::path folder = Import();
    const std::string session = folder.stem();
    const std::string before = Objects(session, "before");
    EXPECT_THAT(
        before,
        HasSubstr(
            testing_support::CommandOutput("git hash-object '" + (mFolder / "source/large") + "'").substr(0, 40)));
    for (const auto& [option, version] : {std::pair("-downgradeRepo", "1.0.1"), std::pair("-upgradeRepo", "2.0.1")}) {
        const pid_t turn = Start("localhub", {option, session});
        EXPECT_EQ(0, WaitForEnd(turn)) << OutputOf(turn);
        std::string text;
        ASSERT_TRUE(files.ReadFile(folder / "version", text));
        EXPECT_THAT(text, HasSubstr(version));
        EXPECT_EQ(before, Objects(session, version));
    }
}

TEST_F(ProgramTest, ASignalEndsAnImportThatHasNotBegunAtOnce)
{
    const std::string pipe = mFolder / "endless.otio";
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    const pid_t import = Start("hubctl", {"import", pipe});
    // Nobody writes to the pipe, so the import reads it until it is told to end.
    int end = -1;
    EXPECT_TRUE(testing_support::WaitUntil([&] { return (end = open(pipe.c_str(), O_WRONLY | O_NONBLOCK)) >= 0; }));
    ASSERT_EQ(0, kill(import, SIGINT));
    EXPECT_EQ(-SIGINT, WaitForEnd(import));
    close(end);
}

TEST_F(ProgramTest, ASignalEndsTheSessionThatAnImportHolds)
{
    const pid_t import = Start("hubctl", {"import", mFolder / "tmp"});
    EXPECT_TRUE(testing_support::WaitUntil([&] {
        return OutputOf(import).find("Holding a session until Ctrl-C") != std::string::npos;
    })) << OutputOf(import);
    ASSERT_EQ(0, kill(import, SIGINT));
    EXPECT_EQ(0, WaitForEnd(import));
    EXPECT_THAT(WaitForAll(), Each(0));
}

TEST_F(ProgramTest, ASourceThatIsNotThereStartsNoHub)
{
    const pid_t import = Start("hubctl", {"import", mFolder / "nothing"});
    EXPECT_EQ(1, WaitForEnd(import));
    EXPECT_THAT(OutputOf(import), HasSubstr("nothing: No such file or directory"));
    EXPECT_FALSE(std::filesystem::exists(mFolder / "run/corvane"));
}

TEST_F(ProgramTest, AnUnknownSubcommandIsNamed)
{
    const pid_t strange = Start("hubctl", {"bogus"});
    EXPECT_EQ(2, WaitForEnd(strange));
    EXPECT_THAT(OutputOf(strange), HasSubstr("there is no subcommand \"bogus\""));
}

}  // namespace

// A process that works in the store is killed at any moment, again and again; what it was answered is there.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>

#include "Client/VYClient/Environment.h"
#include "Inc/Model/GitBoxSandboxes.h"
#include "Platform/noxstorage/GitExport.h"
#include "Tests/Durability/Audit.h"
#include "Tests/Durability/Work.h"
#include "Tests/Support/RunCommand.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/VirtualHub.h"

namespace durability {
namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;
using testing_support::RunCommand;

constexpr int kRoundsOfAShortRun = 15;
constexpr int kRoundsThatReplace = 100;  ///< in so many some file is surely put in place of another
constexpr int kRoundsFromFsckToFsck = 10;
constexpr int kRoundsFromWorkToWork = 5;  ///< in which the test itself writes into what was left
constexpr unsigned kMostNotes = 40;       ///< after which the writer is killed
constexpr double kLongestNap = 6;         ///< after the last of them, in milliseconds: several writes take place

int Rounds()
{
    const char* text = std::getenv("HUB_TEST_CRASH_ROUNDS");  // NOLINT(concurrency-mt-unsafe): only read
    return text == nullptr ? kRoundsOfAShortRun : std::atoi(text);
}

/// The process that writes, and the notes that come from it.
class WriterProcess
{
public:
    WriterProcess(const std::string& inHome, std::uint64_t inSeed, int inFirstNumber)
    {
        int ends[2] = {-1, -1};
        EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        std::string program = (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "hub_crash_writer");
        std::string home = inHome;
        std::string seed = std::to_string(inSeed % 1000000);
        std::string first = std::to_string(inFirstNumber);
        char* const arguments[] = {program.data(), home.data(), seed.data(), first.data(), nullptr};
        EXPECT_EQ(0, posix_spawn(&mProcess, program.c_str(), &actions, nullptr, arguments, environ));
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        mPipe = ends[0];
    }
    ~WriterProcess() { close(mPipe); }
    WriterProcess(const WriterProcess&) = delete;
    WriterProcess& operator=(const WriterProcess&) = delete;

    /// The next note; false when there comes no more.
    bool Read(std::string& outLine)
    {
        for (;;) {
            const std::size_t end = mReceived.find('\n');
            if (end != std::string::npos) {
                outLine = mReceived.substr(0, end);
                mReceived.erase(0, end + 1);
                return true;
            }
            char buffer[4096];
            const ssize_t size = read(mPipe, buffer, sizeof(buffer));
            if (size <= 0) return false;
            mReceived.append(buffer, static_cast<std::size_t>(size));
        }
    }

    /// How it ended: it must not have before.
    int Kill() const
    {
        kill(mProcess, SIGKILL);
        int status = 0;
        waitpid(mProcess, &status, 0);
        return WIFSIGNALED(status) ? WTERMSIG(status) : -1;
    }

private:
    pid_t mProcess = -1;
    int mPipe = -1;
    std::string mReceived;
};

class Crash : public testing::Test
{
protected:
    void Take(const std::string& inLine)
    {
        Write write;
        ASSERT_TRUE(inLine.size() > 2 && FromText(inLine.substr(2), write)) << inLine;
        ASSERT_TRUE(inLine[0] != 'R' || TakesPlaceOfFile(write.mKind)) << "refused without a reason: " << inLine;
        if (inLine[0] == 'B') {
            Begin(write, mLedger);
        } else {
            Answer(write, inLine[0] == 'D', mLedger);
            if (inLine[0] == 'D') ++mAnswered[write.mKind];
        }
    }

    /// Refused while somebody else has the file open, and maintenance may.
    static bool TakesPlaceOfFile(Write::Kind inKind)
    {
        return inKind == Write::Kind::Thin || inKind == Write::Kind::OverwriteFile ||
               inKind == Write::Kind::CopyOverFile;
    }

    double Random(double inMost) { return std::uniform_real_distribution<double>(0, inMost)(mRandom); }
    static void Nap(double inMilliseconds)
    {
        timespec time{0, static_cast<long>(inMilliseconds * 1e6)};
        ppoll(nullptr, 0, &time, nullptr);
    }

    /// Starts a writer and kills it: as it starts, or after so many notes and a moment.
    void WorkUntilKilled()
    {
        WriterProcess writer(mHome.Path(), mRandom(), mLedger.mLastNumber);
        const auto begin = std::chrono::steady_clock::now();
        std::string line;
        if (mLongestStart != 0 && mRandom() % 5 == 0) {
            Nap(Random(mLongestStart));
        } else {
            for (auto notes = 1 + mRandom() % kMostNotes; notes > 0; --notes) {
                ASSERT_TRUE(writer.Read(line)) << "the writer has ended by itself";
                if (mLongestStart == 0) mLongestStart = Milliseconds(std::chrono::steady_clock::now() - begin).count();
                Take(line);
            }
            Nap(Random(kLongestNap));
        }
        EXPECT_EQ(SIGKILL, writer.Kill());
        while (writer.Read(line))
            Take(line);
    }

    /// git's own opinion of what the sessions hold.
    void CheckWithGit(const std::string& inSession)
    {
        VantryLocalHub::GitBox::Sandbox::Handles handles;
        ASSERT_TRUE(VantryLocalHub::GitBox::Sandboxes::Instance()->FindSandbox(inSession)->RetainDB(handles));
        const testing_support::TempFolder folder;
        const std::string repository = folder / "plain.git";
        ASSERT_TRUE(noxstorage::git::ExportToGit(handles.mRepo, repository));
        int status = 0;
        EXPECT_EQ("", RunCommand("git --git-dir=" + repository +
                                     " -c safe.directory='*' fsck --strict --no-dangling --no-progress",
                                 status));
        EXPECT_EQ(0, status);
        ++mCheckedWithGit;
    }

    /// Opens what the killed process left.
    void Check(int inRound)
    {
        const auto scheduler = std::make_shared<testing_support::VirtualScheduler>(mRandom());
        const auto log = std::make_shared<testing_support::LogCapture>();
        const auto context = scheduler->MakeContext(log);
        const noxcore::HubContext::Scope scope(context);
        context->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(mHome.Path()));
        {
            const auto store = std::make_shared<GitBox>(true);
            EXPECT_EQ("", AuditLeftovers());
            EXPECT_EQ("", Audit(*store, mLedger, Loss::Nothing));
            if (!HasFailure() && inRound % kRoundsFromWorkToWork == 0) {
                EXPECT_EQ("", Work(*store, mLedger).GoOn());
            }
            if (!HasFailure() && mHasGit && inRound % kRoundsFromFsckToFsck == 0) {
                for (const auto& [id, session] : mLedger.mSessions)
                    if (session.mPresence == SessionLedger::Presence::There) CheckWithGit(id);
            }
        }
        scheduler->RunUntilIdle();
        if (!HasFailure()) return;
        for (const auto& record : log->All())
            std::printf("    %s\n", record.Text().c_str());
    }

    const testing_support::TempFolder mHome;
    std::mt19937_64 mRandom{testing_support::FreshTestSeed()};
    const bool mHasGit = [] {
        int status = 0;
        RunCommand("git --version", status);
        return status == 0;
    }();
    double mLongestStart = 0;  ///< in milliseconds
    Ledger mLedger;
    std::map<Write::Kind, std::size_t> mAnswered;
    std::size_t mCheckedWithGit = 0;
};

TEST_F(Crash, WhatWasAnsweredIsThereHoweverOftenTheWriterIsKilled)
{
    const int rounds = Rounds();
    for (int round = 1; round <= rounds && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        WorkUntilKilled();
        if (!HasFatalFailure()) Check(round);
    }
    std::size_t answered = 0;
    std::size_t replaced = 0;
    for (const auto& [kind, count] : mAnswered) {
        answered += count;
        if (TakesPlaceOfFile(kind)) replaced += count;
    }
    std::printf(
        "%d kills, %zu answered writes, %zu of them in place of a file, in %zu sessions, %zu looked at by git\n",
        rounds, answered, replaced, mLedger.mSessions.size(), mCheckedWithGit);
    EXPECT_GT(answered, static_cast<std::size_t>(rounds));
    EXPECT_TRUE(replaced > 0 || rounds < kRoundsThatReplace);
}

}  // namespace
}  // namespace durability

// A program that works in the sessions of a home until it is killed: two threads, each in sessions of its own, with
// maintenance and the closing of files going on beside them. It tells each write on its standard output, before it asks
// the store and after it was answered.
//   hub_crash_writer HOME SEED FIRST-NUMBER

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <random>
#include <span>

#include "Client/VYClient/Environment.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/HubContext.h"
#include "Tests/Durability/Work.h"
#include "Tests/Support/LogCapture.h"

namespace durability {
namespace {

using namespace VantryLocalHub;

constexpr int kThreads = 2;
constexpr int kNumbersOfAThread = 100000;
constexpr std::size_t kFewestSessions = 1;
constexpr std::size_t kMostSessions = 4;
constexpr std::size_t kLongestHistory = 40;  ///< a session that has more is deleted soon

/// What may be done next, and how often out of so many times.
struct Choice
{
    Write::Kind mKind;
    unsigned mWeight;
};
constexpr Choice kChoices[] = {{Write::Kind::Commit, 40},
                               {Write::Kind::Locators, 15},
                               {Write::Kind::SyncPoint, 15},
                               {Write::Kind::Create, 8},
                               {Write::Kind::Delete, 4},
                               {Write::Kind::Revert, 6},
                               {Write::Kind::AdvanceProduction, 6},
                               {Write::Kind::ResetProduction, 6},
                               {Write::Kind::SetPreference, 4},
                               {Write::Kind::RemovePreference, 2}};
/// In a session that is a project in a single file.
constexpr Choice kChoicesOfAFile[] = {
    {Write::Kind::Commit, 40},         {Write::Kind::Locators, 8}, {Write::Kind::SyncPoint, 10},
    {Write::Kind::UserEnclosure, 8},   {Write::Kind::Value, 8},    {Write::Kind::CreateFile, 6},
    {Write::Kind::Delete, 4},          {Write::Kind::Revert, 6},   {Write::Kind::AdvanceProduction, 6},
    {Write::Kind::ResetProduction, 4}, {Write::Kind::Thin, 10},    {Write::Kind::OverwriteFile, 4},
    {Write::Kind::CopyOverFile, 6}};

void Tell(Work::Phase inPhase, const Write& inWrite)
{
    const char* phase = inPhase == Work::Phase::Begun ? "B " : inPhase == Work::Phase::Done ? "D " : "R ";
    const std::string line = phase + ToText(inWrite) + "\n";
    // One call a line: lines of two threads do not mix. Who cannot be told any more is who would have killed us.
    if (write(STDOUT_FILENO, line.data(), line.size()) != static_cast<ssize_t>(line.size())) std::_Exit(2);
}

/// What lies there of the sessions that are a thread's own; their contents are not needed to go on.
Ledger ReadLedger(GitBox& inStore, int inThread, int inFirstNumber)
{
    Ledger ledger;
    ledger.mLastNumber = inFirstNumber + inThread * kNumbersOfAThread;
    int index = 0;
    for (const dto::Session& record : inStore.GetSessions()) {
        if (index++ % kThreads != inThread) continue;
        SessionLedger& session = ledger.mSessions[record.mIdentifier.Text()];
        std::vector<StoredVersion> versions;
        std::size_t total = 0;
        inStore.GetSessionHistory(record.mIdentifier, 0, 10000, versions, total);
        for (auto version = versions.rbegin(); version != versions.rend(); ++version)
            session.mVersions.push_back({version->mCommitID.Text(), InitialContent()});
        // What was synchronized stays when a history is thinned.
        std::vector<ImmutableString> local;
        std::vector<ImmutableString> remote;
        inStore.ReadSyncPointRevisions(record.mIdentifier, local, remote);
        for (std::size_t point = 0; point < local.size(); ++point)
            session.mSyncPoints.emplace_back(local[point].Text(), remote[point].Text());
        RemoteAssociation association;
        session.mLinked = inStore.ReadCurrentRemoteAssociation(record.mIdentifier, association);
    }
    return ledger;
}

class Writer
{
public:
    Writer(GitBox& inStore, std::mutex& inNames, int inThread, unsigned inSeed, int inFirstNumber)
        : mNames(inNames),
          mLedger(ReadLedger(inStore, inThread, inFirstNumber)),
          mWork(inStore, mLedger),
          mRandom(inSeed + static_cast<unsigned>(inThread)),
          mPreference("of-thread-" + std::to_string(inThread))
    {
        mWork.OnChange(Tell);
    }

    /// False when the store refuses something.
    bool Step()
    {
        std::vector<std::string> sessions;
        for (const auto& [id, session] : mLedger.mSessions) {
            if (session.mPresence == SessionLedger::Presence::There) sessions.push_back(id);
        }
        if (sessions.size() < kFewestSessions) return CreateEither();
        const std::string& id = sessions[mRandom() % sessions.size()];
        const SessionLedger& session = mLedger.mSessions.at(id);
        const std::size_t version = mRandom() % session.mVersions.size();
        const bool isFile = id.starts_with("r-");
        switch (isFile ? Choose(kChoicesOfAFile, session, sessions.size())
                       : Choose(kChoices, session, sessions.size())) {
            case Write::Kind::Create:
            case Write::Kind::CreateFile:
                return CreateEither();
            case Write::Kind::UserEnclosure:
                return mWork.AddUserEnclosure(id);
            case Write::Kind::Value:
                return mWork.SetValue(id);
            // Maintenance may have the file open just then.
            case Write::Kind::Thin:
                mWork.Thin(id);
                return true;
            case Write::Kind::OverwriteFile:
                mWork.OverwriteFile(id);
                return true;
            case Write::Kind::CopyOverFile:
                if (const std::string& source = sessions[mRandom() % sessions.size()]; source != id)
                    mWork.CopyOverFile(source, id);
                return true;
            case Write::Kind::Delete:
                return isFile ? WithNames([&] { return mWork.Delete(id); }) : mWork.Delete(id);
            case Write::Kind::Revert:
                return mWork.Revert(id, version);
            case Write::Kind::AdvanceProduction:
                return mWork.AdvanceProduction(id, version);
            case Write::Kind::ResetProduction:
                return mWork.ResetProduction(id, version);
            case Write::Kind::SyncPoint:
                return session.mLinked ? mWork.AddSyncPoint(id) : mWork.Link(id);
            case Write::Kind::Locators:
                return mWork.AddLocators(id);
            case Write::Kind::SetPreference:
                return mWork.SetPreference(mPreference);
            case Write::Kind::RemovePreference:
                return mWork.RemovePreference(mPreference);
            default:
                return mWork.Commit(id);
        }
    }

private:
    Write::Kind Choose(std::span<const Choice> inChoices, const SessionLedger& inSession, std::size_t inSessions)
    {
        unsigned all = 0;
        for (const Choice& choice : inChoices)
            all += choice.mWeight;
        unsigned number = static_cast<unsigned>(mRandom() % all);
        auto choice = inChoices.begin();
        for (; number >= choice->mWeight; ++choice)
            number -= choice->mWeight;
        if (inSession.mVersions.size() > kLongestHistory && mRandom() % 4 == 0) return Write::Kind::Delete;
        const bool isCreation = choice->mKind == Write::Kind::Create || choice->mKind == Write::Kind::CreateFile;
        if (isCreation && inSessions >= kMostSessions) return Write::Kind::Delete;
        return choice->mKind;
    }

    bool CreateEither()
    {
        return mRandom() % 2 == 0 ? mWork.Create() : WithNames([&] { return mWork.CreateFile(); });
    }

    /// Between its deletion and the note of it nobody makes a file of the same name, which has the same id.
    template <class Function>
    bool WithNames(const Function& inFunction)
    {
        const std::lock_guard lock(mNames);
        return inFunction();
    }

    std::mutex& mNames;
    Ledger mLedger;
    Work mWork;
    std::mt19937_64 mRandom;
    const std::string mPreference;
};

int Run(const std::string& inHome, unsigned inSeed, int inFirstNumber)
{
    const auto context = noxcore::HubContext::Create({});
    const noxcore::HubContext::Scope scope(context);
    context->SetLog(std::make_shared<testing_support::LogCapture>());
    context->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(inHome));
    const auto store = std::make_shared<GitBox>(true);
    std::atomic<bool> refused{false};
    std::mutex names;
    const auto executor = noxcore::threads::CreateIOBoundExecutor("writers", kThreads + 1);
    for (int thread = 0; thread < kThreads; ++thread) {
        executor->Queue([&, thread] {
            Writer writer(*store, names, thread, inSeed, inFirstNumber);
            while (!refused && writer.Step())
                continue;
            refused = true;
        });
    }
    executor->Queue([&] {
        while (!refused)
            store->ReleaseUnusedDB(context->GetClock().MonotonicTicks() - noxcore::kTicksPerMillisecond);
    });
    executor->ShutDownAndWait();
    return 1;
}

}  // namespace
}  // namespace durability

int main(int inCount, char** inArguments)
{
    if (inCount != 4) return 64;
    const auto seed = static_cast<unsigned>(std::strtoul(inArguments[2], nullptr, 10));
    return durability::Run(inArguments[1], seed, std::atoi(inArguments[3]));
}

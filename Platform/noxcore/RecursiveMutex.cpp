#include "Platform/noxcore/RecursiveMutex.h"

#include <atomic>
#include <iterator>
#include <vector>

#include "Platform/noxcore/Logging.h"

namespace noxcore::threads {

namespace {

std::atomic<unsigned> sViolations{0};

#ifndef NDEBUG

/// What this thread holds, in the order it was taken; a mutex taken twice stands twice.
thread_local std::vector<const RecursiveMutex*> tHeld;

void CheckOrder(const RecursiveMutex& inMutex)
{
    if (inMutex.Rank() == LockRank::None) return;
    for (const RecursiveMutex* held : tHeld) {
        if (held == &inMutex) return;
    }
    for (const RecursiveMutex* held : tHeld) {
        if (held->Rank() == LockRank::None || held->Rank() < inMutex.Rank()) continue;
        sViolations.fetch_add(1);
        logging::LogError("noxcore", "Lock order violation",
                          {{"held", LockRankName(held->Rank())}, {"taken", LockRankName(inMutex.Rank())}});
        return;
    }
}

void NoteTaken(const RecursiveMutex& inMutex)
{
    tHeld.push_back(&inMutex);
}

void NoteGiven(const RecursiveMutex& inMutex)
{
    for (auto held = tHeld.rbegin(); held != tHeld.rend(); ++held) {
        if (*held != &inMutex) continue;
        tHeld.erase(std::next(held).base());
        return;
    }
}

#else

void CheckOrder(const RecursiveMutex&) {}
void NoteTaken(const RecursiveMutex&) {}
void NoteGiven(const RecursiveMutex&) {}

#endif

struct RankName
{
    LockRank mRank;
    const char* mName;
};

constexpr RankName kRankNames[] = {{LockRank::None, "None"},
                                   {LockRank::OutOfProcessServer, "OutOfProcessServer"},
                                   {LockRank::Service, "Service"},
                                   {LockRank::HubSync, "HubSync"},
                                   {LockRank::SyncLink, "SyncLink"},
                                   {LockRank::JobControl, "JobControl"},
                                   {LockRank::SyncJob, "SyncJob"},
                                   {LockRank::JobLockTable, "JobLockTable"},
                                   {LockRank::MediaLocators, "MediaLocators"},
                                   {LockRank::TransactionWindow, "TransactionWindow"},
                                   {LockRank::Transaction, "Transaction"},
                                   {LockRank::RopeFilePath, "RopeFilePath"},
                                   {LockRank::Sandboxes, "Sandboxes"},
                                   {LockRank::SandboxWrite, "SandboxWrite"},
                                   {LockRank::SandboxMain, "SandboxMain"},
                                   {LockRank::SandboxChange, "SandboxChange"},
                                   {LockRank::SandboxCache, "SandboxCache"},
                                   {LockRank::SyncDb, "SyncDb"},
                                   {LockRank::ComplaintBox, "ComplaintBox"},
                                   {LockRank::RepositoryWriter, "RepositoryWriter"},
                                   {LockRank::TreeBuilder, "TreeBuilder"},
                                   {LockRank::RepositoryFile, "RepositoryFile"},
                                   {LockRank::Leaf, "Leaf"}};

}  // namespace

const char* LockRankName(LockRank inRank)
{
    for (const RankName& entry : kRankNames) {
        if (entry.mRank == inRank) return entry.mName;
    }
    return "unknown";
}

void RecursiveMutex::Lock()
{
    CheckOrder(*this);
    mMutex.lock();
    NoteTaken(*this);
}

bool RecursiveMutex::TryLock()
{
    if (!mMutex.try_lock()) return false;
    NoteTaken(*this);
    return true;
}

void RecursiveMutex::Unlock()
{
    NoteGiven(*this);
    mMutex.unlock();
}

unsigned LockOrderViolations()
{
    return sViolations.load();
}

}  // namespace noxcore::threads

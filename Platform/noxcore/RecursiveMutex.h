#pragma once

#include <mutex>

#include "Platform/noxcore/LockRank.h"
#include "Platform/noxcore/ThreadSafety.h"

namespace noxcore::threads {

/// The hub's mutex: recursive, and in debug builds aware of its place in the lock order.
///
/// A thread that takes a mutex of a lower or equal rank than one it already holds (another mutex, not the same one
/// again) breaks the order: debug builds log "Lock order violation" at error level with both names and count it
/// (LockOrderViolations), so that a test can fail on it. Rank None takes no part. TryLock is free of the order, since
/// it never waits.
class CAPABILITY("mutex") RecursiveMutex
{
public:
    explicit RecursiveMutex(LockRank inRank = LockRank::None) : mRank(inRank) {}
    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;

    void Lock() ACQUIRE();
    bool TryLock() TRY_ACQUIRE(true);
    void Unlock() RELEASE();

    [[nodiscard]] LockRank Rank() const { return mRank; }

private:
    std::recursive_mutex mMutex;
    const LockRank mRank;
};

/// Number of lock order violations seen in this process; always 0 in release builds.
unsigned LockOrderViolations();

/// Holds a mutex for a scope. Unlock gives it back early, once.
class SCOPED_CAPABILITY ScopedLock
{
public:
    explicit ScopedLock(RecursiveMutex& inMutex) ACQUIRE(inMutex) : mMutex(&inMutex) { inMutex.Lock(); }
    ~ScopedLock() RELEASE()
    {
        if (mMutex != nullptr) mMutex->Unlock();
    }
    void Unlock() RELEASE()
    {
        mMutex->Unlock();
        mMutex = nullptr;
    }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    RecursiveMutex* mMutex;
};

}  // namespace noxcore::threads

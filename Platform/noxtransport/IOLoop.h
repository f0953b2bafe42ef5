#pragma once

#include <memory>
#include <vector>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxtransport/Sockets.h"

namespace noxtransport {

/// The thread of a transport: waits for descriptors, and runs what others ask it to run.
///
/// Threading: Post, RunAndWait, End and IsCurrentThread from any thread; the rest on the loop's thread. mMutex guards
/// the commands (rank Leaf) and is not held while one runs.
class IOLoop
{
public:
    /// Something with a descriptor. All calls on the loop's thread.
    class Watched
    {
    public:
        virtual ~Watched() = default;
        [[nodiscard]] virtual int GetDescriptor() const = 0;
        /// What to wait for, as poll(2) says it; asked before each wait.
        [[nodiscard]] virtual short WantedEvents() = 0;
        virtual void OnEvents(short inEvents) = 0;
        /// The loop ends: close whatever is open.
        virtual void OnLoopEnding() = 0;
    };

    /// Null when the descriptor or the thread cannot be had.
    static std::shared_ptr<IOLoop> Start();
    ~IOLoop();

    /// Runs the task on the loop's thread, later. False when the loop has ended: the task is dropped then.
    bool Post(noxcore::threads::Task inTask);
    /// Runs the task on the loop's thread and waits for it; at once when called there. False as above.
    bool RunAndWait(const noxcore::threads::Task& inTask);
    /// Ends the loop. Waits until it has ended, unless called on its thread.
    void End();
    [[nodiscard]] bool IsCurrentThread() const;

    void Watch(std::shared_ptr<Watched> inWatched);
    void Unwatch(const Watched* inWatched);

private:
    IOLoop(Descriptor inWake, std::shared_ptr<noxcore::threads::Executor> inExecutor);
    void Run();
    void RunCommands(bool inLast);
    void WaitOnce();
    void Wake() const;

    const Descriptor mWake;
    const std::shared_ptr<noxcore::threads::Executor> mExecutor;

    std::vector<std::shared_ptr<Watched>> mWatched;  // loop's thread only

    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::vector<noxcore::threads::Task> mCommands GUARDED_BY(mMutex);
    bool mStop GUARDED_BY(mMutex) = false;
    bool mEnded GUARDED_BY(mMutex) = false;
};

/// Calls a function and logs what it throws; false then.
bool CallGuarded(const noxcore::threads::Task& inTask);

}  // namespace noxtransport

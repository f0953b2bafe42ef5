#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/noxcore/Clock.h"
#include "Platform/noxcore/Executor.h"

namespace noxcore {
namespace logging {
class Sink;
}
namespace filesupport {
class FileSystem;
}

/// Everything that is one per hub and not one per process: time, randomness, threads, files, the log, and the
/// instances that components publish (store, engine, registries, configuration).
///
/// Each executor task, posted message, timer and I/O completion runs under the context of whoever queued it. The
/// process has one of its own, which holds wherever no other was set; tests make as many as they need.
/// Threading: any thread. The mutex guards the slots; it is held for one look-up (rank None).
class HubContext : public std::enable_shared_from_this<HubContext>
{
public:
    /// The parts that can be replaced. A null part is filled with the real one.
    struct Parts
    {
        std::shared_ptr<Clock> mClock;
        std::shared_ptr<RandomSource> mRandom;
        std::shared_ptr<threads::ThreadingModel> mThreading;
        std::shared_ptr<filesupport::FileSystem> mFiles;
        std::shared_ptr<logging::Sink> mLog;
    };

    static std::shared_ptr<HubContext> Create(Parts inParts);
    ~HubContext();

    /// The context of the running task; the process's own where none was set.
    static const std::shared_ptr<HubContext>& Current();

    Clock& GetClock() const { return *mParts.mClock; }
    RandomSource& GetRandom() const { return *mParts.mRandom; }
    threads::ThreadingModel& GetThreading() const { return *mParts.mThreading; }
    filesupport::FileSystem& GetFiles() const { return *mParts.mFiles; }
    std::shared_ptr<logging::Sink> GetLog() const;
    void SetLog(std::shared_ptr<logging::Sink> inSink);

    /// The published instance of a type; null when there is none.
    template <class T>
    std::shared_ptr<T> GetInstance() const
    {
        return std::static_pointer_cast<T>(GetSlot(SlotOf<T>()));
    }
    /// Publishes, or with null withdraws.
    template <class T>
    void SetInstance(std::shared_ptr<T> inInstance)
    {
        SetSlot(SlotOf<T>(), std::move(inInstance));
    }
    /// The instance of a type that needs no arguments, made on first use.
    template <class T>
    std::shared_ptr<T> GetOrCreateInstance()
    {
        return std::static_pointer_cast<T>(
            GetOrCreateSlot(SlotOf<T>(), [] { return std::static_pointer_cast<void>(std::make_shared<T>()); }));
    }

    /// Makes a context the current one of this thread for a scope.
    class Scope
    {
    public:
        explicit Scope(std::shared_ptr<HubContext> inContext);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        std::shared_ptr<HubContext> mPrevious;
    };

private:
    explicit HubContext(Parts inParts);

    static std::size_t NextSlot();
    template <class T>
    static std::size_t SlotOf()
    {
        static const std::size_t slot = NextSlot();
        return slot;
    }
    std::shared_ptr<void> GetSlot(std::size_t inSlot) const;
    void SetSlot(std::size_t inSlot, std::shared_ptr<void> inInstance);
    std::shared_ptr<void> GetOrCreateSlot(std::size_t inSlot, std::shared_ptr<void> (*inMake)());

    Parts mParts;
    mutable std::mutex mMutex;
    std::vector<std::shared_ptr<void>> mSlots;
};

/// A task that runs under the context that is current now.
threads::Task BindCurrentContext(threads::Task inTask);

}  // namespace noxcore

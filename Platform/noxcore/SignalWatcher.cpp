#include "Platform/noxcore/SignalWatcher.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/PlatformCall.h"

namespace noxcore {

namespace {

constexpr std::array kSignals = {SIGTERM, SIGINT};
constexpr unsigned char kStop = 0;

/// What the handler writes to; -1 while nobody watches. A handler can see nothing but globals.
std::atomic<int> sPipe{-1};

void PassOn(int inSignal)
{
    const int keptError = errno;
    const auto news = static_cast<unsigned char>(inSignal);
    if (const int pipe = sPipe.load(); pipe >= 0) [[maybe_unused]]
        const ssize_t sent = write(pipe, &news, 1);
    errno = keptError;
}

}  // namespace

struct SignalWatcher::State
{
    std::function<void(int)> mOnSignal;
    std::array<int, 2> mPipe{-1, -1};
    std::array<struct sigaction, kSignals.size()> mPrevious{};
    std::shared_ptr<threads::Executor> mExecutor;

    void Watch() const
    {
        for (;;) {
            unsigned char news = kStop;
            const ssize_t got = read(mPipe[0], &news, 1);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0 || news == kStop) return;
            mOnSignal(news);
        }
    }
};

SignalWatcher::SignalWatcher(std::function<void(int)> inOnSignal) : mState(std::make_unique<State>())
{
    mState->mOnSignal = std::move(inOnSignal);
    if (pipe2(mState->mPipe.data(), O_CLOEXEC) != 0) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): a text for a record
        logging::LogError(debug::kPlatformCategory, "Cannot watch for signals", {{"error", std::strerror(errno)}});
        return;
    }
    mState->mExecutor = threads::CreateIOBoundExecutor("signals", 1);
    mState->mExecutor->Queue([state = mState.get()] { state->Watch(); });
    sPipe = mState->mPipe[1];
    struct sigaction action = {};
    action.sa_handler = PassOn;
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < kSignals.size(); ++i)
        sigaction(kSignals[i], &action, &mState->mPrevious[i]);
}

SignalWatcher::~SignalWatcher()
{
    if (!mState->mExecutor) return;
    for (std::size_t i = 0; i < kSignals.size(); ++i)
        sigaction(kSignals[i], &mState->mPrevious[i], nullptr);
    sPipe = -1;
    [[maybe_unused]] const ssize_t sent = write(mState->mPipe[1], &kStop, 1);
    mState->mExecutor->ShutDownAndWait();
    for (const int end : mState->mPipe)
        close(end);
}

}  // namespace noxcore

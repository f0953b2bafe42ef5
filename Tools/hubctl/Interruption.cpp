#include "Tools/hubctl/Interruption.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>

namespace hubctl {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

// A handler can see nothing but globals.
std::atomic<bool> sAskedFor{false};
std::atomic<int> sNews{-1};

void Announce(int inDescriptor)
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(inDescriptor, &one, sizeof one);
}

void NoteSignal(int)
{
    const int keptError = errno;
    sAskedFor = true;
    Announce(sNews);
    errno = keptError;
}

}  // namespace

Interruption::Interruption() : mLost(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    sAskedFor = false;
    sNews = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction action = {};
    action.sa_handler = NoteSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : kSignals)
        sigaction(number, &action, nullptr);
}

Interruption::~Interruption()
{
    for (const int number : kSignals)
        signal(number, SIG_DFL);
    close(sNews.exchange(-1));
    close(mLost);
}

bool Interruption::IsAskedFor()
{
    return sAskedFor;
}

void Interruption::NoteHubLost()
{
    Announce(mLost);
}

bool Interruption::Wait()
{
    while (!IsAskedFor()) {
        pollfd ends[] = {{sNews, POLLIN, 0}, {mLost, POLLIN, 0}};
        if (poll(ends, 2, -1) < 0 && errno != EINTR) return true;
        if (ends[1].revents != 0 && !IsAskedFor()) return false;
    }
    return true;
}

}  // namespace hubctl

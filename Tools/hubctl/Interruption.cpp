#include "Tools/hubctl/Interruption.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <initializer_list>

namespace hubctl {

Interruption::Interruption()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, number);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);  // a reader of our output that goes must not end an import half way
    mSignals = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    mLost = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

Interruption::~Interruption()
{
    close(mSignals);
    close(mLost);
}

bool Interruption::IsAskedFor()
{
    signalfd_siginfo information;
    if (read(mSignals, &information, sizeof information) > 0) mAskedFor = true;
    return mAskedFor;
}

void Interruption::NoteHubLost()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(mLost, &one, sizeof one);
}

bool Interruption::Wait()
{
    while (!IsAskedFor()) {
        pollfd ends[] = {{mSignals, POLLIN, 0}, {mLost, POLLIN, 0}};
        if (poll(ends, 2, -1) < 0 && errno != EINTR) return true;
        if (ends[1].revents != 0 && !IsAskedFor()) return false;
    }
    return true;
}

}  // namespace hubctl

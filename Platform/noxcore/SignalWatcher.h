#pragma once

#include <functional>
#include <memory>

namespace noxcore {

/// Calls a function, on a thread of its own, when the system asks this process to end (SIGTERM, SIGINT). The function
/// may take locks and write records: the signal handler itself only passes the news on through a pipe.
///
/// One a process. Threading: made and destroyed on the main thread.
class SignalWatcher
{
public:
    /// The function gets the signal's number, at every such signal.
    explicit SignalWatcher(std::function<void(int)> inOnSignal);
    /// Gives the signals back to what handled them before; the function is called no more.
    ~SignalWatcher();
    SignalWatcher(const SignalWatcher&) = delete;
    SignalWatcher& operator=(const SignalWatcher&) = delete;

private:
    struct State;
    std::unique_ptr<State> mState;
};

}  // namespace noxcore

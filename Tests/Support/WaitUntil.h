#pragma once

#include <poll.h>

#include <chrono>
#include <functional>

namespace testing_support {

/// For what happens in real time, on other threads or in other programs: waits until the condition holds. False after
/// five minutes, which only a broken build takes.
inline bool WaitUntil(const std::function<bool()>& inCondition)
{
    constexpr int kNapInMilliseconds = 5;
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(5);
    while (!inCondition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        poll(nullptr, 0, kNapInMilliseconds);
    }
    return true;
}

}  // namespace testing_support

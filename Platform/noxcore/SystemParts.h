#pragma once

#include <memory>

#include "Platform/noxcore/Clock.h"
#include "Platform/noxcore/Executor.h"

namespace noxcore {

/// The real parts of a HubContext: the system's clock, the kernel's randomness, real threads.
std::shared_ptr<Clock> MakeSystemClock();
std::shared_ptr<RandomSource> MakeSystemRandomSource();
std::shared_ptr<threads::ThreadingModel> MakeSystemThreading();
std::shared_ptr<threads::MainThread> MakeSystemMainThread();

}  // namespace noxcore

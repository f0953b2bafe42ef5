#pragma once

#include <cstdint>
#include <memory>

#include "Platform/noxcore/Clock.h"
#include "Platform/noxcore/HubContext.h"

namespace noxcore::utility {

/// Tells how long a piece of work has taken so far, by the clock of the hub that it began under.
///
/// Starts when it is made. Threading: any thread; constant afterwards.
class Timer
{
public:
    [[nodiscard]] double Seconds() const
    {
        return static_cast<double>(mContext->GetClock().MonotonicTicks() - mStart) / kTicksPerSecond;
    }

private:
    const std::shared_ptr<HubContext> mContext = HubContext::Current();
    const std::int64_t mStart = mContext->GetClock().MonotonicTicks();
};

}  // namespace noxcore::utility

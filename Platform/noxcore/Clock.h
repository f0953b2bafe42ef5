#pragma once

#include <cstdint>
#include <span>

namespace noxcore {

/// Where time comes from. The real one asks the system; a test's stands still until it is moved.
class Clock
{
public:
    virtual ~Clock() = default;
    /// Wall time: ticks of 100 ns since 1970-01-01T00:00:00Z.
    virtual std::int64_t NowTicks() = 0;
    /// Time that never runs backwards, in ticks of 100 ns from an arbitrary start.
    virtual std::int64_t MonotonicTicks() = 0;
};

constexpr std::int64_t kTicksPerSecond = 10000000;
constexpr std::int64_t kTicksPerMillisecond = 10000;

/// Where randomness comes from. The real one asks the kernel; a test's is a generator with a printed seed.
class RandomSource
{
public:
    virtual ~RandomSource() = default;
    virtual void Fill(std::span<std::uint8_t> outBytes) = 0;
};

}  // namespace noxcore

#pragma once

#include <cstdint>

/// Parameters of the process towards the system, under the system's own names. What has no counterpart here is
/// remembered in the HubContext and nothing more. Threading: main thread.

/// How late in the system's shut-down the process wants to be ended. Only remembered: a session manager ends its
/// services by its own order.
bool SetProcessShutdownParameters(std::uint32_t inLevel, std::uint32_t inFlags);

inline constexpr std::uint32_t kErrorMode_FailCriticalErrors = 0x0001;
inline constexpr std::uint32_t kErrorMode_NoFaultDialog = 0x0002;
inline constexpr std::uint32_t kErrorMode_NoOpenFileDialog = 0x8000;

/// Sets how failures reach the user; returns the mode before.
///
/// kErrorMode_FailCriticalErrors: writing to a closed pipe is a failed write and does not end the process.
/// kErrorMode_NoFaultDialog: a fault leaves no core file, and so wakes no reporting dialog. A bit that is taken away
/// again does not undo its effect.
std::uint32_t SetErrorMode(std::uint32_t inMode);

namespace noxcore::config {

/// Takes LD_LIBRARY_PATH, LD_PRELOAD and LD_AUDIT out of the environment: whatever this process was started with, its
/// children load their libraries from the system's places. Before other threads read the environment.
void LimitedDLLHijackFix();

/// Raises the limit of open descriptors as far as the system lets this process. False, with a record, when it cannot.
bool RaiseDescriptorLimit();

}  // namespace noxcore::config

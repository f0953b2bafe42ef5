#pragma once

#include <string_view>

namespace noxcore::debug {

/// Each operation that sets the process up writes one detail record with this message, its `name` and its arguments,
/// so that the log shows in which order a process came up and went down.
inline constexpr std::string_view kPlatformCall = "Platform call";

/// The category of these records.
inline constexpr std::string_view kPlatformCategory = "noxcore";

}  // namespace noxcore::debug

#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace hubctl {

/// Why the system call of this thread that failed last did so.
inline std::string LastError()
{
    return std::error_code(errno, std::generic_category()).message();
}

}  // namespace hubctl

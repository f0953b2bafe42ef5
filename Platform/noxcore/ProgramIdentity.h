#pragma once

#include <memory>
#include <string>

namespace noxcore {

/// Name and version of the running program, as other programs and the data that it writes see them. Filled once at
/// start, before the first service; constant afterwards.
struct ProgramIdentity
{
    std::string mName = "TesselProjectsLocalHub";
    std::string mVersion = "25.3.0.71";  ///< major, minor, patch, build
    std::string mBuild;                  ///< the client build number; empty where none is set

    static std::shared_ptr<const ProgramIdentity> Current();
};

}  // namespace noxcore

#pragma once

#include <string>

/// Version texts of the program, from the constants that it told when its process began.
namespace noxcore::versioninfo {

/// Major, minor and patch version, joined by dots.
std::string GetAppVersionString();
/// The version that preferences are kept for: the major version and ".0", so that a minor update keeps them.
std::string GetAppPrefsVersionString();

}  // namespace noxcore::versioninfo

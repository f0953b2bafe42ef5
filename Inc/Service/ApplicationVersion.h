#pragma once

#include <string>

namespace VantryLocalHub {

/// The version of the running program, as discovery tells it.
struct ApplicationVersion
{
    int mMajor = 25;
    int mMinor = 3;
    int mPatch = 0;
    std::string mBuildNumber;                 ///< the client build number; empty until somebody gives one
    std::string mDataModelVersion = "2.0.1";  ///< of the session repositories that the program writes

    /// The data model's version stands in for a build number that is no whole number.
    [[nodiscard]] std::string ServerVersion() const;
};

}  // namespace VantryLocalHub

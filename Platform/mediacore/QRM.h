#pragma once

#include <string>
#include <string_view>

/// What the quality and resource manager was told of the program it runs in.
struct QRMConfiguration
{
    int mInterfaceVersion = 0;  ///< 0 before QRM_Initialize
    std::string mApplication;
    std::string mApplicationVersion;
    std::string mPreferencesVersion;
    int mFlags = 0;
};

/// Tells the manager of the current context who it works for. Threading: main thread.
void QRM_Initialize(int inInterfaceVersion, std::string_view inApplication, std::string_view inApplicationVersion,
                    std::string_view inPreferencesVersion, int inFlags);
/// What it was told last.
QRMConfiguration QRM_GetConfiguration();

#pragma once

#include <gtest/gtest.h>

#include <string>

#include "Client/VYClient/LocalHub.h"
#include "Platform/noxcore/FileSupport.h"

namespace service_test {

/// Leaves the traces of a login: whoever asks next is this person.
inline void SignIn(const std::string& inGUID, const std::string& inEmail)
{
    auto& files = noxcore::filesupport::Files();
    const std::string folder = VYCL::LocalHub::GetSettingsFolder();
    ASSERT_TRUE(files.EnsureDirectoryExists(folder));
    ASSERT_TRUE(files.WriteFileDurably(
        folder + "/lastlogin.json",
        R"({"serverURL":"","userID":"u","personGUID":")" + inGUID + R"(","userEmail":")" + inEmail + "\"}"));
}

}  // namespace service_test

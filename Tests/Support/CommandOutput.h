#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace testing_support {

/// What a command of the shell writes, to either stream; its failure is the test's.
inline std::string CommandOutput(const std::string& inCommand)
{
    FILE* const pipe = popen((inCommand + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        ADD_FAILURE() << inCommand;
        return {};
    }
    std::string output;
    char buffer[4096];
    while (const std::size_t size = fread(buffer, 1, sizeof(buffer), pipe))
        output.append(buffer, size);
    EXPECT_EQ(0, pclose(pipe)) << inCommand << "\n" << output;
    return output;
}

}  // namespace testing_support

#pragma once

#include <gtest/gtest.h>

#include <string>

#include "Tests/Support/RunCommand.h"

namespace testing_support {

/// What a command prints; its failure is the test's.
inline std::string CommandOutput(const std::string& inCommand)
{
    int status = 0;
    const std::string output = RunCommand(inCommand, status);
    EXPECT_EQ(0, status) << inCommand << "\n" << output;
    return output;
}

}  // namespace testing_support

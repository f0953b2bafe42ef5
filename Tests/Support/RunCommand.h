#pragma once

#include <array>
#include <cstdio>
#include <string>

namespace testing_support {

/// What a command prints; its exit status in outStatus.
inline std::string RunCommand(const std::string& inCommand, int& outStatus)
{
    std::string output;
    FILE* pipe = popen((inCommand + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        outStatus = -1;
        return output;
    }
    std::array<char, 4096> buffer{};
    for (std::size_t size = 0; (size = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
        output.append(buffer.data(), size);
    outStatus = pclose(pipe);
    return output;
}

}  // namespace testing_support

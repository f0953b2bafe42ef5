#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "Tools/hubctl/ProgressBar.h"

namespace hubctl {

/// Keeps a line of a terminal alive while the hub works on one request. How much there is to do only the hub knows, so
/// that the line tells how long it has taken, and how much of the file that it makes is there.
///
/// Threading: the line is written by a thread of its own while the object lives; nobody else writes to the terminal.
class WaitLine
{
public:
    /// inFile: what is made, or empty. With a bar that is not enabled nothing happens at all.
    WaitLine(ProgressBar& inBar, std::string inLabel, std::string inFile);
    ~WaitLine();
    WaitLine(const WaitLine&) = delete;
    WaitLine& operator=(const WaitLine&) = delete;

private:
    void Run();

    ProgressBar& mBar;
    const std::string mLabel;
    const std::string mFile;
    std::mutex mMutex;
    std::condition_variable mEnd;
    bool mIsOver = false;
    std::thread mThread;
};

/// The bytes of a file, or of one that is built beside its place under a name that begins with its own; 0 without one.
std::uint64_t BytesOfFileInTheMaking(const std::string& inFile);

}  // namespace hubctl

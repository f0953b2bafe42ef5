#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>

namespace hubctl {

/// One line of a terminal that tells how far a long step has come. Writes nothing where it is not enabled.
class ProgressBar
{
public:
    ProgressBar(std::ostream& inOut, bool inEnabled) : mOut(inOut), mEnabled(inEnabled) {}
    ~ProgressBar() { Clear(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void Show(const std::string& inLabel, std::size_t inDone, std::size_t inTotal);
    /// Takes the line away, so that others can write.
    void Clear();

private:
    std::ostream& mOut;
    const bool mEnabled;
    std::size_t mShown = 0;  ///< characters of the line as it stands
};

}  // namespace hubctl

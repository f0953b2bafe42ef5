#pragma once

#include <cstddef>
#include <cstdint>
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

    [[nodiscard]] bool IsEnabled() const { return mEnabled; }
    void Show(const std::string& inLabel, std::size_t inDone, std::size_t inTotal);
    /// Of a step whose end nobody knows: something moves with each call. Without bytes these are not told.
    void ShowBusy(const std::string& inLabel, std::size_t inStep, std::uint64_t inSeconds, std::uint64_t inBytes);
    /// Takes the line away, so that others can write.
    void Clear();

private:
    void Write(const std::string& inLine);

    std::ostream& mOut;
    const bool mEnabled;
    std::size_t mShown = 0;  ///< characters of the line as it stands
};

}  // namespace hubctl

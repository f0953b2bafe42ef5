#include "Tools/hubctl/ProgressBar.h"

#include <algorithm>
#include <ostream>

namespace hubctl {

namespace {

constexpr std::size_t kWidth = 30;

}  // namespace

void ProgressBar::Show(const std::string& inLabel, std::size_t inDone, std::size_t inTotal)
{
    if (!mEnabled) return;
    const std::size_t full = inTotal == 0 ? kWidth : std::min(kWidth, inDone * kWidth / inTotal);
    const std::string line = inLabel + " [" + std::string(full, '#') + std::string(kWidth - full, '.') + "] " +
                             std::to_string(inDone) + "/" + std::to_string(inTotal);
    Clear();
    mOut << line << std::flush;
    mShown = line.size();
}

void ProgressBar::Clear()
{
    if (mShown == 0) return;
    mOut << '\r' << std::string(mShown, ' ') << '\r' << std::flush;
    mShown = 0;
}

}  // namespace hubctl

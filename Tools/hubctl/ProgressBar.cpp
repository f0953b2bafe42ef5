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
    Write(inLabel + " [" + std::string(full, '#') + std::string(kWidth - full, '.') + "] " + std::to_string(inDone) +
          "/" + std::to_string(inTotal));
}

void ProgressBar::ShowBusy(const std::string& inLabel, std::size_t inStep, std::uint64_t inSeconds,
                           std::uint64_t inBytes)
{
    if (!mEnabled) return;
    constexpr std::size_t kMoving = 6;
    constexpr std::size_t kWay = kWidth - kMoving;
    const std::size_t turn = inStep % (2 * kWay);
    const std::size_t place = turn <= kWay ? turn : 2 * kWay - turn;
    std::string line = inLabel + " [" + std::string(place, '.') + std::string(kMoving, '#') +
                       std::string(kWay - place, '.') + "] " + std::to_string(inSeconds) + " s";
    if (inBytes != 0) line += ", " + std::to_string(inBytes / 1'000'000) + " MB";
    Write(line);
}

void ProgressBar::Write(const std::string& inLine)
{
    Clear();
    mOut << inLine << std::flush;
    mShown = inLine.size();
}

void ProgressBar::Clear()
{
    if (mShown == 0) return;
    mOut << '\r' << std::string(mShown, ' ') << '\r' << std::flush;
    mShown = 0;
}

}  // namespace hubctl

#include "Tools/hubctl/Table.h"

#include <algorithm>
#include <ostream>

#include "Tools/hubctl/UTF8Text.h"

namespace hubctl {

namespace {

/// Characters, not bytes: all but the continuation bytes of UTF-8.
std::size_t Width(const std::string& inText)
{
    return static_cast<std::size_t>(std::count_if(
        inText.begin(), inText.end(), [](char inChar) { return (static_cast<unsigned char>(inChar) & 0xc0) != 0x80; }));
}

}  // namespace

void Table::Add(std::vector<std::string> inCells)
{
    for (std::string& cell : inCells)
        cell = Printable(cell);
    inCells.resize(mRows.front().size());
    mRows.push_back(std::move(inCells));
}

void Table::Print(std::ostream& outStream) const
{
    std::vector<std::size_t> widths(mRows.front().size());
    for (const auto& row : mRows) {
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], Width(row[i]));
    }
    for (const auto& row : mRows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) line += std::string(widths[i] - Width(row[i]) + 2, ' ');
        }
        outStream << line << '\n';
    }
}

}  // namespace hubctl

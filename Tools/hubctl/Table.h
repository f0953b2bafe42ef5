#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace hubctl {

/// Columns for people. Cells are made printable.
class Table
{
public:
    explicit Table(std::vector<std::string> inHeadings) { mRows.push_back(std::move(inHeadings)); }
    void Add(std::vector<std::string> inCells);
    void Print(std::ostream& outStream) const;

private:
    std::vector<std::vector<std::string>> mRows;  ///< the headings first
};

}  // namespace hubctl

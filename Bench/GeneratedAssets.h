#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

/// An asset as every contender stores it: 1 KB of properties and one enclosure of 4 KB.
struct GeneratedAsset
{
    std::string mID;
    std::string mProperties;
    std::string mEnclosureID;
    std::string mEnclosureName;
    std::string mContent;
};

/// The same assets on every run, whatever asks for them. An edit above 0 gives other properties for the same asset.
///
/// Half of an enclosure is noise and half is text, as the payloads of editing applications are binary tables with
/// names between. Threading: any thread.
class GeneratedAssets
{
public:
    GeneratedAssets();
    [[nodiscard]] GeneratedAsset Make(std::size_t inIndex, std::size_t inEdit = 0) const;

private:
    std::vector<std::string> mProperties;  ///< a few, each asset gets one with its own id and numbers put in
    std::vector<std::string> mContents;
};

/// A media locator as every contender stores it: its id, and 1 KB of properties like those of a camera clip.
struct GeneratedLocator
{
    std::string mID;
    std::string mProperties;
};
/// The same on every run. An edit above 0 gives other properties for the same locator.
GeneratedLocator MakeLocator(std::size_t inIndex, std::size_t inEdit = 0);

/// Prints one measurement as a line of JSON, which the script reads: {"name":value,...}.
class Report
{
public:
    void Add(const char* inName, double inValue);
    /// p50, p90, p99 and max of seconds, as milliseconds.
    void AddPercentiles(std::vector<double> inSeconds);
    void Print();

private:
    std::string mText;
};

/// Of at least one value.
double Median(std::vector<double> inValues);

/// What a round of media locators consists of, whoever the contender is.
template <class Round>
void ReportLocators(Round& ioRound, std::size_t inLocators)
{
    Report report;
    report.Add("add", 1000 * ioRound.WriteBatch(inLocators, 0));
    report.Add("replace", 1000 * ioRound.WriteBatch(inLocators, 1));
    report.Add("read", 1000 * ioRound.ReadBack(inLocators));
    report.AddPercentiles(ioRound.Edit(inLocators));
    report.Print();
}

/// Seconds of a clock that only goes forward.
double Now();
/// The most memory that the process has had, in megabytes.
double PeakMegabytes();

}  // namespace bench

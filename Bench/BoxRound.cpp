// One round of the project store: a session, one commit of many assets, then edits of one asset each.
//
//   box_round <empty folder> <assets> <edits>

#include <algorithm>
#include <random>

#include "Bench/BoxSession.h"
#include "Platform/noxcore/FileSupport.h"

namespace {

using namespace bench;

std::vector<double> EditOneByOne(BoxSession& ioSession, std::size_t inAssets, std::size_t inEdits)
{
    const GeneratedAssets assets;
    std::mt19937_64 random(77);
    std::vector<double> times;
    for (std::size_t edit = 1; edit <= inEdits; ++edit) {
        GeneratedAsset asset = assets.Make(random() % inAssets, edit);
        const double start = Now();
        const ImmutableString transaction = ioSession.Open();
        ioSession.Edit(transaction, std::move(asset));
        ioSession.Commit(transaction);
        times.push_back(Now() - start);
    }
    return times;
}

double FolderMegabytes(const std::string& inFolder)
{
    return static_cast<double>(noxcore::filesupport::Files().Size(inFolder)) / 1e6;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) return 2;
    const std::string home = argv[1];
    const auto assets = static_cast<std::size_t>(std::strtoull(argv[2], nullptr, 10));
    const auto edits = static_cast<std::size_t>(std::strtoull(argv[3], nullptr, 10));
    const auto store = OpenStore(home);
    BoxSession session(*store);
    Report report;
    report.Add("seconds", CommitAll(session, assets));
    report.Add("peak", PeakMegabytes());
    report.Add("megabytes", FolderMegabytes(home));
    if (edits != 0) {
        const double before = FolderMegabytes(home);
        std::vector<double> times = EditOneByOne(session, assets, edits);
        const std::size_t part = std::min<std::size_t>(times.size(), 500);
        report.Add("first", 1000 * Median({times.begin(), times.begin() + static_cast<std::ptrdiff_t>(part)}));
        report.Add("last", 1000 * Median({times.end() - static_cast<std::ptrdiff_t>(part), times.end()}));
        report.AddPercentiles(std::move(times));
        report.Add("bytes_a_commit", 1e6 * (FolderMegabytes(home) - before) / static_cast<double>(edits));
    }
    report.Print();
    return 0;
}

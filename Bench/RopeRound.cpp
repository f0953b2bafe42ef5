// One round of single-file projects: a session folder is filled, copied into a file, and that thinned into another;
// then both are edited in turn, and the file is closed and opened.
//
//   rope_round <empty folder> <assets> <edits>

#include <unistd.h>

#include <filesystem>
#include <random>

#include "Bench/BoxSession.h"

namespace {

using namespace bench;

double EditOne(BoxSession& ioSession, std::size_t inAsset, std::size_t inEdit)
{
    GeneratedAsset asset = GeneratedAssets().Make(inAsset, inEdit);
    const double start = Now();
    const ImmutableString transaction = ioSession.Open();
    ioSession.Edit(transaction, std::move(asset));
    ioSession.Commit(transaction);
    return 1000 * (Now() - start);
}

void EditInTurn(BoxSession& ioFolder, BoxSession& ioFile, std::size_t inAssets, std::size_t inEdits, Report& ioReport)
{
    std::mt19937_64 random(77);
    std::vector<double> ofFolder;
    std::vector<double> ofFile;
    for (std::size_t edit = 1; edit <= inEdits; ++edit) {
        const std::size_t asset = random() % inAssets;
        ofFolder.push_back(EditOne(ioFolder, asset, edit));
        ofFile.push_back(EditOne(ioFile, asset, edit));
    }
    ioReport.Add("folder_edit", Median(ofFolder));
    ioReport.Add("file_edit", Median(ofFile));
}

/// Seconds from the request to open the file until its session is answered.
double Reopen(GitBox::GitBox& inStore, const ImmutableString& inSession, const std::string& inFile)
{
    Check(inStore.ClearSandbox(inSession) == 200, "closing");
    dto::Session session;
    const double start = Now();
    Check(inStore.OpenRopeFile(inFile, session) == 200, "opening the file");
    return Now() - start;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) return 2;
    const std::string home = argv[1];
    const auto assets = static_cast<std::size_t>(std::strtoull(argv[2], nullptr, 10));
    const auto edits = static_cast<std::size_t>(std::strtoull(argv[3], nullptr, 10));
    const auto store = OpenStore(home);
    const std::string file = home + "/copy.lyr";
    Report report;
    BoxSession folder(*store);
    report.Add("load", CommitAll(folder, assets));
    Settle(folder);
    dto::Session copy;
    ::sync();  // each begins with a disk at rest, as the peer does
    double start = Now();
    Check(store->CopyToRopeFile(folder.ID(), {}, file, false, copy) == 201, "copying");
    report.Add("copy", Now() - start);
    ::sync();
    start = Now();
    Check(store->ThinHistoryToRopeFile(copy.mIdentifier, home + "/thin.lyr", {}) == 200, "thinning");
    report.Add("thin", Now() - start);
    report.Add("megabytes", static_cast<double>(std::filesystem::file_size(home + "/thin.lyr")) / 1e6);
    report.Add("peak", PeakMegabytes());
    BoxSession inFile(*store, copy);
    EditInTurn(folder, inFile, assets, edits, report);
    report.Add("open", 1000 * Reopen(*store, copy.mIdentifier, file));
    report.Print();
    return 0;
}

// Reading out of a large session that has come to rest.
//
//   read_round make <empty home> <assets>   makes it: all assets, then a commit of one edit, then one of 1000.
//                                           Prints session, and the three revisions.
//   read_round read <home> <session> <first> <second> <third> <seed>
//                                           One round: all assets of the last revision, single assets, differences.

#include <chrono>
#include <cstring>
#include <random>
#include <thread>

#include "Bench/BoxSession.h"

namespace {

using namespace bench;

constexpr std::size_t kManyEdits = 1000;
constexpr std::size_t kSingleReads = 5000;
constexpr std::size_t kDifferences = 30;
constexpr std::chrono::seconds kUntilAtRest(4);  ///< the index and the file are put in order while nobody writes

void Make(const std::string& inHome, std::size_t inAssets)
{
    const auto store = OpenStore(inHome);
    const GeneratedAssets assets;
    BoxSession session(*store);
    std::printf("%s", session.ID().c_str());
    ImmutableString transaction = session.Open();
    for (std::size_t index = 0; index < inAssets; ++index)
        session.Add(transaction, assets.Make(index));
    std::printf(" %s", session.Commit(transaction).c_str());
    std::size_t edit = 0;
    for (const std::size_t edits : {std::size_t{1}, kManyEdits}) {
        transaction = session.Open();
        for (std::size_t index = 0; index < edits; ++index)
            session.Edit(transaction, assets.Make(index * (inAssets / edits) + 3, ++edit));
        std::printf(" %s", session.Commit(transaction).c_str());
    }
    std::printf("\n");
    std::fflush(stdout);
    std::this_thread::sleep_for(kUntilAtRest);
}

/// In a store where nothing of the session has been read yet.
double ReadAll(GitBox::GitBox& inStore, const ImmutableString& inSession, AssetListPtr& outAssets)
{
    const double start = Now();
    Check(inStore.GetAssets(inSession, {}, {}, true, outAssets) == 200 && !outAssets->empty(), "reading");
    return Now() - start;
}

std::vector<double> ReadOneByOne(GitBox::GitBox& inStore, const ImmutableString& inSession,
                                 const std::vector<dto::Asset>& inAssets, std::size_t inSeed)
{
    std::mt19937_64 random(inSeed);
    std::vector<double> times;
    for (std::size_t count = 0; count < 2 * kSingleReads; ++count) {
        const ImmutableString& id = inAssets[random() % inAssets.size()].mAssetID;
        dto::Asset asset;
        const double start = Now();
        Check(inStore.GetAsset(inSession, {}, id, asset) == 200, "reading an asset");
        if (count >= kSingleReads) times.push_back(Now() - start);  // the trees are warm from here on
    }
    return times;
}

/// There and back in turn: the last difference that was asked for is kept by the store, and would be no work.
double Differ(GitBox::GitBox& inStore, const ImmutableString& inSession, const ImmutableString& inFrom,
              const ImmutableString& inTo, std::size_t inEdits)
{
    std::vector<double> times;
    for (std::size_t count = 0; count < 2 * kDifferences; ++count) {
        const bool back = count % 2 != 0;
        SessionDifferences differences;
        const double start = Now();
        Check(inStore.GetDifferences(inSession, back ? inTo : inFrom, back ? inFrom : inTo, differences) == 200 &&
                  differences.mEditedAssets.size() == inEdits,
              "difference");
        times.push_back(Now() - start);
    }
    return Median(times);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && std::strcmp(argv[1], "make") == 0) {
        Make(argv[2], static_cast<std::size_t>(std::strtoull(argv[3], nullptr, 10)));
        return 0;
    }
    if (argc != 8 || std::strcmp(argv[1], "read") != 0) return 2;
    const auto store = OpenStore(argv[2]);
    const ImmutableString session(argv[3]);
    Report report;
    AssetListPtr assets;
    report.Add("all", ReadAll(*store, session, assets));
    report.AddPercentiles(ReadOneByOne(*store, session, *assets, std::strtoull(argv[7], nullptr, 10)));
    report.Add("one", Differ(*store, session, ImmutableString(argv[4]), ImmutableString(argv[5]), 1));
    report.Add("many", Differ(*store, session, ImmutableString(argv[5]), ImmutableString(argv[6]), kManyEdits));
    report.Print();
    return 0;
}

// One round of the project store: a session, one commit of many assets, then edits of one asset each.
//
//   box_round <empty folder> <assets> <edits>

#include <cstdlib>
#include <random>

#include "Bench/GeneratedAssets.h"
#include "Client/VYClient/Environment.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/GitBox.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/HubContext.h"

namespace {

using namespace VantryLocalHub;

void Check(bool inHolds, const char* inWhat)
{
    if (inHolds) return;
    std::fprintf(stderr, "box_round: %s failed\n", inWhat);
    std::exit(1);
}

AssetContent ToContent(bench::GeneratedAsset inAsset, bool inWithEnclosure)
{
    AssetContent content;
    content.mAsset.mProperties = dto::RawJSON(std::move(inAsset.mProperties));
    if (!inWithEnclosure) return content;
    EnclosureContent enclosure;
    enclosure.mEnclosure.mEnclosureID = inAsset.mEnclosureID;
    enclosure.mEnclosure.mName = std::move(inAsset.mEnclosureName);
    enclosure.mPayload = noxcore::utility::MakeRecycledMemory(std::move(inAsset.mContent));
    content.mEnclosures.push_back(std::move(enclosure));
    return content;
}

class Round
{
public:
    explicit Round(GitBox::GitBox& inStore) : mStore(inStore)
    {
        Check(mStore.CreateSession({}, {dto::RawJSON(R"({"name":"Bench"})"), {}}, SessionKind::LocalOnly, mSession) ==
                  201,
              "creation");
    }

    double CommitAll(std::size_t inAssets)
    {
        const double start = bench::Now();
        const ImmutableString transaction = Open();
        for (std::size_t index = 0; index < inAssets; ++index) {
            bench::GeneratedAsset asset = mAssets.Make(index);
            const ImmutableString id(asset.mID);
            dto::Asset added;
            Check(mStore.AddAsset(transaction, id, ToContent(std::move(asset), true), added) == 200, "adding");
        }
        Commit(transaction);
        return bench::Now() - start;
    }

    std::vector<double> Edit(std::size_t inAssets, std::size_t inEdits)
    {
        std::mt19937_64 random(77);
        std::vector<double> times;
        for (std::size_t edit = 1; edit <= inEdits; ++edit) {
            bench::GeneratedAsset asset = mAssets.Make(random() % inAssets, edit);
            const double start = bench::Now();
            const ImmutableString transaction = Open();
            const ImmutableString id(asset.mID);
            dto::Asset edited;
            Check(mStore.EditAsset(transaction, id, ToContent(std::move(asset), false), edited) == 200, "editing");
            Commit(transaction);
            times.push_back(bench::Now() - start);
        }
        return times;
    }

    double ReadAll(std::size_t inAssets)
    {
        const double start = bench::Now();
        std::vector<dto::Asset> assets;
        Check(mStore.GetAssets(mSession.mIdentifier, {}, {}, true, assets) == 200 && assets.size() == inAssets,
              "reading");
        return bench::Now() - start;
    }

private:
    ImmutableString Open()
    {
        dto::TransactionResource transaction;
        Check(mStore.OpenTransaction(mSession.mIdentifier, {}, VYCL::GetTransactionType_Edit(), {}, transaction) == 201,
              "opening");
        return transaction.mTransactionID;
    }

    void Commit(const ImmutableString& inTransaction)
    {
        CommitOutcome outcome;
        Check(mStore.FlushTransactionContent(inTransaction) == 200, "flushing");
        Check(mStore.CommitTransaction(inTransaction, {"bench"}, false, outcome) == 200, "committing");
    }

    GitBox::GitBox& mStore;
    dto::Session mSession;
    const bench::GeneratedAssets mAssets;
};

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
    noxcore::HubContext::Current()->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(home));
    const auto store = std::make_shared<GitBox::GitBox>(true);
    Round round(*store);
    bench::Report report;
    report.Add("seconds", round.CommitAll(assets));
    report.Add("peak", bench::PeakMegabytes());
    report.Add("megabytes", FolderMegabytes(home));
    report.Add("read", round.ReadAll(assets));
    if (edits != 0) {
        const double before = FolderMegabytes(home);
        report.AddPercentiles(round.Edit(assets, edits));
        report.Add("bytes_a_commit", 1e6 * (FolderMegabytes(home) - before) / static_cast<double>(edits));
    }
    report.Print();
    return 0;
}

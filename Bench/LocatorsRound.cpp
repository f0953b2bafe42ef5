// One round of the media locators of a session: a batch added, the same batch replaced, read back as what the remote
// side does not know, and edits of one locator each. Times are in milliseconds.
//
//   locators_round <empty folder> <locators>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "Bench/GeneratedAssets.h"
#include "Client/VYClient/Environment.h"
#include "Inc/Model/GitBox.h"
#include "Platform/noxcore/HubContext.h"

namespace {

using namespace VantryLocalHub;

constexpr int kReads = 5;
constexpr std::size_t kEdits = 500;

void Check(bool inHolds, const char* inWhat)
{
    if (inHolds) return;
    std::fprintf(stderr, "locators_round: %s failed\n", inWhat);
    std::exit(1);
}

dto::MediaLocator ToLocator(bench::GeneratedLocator inGenerated)
{
    dto::MediaLocator locator;
    locator.mMediaLocatorID = inGenerated.mID;
    locator.mProperties = dto::RawJSON(std::move(inGenerated.mProperties));
    return locator;
}

class Round
{
public:
    explicit Round(GitBox::GitBox& inStore) : mStore(inStore)
    {
        dto::Session session;
        Check(
            mStore.CreateSession({}, {dto::RawJSON(R"({"name":"Bench"})"), {}}, SessionKind::LocalOnly, session) == 201,
            "creation");
        mID = session.mIdentifier;
        dto::MediaLocator known = ToLocator({"known", "{}"});
        Check(mStore.AddMediaLocator(mID, WriteMode::LocalEdit, known) == 200, "adding one");
        Check(mStore.SetMediaLocatorSyncChangeCount(mID, {1}), "exchange");
    }

    double WriteBatch(std::size_t inLocators, std::size_t inEdit)
    {
        std::vector<dto::MediaLocator> batch;
        for (std::size_t index = 0; index < inLocators; ++index)
            batch.push_back(ToLocator(bench::MakeLocator(index, inEdit)));
        const double start = bench::Now();
        Check(mStore.AddMediaLocators(mID, WriteMode::LocalEdit, batch) == 200, "adding a batch");
        return bench::Now() - start;
    }

    double ReadBack(std::size_t inLocators)
    {
        std::vector<double> times;
        for (int read = 0; read < kReads; ++read) {
            std::vector<dto::MediaLocator> locators;
            SyncChangeCount count;
            const double start = bench::Now();
            Check(mStore.GetUnsynchronizedLocallyModifiedMediaLocators(mID, locators, count) == 200 &&
                      locators.size() == inLocators,
                  "reading back");
            times.push_back(bench::Now() - start);
        }
        std::sort(times.begin(), times.end());
        return times[times.size() / 2];
    }

    std::vector<double> Edit(std::size_t inLocators)
    {
        std::mt19937_64 random(77);
        std::vector<double> times;
        for (std::size_t edit = 1; edit <= kEdits; ++edit) {
            dto::MediaLocator locator = ToLocator(bench::MakeLocator(random() % inLocators, edit));
            const double start = bench::Now();
            Check(mStore.EditMediaLocator(mID, {}, WriteMode::LocalEdit, locator) == 200, "editing");
            times.push_back(bench::Now() - start);
        }
        return times;
    }

private:
    GitBox::GitBox& mStore;
    ImmutableString mID;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    const auto locators = static_cast<std::size_t>(std::strtoull(argv[2], nullptr, 10));
    noxcore::HubContext::Current()->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(argv[1]));
    const auto store = std::make_shared<GitBox::GitBox>(true);
    Round round(*store);
    bench::Report report;
    report.Add("add", 1000 * round.WriteBatch(locators, 0));
    report.Add("replace", 1000 * round.WriteBatch(locators, 1));
    report.Add("read", 1000 * round.ReadBack(locators));
    report.AddPercentiles(round.Edit(locators));
    report.Print();
    return 0;
}

// One round of the media locators of a session: a batch added, the same batch replaced, read back as what the remote
// side does not know, and edits of one locator each. Times are in milliseconds.
//
//   locators_round <empty folder> <locators>

#include <random>

#include "Bench/BoxSession.h"

namespace {

using namespace bench;

constexpr int kReads = 5;
constexpr std::size_t kEdits = 500;

dto::MediaLocator ToLocator(GeneratedLocator inGenerated)
{
    dto::MediaLocator locator;
    locator.mMediaLocatorID = inGenerated.mID;
    locator.mProperties = dto::RawJSON(std::move(inGenerated.mProperties));
    return locator;
}

class Round
{
public:
    explicit Round(GitBox::GitBox& inStore) : mStore(inStore), mID(BoxSession(inStore).ID())
    {
        dto::MediaLocator known = ToLocator({"known", "{}"});
        Check(mStore.AddMediaLocator(mID, WriteMode::LocalEdit, known) == 200, "adding one");
        Check(mStore.SetMediaLocatorSyncChangeCount(mID, {1}), "exchange");
    }

    double WriteBatch(std::size_t inLocators, std::size_t inEdit)
    {
        std::vector<dto::MediaLocator> batch;
        for (std::size_t index = 0; index < inLocators; ++index)
            batch.push_back(ToLocator(MakeLocator(index, inEdit)));
        const double start = Now();
        Check(mStore.AddMediaLocators(mID, WriteMode::LocalEdit, batch) == 200, "adding a batch");
        return Now() - start;
    }

    double ReadBack(std::size_t inLocators)
    {
        std::vector<double> times;
        for (int read = 0; read < kReads; ++read) {
            std::vector<dto::MediaLocator> locators;
            SyncChangeCount count;
            const double start = Now();
            Check(mStore.GetUnsynchronizedLocallyModifiedMediaLocators(mID, locators, count) == 200 &&
                      locators.size() == inLocators,
                  "reading back");
            times.push_back(Now() - start);
        }
        return Median(std::move(times));
    }

    std::vector<double> Edit(std::size_t inLocators)
    {
        std::mt19937_64 random(77);
        std::vector<double> times;
        for (std::size_t edit = 1; edit <= kEdits; ++edit) {
            dto::MediaLocator locator = ToLocator(MakeLocator(random() % inLocators, edit));
            const double start = Now();
            Check(mStore.EditMediaLocator(mID, {}, WriteMode::LocalEdit, locator) == 200, "editing");
            times.push_back(Now() - start);
        }
        return times;
    }

private:
    GitBox::GitBox& mStore;
    const ImmutableString mID;
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    const auto locators = static_cast<std::size_t>(std::strtoull(argv[2], nullptr, 10));
    const auto store = OpenStore(argv[1]);
    Round round(*store);
    ReportLocators(round, locators);
    return 0;
}

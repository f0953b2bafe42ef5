// One round of copies: a session of many assets and of large enclosures is copied into a folder and into a file, and
// packed into a snapshot, which is opened.
//
//   copy_round <empty folder> <assets> <megabytes of enclosures>

#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "Bench/BoxSession.h"
#include "Platform/noxcore/ProcessMemory.h"

namespace {

using namespace bench;

constexpr std::size_t kEnclosureMegabytes = 64;

/// Content that nothing makes smaller.
noxcore::utility::ConstRecycledMemoryPtr MakeNoise(std::uint64_t inSeed)
{
    std::mt19937_64 random(inSeed);
    std::string bytes(kEnclosureMegabytes << 20U, '\0');
    for (std::size_t place = 0; place < bytes.size(); place += sizeof(std::uint64_t)) {
        const std::uint64_t value = random();
        std::memcpy(bytes.data() + place, &value, sizeof value);
    }
    return noxcore::utility::MakeRecycledMemory(std::move(bytes));
}

void AddEnclosures(GitBox::GitBox& inStore, BoxSession& ioSession, std::size_t inMegabytes)
{
    const ImmutableString transaction = ioSession.Open();
    for (std::size_t count = 0; count * kEnclosureMegabytes < inMegabytes; ++count) {
        EnclosureContent content;
        content.mEnclosure.mName = "footage " + std::to_string(count);
        content.mPayload = MakeNoise(count);
        dto::Enclosure added;
        Check(inStore.AddOrUpdateProductionEnclosure(transaction, content, added) == 200, "an enclosure");
    }
    ioSession.Commit(transaction);
}

/// What a session is made of: the content ids of its assets and of all enclosures. The payloads of the large ones are
/// read, and are what their ids say.
std::vector<std::string> ContentIDs(GitBox::GitBox& inStore, const ImmutableString& inSession)
{
    AssetListPtr assets;
    std::vector<dto::Enclosure> enclosures;
    Check(inStore.GetAssets(inSession, {}, {}, true, assets) == 200, "reading the assets");
    Check(inStore.GetProductionEnclosures(inSession, {}, enclosures) == 200, "reading the enclosures");
    std::vector<std::string> ids;
    for (const dto::Asset& asset : *assets) {
        ids.push_back(asset.mAssetID.Text() + " " + asset.mAssetContentID.Text());
        for (const dto::Enclosure& enclosure : asset.mEnclosures)
            ids.push_back(enclosure.mEnclosureID.Text() + " " + enclosure.mEnclosureContentID.Text());
    }
    for (const dto::Enclosure& enclosure : enclosures) {
        noxcore::utility::ConstRecycledMemoryPtr payload;
        dto::Enclosure ignored;
        Check(inStore.GetProductionEnclosure(inSession, {}, enclosure.mEnclosureID, ignored, payload) == 200,
              "reading");
        const ImmutableString content = inStore.ComputeContentHash(inSession, payload);
        Check(content == enclosure.mEnclosureContentID, "the content of an enclosure");
        ids.push_back(enclosure.mEnclosureID.Text() + " " + content.Text());
    }
    return ids;
}

/// The memory of the process that is no file's.
double OwnMegabytes()
{
    std::ifstream statm("/proc/self/statm");
    double size = 0;
    double resident = 0;
    double shared = 0;
    statm >> size >> resident >> shared;
    return (resident - shared) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

/// Watches how much memory some work takes beyond what there was before.
class MemoryWatch
{
public:
    MemoryWatch()
        : mThread([this] {
              while (!mStop) {
                  mMost = std::max(mMost, OwnMegabytes());
                  std::this_thread::sleep_for(std::chrono::milliseconds(5));
              }
          })
    {
    }
    ~MemoryWatch()
    {
        if (mThread.joinable()) End();
    }
    double End()
    {
        mStop = true;
        mThread.join();
        return mMost - mBefore;
    }

private:
    const double mBefore = OwnMegabytes();
    double mMost = mBefore;
    std::atomic<bool> mStop{false};
    std::thread mThread;
};

/// Seconds and megabytes of a piece of work.
template <class Work>
void Measure(Report& ioReport, const char* inName, const Work& inWork)
{
    noxcore::process::GiveBackFreeMemory();
    MemoryWatch memory;
    const double start = Now();
    Check(inWork(), inName);
    ioReport.Add(inName, Now() - start);
    ioReport.Add((std::string(inName) + "_memory").c_str(), memory.End());
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) return 2;
    const std::string home = argv[1];
    const auto assets = static_cast<std::size_t>(std::strtoull(argv[2], nullptr, 10));
    const auto megabytes = static_cast<std::size_t>(std::strtoull(argv[3], nullptr, 10));
    const auto store = OpenStore(home);
    Report report;
    BoxSession session(*store);
    double start = Now();
    CommitAll(session, assets);
    if (megabytes != 0) AddEnclosures(*store, session, megabytes);
    report.Add("load", Now() - start);
    Settle(session);
    dto::Session copy;
    dto::Session opened;
    Measure(report, "copy", [&] { return store->CopySessionToLyra2(session.ID(), {}, {}, copy) == 201; });
    Measure(report, "file",
            [&] { return store->CopyToRopeFile(session.ID(), {}, home + "/copy.lyr", false, opened) == 201; });
    Measure(report, "take",
            [&] { return store->TakeSnapshot(session.ID(), {}, {}, {}, home + "/snapshot.zip") == 200; });
    const ImmutableString file = opened.mIdentifier;
    Measure(report, "extract", [&] { return store->ExtractSnapshot(home + "/snapshot.zip", {}, opened) == 200; });
    const std::vector<std::string> source = ContentIDs(*store, session.ID());
    for (const ImmutableString& other : {copy.mIdentifier, file, opened.mIdentifier})
        Check(ContentIDs(*store, other) == source, "a copy has other content");
    report.Add("megabytes", static_cast<double>(std::filesystem::file_size(home + "/snapshot.zip")) / 1e6);
    report.Print();
    return 0;
}

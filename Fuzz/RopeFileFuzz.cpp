// A single-file project that was changed in places: it is opened and read, or refused with a record in the log. One
// that is refused stays as it is; one that was opened opens again, at the same revision.
//
// The input: where the file ends, in 256ths of it (0: where it does), then changes of it, each a place in three bytes
// and the byte that comes there.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <source_location>
#include <utility>

#include "Fuzz/FuzzHub.h"
#include "Inc/Model/GitBox.h"
#include "Inc/Model/GitBoxSandboxes.h"

namespace {

using namespace VantryLocalHub;
using noxcore::utility::CopyToRecycledMemory;

constexpr std::size_t kChangeSize = 4;

void Require(bool inHolds, const std::source_location& inWhere = std::source_location::current())
{
    if (inHolds) return;
    std::fprintf(stderr, "line %u does not hold\n", static_cast<unsigned>(inWhere.line()));
    std::abort();
}

/// Some of everything, small.
void Fill(GitBox::GitBox& inStore, const ImmutableString& inSession)
{
    for (int number = 0; number < 4; ++number) {
        dto::TransactionResource transaction;
        CommitOutcome outcome;
        dto::Asset added;
        AssetContent asset;
        EnclosureContent enclosure;
        asset.mAsset.mProperties = dto::RawJSON(R"({"name":")" + std::string(std::size_t{100} << number, 'n') + "\"}");
        enclosure.mEnclosure.mName = "payload";
        enclosure.mPayload =
            CopyToRecycledMemory(std::string(std::size_t{2000} << number, static_cast<char>('a' + number)));
        asset.mEnclosures.push_back(enclosure);
        Require(inStore.OpenTransaction(inSession, {}, "edit", {}, transaction) < 300 &&
                inStore.AddAsset(transaction.mTransactionID, {}, asset, added) < 300 &&
                inStore.CommitTransaction(transaction.mTransactionID, {"a commit"}, false, outcome) < 300);
    }
    dto::MediaLocator locator;
    locator.mMediaLocatorID = "locator";
    dto::UserEnclosure enclosure;
    enclosure.mName = "notes";
    Require(inStore.AddMediaLocator(inSession, WriteMode::LocalEdit, locator) < 300);
    Require(inStore.AddUserEnclosure(inSession, "ann", WriteMode::LocalEdit, CopyToRecycledMemory("mine"), enclosure) <
            300);
    Require(inStore.WriteRopeFileValue(inSession, "key", "value") < 300);
}

void ReadAll(GitBox::GitBox& inStore, const ImmutableString& inSession)
{
    AssetListPtr assets;
    ConstRecycledMemoryPtr payload;
    if (inStore.GetAssets(inSession, {}, {}, true, assets) == 200 && assets)
        for (const dto::Asset& asset : *assets)
            for (const dto::Enclosure& enclosure : asset.mEnclosures)
                inStore.GetAssetEnclosureByContentHash(inSession, enclosure.mEnclosureContentID, payload);
    std::vector<StoredVersion> versions;
    std::size_t total = 0;
    inStore.GetSessionHistory(inSession, 0, 100, versions, total);
    std::vector<dto::MediaLocator> locators;
    inStore.GetMediaLocators(inSession, locators);
    std::vector<dto::UserEnclosure> enclosures;
    inStore.GetUserEnclosures(inSession, "ann", enclosures);
    std::string value;
    inStore.ReadRopeFileValue(inSession, "key", value);
    SyncPoint point;
    inStore.ReadLatestSyncPoint(inSession, point);
}

/// Without what SQLite itself notes in the head when a file says that a log belongs to it: how it is written, how often
/// it was, and how many pages there are.
std::string WithoutState(std::string inFile)
{
    constexpr std::pair<std::size_t, std::size_t> kFields[] = {{18, 2}, {24, 8}, {92, 8}};
    for (const auto& [place, size] : kFields)
        for (std::size_t byte = place; byte < std::min(place + size, inFile.size()); ++byte)
            inFile[byte] = 0;
    return inFile;
}

class Opener
{
public:
    Opener()
    {
        // The file holds its path: it is made at the same one in each run.
        const std::string folder = fuzzing::fs::temp_directory_path() / "hub-fuzz-base";
        fuzzing::fs::remove_all(folder);
        fuzzing::fs::create_directories(folder);
        dto::Session session;
        const std::string file = folder + "/Film.lyr";
        Require(mStore->CreateRopeFile(file, {dto::RawJSON(R"({"name":"Film"})"), {}}, true, session) == 201);
        Fill(*mStore, session.mIdentifier);
        Close(session.mIdentifier);
        mFile = fuzzing::ReadWhole(file);
        fuzzing::fs::remove_all(folder);
    }

    void Try(const std::string& inChanged)
    {
        const std::string file = mHub.Begin("Film.lyr", inChanged);
        dto::Session session;
        const int status = mStore->OpenRopeFile(file, session);
        if (status != 200) {
            Require(status == 500 && mHub.LogRecords() != 0);
            Require(WithoutState(fuzzing::ReadWhole(file)) == WithoutState(inChanged));
            return;
        }
        ReadAll(*mStore, session.mIdentifier);
        Close(session.mIdentifier);
        dto::Session again;
        Require(mStore->OpenRopeFile(file, again) == 200 && again.mRevision == session.mRevision);
        Close(again.mIdentifier);
    }
    [[nodiscard]] const std::string& File() const { return mFile; }

private:
    void Close(const ImmutableString& inSession)
    {
        const auto sandbox = GitBox::Sandboxes::Instance()->FindSandbox(inSession);
        sandbox->ReleaseDB();
        Require(mStore->ClearSandbox(inSession) == 200);
    }

    fuzzing::FuzzHub mHub;
    const std::shared_ptr<GitBox::GitBox> mStore = std::make_shared<GitBox::GitBox>(true);
    std::string mFile;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* inData, std::size_t inSize)
{
    static auto& opener = *new Opener();
    if (inSize == 0) return 0;
    std::string changed = opener.File();
    for (std::size_t change = 1; change + kChangeSize <= inSize; change += kChangeSize) {
        const std::size_t place = inData[change] | inData[change + 1] << 8 | inData[change + 2] << 16;
        changed[place % changed.size()] = static_cast<char>(inData[change + 3]);
    }
    if (inData[0] != 0) changed.resize(changed.size() * inData[0] / 256);
    opener.Try(changed);
    return 0;
}

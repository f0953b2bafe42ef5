#include "Tests/Durability/Ledger.h"

#include "Tests/Durability/Work.h"

namespace durability {

namespace {

void AddAsset(const NumberedAsset& inAsset, Content& ioContent)
{
    const std::string name = "asset " + inAsset.mID;
    ioContent[name] = inAsset.mProperties;
    for (const auto& [enclosure, payload] : inAsset.mEnclosures)
        ioContent[name + "/" + enclosure] = HashOf(payload);
}

}  // namespace

Content InitialContent()
{
    return {{"properties", std::string(kInitialProperties)}};
}

Content ContentAfterCommit(Content inBefore, int inNumber)
{
    const NumberedCommit commit(inNumber);
    for (const NumberedAsset& asset : commit.mAssets)
        AddAsset(asset, inBefore);
    if (inBefore.erase("asset " + commit.mDeletedAsset) != 0) {
        const std::string enclosures = "asset " + commit.mDeletedAsset + "/";
        std::erase_if(inBefore, [&](const auto& inEntry) { return inEntry.first.starts_with(enclosures); });
    }
    inBefore["enclosure " + std::string(kProductionEnclosure)] = HashOf(commit.mProductionPayload);
    inBefore["properties"] = commit.mProperties;
    return inBefore;
}

}  // namespace durability

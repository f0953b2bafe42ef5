#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "Inc/Model/GitBoxIOZip.h"
#include "Inc/Model/StoreRecords.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"

namespace testing_support {

/// Adds a commit to a packed session with properties that no hub writes, of the session or of an asset.
inline void WritePropertiesIntoPacked(const std::string& inFile, const std::string& inProperties,
                                      const std::string& inAssetID = {})
{
    namespace IO = VantryLocalHub::GitBox::IO;
    namespace dto = VantryLocalHub::dto;
    namespace backend = noxstorage::git::SQLite3OdbBackend;
    const std::string box = inFile + ".box";
    ASSERT_TRUE(IO::ExtractZipFile(inFile, box));
    {
        const auto repo = backend::OpenRepository(box + "/git", backend::kReadWrite);
        ASSERT_TRUE(repo);
        VantryLocalHub::TransactionChanges changes;
        dto::Asset asset;
        asset.mAssetID = inAssetID;
        asset.mProperties = dto::RawJSON(inProperties);
        if (inAssetID.empty()) {
            changes.mProperties = dto::ProductionProperties{asset.mProperties, {}};
        } else {
            ASSERT_TRUE(IO::ComputeContentHashAndEmbedInAsset(repo, asset));
            changes.mAssets.push_back({asset.mAssetID, asset.mAssetContentID, {}, {}, false});
        }
        IO::CommitPtr commit;
        std::int64_t ignored = 0;
        ASSERT_TRUE(IO::Write(repo, changes, false, false, "of another program", commit, ignored));
        ASSERT_TRUE(backend::Checkpoint(repo));
    }
    ASSERT_TRUE(IO::CreateZipFile(box, inFile));
    std::filesystem::remove_all(box);
}

}  // namespace testing_support

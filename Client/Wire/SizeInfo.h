#pragma once

#include <cstdint>
#include <string>
#include <tuple>

#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// What a session takes up; sizes in bytes. Also cached in the session's database.
struct SizeInfo
{
    ImmutableString mProductionID;
    ImmutableString mSessionID;
    ImmutableString mCommitID;  ///< the revision that was measured
    std::int64_t mSizeOnDisk = 0;
    std::int64_t mSizeOfHead = 0;
    std::int64_t mAutosaves = 0;  ///< commits on the session's chain
    std::int64_t mAssets = 0;
    std::int64_t mAssetEnclosures = 0;
    std::int64_t mProductionEnclosures = 0;
    std::int64_t mMediaLocators = 0;
    std::string mPathOnDisk;

    static constexpr auto kFields = std::tuple{Always("productionId", &SizeInfo::mProductionID),
                                               Always("sessionId", &SizeInfo::mSessionID),
                                               Always("commitId", &SizeInfo::mCommitID),
                                               Always("sizeOnDisk", &SizeInfo::mSizeOnDisk),
                                               Always("sizeOfHead", &SizeInfo::mSizeOfHead),
                                               Always("autosaves", &SizeInfo::mAutosaves),
                                               Always("assets", &SizeInfo::mAssets),
                                               Always("assetEnclosures", &SizeInfo::mAssetEnclosures),
                                               Always("productionEnclosures", &SizeInfo::mProductionEnclosures),
                                               Always("mediaLocators", &SizeInfo::mMediaLocators),
                                               Always("pathOnDisk", &SizeInfo::mPathOnDisk)};
    friend bool operator==(const SizeInfo&, const SizeInfo&) = default;
};

}  // namespace VantryLocalHub::dto

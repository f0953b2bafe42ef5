#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace VantryLocalHub {

/// How large one session is. Sizes in bytes; computed for one revision and cached in the session's database.
struct SizeInfo
{
    std::string mProductionID;
    std::string mSessionID;
    std::string mCommitID;         ///< the revision that the values were computed for
    std::int64_t mSizeOnDisk = 0;  ///< of the session's folder or rope file
    std::int64_t mSizeOfHead = 0;  ///< of the blobs of the head and the session database
    std::int64_t mAutosaves = 0;   ///< commits on the first-parent chain of `session`; 0: not counted
    std::int64_t mAssets = 0;
    std::int64_t mAssetEnclosures = 0;
    std::int64_t mProductionEnclosures = 0;
    std::int64_t mMediaLocators = 0;
    std::string mPathOnDisk;

    friend bool operator==(const SizeInfo&, const SizeInfo&) = default;
};

/// The record as a JSON object, keys in the order of the members.
std::string SizeInfoToJSON(const SizeInfo& inInfo);
/// False for a text that is no object or has a key of the wrong type; absent keys leave their member's default.
/// outInfo keeps its value unless true is returned.
bool SizeInfoFromJSON(std::string_view inJSON, SizeInfo& outInfo);

}  // namespace VantryLocalHub

#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

struct HistoryInfo
{
    std::string mMessage;
    std::string mCustomOperation;
    std::string mName;
    std::string mOtherName;
    RawJSON mProperties;

    static constexpr auto kFields =
        std::tuple{Always("message", &HistoryInfo::mMessage),
                   Always("custom_operation", &HistoryInfo::mCustomOperation), Always("name", &HistoryInfo::mName),
                   Always("otherName", &HistoryInfo::mOtherName), Always("properties", &HistoryInfo::mProperties)};
    friend bool operator==(const HistoryInfo&, const HistoryInfo&) = default;
};

/// One version of a history.
struct HistoryVersion
{
    ImmutableString mCommitID;
    RFC3339DateTime mTimestamp;
    std::string mTitle;
    ImmutableString mID;
    std::string mName;
    std::string mCommitter;
    std::vector<Link> mLinks;
    std::vector<ImmutableString> mParents;
    HistoryInfo mInfo;
    int mVersionNumber = 0;

    static constexpr auto kFields = std::tuple{
        Always("commitId", &HistoryVersion::mCommitID), Always("timestamp", &HistoryVersion::mTimestamp),
        Always("title", &HistoryVersion::mTitle),       Always("id", &HistoryVersion::mID),
        Always("name", &HistoryVersion::mName),         Always("committer", &HistoryVersion::mCommitter),
        Always("links", &HistoryVersion::mLinks),       Always("parents", &HistoryVersion::mParents),
        Always("info", &HistoryVersion::mInfo),         Always("versionNumber", &HistoryVersion::mVersionNumber)};
    friend bool operator==(const HistoryVersion&, const HistoryVersion&) = default;
};

/// Versions, the newest first.
struct HistoryResource
{
    std::vector<HistoryVersion> mVersions;
    Stats mStats;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("versions", &HistoryResource::mVersions), Always("stats", &HistoryResource::mStats),
                   Always("links", &HistoryResource::mLinks)};
    friend bool operator==(const HistoryResource&, const HistoryResource&) = default;
};

}  // namespace VantryLocalHub::dto

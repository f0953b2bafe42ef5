#pragma once

#include <array>
#include <string_view>

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/Operations/Operation.h"
#include "Client/Wire/Vocabulary.h"

/// The names that stand in braces in a path, and the keys of queries.
namespace VantryLocalHub::API {

struct PathParameter
{
    std::string_view mName;
    std::string_view mMeaning;
    std::string_view mSample;  ///< a value that a client may send
};

inline constexpr std::string_view kSampleCommit = "9e107d9d372bb6826bd81d3542a419d6cafe0000";
inline constexpr std::string_view kSampleGuid = "0f8fad5b-d9cb-469f-a165-70867728950e";

inline constexpr auto kPathParameters = std::to_array<PathParameter>({
    {"assetContentId", "`vy:assetContentId` of an earlier revision of the asset", kSampleCommit},
    {"assetId", "id of an asset", kSampleGuid},
    {"baseCommitId", "the revision on the left side", kSampleCommit},
    {"commitId",
     "a revision: the id of a commit, or \"HEAD\" for the newest; \"-\" where it does not matter. A GET at \"HEAD\" is "
     "redirected to the commit",
     kSampleCommit},
    {"contentId", "content id of an enclosure", kSampleCommit},
    {"enclosureId", "id of an enclosure", kSampleGuid},
    {"jobId", "id of a job", kSampleGuid},
    {"jobType", "type of a job", "LocalHubSync"},
    {"lastModified", "a time stamp, percent-encoded", "2026-01-31T23%3A59%3A59Z"},
    {"mediaLocatorId", "id of a media locator", kSampleGuid},
    {"productionId", "id of a production, or of a session of it", "p-0f8fad5b-d9cb-469f-a165-70867728950e"},
    {"serverAndPort", "a server's name and port, percent-encoded", "hub.corvane.example%3A443"},
    {"sessionId", "id of a session, or of its production", kSampleGuid},
    {"templateId", "id of a template", kSampleGuid},
    {"transactionId", "id of an open transaction", kSampleGuid},
    {"userId", "id of a user; \"-\" for the one who is signed in", "-"},
});

struct QueryParameter
{
    std::string_view mKey;
    std::string_view mMeaning;
    std::string_view mOnlyValue;  ///< empty: any
};

inline constexpr auto kQueryParameters = std::to_array<QueryParameter>({
    {VYCL::QueryKeys::kCount, "how many at most; 100 without it", {}},
    {VYCL::QueryKeys::kLocalOnly, "true: without the server. Any other text is not true", VYCL::QueryKeys::kTrue},
    {VYCL::QueryKeys::kParentID, "id of a bin: only what lies in it", {}},
    {VYCL::QueryKeys::kStartIndex,
     "index of the first, from 0; or HEAD for the newest, with an entity tag of the head",
     {}},
    {VYCL::QueryKeys::kType, "kind of invitation", {}},
    {VYCL::QueryKeys::kURL, "storage URL of a production", {}},
    {VYCL::QueryKeys::kView, "CONDENSED: without properties and enclosures", VYCL::QueryKeys::kViewCondensed},
});

}  // namespace VantryLocalHub::API

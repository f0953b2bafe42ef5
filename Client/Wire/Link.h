#pragma once

#include <string>
#include <tuple>

#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// One hypermedia link of a resource. Relations and templates are named in LinkRelations.h and URLTemplates.h.
struct Link
{
    ImmutableString mRel;
    std::string mTitle;
    std::string mHref;  ///< URL, or URL template

    static constexpr auto kFields =
        std::tuple{Always("rel", &Link::mRel), WhenSet("title", &Link::mTitle), Always("href", &Link::mHref)};
    friend bool operator==(const Link&, const Link&) = default;
};

/// How much of a collection an answer holds.
struct Stats
{
    int mTotalResults = 0;  ///< items that exist
    int mStartIndex = 0;
    int mItemsPerPage = 0;
    int mCount = 0;  ///< items in this answer

    static constexpr auto kFields =
        std::tuple{Always("totalResults", &Stats::mTotalResults), Always("startIndex", &Stats::mStartIndex),
                   Always("itemsPerPage", &Stats::mItemsPerPage), Always("count", &Stats::mCount)};
    friend bool operator==(const Stats&, const Stats&) = default;
};

}  // namespace VantryLocalHub::dto

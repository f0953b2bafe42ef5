#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// The image that stands for a production in a list.
struct PosterFrame
{
    std::string mMd5;
    RawJSON mMetadata;
    RawJSON mProperties;
    RawValue mRendition;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("md5", &PosterFrame::mMd5), Always("metadata", &PosterFrame::mMetadata),
                   Always("properties", &PosterFrame::mProperties), Always("rendition", &PosterFrame::mRendition),
                   Always("links", &PosterFrame::mLinks)};
    friend bool operator==(const PosterFrame&, const PosterFrame&) = default;
};

}  // namespace VantryLocalHub::dto

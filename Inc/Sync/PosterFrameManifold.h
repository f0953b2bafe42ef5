#pragma once

#include "Client/Wire/PosterFrame.h"
#include "Platform/noxcore/ImmutableString.h"
#include "Platform/noxcore/RecycledMemory.h"

namespace VantryLocalHub {

/// Where clients' requests for a poster frame, the small image that stands for a production in a list, come to. It
/// answers from what is kept here, which are two system enclosures: the frame's record as JSON, and its image.
///
/// Threading: any thread. Locks: none. Out arguments keep their value unless 200 is returned.
class PosterFrameManifold
{
public:
    /// The record, without links. 404: no such production, or no frame of it; 500: the record cannot be read.
    static int LoadPosterFrame(const noxcore::utility::ImmutableString& inProductionID, dto::PosterFrame& outFrame);
    /// The bytes of its image. As above; 404 as well where there is no image, or an empty one.
    static int LoadPosterFrameRendition(const noxcore::utility::ImmutableString& inProductionID,
                                        noxcore::utility::ConstRecycledMemoryPtr& outImage);
};

}  // namespace VantryLocalHub

#pragma once

#include <string>
#include <string_view>

#include "Client/Wire/Asset.h"
#include "Platform/noxstorage/Git.h"

namespace VantryLocalHub::GitBox {

/// The ids that a user enclosure has by its content, and a tag of name and content.
inline void SetOwnIDs(std::string_view inContent, dto::UserEnclosure& ioEnclosure)
{
    const auto blobID = [](std::string_view inBytes) {
        return noxstorage::git::ComputeObjectID(noxstorage::git::ObjectType::Blob, inBytes).Text();
    };
    ioEnclosure.mEnclosureContentID = blobID(inContent);
    ioEnclosure.mDataContentID = ioEnclosure.mEnclosureContentID;
    ioEnclosure.mEtag = blobID(ioEnclosure.mEnclosureContentID.Text() + ioEnclosure.mName);
}

}  // namespace VantryLocalHub::GitBox

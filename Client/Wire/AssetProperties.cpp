#include "Client/Wire/AssetProperties.h"

#include "Client/Wire/OpaqueMembers.h"

namespace VantryLocalHub::dto {

AssetTraits ReadAssetTraits(const RawJSON& inProperties)
{
    AssetTraits traits;
    ForEachMember(inProperties.Text(), [&traits](std::string_view inKey, std::string_view inValue) {
        if (inKey == "name") {
            traits.mName = TextOf(inValue);
        } else if (inKey == "vy:parent") {
            traits.mParent = TextOf(inValue);
        } else if (inKey == "lumo:assetType") {
            traits.mAssetType = TextOf(inValue);
        } else if (inKey == "mediaLocator") {
            traits.mMediaLocator = TextOf(inValue);
        }
        return true;
    });
    return traits;
}

}  // namespace VantryLocalHub::dto

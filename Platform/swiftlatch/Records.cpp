#include "Platform/swiftlatch/Records.h"

#include <cstdlib>

namespace swiftlatch {

bool ReadJSON(const noxmarshal::JSONValue& inValue, LenientFlag& outFlag)
{
    if (inValue.GetBool(outFlag.mValue)) return true;
    std::int64_t number = 0;
    if (inValue.GetInt64(number)) {
        outFlag.mValue = number != 0;
        return true;
    }
    std::string text;
    if (!inValue.GetString(text)) return false;
    // A text without digits at its front counts as 0.
    outFlag.mValue = text == "true" || std::strtoll(text.c_str(), nullptr, 10) != 0;
    return true;
}

void WriteJSON(noxmarshal::JSONWriter& ioWriter, const LenientFlag& inFlag)
{
    ioWriter.Bool(inFlag.mValue);
}

OpenProjectList ToProjectList(const OpenAssetList& inAssets)
{
    OpenProjectList list;
    for (const OpenAsset& asset : inAssets.mOpenAssets) {
        if (!asset.mProjectFile.empty()) list.mProjects.push_back({asset.mProjectFile, asset.mProjectFileSourceID});
    }
    return list;
}

}  // namespace swiftlatch

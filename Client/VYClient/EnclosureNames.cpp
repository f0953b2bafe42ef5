#include "Client/VYClient/EnclosureNames.h"

namespace VYCL {

namespace {

constexpr std::string_view kUserData = "_userdata.";
constexpr std::string_view kXMP = "_xmp";
constexpr std::string_view kPreSyncHead = "_preSyncHeadCommitId.";
constexpr std::string_view kPostSyncBase = "_postSyncBaseCommitId.";

std::string Joined(std::string_view inPrefix, std::string_view inName)
{
    return std::string(inPrefix).append(inName);
}

}  // namespace

std::string GetProductionUserDataEnclosureName(std::string_view inName)
{
    return Joined(kUserData, inName);
}

bool IsProductionUserDataEnclosureName(std::string_view inName)
{
    return inName.size() > kUserData.size() && inName.starts_with(kUserData);
}

bool IsXMPEnclosureName(std::string_view inName, std::string& outPart)
{
    outPart.clear();
    if (!inName.starts_with(kXMP)) {
        return false;
    }
    inName.remove_prefix(kXMP.size());
    if (inName.size() > 1 && inName.front() == '.') {
        outPart = inName.substr(1);
        return true;
    }
    return inName.empty();
}

std::string GetPreSyncHeadCommitIdEnclosureName(std::string_view inSessionID)
{
    return Joined(kPreSyncHead, inSessionID);
}

std::string GetPostSyncBaseCommitIdEnclosureName(std::string_view inSessionID)
{
    return Joined(kPostSyncBase, inSessionID);
}

}  // namespace VYCL

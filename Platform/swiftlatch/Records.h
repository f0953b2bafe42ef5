#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "Platform/noxmarshal/Record.h"

namespace swiftlatch {

using noxmarshal::Optional;
using noxmarshal::ReadJSON;
using noxmarshal::Required;
using noxmarshal::WriteJSON;

/// A boolean that older clients send in other ways: also read from an integer (not zero is true) and from a string
/// ("true", "false", or the text of an integer). Written as a boolean.
struct LenientFlag
{
    bool mValue = false;
};
bool ReadJSON(const noxmarshal::JSONValue& inValue, LenientFlag& outFlag);
void WriteJSON(noxmarshal::JSONWriter& ioWriter, const LenientFlag& inFlag);

/// What a client says of itself.
struct ClientInformation
{
    std::string mName;
    std::string mVersion;
    std::string mBuild;
    LenientFlag mHeadless;

    static constexpr auto kFields =
        std::tuple{Required("name", &ClientInformation::mName), Required("version", &ClientInformation::mVersion),
                   Required("build", &ClientInformation::mBuild), Optional("headless", &ClientInformation::mHeadless)};
};

/// The HTTP port of a hub.
struct PortInformation
{
    std::uint16_t mPort = 0;

    static constexpr auto kFields = std::tuple{Required("port", &PortInformation::mPort)};
};

/// What a server says of itself.
struct ServerInformation
{
    std::string mName;
    std::string mAppName;
    std::string mAppVersion;
    std::string mProtoVersion;
    bool mHeadless = false;
    bool mHeadlessOnly = false;
    bool mSelflinkOnly = false;

    static constexpr auto kFields = std::tuple{Required("name", &ServerInformation::mName),
                                               Required("appName", &ServerInformation::mAppName),
                                               Required("appVersion", &ServerInformation::mAppVersion),
                                               Required("protoVersion", &ServerInformation::mProtoVersion),
                                               Required("headless", &ServerInformation::mHeadless),
                                               Required("headlessOnly", &ServerInformation::mHeadlessOnly),
                                               Required("selflinkOnly", &ServerInformation::mSelflinkOnly)};
};

/// Where a server's RPC transport listens.
struct ServerAddress
{
    std::string mAddress;
    std::uint16_t mPort = 0;

    static constexpr auto kFields =
        std::tuple{Required("address", &ServerAddress::mAddress), Required("port", &ServerAddress::mPort)};
};

struct ProjectFile
{
    std::string mProjectFile;
    std::string mProjectFileSourceID;

    static constexpr auto kFields = std::tuple{Required("mProjectFile", &ProjectFile::mProjectFile),
                                               Required("mProjectFileSourceID", &ProjectFile::mProjectFileSourceID)};
};

struct OpenProjectList
{
    std::vector<ProjectFile> mProjects;

    static constexpr auto kFields = std::tuple{Required("projectlist", &OpenProjectList::mProjects)};
};

struct AssetInformation
{
    std::string mProductionIdentifier;
    std::string mProductionRevision;
    std::string mAssetIdentifier;

    static constexpr auto kFields =
        std::tuple{Required("mProductionIdentifier", &AssetInformation::mProductionIdentifier),
                   Required("mProductionRevision", &AssetInformation::mProductionRevision),
                   Required("mAssetIdentifier", &AssetInformation::mAssetIdentifier)};
};

/// Something open in a server: a project in a file, or an asset of a production.
struct OpenAsset
{
    std::string mProjectFile;  ///< empty for an asset that lies in no file
    std::string mProjectFileSourceID;
    AssetInformation mVantryAssetInfo;

    static constexpr auto kFields = std::tuple{Required("mProjectFile", &OpenAsset::mProjectFile),
                                               Required("mProjectFileSourceID", &OpenAsset::mProjectFileSourceID),
                                               Required("mVantryAssetInfo", &OpenAsset::mVantryAssetInfo)};
};

struct OpenAssetList
{
    std::vector<OpenAsset> mOpenAssets;

    static constexpr auto kFields = std::tuple{Required("mOpenAssets", &OpenAssetList::mOpenAssets)};
};

/// One server that is registered with a link manager.
struct RegisteredServer
{
    ServerInformation mServer;
    ServerAddress mAddress;

    static constexpr auto kFields =
        std::tuple{Required("server", &RegisteredServer::mServer), Required("address", &RegisteredServer::mAddress)};
};

struct RegisteredServerList
{
    std::vector<RegisteredServer> mServers;

    static constexpr auto kFields = std::tuple{Required("servers", &RegisteredServerList::mServers)};
};

/// What a link manager says of itself.
struct ManagerInformation
{
    std::string mProtoVersion;

    static constexpr auto kFields = std::tuple{Required("protoVersion", &ManagerInformation::mProtoVersion)};
};

/// The assets in the words of older managers, which know project files only: others are left out.
OpenProjectList ToProjectList(const OpenAssetList& inAssets);

}  // namespace swiftlatch

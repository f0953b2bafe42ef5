#pragma once

#include <string>
#include <string_view>

namespace swiftlatch {

// What a link manager answers.
inline constexpr std::string_view kMessage_RegisterServerWithVersionGeneric =
    "com.corvane.swiftlatch.RegisterServerWithVersionGeneric";
inline constexpr std::string_view kMessage_RegisterServerWithVersion =
    "com.corvane.swiftlatch.RegisterServerWithVersion";
inline constexpr std::string_view kMessage_RegisterServer = "com.corvane.swiftlatch.RegisterServer";
inline constexpr std::string_view kMessage_FindServer = "com.corvane.swiftlatch.FindServer";
inline constexpr std::string_view kMessage_ListServers = "com.corvane.swiftlatch.ListServers";
inline constexpr std::string_view kMessage_GetProtocolVersion = "com.corvane.swiftlatch.GetProtocolVersion";

// What a hub answers.
inline constexpr std::string_view kMessage_GetServerInformation =
    "com.corvane.tesselprojects.localhub.GetServerInformation";
inline constexpr std::string_view kMessage_GiveClientInformation =
    "com.corvane.tesselprojects.localhub.GiveClientInformation";

/// The name under which the local hub registers.
inline constexpr std::string_view kLocalHubServerName = "TesselProjectsLocalHub.2";

/// The version of the messages above; servers tell it as protoVersion.
inline std::string GetSwiftLatchProtocolVersion()
{
    return "1";
}

}  // namespace swiftlatch

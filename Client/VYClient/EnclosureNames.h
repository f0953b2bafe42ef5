#pragma once

#include <string>
#include <string_view>

namespace VYCL {

/// Names of the enclosures that have a meaning for the hub. All begin with "_", which no client's own name does.

/// The name under which a user's data of a production travel: "_userdata." and the name.
std::string GetProductionUserDataEnclosureName(std::string_view inName);
bool IsProductionUserDataEnclosureName(std::string_view inName);

/// True for "_xmp", and for "_xmp." with a part's name after it, which outPart gets (else it is emptied).
bool IsXMPEnclosureName(std::string_view inName, std::string& outPart);

/// Of a session: the head before, and the shared base after, the last exchange with the remote session.
std::string GetPreSyncHeadCommitIdEnclosureName(std::string_view inSessionID);
std::string GetPostSyncBaseCommitIdEnclosureName(std::string_view inSessionID);

}  // namespace VYCL

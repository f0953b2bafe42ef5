#pragma once

#include <string>

namespace swiftlatch {

/// Where link manager and servers of this user meet. Whoever knows the folders publishes one in the HubContext.
struct Paths
{
    std::string mSocketFolder;   ///< absolute; the user's own, mode 0700
    std::string mProgramFolder;  ///< where "linkbroker" lies
    std::string mLogFolder;      ///< where a manager that is started logs to; empty: nowhere
};

/// Files in the socket folder.
std::string ManagerSocketPath(const std::string& inSocketFolder);
std::string ManagerLockPath(const std::string& inSocketFolder);   ///< held by the running manager
std::string ManagerStartPath(const std::string& inSocketFolder);  ///< held by who is starting one

/// Makes the folder, for its owner alone. False, with a record, when it cannot be made, or when what is there is no
/// folder, is another user's, or is open to others: whoever can write there could stand in for the manager.
bool EnsureSocketFolder(const std::string& inSocketFolder);

}  // namespace swiftlatch

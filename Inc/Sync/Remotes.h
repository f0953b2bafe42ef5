#pragma once

#include <vector>

#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub {

/// The registry of remote hubs, and the gate that lets connections to them be made.
///
/// No hub can be connected to yet, so that none is listed and nobody is logged in.
/// Threading: any thread. mMutex guards the gate and calls nothing (rank Leaf).
class Remotes : public virtual SyncBox
{
public:
    void PermitRemoteConnections() override;
    void RestrictRemoteConnections() override;
    /// Completes with 412 while connections are restricted.
    void ConnectToRemoteHub(const ImmutableString& inServerURL, const ImmutableString& inServerType,
                            const dto::LoginCredentials& inCredentials, LoginCompletion inCompletion) override;
    std::vector<dto::RemoteLoginStatus> GetRemoteHubStatusList() override;
    DataServerRef GetLoggedInDataServer() override;

private:
    void SetPermitted(bool inPermitted);

    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    bool mPermitted GUARDED_BY(mMutex) = true;
};

}  // namespace VantryLocalHub

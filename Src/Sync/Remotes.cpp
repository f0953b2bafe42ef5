#include "Inc/Sync/Remotes.h"

#include <utility>

#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub {

using noxcore::threads::ScopedLock;

void Remotes::PermitRemoteConnections()
{
    SetPermitted(true);
}

void Remotes::RestrictRemoteConnections()
{
    SetPermitted(false);
}

void Remotes::SetPermitted(bool inPermitted)
{
    const ScopedLock lock(mMutex);
    mPermitted = inPermitted;
}

void Remotes::ConnectToRemoteHub(const ImmutableString& inServerURL, const ImmutableString& inServerType,
                                 const dto::LoginCredentials& inCredentials, LoginCompletion inCompletion)
{
    bool permitted = false;
    {
        const ScopedLock lock(mMutex);
        permitted = mPermitted;
    }
    if (permitted) {
        SyncBox::ConnectToRemoteHub(inServerURL, inServerType, inCredentials, std::move(inCompletion));
    } else if (inCompletion) {
        inCompletion(noxnet::kHTTPStatus_PreconditionFailed, {});
    }
}

std::vector<dto::RemoteLoginStatus> Remotes::GetRemoteHubStatusList()
{
    return {};
}

DataServerRef Remotes::GetLoggedInDataServer()
{
    return nullptr;
}

}  // namespace VantryLocalHub

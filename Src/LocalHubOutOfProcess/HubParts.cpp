#include "Inc/LocalHubOutOfProcess/HubParts.h"

#include <utility>

#include "Inc/Model/GitBox.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/ServiceRegistry.h"
#include "Inc/Sync/HubSync.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/swiftlatch/SharedTransport.h"

namespace VantryLocalHub {

namespace {

/// Over GitBox, which reads the sessions on disk at once.
class GitBoxPart final : public StorePart
{
public:
    explicit GitBoxPart(const std::shared_ptr<GitBox::GitBox>& inBox) : mBox(inBox) { ProjectBox::SetInstance(inBox); }

    int UpgradeRepository(const ImmutableString& inSessionID) override
    {
        const auto box = mBox.lock();
        return box ? box->UpgradeRepository(inSessionID) : noxnet::kHTTPStatus_NotFound;
    }
    int DowngradeRepository(const ImmutableString& inSessionID) override
    {
        const auto box = mBox.lock();
        return box ? box->DowngradeRepository(inSessionID) : noxnet::kHTTPStatus_NotFound;
    }
    void ReleaseUnusedDB(std::int64_t inCutOffTicks) override
    {
        if (const auto box = ProjectBox::Instance()) box->ReleaseUnusedDB(inCutOffTicks);
    }
    void Close() override { ProjectBox::Close(); }

private:
    const std::weak_ptr<GitBox::GitBox> mBox;
};

class HubSyncPart final : public EnginePart
{
public:
    HubSyncPart() { SyncBox::SetInstance(std::make_shared<HubSync>()); }

    std::optional<std::size_t> GetUnfinishedSyncJobCount() override
    {
        const auto box = SyncBox::Instance();
        return box ? std::optional<std::size_t>(box->GetUnfinishedSyncJobCount()) : std::nullopt;
    }
    void RunUnfinishedSyncJobs() override
    {
        if (const auto box = SyncBox::Instance()) box->RunUnfinishedSyncJobs();
    }
    void ReleaseUnusedDB(std::int64_t inCutOffTicks) override
    {
        if (const auto box = SyncBox::Instance()) box->ReleaseUnusedDB(inCutOffTicks);
    }
    void Terminate() override
    {
        if (const auto box = SyncBox::Instance()) box->Terminate();
    }
    void Close() override { SyncBox::Close(); }
};

}  // namespace

HubParts HubParts::Real()
{
    HubParts parts;
    parts.mCreateHTTPServer = HTTPServer::Create;
    parts.mCreateStore = [] { return std::make_unique<GitBoxPart>(std::make_shared<GitBox::GitBox>(true)); };
    parts.mCreateEngine = [] { return std::make_unique<HubSyncPart>(); };
    parts.mMakeServices = MakeAllServices;
    parts.mGetTransport = swiftlatch::GetSharedTransport;
    parts.mStartTransport = [](const std::shared_ptr<Transport>& inTransport) {
        return inTransport ? inTransport->ServerStart(0, true) : nullptr;
    };
    parts.mCreateRPCServer = [](const std::shared_ptr<Transport::Server>& inServer, const std::string& inName) {
        return std::make_shared<noxmarshal::RPCServer>(inServer, inName);
    };
    parts.mConnectToLinkManager = LinkManagerConnection::Create;
    parts.mShutDownNetwork = noxnet::Shutdown;
    return parts;
}

}  // namespace VantryLocalHub

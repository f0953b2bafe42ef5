#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Client/VYClient/Results.h"
#include "Client/VYClient/VYSCredentials.h"
#include "Client/Wire/Discovery.h"
#include "Client/Wire/History.h"
#include "Client/Wire/MediaLocator.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/RecursiveMutex.h"

/// The objects of a remote hub as the engine sees them. Whoever implements this boundary derives from these classes.
///
/// Threading: completions and notifications arrive on the library's own threads. Fields of a resource are read under
/// IVYCDataServer::GetLock(), which is held to copy values and never across a completion.
namespace VYCL {

namespace dto = VantryLocalHub::dto;
namespace ServerAPI {
using Limit = dto::Limit;
}

/// A handle: it keeps its object; an empty one means that there is no such object.
template <class T>
using InterfaceRef = std::shared_ptr<T>;

/// A resource of the remote hub.
class IVYCServerResource
{
public:
    /// How two sides of a change come together.
    enum class MergeStrategy
    {
        Unknown,
        AcceptTheirs,
        AcceptYours
    };
    /// How a conflict ends.
    enum class ResolveStrategy
    {
        Unknown,
        AcceptTheirs,
        AcceptYours
    };

    virtual ~IVYCServerResource() = default;
    [[nodiscard]] virtual bool IsLoaded() const = 0;
    [[nodiscard]] virtual std::string GetURL() const = 0;
    /// The ETag of what was loaded, or with the flag the newest that the server told of.
    [[nodiscard]] virtual std::string GetETag(bool inNewest) const = 0;
};

/// "accept-theirs" and "accept-yours"; Unknown for any other text.
IVYCServerResource::MergeStrategy MergeStrategyFromString(std::string_view inText);
IVYCServerResource::ResolveStrategy ResolveStrategyFromString(std::string_view inText);

class IVYCAsset;
class IVYCTransaction;
class IVYCBulkEnclosureLoader;
class INimboStorageItem;
class DataServer;
class Production;
class ProductionList;
class BulkTransaction;
class MediaLocatorCache;

class IVYCHistoryVersion : public IVYCServerResource
{
public:
    [[nodiscard]] virtual dto::HistoryVersion GetVersion() const = 0;
};

class IVYCProductionHistory : public IVYCServerResource
{
public:
    [[nodiscard]] virtual std::vector<InterfaceRef<IVYCHistoryVersion>> GetVersions() const = 0;
};

class IVYCAssetList : public IVYCServerResource
{
public:
    [[nodiscard]] virtual std::vector<InterfaceRef<IVYCAsset>> GetAssets() const = 0;
};

class IVYCEditingSessionStatus : public IVYCServerResource
{
};

class IVYCEditingSession : public IVYCServerResource
{
public:
    [[nodiscard]] virtual InterfaceRef<IVYCEditingSessionStatus> GetStatus() const = 0;
    [[nodiscard]] virtual std::string GetHistoryLink() const = 0;
    [[nodiscard]] virtual std::string GetAssetListLink() const = 0;
};

class IVYCProduction : public IVYCServerResource
{
public:
    [[nodiscard]] virtual std::string GetProductionID() const = 0;
    [[nodiscard]] virtual std::vector<InterfaceRef<IVYCEditingSession>> GetSessions() const = 0;
    [[nodiscard]] virtual InterfaceRef<IVYCProductionHistory> GetHistory() const = 0;
    [[nodiscard]] virtual std::string GetHeadLinkRelation() const = 0;
    [[nodiscard]] virtual std::string GetDocumentURL() const = 0;
};

class IVYCMediaLocator : public IVYCServerResource
{
public:
    [[nodiscard]] virtual std::string GetID() const = 0;
    [[nodiscard]] virtual std::string GetHref() const = 0;
    [[nodiscard]] virtual dto::MediaLocatorProperties GetProperties() const = 0;
    virtual void SetProperties(const dto::MediaLocatorProperties& inProperties) = 0;
    [[nodiscard]] virtual dto::RFC3339DateTime GetCreated() const = 0;
    [[nodiscard]] virtual dto::RFC3339DateTime GetLastModified() const = 0;
};

class IVYCCollaborator : public IVYCServerResource
{
public:
    /// The form of a mail address that is the same for all its spellings: without blanks around it, ASCII letters
    /// small.
    static std::string FoldEmailAddress(std::string_view inAddress);
};

/// Who is signed in at a server.
struct UserRecord
{
    std::string mUserID;
    std::string mFullName;
    std::string mEmail;
    std::set<std::string> mPermissions;
};

/// One server that the hub is connected to.
class IVYCDataServer
{
public:
    enum class DataServerType
    {
        Unknown,
        TesselProjects,
        LocalHub
    };

    virtual ~IVYCDataServer() = default;
    [[nodiscard]] virtual UserRecord GetUser() const = 0;
    [[nodiscard]] virtual std::string GetServerURL() const = 0;
    [[nodiscard]] virtual VYSCredentials GetCredentials() const = 0;
    [[nodiscard]] virtual std::string GetSessionURL(std::string_view inSessionID) const = 0;
    [[nodiscard]] virtual std::vector<ServerAPI::Limit> GetLimits() const = 0;

    /// Runs a function on the server's worker. False once the server has shut down.
    virtual bool CallOnWorker(std::function<void()> inFunction) = 0;
    virtual bool CallOnWorkerAfter(unsigned inMilliseconds, std::function<void()> inFunction) = 0;
    /// Ends a request early: its completion comes with eAsyncRequestCancelled.
    virtual void CancelRequest(const noxcore::utility::Guid& inRequestID) = 0;

    /// The server that the user is signed in at; empty while there is none. A connection publishes itself in the
    /// HubContext when its sign-in has succeeded.
    static InterfaceRef<IVYCDataServer> GetLoggedInServerRef();
    static noxcore::threads::RecursiveMutex& GetLock();
};

}  // namespace VYCL

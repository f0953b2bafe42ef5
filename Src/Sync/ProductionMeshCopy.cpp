#include <exception>
#include <filesystem>
#include <utility>

#include "Client/VYClient/UTF16.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Sync/ProductionMesh.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

// Copying a production to a new one.

namespace VantryLocalHub {

using namespace noxcore::logging;
using namespace VYCL::LocalHub;

namespace {

constexpr std::string_view kCategory = "HubSync";
constexpr std::size_t kLongestPath = 2047;  ///< in UTF-16 units, as the clients' systems count
constexpr std::string_view kExtractedSnapshot = "sn-";

/// Where a copy is to go.
enum class Destination
{
    Remote,
    Local  ///< a session folder, or a single file
};

Destination DestinationOf(const std::string& inLocation, bool inLocalOnly)
{
    return inLocation.empty() && !inLocalOnly ? Destination::Remote : Destination::Local;
}

bool CanBeCopiedToRemote(const dto::Session& inSource)
{
    return inSource.mSnapshotRootAssetID.empty() && inSource.mRopeFileID.empty() && !inSource.mLocalOnly &&
           !inSource.mIdentifier.View().starts_with(kExtractedSnapshot);
}

/// A success where the copy may be made.
int CheckCopy(const dto::Session& inSource, const std::string& inLocation, Destination inDestination)
{
    const std::string fullPath = std::filesystem::path(inLocation).lexically_normal();
    if (VYCL::ToUTF16(fullPath).size() > kLongestPath) return noxnet::kHTTPStatus_BadRequest;
    if (inDestination == Destination::Remote && !CanBeCopiedToRemote(inSource)) {
        LogError(kCategory,
                 "ProductionMesh::CopySession: Root Asset, snapshot file, local-only cannot be used in a remote "
                 "production copy operation",
                 {{"localSessionID", inSource.mIdentifier.View()}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    return noxnet::kHTTPStatus_OK;
}

}  // namespace

/// One copy until it has been answered. One that is dropped unanswered, because engine or executor ended while it
/// waited, answers 424.
class ProductionMesh::Copy
{
public:
    Copy(dto::Session inSource, ImmutableString inRevision, dto::ProductionProperties inProperties, std::string inFile,
         SessionCompletion inCompletion)
        : mSource(std::move(inSource)),
          mRevision(std::move(inRevision)),
          mProperties(std::move(inProperties)),
          mFile(std::move(inFile)),
          mCompletion(std::move(inCompletion))
    {
    }
    ~Copy() { Complete(noxnet::kHTTPStatus_FailedDependency); }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    void Complete(int inStatus, const dto::Session& inSession = {})
    {
        if (const auto completion = std::exchange(mCompletion, nullptr)) completion(inStatus, inSession);
    }

    const dto::Session mSource;
    const ImmutableString mRevision;
    const dto::ProductionProperties mProperties;
    const std::string mFile;  ///< empty for a copy into a session folder

private:
    SessionCompletion mCompletion;
};

void ProductionMesh::WeakCopySession(const std::weak_ptr<SyncBox>& inEngine, ProductionMesh* inMesh,
                                     const std::shared_ptr<Copy>& inCopy)
{
    const auto engine = inEngine.lock();
    if (!engine) return;
    try {
        inMesh->CopySession(inCopy);
    } catch (const std::exception& exception) {
        LogError(kCategory, "ProductionMesh::CopySession: Caught exception",
                 {{"localSessionID", inCopy->mSource.mIdentifier.View()}, {"exception", exception.what()}});
        inCopy->Complete(noxnet::kHTTPStatus_InternalServerError);
    }
}

void ProductionMesh::CopySession(const std::shared_ptr<Copy>& inCopy)
{
    const auto box = ProjectBox::Instance();
    if (!box) return inCopy->Complete(noxnet::kHTTPStatus_InternalServerError);
    dto::Session made;
    const ImmutableString& source = inCopy->mSource.mIdentifier;
    const int status = inCopy->mFile.empty()
                           ? box->CopySessionToLyra2(source, inCopy->mRevision, inCopy->mProperties, made)
                           : box->CopyToRopeFile(source, inCopy->mRevision, inCopy->mFile, false, made);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCopy->Complete(status);
    const int associated = AssociateWithUserOnly(made.mIdentifier, {}, true);
    if (noxnet::IsSuccessfulHTTPStatus(associated)) {
        made.mLocalOnly = true;
    } else {
        LogError(kCategory, "ProductionMesh::CopySession: cannot associate session with user",
                 {{"localSessionID", made.mIdentifier.View()}, {"status", associated}});
    }
    inCopy->Complete(status, made);
}

void ProductionMesh::CopyProduction(const ImmutableString& inProductionID, const ImmutableString& inRevision,
                                    const dto::ProductionProperties& inProperties, const std::string& inLocation,
                                    bool inLocalOnly, SessionCompletion inCompletion)
{
    const auto box = ProjectBox::Instance();
    dto::Session source;
    const Destination destination = DestinationOf(inLocation, inLocalOnly);
    int status =
        box ? box->GetProduction(inProductionID, Revision_HEAD(), source) : noxnet::kHTTPStatus_InternalServerError;
    if (noxnet::IsSuccessfulHTTPStatus(status)) status = CheckCopy(source, inLocation, destination);
    if (noxnet::IsSuccessfulHTTPStatus(status) && destination == Destination::Remote) {
        // There is no remote hub to copy to.
        return SyncBox::CopyProduction(inProductionID, inRevision, inProperties, inLocation, inLocalOnly,
                                       std::move(inCompletion));
    }
    const auto copy =
        std::make_shared<Copy>(std::move(source), inRevision, inProperties, inLocation, std::move(inCompletion));
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return copy->Complete(status);
    const bool queued = noxcore::threads::CPUBoundExecutor()->Queue(
        [engine = weak_from_this(), this, copy] { WeakCopySession(engine, this, copy); });
    if (queued) return;
    LogError(kCategory, "ProductionMesh::CopySession: Could not start copy session operation",
             {{"localSessionID", copy->mSource.mIdentifier.View()}});
    copy->Complete(noxnet::kHTTPStatus_InternalServerError);
}

}  // namespace VantryLocalHub

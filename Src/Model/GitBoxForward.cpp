// The operations of the interface that concern one session and are its sandbox's alone: find it and forward.

#include "Inc/Model/GitBox.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxnet::IsSuccessfulHTTPStatus;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_NotFound;

int GitBox::GetSizeInfo(const ImmutableString& inSessionID, bool inDetailed, dto::SizeInfo& outInfo)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetSizeInfo(inDetailed, outInfo) : kHTTPStatus_NotFound;
}

int GitBox::GetHistoryRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                               StoredVersion& outVersion)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetHistoryRevision(inRevision, outVersion) : kHTTPStatus_NotFound;
}

int GitBox::GetHeadParentCount(const ImmutableString& inSessionID, std::size_t& outCount)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetHeadParentCount(outCount) : kHTTPStatus_NotFound;
}

bool GitBox::RevisionExists(const ImmutableString& inSessionID, const ImmutableString& inRevision)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->RevisionExists(inRevision) : false;
}

int GitBox::GetSessionHistory(const ImmutableString& inSessionID, std::size_t inStart, std::size_t inCount,
                              std::vector<StoredVersion>& outVersions, std::size_t& outTotal)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetSessionHistory(inStart, inCount, outVersions, outTotal) : kHTTPStatus_NotFound;
}

int GitBox::GetAsset(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                     const ImmutableString& inAssetID, dto::Asset& outAsset)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetAsset(inRevision, inAssetID, outAsset) : kHTTPStatus_NotFound;
}

int GitBox::GetAssetByContentHash(const ImmutableString& inSessionID, const ImmutableString& inContentID,
                                  const ImmutableString& inAssetID, dto::Asset& outAsset)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetAssetByContentHash(inContentID, inAssetID, outAsset) : kHTTPStatus_NotFound;
}

int GitBox::GetAssetEnclosure(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                              const ImmutableString& inAssetID, const ImmutableString& inEnclosureID,
                              ConstRecycledMemoryPtr& outPayload)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetAssetEnclosure(inRevision, inAssetID, inEnclosureID, outPayload)
                   : kHTTPStatus_NotFound;
}

int GitBox::GetAssetEnclosureByContentHash(const ImmutableString& inSessionID, const ImmutableString& inContentID,
                                           ConstRecycledMemoryPtr& outPayload)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetPayloadByContentHash(inContentID, outPayload) : kHTTPStatus_NotFound;
}

ImmutableString GitBox::ComputeContentHash(const ImmutableString& inSessionID, const std::vector<dto::Asset>& inAssets)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return {};
    ImmutableString id = sandbox->ComputeContentHash(inAssets);
    if (id.empty()) NoteWrite(*sandbox, kHTTPStatus_InternalServerError);
    return id;
}

ImmutableString GitBox::ComputeContentHash(const ImmutableString& inSessionID, const ConstRecycledMemoryPtr& inPayload)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return {};
    ImmutableString id = sandbox->ComputeContentHash(inPayload);
    if (id.empty() && inPayload && !inPayload->View().empty()) NoteWrite(*sandbox, kHTTPStatus_InternalServerError);
    return id;
}

int GitBox::ComputeContentHashAndEmbedInAsset(const ImmutableString& inSessionID, dto::Asset& ioAsset)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? NoteWrite(*sandbox, sandbox->ComputeContentHashAndEmbedInAsset(ioAsset)) : kHTTPStatus_NotFound;
}

int GitBox::GetProductionEnclosures(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                    std::vector<dto::Enclosure>& outEnclosures)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetProductionEnclosures(inRevision, outEnclosures) : kHTTPStatus_NotFound;
}

int GitBox::GetProductionEnclosure(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                   const ImmutableString& inEnclosureID, dto::Enclosure& outEnclosure,
                                   ConstRecycledMemoryPtr& outPayload)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetProductionEnclosure(inRevision, inEnclosureID, outEnclosure, outPayload)
                   : kHTTPStatus_NotFound;
}

int GitBox::GetProductionEnclosureByContentHash(const ImmutableString& inSessionID, const ImmutableString& inContentID,
                                                ConstRecycledMemoryPtr& outPayload)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetPayloadByContentHash(inContentID, outPayload) : kHTTPStatus_NotFound;
}

int GitBox::GetAssets(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                      const ImmutableString& inTransactionID, bool inWithEnclosures, AssetListPtr& outAssets)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    AssetListPtr assets;
    int status = sandbox->GetAssets(inRevision, inWithEnclosures, assets);
    if (IsSuccessfulHTTPStatus(status) && !inTransactionID.empty()) {
        auto changed = std::make_shared<AssetList>(*assets);
        status = OverlayTransaction(inTransactionID, inWithEnclosures, *changed);
        assets = std::move(changed);
    }
    if (IsSuccessfulHTTPStatus(status)) outAssets = std::move(assets);
    return status;
}

int GitBox::FlushTransactionContent(const ImmutableString& inTransactionID)
{
    const TransactionPtr transaction = FindTransaction(inTransactionID);
    const SandboxPtr sandbox = transaction ? mSandboxes->FindSandbox(transaction->mSessionID) : nullptr;
    return sandbox ? NoteWrite(*sandbox, sandbox->FlushContent()) : kHTTPStatus_NotFound;
}

int GitBox::HasContent(const ImmutableString& inSessionID, const ImmutableString& inContentID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->HasContent(inContentID) : kHTTPStatus_NotFound;
}

int GitBox::GetDifferences(const ImmutableString& inSessionID, const ImmutableString& inFrom,
                           const ImmutableString& inTo, SessionDifferences& outDifferences)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetDifferences(inFrom, inTo, outDifferences) : kHTTPStatus_NotFound;
}

int GitBox::GetOutgoingChanges(const ImmutableString& inSessionID, const ImmutableString& inFrom,
                               const ImmutableString& inTo, SessionDifferences& outDifferences)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetOutgoingChanges(inFrom, inTo, outDifferences) : kHTTPStatus_NotFound;
}

int GitBox::GetConflictInfo(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                            const ImmutableString& inAssetID, dto::ConflictMarker& outMarker)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox || !IsUsableID(inAssetID)) return kHTTPStatus_NotFound;
    return sandbox->GetConflictInfo(inRevision, IO::MarkerPath("assets", inAssetID), outMarker);
}

int GitBox::GetEnclosureConflictInfo(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                     const ImmutableString& inEnclosureID, dto::ConflictMarker& outMarker)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox || !IsUsableID(inEnclosureID)) return kHTTPStatus_NotFound;
    return sandbox->GetConflictInfo(inRevision, IO::MarkerPath("enclosures", inEnclosureID), outMarker);
}

int GitBox::GetConflictInfo(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                            dto::ConflictMarker& outMarker)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? sandbox->GetConflictInfo(inRevision, std::string(IO::kSessionMarkerPath), outMarker)
                   : kHTTPStatus_NotFound;
}

}  // namespace VantryLocalHub::GitBox

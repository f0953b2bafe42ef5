// The changes that a transaction takes, and the rules on what it may contain.

#include "Client/Wire/AssetProperties.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/TransactionWindow.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxcore::logging::LogError;
using noxcore::logging::LogWarning;
using noxcore::threads::ScopedLock;
using noxnet::IsSuccessfulHTTPStatus;
using noxnet::kHTTPStatus_BadRequest;
using noxnet::kHTTPStatus_Conflict;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_NotFound;
using noxnet::kHTTPStatus_OK;
using noxnet::kHTTPStatus_PreconditionFailed;

namespace {

bool IsBin(const dto::RawJSON& inProperties)
{
    return dto::ReadAssetTraits(inProperties).mAssetType == VYCL::GetAssetType_Bin();
}

/// An id that a client gave is kept where it is one; else there is a new one.
ImmutableString KeepOrMakeID(const ImmutableString& inID)
{
    return noxcore::utility::Guid::FromText(inID) ? inID
                                                  : ImmutableString(noxcore::utility::Guid::CreateUnique().Text());
}

/// What the window keeps of an asset: all but what the store can give back.
ChangedAsset ChangeOf(const dto::Asset& inAsset)
{
    return {inAsset.mAssetID, inAsset.mAssetContentID, inAsset.mBaseCommitID, inAsset.mConflictsWithContentID,
            IsBin(inAsset.mProperties)};
}

int RefuseClosed(std::string_view inMessage, const ImmutableString& inSessionID, const ImmutableString& inTransactionID)
{
    LogWarning("GitBox", inMessage, {{"sessionID", inSessionID}, {"transactionID", inTransactionID}});
    return kHTTPStatus_PreconditionFailed;
}

/// The id becomes the name of a folder: one that is no plain name would reach into other folders.
int RefuseID(const ImmutableString& inAssetID)
{
    LogWarning("GitBox", "Bad asset id", {{"assetID", inAssetID}});
    return kHTTPStatus_BadRequest;
}

int RefuseAsset(std::string_view inMessage, const ImmutableString& inAssetID)
{
    LogWarning("GitBox", inMessage, {{"assetID", inAssetID}});
    return kHTTPStatus_PreconditionFailed;
}

int RefuseWrongEnclosure(const dto::Asset& inAsset, const ImmutableString& inEnclosureID)
{
    std::string all;
    for (const dto::Enclosure& enclosure : inAsset.mEnclosures)
        all += enclosure.mEnclosureID.Text() + " ";
    LogError(
        "GitBox", "DeleteAssetEnclosure: wrong enclosure",
        {{"enclosureID", inEnclosureID}, {"all enclosures", all}, {"statusCode", kHTTPStatus_InternalServerError}});
    return kHTTPStatus_InternalServerError;
}

}  // namespace

int TransactionWindow::PrepareEnclosure(const ImmutableString& inSessionID, const EnclosureContent& inEnclosure,
                                        dto::Enclosure& outEnclosure)
{
    dto::Enclosure enclosure = inEnclosure.mEnclosure;
    enclosure.mEnclosureID = KeepOrMakeID(enclosure.mEnclosureID);
    if (inEnclosure.mPayload) enclosure.mEnclosureContentID = ComputeContentHash(inSessionID, inEnclosure.mPayload);
    if (enclosure.mEnclosureContentID.empty()) {
        // A payload that was there but could not be stored is the store's fault, an absent or empty one the client's.
        const bool hadContent = inEnclosure.mPayload && !inEnclosure.mPayload->empty();
        return hadContent ? kHTTPStatus_InternalServerError : kHTTPStatus_BadRequest;
    }
    if (!inEnclosure.mPayload) {
        const int status = HasContent(inSessionID, enclosure.mEnclosureContentID);
        if (status == kHTTPStatus_NotFound) return kHTTPStatus_BadRequest;
        if (!IsSuccessfulHTTPStatus(status)) return status;
    }
    enclosure.mDataContentID = enclosure.mEnclosureContentID;
    outEnclosure = std::move(enclosure);
    return kHTTPStatus_OK;
}

int TransactionWindow::PrepareAsset(const ImmutableString& inSessionID, const ImmutableString& inAssetID,
                                    const AssetContent& inAsset, dto::Asset& outAsset)
{
    dto::Asset asset = inAsset.mAsset;
    asset.mAssetID = inAssetID;
    asset.mEnclosures.clear();
    for (const EnclosureContent& content : inAsset.mEnclosures) {
        dto::Enclosure enclosure;
        const int status = PrepareEnclosure(inSessionID, content, enclosure);
        if (!IsSuccessfulHTTPStatus(status)) return status;
        asset.mEnclosures.push_back(std::move(enclosure));
    }
    const int status = ComputeContentHashAndEmbedInAsset(inSessionID, asset);
    if (IsSuccessfulHTTPStatus(status)) outAsset = std::move(asset);
    return status;
}

int TransactionWindow::AddAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                                const AssetContent& inAsset, dto::Asset& outAsset)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    dto::Asset asset;
    const int status = PrepareAsset(transaction->mSessionID, KeepOrMakeID(inAssetID), inAsset, asset);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    ChangedAsset change = ChangeOf(asset);

    const ScopedLock lock(transaction->mMutex);
    if (transaction->mClosed) {
        return RefuseClosed("AddAsset: closed transaction", transaction->mSessionID, inTransactionID);
    }
    if (transaction->mDeletedAssets.contains(asset.mAssetID)) {
        return RefuseAsset("AddAsset: adding an asset previously deleted within this transaction", asset.mAssetID);
    }
    const auto [entry, added] = transaction->mAssets.try_emplace(asset.mAssetID, std::move(change));
    if (!added && entry->second.mAssetContentID != asset.mAssetContentID) {
        LogWarning("GitBox", "Conflict: attempting to add an asset twice in a single transaction",
                   {{"asset", asset.mAssetID},
                    {"newContentID", asset.mAssetContentID},
                    {"existingContentID", entry->second.mAssetContentID}});
        return kHTTPStatus_Conflict;
    }
    outAsset = std::move(asset);
    return kHTTPStatus_OK;
}

int TransactionWindow::EditAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                                 const AssetContent& inAsset, dto::Asset& outAsset)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    if (!IsUsableID(inAssetID)) return RefuseID(inAssetID);
    {
        const ScopedLock lock(transaction->mMutex);
        if (transaction->mClosed) {
            return RefuseClosed("EditAsset: closed transaction", transaction->mSessionID, inTransactionID);
        }
        if (transaction->mDeletedAssets.contains(inAssetID)) {
            return RefuseAsset("EditAsset: editing an asset previously deleted within this transaction", inAssetID);
        }
    }
    dto::Asset asset;
    const int status = PrepareAsset(transaction->mSessionID, inAssetID, inAsset, asset);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    const int stored = StoreEdit(*transaction, asset, inAsset.mMergedFrom);
    if (IsSuccessfulHTTPStatus(stored)) outAsset = std::move(asset);
    return stored;
}

int TransactionWindow::StoreEdit(Transaction& ioTransaction, const dto::Asset& inAsset,
                                 const std::optional<ImmutableString>& inMergedFrom)
{
    ChangedAsset change = ChangeOf(inAsset);
    const ScopedLock lock(ioTransaction.mMutex);
    if (ioTransaction.mClosed) {
        return RefuseClosed("EditAsset: closed transaction", ioTransaction.mSessionID, ioTransaction.mID);
    }
    if (ioTransaction.mDeletedAssets.contains(inAsset.mAssetID)) {
        return RefuseAsset("EditAsset: editing an asset previously deleted within this transaction", inAsset.mAssetID);
    }
    const auto current = ioTransaction.mAssets.find(inAsset.mAssetID);
    const ImmutableString currentContentID =
        current == ioTransaction.mAssets.end() ? ImmutableString() : current->second.mAssetContentID;
    if (inMergedFrom && *inMergedFrom != currentContentID) return kHTTPStatus_Conflict;
    ioTransaction.mAssets.insert_or_assign(inAsset.mAssetID, std::move(change));
    ioTransaction.mEditedAndRestored.insert(inAsset.mAssetID);
    return kHTTPStatus_OK;
}

int TransactionWindow::DeleteAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    if (!IsUsableID(inAssetID)) return RefuseID(inAssetID);
    const ScopedLock lock(transaction->mMutex);
    if (transaction->mClosed) {
        return RefuseClosed("DeleteAsset: closed transaction", transaction->mSessionID, inTransactionID);
    }
    transaction->mAssets.erase(inAssetID);
    transaction->mRestored.erase(inAssetID);
    transaction->mDeletedAssets.insert(inAssetID);
    return kHTTPStatus_OK;
}

int TransactionWindow::DeleteAssetEnclosure(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                                            const ImmutableString& inEnclosureID)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    if (!IsUsableID(inAssetID)) return RefuseID(inAssetID);
    {
        const ScopedLock lock(transaction->mMutex);
        if (transaction->mClosed) {
            return RefuseClosed("DeleteAssetEnclosure: closed transaction", transaction->mSessionID, inTransactionID);
        }
        if (transaction->mDeletedAssets.contains(inAssetID)) {
            return RefuseAsset("DeleteAssetEnclosure: editing an asset previously deleted within this transaction",
                               inAssetID);
        }
    }
    // Another request may have changed the asset between reading and storing: then it is read again.
    int status = kHTTPStatus_Conflict;
    while (status == kHTTPStatus_Conflict)
        status = TryDeleteAssetEnclosure(*transaction, inAssetID, inEnclosureID);
    return status;
}

int TransactionWindow::TryDeleteAssetEnclosure(Transaction& ioTransaction, const ImmutableString& inAssetID,
                                               const ImmutableString& inEnclosureID)
{
    dto::Asset asset;
    int status = GetTransactionAsset(ioTransaction.mID, inAssetID, asset);
    const ImmutableString mergedFrom = asset.mAssetContentID;
    if (status == kHTTPStatus_NotFound) status = GetAsset(ioTransaction.mSessionID, {}, inAssetID, asset);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    const std::size_t count = asset.mEnclosures.size();
    std::erase_if(asset.mEnclosures,
                  [&](const dto::Enclosure& inEnclosure) { return inEnclosure.mEnclosureID == inEnclosureID; });
    if (asset.mEnclosures.size() == count) return RefuseWrongEnclosure(asset, inEnclosureID);
    ComputeContentHashAndEmbedInAsset(ioTransaction.mSessionID, asset);
    if (asset.mAssetContentID.empty()) {
        LogError("GitBox", "DeleteAssetEnclosure: error in ComputeContentHashAndEmbedInAsset -- empty content hash",
                 {{"assetID", inAssetID}});
        return kHTTPStatus_InternalServerError;
    }
    return StoreEdit(ioTransaction, asset, mergedFrom);
}

int TransactionWindow::RestoreAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                                    const ImmutableString& inContentID, dto::Asset& outAsset)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    if (!IsUsableID(inAssetID)) return RefuseID(inAssetID);
    {
        const ScopedLock lock(transaction->mMutex);
        if (transaction->mClosed) {
            return RefuseClosed("RestoreAsset: closed transaction", transaction->mSessionID, inTransactionID);
        }
    }
    dto::Asset asset;
    int status = GetAssetByContentHash(transaction->mSessionID, inContentID, inAssetID, asset);
    if (!IsSuccessfulHTTPStatus(status)) {
        LogWarning("GitBox", "RestoreAsset: trying to restore an asset but the requested content was not found",
                   {{"contentID", inContentID}, {"status", status}});
        return status;
    }
    for (const dto::Enclosure& enclosure : asset.mEnclosures) {
        ConstRecycledMemoryPtr payload;
        status = GetAssetEnclosureByContentHash(transaction->mSessionID, enclosure.mEnclosureContentID, payload);
        if (!IsSuccessfulHTTPStatus(status)) return status;
    }
    ChangedAsset change = ChangeOf(asset);

    const ScopedLock lock(transaction->mMutex);
    if (transaction->mClosed) {
        return RefuseClosed("RestoreAsset: closed transaction", transaction->mSessionID, inTransactionID);
    }
    const auto [entry, added] = transaction->mAssets.try_emplace(inAssetID, std::move(change));
    if (!added) {
        LogWarning("GitBox", "RestoreAsset: restoring an asset previously edited or restored within this transaction",
                   {{"assetID", inAssetID},
                    {"newContentID", inContentID},
                    {"existingContentID", entry->second.mAssetContentID}});
        return kHTTPStatus_PreconditionFailed;
    }
    transaction->mEditedAndRestored.insert(inAssetID);
    transaction->mRestored.insert(inAssetID);
    if (transaction->mDeletedAssets.erase(inAssetID) > 0) {
        LogWarning("GitBox", "RestoreAsset: restoring an asset previously deleted within this transaction",
                   {{"assetID", inAssetID}});
    }
    outAsset = std::move(asset);
    return kHTTPStatus_OK;
}

int TransactionWindow::AddOrUpdateProductionEnclosure(const ImmutableString& inTransactionID,
                                                      const EnclosureContent& inEnclosure, dto::Enclosure& outEnclosure)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    dto::Enclosure enclosure;
    const int status = PrepareEnclosure(transaction->mSessionID, inEnclosure, enclosure);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    const ScopedLock lock(transaction->mMutex);
    if (transaction->mClosed) {
        return RefuseClosed("AddProductionEnclosure: closed transaction", transaction->mSessionID, inTransactionID);
    }
    if (inEnclosure.mMergedFrom) {
        const auto current = transaction->mProductionEnclosures.find(enclosure.mEnclosureID);
        const bool isThere = current != transaction->mProductionEnclosures.end();
        if (*inEnclosure.mMergedFrom != (isThere ? current->second : dto::Enclosure())) return kHTTPStatus_Conflict;
    }
    transaction->mProductionEnclosures.insert_or_assign(enclosure.mEnclosureID, enclosure);
    outEnclosure = std::move(enclosure);
    return kHTTPStatus_OK;
}

int TransactionWindow::EditSessionProperties(const ImmutableString& inTransactionID,
                                             const dto::ProductionProperties& inProperties)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    const ScopedLock lock(transaction->mMutex);
    if (transaction->mClosed) {
        return RefuseClosed("EditSessionProperties: closed transaction", transaction->mSessionID, inTransactionID);
    }
    transaction->mProperties = inProperties;
    return kHTTPStatus_OK;
}

}  // namespace VantryLocalHub::GitBox

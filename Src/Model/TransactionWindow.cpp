#include "Inc/Model/TransactionWindow.h"

#include <unordered_map>

#include "Client/Wire/AssetProperties.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/GitBoxIO.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxcore::logging::LogWarning;
using noxcore::threads::ScopedLock;
using noxnet::IsSuccessfulHTTPStatus;
using noxnet::kHTTPStatus_BadRequest;
using noxnet::kHTTPStatus_Created;
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
dto::Asset WithoutContent(const dto::Asset& inAsset)
{
    dto::Asset kept;
    kept.mAssetID = inAsset.mAssetID;
    kept.mAssetContentID = inAsset.mAssetContentID;
    kept.mEtag = inAsset.mEtag;
    kept.mBaseCommitID = inAsset.mBaseCommitID;
    kept.mConflictsWithContentID = inAsset.mConflictsWithContentID;
    return kept;
}

int RefuseClosed(std::string_view inMessage, const ImmutableString& inSessionID, const ImmutableString& inTransactionID)
{
    LogWarning("GitBox", inMessage, {{"sessionID", inSessionID}, {"transactionID", inTransactionID}});
    return kHTTPStatus_PreconditionFailed;
}

int RefuseAsset(std::string_view inMessage, const ImmutableString& inAssetID)
{
    LogWarning("GitBox", inMessage, {{"assetID", inAssetID}});
    return kHTTPStatus_PreconditionFailed;
}

}  // namespace

int TransactionWindow::CreateTransaction(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                         const ImmutableString& inRequiredHead, const ImmutableString& inType,
                                         const dto::TransactionCreate& inClient,
                                         dto::TransactionResource& outTransaction)
{
    const auto transaction = std::make_shared<Transaction>();
    transaction->mID = noxcore::utility::Guid::CreateUnique().Text();
    transaction->mSessionID = inSessionID;
    transaction->mType = inType;
    transaction->mClient = inClient;
    transaction->mRequiredHead = inRequiredHead;
    transaction->mRevision = inRevision;
    transaction->mCreated = RFC3339DateTime::Now();
    {
        const ScopedLock lock(mMutex);
        mOpen.emplace(transaction->mID, transaction);
    }
    outTransaction = ToResource(*transaction);
    return kHTTPStatus_Created;
}

dto::TransactionResource TransactionWindow::ToResource(const Transaction& inTransaction)
{
    dto::TransactionResource resource;
    resource.mTransactionID = inTransaction.mID;
    resource.mCommitID = inTransaction.mRevision;
    resource.mProperties = inTransaction.mClient.mProperties;
    resource.mMetadata = inTransaction.mClient.mMetadata;
    resource.mOwner = inTransaction.mClient.mOwner;
    resource.mLastModified = inTransaction.mCreated;
    resource.mSessionID = inTransaction.mSessionID;
    return resource;
}

TransactionWindow::TransactionPtr TransactionWindow::FindTransaction(const ImmutableString& inTransactionID) const
{
    const ScopedLock lock(mMutex);
    const auto found = mOpen.find(inTransactionID);
    return found == mOpen.end() ? nullptr : found->second;
}

int TransactionWindow::GetTransaction(const ImmutableString& inTransactionID, dto::TransactionResource& outTransaction)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    outTransaction = ToResource(*transaction);
    return kHTTPStatus_OK;
}

int TransactionWindow::GetTransactionList(const ImmutableString& inSessionID,
                                          std::vector<dto::TransactionResource>& outTransactions)
{
    dto::Session session;
    const int status = GetSession(inSessionID, session);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    outTransactions.clear();
    const ScopedLock lock(mMutex);
    for (const auto& [id, transaction] : mOpen) {
        if (transaction->mSessionID == session.mIdentifier) outTransactions.push_back(ToResource(*transaction));
    }
    return kHTTPStatus_OK;
}

int TransactionWindow::PrepareEnclosure(const ImmutableString& inSessionID, const EnclosureContent& inEnclosure,
                                        dto::Enclosure& outEnclosure)
{
    dto::Enclosure enclosure = inEnclosure.mEnclosure;
    enclosure.mEnclosureID = KeepOrMakeID(enclosure.mEnclosureID);
    if (inEnclosure.mPayload) enclosure.mEnclosureContentID = ComputeContentHash(inSessionID, inEnclosure.mPayload);
    if (enclosure.mEnclosureContentID.empty()) {
        // A payload that was there but could not be stored is the store's fault, an absent or empty one the client's.
        const bool hadContent = inEnclosure.mPayload && !inEnclosure.mPayload->empty();
        return hadContent ? noxnet::kHTTPStatus_InternalServerError : kHTTPStatus_BadRequest;
    }
    if (!inEnclosure.mPayload) {
        ConstRecycledMemoryPtr known;
        const int status = GetAssetEnclosureByContentHash(inSessionID, enclosure.mEnclosureContentID, known);
        if (status == kHTTPStatus_NotFound) return kHTTPStatus_BadRequest;
        if (!IsSuccessfulHTTPStatus(status)) return status;
    }
    enclosure.mDataContentID = enclosure.mEnclosureContentID;
    outEnclosure = std::move(enclosure);
    return kHTTPStatus_OK;
}

int TransactionWindow::PrepareAsset(const ImmutableString& inSessionID, const AssetContent& inAsset,
                                    dto::Asset& outAsset)
{
    dto::Asset asset = inAsset.mAsset;
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
    AssetContent content = inAsset;
    content.mAsset.mAssetID = KeepOrMakeID(inAssetID);
    dto::Asset asset;
    const int status = PrepareAsset(transaction->mSessionID, content, asset);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    const bool isBin = IsBin(asset.mProperties);
    const bool replacesBin = content.mAsset.mAssetID == inAssetID &&
                             GetHeadAssetType(transaction->mSessionID, inAssetID) == VYCL::GetAssetType_Bin();

    const ScopedLock lock(transaction->mMutex);
    if (transaction->mClosed) {
        return RefuseClosed("AddAsset: closed transaction", transaction->mSessionID, inTransactionID);
    }
    if (transaction->mDeletedAssets.contains(asset.mAssetID)) {
        return RefuseAsset("AddAsset: adding an asset previously deleted within this transaction", asset.mAssetID);
    }
    const auto [entry, added] = transaction->mAssets.emplace(asset.mAssetID, Entry{WithoutContent(asset), isBin, {}});
    if (!added && entry->second.mAsset.mAssetContentID != asset.mAssetContentID) {
        LogWarning("GitBox", "Conflict: attempting to add an asset twice in a single transaction",
                   {{"asset", asset.mAssetID},
                    {"newContentID", asset.mAssetContentID},
                    {"existingContentID", entry->second.mAsset.mAssetContentID}});
        return noxnet::kHTTPStatus_Conflict;
    }
    if (added) transaction->mBinDelta += (isBin ? 1 : 0) - (replacesBin ? 1 : 0);
    outAsset = std::move(asset);
    return kHTTPStatus_OK;
}

int TransactionWindow::EditAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                                 const AssetContent& inAsset, dto::Asset& outAsset)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    {
        const ScopedLock lock(transaction->mMutex);
        if (transaction->mClosed) {
            return RefuseClosed("EditAsset: closed transaction", transaction->mSessionID, inTransactionID);
        }
        if (transaction->mDeletedAssets.contains(inAssetID)) {
            return RefuseAsset("EditAsset: editing an asset previously deleted within this transaction", inAssetID);
        }
    }
    AssetContent content = inAsset;
    content.mAsset.mAssetID = inAssetID;
    dto::Asset asset;
    const int status = PrepareAsset(transaction->mSessionID, content, asset);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    const bool headIsBin = GetHeadAssetType(transaction->mSessionID, inAssetID) == VYCL::GetAssetType_Bin();

    const int stored = StoreEdit(*transaction, asset, IsBin(asset.mProperties), headIsBin);
    if (IsSuccessfulHTTPStatus(stored)) outAsset = std::move(asset);
    return stored;
}

int TransactionWindow::StoreEdit(Transaction& ioTransaction, const dto::Asset& inAsset, bool inIsBin, bool inHeadIsBin)
{
    const ScopedLock lock(ioTransaction.mMutex);
    if (ioTransaction.mClosed) {
        return RefuseClosed("EditAsset: closed transaction", ioTransaction.mSessionID, ioTransaction.mID);
    }
    if (ioTransaction.mDeletedAssets.contains(inAsset.mAssetID)) {
        return RefuseAsset("EditAsset: editing an asset previously deleted within this transaction", inAsset.mAssetID);
    }
    const auto [entry, added] = ioTransaction.mAssets.try_emplace(inAsset.mAssetID);
    const bool wasBin = added ? inHeadIsBin : entry->second.mIsBin;
    if (added && !inAsset.mBaseCommitID.empty()) entry->second.mReplacedContentID = inAsset.mBaseCommitID;
    entry->second.mAsset = WithoutContent(inAsset);
    entry->second.mIsBin = inIsBin;
    ioTransaction.mBinDelta += (inIsBin ? 1 : 0) - (wasBin ? 1 : 0);
    ioTransaction.mEditedAndRestored.insert(inAsset.mAssetID);
    return kHTTPStatus_OK;
}

int TransactionWindow::DeleteAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    const bool headIsBin = GetHeadAssetType(transaction->mSessionID, inAssetID) == VYCL::GetAssetType_Bin();
    const ScopedLock lock(transaction->mMutex);
    if (transaction->mClosed) {
        return RefuseClosed("DeleteAsset: closed transaction", transaction->mSessionID, inTransactionID);
    }
    if (!transaction->mDeletedAssets.insert(inAssetID).second) return kHTTPStatus_OK;
    const auto entry = transaction->mAssets.find(inAssetID);
    const bool isBin = entry == transaction->mAssets.end() ? headIsBin : entry->second.mIsBin;
    if (entry != transaction->mAssets.end()) transaction->mAssets.erase(entry);
    if (isBin) --transaction->mBinDelta;
    return kHTTPStatus_OK;
}

int TransactionWindow::ReadEntry(const Transaction& inTransaction, const Entry& inEntry, dto::Asset& outAsset)
{
    dto::Asset asset;
    const int status =
        GetAssetByContentHash(inTransaction.mSessionID, inEntry.mAsset.mAssetContentID, inEntry.mAsset.mAssetID, asset);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    asset.mBaseCommitID = inEntry.mAsset.mBaseCommitID;
    asset.mConflictsWithContentID = inEntry.mAsset.mConflictsWithContentID;
    outAsset = std::move(asset);
    return kHTTPStatus_OK;
}

int TransactionWindow::GetTransactionAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                                           dto::Asset& outAsset)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    Entry found;
    {
        const ScopedLock lock(transaction->mMutex);
        const auto entry = transaction->mAssets.find(inAssetID);
        if (entry == transaction->mAssets.end()) return kHTTPStatus_NotFound;
        found = entry->second;
    }
    return ReadEntry(*transaction, found, outAsset);
}

int TransactionWindow::GetTransactionAssetEnclosure(const ImmutableString& inTransactionID,
                                                    const ImmutableString& inAssetID,
                                                    const ImmutableString& inEnclosureID,
                                                    ConstRecycledMemoryPtr& outPayload)
{
    dto::Asset asset;
    const int status = GetTransactionAsset(inTransactionID, inAssetID, asset);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    for (const dto::Enclosure& enclosure : asset.mEnclosures) {
        if (enclosure.mEnclosureID != inEnclosureID) continue;
        return GetAssetEnclosureByContentHash(transaction->mSessionID, enclosure.mEnclosureContentID, outPayload);
    }
    return kHTTPStatus_NotFound;
}

int TransactionWindow::DeleteAssetEnclosure(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                                            const ImmutableString& inEnclosureID)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
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
    dto::Asset asset;
    int status = GetTransactionAsset(inTransactionID, inAssetID, asset);
    if (status == kHTTPStatus_NotFound) status = GetAsset(transaction->mSessionID, {}, inAssetID, asset);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    const std::size_t count = asset.mEnclosures.size();
    std::erase_if(asset.mEnclosures,
                  [&](const dto::Enclosure& inEnclosure) { return inEnclosure.mEnclosureID == inEnclosureID; });
    if (asset.mEnclosures.size() == count) {
        std::string all;
        for (const dto::Enclosure& enclosure : asset.mEnclosures)
            all += enclosure.mEnclosureID.Text() + " ";
        noxcore::logging::LogError("GitBox", "DeleteAssetEnclosure: wrong enclosure",
                                   {{"enclosureID", inEnclosureID},
                                    {"all enclosures", all},
                                    {"statusCode", noxnet::kHTTPStatus_InternalServerError}});
        return noxnet::kHTTPStatus_InternalServerError;
    }
    ComputeContentHashAndEmbedInAsset(transaction->mSessionID, asset);
    if (asset.mAssetContentID.empty()) {
        noxcore::logging::LogError(
            "GitBox", "DeleteAssetEnclosure: error in ComputeContentHashAndEmbedInAsset -- empty content hash",
            {{"assetID", inAssetID}});
        return noxnet::kHTTPStatus_InternalServerError;
    }
    const bool isBin = IsBin(asset.mProperties);
    return StoreEdit(*transaction, asset, isBin, isBin);
}

int TransactionWindow::RestoreAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                                    const ImmutableString& inContentID, dto::Asset& outAsset)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
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
    const bool headIsBin = GetHeadAssetType(transaction->mSessionID, inAssetID) == VYCL::GetAssetType_Bin();
    const bool isBin = IsBin(asset.mProperties);

    const ScopedLock lock(transaction->mMutex);
    if (transaction->mClosed) {
        return RefuseClosed("RestoreAsset: closed transaction", transaction->mSessionID, inTransactionID);
    }
    const auto [entry, added] =
        transaction->mAssets.emplace(inAssetID, Entry{WithoutContent(asset), isBin, inContentID});
    if (!added) {
        LogWarning("GitBox", "RestoreAsset: restoring an asset previously edited or restored within this transaction",
                   {{"assetID", inAssetID},
                    {"newContentID", inContentID},
                    {"existingContentID", entry->second.mAsset.mAssetContentID}});
        return kHTTPStatus_PreconditionFailed;
    }
    transaction->mEditedAndRestored.insert(inAssetID);
    transaction->mRestored.insert(inAssetID);
    const bool wasDeleted = transaction->mDeletedAssets.erase(inAssetID) > 0;
    if (wasDeleted) {
        LogWarning("GitBox", "RestoreAsset: restoring an asset previously deleted within this transaction",
                   {{"assetID", inAssetID}});
    }
    // A deletion in this transaction has counted the head's bin off already.
    transaction->mBinDelta += (isBin ? 1 : 0) - (headIsBin && !wasDeleted ? 1 : 0);
    outAsset = std::move(asset);
    return kHTTPStatus_OK;
}

bool TransactionWindow::IsAssetRestoredInTransaction(const ImmutableString& inTransactionID,
                                                     const ImmutableString& inAssetID)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return false;
    const ScopedLock lock(transaction->mMutex);
    return transaction->mRestored.contains(inAssetID);
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

int TransactionWindow::CloseTransaction(const ImmutableString& inTransactionID)
{
    TransactionPtr ignored;
    return CloseTransaction(inTransactionID, ignored);
}

int TransactionWindow::CloseTransaction(const ImmutableString& inTransactionID, TransactionPtr& outTransaction)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    const ScopedLock lock(transaction->mMutex);
    if (transaction->mClosed) return kHTTPStatus_PreconditionFailed;
    transaction->mClosed = true;
    outTransaction = transaction;
    return kHTTPStatus_OK;
}

void TransactionWindow::DeleteTransaction(const ImmutableString& inTransactionID)
{
    const ScopedLock lock(mMutex);
    mOpen.erase(inTransactionID);
}

void TransactionWindow::DeleteTransactionsForSession(const ImmutableString& inSessionID)
{
    const ScopedLock lock(mMutex);
    std::erase_if(mOpen, [&](const auto& inEntry) { return inEntry.second->mSessionID == inSessionID; });
}

TransactionChanges TransactionWindow::TakeChanges(Transaction& ioTransaction)
{
    const ScopedLock lock(ioTransaction.mMutex);
    TransactionChanges changes;
    changes.mAssets.reserve(ioTransaction.mAssets.size());
    for (const auto& [id, entry] : ioTransaction.mAssets)
        changes.mAssets.push_back(entry.mAsset);
    changes.mDeletedAssets = ioTransaction.mDeletedAssets;
    for (const auto& [id, enclosure] : ioTransaction.mProductionEnclosures) {
        changes.mProductionEnclosures.push_back(enclosure);
    }
    changes.mProperties = ioTransaction.mProperties;
    changes.mBinDelta = ioTransaction.mBinDelta;
    return changes;
}

std::set<ImmutableString> TransactionWindow::GetRestoredAssets(Transaction& inTransaction)
{
    const ScopedLock lock(inTransaction.mMutex);
    return inTransaction.mRestored;
}

int TransactionWindow::OverlayTransaction(const ImmutableString& inTransactionID, bool inWithEnclosures,
                                          std::vector<dto::Asset>& ioAssets)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    std::map<ImmutableString, Entry> changed;
    std::set<ImmutableString> deleted;
    {
        const ScopedLock lock(transaction->mMutex);
        changed = transaction->mAssets;
        deleted = transaction->mDeletedAssets;
    }
    std::erase_if(ioAssets, [&](const dto::Asset& inAsset) {
        return deleted.contains(inAsset.mAssetID) || changed.contains(inAsset.mAssetID);
    });
    for (const auto& [id, entry] : changed) {
        dto::Asset asset;
        const int status = ReadEntry(*transaction, entry, asset);
        if (!IsSuccessfulHTTPStatus(status)) return status;
        if (!inWithEnclosures) asset.mEnclosures.clear();
        ioAssets.push_back(std::move(asset));
    }
    return kHTTPStatus_OK;
}

}  // namespace VantryLocalHub::GitBox

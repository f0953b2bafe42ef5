#include "Inc/Model/TransactionWindow.h"

#include <utility>

#include "Platform/noxcore/Guid.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxcore::threads::ScopedLock;
using noxnet::IsSuccessfulHTTPStatus;
using noxnet::kHTTPStatus_Created;
using noxnet::kHTTPStatus_Locked;
using noxnet::kHTTPStatus_NotFound;
using noxnet::kHTTPStatus_OK;
using noxnet::kHTTPStatus_PreconditionFailed;

int TransactionWindow::CreateTransaction(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                         const ImmutableString& inRequiredHead, const ImmutableString& inType,
                                         const dto::TransactionCreate& inClient,
                                         dto::TransactionResource& outTransaction)
{
    const auto transaction = std::make_shared<Transaction>(inClient);
    transaction->mID = noxcore::utility::Guid::CreateUnique().Text();
    transaction->mSessionID = inSessionID;
    transaction->mType = inType;
    transaction->mRequiredHead = inRequiredHead;
    transaction->mRevision = inRevision;
    transaction->mCreated = RFC3339DateTime::Now();
    {
        const ScopedLock lock(mMutex);
        if (mPaused.contains(inSessionID)) return kHTTPStatus_Locked;
        mOpen.emplace(transaction->mID, transaction);
    }
    outTransaction = ToResource(*transaction);
    return kHTTPStatus_Created;
}

TransactionWindow::Pause::Pause(TransactionWindow& inWindow, const ImmutableString& inSessionID)
    : mWindow(inWindow), mSessionID(inSessionID)
{
    std::vector<TransactionPtr> transactions;
    const ScopedLock lock(mWindow.mMutex);
    for (const auto& [id, transaction] : mWindow.mOpen) {
        const ScopedLock ofTransaction(transaction->mMutex);
        if (transaction->mSessionID == mSessionID && !transaction->mClosed) return;
    }
    mHolds = mWindow.mPaused.insert(mSessionID).second;
}

TransactionWindow::Pause::~Pause()
{
    if (!mHolds) return;
    const ScopedLock lock(mWindow.mMutex);
    mWindow.mPaused.erase(mSessionID);
}

dto::TransactionResource TransactionWindow::ToResource(Transaction& inTransaction)
{
    const ScopedLock lock(inTransaction.mMutex);
    dto::TransactionResource resource;
    resource.mTransactionID = inTransaction.mID;
    resource.mCommitID = inTransaction.mRevision;
    resource.mProperties = inTransaction.mClient.mProperties;
    resource.mMetadata = inTransaction.mClient.mMetadata;
    resource.mOwner = inTransaction.mClient.mOwner;
    resource.mLastModified = inTransaction.mCreated;
    resource.mSessionID = inTransaction.mSessionID;
    resource.mIsClosed = inTransaction.mClosed;
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
    std::vector<TransactionPtr> transactions;
    {
        const ScopedLock lock(mMutex);
        for (const auto& [id, transaction] : mOpen) {
            if (transaction->mSessionID == session.mIdentifier) transactions.push_back(transaction);
        }
    }
    outTransactions.clear();
    for (const TransactionPtr& transaction : transactions) {
        dto::TransactionResource resource = ToResource(*transaction);
        if (!resource.mIsClosed) outTransactions.push_back(std::move(resource));
    }
    return kHTTPStatus_OK;
}

int TransactionWindow::ReadChanged(const Transaction& inTransaction, const ChangedAsset& inChange, dto::Asset& outAsset)
{
    dto::Asset asset;
    const int status =
        GetAssetByContentHash(inTransaction.mSessionID, inChange.mAssetContentID, inChange.mAssetID, asset);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    asset.mBaseCommitID = inChange.mBaseCommitID;
    asset.mConflictsWithContentID = inChange.mConflictsWithContentID;
    outAsset = std::move(asset);
    return kHTTPStatus_OK;
}

int TransactionWindow::GetTransactionAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                                           dto::Asset& outAsset)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    ChangedAsset found;
    {
        const ScopedLock lock(transaction->mMutex);
        const auto entry = transaction->mAssets.find(inAssetID);
        if (entry == transaction->mAssets.end()) return kHTTPStatus_NotFound;
        found = entry->second;
    }
    return ReadChanged(*transaction, found, outAsset);
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

bool TransactionWindow::IsAssetRestoredInTransaction(const ImmutableString& inTransactionID,
                                                     const ImmutableString& inAssetID)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return false;
    const ScopedLock lock(transaction->mMutex);
    return transaction->mRestored.contains(inAssetID);
}

int TransactionWindow::GetTransactionProductionEnclosure(const ImmutableString& inTransactionID,
                                                         const ImmutableString& inEnclosureID,
                                                         dto::Enclosure& outEnclosure)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    const ScopedLock lock(transaction->mMutex);
    const auto found = transaction->mProductionEnclosures.find(inEnclosureID);
    if (found == transaction->mProductionEnclosures.end()) return kHTTPStatus_NotFound;
    outEnclosure = found->second;
    return kHTTPStatus_OK;
}

int TransactionWindow::CloseTransaction(const ImmutableString& inTransactionID)
{
    TransactionPtr transaction;
    const int status = CloseTransaction(inTransactionID, transaction);
    if (IsSuccessfulHTTPStatus(status)) AbandonTransaction(*transaction);
    return status;
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

void TransactionWindow::AbandonTransaction(Transaction& ioTransaction)
{
    {
        const ScopedLock lock(ioTransaction.mMutex);
        ioTransaction.mClient = {};
        ioTransaction.mAssets.clear();
        ioTransaction.mDeletedAssets.clear();
        ioTransaction.mEditedAndRestored.clear();
        ioTransaction.mRestored.clear();
        ioTransaction.mProductionEnclosures.clear();
        ioTransaction.mProperties.reset();
    }
    const ScopedLock lock(mMutex);
    mAbandoned.push_back(ioTransaction.mID);
    if (mAbandoned.size() <= kMaxAbandoned) return;
    mOpen.erase(mAbandoned.front());
    mAbandoned.pop_front();
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
    for (auto& [id, change] : ioTransaction.mAssets)
        changes.mAssets.push_back(std::move(change));
    ioTransaction.mAssets.clear();
    changes.mDeletedAssets = std::exchange(ioTransaction.mDeletedAssets, {});
    for (auto& [id, enclosure] : ioTransaction.mProductionEnclosures)
        changes.mProductionEnclosures.push_back(std::move(enclosure));
    ioTransaction.mProductionEnclosures.clear();
    changes.mProperties = std::exchange(ioTransaction.mProperties, {});
    return changes;
}

std::set<ImmutableString> TransactionWindow::GetRestoredAssets(Transaction& inTransaction)
{
    const ScopedLock lock(inTransaction.mMutex);
    return inTransaction.mRestored;
}

int TransactionWindow::GetTransactionAssets(const ImmutableString& inTransactionID, std::vector<dto::Asset>& outAssets)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    std::map<ImmutableString, ChangedAsset> changed;
    {
        const ScopedLock lock(transaction->mMutex);
        changed = transaction->mAssets;
    }
    std::vector<dto::Asset> assets(changed.size());
    std::size_t index = 0;
    for (const auto& [id, entry] : changed) {
        const int status = ReadChanged(*transaction, entry, assets[index++]);
        if (!IsSuccessfulHTTPStatus(status)) return status;
    }
    outAssets = std::move(assets);
    return kHTTPStatus_OK;
}

int TransactionWindow::GetTransactionDeletedAssets(const ImmutableString& inTransactionID,
                                                   std::set<ImmutableString>& outIDs)
{
    const auto transaction = FindTransaction(inTransactionID);
    if (!transaction) return kHTTPStatus_NotFound;
    const ScopedLock lock(transaction->mMutex);
    outIDs = transaction->mDeletedAssets;
    return kHTTPStatus_OK;
}

int TransactionWindow::OverlayTransaction(const ImmutableString& inTransactionID, bool inWithEnclosures,
                                          std::vector<dto::Asset>& ioAssets)
{
    std::vector<dto::Asset> changed;
    std::set<ImmutableString> hidden;
    int status = GetTransactionAssets(inTransactionID, changed);
    if (IsSuccessfulHTTPStatus(status)) status = GetTransactionDeletedAssets(inTransactionID, hidden);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    for (const dto::Asset& asset : changed)
        hidden.insert(asset.mAssetID);
    std::erase_if(ioAssets, [&](const dto::Asset& inAsset) { return hidden.contains(inAsset.mAssetID); });
    for (dto::Asset& asset : changed) {
        if (!inWithEnclosures) asset.mEnclosures.clear();
        ioAssets.push_back(std::move(asset));
    }
    return kHTTPStatus_OK;
}

}  // namespace VantryLocalHub::GitBox

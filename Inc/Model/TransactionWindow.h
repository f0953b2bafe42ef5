#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "Inc/Model/ProjectBox.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub::GitBox {

/// The open transactions of all sessions, in memory only: nothing shows in a repository before the commit, and none
/// survives a restart. Payloads and asset trees go to the object store as they arrive, so that a commit only moves
/// references; what stays here of an asset is its ids. Of a transaction that was rolled back or whose commit failed
/// only the fact stays that it was closed, and of those the latest ones.
///
/// Threading: any thread. mMutex guards the map alone; content is hashed and written under no lock, so whoever comes
/// back from that work looks again whether the transaction was closed meanwhile.
/// Lock order: the window, then one Transaction. Calls the store below with neither held.
class TransactionWindow : public virtual ProjectBox
{
public:
    int GetTransactionList(const ImmutableString& inSessionID,
                           std::vector<dto::TransactionResource>& outTransactions) override;
    int GetTransaction(const ImmutableString& inTransactionID, dto::TransactionResource& outTransaction) override;
    int EditSessionProperties(const ImmutableString& inTransactionID,
                              const dto::ProductionProperties& inProperties) override;
    int AddAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID, const AssetContent& inAsset,
                 dto::Asset& outAsset) override;
    int GetTransactionAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                            dto::Asset& outAsset) override;
    int AddOrUpdateProductionEnclosure(const ImmutableString& inTransactionID, const EnclosureContent& inEnclosure,
                                       dto::Enclosure& outEnclosure) override;
    int GetTransactionAssetEnclosure(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                                     const ImmutableString& inEnclosureID, ConstRecycledMemoryPtr& outPayload) override;
    int EditAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID, const AssetContent& inAsset,
                  dto::Asset& outAsset) override;
    int DeleteAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID) override;
    int DeleteAssetEnclosure(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                             const ImmutableString& inEnclosureID) override;
    int RestoreAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                     const ImmutableString& inContentID, dto::Asset& outAsset) override;
    bool IsAssetRestoredInTransaction(const ImmutableString& inTransactionID,
                                      const ImmutableString& inAssetID) override;
    int CloseTransaction(const ImmutableString& inTransactionID) override;
    int GetTransactionProductionEnclosure(const ImmutableString& inTransactionID, const ImmutableString& inEnclosureID,
                                          dto::Enclosure& outEnclosure) override;

    /// All assets that the transaction added, edited or restored, in full. 200 or 404, or what a read gives.
    int GetTransactionAssets(const ImmutableString& inTransactionID, std::vector<dto::Asset>& outAssets);
    int GetTransactionDeletedAssets(const ImmutableString& inTransactionID, std::set<ImmutableString>& outIDs);

protected:
    struct Transaction
    {
        explicit Transaction(dto::TransactionCreate inClient) : mClient(std::move(inClient)) {}

        ImmutableString mID;
        ImmutableString mSessionID;
        ImmutableString mType;
        ImmutableString mRequiredHead;
        ImmutableString mRevision;  ///< the session's head when it was opened
        RFC3339DateTime mCreated;

        noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Transaction};
        dto::TransactionCreate mClient GUARDED_BY(mMutex);
        std::map<ImmutableString, ChangedAsset> mAssets GUARDED_BY(mMutex);
        std::set<ImmutableString> mDeletedAssets GUARDED_BY(mMutex);
        std::set<ImmutableString> mEditedAndRestored GUARDED_BY(mMutex);
        std::set<ImmutableString> mRestored GUARDED_BY(mMutex);
        std::map<ImmutableString, dto::Enclosure> mProductionEnclosures GUARDED_BY(mMutex);
        std::optional<dto::ProductionProperties> mProperties GUARDED_BY(mMutex);
        bool mClosed GUARDED_BY(mMutex) = false;
    };
    using TransactionPtr = std::shared_ptr<Transaction>;

    /// 201 with the record; 423 during a Pause.
    int CreateTransaction(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                          const ImmutableString& inRequiredHead, const ImmutableString& inType,
                          const dto::TransactionCreate& inClient, dto::TransactionResource& outTransaction);
    /// While it lives, no transaction of a session can be opened. False where one is open: nothing is held off then.
    class Pause
    {
    public:
        Pause(TransactionWindow& inWindow, const ImmutableString& inSessionID);
        ~Pause();
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;
        explicit operator bool() const { return mHolds; }

    private:
        TransactionWindow& mWindow;
        const ImmutableString mSessionID;
        bool mHolds = false;
    };
    /// Closes it and gives it out. 404; 412: closed already.
    int CloseTransaction(const ImmutableString& inTransactionID, TransactionPtr& outTransaction);
    /// Frees what a closed transaction holds. Its id stays for a while, so that a late change is told that it came late
    /// and not that there never was such a transaction.
    void AbandonTransaction(Transaction& ioTransaction);
    void DeleteTransaction(const ImmutableString& inTransactionID);
    void DeleteTransactionsForSession(const ImmutableString& inSessionID);
    /// Null when there is none.
    [[nodiscard]] TransactionPtr FindTransaction(const ImmutableString& inTransactionID) const;
    /// What a closed transaction brings to its commit.
    static TransactionChanges TakeChanges(Transaction& ioTransaction);
    static std::set<ImmutableString> GetRestoredAssets(Transaction& inTransaction);
    /// The transaction's assets and deletions put over a list of the session's.
    int OverlayTransaction(const ImmutableString& inTransactionID, bool inWithEnclosures,
                           std::vector<dto::Asset>& ioAssets);

private:
    static constexpr std::size_t kMaxAbandoned = 1024;

    static dto::TransactionResource ToResource(Transaction& inTransaction);
    int PrepareAsset(const ImmutableString& inSessionID, const ImmutableString& inAssetID, const AssetContent& inAsset,
                     dto::Asset& outAsset);
    int PrepareEnclosure(const ImmutableString& inSessionID, const EnclosureContent& inEnclosure,
                         dto::Enclosure& outEnclosure);
    /// 409: the transaction's asset is not the one that the edit was merged from.
    int StoreEdit(Transaction& ioTransaction, const dto::Asset& inAsset,
                  const std::optional<ImmutableString>& inMergedFrom);
    int TryDeleteAssetEnclosure(Transaction& ioTransaction, const ImmutableString& inAssetID,
                                const ImmutableString& inEnclosureID);
    int ReadChanged(const Transaction& inTransaction, const ChangedAsset& inChange, dto::Asset& outAsset);

    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::TransactionWindow};
    std::map<ImmutableString, TransactionPtr> mOpen GUARDED_BY(mMutex);  ///< id -> transaction
    std::set<ImmutableString> mPaused GUARDED_BY(mMutex);                ///< sessions
    std::deque<ImmutableString> mAbandoned GUARDED_BY(mMutex);           ///< ids in mOpen, the oldest first
};

}  // namespace VantryLocalHub::GitBox

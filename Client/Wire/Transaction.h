#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// What a client says of its transaction; it becomes the commit's message.
struct TransactionMetadata
{
    std::string mCommitMessage;
    RawJSON mMetadata;
    int mCommitMessageCode = 0;
    ImmutableString mApplicationInstanceID;

    static constexpr auto kFields =
        std::tuple{Always("commitMessage", &TransactionMetadata::mCommitMessage),
                   Always("metadata", &TransactionMetadata::mMetadata),
                   Always("commitMessageCode", &TransactionMetadata::mCommitMessageCode),
                   Always("applicationInstanceID", &TransactionMetadata::mApplicationInstanceID)};
    friend bool operator==(const TransactionMetadata&, const TransactionMetadata&) = default;
};

/// An open transaction, or the outcome of its commit.
struct TransactionResource
{
    ImmutableString mTransactionID;
    ImmutableString mCommitID;  ///< the head it was opened at; after the commit, the new commit
    ImmutableString mEtag;
    RawJSON mProperties;
    TransactionMetadata mMetadata;
    std::string mOwner;
    RFC3339DateTime mLastModified;
    std::vector<Link> mLinks;
    // Inside the hub only, never on the wire
    ImmutableString mSessionID;  ///< the session it belongs to
    bool mIsClosed = false;      ///< it was rolled back, or its commit has begun

    static constexpr auto kFields = std::tuple{Always("vy:transactionId", &TransactionResource::mTransactionID),
                                               Always("commitId", &TransactionResource::mCommitID),
                                               Always("vy:etag", &TransactionResource::mEtag),
                                               Always("properties", &TransactionResource::mProperties),
                                               Always("metadata", &TransactionResource::mMetadata),
                                               Always("owner", &TransactionResource::mOwner),
                                               Always("vy:lastModified", &TransactionResource::mLastModified),
                                               Always("links", &TransactionResource::mLinks)};
    friend bool operator==(const TransactionResource&, const TransactionResource&) = default;
};

/// Body of the request that opens a transaction.
struct TransactionCreate
{
    ImmutableString mTransactionID;
    ImmutableString mCommitID;
    RawJSON mProperties;
    TransactionMetadata mMetadata;
    std::string mOwner;
    RFC3339DateTime mLastModified;
    std::vector<Link> mLinks;
    bool mRequireHead = false;  ///< the session must be at the revision of the URL

    static constexpr auto kFields = std::tuple{Always("vy:transactionId", &TransactionCreate::mTransactionID),
                                               Always("commitId", &TransactionCreate::mCommitID),
                                               Always("properties", &TransactionCreate::mProperties),
                                               Always("metadata", &TransactionCreate::mMetadata),
                                               Always("owner", &TransactionCreate::mOwner),
                                               Always("vy:lastModified", &TransactionCreate::mLastModified),
                                               Always("links", &TransactionCreate::mLinks),
                                               Always(":requireHead", &TransactionCreate::mRequireHead)};
    friend bool operator==(const TransactionCreate&, const TransactionCreate&) = default;
};

/// The open transactions of a session.
struct TransactionsResource
{
    std::vector<TransactionResource> mTransactions;
    Stats mStats;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("transactions", &TransactionsResource::mTransactions),
                   Always("stats", &TransactionsResource::mStats), Always("links", &TransactionsResource::mLinks)};
    friend bool operator==(const TransactionsResource&, const TransactionsResource&) = default;
};

struct CommittedRendition
{
    ImmutableString mRenditionID;
    ImmutableString mIndexID;

    static constexpr auto kFields = std::tuple{Always("renditionId", &CommittedRendition::mRenditionID),
                                               Always("indexId", &CommittedRendition::mIndexID)};
    friend bool operator==(const CommittedRendition&, const CommittedRendition&) = default;
};

/// An asset that a transaction took; `indexId` names the row of the request.
struct CommittedAsset
{
    ImmutableString mAssetID;
    ImmutableString mIndexID;
    ImmutableString mAssetContentID;
    std::vector<CommittedRendition> mRenditions;
    ImmutableString mEtag;

    static constexpr auto kFields =
        std::tuple{Always("assetId", &CommittedAsset::mAssetID), Always("indexId", &CommittedAsset::mIndexID),
                   Always("assetContentId", &CommittedAsset::mAssetContentID),
                   Always("renditions", &CommittedAsset::mRenditions), Always("vy:etag", &CommittedAsset::mEtag)};
    friend bool operator==(const CommittedAsset&, const CommittedAsset&) = default;
};

/// An enclosure that a transaction took.
struct CommittedEnclosure
{
    ImmutableString mEnclosureID;
    ImmutableString mIndexID;
    ImmutableString mEnclosureContentID;

    static constexpr auto kFields = std::tuple{Always("enclosureId", &CommittedEnclosure::mEnclosureID),
                                               Always("indexId", &CommittedEnclosure::mIndexID),
                                               Always("enclosureContentId", &CommittedEnclosure::mEnclosureContentID)};
    friend bool operator==(const CommittedEnclosure&, const CommittedEnclosure&) = default;
};

/// Answer to rows that were added to a transaction.
struct TransactionResult
{
    std::vector<CommittedAsset> mAssets;
    std::vector<CommittedEnclosure> mEnclosures;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("assets", &TransactionResult::mAssets), Always("enclosures", &TransactionResult::mEnclosures),
                   Always("links", &TransactionResult::mLinks)};
    friend bool operator==(const TransactionResult&, const TransactionResult&) = default;
};

/// A row of a preflight whose content must still be sent.
struct UploadTicket
{
    ImmutableString mIndexID;
    ImmutableString mUploadID;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("indexId", &UploadTicket::mIndexID), Always("uploadId", &UploadTicket::mUploadID),
                   Always("links", &UploadTicket::mLinks)};
    friend bool operator==(const UploadTicket&, const UploadTicket&) = default;
};

/// Answer to a preflight.
struct UploadTickets
{
    std::vector<UploadTicket> mUploads;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("uploads", &UploadTickets::mUploads), Always("links", &UploadTickets::mLinks)};
    friend bool operator==(const UploadTickets&, const UploadTickets&) = default;
};

}  // namespace VantryLocalHub::dto

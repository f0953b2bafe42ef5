#pragma once

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/Operations/Operation.h"
#include "Client/Wire/Operations/Phrases.h"
#include "Client/Wire/Vocabulary.h"

/// What a session holds: assets, the transactions that change them, and what stands beside them without a history.
namespace VantryLocalHub::API {

namespace Template = VYCL::URLTemplate;
namespace QueryKeys = VYCL::QueryKeys;
namespace FormKeys = VYCL::FormKeys;

inline constexpr auto kAssetsOperations = std::to_array<Operation>({
    Operation(
        "GET", "", At(Template::kAssets, "productionId", "commitId"),
        "The assets of a revision: all, or those of one bin; with properties and enclosures, or in the condensed view.")
        .Asks(QueryKeys::kView)
        .Asks(QueryKeys::kParentID)
        .Answers<dto::AssetsResource, dto::CondensedAssetsResource>()
        .Tagged()
        .Fails(404, kNoRevision),
});

inline constexpr auto kRestoreFields = std::to_array<Field>({
    {"vy:transactionId", ValueKind::Text,
     "the open transaction that the restore belongs to; without it the restore is committed at once"},
});

inline constexpr auto kAssetOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kAsset, "productionId", "commitId", "assetId"), "One asset at one revision.")
        .Answers<dto::Asset>(200, "the tag is the asset's `vy:etag`")
        .Tagged()
        .Fails(404, kNoAsset),
    Operation("GET", "enclosures", At(Template::kAssetEnclosures, "productionId", "commitId", "assetId"),
              "The enclosures of an asset.")
        .Answers<dto::EnclosuresResource>(200, "the tag is the asset's `vy:etag`")
        .Tagged()
        .Fails(404, kNoAsset),
    Operation("GET", "enclosureById",
              At(Template::kAssetEnclosureById, "productionId", "commitId", "assetId", "enclosureId"),
              "The payload of an enclosure.")
        .AnswersPayload("the payload")
        .Fails(404, "no such production, revision, asset or enclosure"),
    Operation("GET", "enclosureByContentId",
              At(Template::kAssetEnclosureByContentId_ContentId, "productionId", "commitId", "assetId"),
              "A payload by its content id.")
        .AnswersPayload("the payload; the tag is its content id")
        .Tagged()
        .Fails(404, "no such production or payload"),
    Operation("POST", "restore", At(Template::kAssetHEAD_AssetIdRestore_AssetContentId, "productionId"),
              "Gives an asset the content of an earlier revision, or brings back one that was deleted.")
        .Takes(BodyKind::Object, kRestoreFields)
        .IfAny()
        .Answers<dto::Asset>(200, "the asset at the new head, or as the named transaction has it")
        .WithHeader("ETag", kTagOfAnswer)
        .Fails(400, "the body is unreadable, or the transaction belongs to another session")
        .Fails(404, "no such production, asset, content or transaction")
        .Fails(412, "the transaction is closed, or it has changed the asset already"),
    Operation("POST", "restoreFromProduction", At(Template::kAssetHEAD_AssetIdRestoreFromProduction, "productionId"),
              "Gives an asset the content that the server's production has.")
        .AnswersNothing(200, "restored")
        .Fails(404, kNoProduction)
        .Fails(501, kEngineCannot),
    Operation("PUT", "properties", At(Template::kAssetProperties, "productionId", "commitId", "assetId"),
              "Always refused: assets change in transactions only.")
        .Fails(412, "always"),
});

inline constexpr auto kTransactionsOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kTransactions, "productionId", "commitId"),
              "The open transactions of a session; the revision does not matter.")
        .Answers<dto::TransactionsResource>()
        .Tagged()
        .Fails(404, kNoProduction),
    Operation("POST", "", At(Template::kTransactions, "productionId", "commitId"),
              "Opens a transaction at a revision. It lives in memory until its commit: a restart of the hub loses it.")
        .Takes<dto::TransactionCreate>(
            "`:requireHead` true: the session must be at the URL's revision now and when the transaction is committed.")
        .Answers<dto::TransactionResource>(201)
        .Located()
        .Fails(404, kNoRevision)
        .Fails(409, "the session has moved on from the revision that `:requireHead` asks for")
        .Fails(415, kBodyUnreadable),
});

inline constexpr auto kCommitFields = std::to_array<Field>({
    {FormKeys::kCommitMessage, ValueKind::Text,
     "message of the commit; else `metadata.commitMessage`, else that of the transaction's opening"},
    {FormKeys::kResolveStrategy,
     ValueKind::Text,
     "which side wins where the session is in conflict",
     false,
     {},
     {"accept-theirs", "accept-yours"}},
    {"metadata", ValueKind::Object, "what the application says of the commit", false,
     dto::RecordName<dto::TransactionMetadata>::kText},
});

constexpr Operation FillsTransaction(std::string_view inMethod, std::string_view inSelector,
                                     std::string_view inTemplate, std::string_view inSummary,
                                     BodyKind inBody = BodyKind::RowsToFill)
{
    return Operation(inMethod, inSelector, At(inTemplate, "transactionId"), inSummary)
        .Takes(inBody,
               "Rows are taken in the order in which they first appear; after one that is refused the earlier ones "
               "stay in the transaction.")
        .Answers<dto::TransactionResult>(200, "a row for each of the form, with its `indexId`")
        .Fails(400, "a key or a value of the form is not understood, a name is empty, or a content id is unknown");
}

inline constexpr auto kTransactionOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kTransaction, "transactionId"),
              "One open transaction, with the links to fill, commit and roll it back.")
        .Answers<dto::TransactionResource>()
        .Tagged()
        .Fails(404, kNoTransaction),
    FillsTransaction("POST", "bulkCreate", Template::kTransactionBulkCreate,
                     "Adds assets and enclosures. An id that the head has is replaced.")
        .Fails(404, kNoTransaction)
        .Fails(409, "the transaction has that asset already, with other content")
        .Fails(412, "the transaction is closed, or it deletes the asset"),
    FillsTransaction("POST", "bulkEdit", Template::kTransactionBulkEdit,
                     "Changes what the form names; enclosures and properties that it does not name stay.")
        .Fails(404, "no such transaction or asset")
        .Fails(412, "the transaction is closed, or it deletes the asset"),
    FillsTransaction("PUT", "bulkEdit", Template::kTransactionBulkEdit, "The same as POST.")
        .Fails(404, "no such transaction or asset")
        .Fails(412, "the transaction is closed, or it deletes the asset"),
    FillsTransaction("POST", "bulkDelete", Template::kTransactionBulkDelete,
                     "Deletes assets, and enclosures of assets; those of the production stay.", BodyKind::RowsToDelete)
        .Fails(404, "no such transaction, or no such asset of an enclosure")
        .Fails(412, "the transaction is closed, or it deletes the asset of an enclosure")
        .Fails(500, "the asset has no such enclosure"),
    Operation("POST", "bulkPreflight", At(Template::kTransactionBulkPreflight, "transactionId"),
              "Tells which payloads the store does not have yet: send the content ids, then only what is asked for.")
        .Takes(BodyKind::RowsToFill, "Rows of `content` with a content id as the value, or in the key.")
        .Answers<dto::UploadTickets>(200, "a row for each payload that must still be sent")
        .Fails(400, "a key or a value of the form is not understood")
        .Fails(404, kNoTransaction)
        .Fails(412, kTransactionClosed),
    Operation("POST", "commit", At(Template::kTransactionCommit, "transactionId"),
              "Makes a commit of the transaction; of several commits in a race one wins.")
        .Takes(BodyKind::Form, kCommitFields,
               "A JSON object is read as such, whatever the `Content-Type`; an empty body is refused.")
        .Answers<dto::TransactionResource>(200, "`commitId` is the new commit; it is durable")
        .WithHeader("ETag", kTagOfAnswer)
        .Fails(400, kFormUnreadable)
        .Fails(404, kNoTransaction)
        .Fails(409, "the session has moved on from the head that the transaction requires")
        .Fails(412, kTransactionClosed),
    Operation("POST", "rollback", At(Template::kTransactionRollback, "transactionId"), "Gives the transaction up.")
        .AnswersNothing(200, "rolled back")
        .Fails(404, kNoTransaction)
        .Fails(412, kTransactionClosed),
});

inline constexpr auto kMediaLocatorFields = std::to_array<Field>({
    {FormKeys::kMediaLocator, ValueKind::Object, "the locator", true, dto::RecordName<dto::MediaLocator>::kText},
    {FormKeys::kID, ValueKind::Text, "its id"},
});

constexpr Operation OfMediaLocators(std::string_view inMethod, std::string_view inSelector, const Path& inPath,
                                    std::string_view inSummary)
{
    return Operation(inMethod, inSelector, inPath, inSummary).Fails(404, kNoProduction);
}

inline constexpr auto kMediaLocatorsOperations = std::to_array<Operation>({
    OfMediaLocators("GET", "all", At(Template::kMediaLocatorsAll, "productionId"), "All media locators of a session.")
        .Answers<dto::MediaLocatorsResource>()
        .Tagged(),
    Operation("GET", "byMediaLocatorId", At(Template::kMediaLocatorsByMediaLocatorId_MediaLocatorId, "productionId"),
              "One media locator.")
        .Answers<dto::MediaLocator>()
        .Fails(404, "no such session or locator"),
    OfMediaLocators("POST", "all", At(Template::kMediaLocatorsAll, "productionId"),
                    "Adds one; one that is there already is replaced.")
        .Takes(BodyKind::Form, kMediaLocatorFields)
        .Answers<dto::MediaLocator>()
        .Fails(400, kFormUnreadable),
    Operation("PUT", "byMediaLocatorId", At(Template::kMediaLocatorsByMediaLocatorId_MediaLocatorId, "productionId"),
              "Changes one; properties replace the whole object.")
        .Takes(BodyKind::Form, kMediaLocatorFields)
        .Answers<dto::MediaLocator>()
        .Fails(400, kFormUnreadable)
        .Fails(404, "no such session or locator"),
    OfMediaLocators("POST", "bulkCreate", At(Template::kMediaLocatorsBulkCreate, "productionId"),
                    "Adds many, all or none; the ids are the client's.")
        .TakesArrayOf<dto::MediaLocator>()
        .Answers<dto::MediaLocatorsResource>()
        .Fails(400, "the body is unreadable, or a locator has no id"),
    OfMediaLocators("POST", "bulkCreateByLastModified",
                    At(Template::kMediaLocatorsBulkCreateByLastModified_LastModified, "productionId"),
                    "The same for those that are newer than a time stamp.")
        .TakesArrayOf<dto::MediaLocator>()
        .Answers<dto::MediaLocatorsResource>()
        .Fails(400, "the body or the time is unreadable, or a locator has no id"),
    Operation("POST", "bulkDelete", At(Template::kMediaLocatorsBulkDelete, "productionId"),
              "Always refused: locators are not deleted in bulk.")
        .Fails(501, "always"),
    Operation("PUT", "bulkUpdate", At(Template::kMediaLocatorsBulkUpdate, "productionId"), "Changes many.")
        .TakesArrayOf<dto::MediaLocator>()
        .Answers<dto::MediaLocatorsResource>()
        .Fails(400, kBodyUnreadable)
        .Fails(404, "no such session or locator"),
});

inline constexpr auto kPosterFrameOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kPoster, "productionId"),
              "The image that stands for a production in a list, without the image.")
        .Answers<dto::PosterFrame>()
        .Tagged()
        .Fails(404, "no such production, or it has no poster frame"),
    Operation("GET", "rendition", At(Template::kPosterRendition, "productionId"), "The image.")
        .AnswersPayload("the image")
        .Fails(404, "no such production, or it has no poster frame"),
    Operation("POST", "", At(Template::kPoster, "productionId"), "Always refused; nothing is written.")
        .Fails(405, "always"),
});

}  // namespace VantryLocalHub::API

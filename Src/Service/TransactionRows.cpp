#include "Src/Service/TransactionRows.h"

#include <algorithm>
#include <unordered_map>

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/OpaqueMembers.h"
#include "Client/Wire/Vocabulary.h"
#include "Platform/noxcore/Guid.h"

namespace VantryLocalHub {

namespace FormKeys = VYCL::FormKeys;
using noxcore::utility::Guid;
using noxnet::IsSuccessfulHTTPStatus;

namespace {

/// What the session has at present, for edits that name only a part of it.
class CurrentContent
{
public:
    CurrentContent(ProjectBox& inProjectBox, ImmutableString inTransactionID, ImmutableString inSessionID)
        : mProjectBox(inProjectBox), mTransactionID(std::move(inTransactionID)), mSessionID(std::move(inSessionID))
    {
    }

    /// The asset as the transaction has it, else as the session's head has it. outMergedFrom is what an edit of it has
    /// to tell the store.
    int FindAsset(const ImmutableString& inAssetID, dto::Asset& outAsset, ImmutableString& outMergedFrom)
    {
        const int status = mProjectBox.GetTransactionAsset(mTransactionID, inAssetID, outAsset);
        if (IsSuccessfulHTTPStatus(status)) outMergedFrom = outAsset.mAssetContentID;
        if (status != noxnet::kHTTPStatus_NotFound) return status;
        outMergedFrom = {};
        return mProjectBox.GetAsset(mSessionID, VYCL::LocalHub::Revision_HEAD(), inAssetID, outAsset);
    }

    /// The same for an enclosure of the production; nothing when there is none.
    int FindProductionEnclosure(const ImmutableString& inID, std::optional<dto::Enclosure>& outEnclosure,
                                dto::Enclosure& outMergedFrom)
    {
        dto::Enclosure enclosure;
        const int own = mProjectBox.GetTransactionProductionEnclosure(mTransactionID, inID, enclosure);
        if (IsSuccessfulHTTPStatus(own)) {
            outMergedFrom = enclosure;
            outEnclosure = std::move(enclosure);
        }
        if (own != noxnet::kHTTPStatus_NotFound) return own;
        outMergedFrom = {};
        if (!mHasEnclosures) {
            const int status =
                mProjectBox.GetProductionEnclosures(mSessionID, VYCL::LocalHub::Revision_HEAD(), mEnclosures);
            if (!IsSuccessfulHTTPStatus(status)) return status;
            mHasEnclosures = true;
        }
        const auto found =
            std::ranges::find_if(mEnclosures, [&](const auto& inOne) { return inOne.mEnclosureID == inID; });
        if (found != mEnclosures.end()) outEnclosure = *found;
        return noxnet::kHTTPStatus_OK;
    }

private:
    ProjectBox& mProjectBox;
    const ImmutableString mTransactionID;
    const ImmutableString mSessionID;
    bool mHasEnclosures = false;
    std::vector<dto::Enclosure> mEnclosures;
};

bool IsGuid(std::string_view inText)
{
    return Guid::FromText(inText).has_value();
}

ImmutableString IDOfEnclosure(const TransactionEnclosureRow& inRow)
{
    return IsGuid(inRow.mRow) ? ImmutableString(inRow.mRow) : ImmutableString(Guid::CreateUnique().Text());
}

/// Puts what a row names over what an enclosure has.
EnclosureContent MakeEnclosure(dto::Enclosure inCurrent, const TransactionEnclosureRow& inRow)
{
    EnclosureContent content{std::move(inCurrent), inRow.mPayload};
    if (inRow.mName) content.mEnclosure.mName = *inRow.mName;
    if (inRow.mPayload != nullptr || !inRow.mContentID.empty()) {
        content.mEnclosure.mEnclosureContentID = inRow.mContentID;  // empty: the store computes it from the payload
        content.mEnclosure.mDataContentID = inRow.mContentID;
    }
    return content;
}

EnclosureContent MakeNewEnclosure(const TransactionEnclosureRow& inRow)
{
    dto::Enclosure enclosure;
    enclosure.mEnclosureID = IDOfEnclosure(inRow);
    return MakeEnclosure(std::move(enclosure), inRow);
}

/// The enclosures of an asset after an edit, and the ids that the rows of the form got.
std::vector<EnclosureContent> MergeEnclosures(std::vector<dto::Enclosure> inCurrent,
                                              const std::vector<TransactionEnclosureRow>& inRows,
                                              std::vector<ImmutableString>& outIDs)
{
    std::unordered_map<std::string_view, std::size_t> rows;  // enclosure id -> place in inRows
    for (std::size_t i = 0; i < inRows.size(); ++i)
        rows.emplace(inRows[i].mRow, i);
    outIDs.resize(inRows.size());
    std::vector<EnclosureContent> enclosures;
    enclosures.reserve(inCurrent.size() + inRows.size());
    for (dto::Enclosure& enclosure : inCurrent) {
        const auto row = rows.find(enclosure.mEnclosureID.View());
        if (row == rows.end()) {
            enclosures.push_back({std::move(enclosure), nullptr});
        } else {
            outIDs[row->second] = enclosure.mEnclosureID;
            enclosures.push_back(MakeEnclosure(std::move(enclosure), inRows[row->second]));
        }
    }
    for (std::size_t i = 0; i < inRows.size(); ++i) {
        if (!outIDs[i].empty()) continue;
        enclosures.push_back(MakeNewEnclosure(inRows[i]));
        outIDs[i] = enclosures.back().mEnclosure.mEnclosureID;
    }
    return enclosures;
}

AssetContent MakeAsset(dto::Asset inCurrent, const TransactionRow& inRow, std::vector<ImmutableString>& outIDs)
{
    AssetContent content;
    content.mEnclosures = MergeEnclosures(std::move(inCurrent.mEnclosures), inRow.mEnclosures, outIDs);
    content.mAsset = std::move(inCurrent);
    content.mAsset.mEnclosures.clear();
    if (inRow.mProperties) content.mAsset.mProperties = *inRow.mProperties;
    if (inRow.mName) dto::SetTextMember(content.mAsset.mProperties, "name", *inRow.mName);
    return content;
}

void AddResult(const TransactionRow& inRow, const dto::Asset& inAsset, const std::vector<ImmutableString>& inIDs,
               dto::TransactionResult& outResult)
{
    dto::CommittedAsset asset;
    asset.mAssetID = inAsset.mAssetID;
    asset.mIndexID = inRow.mRow;
    asset.mAssetContentID = inAsset.mAssetContentID;
    asset.mEtag = inAsset.mEtag;
    outResult.mAssets.push_back(std::move(asset));
    for (std::size_t i = 0; i < inIDs.size(); ++i) {
        const auto found = std::ranges::find(inAsset.mEnclosures, inIDs[i], &dto::Enclosure::mEnclosureID);
        outResult.mEnclosures.push_back(
            {inIDs[i], inRow.mEnclosures[i].mRow,
             found == inAsset.mEnclosures.end() ? ImmutableString() : found->mEnclosureContentID});
    }
}

int AddProductionEnclosure(ProjectBox& inProjectBox, const ImmutableString& inTransactionID,
                           const TransactionEnclosureRow& inRow, const EnclosureContent& inEnclosure,
                           dto::TransactionResult& outResult)
{
    dto::Enclosure stored;
    const int status = inProjectBox.AddOrUpdateProductionEnclosure(inTransactionID, inEnclosure, stored);
    if (IsSuccessfulHTTPStatus(status))
        outResult.mEnclosures.push_back({inEnclosure.mEnclosure.mEnclosureID, inRow.mRow, stored.mEnclosureContentID});
    return status;
}

int CreateRow(ProjectBox& inProjectBox, const ImmutableString& inTransactionID, const TransactionRow& inRow,
              dto::TransactionResult& outResult)
{
    if (!inRow.mIsAsset) {
        const TransactionEnclosureRow& row = inRow.mEnclosures.front();
        return AddProductionEnclosure(inProjectBox, inTransactionID, row, MakeNewEnclosure(row), outResult);
    }
    std::vector<ImmutableString> ids;
    const AssetContent content = MakeAsset({}, inRow, ids);
    const ImmutableString assetID = IsGuid(inRow.mRow) ? ImmutableString(inRow.mRow) : ImmutableString();
    dto::Asset stored;
    const int status = inProjectBox.AddAsset(inTransactionID, assetID, content, stored);
    if (IsSuccessfulHTTPStatus(status)) AddResult(inRow, stored, ids, outResult);
    return status;
}

int EditProductionEnclosure(ProjectBox& inProjectBox, const ImmutableString& inTransactionID, CurrentContent& ioCurrent,
                            const TransactionEnclosureRow& inRow, dto::TransactionResult& outResult)
{
    std::optional<dto::Enclosure> current;
    dto::Enclosure mergedFrom;
    const int status = ioCurrent.FindProductionEnclosure(inRow.mRow, current, mergedFrom);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    EnclosureContent content = current ? MakeEnclosure(std::move(*current), inRow) : MakeNewEnclosure(inRow);
    content.mMergedFrom = std::move(mergedFrom);
    return AddProductionEnclosure(inProjectBox, inTransactionID, inRow, content, outResult);
}

int TryEditRow(ProjectBox& inProjectBox, const ImmutableString& inTransactionID, CurrentContent& ioCurrent,
               const TransactionRow& inRow, dto::TransactionResult& outResult)
{
    if (!inRow.mIsAsset)
        return EditProductionEnclosure(inProjectBox, inTransactionID, ioCurrent, inRow.mEnclosures.front(), outResult);
    dto::Asset current;
    ImmutableString mergedFrom;
    int status = ioCurrent.FindAsset(inRow.mRow, current, mergedFrom);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    std::vector<ImmutableString> ids;
    AssetContent content = MakeAsset(std::move(current), inRow, ids);
    content.mMergedFrom = mergedFrom;
    dto::Asset stored;
    status = inProjectBox.EditAsset(inTransactionID, inRow.mRow, content, stored);
    if (IsSuccessfulHTTPStatus(status)) AddResult(inRow, stored, ids, outResult);
    return status;
}

/// Another request of the same transaction may change the asset between reading and storing: what it wrote is read
/// again then, and nothing of either is lost.
int EditRow(ProjectBox& inProjectBox, const ImmutableString& inTransactionID, CurrentContent& ioCurrent,
            const TransactionRow& inRow, dto::TransactionResult& outResult)
{
    int status = noxnet::kHTTPStatus_Conflict;
    while (status == noxnet::kHTTPStatus_Conflict)
        status = TryEditRow(inProjectBox, inTransactionID, ioCurrent, inRow, outResult);
    return status;
}

/// Whether the store has a content already; each is asked for once.
class KnownContent
{
public:
    KnownContent(ProjectBox& inProjectBox, ImmutableString inSessionID)
        : mProjectBox(inProjectBox), mSessionID(std::move(inSessionID))
    {
    }

    bool Has(const ImmutableString& inContentID)
    {
        const auto [place, isNew] = mKnown.try_emplace(inContentID, false);
        if (isNew) place->second = IsSuccessfulHTTPStatus(mProjectBox.HasContent(mSessionID, inContentID));
        return place->second;
    }

private:
    ProjectBox& mProjectBox;
    const ImmutableString mSessionID;
    std::unordered_map<ImmutableString, bool> mKnown;
};

/// A content id is the name of an object: 40 hexadecimal digits.
bool IsContentID(std::string_view inText)
{
    constexpr std::size_t kSize = 40;
    return inText.size() == kSize && inText.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

}  // namespace

int CreateRows(ProjectBox& inProjectBox, const ImmutableString& inTransactionID, const TransactionForm& inForm,
               dto::TransactionResult& outResult)
{
    for (const TransactionRow& row : inForm.mRows) {
        const int status = CreateRow(inProjectBox, inTransactionID, row, outResult);
        if (!IsSuccessfulHTTPStatus(status)) return status;
    }
    return noxnet::kHTTPStatus_OK;
}

int EditRows(ProjectBox& inProjectBox, const ImmutableString& inTransactionID, const TransactionForm& inForm,
             dto::TransactionResult& outResult)
{
    dto::TransactionResource transaction;
    int status = inProjectBox.GetTransaction(inTransactionID, transaction);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    CurrentContent current(inProjectBox, inTransactionID, transaction.mSessionID);
    for (const TransactionRow& row : inForm.mRows) {
        status = EditRow(inProjectBox, inTransactionID, current, row, outResult);
        if (!IsSuccessfulHTTPStatus(status)) return status;
    }
    return noxnet::kHTTPStatus_OK;
}

int DeleteRows(ProjectBox& inProjectBox, const ImmutableString& inTransactionID, const TransactionKeyForm& inForm,
               dto::TransactionResult& outResult)
{
    for (const TransactionKeyRow& row : inForm.mRows) {
        const ImmutableString rowID = row.mKey.mRow;
        const bool isAsset = row.mKey.mKind == FormKeys::kKindAssets;
        const int status = isAsset ? inProjectBox.DeleteAsset(inTransactionID, rowID)
                                   : inProjectBox.DeleteAssetEnclosure(inTransactionID, row.mKey.mAssetRow, rowID);
        if (!IsSuccessfulHTTPStatus(status)) return status;
        if (isAsset)
            outResult.mAssets.push_back({rowID, rowID, {}, {}, {}});
        else
            outResult.mEnclosures.push_back({rowID, rowID, {}});
    }
    return noxnet::kHTTPStatus_OK;
}

int FindMissingContent(ProjectBox& inProjectBox, const ImmutableString& inTransactionID,
                       const TransactionKeyForm& inForm, std::vector<dto::UploadTicket>& outTickets)
{
    dto::TransactionResource transaction;
    const int status = inProjectBox.GetTransaction(inTransactionID, transaction);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    if (transaction.mIsClosed) return noxnet::kHTTPStatus_PreconditionFailed;
    KnownContent known(inProjectBox, transaction.mSessionID);
    for (const auto& [key, field] : inForm.mRows) {
        if (key.mPart != FormKeys::kPartContent) continue;  // names and properties travel with the row
        const std::string_view value = field->mValue.View();
        const ImmutableString contentID = key.mContentID.empty() ? value : key.mContentID;
        if (key.mContentID.empty() && !IsContentID(value)) {
            const auto payload = std::make_shared<const noxcore::utility::RecycledMemory>(field->mValue);
            if (inProjectBox.ComputeContentHash(transaction.mSessionID, payload).empty())
                outTickets.push_back({key.mRow, {}, {}});
        } else if (!known.Has(contentID)) {
            outTickets.push_back({key.mRow, contentID, {}});
        }
    }
    return noxnet::kHTTPStatus_OK;
}

}  // namespace VantryLocalHub

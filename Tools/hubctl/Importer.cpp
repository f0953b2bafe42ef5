#include "Tools/hubctl/Importer.h"

#include <algorithm>
#include <initializer_list>
#include <map>
#include <set>

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/OpaqueMembers.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Tools/hubctl/UTF8Text.h"

namespace hubctl {

namespace Keys = VYCL::FormKeys;
using noxnet::http::client::MultipartForm;

namespace {

constexpr const char* kImportMessage = "Import with hubctl";
constexpr const char* kEditMessage = "Edit with hubctl";
constexpr const char* kEditedKey = "comment";
constexpr const char* kEditedText = "Edited by hubctl after the import";

std::string Key(std::string_view inKind, std::string_view inRow, std::string_view inPart,
                std::string_view inAssetRow = {})
{
    std::string key(inKind);
    for (const std::string_view part : {inRow, inPart, inAssetRow}) {
        if (!part.empty()) (key += Keys::kJoint) += part;
    }
    return key;
}

bool AddRow(const AssetRow& inRow, MultipartForm& ioForm)
{
    if (!ioForm.AddText(Key(Keys::kKindAssets, inRow.mID, Keys::kPartProperties), inRow.mProperties)) return false;
    if (!inRow.mPayload) return true;
    const Payload& payload = *inRow.mPayload;
    const std::string content = Key(Keys::kKindEnclosures, payload.mID, Keys::kPartContent, inRow.mID);
    return ioForm.AddText(Key(Keys::kKindEnclosures, payload.mID, Keys::kPartName, inRow.mID), payload.mName) &&
           (payload.mPath.empty() ? ioForm.AddContent(content, payload.mBytes)
                                  : ioForm.AddFile(content, payload.mPath, payload.mSize));
}

bool IsInterrupted(const ImportSettings& inSettings, std::string& outError)
{
    if (!inSettings.mShouldStop || !inSettings.mShouldStop()) return false;
    outError = "interrupted";
    return true;
}

}  // namespace

const char* TextOf(ChangeKind inKind)
{
    switch (inKind) {
        case ChangeKind::Added:
            return "added";
        case ChangeKind::Edited:
            return "edited";
        case ChangeKind::Removed:
            break;
    }
    return "removed";
}

std::vector<Change> CompareAssets(const std::vector<dto::CondensedAsset>& inBefore,
                                  const std::vector<dto::CondensedAsset>& inAfter)
{
    std::map<std::string_view, std::string_view> before;  // asset id -> content id
    for (const auto& asset : inBefore)
        before.emplace(asset.mAssetID.View(), asset.mAssetContentID.View());
    std::vector<Change> changes;
    for (const auto& asset : inAfter) {
        const auto found = before.find(asset.mAssetID.View());
        if (found == before.end()) {
            changes.push_back({ChangeKind::Added, asset.mAssetID.Text(), {}});
            continue;
        }
        if (found->second != asset.mAssetContentID.View())
            changes.push_back({ChangeKind::Edited, asset.mAssetID.Text(), {}});
        before.erase(found);
    }
    for (const auto& [id, content] : before)
        changes.push_back({ChangeKind::Removed, std::string(id), {}});
    return changes;
}

/// The rows of one request.
class Importer::Batch
{
public:
    void Add(AssetRow inRow)
    {
        mBytes += inRow.mProperties.size() + (inRow.mPayload ? inRow.mPayload->Size() : 0);
        mRows.push_back(std::move(inRow));
    }
    [[nodiscard]] bool HasRoomFor(const AssetRow& inRow, const ImportSettings& inSettings) const
    {
        const std::uint64_t size = inRow.mProperties.size() + (inRow.mPayload ? inRow.mPayload->Size() : 0);
        return mRows.empty() || (mRows.size() < inSettings.mMaxRows && mBytes + size <= inSettings.mMaxBytes);
    }
    /// Drops the payload that comes from a file, so that the rest can be sent again.
    bool DropPayload(const std::string& inPath)
    {
        for (AssetRow& row : mRows) {
            if (!row.mPayload || row.mPayload->mPath != inPath) continue;
            row.mPayload.reset();
            return true;
        }
        return false;
    }
    void Clear()
    {
        mRows.clear();
        mBytes = 0;
    }
    [[nodiscard]] const std::vector<AssetRow>& Rows() const { return mRows; }

private:
    std::vector<AssetRow> mRows;
    std::uint64_t mBytes = 0;
};

bool Importer::Run(RowSource& inRows, const ImportSettings& inSettings, ImportOutcome& outOutcome,
                   std::string& outError)
{
    outOutcome = {};
    mAssetToEdit.clear();
    if (IsInterrupted(inSettings, outError)) return false;
    if (!CreateProduction(inSettings, outOutcome, outError)) return false;
    const bool imported = InTransaction(
        outOutcome.mSessionID, kImportMessage,
        [&](const std::string& inTransaction, std::string& outFillError) {
            return SendRows(inTransaction, inRows, inSettings, outOutcome, outFillError);
        },
        outOutcome.mImportCommit, outError);
    mProgress.Clear();
    outOutcome.mRemarks.insert(outOutcome.mRemarks.begin(), inRows.Remarks().begin(), inRows.Remarks().end());
    if (!imported) return false;
    const bool edited = InTransaction(
        outOutcome.mSessionID, kEditMessage,
        [&](const std::string& inTransaction, std::string& outFillError) {
            return EditOne(inTransaction, outOutcome, outFillError);
        },
        outOutcome.mEditCommit, outError);
    return edited && CompareCommits(outOutcome, outError);
}

bool Importer::CreateProduction(const ImportSettings& inSettings, ImportOutcome& ioOutcome, std::string& outError)
{
    noxcore::serialization::JSONWriter properties;
    properties.BeginObject();
    properties.Member("name", inSettings.mName);
    properties.EndObject();
    dto::SessionResource session;
    Failure failure;
    if (!mAPI.CreateLocalProduction(properties.Text(), session, failure)) {
        outError = "the production cannot be made: " + failure.mText;
        return false;
    }
    ioOutcome.mSessionID = session.mSessionID.Text();
    ioOutcome.mProductionID = session.mParentProductionID.Text();
    return true;
}

bool Importer::InTransaction(const std::string& inSession, const char* inMessage, const Fill& inFill,
                             std::string& outCommit, std::string& outError)
{
    dto::TransactionResource transaction;
    Failure failure;
    if (!mAPI.OpenTransaction(inSession, transaction, failure)) {
        outError = "no transaction can be opened: " + failure.mText;
        return false;
    }
    const std::string id = transaction.mTransactionID.Text();
    if (!inFill(id, outError)) {
        outError += RollBack(id, false);
        return false;
    }
    dto::TransactionResource committed;
    if (!mAPI.Commit(id, inMessage, committed, failure)) {
        outError = "the commit failed: " + failure.mText + RollBack(id, !failure.GotAnswer());
        return false;
    }
    outCommit = committed.mCommitID.Text();
    return true;
}

/// What became of the transaction, as the end of a sentence.
std::string Importer::RollBack(const std::string& inTransaction, bool inCommitMayHaveRun)
{
    mProgress.Clear();
    Failure failure;
    if (mAPI.Rollback(inTransaction, failure)) return "; the transaction is rolled back";
    const bool closed =
        failure.mStatus == noxnet::kHTTPStatus_PreconditionFailed || failure.mStatus == noxnet::kHTTPStatus_NotFound;
    if (closed && inCommitMayHaveRun) return "; the hub may have committed it all the same";
    if (closed) return "; the transaction is closed, nothing of it was committed";
    return "; the transaction could not be rolled back (" + failure.mText + "): it is lost when the hub ends";
}

bool Importer::SendRows(const std::string& inTransaction, RowSource& inRows, const ImportSettings& inSettings,
                        ImportOutcome& ioOutcome, std::string& outError)
{
    Batch batch;
    std::size_t sent = 0;
    const auto send = [&] {
        if (IsInterrupted(inSettings, outError)) return false;
        const std::size_t count = batch.Rows().size();
        if (count == 0) return true;
        if (!SendBatch(inTransaction, batch, ioOutcome, outError)) return false;
        sent += count;
        mProgress.Show("Importing", sent, std::max(sent, inRows.Count()));
        return true;
    };
    AssetRow row;
    bool editsBin = false;
    while (inRows.Next(row)) {
        if (mAssetToEdit.empty() || (editsBin && !row.mIsBin)) {  // a clip where there is one
            mAssetToEdit = row.mID;
            editsBin = row.mIsBin;
        }
        if (!batch.HasRoomFor(row, inSettings) && !send()) return false;
        if (ioOutcome.mBins + ioOutcome.mClips + batch.Rows().size() == 0)
            mProgress.Show("Importing", 0, inRows.Count());
        batch.Add(std::move(row));
    }
    return send();
}

bool Importer::SendBatch(const std::string& inTransaction, Batch& ioBatch, ImportOutcome& ioOutcome,
                         std::string& outError)
{
    for (;;) {
        MultipartForm form;
        for (const AssetRow& row : ioBatch.Rows()) {
            if (AddRow(row, form)) continue;
            outError = Printable(row.mName) + " cannot be put into a form";
            return false;
        }
        dto::TransactionResult result;
        Failure failure;
        if (mAPI.BulkCreate(inTransaction, form, result, failure)) {
            if (!CountTaken(ioBatch, result, ioOutcome, outError)) return false;
            ioBatch.Clear();
            return true;
        }
        // A file that changed while it was sent: the hub saw no whole request, so the others go again without it.
        const std::string file = form.FailedFile();
        if (file.empty() || failure.GotAnswer() || !ioBatch.DropPayload(file)) {
            outError = failure.mText;
            return false;
        }
        ioOutcome.mRemarks.push_back({file, "the content is left out: it changed while it was sent"});
    }
}

/// False when the hub has not told the ids of all that was sent.
bool Importer::CountTaken(const Batch& inBatch, const dto::TransactionResult& inResult, ImportOutcome& ioOutcome,
                          std::string& outError)
{
    std::set<std::string_view> taken;
    for (const auto& asset : inResult.mAssets)
        taken.insert(asset.mAssetID.View());
    for (const AssetRow& row : inBatch.Rows()) {
        if (!taken.contains(row.mID)) {
            outError = "the hub did not take " + Printable(row.mName);
            return false;
        }
        ++(row.mIsBin ? ioOutcome.mBins : ioOutcome.mClips);
        if (!row.mPayload) continue;
        ++ioOutcome.mPayloads;
        ioOutcome.mPayloadBytes += row.mPayload->Size();
    }
    return true;
}

bool Importer::EditOne(const std::string& inTransaction, const ImportOutcome& inOutcome, std::string& outError)
{
    dto::Asset asset;
    Failure failure;
    if (!mAPI.GetAsset(inOutcome.mSessionID, inOutcome.mImportCommit, mAssetToEdit, asset, failure)) {
        outError = "the imported asset cannot be read: " + failure.mText;
        return false;
    }
    dto::SetTextMember(asset.mProperties, kEditedKey, kEditedText);
    MultipartForm form;
    if (!form.AddText(Key(Keys::kKindAssets, mAssetToEdit, Keys::kPartProperties),
                      std::string(asset.mProperties.Text()))) {
        outError = "the hub's id of the asset cannot be put into a form";
        return false;
    }
    dto::TransactionResult result;
    if (mAPI.BulkEdit(inTransaction, form, result, failure)) return true;
    outError = "the asset cannot be edited: " + failure.mText;
    return false;
}

bool Importer::CompareCommits(ImportOutcome& ioOutcome, std::string& outError)
{
    dto::CondensedAssetsResource before;
    dto::CondensedAssetsResource after;
    Failure failure;
    if (!mAPI.GetCondensedAssets(ioOutcome.mSessionID, ioOutcome.mImportCommit, before, failure) ||
        !mAPI.GetCondensedAssets(ioOutcome.mSessionID, ioOutcome.mEditCommit, after, failure)) {
        outError = "the commits cannot be compared: " + failure.mText;
        return false;
    }
    ioOutcome.mChanges = CompareAssets(before.mAssets, after.mAssets);
    for (Change& change : ioOutcome.mChanges) {
        const bool removed = change.mKind == ChangeKind::Removed;
        dto::Asset asset;
        if (!mAPI.GetAsset(ioOutcome.mSessionID, removed ? ioOutcome.mImportCommit : ioOutcome.mEditCommit,
                           change.mAssetID, asset, failure)) {
            outError = "a changed asset cannot be read: " + failure.mText;
            return false;
        }
        change.mName = dto::TextOf(dto::FindMember(asset.mProperties.Text(), "name"));
    }
    return true;
}

}  // namespace hubctl

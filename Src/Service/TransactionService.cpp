#include "Inc/Service/TransactionService.h"

#include <optional>

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Transaction.h"
#include "Client/Wire/URLTemplates.h"
#include "Inc/Service/FormReader.h"
#include "Inc/Service/Resources.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/Logging.h"
#include "Src/Service/TransactionRows.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using noxcore::logging::LogWarning;
using noxcore::serialization::JSONDocument;
using noxcore::serialization::JSONValue;

namespace {

constexpr std::string_view kFailure = "!noxnet::IsSuccessfulHTTPStatus(status)";

/// One record for a status that is no success.
int LogFailure(std::string_view inMessage, const ImmutableString& inTransactionID, int inStatus)
{
    if (!noxnet::IsSuccessfulHTTPStatus(inStatus))
        LogWarning(kServiceLogCategory, inMessage,
                   {{"transactionID", inTransactionID.View()}, {"status", inStatus}, {"expression", kFailure}});
    return inStatus;
}

int Get(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString transactionID;
    if (!ExtractSubExpression(*inRequest, 1, transactionID)) return noxnet::kHTTPStatus_BadRequest;
    dto::TransactionResource transaction;
    const int status = projectBox->GetTransaction(transactionID, transaction);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    LinkMaker maker(*inRequest);
    AddTransactionLinks(maker, transactionID, transaction.mSessionID, transaction.mCommitID, transaction.mLinks);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(transaction), *inResponse);
}

/// What the rows brought is in the file before the answer, whatever that is: the rows before a refused one stay. A full
/// disk is the request's status. A transaction that has gone since its rows were taken was committed with them, and
/// that wrote them.
int FlushContent(ProjectBox& inProjectBox, const ImmutableString& inTransactionID)
{
    const int status = inProjectBox.FlushTransactionContent(inTransactionID);
    return status == noxnet::kHTTPStatus_NotFound ? noxnet::kHTTPStatus_OK : status;
}

/// Reads a form, applies it to the transaction of the URL and answers the result.
template <class Form>
int ApplyForm(const RequestPtr& inRequest, const ResponsePtr& inResponse,
              int (*inParse)(const noxnet::http::server::Request&, Form&),
              int (*inApply)(ProjectBox&, const ImmutableString&, const Form&, dto::TransactionResult&))
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString transactionID;
    if (!ExtractSubExpression(*inRequest, 1, transactionID)) return noxnet::kHTTPStatus_BadRequest;
    Form form;
    int status = inParse(*inRequest, form);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    dto::TransactionResult result;
    status = inApply(*projectBox, transactionID, form, result);
    const int flushed = FlushContent(*projectBox, transactionID);
    if (!noxnet::IsSuccessfulHTTPStatus(flushed)) status = flushed;
    if (noxnet::IsSuccessfulHTTPStatus(status)) SetPayload(dto::ToJSON(result), *inResponse);
    return LogFailure("TransactionService: Unable to parse form", transactionID, status);
}

template <auto ApplyRows>
int CreateOrEdit(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    return ApplyForm<TransactionForm>(inRequest, inResponse, ParseFormForCreateOrEdit, ApplyRows);
}

int BulkDelete(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    return ApplyForm<TransactionKeyForm>(inRequest, inResponse, ParseFormForDelete, DeleteRows);
}

int BulkPreflight(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString transactionID;
    if (!ExtractSubExpression(*inRequest, 1, transactionID)) return noxnet::kHTTPStatus_BadRequest;
    TransactionKeyForm form;
    int status = ParseFormForPreflight(*inRequest, form);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    dto::UploadTickets tickets;
    status = FindMissingContent(*projectBox, transactionID, form, tickets.mUploads);
    if (noxnet::IsSuccessfulHTTPStatus(status)) status = FlushContent(*projectBox, transactionID);
    if (!noxnet::IsSuccessfulHTTPStatus(status))
        return LogFailure("TransactionService: Unable to parse form", transactionID, status);
    LinkMaker maker(*inRequest);
    maker.Add(tickets.mLinks, Relation::Bulk_Create(), Template::kTransactionBulkCreate, transactionID);
    maker.Add(tickets.mLinks, Relation::Bulk_Edit(), Template::kTransactionBulkEdit, transactionID);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    SetPayload(dto::ToJSON(tickets), *inResponse);
    return noxnet::kHTTPStatus_OK;
}

/// What a commit is asked for.
struct CommitForm
{
    std::string mMessage;
    bool mHasMessage = false;
    ImmutableString mResolveStrategy;
    std::optional<dto::TransactionMetadata> mMetadata;
};

/// Absent keys are no error, keys of another type than text are.
bool ReadText(const JSONValue& inValue, bool& outIsThere, std::string& outText)
{
    outIsThere = inValue.Exists();
    return !outIsThere || inValue.GetString(outText);
}

bool ReadCommitForm(const JSONValue& inBody, CommitForm& outForm)
{
    std::string strategy;
    bool hasStrategy = false;
    if (!inBody.IsObject() ||
        !ReadText(inBody[VYCL::FormKeys::kCommitMessage], outForm.mHasMessage, outForm.mMessage) ||
        !ReadText(inBody[VYCL::FormKeys::kResolveStrategy], hasStrategy, strategy))
        return false;
    outForm.mResolveStrategy = strategy;
    const auto metadata = inBody["metadata"];
    return !metadata.Exists() || dto::ReadRecord(metadata, outForm.mMetadata.emplace());
}

/// The same from the fields of a form, all of which are text.
bool ReadCommitForm(const FormReader& inForm, CommitForm& outForm)
{
    outForm.mHasMessage = inForm.Find(VYCL::FormKeys::kCommitMessage) != nullptr;
    outForm.mMessage = inForm.TextOrEmpty(VYCL::FormKeys::kCommitMessage);
    outForm.mResolveStrategy = inForm.TextOrEmpty(VYCL::FormKeys::kResolveStrategy);
    const auto metadata = inForm.Text("metadata");
    return !inForm.empty() && (!metadata || dto::FromJSON(*metadata, outForm.mMetadata.emplace()));
}

/// A body that is JSON is read as such, whatever it is called: no form is an object of JSON.
bool ReadCommitForm(const noxnet::http::server::Request& inRequest, CommitForm& outForm)
{
    JSONDocument body;
    FormReader form;
    if (body.Parse(PayloadText(inRequest))) {
        if (!ReadCommitForm(body.Root(), outForm)) return false;
    } else if (!form.Read(inRequest) || !ReadCommitForm(form, outForm)) {
        return false;
    }
    if (!outForm.mHasMessage && outForm.mMetadata && !outForm.mMetadata->mCommitMessage.empty()) {
        outForm.mMessage = outForm.mMetadata->mCommitMessage;
        outForm.mHasMessage = true;
    }
    return true;
}

bool IsResolveStrategy(const ImmutableString& inText)
{
    return inText.empty() || IsConflictStrategy(inText.View());
}

/// The transaction as the client opened it, and with what the commit's body says of it; an unknown one is the engine's
/// to refuse.
dto::TransactionResource ReadTransaction(const ImmutableString& inTransactionID, CommitForm inForm)
{
    dto::TransactionResource transaction;
    if (const auto projectBox = ProjectBox::Instance()) projectBox->GetTransaction(inTransactionID, transaction);
    transaction.mTransactionID = inTransactionID;
    if (!inForm.mHasMessage) inForm.mMessage = transaction.mMetadata.mCommitMessage;
    if (inForm.mMetadata) transaction.mMetadata = std::move(*inForm.mMetadata);
    transaction.mMetadata.mCommitMessage = std::move(inForm.mMessage);
    return transaction;
}

void AnswerCommitted(const RequestPtr& inRequest, const ResponsePtr& inResponse, dto::TransactionResource inTransaction,
                     const dto::Session& inSession)
{
    LinkMaker maker(*inRequest);
    inTransaction.mCommitID = inSession.mRevision;
    inTransaction.mLastModified = inSession.mModified;
    // The transaction has gone: what can be done with it leads nowhere any more.
    AddTransactionReadLinks(maker, inSession.mIdentifier, inSession.mRevision, inTransaction.mLinks);
    std::string json = dto::ToJSON(inTransaction);
    inResponse->SetHeader(noxnet::kHEADER_ETag, HashPayload(json));
    SetPayload(std::move(json), *inResponse);
}

int Commit(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr || !CanMakeURLs(*inRequest)) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString transactionID;
    if (!ExtractSubExpression(*inRequest, 1, transactionID)) return noxnet::kHTTPStatus_BadRequest;
    CommitForm form;
    if (!ReadCommitForm(*inRequest, form) || !IsResolveStrategy(form.mResolveStrategy)) {
        LogWarning(kServiceLogCategory, "JSON not well-formed",
                   {{"url", inRequest->URL()}, {"transactionID", transactionID.View()}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    const ImmutableString resolveStrategy = form.mResolveStrategy;
    dto::TransactionResource transaction = ReadTransaction(transactionID, std::move(form));
    CommitOutcome outcome;
    const int status =
        syncBox->CommitTransaction(transactionID, {transaction.mMetadata.mCommitMessage}, resolveStrategy, outcome);
    if (!noxnet::IsSuccessfulHTTPStatus(status))
        return LogFailure("TransactionService: Unable to commit", transactionID, status);
    AnswerCommitted(inRequest, inResponse, std::move(transaction), outcome.mSession);
    return noxnet::kHTTPStatus_OK;
}

int Rollback(const RequestPtr& inRequest, const ResponsePtr&)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString transactionID;
    if (!ExtractSubExpression(*inRequest, 1, transactionID)) return noxnet::kHTTPStatus_BadRequest;
    return LogFailure("TransactionService: Unable to rollback", transactionID,
                      projectBox->CloseTransaction(transactionID));
}

}  // namespace

TransactionService::TransactionService()
{
    Sync("GET", {}, Get);
    Sync("POST", "commit", Commit);
    Sync("POST", "bulkCreate", CreateOrEdit<CreateRows>);
    Sync("POST", "bulkEdit", CreateOrEdit<EditRows>);
    Sync("POST", "bulkDelete", BulkDelete);
    Sync("POST", "bulkPreflight", BulkPreflight);
    Sync("POST", "rollback", Rollback);
    Sync("PUT", "bulkEdit", CreateOrEdit<EditRows>);
}

}  // namespace VantryLocalHub

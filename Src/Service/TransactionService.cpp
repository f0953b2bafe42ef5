#include "Inc/Service/TransactionService.h"

#include <algorithm>
#include <array>

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Transaction.h"
#include "Client/Wire/URLTemplates.h"
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
constexpr std::array<std::string_view, 2> kResolveStrategies = {"accept-theirs", "accept-yours"};

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
    if (noxnet::IsSuccessfulHTTPStatus(status)) SetPayload(dto::ToJSON(result), *inResponse);
    return LogFailure("TransactionService: Unable to parse form", transactionID, status);
}

int BulkCreate(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    return ApplyForm<TransactionForm>(inRequest, inResponse, ParseFormForCreateOrEdit, CreateRows);
}

int BulkEdit(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    return ApplyForm<TransactionForm>(inRequest, inResponse, ParseFormForCreateOrEdit, EditRows);
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
    dto::TransactionMetadata mMetadata;
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
    if (metadata.Exists() && !dto::ReadRecord(metadata, outForm.mMetadata)) return false;
    if (!outForm.mHasMessage && !outForm.mMetadata.mCommitMessage.empty()) {
        outForm.mMessage = outForm.mMetadata.mCommitMessage;
        outForm.mHasMessage = true;
    }
    return true;
}

bool IsResolveStrategy(const ImmutableString& inText)
{
    return inText.empty() || std::ranges::find(kResolveStrategies, inText.View()) != kResolveStrategies.end();
}

/// The message that the client gave when it opened the transaction.
std::string MessageOfTransaction(const ImmutableString& inTransactionID)
{
    const auto projectBox = ProjectBox::Instance();
    dto::TransactionResource transaction;
    if (projectBox == nullptr ||
        !noxnet::IsSuccessfulHTTPStatus(projectBox->GetTransaction(inTransactionID, transaction)))
        return {};
    return transaction.mMetadata.mCommitMessage;
}

void AnswerCommitted(const RequestPtr& inRequest, const ResponsePtr& inResponse, const ImmutableString& inTransactionID,
                     CommitForm inForm, const dto::Session& inSession)
{
    LinkMaker maker(*inRequest);
    dto::TransactionResource resource;
    resource.mTransactionID = inTransactionID;
    resource.mCommitID = inSession.mRevision;
    resource.mMetadata = std::move(inForm.mMetadata);
    resource.mMetadata.mCommitMessage = std::move(inForm.mMessage);
    resource.mOwner = inSession.mOwner;
    resource.mLastModified = inSession.mModified;
    AddTransactionLinks(maker, inTransactionID, inSession.mIdentifier, inSession.mRevision, resource.mLinks);
    std::string json = dto::ToJSON(resource);
    inResponse->SetHeader(noxnet::kHEADER_ETag, HashPayload(json));
    SetPayload(std::move(json), *inResponse);
}

int Commit(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr || !CanMakeURLs(*inRequest)) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString transactionID;
    if (!ExtractSubExpression(*inRequest, 1, transactionID)) return noxnet::kHTTPStatus_BadRequest;
    JSONDocument body;
    CommitForm form;
    if (!body.Parse(PayloadText(*inRequest)) || !ReadCommitForm(body.Root(), form) ||
        !IsResolveStrategy(form.mResolveStrategy)) {
        LogWarning(kServiceLogCategory, "JSON not well-formed",
                   {{"url", inRequest->URL()}, {"transactionID", transactionID.View()}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    if (!form.mHasMessage) form.mMessage = MessageOfTransaction(transactionID);
    CommitOutcome outcome;
    const int status = syncBox->CommitTransaction(transactionID, {form.mMessage}, form.mResolveStrategy, outcome);
    if (!noxnet::IsSuccessfulHTTPStatus(status))
        return LogFailure("TransactionService: Unable to commit", transactionID, status);
    AnswerCommitted(inRequest, inResponse, transactionID, std::move(form), outcome.mSession);
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
    Sync("POST", "bulkCreate", BulkCreate);
    Sync("POST", "bulkEdit", BulkEdit);
    Sync("POST", "bulkDelete", BulkDelete);
    Sync("POST", "bulkPreflight", BulkPreflight);
    Sync("POST", "rollback", Rollback);
    Sync("PUT", "bulkEdit", BulkEdit);
}

}  // namespace VantryLocalHub

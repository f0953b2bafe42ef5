#include "Inc/Service/TransactionsService.h"

#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Transaction.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/Resources.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using VYCL::LocalHub::Revision_HEAD;

namespace {

struct Place
{
    ImmutableString mSessionID;
    ImmutableString mRevision;
};

bool ReadPlace(const RequestPtr& inRequest, Place& outPlace)
{
    return ExtractSubExpression(*inRequest, 1, outPlace.mSessionID) &&
           ExtractSubExpression(*inRequest, 2, outPlace.mRevision) && IsLinkable(outPlace.mSessionID.View()) &&
           IsLinkable(outPlace.mRevision.View());
}

/// The revision that the session must be at; empty where the client does not insist.
int FindRequiredHead(ProjectBox& inProjectBox, const Place& inPlace, bool inRequireHead,
                     ImmutableString& outRequiredHead)
{
    if (!inRequireHead) return noxnet::kHTTPStatus_OK;
    outRequiredHead = inPlace.mRevision;
    if (!IsHead(inPlace.mRevision)) return noxnet::kHTTPStatus_OK;
    dto::Session session;
    const int status = inProjectBox.GetProduction(inPlace.mSessionID, Revision_HEAD(), session);
    if (noxnet::IsSuccessfulHTTPStatus(status)) outRequiredHead = session.mRevision;
    return status;
}

/// 404 for a revision that is not there, and the store's own status where that cannot be told.
int CheckRevision(ProjectBox& inProjectBox, const Place& inPlace)
{
    if (inProjectBox.RevisionExists(inPlace.mSessionID, inPlace.mRevision)) return noxnet::kHTTPStatus_OK;
    dto::Session session;
    return inProjectBox.GetProduction(inPlace.mSessionID, inPlace.mRevision, session);
}

int AnswerOpened(const RequestPtr& inRequest, const ResponsePtr& inResponse, const Place& inPlace,
                 dto::TransactionResource inTransaction)
{
    LinkMaker maker(*inRequest);
    AddTransactionLinks(maker, inTransaction.mTransactionID, inPlace.mSessionID, inTransaction.mCommitID,
                        inTransaction.mLinks);
    const std::string location = maker.URL(Template::kTransaction, inTransaction.mTransactionID);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    std::string json = dto::ToJSON(inTransaction);
    inResponse->SetHeader(noxnet::kHEADER_Location, location);
    inResponse->SetHeader(noxnet::kHEADER_ETag, HashPayload(json));
    SetPayload(std::move(json), *inResponse);
    return noxnet::kHTTPStatus_Created;
}

int Open(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr || !CanMakeURLs(*inRequest)) return noxnet::kHTTPStatus_InternalServerError;
    Place place;
    if (!ReadPlace(inRequest, place)) return noxnet::kHTTPStatus_BadRequest;
    dto::TransactionCreate create;
    if (!dto::FromJSON(PayloadText(*inRequest), create)) {
        noxcore::logging::LogWarning(kServiceLogCategory, "TransactionsService: Bad payload",
                                     {{"url", inRequest->URL()}});
        return noxnet::kHTTPStatus_UnsupportedMediaType;
    }
    int status = CheckRevision(*projectBox, place);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    ImmutableString requiredHead;
    status = FindRequiredHead(*projectBox, place, create.mRequireHead, requiredHead);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    dto::TransactionResource transaction;
    status = projectBox->OpenTransaction(place.mSessionID, requiredHead, VYCL::GetTransactionType_Edit(), create,
                                         transaction);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    return AnswerOpened(inRequest, inResponse, place, std::move(transaction));
}

int List(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    Place place;
    if (!ReadPlace(inRequest, place)) return noxnet::kHTTPStatus_BadRequest;
    dto::TransactionsResource resource;
    const int status = projectBox->GetTransactionList(place.mSessionID, resource.mTransactions);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    LinkMaker maker(*inRequest);
    for (dto::TransactionResource& transaction : resource.mTransactions)
        AddTransactionLinks(maker, transaction.mTransactionID, place.mSessionID, transaction.mCommitID,
                            transaction.mLinks);
    resource.mStats = StatsOfAll(resource.mTransactions.size());
    maker.Add(resource.mLinks, Relation::Self(), Template::kTransactions, place.mSessionID, place.mRevision);
    maker.Add(resource.mLinks, Relation::LatestVersion(), Template::kTransactions, place.mSessionID, Revision_HEAD());
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(resource), *inResponse);
}

}  // namespace

TransactionsService::TransactionsService()
{
    Sync("GET", {}, List);
    Sync("POST", {}, Open);
}

}  // namespace VantryLocalHub

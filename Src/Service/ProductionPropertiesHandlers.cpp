#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Service/OwnTransaction.h"
#include "Inc/Service/Resources.h"
#include "Platform/noxcore/JSON.h"
#include "Src/Service/ProductionHandlers.h"

namespace VantryLocalHub::ProductionHandlers {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;

namespace {

int AnswerProperties(const RequestPtr& inRequest, const ResponsePtr& inResponse, const Place& inPlace,
                     dto::RawJSON inProperties)
{
    dto::ProductionPropertiesResource resource;
    resource.mEtag = HashPayload(inProperties.Text());
    resource.mProperties = std::move(inProperties);
    const bool isKnown = SetEntityTag(*inRequest, resource.mEtag, *inResponse);
    if (isKnown && IsRead(*inRequest)) return noxnet::kHTTPStatus_NotModified;
    LinkMaker maker(*inRequest);
    maker.Add(resource.mLinks, Relation::Self(), Template::kProductionProperties, inPlace.mProductionID,
              inPlace.mRevision);
    maker.Add(resource.mLinks, Relation::LatestVersion(), Template::kProductionProperties, inPlace.mProductionID,
              VYCL::LocalHub::Revision_HEAD());
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    SetPayload(dto::ToJSON(resource), *inResponse);
    return noxnet::kHTTPStatus_OK;
}

struct PropertiesEdit
{
    dto::ProductionProperties mProperties;
    ImmutableString mTransactionID;  ///< empty: the edit makes one of its own
};

/// A body of `properties` and, where the edit belongs to one, `vy:transactionId`. Deleting needs no properties: none
/// are left then.
bool ReadEdit(const RequestPtr& inRequest, PropertiesEdit& outEdit)
{
    const bool isDelete = inRequest->Method() == "DELETE";
    const std::string_view text = PayloadText(*inRequest);
    if (isDelete && text.empty()) return true;
    noxcore::serialization::JSONDocument body;
    if (!body.Parse(text)) return false;
    if (ReadNamedTransaction(body.Root(), outEdit.mTransactionID) == NamedTransaction::Unreadable) return false;
    const auto properties = body.Root()["properties"];
    if (isDelete && !properties.Exists()) return true;
    return dto::RawJSON::Read(properties, outEdit.mProperties.mProperties);
}

int EditInOwnTransaction(const RequestPtr& inRequest, const ResponsePtr& inResponse, ProjectBox& inProjectBox,
                         const Place& inPlace, const PropertiesEdit& inEdit)
{
    if (!CanMakeURLs(*inRequest)) return noxnet::kHTTPStatus_InternalServerError;
    CommitOutcome outcome;
    const auto change = [&](const ImmutableString& inTransactionID) {
        return inProjectBox.EditSessionProperties(inTransactionID, inEdit.mProperties);
    };
    int status = ApplyInOwnTransaction(inPlace.mProductionID, change, outcome);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    dto::Session production;
    status = GetAtHead(inProjectBox, inPlace.mProductionID, production);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    return AnswerProperties(inRequest, inResponse, {inPlace.mProductionID, production.mRevision},
                            std::move(production.mProperties));
}

}  // namespace

void GetProperties(const RequestPtr& inRequest, const ResponsePtr& inResponse, const Completion& inCompletion)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return inCompletion(noxnet::kHTTPStatus_InternalServerError);
    Place place;
    if (!ReadPlace(inRequest, place)) return inCompletion(noxnet::kHTTPStatus_BadRequest);
    dto::Session production;
    const int status = projectBox->GetProduction(place.mProductionID, place.mRevision, production);
    inCompletion(noxnet::IsSuccessfulHTTPStatus(status)
                     ? AnswerProperties(inRequest, inResponse, place, std::move(production.mProperties))
                     : status);
}

int EditProperties(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    Place place;
    if (!ReadPlace(inRequest, place)) return noxnet::kHTTPStatus_BadRequest;
    PropertiesEdit edit;
    if (!ReadEdit(inRequest, edit)) return RefuseBadPayload(inRequest);
    if (edit.mTransactionID.empty()) return EditInOwnTransaction(inRequest, inResponse, *projectBox, place, edit);
    const int status = CheckNamedTransaction(*projectBox, place.mProductionID, edit.mTransactionID);
    if (status == noxnet::kHTTPStatus_BadRequest) return RefuseBadPayload(inRequest);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    return projectBox->EditSessionProperties(edit.mTransactionID, edit.mProperties);
}

}  // namespace VantryLocalHub::ProductionHandlers

#include "Inc/Service/ProductionsService.h"

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Service/CurrentUserService.h"
#include "Inc/Service/Resources.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using VYCL::LocalHub::Revision_HEAD;

namespace {

void AddDescriptorLinks(LinkMaker& ioMaker, bool inIsLocal, dto::ProductionDescriptor& ioDescriptor)
{
    const ImmutableString& production = ioDescriptor.mProductionID;
    ioMaker.Add(ioDescriptor.mLinks, Relation::Self(), Template::kProduction, production, Revision_HEAD());
    ioMaker.Add(ioDescriptor.mLinks, Relation::ProductionsProduction(), Template::kProduction, production,
                Revision_HEAD());
    if (inIsLocal) ioMaker.Add(ioDescriptor.mLinks, Relation::LocalHubPosterFrame(), Template::kPoster, production);
}

void AddCollectionLinks(LinkMaker& ioMaker, std::vector<dto::Link>& outLinks)
{
    ioMaker.Add(outLinks, Relation::Self(), Template::kProductions);
    ioMaker.Add(outLinks, Relation::LocalHubLocalProject_Create(), Template::kProductions_LocalOnly);
    ioMaker.Add(outLinks, Relation::ProductionsProduction_ByIdAndCommitId(),
                Template::kProduction_ProductionId_CommitId);
    ioMaker.Add(outLinks, Relation::ProductionsProduction_DifferenceByCommit(),
                Template::kDifferences_ProductionId_BaseCommitId_CommitId);
}

int GetProductionsFinished(const RequestPtr& inRequest, const ResponsePtr& inResponse, int inStatus,
                           const std::vector<dto::Session>& inProductions)
{
    if (!noxnet::IsSuccessfulHTTPStatus(inStatus)) return inStatus;
    LinkMaker maker(*inRequest);
    dto::ProductionsResource resource;
    resource.mProductions.reserve(inProductions.size());
    for (const dto::Session& production : inProductions) {
        resource.mProductions.push_back(MakeProductionDescriptor(production));
        const bool isLocal = !production.mIdentifier.empty();
        AddDescriptorLinks(maker, isLocal, resource.mProductions.back());
    }
    resource.mStats = StatsOfAll(inProductions.size());
    AddCollectionLinks(maker, resource.mLinks);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(resource), *inResponse);
}

void GetProductions(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) {
        inCompletion(noxnet::kHTTPStatus_InternalServerError);
        return;
    }
    syncBox->GetProductionList([inRequest, inResponse, completion = std::move(inCompletion)](
                                   int inStatus, const std::vector<dto::Session>& inProductions) {
        completion(GetProductionsFinished(inRequest, inResponse, inStatus, inProductions));
    });
}

int CreateProduction(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr || !CanMakeURLs(*inRequest)) return noxnet::kHTTPStatus_InternalServerError;
    dto::ProductionProperties properties;
    if (!dto::RawJSON::FromText(PayloadText(*inRequest), properties.mProperties)) {
        noxcore::logging::LogWarning(kServiceLogCategory, "ProductionsService: Bad payload",
                                     {{"url", inRequest->URL()}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    dto::Session session;
    const int status = syncBox->CreateSession(properties, CurrentUserService::GetUserEmailFromRequest(*inRequest),
                                              QueryIsTrue(*inRequest, VYCL::QueryKeys::kLocalOnly), session);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    return AnswerSession(inRequest, inResponse, noxnet::kHTTPStatus_Created, Template::kProduction, session);
}

}  // namespace

ProductionsService::ProductionsService()
{
    Async("GET", {}, GetProductions);
    Sync("POST", {}, CreateProduction);
}

}  // namespace VantryLocalHub

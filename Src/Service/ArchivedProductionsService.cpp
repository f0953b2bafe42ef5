#include "Inc/Service/ArchivedProductionsService.h"

#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Inc/Service/Resources.h"
#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;

namespace {

int AnswerList(const RequestPtr& inRequest, const ResponsePtr& inResponse, int inStatus,
               const std::vector<dto::Session>& inProductions)
{
    if (!noxnet::IsSuccessfulHTTPStatus(inStatus)) return inStatus;
    LinkMaker maker(*inRequest);
    dto::ProductionsResource resource;
    for (const dto::Session& production : inProductions) {
        auto& descriptor = resource.mProductions.emplace_back(MakeProductionDescriptor(production));
        maker.Add(descriptor.mLinks, Relation::ArchivesArchive_Restore(), Template::kArchiveRestore,
                  descriptor.mProductionID);
        maker.Add(descriptor.mLinks, Relation::Delete(), Template::kArchiveDelete, descriptor.mProductionID);
    }
    resource.mStats = StatsOfAll(inProductions.size());
    maker.Add(resource.mLinks, Relation::Self(), Template::kArchives);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(resource), *inResponse);
}

void GetArchives(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return inCompletion(noxnet::kHTTPStatus_InternalServerError);
    syncBox->GetArchivedProductionList([inRequest, inResponse, completion = std::move(inCompletion)](
                                           int inStatus, const std::vector<dto::Session>& inProductions) {
        completion(AnswerList(inRequest, inResponse, inStatus, inProductions));
    });
}

}  // namespace

ArchivedProductionsService::ArchivedProductionsService()
{
    Async("GET", {}, GetArchives);
}

}  // namespace VantryLocalHub

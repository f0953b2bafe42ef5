#include "Inc/Service/DifferencesService.h"

#include "Client/Wire/Differences.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Service/Resources.h"
#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;

namespace {

struct Range
{
    ImmutableString mProductionID;
    ImmutableString mFrom;
    ImmutableString mTo;
};

int AnswerRange(const RequestPtr& inRequest, const ResponsePtr& inResponse, const Range& inRange,
                dto::DifferencesResource inDifferences)
{
    inDifferences.mLeftSideCommitID = inRange.mFrom;
    inDifferences.mRightSideCommitID = inRange.mTo;
    LinkMaker maker(*inRequest);
    AddDifferenceLinks(maker, inRange.mProductionID, inDifferences);
    maker.Add(inDifferences.mLinks, Relation::Self(), Template::kDifferences, inRange.mProductionID, inRange.mFrom,
              inRange.mTo);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(inDifferences), *inResponse);
}

void GetDifferences(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return inCompletion(noxnet::kHTTPStatus_InternalServerError);
    Range range;
    if (!ExtractSubExpression(*inRequest, 1, range.mProductionID) ||
        !ExtractSubExpression(*inRequest, 2, range.mFrom) || !ExtractSubExpression(*inRequest, 3, range.mTo))
        return inCompletion(noxnet::kHTTPStatus_BadRequest);
    syncBox->GetDifferences(range.mProductionID, range.mFrom, range.mTo,
                            [inRequest, inResponse, range, completion = std::move(inCompletion)](
                                int inStatus, const dto::DifferencesResource& inDifferences) {
                                completion(noxnet::IsSuccessfulHTTPStatus(inStatus)
                                               ? AnswerRange(inRequest, inResponse, range, inDifferences)
                                               : inStatus);
                            });
}

}  // namespace

DifferencesService::DifferencesService()
{
    Async("GET", {}, GetDifferences);
}

}  // namespace VantryLocalHub

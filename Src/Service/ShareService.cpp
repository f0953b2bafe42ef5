#include "Inc/Service/ShareService.h"

#include "Client/VYClient/Interfaces.h"
#include "Client/Wire/Differences.h"
#include "Client/Wire/FormKeys.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Inc/Service/Resources.h"
#include "Src/Service/EngineForm.h"

namespace VantryLocalHub {

namespace FormKeys = VYCL::FormKeys;
namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;

namespace {

using GetChanges = void (SyncBox::*)(const ImmutableString&, bool, SyncBox::DifferencesCompletion);

int AnswerChanges(const RequestPtr& inRequest, const ResponsePtr& inResponse, const ImmutableString& inSessionID,
                  URLFormat inSelf, dto::DifferencesResource inChanges)
{
    LinkMaker maker(*inRequest);
    AddDifferenceLinks(maker, inSessionID, inChanges);
    maker.Add(inChanges.mLinks, Relation::Self(), inSelf, inSessionID);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(inChanges), *inResponse);
}

AsyncHandler ListChanges(GetChanges inGetChanges, URLFormat inSelf)
{
    return [inGetChanges, inSelf](const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion) {
        const auto syncBox = SyncBox::Instance();
        if (syncBox == nullptr) return inCompletion(noxnet::kHTTPStatus_InternalServerError);
        ImmutableString session;
        if (!ExtractSubExpression(*inRequest, 1, session)) return inCompletion(noxnet::kHTTPStatus_BadRequest);
        ((*syncBox).*inGetChanges)(session, false,
                                   [inRequest, inResponse, session, inSelf, completion = std::move(inCompletion)](
                                       int inStatus, const dto::DifferencesResource& inChanges) {
                                       completion(noxnet::IsSuccessfulHTTPStatus(inStatus)
                                                      ? AnswerChanges(inRequest, inResponse, session, inSelf, inChanges)
                                                      : inStatus);
                                   });
    };
}

SyncBox::ShareCompletion AnswerResult(const ResponsePtr& inResponse, Completion inCompletion)
{
    return [inResponse, completion = std::move(inCompletion)](int inStatus, const dto::ShareResult& inResult) {
        if (noxnet::IsSuccessfulHTTPStatus(inStatus)) SetPayload(dto::ToJSON(inResult), *inResponse);
        completion(inStatus);
    };
}

bool IsMergeStrategy(std::string_view inText)
{
    return VYCL::MergeStrategyFromString(inText) != VYCL::IVYCServerResource::MergeStrategy::Unknown;
}

void Pull(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    EngineForm share;
    const int status = share.Enter(*inRequest);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);
    const auto revision = share.mForm.Text(FormKeys::kCommitID);
    const auto strategy = share.mForm.Text(FormKeys::kMergeStrategy);
    if (!revision || (strategy && !IsMergeStrategy(*strategy))) return inCompletion(noxnet::kHTTPStatus_BadRequest);
    share.mSyncBox->PullIncomingChanges(share.mSessionID, *revision, strategy.value_or(std::string_view()),
                                        AnswerResult(inResponse, std::move(inCompletion)));
}

/// The message may be empty, but is not left out by accident.
void Push(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    EngineForm share;
    const int status = share.Enter(*inRequest);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);
    const auto revision = share.mForm.Text(FormKeys::kCommitID);
    const auto message = share.mForm.Text(FormKeys::kCommitMessage);
    const auto strategy = share.mForm.Text(FormKeys::kResolveStrategy);
    if (!revision || !message || (strategy && !IsConflictStrategy(*strategy)))
        return inCompletion(noxnet::kHTTPStatus_BadRequest);
    share.mSyncBox->PushOutgoingChanges(share.mSessionID, *revision, {std::string(*message)},
                                        strategy.value_or(std::string_view()),
                                        AnswerResult(inResponse, std::move(inCompletion)));
}

}  // namespace

ShareService::ShareService()
{
    Async("GET", "incoming", ListChanges(&SyncBox::GetIncomingChanges, Template::kShareIncoming));
    Async("GET", "outgoing", ListChanges(&SyncBox::GetOutgoingChanges, Template::kShareOutgoing));
    Async("POST", "pull", Pull);
    Async("POST", "push", Push);
}

}  // namespace VantryLocalHub

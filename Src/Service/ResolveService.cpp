#include "Inc/Service/ResolveService.h"

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Service/Resources.h"
#include "Platform/noxcore/Logging.h"
#include "Src/Service/EngineForm.h"

namespace VantryLocalHub {

namespace FormKeys = VYCL::FormKeys;
using namespace VYCL::LocalHub;
using noxnet::http::server::FormField;
using noxnet::http::server::Request;

namespace {

constexpr int kThingGroup = 3;
constexpr int kCommitGroup = 4;

bool ReadDecision(const Request& inRequest, const FormReader& inForm, ConflictDecision& outDecision)
{
    outDecision.mDecision = inForm.TextOrEmpty(FormKeys::kResolveStrategy);
    return IsConflictStrategy(outDecision.mDecision.View()) &&
           ExtractSubExpression(inRequest, kThingGroup, outDecision.mID) &&
           ExtractSubExpression(inRequest, kCommitGroup, outDecision.mLocalRevision);
}

using ResolveOne = void (SyncBox::*)(const ImmutableString&, const ConflictDecision&, SyncBox::StatusCompletion);

template <ResolveOne kResolve>
void Resolve(const RequestPtr& inRequest, const ResponsePtr&, Completion inCompletion)
{
    EngineForm resolve;
    const int status = resolve.Enter(*inRequest);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);
    ConflictDecision decision;
    if (!ReadDecision(*inRequest, resolve.mForm, decision)) return inCompletion(noxnet::kHTTPStatus_BadRequest);
    if (kResolve == &SyncBox::ResolveProductionPropertiesConflict) decision.mID = {};  // there is one of them
    ((*resolve.mSyncBox).*kResolve)(resolve.mSessionID, decision, std::move(inCompletion));
}

void ResolveSession(const RequestPtr& inRequest, const ResponsePtr&, Completion inCompletion)
{
    EngineForm resolve;
    const int status = resolve.Enter(*inRequest);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);
    if (resolve.mForm.TextOrEmpty(FormKey_ResolveSession_Action().View()) !=
        FormValue_ResolveSessionAction_DiscardLocalChanges().View())
        return inCompletion(noxnet::kHTTPStatus_BadRequest);
    resolve.mSyncBox->DiscardLocalChanges(resolve.mSessionID, std::move(inCompletion));
}

/// Rows "assets+<asset>", "enclosures+<enclosure>" and "properties", each with its strategy. Any other row makes the
/// whole form unusable: a decision that is misread must not be half carried out.
bool ParseBulkResolveForm(const FormReader& inForm, BulkConflicts& outConflicts)
{
    for (const FormField& field : inForm.Fields()) {
        const std::string_view name = field.mName;
        const std::size_t joint = name.find(FormKeys::kJoint);
        const std::string_view kind = name.substr(0, joint);
        ConflictDecision decision;
        decision.mDecision = field.mValue.View();
        decision.mID = joint == std::string_view::npos ? std::string_view() : name.substr(joint + 1);
        if (!IsConflictStrategy(decision.mDecision.View())) return false;
        if (kind == FormKeys::kPartProperties && decision.mID.empty())
            outConflicts.mProductionPropertiesConflict = std::move(decision);
        else if (kind == FormKeys::kKindAssets && IsUsableID(decision.mID.View()))
            outConflicts.mAssets.push_back(std::move(decision));
        else if (kind == FormKeys::kKindEnclosures && IsUsableID(decision.mID.View()))
            outConflicts.mProductionEnclosures.push_back(std::move(decision));
        else
            return false;
    }
    return true;
}

void ResolveBulk(const RequestPtr& inRequest, const ResponsePtr&, Completion inCompletion)
{
    EngineForm resolve;
    const int status = resolve.Enter(*inRequest);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);
    BulkConflicts conflicts;
    if (!ParseBulkResolveForm(resolve.mForm, conflicts)) return inCompletion(noxnet::kHTTPStatus_BadRequest);
    resolve.mSyncBox->ResolveRemoteConflict(resolve.mSessionID, conflicts, std::move(inCompletion));
}

}  // namespace

ResolveService::ResolveService()
{
    Async("POST", "asset", Resolve<&SyncBox::ResolveAssetConflict>);
    Async("POST", "enclosure", Resolve<&SyncBox::ResolveProductionEnclosureConflict>);
    Async("POST", "properties", Resolve<&SyncBox::ResolveProductionPropertiesConflict>);
    Async("POST", "session", ResolveSession);
    Async("POST", "bulk", ResolveBulk);
}

}  // namespace VantryLocalHub

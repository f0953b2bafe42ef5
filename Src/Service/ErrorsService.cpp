#include "Inc/Service/ErrorsService.h"

#include "Client/Wire/Errors.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Inc/Model/ComplaintBox.h"
#include "Inc/Service/ServiceUtils.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;

namespace {

std::vector<dto::ErrorRecord> MakeRecords(const ComplaintBox::Complaints& inComplaints)
{
    std::vector<dto::ErrorRecord> records;
    records.reserve(inComplaints.size());
    for (const auto& [id, complaint] : inComplaints)
        records.push_back({static_cast<int>(complaint.mErrorCode), complaint.mErrorString, id});
    return records;
}

int CreatePayload(const noxnet::http::server::Request& inRequest, std::string& outPayload)
{
    const auto box = ComplaintBox::Instance();
    if (box == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    LinkMaker maker(inRequest);
    dto::ErrorsResource resource;
    for (const auto& [serverURL, complaints] : box->ServerComplaints()) {
        auto& errors = resource.mServerErrors.emplace_back();
        errors.mServerURL = serverURL;
        errors.mErrors = MakeRecords(complaints);
        maker.Add(errors.mLinks, Relation::LocalHubRemoteLogin(), Template::kRemoteLogin);
    }
    for (const auto& [sessionID, complaints] : box->SessionComplaints()) {
        auto& errors = resource.mSessionErrors.emplace_back();
        errors.mSessionID = sessionID;
        errors.mErrors = MakeRecords(complaints);
        maker.Add(errors.mLinks, Relation::LocalHubSyncStatus_BySessionId(), Template::kSyncStatusSession, sessionID);
    }
    maker.Add(resource.mLinks, Relation::Self(), Template::kErrorsAll);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    outPayload = dto::ToJSON(resource);
    return noxnet::kHTTPStatus_OK;
}

}  // namespace

ErrorsService::ErrorsService()
{
    Async("GET", "all", [this](const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion) {
        Answer(kOnlyKey, CreatePayload, inRequest, inResponse, std::move(inCompletion));
    });
    WakeAllOn<ComplaintBox::ComplaintsChangedMessage>(ComplaintBox::Instance()->Station());
}

}  // namespace VantryLocalHub

#include "Inc/Service/JobsService.h"

#include <algorithm>

#include "Client/VYClient/Results.h"
#include "Client/Wire/Job.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Service/FormReader.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using namespace VYCL::LocalHub;
using noxcore::logging::LogInformation;
using noxcore::logging::LogWarning;
using noxnet::http::server::Request;

namespace {

constexpr int kFirstGroup = 2;
constexpr int kSecondGroup = 3;
constexpr std::string_view kAnySession = "*";
constexpr std::string_view kNoElement = "-";

std::string ParametersText(const dto::SyncJobParameters& inParameters)
{
    return dto::ToJSON(inParameters);
}

void AddJobLinks(LinkMaker& ioMaker, dto::Job& ioJob)
{
    ioMaker.Add(ioJob.mLinks, Relation::Self(), Template::kJobsDetail, ioJob.mID);
    ioMaker.Add(ioJob.mLinks, Relation::Edit(), Template::kJobsDetail, ioJob.mID);
}

int AnswerJob(const Request& inRequest, const ResponsePtr& inResponse, int inStatus, bool inWithLocation,
              dto::Job inJob)
{
    LinkMaker maker(inRequest);
    AddJobLinks(maker, inJob);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    if (inWithLocation) inResponse->SetHeader(noxnet::kHEADER_Location, inJob.mLinks.front().mHref);
    SetPayload(dto::ToJSON(inJob), *inResponse);
    return inStatus;
}

/// The session that a URL means: by either of its ids, or as the text stands where nobody knows it.
ImmutableString SessionOf(SyncBox& inSyncBox, const ImmutableString& inID)
{
    SyncStatus status;
    return noxnet::IsSuccessfulHTTPStatus(inSyncBox.GetSyncStatusForSession(inID, status)) ? status.mLocalSessionID
                                                                                           : inID;
}

int ReadJob(const Request& inRequest, dto::Job& outJob)
{
    noxcore::serialization::JSONDocument body;
    if (!body.Parse(PayloadText(inRequest))) return RefuseJSON(inRequest);
    const auto root = body.Root();
    if (!root.IsObject() || !root[VYCL::GetJobProperty_Parameters().View()].IsObject() ||
        !dto::ReadRecord(root, outJob))
        return Refuse(inRequest, "JobsService: Bad payload");
    return noxnet::kHTTPStatus_OK;
}

/// 200 where the session has a remote side that jobs can be about.
int CheckAssociation(const Request& inRequest, SyncBox& inSyncBox, const ImmutableString& inProductionID,
                     const dto::Job& inJob, SyncStatus& outStatus)
{
    const int status = inSyncBox.GetSyncStatusForSession(inProductionID, outStatus);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    if (outStatus.mState == SyncState_NotAssociated()) {
        LogWarning(kServiceLogCategory, "JobsService: the production is not associated with a remote production",
                   {{"url", inRequest.URL()},
                    {"localProductionID", inProductionID.View()},
                    {"parameters", ParametersText(inJob.mParameters)}});
        return noxnet::kHTTPStatus_PreconditionFailed;
    }
    if (outStatus.mState == SyncState_RevokedOrDeleted()) {
        LogWarning(kServiceLogCategory, "JobsService: the production has been revoked or deleted",
                   {{"url", inRequest.URL()}, {"syncStatus", outStatus.mState.View()}});
        return noxnet::kHTTPStatus_PreconditionFailed;
    }
    return noxnet::kHTTPStatus_OK;
}

int RequestJob(const Request& inRequest, const ResponsePtr& inResponse, SyncBox& inSyncBox, SyncJobRequest inJob)
{
    // Where somebody else holds the lock, the job takes it when its turn comes.
    inSyncBox.AcquireJobLock(inJob.mSessionID, inJob.mJobID, "JobsService::CreateJob",
                             inJob.mParams.mUserEnclosures ? JobCategory::UserEnclosures : JobCategory::History,
                             inJob.mLock);
    dto::Job job;
    if (noxnet::IsSuccessfulHTTPStatus(inSyncBox.FindMatchingRunningSyncJob(inJob.mSessionID, inJob.mParams, job))) {
        LogInformation(
            kServiceLogCategory, "JobsService: returning existing sync job",
            {{"name", job.mName}, {"parameters", ParametersText(job.mParameters)}, {"progress", job.mProgress}});
        return AnswerJob(inRequest, inResponse, noxnet::kHTTPStatus_Found, true, std::move(job));
    }
    const bool holdsLock = inJob.mLock != nullptr;
    const int status = inSyncBox.RequestSyncJob(inJob, job);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) {
        LogWarning(kServiceLogCategory, "JobsService: cannot request sync job",
                   {{"url", inRequest.URL()}, {"status", status}, {"result", VYCL::GetResultFromStatusCode(status)}});
        return status;
    }
    LogInformation(kServiceLogCategory, "JobsService: requested sync job", {{"lock", holdsLock}, {"status", status}});
    return AnswerJob(inRequest, inResponse, status, true, std::move(job));
}

int CreateJob(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr || !CanMakeURLs(*inRequest)) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString type;
    ImmutableString production;
    if (!ExtractSubExpression(*inRequest, kFirstGroup, type) ||
        !ExtractSubExpression(*inRequest, kSecondGroup, production) || !(type == VYCL::GetJobType_LocalHubSync()))
        return noxnet::kHTTPStatus_BadRequest;
    dto::Job job;
    int status = ReadJob(*inRequest, job);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    SyncStatus syncStatus;
    status = CheckAssociation(*inRequest, *syncBox, production, job, syncStatus);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    SyncJobRequest request;
    request.mSessionID = syncStatus.mLocalSessionID;
    request.mName = job.mName;
    static_cast<dto::SyncJobParameters&>(request.mParams) = std::move(job.mParameters);
    request.mResults = std::make_shared<JobResults>();
    request.mJobID = Guid::CreateUnique();
    return RequestJob(*inRequest, inResponse, *syncBox, std::move(request));
}

int EditJob(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr || !CanMakeURLs(*inRequest)) return noxnet::kHTTPStatus_InternalServerError;
    std::string id;
    FormReader form;
    if (!ExtractSubExpression(*inRequest, kFirstGroup, id)) return noxnet::kHTTPStatus_BadRequest;
    if (!form.Read(*inRequest)) return RefuseJSON(*inRequest);
    const auto state = form.Text(VYCL::GetJobProperty_State().View());
    if (!state) {
        LogWarning(kServiceLogCategory, "JobsService: form field missing",
                   {{"url", inRequest->URL()}, {"field", VYCL::GetJobProperty_State().View()}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    const auto jobID = Guid::FromText(id);
    dto::Job job;
    const int status = jobID ? syncBox->ChangeSyncJobState(*jobID, *state, job) : noxnet::kHTTPStatus_NotFound;
    if (!noxnet::IsSuccessfulHTTPStatus(status)) {
        LogWarning(kServiceLogCategory, "JobsService: cannot change job state",
                   {{"jobID", id}, {"state", *state}, {"status", status}});
        return status;
    }
    return AnswerJob(*inRequest, inResponse, status, false, std::move(job));
}

int GetDetail(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString id;
    if (!ExtractSubExpression(*inRequest, kFirstGroup, id)) return noxnet::kHTTPStatus_BadRequest;
    auto jobs = syncBox->GetSyncJobs();
    const auto found = std::ranges::find(jobs, id, &dto::Job::mID);
    if (found == jobs.end()) return noxnet::kHTTPStatus_NotFound;
    return AnswerJob(*inRequest, inResponse, noxnet::kHTTPStatus_OK, false, std::move(*found));
}

/// Which jobs a list is asked for; empty elements ask for all.
struct JobFilter
{
    ImmutableString mElement;  ///< as the URL has it
    ImmutableString mSessionID;
    ImmutableString mRevision;
};

bool ReadFilter(const Request& inRequest, JobFilter& outFilter)
{
    const auto isUsable = [](const ImmutableString& inText) { return inText.empty() || IsLinkable(inText.View()); };
    return ExtractSubExpression(inRequest, kFirstGroup, outFilter.mElement) &&
           ExtractSubExpression(inRequest, kSecondGroup, outFilter.mRevision) && isUsable(outFilter.mElement) &&
           isUsable(outFilter.mRevision);
}

void AddListLinks(LinkMaker& ioMaker, const JobFilter& inFilter, std::vector<dto::Link>& outLinks)
{
    const ImmutableString& element = inFilter.mElement;
    if (!inFilter.mRevision.empty() && element == kAnySession)
        ioMaker.Add(outLinks, Relation::Self(), Template::kJobsListOfRevisionInAnySession, inFilter.mRevision);
    else if (!inFilter.mRevision.empty())
        ioMaker.Add(outLinks, Relation::Self(), Template::kJobsListOfRevision, element, inFilter.mRevision);
    else if (!element.empty() && !(element == kAnySession))
        ioMaker.Add(outLinks, Relation::Self(), Template::kJobsListOfSession, element);
    else
        ioMaker.Add(outLinks, Relation::Self(), Template::kJobsList);
    ioMaker.Add(outLinks, Relation::JobsTypes(), Template::kJobsTypes);
    const std::string_view session = inFilter.mSessionID.empty() ? kNoElement : inFilter.mSessionID.View();
    ioMaker.Add(outLinks, Relation::LocalHubSyncJobs_Create(), Template::kJobsControl, VYCL::GetJobType_LocalHubSync(),
                session);
}

int GetList(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    JobFilter filter;
    if (!ReadFilter(*inRequest, filter)) return noxnet::kHTTPStatus_BadRequest;
    if (!filter.mElement.empty() && !(filter.mElement == kAnySession))
        filter.mSessionID = SessionOf(*syncBox, filter.mElement);
    dto::JobList list;
    list.mJobs = filter.mSessionID.empty() ? syncBox->GetSyncJobs() : syncBox->GetSyncJobs(filter.mSessionID);
    if (!filter.mRevision.empty())
        std::erase_if(list.mJobs,
                      [&](const dto::Job& inJob) { return !(inJob.mParameters.mToRevision == filter.mRevision); });
    LinkMaker maker(*inRequest);
    for (dto::Job& job : list.mJobs)
        AddJobLinks(maker, job);
    list.mStats = StatsOfAll(list.mJobs.size());
    AddListLinks(maker, filter, list.mLinks);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(list), *inResponse);
}

int GetTypes(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    ImmutableString type;
    if (!ExtractSubExpression(*inRequest, kFirstGroup, type)) return noxnet::kHTTPStatus_BadRequest;
    if (!type.empty() && !(type == VYCL::GetJobType_LocalHubSync())) return noxnet::kHTTPStatus_NotFound;
    LinkMaker maker(*inRequest);
    dto::JobTypes types;
    types.mJobTypes.push_back({VYCL::GetJobType_LocalHubSync()});
    maker.Add(types.mLinks, Relation::Self(), Template::kJobsTypes);
    maker.Add(types.mLinks, Relation::JobsTypes(), Template::kJobsType, VYCL::GetJobType_LocalHubSync());
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(types), *inResponse);
}

}  // namespace

JobsService::JobsService()
{
    Sync("GET", "detail", GetDetail);
    Sync("GET", "list", GetList);
    Sync("GET", "types", GetTypes);
    Sync("POST", "control", CreateJob);
    Sync("PUT", "detail", EditJob);
}

}  // namespace VantryLocalHub

#include <utility>

#include "Inc/Model/ProjectBox.h"
#include "Inc/Sync/ProductionMesh.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

// Rolling a session back to an earlier revision, when no job moves it.

namespace VantryLocalHub {

using namespace noxcore::logging;
using namespace VYCL::LocalHub;

namespace {

constexpr std::string_view kCategory = "HubSync";
constexpr int kMaxAttempts = 5;
constexpr unsigned kRetryDelayMilliseconds = 1000;

/// A job of a rollback, without its id and without where it starts from.
SyncJobRequest MakeRequest(const ImmutableString& inSessionID, std::shared_ptr<JobLock> inLock)
{
    SyncJobRequest request;
    request.mSessionID = inSessionID;
    request.mName = "RollbackSessionToRevision";
    request.mResults = std::make_shared<JobResults>();
    request.mLock = std::move(inLock);
    request.mParams.mTimestamp = RFC3339DateTime::Now();
    request.mParams.mDirection = SyncDirection_Push();
    request.mParams.mToRevision = Revision_HEAD();
    return request;
}

}  // namespace

/// One rollback until it has been answered. One that is dropped unanswered, because engine or executor ended while it
/// waited, answers 424.
class ProductionMesh::Rollback
{
public:
    Rollback(ImmutableString inSessionID, ImmutableString inRevision, SessionCompletion inCompletion)
        : mSessionID(std::move(inSessionID)), mRevision(std::move(inRevision)), mCompletion(std::move(inCompletion))
    {
    }
    ~Rollback() { Complete(noxnet::kHTTPStatus_FailedDependency); }
    Rollback(const Rollback&) = delete;
    Rollback& operator=(const Rollback&) = delete;

    void Complete(int inStatus, const dto::Session& inSession = {})
    {
        if (const auto completion = std::exchange(mCompletion, nullptr)) completion(inStatus, inSession);
    }

    const ImmutableString mSessionID;
    const ImmutableString mRevision;
    int mAttempt = 0;

private:
    SessionCompletion mCompletion;
};

void ProductionMesh::RollbackSessionToRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                               SessionCompletion inCompletion)
{
    TryRollbackSessionToRevision(std::make_shared<Rollback>(inSessionID, inRevision, std::move(inCompletion)));
}

void ProductionMesh::WeakTryRollbackSessionToRevision(const std::weak_ptr<SyncBox>& inEngine, ProductionMesh* inMesh,
                                                      const std::shared_ptr<Rollback>& inRollback)
{
    if (const auto engine = inEngine.lock()) inMesh->TryRollbackSessionToRevision(inRollback);
}

void ProductionMesh::TryRollbackSessionToRevision(const std::shared_ptr<Rollback>& inRollback)
{
    const ImmutableString& sessionID = inRollback->mSessionID;
    if (inRollback->mAttempt >= kMaxAttempts) {
        LogWarning(kCategory, "Giving up on job lock during session rollback", {{"attempt", inRollback->mAttempt}});
        inRollback->Complete(noxnet::kHTTPStatus_NotModified);
        return;
    }
    const auto box = ProjectBox::Instance();
    if (!box) {
        inRollback->Complete(noxnet::kHTTPStatus_InternalServerError);
        return;
    }
    // Locks go by session id, whichever of the two ids the caller has.
    dto::Session session;
    int status = box->GetSession(sessionID, session);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) {
        inRollback->Complete(status);
        return;
    }
    std::shared_ptr<JobLock> jobLock;
    if (!AcquireJobLock(session.mIdentifier, Guid::CreateUnique(), "ProductionMesh::TryRollbackSessionToRevision",
                        JobCategory::History, jobLock)) {
        LogWarning(kCategory, "Failed to acquire job lock during session rollback",
                   {{"session", sessionID.View()},
                    {"revision", inRollback->mRevision.View()},
                    {"attempt", inRollback->mAttempt}});
        ++inRollback->mAttempt;
        noxcore::threads::IOBoundExecutor()->QueueAfter(kRetryDelayMilliseconds,
                                                        [engine = weak_from_this(), this, rollback = inRollback] {
                                                            WeakTryRollbackSessionToRevision(engine, this, rollback);
                                                        });
        return;
    }
    ImmutableString newRevision;
    status = RunRollbackJob(session.mIdentifier, inRollback->mRevision, jobLock, newRevision);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) {
        LogWarning(kCategory, "Roll back session failed", {{"status", status}});
        jobLock.reset();
        inRollback->Complete(status);
        return;
    }
    LogInformation(kCategory, "Rolled back session",
                   {{"localSessionID", session.mIdentifier.View()}, {"revision", inRollback->mRevision.View()}});
    PushAfterRollback(session.mIdentifier, std::move(jobLock));
    status = box->GetProduction(session.mIdentifier, newRevision, session);
    inRollback->Complete(status, session);
}

/// The rollback itself, as a job that everybody sees for as long as it runs.
int ProductionMesh::RunRollbackJob(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                   const std::shared_ptr<JobLock>& inLock, ImmutableString& outRevision)
{
    int status = noxnet::kHTTPStatus_InternalServerError;
    SyncJobRequest request = MakeRequest(inSessionID, inLock);
    request.mJobID = inLock->JobID();
    request.mParams.mFromRevision = inRevision;
    request.mLocalWork = [&] {
        if (const auto box = ProjectBox::Instance()) status = box->RevertSession(inSessionID, inRevision, outRevision);
        return status;
    };
    dto::Job job;
    const int requested = RequestSyncJob(request, job);
    return noxnet::IsSuccessfulHTTPStatus(requested) ? status : requested;
}

/// Asks for the job that sends the rollback on; the job carries the lock, so that nobody comes between.
void ProductionMesh::PushAfterRollback(const ImmutableString& inSessionID, std::shared_ptr<JobLock> inLock)
{
    if (!IsAssociated(inSessionID)) return;
    SyncJobRequest request = MakeRequest(inSessionID, std::move(inLock));
    request.mJobID = Guid::CreateUnique();
    request.mParams.mFromRevision = Revision_LatestSyncPoint();
    dto::Job job;
    RequestSyncJob(request, job);
}

}  // namespace VantryLocalHub

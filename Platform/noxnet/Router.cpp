#include "Platform/noxnet/Router.h"

#include <algorithm>
#include <atomic>
#include <exception>

#include "Platform/noxcore/Logging.h"

namespace noxnet::http::server {

using noxcore::HubContext;
using noxcore::logging::LogError;
using noxcore::logging::LogWarning;
using noxcore::threads::ScopedLock;

namespace {

constexpr const char* kCategory = "noxnet";
constexpr std::size_t kRememberedPaths = 4096;
constexpr std::size_t kLongestRememberedPath = 512;

std::shared_ptr<MutableResponse> MakeResponse(int inStatus)
{
    auto response = std::make_shared<MutableResponse>();
    response->mStatus = inStatus;
    return response;
}

/// The one answer of one request: passes on the first, and gives 500 where none ever comes.
class PendingAnswer
{
public:
    PendingAnswer(Fulfillment inFulfillment, std::shared_ptr<const Request> inRequest)
        : mFulfillment(std::move(inFulfillment)), mRequest(std::move(inRequest))
    {
    }
    PendingAnswer(const PendingAnswer&) = delete;
    PendingAnswer& operator=(const PendingAnswer&) = delete;
    ~PendingAnswer()
    {
        if (mAnswered || mRequest->ClientHasGone()) return;
        LogWarning(kCategory, "A request was dropped without an answer", {{"url", mRequest->URL()}});
        Answer(nullptr);
    }

    void Answer(std::shared_ptr<MutableResponse> inResponse)
    {
        if (mAnswered.exchange(true)) {
            LogWarning(kCategory, "A request was answered a second time", {{"url", mRequest->URL()}});
            return;
        }
        const Fulfillment fulfillment = std::exchange(mFulfillment, nullptr);
        fulfillment(inResponse ? std::move(inResponse) : MakeResponse(kHTTPStatus_InternalServerError));
    }

private:
    Fulfillment mFulfillment;
    const std::shared_ptr<const Request> mRequest;
    std::atomic<bool> mAnswered = false;
};

/// The catch-all: runs a matcher or a handler, and gives false, with a record, for an exception.
template <class Function>
bool RunGuarded(const Request& inRequest, Function&& inFunction)
{
    std::string reason;
    try {
        inFunction();
        return true;
    } catch (const std::exception& exception) {
        reason = exception.what();
    } catch (...) {
        reason = "unknown";
    }
    LogError(kCategory, "Exception while serving a request",
             {{"method", inRequest.Method().View()}, {"url", inRequest.URL()}, {"exception", reason}});
    return false;
}

}  // namespace

Router::Router(const Limits& inLimits)
    : mContext(HubContext::Current()),
      mPool(noxcore::threads::CreateIOBoundExecutor("http", std::max<std::size_t>(1, inLimits.mThreads))),
      mWidth(std::max<std::size_t>(1, inLimits.mThreads)),
      mGate(PeerUserLookup::Current()),
      mRoutes(std::make_shared<const Routes>())
{
}

void Router::Register(const PathExpression& inExpression, std::shared_ptr<Service> inService)
{
    ScopedLock lock(mMutex);
    auto routes = std::make_shared<Routes>(*mRoutes);
    routes->push_back({inExpression, std::move(inService)});
    mRoutes = std::move(routes);
    mMatches.clear();
}

void Router::Unregister(const PathExpression& inExpression)
{
    std::shared_ptr<const Routes> previous;  // a service's last reference must not go under the lock
    ScopedLock lock(mMutex);
    previous = mRoutes;
    auto routes = std::make_shared<Routes>(*mRoutes);
    const auto found = std::find_if(routes->begin(), routes->end(), [&inExpression](const Route& inRoute) {
        return inRoute.mExpression.Pattern() == inExpression.Pattern();
    });
    if (found == routes->end()) return;
    routes->erase(found);
    mRoutes = std::move(routes);
    mMatches.clear();
}

std::shared_ptr<Service> Router::FindRememberedLocked(IncomingRequest& ioRequest)
{
    const std::string_view path = ioRequest.Path();
    const auto found = mMatches.find(path);
    if (found == mMatches.end()) return nullptr;
    auto& groups = ioRequest.MutableMatch();
    groups.clear();
    groups.reserve(found->second.mGroups.size());
    for (const auto& [offset, size] : found->second.mGroups)
        groups.push_back(path.substr(offset, size));
    return (*mRoutes)[found->second.mRoute].mService;
}

void Router::Remember(const std::shared_ptr<const Routes>& inRoutes, std::size_t inRoute, IncomingRequest& ioRequest)
{
    const std::string_view path = ioRequest.Path();
    if (path.size() > kLongestRememberedPath) return;
    Match match{inRoute, {}};
    for (const std::string_view group : ioRequest.MutableMatch())
        match.mGroups.emplace_back(group.data() - path.data(), group.size());
    ScopedLock lock(mMutex);
    if (mRoutes != inRoutes) return;
    if (mMatches.size() >= kRememberedPaths) mMatches.clear();
    mMatches.emplace(path, std::move(match));
}

std::shared_ptr<Service> Router::FindService(IncomingRequest& ioRequest)
{
    std::shared_ptr<const Routes> routes;
    {
        ScopedLock lock(mMutex);
        if (auto service = FindRememberedLocked(ioRequest)) return service;
        routes = mRoutes;
    }
    for (std::size_t index = 0; index < routes->size(); ++index) {
        if (!(*routes)[index].mExpression.Match(ioRequest.Path(), ioRequest.MutableMatch())) continue;
        Remember(routes, index, ioRequest);
        return (*routes)[index].mService;
    }
    ioRequest.MutableMatch().clear();
    return nullptr;
}

void Router::Dispatch(std::shared_ptr<IncomingRequest> inRequest, Fulfillment inFulfillment)
{
    const HubContext::Scope scope(mContext);
    if (!mGate.AdmitRequest(*inRequest)) {
        inFulfillment(MakeResponse(kHTTPStatus_Forbidden));
        return;
    }
    Deliver(std::move(inRequest), std::move(inFulfillment));
}

void Router::Deliver(std::shared_ptr<IncomingRequest> inRequest, Fulfillment inFulfillment)
{
    const HubContext::Scope scope(mContext);
    std::shared_ptr<Service> service;
    bool atOnce = false;
    const bool matched = RunGuarded(*inRequest, [&] {
        service = FindService(*inRequest);
        atOnce = service && service->AnswersAtOnce(*inRequest);
    });
    if (!matched || !service) {
        inFulfillment(MakeResponse(matched ? kHTTPStatus_NotFound : kHTTPStatus_InternalServerError));
        return;
    }
    Job job{std::move(service), std::move(inRequest), std::move(inFulfillment)};
    if (atOnce)
        Run(job);
    else
        Enqueue(std::move(job));
}

void Router::Enqueue(Job inJob)
{
    bool start = false;
    {
        ScopedLock lock(mMutex);
        mJobs.push_back(std::move(inJob));
        start = MayStartLocked();
    }
    if (start) StartRunner();
}

bool Router::MayStartLocked()
{
    // One runner at a time is on its way, and calls the next if it finds more than one job. Waking all at once for jobs
    // that the first would have done costs more than the jobs.
    if (mStarting || mRunners == mWidth || mJobs.empty()) return false;
    mStarting = true;
    ++mRunners;
    return true;
}

void Router::StartRunner()
{
    if (mPool->Queue([self = shared_from_this()] { self->RunJobs(); })) return;
    std::deque<Job> refused;
    {
        ScopedLock lock(mMutex);
        mStarting = false;
        --mRunners;
        refused.swap(mJobs);
    }
    for (const Job& job : refused)
        job.mFulfillment(MakeResponse(kHTTPStatus_ServiceUnavailable));
}

void Router::RunJobs()
{
    for (bool first = true;; first = false) {
        Job job;
        bool start = false;
        {
            ScopedLock lock(mMutex);
            if (first) mStarting = false;
            if (mJobs.empty()) {
                --mRunners;
                return;
            }
            job = std::move(mJobs.front());
            mJobs.pop_front();
            start = MayStartLocked();
        }
        if (start) StartRunner();
        Run(job);
    }
}

void Router::Run(const Job& inJob)
{
    const auto pending = std::make_shared<PendingAnswer>(inJob.mFulfillment, inJob.mRequest);
    const bool ran = RunGuarded(*inJob.mRequest, [&] {
        inJob.mService->FulfillResource(
            inJob.mRequest, std::make_shared<MutableResponse>(),
            [pending](std::shared_ptr<MutableResponse> inResponse) { pending->Answer(std::move(inResponse)); });
    });
    if (!ran) pending->Answer(nullptr);
}

void Router::ShutDownAndWait()
{
    mPool->ShutDownAndWait();
}

}  // namespace noxnet::http::server

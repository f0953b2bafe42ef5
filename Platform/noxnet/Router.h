#pragma once

#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxnet/Gate.h"
#include "Platform/noxnet/IncomingRequest.h"

namespace noxnet::http::server {

/// Brings requests to services: everything of a server that needs no socket.
///
/// Owns the registrations, the gate and the pool. Each service runs under the HubContext in which the router was made.
/// Threading: any thread. The mutex guards registrations and the jobs that wait for the pool (rank Leaf); it is not
/// held while anything is called.
class Router : public std::enable_shared_from_this<Router>
{
public:
    explicit Router(const Limits& inLimits);

    void Register(const PathExpression& inExpression, std::shared_ptr<Service> inService);
    /// Removes the first registration of an expression of that text.
    void Unregister(const PathExpression& inExpression);
    [[nodiscard]] Gate& GetGate() { return mGate; }
    [[nodiscard]] const std::shared_ptr<noxcore::HubContext>& Context() const { return mContext; }

    /// Gate, then Deliver; 403 for what the gate refuses.
    void Dispatch(std::shared_ptr<IncomingRequest> inRequest, Fulfillment inFulfillment);
    /// Finds the service of an admitted request and runs it: on the calling thread where it answers at once, else on
    /// the pool. The fulfillment is called exactly once, whatever the service does: 404 when no expression matches,
    /// 503 when the pool has been shut down, 500 when the service fails or forgets.
    void Deliver(std::shared_ptr<IncomingRequest> inRequest, Fulfillment inFulfillment);
    /// Accepts no further request and waits until no service runs.
    void ShutDownAndWait();

private:
    struct Route
    {
        PathExpression mExpression;
        std::shared_ptr<Service> mService;
    };
    using Routes = std::vector<Route>;
    struct Job
    {
        std::shared_ptr<Service> mService;
        std::shared_ptr<const Request> mRequest;
        Fulfillment mFulfillment;
    };

    /// Where a path was brought to. Clients ask the same paths again and again, and to match one costs more than all
    /// else that happens to a request here.
    struct Match
    {
        std::size_t mRoute = 0;                                    ///< its index
        std::vector<std::pair<std::size_t, std::size_t>> mGroups;  ///< offset and size of each in the path
    };
    struct PathHash
    {
        using is_transparent = void;
        std::size_t operator()(std::string_view inPath) const { return std::hash<std::string_view>()(inPath); }
    };
    using Matches = std::unordered_map<std::string, Match, PathHash, std::equal_to<>>;

    std::shared_ptr<Service> FindService(IncomingRequest& ioRequest);
    std::shared_ptr<Service> FindRememberedLocked(IncomingRequest& ioRequest) REQUIRES(mMutex);
    void Remember(const std::shared_ptr<const Routes>& inRoutes, std::size_t inRoute, IncomingRequest& ioRequest);
    void Enqueue(Job inJob);
    bool MayStartLocked() REQUIRES(mMutex);
    void StartRunner();
    void RunJobs();
    static void Run(const Job& inJob);

    const std::shared_ptr<noxcore::HubContext> mContext;
    const std::shared_ptr<noxcore::threads::Executor> mPool;
    const std::size_t mWidth;
    Gate mGate;

    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::shared_ptr<const Routes> mRoutes GUARDED_BY(mMutex);  ///< replaced as a whole, so that readers keep theirs
    Matches mMatches GUARDED_BY(mMutex);                       ///< of paths asked lately, with the routes as they are
    std::deque<Job> mJobs GUARDED_BY(mMutex);
    std::size_t mRunners GUARDED_BY(mMutex) = 0;  ///< pool tasks that take jobs, or will
    bool mStarting GUARDED_BY(mMutex) = false;    ///< one of them has not begun yet
};

}  // namespace noxnet::http::server

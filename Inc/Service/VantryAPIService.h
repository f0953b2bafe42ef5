#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "Client/Wire/Routes.h"
#include "Inc/Service/AnswerCache.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxnet/HTTPServer.h"

namespace VantryLocalHub {

using noxcore::utility::ImmutableString;
using RequestPtr = std::shared_ptr<const noxnet::http::server::Request>;
using ResponsePtr = std::shared_ptr<noxnet::http::server::MutableResponse>;
using noxnet::http::server::Fulfillment;

/// Tells that a request's handler has done its work, with the status. Called exactly once, on any thread.
using Completion = std::function<void(int inStatus)>;
using SyncHandler = std::function<int(const RequestPtr&, const ResponsePtr&)>;
using AsyncHandler = std::function<void(const RequestPtr&, const ResponsePtr&, Completion)>;

/// The head commit of a session or production; a status outside 200 to 299 for none.
using HeadLookup = std::function<int(const ImmutableString& inProductionID, ImmutableString& outCommitID)>;
/// Asks the current hub's ProjectBox; 500 when there is none.
int LookUpHeadInProjectBox(const ImmutableString& inProductionID, ImmutableString& outCommitID);

/// Base of every resource of the API. Does once what all share: the redirect of a symbolic head revision, the choice of
/// a handler by method and selector, the account of requests that are still open, and the last step of each answer.
///
/// Handlers are added in the constructor and constant afterwards. A handler that throws, or lets go of its completion
/// without calling it, answers 500.
///
/// Threading: handlers run on any thread, several at a time; completions arrive on any thread, and the first wins.
/// mMutex guards the open requests and the registered flag, and is held while no handler and no fulfillment runs.
/// Lock order: rank Service; calls nothing while it is held.
class VantryAPIService : public noxnet::http::server::Service, public std::enable_shared_from_this<VantryAPIService>
{
public:
    void FulfillResource(RequestPtr inRequest, ResponsePtr inResponse, Fulfillment inFulfillment) override;
    [[nodiscard]] const noxnet::http::server::PathExpression& Expression() const override = 0;
    /// True for what a service that keeps its answers has kept, and would answer with.
    [[nodiscard]] bool AnswersAtOnce(const noxnet::http::server::Request& inRequest) const override;
    ~VantryAPIService() override;
    /// Answers what is still open with 503. A completion that comes later has no effect.
    virtual void FailAllAsyncFulfillments();

    /// Puts the service on the server, then takes requests.
    void Register(noxnet::http::server::Server& inServer);
    /// Takes no more requests (503), then leaves the server. What is open stays so.
    void Unregister(noxnet::http::server::Server& inServer);

    [[nodiscard]] const Routes::Service& Route() const { return mRoute; }

protected:
    /// From the constructor: every answer to a GET of a concrete revision depends on that revision and the URL alone,
    /// and is kept, up to inMaxBytes for all of them.
    void KeepAnswersOfRevisions(std::size_t inMaxBytes);

    /// The row of the routing table gives the name for records and the groups of production and revision.
    explicit VantryAPIService(const Routes::Service& inRoute, HeadLookup inHeadLookup = LookUpHeadInProjectBox);

    void AddAsyncMethod(const ImmutableString& inMethod, AsyncHandler inHandler);
    void AddAsyncSelector(const ImmutableString& inMethod, const ImmutableString& inSelector, int inGroup,
                          AsyncHandler inHandler);
    void AddSyncMethod(const ImmutableString& inMethod, SyncHandler inHandler);
    void AddSyncSelector(const ImmutableString& inMethod, const ImmutableString& inSelector, int inGroup,
                         SyncHandler inHandler);

private:
    class PendingCompletion;
    struct Selector
    {
        int mGroup = 0;
        ImmutableString mSelector;
        AsyncHandler mHandler;
    };

    /// Of the session that the request names; 0 when there is none.
    [[nodiscard]] std::uint64_t GenerationFor(const noxnet::http::server::Request& inRequest) const;
    /// Answers with what was kept; false when there is nothing, or the session's history is another since.
    bool AnswerFromCache(const RequestPtr& inRequest, const ResponsePtr& inResponse, const Fulfillment& inFulfillment);
    /// The fulfillment itself, or one that keeps what passes.
    [[nodiscard]] Fulfillment KeepingAnswer(const RequestPtr& inRequest, const Fulfillment& inFulfillment) const;
    bool RedirectHeadToSpecificRevision(const RequestPtr& inRequest, const ResponsePtr& inResponse,
                                        const Fulfillment& inFulfillment);
    bool HandleAsyncSelectors(const ImmutableString& inMethod, const RequestPtr& inRequest,
                              const ResponsePtr& inResponse, const Fulfillment& inFulfillment);
    void CallHandler(const AsyncHandler& inHandler, const RequestPtr& inRequest, const ResponsePtr& inResponse,
                     const Fulfillment& inFulfillment);
    /// Keeps the fulfillment under a new id and gives one out that may be called by whoever and whenever. Empty when
    /// unregistered.
    Fulfillment WrapAsycFulfillment(const Fulfillment& inFulfillment, noxcore::utility::Guid& outID);
    /// Empty when it has been called or failed already, or the service has gone.
    static Fulfillment TakeFulfillment(const std::weak_ptr<VantryAPIService>& inService,
                                       const noxcore::utility::Guid& inID);
    static void UnwrapAsyncFulfillment(const std::weak_ptr<VantryAPIService>& inService,
                                       const noxcore::utility::Guid& inID, const ResponsePtr& inResponse);
    void SetRegistered(bool inRegistered);

    const Routes::Service& mRoute;
    const HeadLookup mHeadLookup;
    const int mProductionGroup;  ///< equal to mRevisionGroup: no redirect
    const int mRevisionGroup;
    std::shared_ptr<AnswerCache> mAnswers;                // null where answers are not kept
    std::map<ImmutableString, AsyncHandler> mMethods;     // method -> handler
    std::multimap<ImmutableString, Selector> mSelectors;  // method -> selectors, in the order they were added

    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Service};
    std::map<noxcore::utility::Guid, Fulfillment> mInFlightFulfillments GUARDED_BY(mMutex);  // one a waiting request
    bool mRegistered GUARDED_BY(mMutex) = false;
};

/// Completes the response of any handler, and sends it.
void FinishFulfillment(const RequestPtr& inRequest, int inStatus, const ResponsePtr& inResponse,
                       const Fulfillment& inFulfillment);

}  // namespace VantryLocalHub

#include "Inc/Service/VantryAPIService.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <utility>

#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/ServiceUtils.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

using noxcore::logging::LogError;
using noxcore::logging::LogInformation;
using noxcore::logging::LogWarning;
using noxcore::threads::ScopedLock;
using noxcore::utility::Guid;
using noxnet::http::server::MutableResponse;

namespace {

constexpr std::string_view kCategory = "VantryAPIService";

const ImmutableString& Get()
{
    static const ImmutableString kGet("GET");
    return kGet;
}

const ImmutableString& Head()
{
    static const ImmutableString kHead("HEAD");
    return kHead;
}

ResponsePtr MakeResponse(int inStatus)
{
    auto response = std::make_shared<MutableResponse>();
    response->mStatus = inStatus;
    return response;
}

void LogLateCallback(const Guid& inID)
{
    LogWarning(kCategory, "Received a callback for an already-fulfilled completion", {{"id", inID.Text()}});
}

AsyncHandler MakeAsync(SyncHandler inHandler)
{
    return [handler = std::move(inHandler)](const RequestPtr& inRequest, const ResponsePtr& inResponse,
                                            const Completion& inCompletion) {
        inCompletion(handler(inRequest, inResponse));
    };
}

/// True for the id of a commit, as opposed to a symbolic revision.
bool IsConcreteRevision(std::string_view inRevision)
{
    constexpr std::size_t kCommitIDSize = 40;
    return inRevision.size() == kCommitIDSize && std::all_of(inRevision.begin(), inRevision.end(), [](char inChar) {
               return (inChar >= '0' && inChar <= '9') || (inChar >= 'a' && inChar <= 'f');
           });
}

/// The request's path with its revision replaced. False when the revision is no part of the path.
bool ReplaceRevision(const RequestPtr& inRequest, std::string_view inRevision, std::string_view inCommitID,
                     std::string& outPath)
{
    const std::string_view whole = inRequest->Match().front();
    if (inRevision.data() < whole.data()) return false;
    const auto offset = static_cast<std::size_t>(inRevision.data() - whole.data());
    if (offset > whole.size() || inRevision.size() > whole.size() - offset) return false;
    outPath = std::string(whole).replace(offset, inRevision.size(), inCommitID);
    return true;
}

}  // namespace

/// What a handler completes its request with, or forgets to. Only the first call may touch the response: it is the
/// sender's then.
class VantryAPIService::PendingCompletion
{
public:
    PendingCompletion(RequestPtr inRequest, ResponsePtr inResponse, std::weak_ptr<VantryAPIService> inService,
                      const Guid& inID)
        : mRequest(std::move(inRequest)), mResponse(std::move(inResponse)), mService(std::move(inService)), mID(inID)
    {
    }
    PendingCompletion(const PendingCompletion&) = delete;
    PendingCompletion& operator=(const PendingCompletion&) = delete;
    ~PendingCompletion()
    {
        if (mCalled.test()) return;
        const Fulfillment fulfillment = TakeFulfillment(mService, mID);
        if (!fulfillment) return;  // answered at shut-down, or for an exception of the handler
        if (!mRequest->ClientHasGone())
            LogError(kCategory, "A handler dropped its request", {{"url", mRequest->URL()}, {"id", mID.Text()}});
        FinishFulfillment(mRequest, noxnet::kHTTPStatus_InternalServerError, mResponse, fulfillment);
    }

    void Complete(int inStatus)
    {
        if (mCalled.test_and_set())
            LogLateCallback(mID);
        else
            FinishFulfillment(mRequest, inStatus, mResponse, [this](const ResponsePtr& inResponse) {
                UnwrapAsyncFulfillment(mService, mID, inResponse);
            });
    }

private:
    const RequestPtr mRequest;
    const ResponsePtr mResponse;
    const std::weak_ptr<VantryAPIService> mService;
    const Guid mID;
    std::atomic_flag mCalled;
};

int LookUpHeadInProjectBox(const ImmutableString& inProductionID, ImmutableString& outCommitID)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    dto::Session production;
    const int status = projectBox->GetProduction(inProductionID, VYCL::LocalHub::Revision_HEAD(), production);
    if (noxnet::IsSuccessfulHTTPStatus(status)) outCommitID = production.mRevision;
    return status;
}

VantryAPIService::VantryAPIService(const Routes::Service& inRoute, HeadLookup inHeadLookup)
    : mRoute(inRoute),
      mHeadLookup(std::move(inHeadLookup)),
      mProductionGroup(inRoute.mProductionGroup),
      mRevisionGroup(inRoute.mRevisionGroup)
{
}

VantryAPIService::~VantryAPIService()
{
    const ScopedLock lock(mMutex);
    if (!mInFlightFulfillments.empty())
        LogWarning(kCategory, "Killing a service with in-flight requests",
                   {{"class", mRoute.mName},
                    {"count", mInFlightFulfillments.size()},
                    {"expression", "mInFlightFulfillments.size() != 0"}});
}

void VantryAPIService::AddAsyncMethod(const ImmutableString& inMethod, AsyncHandler inHandler)
{
    mMethods[inMethod] = std::move(inHandler);
}

void VantryAPIService::AddAsyncSelector(const ImmutableString& inMethod, const ImmutableString& inSelector, int inGroup,
                                        AsyncHandler inHandler)
{
    mSelectors.emplace(inMethod, Selector{inGroup, inSelector, std::move(inHandler)});
}

void VantryAPIService::AddSyncMethod(const ImmutableString& inMethod, SyncHandler inHandler)
{
    AddAsyncMethod(inMethod, MakeAsync(std::move(inHandler)));
}

void VantryAPIService::AddSyncSelector(const ImmutableString& inMethod, const ImmutableString& inSelector, int inGroup,
                                       SyncHandler inHandler)
{
    AddAsyncSelector(inMethod, inSelector, inGroup, MakeAsync(std::move(inHandler)));
}

void VantryAPIService::Register(noxnet::http::server::Server& inServer)
{
    inServer.RegisterService(Expression(), shared_from_this());
    SetRegistered(true);
}

void VantryAPIService::Unregister(noxnet::http::server::Server& inServer)
{
    SetRegistered(false);
    if (mAnswers) mAnswers->Clear();
    inServer.UnregisterService(Expression());
}

void VantryAPIService::SetRegistered(bool inRegistered)
{
    const ScopedLock lock(mMutex);
    mRegistered = inRegistered;
}

void VantryAPIService::KeepAnswersOfRevisions(std::size_t inMaxBytes)
{
    mAnswers = std::make_shared<AnswerCache>(inMaxBytes);
}

bool VantryAPIService::AnswersAtOnce(const noxnet::http::server::Request& inRequest) const
{
    if (!mAnswers || !(inRequest.Method() == Get())) return false;
    const std::uint64_t generation = mAnswers->GenerationOf(inRequest);
    return generation != 0 && generation == GenerationFor(inRequest);
}

std::uint64_t VantryAPIService::GenerationFor(const noxnet::http::server::Request& inRequest) const
{
    const auto projectBox = ProjectBox::Instance();
    ImmutableString productionID;
    const bool isNamed = ExtractSubExpression(inRequest, static_cast<std::size_t>(mProductionGroup), productionID);
    return projectBox != nullptr && isNamed ? projectBox->GetHistoryGeneration(productionID) : 0;
}

bool VantryAPIService::AnswerFromCache(const RequestPtr& inRequest, const ResponsePtr& inResponse,
                                       const Fulfillment& inFulfillment)
{
    if (!mAnswers || !(inRequest->Method() == Get())) return false;
    std::uint64_t generation = 0;
    const auto kept = mAnswers->Find(*inRequest, generation);
    if (!kept || GenerationFor(*inRequest) != generation) return false;
    *inResponse = *kept;
    const std::string_view tag = kept->Header(noxnet::kHEADER_ETag);
    const bool isKnown = !tag.empty() && tag == inRequest->Header(noxnet::kHEADER_IfNoneMatch);
    if (isKnown) inResponse->mPayload = nullptr;
    FinishFulfillment(inRequest, isKnown ? noxnet::kHTTPStatus_NotModified : kept->mStatus, inResponse, inFulfillment);
    return true;
}

Fulfillment VantryAPIService::KeepingAnswer(const RequestPtr& inRequest, const Fulfillment& inFulfillment) const
{
    const auto& groups = inRequest->Match();
    const auto group = static_cast<std::size_t>(mRevisionGroup);
    if (!mAnswers || !(inRequest->Method() == Get()) || groups.size() <= group || !IsConcreteRevision(groups[group]))
        return inFulfillment;
    const std::uint64_t generation = GenerationFor(*inRequest);
    if (generation == 0) return inFulfillment;
    return [answers = mAnswers, generation, request = inRequest,
            fulfillment = inFulfillment](const ResponsePtr& inResponse) {
        if (inResponse && inResponse->mStatus == noxnet::kHTTPStatus_OK)
            answers->Add(*request, *inResponse, generation);
        fulfillment(inResponse);
    };
}

void VantryAPIService::FulfillResource(RequestPtr inRequest, ResponsePtr inResponse, Fulfillment inFulfillment)
{
    if (AnswerFromCache(inRequest, inResponse, inFulfillment)) return;
    inFulfillment = KeepingAnswer(inRequest, inFulfillment);
    if (RedirectHeadToSpecificRevision(inRequest, inResponse, inFulfillment)) return;
    const ImmutableString method = inRequest->Method() == Head() ? Get() : inRequest->Method();
    if (HandleAsyncSelectors(method, inRequest, inResponse, inFulfillment)) return;
    if (const auto found = mMethods.find(method); found != mMethods.end()) {
        CallHandler(found->second, inRequest, inResponse, inFulfillment);
        return;
    }
    LogWarning(kCategory, "Method not implemented",
               {{"class", mRoute.mName}, {"url", inRequest->URL()}, {"method", method.View()}});
    FinishFulfillment(inRequest, noxnet::kHTTPStatus_NotImplemented, inResponse, inFulfillment);
}

bool VantryAPIService::HandleAsyncSelectors(const ImmutableString& inMethod, const RequestPtr& inRequest,
                                            const ResponsePtr& inResponse, const Fulfillment& inFulfillment)
{
    const auto& groups = inRequest->Match();
    if (groups.empty()) return false;
    const auto [begin, end] = mSelectors.equal_range(inMethod);
    for (auto entry = begin; entry != end; ++entry) {
        const auto group = static_cast<std::size_t>(entry->second.mGroup);
        if (groups.size() <= group) {
            LogWarning(kCategory, "Insufficient number of regex match capture groups",
                       {{"class", mRoute.mName},
                        {"size", groups.size()},
                        {"expected", group},
                        {"url", inRequest->URL()},
                        {"requestID", inRequest->Header(noxnet::kHEADER_XRequestID)}});
            continue;
        }
        if (ImmutableString(groups[group]) == entry->second.mSelector) {
            CallHandler(entry->second.mHandler, inRequest, inResponse, inFulfillment);
            return true;
        }
    }
    return false;
}

void VantryAPIService::CallHandler(const AsyncHandler& inHandler, const RequestPtr& inRequest,
                                   const ResponsePtr& inResponse, const Fulfillment& inFulfillment)
{
    Guid id;
    const Fulfillment wrapped = WrapAsycFulfillment(inFulfillment, id);
    if (!wrapped) {
        inFulfillment(MakeResponse(noxnet::kHTTPStatus_ServiceUnavailable));
        return;
    }
    const auto pending = std::make_shared<PendingCompletion>(inRequest, inResponse, weak_from_this(), id);
    std::string reason;
    try {
        inHandler(inRequest, inResponse, [pending](int inStatus) { pending->Complete(inStatus); });
        return;
    } catch (const std::exception& exception) {
        reason = exception.what();
    } catch (...) {
        reason = "unknown";
    }
    LogError(kCategory, "A handler threw an exception",
             {{"class", mRoute.mName}, {"url", inRequest->URL()}, {"exception", reason}});
    // The handler may have passed its response on already: this answer is one of its own.
    FinishFulfillment(inRequest, noxnet::kHTTPStatus_InternalServerError, std::make_shared<MutableResponse>(), wrapped);
}

bool VantryAPIService::RedirectHeadToSpecificRevision(const RequestPtr& inRequest, const ResponsePtr& inResponse,
                                                      const Fulfillment& inFulfillment)
{
    if (mProductionGroup == mRevisionGroup) return false;
    if (!(inRequest->Method() == Get()) && !(inRequest->Method() == Head())) return false;
    try {
        const auto& groups = inRequest->Match();
        if (groups.size() <= static_cast<std::size_t>(mRevisionGroup) ||
            groups.size() <= static_cast<std::size_t>(mProductionGroup))
            return false;
        const std::string_view revision = groups[static_cast<std::size_t>(mRevisionGroup)];
        if (revision != VYCL::LocalHub::Revision_HEAD().View()) return false;
        ImmutableString commitID;
        const int status = mHeadLookup(groups[static_cast<std::size_t>(mProductionGroup)], commitID);
        if (!noxnet::IsSuccessfulHTTPStatus(status) || commitID.empty()) return false;
        std::string path;
        if (!ReplaceRevision(inRequest, revision, commitID, path)) return false;
        inResponse->SetHeader(noxnet::kHEADER_Location, path);
    } catch (const std::exception& exception) {
        LogError(
            kCategory, "caught std::exception while redirecting",
            {{"method", inRequest->Method().View()}, {"resource", inRequest->URL()}, {"exception", exception.what()}});
        return false;
    }
    FinishFulfillment(inRequest, noxnet::kHTTPStatus_TemporaryRedirect, inResponse, inFulfillment);
    return true;
}

Fulfillment VantryAPIService::WrapAsycFulfillment(const Fulfillment& inFulfillment, Guid& outID)
{
    outID = Guid::CreateUnique();
    const ScopedLock lock(mMutex);
    if (!mRegistered) return {};
    mInFlightFulfillments[outID] = inFulfillment;
    return [service = weak_from_this(), id = outID](const ResponsePtr& inResponse) {
        UnwrapAsyncFulfillment(service, id, inResponse);
    };
}

Fulfillment VantryAPIService::TakeFulfillment(const std::weak_ptr<VantryAPIService>& inService, const Guid& inID)
{
    const auto service = inService.lock();
    if (!service) return {};
    const ScopedLock lock(service->mMutex);
    const auto found = service->mInFlightFulfillments.find(inID);
    if (found == service->mInFlightFulfillments.end()) return {};
    Fulfillment fulfillment = std::move(found->second);
    service->mInFlightFulfillments.erase(found);
    return fulfillment;
}

void VantryAPIService::UnwrapAsyncFulfillment(const std::weak_ptr<VantryAPIService>& inService, const Guid& inID,
                                              const ResponsePtr& inResponse)
{
    if (const Fulfillment fulfillment = TakeFulfillment(inService, inID))
        fulfillment(inResponse);
    else
        LogLateCallback(inID);
}

void VantryAPIService::FailAllAsyncFulfillments()
{
    std::map<Guid, Fulfillment> fulfillments;
    {
        const ScopedLock lock(mMutex);
        fulfillments.swap(mInFlightFulfillments);
    }
    if (fulfillments.empty()) return;
    LogWarning(kCategory, "Failing in-flight requests",
               {{"class", mRoute.mName}, {"count", fulfillments.size()}, {"expression", "fulfillments.size() != 0"}});
    for (const auto& [id, fulfillment] : fulfillments)
        fulfillment(MakeResponse(noxnet::kHTTPStatus_ServiceUnavailable));
}

void FinishFulfillment(const RequestPtr& inRequest, int inStatus, const ResponsePtr& inResponse,
                       const Fulfillment& inFulfillment)
{
    if (inResponse->Header(noxnet::kHEADER_ContentType).empty())
        inResponse->SetHeader(noxnet::kHEADER_ContentType, noxnet::kContentType_JSON);
    const std::string_view requestID = inRequest->Header(noxnet::kHEADER_XRequestID);
    if (!requestID.empty()) inResponse->SetHeader(noxnet::kHEADER_XRequestID, requestID);
    inResponse->mStatus = inStatus;
    if (inStatus < 200 || inStatus > 399) {
        // A tag that was set before something failed is of what is not answered.
        std::erase_if(inResponse->mHeaders,
                      [](const auto& inHeader) { return inHeader.first == noxnet::kHEADER_ETag; });
        constexpr std::string_view kMessage = "FinishFulfillment: unsuccessful status";
        const std::initializer_list<noxcore::logging::Pair> pairs = {
            {"url", inRequest->URL()}, {"status", inStatus}, {"requestID", requestID}};
        LogInformation(kCategory, kMessage, pairs);
        LogWarning(kCategory, kMessage, pairs);  // for the trace, where information may be left out
    }
    inFulfillment(inResponse);
}

}  // namespace VantryLocalHub

#include "Inc/Service/LongPollAPIService.h"

#include <utility>

#include "Inc/Service/DropAllLongPolls.h"
#include "Inc/Service/ServiceUtils.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/Timer.h"

namespace VantryLocalHub {

namespace {

constexpr double kMaxSecondsOnMainThread = 2;

void LogWhenSlow(const noxnet::http::server::Request& inRequest, double inSeconds)
{
    if (inSeconds <= kMaxSecondsOnMainThread) return;
    noxcore::logging::LogWarning(kServiceLogCategory, "Long polling blocked the main thread",
                                 {{"seconds", inSeconds}, {"url", inRequest.URL()}, {"expression", "seconds > 2"}});
}

}  // namespace

template <class Key>
struct WaitingRequests<Key>::Made
{
    int mStatus = noxnet::kHTTPStatus_InternalServerError;
    ConstRecycledMemoryPtr mPayload;
    std::string mTag;
};

/// What was made in one go, so that thousands of requests for one resource cost one payload.
template <class Key>
class WaitingRequests<Key>::Payloads
{
public:
    const Made& For(const LongPoll& inPoll)
    {
        const auto& request = *inPoll.mRequest;
        const auto [place, isNew] =
            mMade.try_emplace({std::string(request.URL()), std::string(request.Header(noxnet::kHEADER_Host))});
        if (isNew) {
            std::string payload;
            Made& made = place->second;
            made.mStatus = inPoll.mCreatePayload(request, payload);
            made.mTag = HashPayload(payload);
            made.mPayload = noxcore::utility::MakeRecycledMemory(std::move(payload));
        }
        return place->second;
    }

private:
    std::map<std::pair<std::string, std::string>, Made> mMade;  // URL and host -> payload
};

template <class Key>
void WaitingRequests<Key>::Add(const Key& inKey, LongPoll inPoll)
{
    noxcore::threads::AsyncCallFromMainThread([waiting = this->weak_from_this(), inKey, poll = std::move(inPoll)] {
        if (const auto alive = waiting.lock()) alive->AddOnMainThread(inKey, poll);
    });
}

template <class Key>
void WaitingRequests<Key>::AddOnMainThread(const Key& inKey, LongPoll inPoll)
{
    Waiting one;
    const Place place(inKey, ++mLast);
    const RequestPtr request = inPoll.mRequest;
    one.emplace(place, std::move(inPoll));
    Payloads payloads;
    CreatePayloadAndFulfillOnMainThread(one.extract(one.begin()), payloads);
    if (!mWaiting.contains(place)) return;
    request->WhenClientGoes([waiting = this->weak_from_this(), place] {
        noxcore::threads::AsyncCallFromMainThread([waiting, place] {
            if (const auto alive = waiting.lock()) alive->Forget(place);
        });
    });
}

template <class Key>
void WaitingRequests<Key>::CreatePayloadAndFulfillOnMainThread(Node inNode, Payloads& ioPayloads)
{
    const noxcore::utility::Timer timer;
    const LongPoll& poll = inNode.mapped();
    const RequestPtr request = poll.mRequest;
    const Made& made = ioPayloads.For(poll);
    const bool isSuccess = noxnet::IsSuccessfulHTTPStatus(made.mStatus);
    if (isSuccess && request->Header(noxnet::kHEADER_IfNoneMatch) == made.mTag) {
        mWaiting.insert(std::move(inNode));
    } else {
        if (isSuccess) {
            poll.mResponse->SetHeader(noxnet::kHEADER_ETag, made.mTag);
            poll.mResponse->mPayload = made.mPayload;
        }
        poll.mCompletion(made.mStatus);
    }
    LogWhenSlow(*request, timer.Seconds());
}

template <class Key>
void WaitingRequests<Key>::WakeRange(typename Waiting::iterator inBegin, typename Waiting::iterator inEnd)
{
    // Taken out before the first is answered: an answer may bring the next request.
    std::vector<Node> nodes;
    while (inBegin != inEnd)
        nodes.push_back(mWaiting.extract(inBegin++));
    Payloads payloads;
    for (Node& node : nodes)
        CreatePayloadAndFulfillOnMainThread(std::move(node), payloads);
}

template <class Key>
void WaitingRequests<Key>::Wake(const Key& inKey)
{
    WakeRange(mWaiting.lower_bound({inKey, 0}), mWaiting.upper_bound({inKey, mLast}));
}

template <class Key>
void WaitingRequests<Key>::WakeAll()
{
    WakeRange(mWaiting.begin(), mWaiting.end());
}

template <class Key>
void WaitingRequests<Key>::DropAll()
{
    Waiting dropped;
    dropped.swap(mWaiting);
    for (const auto& [place, poll] : dropped)
        poll.mCompletion(noxnet::kHTTPStatus_NotModified);
}

/// Nobody hears the answer; giving one ends the account that the service keeps of the request.
template <class Key>
void WaitingRequests<Key>::Forget(const Place& inPlace)
{
    if (const Node node = mWaiting.extract(inPlace)) node.mapped().mCompletion(noxnet::kHTTPStatus_NotModified);
}

template <class Key>
LongPollAPIService<Key>::LongPollAPIService(const Routes::Service& inRoute) : VantryAPIService(inRoute)
{
    mListeners.push_back(DropAllLongPollsMessage::Station()->Listen<DropAllLongPollsMessage>(
        [waiting = std::weak_ptr(mWaiting)](const DropAllLongPollsMessage&) {
            if (const auto alive = waiting.lock()) alive->DropAll();
        }));
}

template <class Key>
LongPollAPIService<Key>::~LongPollAPIService() = default;

template <class Key>
void LongPollAPIService<Key>::Answer(const Key& inKey, PayloadCreator inCreatePayload, const RequestPtr& inRequest,
                                     const ResponsePtr& inResponse, Completion inCompletion)
{
    if (HasHeader(*inRequest, noxnet::kHEADER_XLONGPOLL)) {
        mWaiting->Add(inKey, {inRequest, inResponse, inCreatePayload, std::move(inCompletion)});
        return;
    }
    std::string payload;
    int status = inCreatePayload(*inRequest, payload);
    if (noxnet::IsSuccessfulHTTPStatus(status))
        status = SetPayloadWithEntityTag(*inRequest, std::move(payload), *inResponse);
    inCompletion(status);
}

template <class Key>
void LongPollAPIService<Key>::FailAllAsyncFulfillments()
{
    mWaiting->DropAll();
    VantryAPIService::FailAllAsyncFulfillments();
}

template class WaitingRequests<int>;
template class WaitingRequests<ImmutableString>;
template class LongPollAPIService<int>;
template class LongPollAPIService<ImmutableString>;

}  // namespace VantryLocalHub

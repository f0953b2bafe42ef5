#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "Inc/Service/VantryAPIService.h"
#include "Platform/noxcore/Messaging.h"

namespace VantryLocalHub {

/// Makes the payload of a resource as it stands now, from the URL and the Host header of the request alone: requests
/// that are alike in both share what is made for one of them. Runs on the main thread and must be fast. Gives a status;
/// outside 200 to 299 the payload does not count.
using PayloadCreator = int (*)(const noxnet::http::server::Request& inRequest, std::string& outPayload);

/// A request that may wait until its payload changes.
struct LongPoll
{
    RequestPtr mRequest;
    ResponsePtr mResponse;
    PayloadCreator mCreatePayload = nullptr;
    Completion mCompletion;
};

/// The requests that wait, by key, in the order they came. Threading: the main thread alone, but for Add.
template <class Key>
class WaitingRequests : public std::enable_shared_from_this<WaitingRequests<Key>>
{
public:
    /// Answers on the main thread, now or when the payload has changed. Any thread.
    void Add(const Key& inKey, LongPoll inPoll);
    /// Looks again at all that wait under the key.
    void Wake(const Key& inKey);
    void WakeAll();
    /// Answers all with 304.
    void DropAll();
    [[nodiscard]] std::size_t Count() const { return mWaiting.size(); }

private:
    using Place = std::pair<Key, std::uint64_t>;  ///< the number tells requests of one key apart
    using Waiting = std::map<Place, LongPoll>;
    using Node = typename Waiting::node_type;
    struct Made;
    class Payloads;

    /// The step of one request: an answer where its payload is another than the client has, else it waits (on).
    void CreatePayloadAndFulfillOnMainThread(Node inNode, Payloads& ioPayloads);
    void WakeRange(typename Waiting::iterator inBegin, typename Waiting::iterator inEnd);
    void AddOnMainThread(const Key& inKey, LongPoll inPoll);
    void Forget(const Place& inPlace);

    Waiting mWaiting;
    std::uint64_t mLast = 0;
};

/// Base of the resources whose readers may leave a request open until something changes: with the header X-LongPoll and
/// the tag of what the client has in If-None-Match, a GET is answered once its payload is another. Without the header
/// it is a plain read.
///
/// Key int: the resource has one state, under kOnlyKey. Key ImmutableString: one state for each session or production.
/// Threading: all that waits is touched on the main thread alone, where the messages of change arrive too; so no change
/// can fall between the look at the payload and the waiting.
template <class Key>
class LongPollAPIService : public VantryAPIService
{
public:
    /// Answers what waits with 304, then does as the base. On the main thread.
    void FailAllAsyncFulfillments() override;
    ~LongPollAPIService() override;

protected:
    static constexpr int kOnlyKey = 0;

    explicit LongPollAPIService(const Routes::Service& inRoute);

    /// The handler: answers the request, or lets it wait under the key.
    void Answer(const Key& inKey, PayloadCreator inCreatePayload, const RequestPtr& inRequest,
                const ResponsePtr& inResponse, Completion inCompletion);
    /// From the constructor: a message of that type wakes those under the key that the function gives.
    template <class Message>
    void WakeOn(const std::shared_ptr<noxcore::messaging::MessageStation>& inStation, Key (*inKeyOf)(const Message&))
    {
        mListeners.push_back(
            inStation->Listen<Message>([waiting = std::weak_ptr(mWaiting), inKeyOf](const Message& inMessage) {
                if (const auto alive = waiting.lock()) alive->Wake(inKeyOf(inMessage));
            }));
    }
    /// The same, and all that wait.
    template <class Message>
    void WakeAllOn(const std::shared_ptr<noxcore::messaging::MessageStation>& inStation)
    {
        mListeners.push_back(inStation->Listen<Message>([waiting = std::weak_ptr(mWaiting)](const Message&) {
            if (const auto alive = waiting.lock()) alive->WakeAll();
        }));
    }

private:
    const std::shared_ptr<WaitingRequests<Key>> mWaiting = std::make_shared<WaitingRequests<Key>>();
    std::vector<noxcore::messaging::MessageListener> mListeners;
};

extern template class WaitingRequests<int>;
extern template class WaitingRequests<ImmutableString>;
extern template class LongPollAPIService<int>;
extern template class LongPollAPIService<ImmutableString>;

}  // namespace VantryLocalHub

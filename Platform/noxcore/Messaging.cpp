#include "Platform/noxcore/Messaging.h"

#include <cstring>
#include <utility>
#include <vector>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Murmur3.h"

namespace noxcore::messaging {

struct MessageStation::Listener
{
    Handler mHandler;
};

MessageID HashMessageTypeNameToMessageID(std::string_view inTypeName)
{
    utility::Murmur3 hash;
    hash.Add(inTypeName);
    const auto bytes = hash.Finish();
    MessageID id = 0;
    std::memcpy(&id, bytes.data(), sizeof id);
    return id;
}

MessageListener MessageStation::Listen(MessageID inID, Handler inHandler)
{
    auto listener = std::make_shared<Listener>(Listener{std::move(inHandler)});
    const threads::ScopedLock lock(mMutex);
    std::erase_if(mListeners, [](const auto& inEntry) { return inEntry.second.expired(); });
    mListeners.emplace(inID, listener);
    return listener;
}

void MessageStation::Deliver(const Message& inMessage)
{
    std::vector<std::weak_ptr<Listener>> listeners;
    {
        const threads::ScopedLock lock(mMutex);
        if (mDisposed) return;
        const auto [begin, end] = mListeners.equal_range(inMessage.GetMessageID());
        for (auto entry = begin; entry != end; ++entry)
            listeners.push_back(entry->second);
    }
    // A listener that an earlier one took away is not called any more.
    for (const auto& weak : listeners) {
        if (const auto listener = weak.lock()) listener->mHandler(inMessage);
    }
}

void MessageStation::Dispose()
{
    std::multimap<MessageID, std::weak_ptr<Listener>> listeners;
    const threads::ScopedLock lock(mMutex);
    mDisposed = true;
    listeners.swap(mListeners);
}

void PostMessageToUIThread(const std::shared_ptr<MessageStation>& inStation, std::shared_ptr<const Message> inMessage)
{
    threads::AsyncCallFromMainThread(
        [station = inStation, message = std::move(inMessage)] { station->Deliver(*message); });
}

void DisposeStation(const std::shared_ptr<MessageStation>& inStation)
{
    if (inStation) inStation->Dispose();
}

}  // namespace noxcore::messaging

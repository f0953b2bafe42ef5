#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string_view>

#include "Platform/noxcore/RecursiveMutex.h"

namespace noxcore::messaging {

using MessageID = std::uint64_t;

/// The identity of a message class on the bus, made from the text of its type name.
MessageID HashMessageTypeNameToMessageID(std::string_view inTypeName);

/// Base of what is posted. Constant once posted.
class Message
{
public:
    virtual ~Message() = default;
    [[nodiscard]] virtual MessageID GetMessageID() const = 0;
};

/// Gives a message class its identity: class Changed : public MessageBase<Changed> with a static kTypeName.
template <class T>
class MessageBase : public Message
{
public:
    static MessageID ID()
    {
        static const MessageID id = HashMessageTypeNameToMessageID(T::kTypeName);
        return id;
    }
    [[nodiscard]] MessageID GetMessageID() const override { return ID(); }
};

/// Keeps a registration; the listener is called no more once this is gone (on the main thread: at once).
using MessageListener = std::shared_ptr<void>;

/// A place that messages are posted to and listened at. Delivery is on the main thread, in the order of posting.
///
/// Threading: any thread may post and listen. The mutex guards the list of listeners (rank Leaf); it is not held
/// while a listener runs.
class MessageStation : public std::enable_shared_from_this<MessageStation>
{
public:
    using Handler = std::function<void(const Message&)>;

    [[nodiscard]] MessageListener Listen(MessageID inID, Handler inHandler);
    template <class T>
    [[nodiscard]] MessageListener Listen(std::function<void(const T&)> inHandler)
    {
        return Listen(T::ID(), [handler = std::move(inHandler)](const Message& inMessage) {
            handler(static_cast<const T&>(inMessage));
        });
    }
    /// Calls the listeners of the message now, on this thread.
    void Deliver(const Message& inMessage);
    /// No listener is called any more.
    void Dispose();

private:
    struct Listener;
    threads::RecursiveMutex mMutex{threads::LockRank::Leaf};
    std::multimap<MessageID, std::weak_ptr<Listener>> mListeners GUARDED_BY(mMutex);
    bool mDisposed GUARDED_BY(mMutex) = false;
};

/// Posts a message to the main thread, where the station's listeners get it.
void PostMessageToUIThread(const std::shared_ptr<MessageStation>& inStation, std::shared_ptr<const Message> inMessage);
void DisposeStation(const std::shared_ptr<MessageStation>& inStation);

}  // namespace noxcore::messaging

#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxmarshal/Responder.h"

namespace noxmarshal {

/// The arguments of a request: the elements of an array, or an object as the one argument. Valid during the handler.
class Arguments
{
public:
    explicit Arguments(const JSONValue& inParams);
    [[nodiscard]] std::size_t Count() const { return mValues.size(); }
    /// False when there is no such argument, or it is of another type.
    template <class T>
    bool Get(std::size_t inIndex, T& outValue) const
    {
        return inIndex < mValues.size() && ReadJSON(mValues[inIndex], outValue);
    }

private:
    std::vector<JSONValue> mValues;
};

/// Runs on the transport's thread and must not wait there. What it throws is logged and answered as internal error.
using MessageHandler = std::function<void(const Arguments&, const std::shared_ptr<Responder>&)>;

/// The messages that the RPC servers of a HubContext answer.
///
/// Threading: any thread; the mutex guards the map (rank Leaf).
class MessageRegistrar
{
public:
    /// Adds a message to the current context's, in place of one with the same name.
    static void Register(std::string_view inName, MessageHandler inHandler);
    /// A handler that runs just now on another thread may still run when this returns.
    static void Unregister(std::string_view inName);
    /// The current context's.
    static std::shared_ptr<MessageRegistrar> Instance();

    /// Null when there is no such message.
    [[nodiscard]] std::shared_ptr<const MessageHandler> Find(std::string_view inName) const;

private:
    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::map<std::string, std::shared_ptr<const MessageHandler>, std::less<>> mHandlers GUARDED_BY(mMutex);
};

}  // namespace noxmarshal

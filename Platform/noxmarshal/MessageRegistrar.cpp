#include "Platform/noxmarshal/MessageRegistrar.h"

#include <utility>

#include "Platform/noxcore/HubContext.h"

namespace noxmarshal {

using noxcore::threads::ScopedLock;

Arguments::Arguments(const JSONValue& inParams)
{
    if (inParams.IsArray()) mValues = inParams.Children();
    if (inParams.IsObject()) mValues.push_back(inParams);
}

std::shared_ptr<MessageRegistrar> MessageRegistrar::Instance()
{
    return noxcore::HubContext::Current()->GetOrCreateInstance<MessageRegistrar>();
}

void MessageRegistrar::Register(std::string_view inName, MessageHandler inHandler)
{
    auto handler = std::make_shared<const MessageHandler>(std::move(inHandler));
    const auto self = Instance();
    const ScopedLock lock(self->mMutex);
    self->mHandlers[std::string(inName)].swap(handler);
}

void MessageRegistrar::Unregister(std::string_view inName)
{
    const auto self = Instance();
    std::shared_ptr<const MessageHandler> old;  // goes after the lock: what it holds may do anything
    const ScopedLock lock(self->mMutex);
    const auto found = self->mHandlers.find(inName);
    if (found == self->mHandlers.end()) return;
    old = std::move(found->second);
    self->mHandlers.erase(found);
}

std::shared_ptr<const MessageHandler> MessageRegistrar::Find(std::string_view inName) const
{
    const ScopedLock lock(mMutex);
    const auto found = mHandlers.find(inName);
    return found == mHandlers.end() ? nullptr : found->second;
}

}  // namespace noxmarshal

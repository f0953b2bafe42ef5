#include "Platform/swiftlatch/SharedTransport.h"

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace swiftlatch {

namespace {

/// Held weakly: the transport's thread keeps the context, which must not keep the transport.
struct Holder
{
    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::None};
    std::weak_ptr<noxtransport::SocketTransport> mTransport GUARDED_BY(mMutex);
};

}  // namespace

std::shared_ptr<noxtransport::SocketTransport> GetSharedTransport()
{
    const auto context = noxcore::HubContext::Current();
    const auto settings = context->GetInstance<noxtransport::Settings>();
    const auto holder = context->GetOrCreateInstance<Holder>();
    const noxcore::threads::ScopedLock lock(holder->mMutex);
    auto transport = holder->mTransport.lock();
    if (transport == nullptr) {
        transport = noxtransport::SocketTransport::Create(settings ? *settings : noxtransport::Settings());
        holder->mTransport = transport;
    }
    return transport;
}

}  // namespace swiftlatch

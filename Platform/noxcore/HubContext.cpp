#include "Platform/noxcore/HubContext.h"

#include <atomic>
#include <utility>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/SystemParts.h"

namespace noxcore {

namespace {

thread_local std::shared_ptr<HubContext> tCurrent;

const std::shared_ptr<HubContext>& ProcessContext()
{
    // Never destroyed: threads that end late still find it.
    static auto* const context = new std::shared_ptr<HubContext>(HubContext::Create({}));
    return *context;
}

}  // namespace

HubContext::HubContext(Parts inParts) : mParts(std::move(inParts))
{
    if (!mParts.mClock) mParts.mClock = MakeSystemClock();
    if (!mParts.mRandom) mParts.mRandom = MakeSystemRandomSource();
    if (!mParts.mThreading) mParts.mThreading = MakeSystemThreading();
    if (!mParts.mFiles) mParts.mFiles = filesupport::MakeFileSystem();
    if (!mParts.mLog) mParts.mLog = logging::MakeConsoleSink();
}

HubContext::~HubContext()
{
    // Later slots may use earlier ones while they go.
    while (!mSlots.empty())
        mSlots.pop_back();
}

std::shared_ptr<HubContext> HubContext::Create(Parts inParts)
{
    return std::shared_ptr<HubContext>(new HubContext(std::move(inParts)));
}

const std::shared_ptr<HubContext>& HubContext::Current()
{
    return tCurrent ? tCurrent : ProcessContext();
}

std::shared_ptr<logging::Sink> HubContext::GetLog() const
{
    const std::lock_guard lock(mMutex);
    return mParts.mLog;
}

void HubContext::SetLog(std::shared_ptr<logging::Sink> inSink)
{
    const std::lock_guard lock(mMutex);
    mParts.mLog.swap(inSink);
}

std::size_t HubContext::NextSlot()
{
    static std::atomic<std::size_t> next{0};
    return next.fetch_add(1);
}

std::shared_ptr<void> HubContext::GetSlot(std::size_t inSlot) const
{
    const std::lock_guard lock(mMutex);
    return inSlot < mSlots.size() ? mSlots[inSlot] : nullptr;
}

void HubContext::SetSlot(std::size_t inSlot, std::shared_ptr<void> inInstance)
{
    // What stood there goes outside the lock: its destructor may look other instances up.
    std::shared_ptr<void> previous;
    {
        const std::lock_guard lock(mMutex);
        if (inSlot >= mSlots.size()) mSlots.resize(inSlot + 1);
        previous = std::exchange(mSlots[inSlot], std::move(inInstance));
    }
}

std::shared_ptr<void> HubContext::GetOrCreateSlot(std::size_t inSlot, std::shared_ptr<void> (*inMake)())
{
    if (auto present = GetSlot(inSlot)) return present;
    auto made = inMake();
    const std::lock_guard lock(mMutex);
    if (inSlot >= mSlots.size()) mSlots.resize(inSlot + 1);
    if (!mSlots[inSlot]) mSlots[inSlot] = std::move(made);
    return mSlots[inSlot];
}

HubContext::Scope::Scope(std::shared_ptr<HubContext> inContext)
    : mPrevious(std::exchange(tCurrent, std::move(inContext)))
{
}

HubContext::Scope::~Scope()
{
    tCurrent = std::move(mPrevious);
}

threads::Task BindCurrentContext(threads::Task inTask)
{
    return [context = HubContext::Current(), task = std::move(inTask)] {
        const HubContext::Scope scope(context);
        task();
    };
}

}  // namespace noxcore

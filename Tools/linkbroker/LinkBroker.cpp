#include "Tools/linkbroker/LinkBroker.h"

#include <algorithm>
#include <set>
#include <utility>

#include "Platform/noxcore/Logging.h"
#include "Platform/swiftlatch/Protocol.h"

namespace linkbroker {

using noxcore::threads::QueueOnlyOnce;
using noxcore::threads::ScopedLock;
using noxmarshal::Arguments;
using noxmarshal::MessageRegistrar;
using noxtransport::TransportError;
using swiftlatch::RegisteredServer;

namespace {

constexpr const char* kCategory = "LinkBroker";
constexpr int kMaxFailures = 3;

// The three forms of a registration, newest first. What a server has open is not asked for by anybody yet.

bool ReadWithVersionGeneric(const Arguments& inArguments, RegisteredServer& outServer)
{
    swiftlatch::OpenAssetList assets;
    return inArguments.Get(0, outServer.mServer) && inArguments.Get(1, outServer.mAddress) &&
           inArguments.Get(2, assets);
}

bool ReadWithVersion(const Arguments& inArguments, RegisteredServer& outServer)
{
    swiftlatch::OpenProjectList projects;
    return inArguments.Get(0, outServer.mServer) && inArguments.Get(1, outServer.mAddress) &&
           inArguments.Get(2, projects);
}

bool ReadWithName(const Arguments& inArguments, RegisteredServer& outServer)
{
    swiftlatch::OpenProjectList projects;
    return inArguments.Get(0, outServer.mServer.mName) && inArguments.Get(1, outServer.mAddress) &&
           inArguments.Get(2, projects) && inArguments.Get(3, outServer.mServer.mHeadless) &&
           inArguments.Get(4, outServer.mServer.mHeadlessOnly) && inArguments.Get(5, outServer.mServer.mSelflinkOnly);
}

struct RegistrationForm
{
    std::string_view mMessage;
    bool (*mRead)(const Arguments&, RegisteredServer&);
};

constexpr RegistrationForm kRegistrationForms[] = {
    {swiftlatch::kMessage_RegisterServerWithVersionGeneric, &ReadWithVersionGeneric},
    {swiftlatch::kMessage_RegisterServerWithVersion, &ReadWithVersion},
    {swiftlatch::kMessage_RegisterServer, &ReadWithName},
};

void RefuseArguments(const std::shared_ptr<noxmarshal::Responder>& inResponder)
{
    inResponder->SendError(noxmarshal::kRPCError_InvalidParams, "The arguments are not those of the message");
}

}  // namespace

std::shared_ptr<LinkBroker> LinkBroker::Create(const std::shared_ptr<noxtransport::SocketTransport::Server>& inServer,
                                               std::shared_ptr<ProgramStarter> inStarter, const Settings& inSettings,
                                               std::function<void()> inOnUnused)
{
    const std::shared_ptr<LinkBroker> broker(new LinkBroker(std::move(inStarter), inSettings, std::move(inOnUnused)));
    broker->Begin(inServer);
    return broker;
}

LinkBroker::LinkBroker(std::shared_ptr<ProgramStarter> inStarter, const Settings& inSettings,
                       std::function<void()> inOnUnused)
    : mStarter(std::move(inStarter)),
      mSettings(inSettings),
      mOnUnused(std::move(inOnUnused)),
      mExecutor(noxcore::threads::CreateIOBoundExecutor("linkbroker", 1))
{
}

LinkBroker::~LinkBroker() = default;

void LinkBroker::Begin(const std::shared_ptr<noxtransport::SocketTransport::Server>& inServer)
{
    const std::weak_ptr<LinkBroker> weak = weak_from_this();
    mEndTask = QueueOnlyOnce::Create(
        mExecutor,
        [weak] {
            if (const auto self = weak.lock()) self->EndIfUnused();
        },
        mSettings.mGraceInMilliseconds);
    mLookTask = QueueOnlyOnce::Create(
        mExecutor,
        [weak] {
            if (const auto self = weak.lock()) self->LookAfterWaiters();
        },
        mSettings.mLookInMilliseconds);
    RegisterMessages();
    mEndTask->Queue();  // nobody may ever come
    inServer->SetSessionCallbacks(
        [weak](const std::string&) {
            const auto self = weak.lock();
            return self ? self->OnSessionOpened() : TransportError::Refused;
        },
        [weak](const std::string& inSessionID) {
            if (const auto self = weak.lock()) self->OnSessionClosed(inSessionID);
        });
}

void LinkBroker::RegisterMessages()
{
    const std::weak_ptr<LinkBroker> weak = weak_from_this();
    for (const RegistrationForm& form : kRegistrationForms) {
        MessageRegistrar::Register(
            form.mMessage, [weak, read = form.mRead](const Arguments& inArguments, const ResponderPtr& inResponder) {
                RegisteredServer server;
                if (!read(inArguments, server)) return RefuseArguments(inResponder);
                if (const auto self = weak.lock()) self->Register(inResponder, server);
            });
    }
    MessageRegistrar::Register(swiftlatch::kMessage_FindServer,
                               [weak](const Arguments& inArguments, const ResponderPtr& inResponder) {
                                   std::string name;
                                   if (!inArguments.Get(0, name)) return RefuseArguments(inResponder);
                                   if (const auto self = weak.lock()) self->FindServer(name, inResponder);
                               });
    MessageRegistrar::Register(swiftlatch::kMessage_ListServers,
                               [weak](const Arguments&, const ResponderPtr& inResponder) {
                                   if (const auto self = weak.lock()) self->ListServers(inResponder);
                               });
    MessageRegistrar::Register(
        swiftlatch::kMessage_GetProtocolVersion, [](const Arguments&, const ResponderPtr& inResponder) {
            inResponder->SendGeneralResult(swiftlatch::ManagerInformation{swiftlatch::GetSwiftLatchProtocolVersion()});
        });
}

TransportError LinkBroker::OnSessionOpened()
{
    const ScopedLock lock(mMutex);
    if (mEnding) return TransportError::Refused;
    ++mSessionCount;
    return TransportError::None;
}

void LinkBroker::OnSessionClosed(const std::string& inSessionID)
{
    std::vector<Waiter> gone;
    bool unused = false;
    {
        const ScopedLock lock(mMutex);
        mRegistrations.erase(inSessionID);
        gone =
            TakeWaitersLocked([&](const Waiter& inWaiter) { return inWaiter.mResponder->SessionID() == inSessionID; });
        unused = --mSessionCount == 0;
    }
    if (unused) mEndTask->Queue();
}

std::vector<LinkBroker::Waiter> LinkBroker::TakeWaitersLocked(const std::function<bool(const Waiter&)>& inCondition)
{
    const auto taken = std::stable_partition(mWaiters.begin(), mWaiters.end(),
                                             [&](const Waiter& inWaiter) { return !inCondition(inWaiter); });
    std::vector<Waiter> result(std::make_move_iterator(taken), std::make_move_iterator(mWaiters.end()));
    mWaiters.erase(taken, mWaiters.end());
    return result;
}

void LinkBroker::Register(const ResponderPtr& inResponder, const RegisteredServer& inServer)
{
    std::vector<Waiter> answered;
    {
        const ScopedLock lock(mMutex);
        mRegistrations[inResponder->SessionID()] = {++mLastNumber, inServer};
        mFailures.erase(inServer.mServer.mName);
        answered =
            TakeWaitersLocked([&](const Waiter& inWaiter) { return inWaiter.mServerName == inServer.mServer.mName; });
    }
    noxcore::logging::LogInformation(
        kCategory, "Server registered",
        {{"name", inServer.mServer.mName}, {"port", inServer.mAddress.mPort}, {"session", inResponder->SessionID()}});
    inResponder->SendSimpleOK();
    for (const Waiter& waiter : answered)
        waiter.mResponder->SendGeneralResult(inServer.mAddress);
}

void LinkBroker::FindServer(const std::string& inName, const ResponderPtr& inResponder)
{
    const Registration* found = nullptr;
    swiftlatch::ServerAddress address;
    std::uint64_t id = 0;
    {
        const ScopedLock lock(mMutex);
        for (const auto& [session, registration] : mRegistrations) {
            if (registration.mServer.mServer.mName != inName) continue;
            if (found == nullptr || found->mOrder < registration.mOrder) found = &registration;
        }
        if (found != nullptr) {
            address = found->mServer.mAddress;
        } else {
            id = ++mLastNumber;
            mWaiters.push_back({id, inName, inResponder});
        }
    }
    if (found != nullptr) {
        inResponder->SendGeneralResult(address);
        return;
    }
    const std::weak_ptr<LinkBroker> weak = weak_from_this();
    mExecutor->QueueAfter(mSettings.mStartLimitInMilliseconds, [weak, id] {
        const auto self = weak.lock();
        if (self == nullptr) return;
        self->FailWaiters([id](const Waiter& inWaiter) { return inWaiter.mID == id; },
                          "The server did not register in time");
    });
    mExecutor->Queue([weak] {
        if (const auto self = weak.lock()) self->LookAfterWaiters();
    });
}

void LinkBroker::ListServers(const ResponderPtr& inResponder)
{
    std::map<std::uint64_t, RegisteredServer> inOrder;
    {
        const ScopedLock lock(mMutex);
        for (const auto& [session, registration] : mRegistrations) {
            inOrder.emplace(registration.mOrder, registration.mServer);
        }
    }
    swiftlatch::RegisteredServerList list;
    for (const auto& [order, server] : inOrder)
        list.mServers.push_back(server);
    inResponder->SendGeneralResult(list);
}

/// Starts what is waited for and does not run. A program may end without registering, for instance because the hub
/// before it had not quite ended: then it is started again, for as long as somebody waits. One that fails again and
/// again is given up.
void LinkBroker::LookAfterWaiters()
{
    std::set<std::string> names;
    {
        const ScopedLock lock(mMutex);
        for (const Waiter& waiter : mWaiters)
            names.insert(waiter.mServerName);
    }
    bool again = false;
    for (const std::string& name : names) {
        const char* const reason = ReasonToGiveUp(name);
        if (reason == nullptr) {
            again = true;
            continue;
        }
        FailWaiters([&](const Waiter& inWaiter) { return inWaiter.mServerName == name; }, reason);
    }
    if (again) mLookTask->Queue();
}

/// Null when the program runs, started just now where it did not.
const char* LinkBroker::ReasonToGiveUp(const std::string& inName)
{
    const ProgramState state = mStarter->StateOf(inName);
    if (state == ProgramState::Running) return nullptr;
    {
        const ScopedLock lock(mMutex);
        const int failures = state == ProgramState::Failed ? mFailures[inName] + 1 : 0;
        mFailures[inName] = failures % kMaxFailures;  // who asks later has it tried again
        if (failures == kMaxFailures) return "The server fails whenever it is started";
    }
    return mStarter->Start(inName) ? nullptr : "The server is not there and cannot be started";
}

void LinkBroker::FailWaiters(const std::function<bool(const Waiter&)>& inCondition, const char* inReason)
{
    std::vector<Waiter> failed;
    {
        const ScopedLock lock(mMutex);
        failed = TakeWaitersLocked(inCondition);
    }
    for (const Waiter& waiter : failed) {
        noxcore::logging::LogWarning(kCategory, inReason, {{"name", waiter.mServerName}});
        waiter.mResponder->SendError(noxmarshal::kRPCError_NotFound, inReason);
    }
}

void LinkBroker::EndIfUnused()
{
    {
        const ScopedLock lock(mMutex);
        if (mSessionCount != 0 || mEnding) return;
        mEnding = true;
    }
    noxcore::logging::LogInformation(kCategory, "No server and no client is left");
    mOnUnused();
}

}  // namespace linkbroker

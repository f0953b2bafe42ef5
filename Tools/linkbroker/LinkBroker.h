#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxmarshal/MessageRegistrar.h"
#include "Platform/noxtransport/SocketTransport.h"
#include "Platform/swiftlatch/Records.h"

namespace linkbroker {

enum class ProgramState
{
    Running,
    Ended,  ///< as it should, or never started
    Failed  ///< by a signal, or with a status that is not 0
};

/// Starts the programs behind server names. Threading: called by one task at a time.
class ProgramStarter
{
public:
    virtual ~ProgramStarter() = default;
    /// False when no program is known for the name, or it cannot be started.
    virtual bool Start(const std::string& inServerName) = 0;
    /// Of the program that was started last for the name.
    virtual ProgramState StateOf(const std::string& inServerName) = 0;
};

/// The user's link broker: servers register, clients ask for a server by its name and get its address. A server that
/// nobody has registered is started, and the client answered once it has.
///
/// A registration lives as long as the session it came over; of several for one name the last one counts. When no
/// session has been open for the grace period the broker has nothing left to do and says so, once; from then on it
/// refuses sessions. It never opens a session to a server.
///
/// Threading: messages come on the transport's thread; programs are started and time limits fall due on an executor
/// of width 1. mMutex guards the tables and the count (rank Leaf) and is not held while others are called.
class LinkBroker : public std::enable_shared_from_this<LinkBroker>
{
public:
    struct Settings
    {
        unsigned mGraceInMilliseconds = 5000;
        unsigned mStartLimitInMilliseconds = 20000;  ///< for a server to register once it was asked for
        unsigned mLookInMilliseconds = 1000;         ///< between looks whether a started program has ended
    };

    /// Registers the messages in the current context and begins to accept sessions. inOnUnused is called when there
    /// is nothing left to do.
    static std::shared_ptr<LinkBroker> Create(const std::shared_ptr<noxtransport::SocketTransport::Server>& inServer,
                                              std::shared_ptr<ProgramStarter> inStarter, const Settings& inSettings,
                                              std::function<void()> inOnUnused);
    ~LinkBroker();
    LinkBroker(const LinkBroker&) = delete;
    LinkBroker& operator=(const LinkBroker&) = delete;

private:
    using Responder = noxmarshal::Responder;
    using ResponderPtr = std::shared_ptr<Responder>;

    /// A client that waits for a server to register.
    struct Waiter
    {
        std::uint64_t mID = 0;
        std::string mServerName;
        ResponderPtr mResponder;
    };
    struct Registration
    {
        std::uint64_t mOrder = 0;  ///< rises with each registration
        swiftlatch::RegisteredServer mServer;
    };

    LinkBroker(std::shared_ptr<ProgramStarter> inStarter, const Settings& inSettings, std::function<void()> inOnUnused);
    void Begin(const std::shared_ptr<noxtransport::SocketTransport::Server>& inServer);
    void RegisterMessages();

    noxtransport::TransportError OnSessionOpened();
    void OnSessionClosed(const std::string& inSessionID);
    void Register(const ResponderPtr& inResponder, const swiftlatch::RegisteredServer& inServer);
    void FindServer(const std::string& inName, const ResponderPtr& inResponder);
    void ListServers(const ResponderPtr& inResponder);

    void LookAfterWaiters();
    const char* ReasonToGiveUp(const std::string& inName);
    void FailWaiters(const std::function<bool(const Waiter&)>& inCondition, const char* inReason);
    void EndIfUnused();
    std::vector<Waiter> TakeWaitersLocked(const std::function<bool(const Waiter&)>& inCondition) REQUIRES(mMutex);

    const std::shared_ptr<ProgramStarter> mStarter;
    const Settings mSettings;
    const std::function<void()> mOnUnused;
    const std::shared_ptr<noxcore::threads::Executor> mExecutor;
    std::shared_ptr<noxcore::threads::QueueOnlyOnce> mEndTask;   // constant once begun
    std::shared_ptr<noxcore::threads::QueueOnlyOnce> mLookTask;  // constant once begun

    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::map<std::string, Registration> mRegistrations GUARDED_BY(mMutex);  // session id -> its server
    std::vector<Waiter> mWaiters GUARDED_BY(mMutex);
    std::map<std::string, int> mFailures GUARDED_BY(mMutex);  ///< server name -> failed starts in a row
    std::uint64_t mLastNumber GUARDED_BY(mMutex) = 0;         ///< of waiters and registrations
    std::size_t mSessionCount GUARDED_BY(mMutex) = 0;
    bool mEnding GUARDED_BY(mMutex) = false;
};

}  // namespace linkbroker

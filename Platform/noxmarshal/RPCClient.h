#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxmarshal/RPCError.h"
#include "Platform/noxmarshal/Record.h"
#include "Platform/noxtransport/SocketTransport.h"

namespace noxmarshal {

/// The asking end of one session. Its destruction closes the session and fails what is pending.
///
/// Threading: any thread. Of the two callbacks of a request exactly one is called, once: on the transport's thread, on
/// an executor's when the time is up, or on the caller's when the session has ended already. mMutex guards the
/// pending requests (rank Leaf); it is not held during callbacks.
class RPCClient : public std::enable_shared_from_this<RPCClient>
{
public:
    /// The value is valid during the call.
    using OnSuccess = std::function<void(const JSONValue& inResult)>;
    using OnFailure = std::function<void(const RPCError& inError)>;

    /// Null when nobody answers there.
    static std::shared_ptr<RPCClient> Connect(std::shared_ptr<noxtransport::SocketTransport> inTransport,
                                              const std::string& inAddress, std::uint16_t inPort);
    static std::shared_ptr<RPCClient> ConnectLocal(std::shared_ptr<noxtransport::SocketTransport> inTransport,
                                                   const std::string& inPath);
    ~RPCClient();
    RPCClient(const RPCClient&) = delete;
    RPCClient& operator=(const RPCClient&) = delete;

    /// inCall is a text of BuildCall. Without a time limit (0) the request waits as long as the session lives.
    void SendRequest(std::string_view inCall, OnSuccess inOnSuccess, OnFailure inOnFailure,
                     unsigned inLimitInMilliseconds = 0);
    /// Sends and waits for the answer. Not on the transport's thread. outValue is the "value" of the result.
    template <class T>
    bool Ask(std::string_view inCall, unsigned inLimitInMilliseconds, T& outValue, RPCError& outError)
    {
        return AskAndWait(
            inCall, inLimitInMilliseconds,
            [&](const JSONValue& inResult) { return ReadJSON(inResult["value"], outValue); }, outError);
    }
    /// The same for a request whose result says nothing.
    bool Ask(std::string_view inCall, unsigned inLimitInMilliseconds, RPCError& outError)
    {
        return AskAndWait(
            inCall, inLimitInMilliseconds, [](const JSONValue&) { return true; }, outError);
    }

    /// Sets what is called once when the session ends; at once when it has ended already.
    void SetOnLost(std::function<void()> inOnLost);
    [[nodiscard]] bool IsOpen() const;
    void Close();

private:
    class Inbox;
    struct Pending
    {
        OnSuccess mOnSuccess;
        OnFailure mOnFailure;
    };

    explicit RPCClient(std::shared_ptr<noxtransport::SocketTransport> inTransport);
    static std::shared_ptr<RPCClient> Finish(std::shared_ptr<RPCClient> inClient,
                                             std::shared_ptr<noxtransport::Session> inSession);
    bool AskAndWait(std::string_view inCall, unsigned inLimitInMilliseconds,
                    const std::function<bool(const JSONValue&)>& inRead, RPCError& outError);
    void HandleAnswer(std::string_view inMessage);
    void HandleLoss();
    bool TakePending(std::int64_t inID, Pending& outPending);
    void Fail(std::int64_t inID, const RPCError& inError);
    static void WeakTimeIsUp(const std::weak_ptr<RPCClient>& inClient, std::int64_t inID);

    const std::shared_ptr<noxtransport::SocketTransport> mTransport;
    std::shared_ptr<Inbox> mInbox;                    // constant once connected
    std::shared_ptr<noxtransport::Session> mSession;  // constant once connected

    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::map<std::int64_t, Pending> mPending GUARDED_BY(mMutex);  // id -> who waits
    std::int64_t mLastID GUARDED_BY(mMutex) = 0;
    bool mLost GUARDED_BY(mMutex) = false;
    std::function<void()> mOnLost GUARDED_BY(mMutex);
};

}  // namespace noxmarshal

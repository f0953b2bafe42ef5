#include "Platform/noxmarshal/RPCClient.h"

#include <future>
#include <utility>

#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Logging.h"

namespace noxmarshal {

using noxcore::serialization::JSONDocument;
using noxcore::threads::ScopedLock;
using noxtransport::Session;

namespace {

const RPCError& ConnectionLost()
{
    static const RPCError error{kRPCError_ConnectionLost, "The connection was lost"};
    return error;
}

/// Puts the id behind the opening brace of a call.
std::string WithID(std::string_view inCall, std::int64_t inID)
{
    std::string text = "{\"id\":" + std::to_string(inID) + ",";
    text += inCall.substr(1);
    return text;
}

RPCError ReadError(const JSONValue& inError)
{
    RPCError error;
    std::int64_t code = 0;
    if (inError["code"].GetInt64(code)) error.mCode = static_cast<int>(code);
    inError["message"].GetString(error.mMessage);
    return error;
}

}  // namespace

/// Stands between session and client, so that a client can go while messages arrive.
class RPCClient::Inbox final : public noxtransport::Receiver
{
public:
    explicit Inbox(std::weak_ptr<RPCClient> inClient) : mClient(std::move(inClient)) {}

    void OnMessage(const std::shared_ptr<Session>&, std::string_view inMessage) override
    {
        if (const auto client = mClient.lock()) client->HandleAnswer(inMessage);
    }
    void OnBroken(const std::shared_ptr<Session>&, std::string_view) override {}
    void OnClosed(const std::shared_ptr<Session>&) override
    {
        if (const auto client = mClient.lock()) client->HandleLoss();
    }

private:
    const std::weak_ptr<RPCClient> mClient;
};

RPCClient::RPCClient(std::shared_ptr<noxtransport::SocketTransport> inTransport) : mTransport(std::move(inTransport)) {}

RPCClient::~RPCClient()
{
    Close();
    HandleLoss();
}

std::shared_ptr<RPCClient> RPCClient::Connect(std::shared_ptr<noxtransport::SocketTransport> inTransport,
                                              const std::string& inAddress, std::uint16_t inPort)
{
    const std::shared_ptr<RPCClient> client(new RPCClient(std::move(inTransport)));
    client->mInbox = std::make_shared<Inbox>(client);
    return Finish(client, client->mTransport->Connect(inAddress, inPort, client->mInbox));
}

std::shared_ptr<RPCClient> RPCClient::ConnectLocal(std::shared_ptr<noxtransport::SocketTransport> inTransport,
                                                   const std::string& inPath)
{
    const std::shared_ptr<RPCClient> client(new RPCClient(std::move(inTransport)));
    client->mInbox = std::make_shared<Inbox>(client);
    return Finish(client, client->mTransport->ConnectLocal(inPath, client->mInbox));
}

std::shared_ptr<RPCClient> RPCClient::Finish(std::shared_ptr<RPCClient> inClient, std::shared_ptr<Session> inSession)
{
    if (inSession == nullptr) return nullptr;
    inClient->mSession = std::move(inSession);
    return inClient;
}

void RPCClient::SendRequest(std::string_view inCall, OnSuccess inOnSuccess, OnFailure inOnFailure,
                            unsigned inLimitInMilliseconds)
{
    std::int64_t id = 0;
    bool lost = false;
    {
        const ScopedLock lock(mMutex);
        lost = mLost;
        id = ++mLastID;
        if (!lost) mPending.emplace(id, Pending{std::move(inOnSuccess), inOnFailure});
    }
    if (lost) {
        if (inOnFailure) inOnFailure(ConnectionLost());
        return;
    }
    // A session that ends just now fails the request when its end is reported; here it is asked for once more.
    if (!mSession->Send(WithID(inCall, id))) Fail(id, ConnectionLost());
    if (inLimitInMilliseconds == 0) return;
    const bool queued = noxcore::threads::IOBoundExecutor()->QueueAfter(
        inLimitInMilliseconds, [weak = weak_from_this(), id] { WeakTimeIsUp(weak, id); });
    if (!queued) Fail(id, ConnectionLost());
}

void RPCClient::WeakTimeIsUp(const std::weak_ptr<RPCClient>& inClient, std::int64_t inID)
{
    if (const auto client = inClient.lock()) client->Fail(inID, {kRPCError_Timeout, "No answer came in time"});
}

bool RPCClient::TakePending(std::int64_t inID, Pending& outPending)
{
    const ScopedLock lock(mMutex);
    const auto found = mPending.find(inID);
    if (found == mPending.end()) return false;
    outPending = std::move(found->second);
    mPending.erase(found);
    return true;
}

void RPCClient::Fail(std::int64_t inID, const RPCError& inError)
{
    Pending pending;
    if (TakePending(inID, pending) && pending.mOnFailure) pending.mOnFailure(inError);
}

void RPCClient::HandleAnswer(std::string_view inMessage)
{
    JSONDocument document;
    std::int64_t id = 0;
    Pending pending;
    if (!document.Parse(inMessage) || !document.Root().IsObject() || !document.Root()["id"].GetInt64(id) ||
        !TakePending(id, pending)) {
        // An answer that came too late, or one to nobody: the others are still waited for.
        noxcore::logging::LogDetail("noxmarshal", "An answer was not expected");
        return;
    }
    const JSONValue answer = document.Root();
    if (answer["result"].Exists()) {
        if (pending.mOnSuccess) pending.mOnSuccess(answer["result"]);
    } else if (pending.mOnFailure) {
        pending.mOnFailure(ReadError(answer["error"]));
    }
}

void RPCClient::HandleLoss()
{
    std::map<std::int64_t, Pending> pending;
    std::function<void()> onLost;
    {
        const ScopedLock lock(mMutex);
        mLost = true;
        pending.swap(mPending);
        onLost.swap(mOnLost);
    }
    for (const auto& [id, entry] : pending) {
        if (entry.mOnFailure) entry.mOnFailure(ConnectionLost());
    }
    if (onLost) onLost();
}

bool RPCClient::AskAndWait(std::string_view inCall, unsigned inLimitInMilliseconds,
                           const std::function<bool(const JSONValue&)>& inRead, RPCError& outError)
{
    struct Outcome
    {
        bool mRead = false;
        RPCError mError;
    };
    // Shared: the thread that answers may still be inside set_value when the waiting one goes on.
    const auto promise = std::make_shared<std::promise<Outcome>>();
    SendRequest(
        inCall,
        [promise, &inRead](const JSONValue& inResult) {
            promise->set_value({inRead(inResult), {kRPCError_Internal, "The answer is not what was asked for"}});
        },
        [promise](const RPCError& inError) {
            promise->set_value({false, inError});
        },
        inLimitInMilliseconds);
    const Outcome outcome = promise->get_future().get();
    if (!outcome.mRead) outError = outcome.mError;
    return outcome.mRead;
}

void RPCClient::SetOnLost(std::function<void()> inOnLost)
{
    {
        const ScopedLock lock(mMutex);
        if (!mLost) {
            mOnLost = std::move(inOnLost);
            return;
        }
    }
    if (inOnLost) inOnLost();
}

bool RPCClient::IsOpen() const
{
    const ScopedLock lock(mMutex);
    return !mLost;
}

void RPCClient::Close()
{
    if (mSession != nullptr) mSession->Close();
}

}  // namespace noxmarshal

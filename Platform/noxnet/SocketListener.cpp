#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <deque>
#include <future>
#include <thread>
#include <unordered_map>
#include <vector>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/Connection.h"
#include "Platform/noxnet/Listener.h"

namespace noxnet::http::server {

namespace asio = boost::asio;
using boost::system::error_code;
using noxcore::HubContext;
using noxcore::logging::LogError;
using noxcore::logging::LogWarning;
using noxcore::threads::RecursiveMutex;
using noxcore::threads::ScopedLock;

namespace {

constexpr const char* kCategory = "noxnet";
constexpr std::size_t kScratchSize = 64 * 1024;
/// How often deadlines are looked at, while there are connections.
constexpr std::chrono::milliseconds kTick(500);
/// How long accepting rests when the system has no descriptor left, unless a connection ends before.
constexpr std::chrono::milliseconds kBackOff(100);
/// Connections accepted in one go, before those that are there get their turn.
constexpr int kAcceptBatch = 64;
/// Descriptors that are left to the rest of the process, at least and unless a setting says otherwise.
constexpr std::size_t kLeastReserve = 64;
/// Answers to clients that have waited which go out at a time, before those who ask get their turn: a change may bring
/// thousands.
constexpr std::size_t kAnswerBatch = 64;
/// Connections past the bound that are told so at a time; those beyond are closed without a word.
constexpr std::size_t kMaxRefusals = 32;

/// What the setting allows, but never so many that the store could open no files.
std::size_t MaxConnections(const Limits& inLimits)
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return inLimits.mMaxConnections;
    const std::size_t descriptors = limit.rlim_cur;
    const std::size_t reserve =
        inLimits.mReservedDescriptors != 0 ? inLimits.mReservedDescriptors : std::max(kLeastReserve, descriptors / 4);
    return std::min(inLimits.mMaxConnections, descriptors > reserve ? descriptors - reserve : 1);
}

/// The listening socket on 127.0.0.1; -1 when the port cannot be had.
int OpenListeningSocket(std::uint16_t inPort, std::uint16_t& outPort)
{
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return -1;
    const int on = 1;  // a port whose last connections only wait out their time can be had again
    ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(inPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(descriptor, generic, size) != 0 || ::listen(descriptor, SOMAXCONN) != 0 ||
        ::getsockname(descriptor, generic, &size) != 0) {
        LogWarning(kCategory, "Unable to listen", {{"port", inPort}, {"error", std::strerror(errno)}});
        ::close(descriptor);
        return -1;
    }
    outPort = ntohs(address.sin_port);
    return descriptor;
}

/// A file that is sent to a client who has gone raises a signal, unlike bytes that are: the failed call tells enough.
void DeafenToClosedSockets()
{
    sigset_t closed;
    sigemptyset(&closed);
    sigaddset(&closed, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &closed, nullptr);
}

/// The I/O thread's world: acceptor, connections, and the answers on their way to them.
///
/// Threading: all on the I/O thread but QueueAnswer. The mutex guards the answers that wait for it (rank Leaf).
class SocketCore final : public ConnectionHost, public std::enable_shared_from_this<SocketCore>
{
public:
    SocketCore(std::shared_ptr<Router> inRouter, const Limits& inLimits)
        : mRouter(std::move(inRouter)),
          mLimits(inLimits),
          mMaxConnections(MaxConnections(inLimits)),
          mBodyMemory(std::make_shared<BodyMemory>(inLimits.mMaxBodyBytesTogether)),
          mScratch(kScratchSize)
    {
    }

    bool Open(std::uint16_t inPort)
    {
        const int descriptor = OpenListeningSocket(inPort, mPort);
        if (descriptor < 0) return false;
        mAcceptor.assign(asio::ip::tcp::v4(), descriptor);
        AwaitClients();
        return true;
    }

    [[nodiscard]] std::uint16_t Port() const { return mPort; }
    asio::io_context& IO() { return mIO; }

    /// Runs until Close, whatever a completion throws.
    void Run()
    {
        const HubContext::Scope scope(mRouter->Context());
        mThread = std::this_thread::get_id();
        DeafenToClosedSockets();
        for (;;) {
            try {
                mIO.run();
                return;
            } catch (const std::exception& exception) {
                LogError(kCategory, "Exception on the I/O thread", {{"exception", exception.what()}});
            }
        }
    }

    void StopReceiving()
    {
        mStopped = true;
        error_code error;
        mAcceptor.close(error);
        for (const auto& connection : AllConnections())
            connection->StopReceiving();
    }

    void Close()
    {
        while (DeliverAnswers()) {
        }
        for (const auto& connection : AllConnections())
            connection->Close();
        mTick.cancel();
        mBackOff.cancel();
        mWork.reset();
    }

    Router& GetRouter() override { return *mRouter; }
    const Limits& GetLimits() override { return mLimits; }
    const std::shared_ptr<BodyMemory>& GetBodyMemory() override { return mBodyMemory; }
    std::span<char> Scratch() override { return mScratch; }
    std::weak_ptr<ConnectionHost> Weak() override { return weak_from_this(); }

    void QueueAnswer(std::uint64_t inConnection, std::uint64_t inRequest, EncodedAnswer inAnswer) override
    {
        if (std::this_thread::get_id() == mThread.load(std::memory_order_relaxed)) {
            const auto found = mConnections.find(inConnection);
            if (found != mConnections.end() && found->second->TakeAtOnce(inRequest, inAnswer)) return;
        }
        {
            ScopedLock lock(mMutex);
            auto& answers = inAnswer.mHasWaited ? mLateAnswers : mAnswers;
            answers.push_back({inConnection, inRequest, std::move(inAnswer)});
            if (std::exchange(mDelivering, true)) return;  // the I/O thread knows already
        }
        asio::post(mIO, [self = shared_from_this()] { self->KeepDelivering(); });
    }

    void Remove(std::uint64_t inConnection) override
    {
        mConnections.erase(inConnection);
        if (mResting) mBackOff.cancel();  // a descriptor has come free
    }

private:
    struct QueuedAnswer
    {
        std::uint64_t mConnection = 0;
        std::uint64_t mRequest = 0;
        EncodedAnswer mAnswer;
    };

    /// Comes again while answers are left, whatever a connection throws.
    void KeepDelivering()
    {
        bool more = true;
        try {
            more = DeliverAnswers();
        } catch (const std::exception& exception) {
            LogError(kCategory, "Exception on the I/O thread", {{"exception", exception.what()}});
        }
        if (more) asio::post(mIO, [self = shared_from_this()] { self->KeepDelivering(); });
    }

    /// Sends what is due to those who have just asked, then a few of those who have waited. True when some are left.
    bool DeliverAnswers()
    {
        bool more = false;
        {
            ScopedLock lock(mMutex);
            mDue.swap(mAnswers);
            for (std::size_t i = 0; i < kAnswerBatch && !mLateAnswers.empty(); ++i) {
                mDue.push_back(std::move(mLateAnswers.front()));
                mLateAnswers.pop_front();
            }
            mDelivering = more = !mLateAnswers.empty();
        }
        while (!mDue.empty()) {
            QueuedAnswer answer = std::move(mDue.front());
            mDue.pop_front();
            if (const auto connection = FindConnection(answer.mConnection))
                connection->Answer(answer.mRequest, std::move(answer.mAnswer));
        }
        return more;
    }

    std::shared_ptr<Connection> FindConnection(std::uint64_t inConnection) const
    {
        const auto found = mConnections.find(inConnection);
        return found == mConnections.end() ? nullptr : found->second;
    }

    /// A copy, since what is called for each may take some out.
    std::vector<std::shared_ptr<Connection>> AllConnections() const
    {
        std::vector<std::shared_ptr<Connection>> all;
        all.reserve(mConnections.size());
        for (const auto& [id, connection] : mConnections)
            all.push_back(connection);
        return all;
    }

    void AwaitClients()
    {
        mAcceptor.async_wait(asio::ip::tcp::acceptor::wait_read,
                             [self = shared_from_this()](const error_code& inError) {
                                 if (!inError && !self->mStopped) self->AcceptClients();
                             });
    }

    void AcceptClients()
    {
        for (int i = 0; i < kAcceptBatch; ++i) {
            const int descriptor = ::accept4(mAcceptor.native_handle(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            if (descriptor >= 0) {
                mExhausted = false;
                Admit(descriptor);
            } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
                break;
            } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                return RestFromAccepting(errno);
            }  // else this one client has gone meanwhile
        }
        AwaitClients();
    }

    void RestFromAccepting(int inError)
    {
        if (!std::exchange(mExhausted, true))
            LogWarning(kCategory, "Accepting rests: no descriptor left",
                       {{"connections", mConnections.size()}, {"error", std::strerror(inError)}});
        mResting = true;
        mBackOff.expires_after(kBackOff);
        mBackOff.async_wait([self = shared_from_this()](const error_code&) {
            self->mResting = false;
            if (!self->mStopped) self->AcceptClients();
        });
    }

    void Admit(int inDescriptor)
    {
        const std::size_t present = mConnections.size();
        const bool full = present >= mMaxConnections;
        if (full && !std::exchange(mFull, true))
            LogWarning(kCategory, "Connections refused: too many", {{"connections", present}});
        SocketPair pair;
        if (present >= mMaxConnections + kMaxRefusals || !GetSocketPair(inDescriptor, pair) ||
            !mRouter->GetGate().AdmitPeer(pair)) {
            ::close(inDescriptor);
            return;
        }
        const std::uint64_t id = ++mLastID;
        const auto connection = Connection::Create(*this, mIO, inDescriptor, pair, id);
        mConnections.emplace(id, connection);
        if (full) {
            connection->Refuse(kHTTPStatus_ServiceUnavailable);
        } else {
            mFull = false;
            connection->Start();
        }
        if (!mTicking) Tick();
    }

    void Tick()
    {
        mTicking = !mConnections.empty() && !mStopped;
        if (!mTicking) return;
        mTick.expires_after(kTick);
        mTick.async_wait([self = shared_from_this()](const error_code&) {
            const std::int64_t now = HubContext::Current()->GetClock().MonotonicTicks();
            for (const auto& connection : self->AllConnections())
                connection->CheckTime(now);
            self->Tick();
        });
    }

    const std::shared_ptr<Router> mRouter;
    const Limits mLimits;
    const std::size_t mMaxConnections;
    const std::shared_ptr<BodyMemory> mBodyMemory;
    std::uint16_t mPort = 0;
    std::atomic<std::thread::id> mThread;

    asio::io_context mIO{1};
    asio::executor_work_guard<asio::io_context::executor_type> mWork{mIO.get_executor()};  ///< until Close
    asio::ip::tcp::acceptor mAcceptor{mIO};
    asio::steady_timer mTick{mIO};
    asio::steady_timer mBackOff{mIO};
    std::vector<char> mScratch;
    std::unordered_map<std::uint64_t, std::shared_ptr<Connection>> mConnections;  ///< connection id -> connection
    std::deque<QueuedAnswer> mDue;                                                ///< being sent; keeps its memory
    std::uint64_t mLastID = 0;
    bool mStopped = false;
    bool mTicking = false;
    bool mResting = false;    ///< the back-off timer runs
    bool mExhausted = false;  ///< the want of descriptors has been logged
    bool mFull = false;       ///< the refusal of connections has been logged

    RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::deque<QueuedAnswer> mAnswers GUARDED_BY(mMutex);
    std::deque<QueuedAnswer> mLateAnswers GUARDED_BY(mMutex);  ///< to requests that have waited
    bool mDelivering GUARDED_BY(mMutex) = false;               ///< the I/O thread will take what is there
};

/// Owns the I/O thread, and calls into its world from outside.
class SocketListener final : public Listener
{
public:
    SocketListener(std::shared_ptr<Router> inRouter, const Limits& inLimits)
        : mCore(std::make_shared<SocketCore>(std::move(inRouter), inLimits))
    {
    }
    ~SocketListener() override { SocketListener::Close(); }

    bool Open(std::uint16_t inPort) override
    {
        if (!mCore->Open(inPort)) return false;
        mThread = std::thread([core = mCore] { core->Run(); });
        return true;
    }
    [[nodiscard]] std::uint16_t Port() const override { return mCore->Port(); }
    void StopReceiving() override
    {
        if (mThread.joinable()) CallAndWait([this] { mCore->StopReceiving(); });
    }
    void Close() override
    {
        if (!mThread.joinable()) return;
        CallAndWait([this] {
            mCore->StopReceiving();
            mCore->Close();
        });
        mThread.join();
    }

private:
    template <class Function>
    void CallAndWait(Function inFunction)
    {
        std::promise<void> done;
        asio::post(mCore->IO(), [&] {
            inFunction();
            done.set_value();
        });
        done.get_future().wait();
    }

    const std::shared_ptr<SocketCore> mCore;
    std::thread mThread;
};

}  // namespace

std::unique_ptr<Listener> MakeSocketListener(std::shared_ptr<Router> inRouter, const Limits& inLimits)
{
    return std::make_unique<SocketListener>(std::move(inRouter), inLimits);
}

}  // namespace noxnet::http::server

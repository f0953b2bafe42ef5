// Many clients wait for a change on one server while another asks ordinary things, and the change comes: a few times
// over, since clients that were answered ask again.
//
//   poll_round <port> hub <clients> <process id>    the status of a session; the change is a commit
//   poll_round <port> bare <clients> <process id>   BareBeastServer's /wait; the change is /wake
//
// Prints the memory that a waiting client costs the server, how long it took until the last was answered, and the
// slowest ordinary requests of those that ran while clients were being answered.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Bench/GeneratedAssets.h"
#include "Client/Wire/SessionResource.h"
#include "Platform/noxnet/HTTPClient.h"
#include "Tools/hubctl/HubAPI.h"

namespace {

namespace client = noxnet::http::client;
namespace dto = VantryLocalHub::dto;

constexpr int kEvents = 5;
constexpr int kSocketsAtOnce = 64;

[[noreturn]] void Fail(const std::string& inReason)
{
    std::cerr << "poll_round: " << inReason << "\n";
    std::exit(1);
}

double ResidentMegabytes(const std::string& inProcess)
{
    std::ifstream status("/proc/" + inProcess + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmRSS:")) return std::strtod(line.c_str() + 6, nullptr) / 1024;
    Fail("no such process");
}

/// One request after the other over a kept connection.
class Asker
{
public:
    explicit Asker(std::uint16_t inPort) : mClient(client::Client::Create("127.0.0.1", inPort, {})) {}

    client::Answer Send(const std::string& inMethod, const std::string& inTarget, const std::string& inBody = {})
    {
        client::TextBody body(inBody);
        client::Request request;
        request.mMethod = inMethod;
        request.mTarget = inTarget;
        if (!inBody.empty()) {
            request.mContentType = "application/json";
            request.mBody = &body;
        }
        client::Answer answer;
        std::string error;
        if (!mClient->Send(request, answer, error)) Fail(error);
        return answer;
    }

private:
    const std::unique_ptr<client::Client> mClient;
};

/// What is waited for, what is asked meanwhile, and what makes it change.
class Subject
{
public:
    virtual ~Subject() = default;
    /// The request that waits, as it goes on the wire.
    virtual std::string Waiting() = 0;
    virtual std::string OrdinaryTarget() = 0;
    virtual void Change() = 0;
};

class HubSubject final : public Subject
{
public:
    explicit HubSubject(std::uint16_t inPort)
        : mPort(std::to_string(inPort)), mAsker(inPort), mHub(client::Client::Create("127.0.0.1", inPort, {}))
    {
        hubctl::Failure failure;
        dto::SessionResource session;
        if (!mHub.CreateLocalProduction(R"({"name":"Bench"})", session, failure)) Fail(failure.mText);
        mSession = session.mSessionID.Text();
    }
    std::string Waiting() override
    {
        const std::string tag(mAsker.Send("GET", Status()).Header("ETag"));
        return "GET " + Status() + " HTTP/1.1\r\nHost: 127.0.0.1:" + mPort +
               "\r\nX-LongPoll: 1\r\nIf-None-Match: " + tag + "\r\n\r\n";
    }
    std::string OrdinaryTarget() override { return Status(); }
    void Change() override
    {
        const std::string body = R"({"properties":{"name":"Bench )" + std::to_string(++mChanges) + "\"}}";
        if (mAsker.Send("PUT", "/api/production/" + mSession + "/HEAD/properties", body).mStatus != 200)
            Fail("the commit failed");
    }

private:
    [[nodiscard]] std::string Status() const { return "/api/session/status/" + mSession; }

    const std::string mPort;
    Asker mAsker;
    hubctl::HubAPI mHub;
    std::string mSession;
    int mChanges = 0;
};

class BareSubject final : public Subject
{
public:
    explicit BareSubject(std::uint16_t inPort) : mAsker(inPort) {}
    std::string Waiting() override { return "GET /wait HTTP/1.1\r\nHost: 127.0.0.1\r\nX-LongPoll: 1\r\n\r\n"; }
    std::string OrdinaryTarget() override { return "/api"; }
    void Change() override { mAsker.Send("GET", "/wake"); }

private:
    Asker mAsker;
};

/// The clients that wait.
class Waiters
{
public:
    Waiters(std::uint16_t inPort, int inCount) : mEpoll(epoll_create1(EPOLL_CLOEXEC))
    {
        for (int i = 0; i < inCount; ++i)
            mSockets.push_back(Connect(inPort));
    }

    void Ask(const std::string& inRequest)
    {
        for (const int socket : mSockets)
            if (send(socket, inRequest.data(), inRequest.size(), MSG_NOSIGNAL) !=
                static_cast<ssize_t>(inRequest.size()))
                Fail("a waiting client cannot send");
    }
    /// Until each has its answer.
    void Await()
    {
        std::size_t left = mSockets.size();
        epoll_event events[kSocketsAtOnce];
        char bytes[4096];
        while (left > 0) {
            const int count = epoll_wait(mEpoll, events, kSocketsAtOnce, 30000);
            if (count <= 0) Fail(std::to_string(left) + " clients are still waiting");
            for (int i = 0; i < count; ++i) {
                if (recv(events[i].data.fd, bytes, sizeof(bytes), 0) <= 0) Fail("a waiting client was cut off");
                --left;  // an answer fits one packet
            }
        }
    }

private:
    int Connect(std::uint16_t inPort) const
    {
        const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(inPort);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int on = 1;
        setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        if (socket < 0 || connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
            Fail("no further client can connect");
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = socket;
        epoll_ctl(mEpoll, EPOLL_CTL_ADD, socket, &event);
        return socket;
    }

    const int mEpoll;
    std::vector<int> mSockets;
};

/// Asks ordinary things all the while, and keeps how long those took that met a change.
class Bystander
{
public:
    Bystander(std::uint16_t inPort, std::string inTarget)
        : mThread([this, inPort, target = std::move(inTarget)] { Run(inPort, target); })
    {
    }
    void SetChanging(bool inChanging) { mChanging = inChanging; }
    std::vector<double> Finish()
    {
        mStop = true;
        mThread.join();
        return mSeconds;
    }

private:
    void Run(std::uint16_t inPort, const std::string& inTarget)
    {
        Asker asker(inPort);
        while (!mStop) {
            const bool before = mChanging;
            const double start = bench::Now();
            asker.Send("GET", inTarget);
            if (before || mChanging) mSeconds.push_back(bench::Now() - start);
            std::this_thread::sleep_for(std::chrono::microseconds(500));  // a client, not a load generator
        }
    }

    std::atomic<bool> mChanging = false;
    std::atomic<bool> mStop = false;
    std::vector<double> mSeconds;
    std::thread mThread;
};

void RaiseDescriptorLimit()
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 5) return 2;
    const auto port = static_cast<std::uint16_t>(std::strtoul(argv[1], nullptr, 10));
    const bool isHub = std::string(argv[2]) == "hub";
    const int count = std::atoi(argv[3]);
    RaiseDescriptorLimit();
    std::unique_ptr<Subject> subject;
    if (isHub)
        subject = std::make_unique<HubSubject>(port);
    else
        subject = std::make_unique<BareSubject>(port);
    const double idle = ResidentMegabytes(argv[4]);
    Waiters waiters(port, count);
    Bystander bystander(port, subject->OrdinaryTarget());
    std::vector<double> seconds;
    double waiting = 0;
    for (int event = 0; event < kEvents; ++event) {
        waiters.Ask(subject->Waiting());
        std::this_thread::sleep_for(std::chrono::seconds(1));  // until all surely wait
        waiting = std::max(waiting, ResidentMegabytes(argv[4]));
        bystander.SetChanging(true);
        const double start = bench::Now();
        std::thread change([&] { subject->Change(); });
        waiters.Await();
        seconds.push_back(bench::Now() - start);
        bystander.SetChanging(false);
        change.join();
    }
    bench::Report report;
    report.Add("megabytes", waiting - idle);
    report.Add("answered", bench::Median(seconds) * 1000);
    report.AddPercentiles(bystander.Finish());
    report.Print();
    return 0;
}

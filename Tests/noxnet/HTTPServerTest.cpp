#include <gmock/gmock.h>

#include "Platform/noxcore/MemoryFile.h"
#include "Platform/noxnet/IncomingRequest.h"
#include "Tests/noxnet/ServerFixture.h"

using namespace testing_support;
using testing::HasSubstr;
using testing::Not;

class HTTPServer : public ServerTest
{
};

TEST_F(HTTPServer, AGetReachesTheServiceWhoseExpressionMatches)
{
    const auto hub = ServeEcho();
    SocketClient client(hub->GetPort());
    const auto answer = client.Ask(Get(hub, "/api/echo/a?b=c"));
    EXPECT_EQ(200, answer.mStatus);
    EXPECT_EQ("GET /api/echo/a 0", answer.mBody);
    EXPECT_EQ("17", answer.Header("Content-Length"));
    EXPECT_EQ("Tue, 14 Nov 2023 22:13:21 GMT", answer.Header("Date"));
}

TEST_F(HTTPServer, APathThatNoExpressionMatchesGets404WithoutABody)
{
    const auto hub = ServeEcho();
    SocketClient client(hub->GetPort());
    const auto answer = client.Ask(Get(hub, "/somewhere"));
    EXPECT_EQ(404, answer.mStatus);
    EXPECT_EQ("0", answer.Header("Content-Length"));
    EXPECT_EQ(200, client.Ask(Get(hub, "/api/echo")).mStatus) << "the connection goes on";
}

TEST_F(HTTPServer, ServicesAreMatchedInTheOrderOfTheirRegistration)
{
    const auto hub = ServeEcho();
    const auto never = std::make_shared<TestService>("^/api/echo/never$", Echo);
    hub->RegisterService(never->Expression(), never);
    SocketClient client(hub->GetPort());
    EXPECT_EQ(200, client.Ask(Get(hub, "/api/echo/never")).mStatus);
    EXPECT_EQ(0, never->Requests());
    hub->UnregisterService(mEcho->Expression());
    EXPECT_EQ(200, client.Ask(Get(hub, "/api/echo/never")).mStatus);
    EXPECT_EQ(1, never->Requests());
}

TEST_F(HTTPServer, AHeadAnswerCarriesTheLengthButNoBody)
{
    const auto hub = ServeEcho();
    SocketClient client(hub->GetPort());
    std::string request = Get(hub, "/api/echo");
    client.Send(request.replace(0, 3, "HEAD"));
    const auto answer = client.Read(false);
    EXPECT_EQ("16", answer.Header("Content-Length"));
    EXPECT_EQ("GET /api/echo 0", client.Ask(Get(hub, "/api/echo")).mBody) << "no stray bytes before it";
}

TEST_F(HTTPServer, AnAnswerThatMayHaveNoBodyHasNoLengthAndTheConnectionGoesOn)
{
    for (const int status : {204, 304}) {
        const auto hub =
            Serve(std::make_shared<TestService>("^/api/none$", [status](auto, auto inResponse, auto inDone) {
                inResponse->mStatus = status;
                inResponse->mPayload = noxcore::utility::CopyToRecycledMemory("left out");
                inResponse->SetHeader("ETag", "tag");
                inDone(inResponse);
            }));
        SocketClient client(hub->GetPort());
        client.Send(Get(hub, "/api/none") + Get(hub, "/nothing"));
        const auto answer = client.Read(false);
        EXPECT_EQ(status, answer.mStatus);
        EXPECT_EQ("tag", answer.Header("ETag"));
        EXPECT_THAT(answer.mHead, Not(HasSubstr("Content-Length")));
        EXPECT_THAT(answer.mHead, Not(HasSubstr("Connection: close")));
        EXPECT_EQ(404, client.Read().mStatus) << "the next answer follows at once";
    }
}

TEST_F(HTTPServer, PipelinedRequestsAreAnsweredInTheirOrder)
{
    const auto hub = ServeEcho();
    const auto once = std::make_shared<TestService>("^/api/once.*$", Echo, true);
    hub->RegisterService(once->Expression(), once);
    std::string requests;
    for (int i = 0; i < 50; ++i)
        requests += Get(hub, (i % 3 == 0 ? "/api/once" : "/api/echo") + std::to_string(i));
    requests += Post(hub, "/api/echo/post", "12345");
    SocketClient client(hub->GetPort());
    client.Send(requests);
    for (int i = 0; i < 50; ++i)
        ASSERT_EQ((i % 3 == 0 ? "GET /api/once" : "GET /api/echo") + std::to_string(i) + " 0", client.Read().mBody);
    EXPECT_EQ("POST /api/echo/post 5", client.Read().mBody);
}

TEST_F(HTTPServer, ARequestThatComesByteForByteIsUnderstood)
{
    const auto hub = ServeEcho();
    SocketClient client(hub->GetPort());
    for (const char byte : "\r\n" + Post(hub, "/api/echo", "body"))
        client.Send({&byte, 1});
    EXPECT_EQ("POST /api/echo 4", client.Read().mBody);
}

TEST_F(HTTPServer, AChunkedBodyIsPutTogether)
{
    std::string body;
    const auto hub =
        Serve(std::make_shared<TestService>("^/api/chunks$", [&](auto inRequest, auto inResponse, auto inDone) {
            inResponse->mPayload = inRequest->Payload();
            inDone(inResponse);
        }));
    SocketClient client(hub->GetPort());
    std::string head = Get(hub, "/api/chunks", "Transfer-Encoding: chunked\r\n").replace(0, 3, "POST");
    client.Send(head + "5\r\nHello\r\n1;ext=1\r\n,\r\n");
    client.Send("6\r\n world\r\n0\r\nX-Trailer: 1\r\n\r\n");
    EXPECT_EQ("Hello, world", client.Read().mBody);
}

TEST_F(HTTPServer, ABodyIsInvitedAfterExpectContinueUnlessItIsRefused)
{
    Set("MaxSmallBodyBytes", "100");
    const auto hub = ServeEcho();
    const std::string expect = "Expect: 100-continue\r\n";
    SocketClient client(hub->GetPort());
    const std::string request = Post(hub, "/api/echo", "12345", expect);
    client.Send(request.substr(0, request.size() - 5));
    EXPECT_EQ(100, client.Read(false).mStatus);
    EXPECT_EQ("POST /api/echo 5", client.Ask("12345").mBody);
    const std::string large = Post(hub, "/api/echo", std::string(101, 'x'), expect);
    EXPECT_EQ(413, client.Ask(large.substr(0, large.size() - 101)).mStatus);
}

TEST_F(HTTPServer, APayloadOfManyMegabytesArrivesWhole)
{
    std::string sent(40 << 20, 'x');
    for (std::size_t i = 0; i < sent.size(); i += 4093)
        sent[i] = static_cast<char>(i);
    const auto hub =
        Serve(std::make_shared<TestService>("^/api/mirror$", [](auto inRequest, auto inResponse, auto inDone) {
            inResponse->mPayload = inRequest->Payload();
            inDone(inResponse);
        }));
    SocketClient client(hub->GetPort());
    EXPECT_TRUE(client.Ask(Post(hub, "/api/mirror", sent)).mBody == sent);
}

TEST_F(HTTPServer, APayloadInAFileArrivesWholeAndTheConnectionGoesOn)
{
    std::string bytes(20 << 20, 'x');
    for (std::size_t i = 0; i < bytes.size(); i += 4093)
        bytes[i] = static_cast<char>(i);
    const auto file = noxcore::utility::CopyToMemoryFile(bytes);
    ASSERT_NE(nullptr, file);
    const auto hub = Serve(std::make_shared<TestService>("^/api/file$", [&](auto, auto inResponse, auto inDone) {
        inResponse->mPayload = file;
        inDone(inResponse);
    }));
    SocketClient client(hub->GetPort());
    EXPECT_TRUE(client.Ask(Get(hub, "/api/file")).mBody == bytes);
    EXPECT_TRUE(client.Ask(Get(hub, "/api/file")).mBody == bytes);
}

TEST_F(HTTPServer, AClientThatGoesInTheMiddleOfAFileHarmsNobody)
{
    const auto file = noxcore::utility::CopyToMemoryFile(std::string(20 << 20, 'x'));
    ASSERT_NE(nullptr, file);
    const auto hub = Serve(std::make_shared<TestService>("^/api/file$", [&](auto, auto inResponse, auto inDone) {
        inResponse->mPayload = file;
        inDone(inResponse);
    }));
    for (int round = 0; round < 10; ++round) {
        SocketClient leaving(hub->GetPort());
        ASSERT_TRUE(leaving.Send(Get(hub, "/api/file")));
        EXPECT_EQ(200, leaving.Read(false).mStatus);  // closes with the rest unread: the connection is reset
    }
    SocketClient client(hub->GetPort());
    EXPECT_EQ(file->size(), client.Ask(Get(hub, "/api/file")).mBody.size());
}

TEST_F(HTTPServer, AnHTTP10ClientIsAnsweredAndItsConnectionClosed)
{
    const auto hub = ServeEcho();
    SocketClient client(hub->GetPort());
    const auto answer = client.Ask("GET /api/echo HTTP/1.0\r\n\r\n");
    EXPECT_EQ(200, answer.mStatus);
    EXPECT_EQ("close", answer.Header("Connection"));
    EXPECT_TRUE(client.ReadsEnd());
}

TEST_F(HTTPServer, AClientThatEndsItsDirectionStillGetsItsAnswers)
{
    const auto hub = ServeWaiters();
    SocketClient client(hub->GetPort());
    client.Send(Get(hub, "/api/wait") + Get(hub, "/api/wait"));
    client.FinishSending();
    for (int i = 0; i < 2; ++i) {
        auto waiter = mWaiters.Take();
        waiter.mFulfillment(waiter.mResponse);
        EXPECT_EQ(200, client.Read().mStatus);
    }
    EXPECT_TRUE(client.ReadsEnd());
}

TEST_F(HTTPServer, AnExceptionOutOfAServiceIsAnsweredWith500AndLogged)
{
    const auto hub =
        Serve(std::make_shared<TestService>("^/api/throw$", [](auto, auto, auto) { throw std::runtime_error("no"); }));
    SocketClient client(hub->GetPort());
    EXPECT_EQ(500, client.Ask(Get(hub, "/api/throw")).mStatus);
    EXPECT_EQ(500, client.Ask(Get(hub, "/api/throw")).mStatus);
    EXPECT_EQ(2U, mLog->Count("Exception while serving a request"));
}

TEST_F(HTTPServer, AServiceThatForgetsItsRequestLetsTheClientHave500)
{
    const auto hub = Serve(std::make_shared<TestService>("^/api/forget$", [](auto, auto, auto) {}));
    SocketClient client(hub->GetPort());
    EXPECT_EQ(500, client.Ask(Get(hub, "/api/forget")).mStatus);
    EXPECT_EQ(1U, mLog->Count("A request was dropped without an answer"));
}

TEST_F(HTTPServer, ASecondAnswerToARequestHasNoEffect)
{
    const auto hub = Serve(std::make_shared<TestService>("^/api/twice$", [](auto, auto inResponse, auto inDone) {
        inDone(inResponse);
        inDone(inResponse);
    }));
    SocketClient client(hub->GetPort());
    EXPECT_EQ(200, client.Ask(Get(hub, "/api/twice")).mStatus);
    EXPECT_EQ(200, client.Ask(Get(hub, "/api/twice")).mStatus);
    hub->Stop();
    EXPECT_EQ(2U, mLog->Count("A request was answered a second time"));
}

TEST_F(HTTPServer, AHeaderWithALineBreakIsLeftOut)
{
    const auto hub = Serve(std::make_shared<TestService>("^/api/split$", [](auto, auto inResponse, auto inDone) {
        inResponse->SetHeader("X-Bad", "a\r\nX-Worse: b");
        inResponse->SetHeader("X-Good", "c");
        inDone(inResponse);
    }));
    SocketClient client(hub->GetPort());
    const auto answer = client.Ask(Get(hub, "/api/split"));
    EXPECT_EQ("c", answer.Header("X-Good"));
    EXPECT_THAT(answer.mHead, Not(HasSubstr("X-Worse")));
    EXPECT_THAT(answer.mHead, Not(HasSubstr("Access-Control")));
}

TEST_F(HTTPServer, AStoppedServerSendsTheAnswersItHasAndEndsWaitingConnections)
{
    const auto hub = ServeWaiters();
    SocketClient answered(hub->GetPort());
    SocketClient waiting(hub->GetPort());
    answered.Send(Get(hub, "/api/wait"));
    auto first = mWaiters.Take();
    waiting.Send(Get(hub, "/api/wait"));
    auto second = mWaiters.Take();
    first.mFulfillment(first.mResponse);
    hub->Stop();
    EXPECT_EQ(200, answered.Read().mStatus);
    EXPECT_TRUE(waiting.ReadsEnd());
    EXPECT_TRUE(second.mRequest->ClientHasGone());
    second.mFulfillment(second.mResponse);  // too late, and harmless
    EXPECT_FALSE(SocketClient().Connect(hub->GetPort()));
}

TEST_F(HTTPServer, StopWaitsForARunningService)
{
    std::promise<void> entered;
    std::promise<void> leave;
    std::atomic<bool> ended = false;
    const auto hub = Serve(std::make_shared<TestService>("^/api/busy$", [&](auto, auto inResponse, auto inDone) {
        entered.set_value();
        leave.get_future().wait();
        inDone(inResponse);
        ended = true;
    }));
    SocketClient client(hub->GetPort());
    client.Send(Get(hub, "/api/busy"));
    entered.get_future().wait();
    auto stopped = std::async(std::launch::async, [&] { hub->Stop(); });
    leave.set_value();
    stopped.wait();
    EXPECT_TRUE(ended);
    EXPECT_EQ(200, client.Read().mStatus) << "what it answered still goes out";
}

TEST_F(HTTPServer, ATakenPortMakesStartFailWith500)
{
    const auto first = ServeEcho();
    const auto second = MakeServer(first->GetPort());
    EXPECT_EQ(500, second->Start());
    EXPECT_EQ(first->GetPort(), second->GetPort());
    EXPECT_EQ(1U, mLog->Count("Unable to listen"));
}

TEST_F(HTTPServer, TwoServersInOneProcessServeTheirOwn)
{
    const auto first = ServeEcho();
    const auto second = ServeWaiters();
    EXPECT_EQ(404, SocketClient(second->GetPort()).Ask(Get(second, "/api/echo")).mStatus);
    EXPECT_EQ(200, SocketClient(first->GetPort()).Ask(Get(first, "/api/echo")).mStatus);
}

TEST_F(HTTPServer, ServicesRunUnderTheContextThatMadeTheServer)
{
    std::atomic<noxcore::HubContext*> seen = nullptr;
    const auto hub = Serve(std::make_shared<TestService>("^/api/context$", [&](auto, auto inResponse, auto inDone) {
        seen = noxcore::HubContext::Current().get();
        inDone(inResponse);
    }));
    SocketClient client(hub->GetPort());
    EXPECT_EQ(200, client.Ask(Get(hub, "/api/context")).mStatus);
    EXPECT_EQ(noxcore::HubContext::Current().get(), seen);
}

TEST_F(HTTPServer, ARequestWithoutASocketPassesTheSameGateAndRouting)
{
    const auto hub = ServeEcho();
    const auto ask = [&](const std::string& inPath, const server::HeaderList& inHeaders) {
        std::promise<int> status;
        hub->Dispatch(server::MakeRequest("GET", inPath, inHeaders, nullptr),
                      [&](const auto& inResponse) { status.set_value(inResponse->mStatus); });
        return status.get_future().get();
    };
    EXPECT_EQ(200, ask("/api/echo", {}));
    EXPECT_EQ(404, ask("/api/other", {}));
    EXPECT_EQ(403, ask("/api/echo", {{"Host", "attacker.example"}}));
    hub->Stop();
    EXPECT_EQ(503, ask("/api/echo", {}));
}

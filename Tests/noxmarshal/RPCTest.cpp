#include <atomic>
#include <nlohmann/json.hpp>

#include "Tests/noxmarshal/RPCTestSupport.h"

namespace {

using noxcore::serialization::BuildCall;
using noxmarshal::Arguments;
using noxmarshal::JSONValue;
using noxmarshal::MessageRegistrar;
using noxmarshal::Responder;
using noxmarshal::RPCClient;
using noxmarshal::RPCError;
using noxtransport::SocketTransport;
using noxtransport::TransportError;
using rpc_test::Events;
using rpc_test::kPatienceInMilliseconds;
using rpc_test::RawPeer;
using Json = nlohmann::json;
using ResponderPtr = std::shared_ptr<Responder>;

struct Sum
{
    std::string mText;
    std::uint16_t mNumber = 0;
    static constexpr auto kFields =
        std::tuple{noxmarshal::Required("text", &Sum::mText), noxmarshal::Required("number", &Sum::mNumber)};
};

class RPCTest : public testing::Test
{
protected:
    RPCTest()
        : mScope(mTest.mContext),
          mTransport(SocketTransport::Create(rpc_test::OpenSettings())),
          mServer(mTransport->ServerStart(0, true)),
          mRPCServer(std::make_unique<noxmarshal::RPCServer>(mServer, "test")),
          mPeer(mServer->GetPort())
    {
        MessageRegistrar::Register("echo", [](const Arguments& inArguments, const ResponderPtr& inResponder) {
            Sum sum;
            if (!inArguments.Get(0, sum)) return inResponder->SendError(noxmarshal::kRPCError_InvalidParams, "no sum");
            inResponder->SendGeneralResult(sum);
        });
        MessageRegistrar::Register(
            "ok", [](const Arguments&, const ResponderPtr& inResponder) { inResponder->SendSimpleOK(); });
        MessageRegistrar::Register(
            "silent", [this](const Arguments&, const ResponderPtr& inResponder) { mHeld.Add(inResponder); });
        mServer->SetSessionCallbacks([](const std::string&) { return TransportError::None; },
                                     [this](const std::string& inID) { mClosed.Add(inID); });
    }

    Json Ask(const std::string& inText)
    {
        mPeer.SendMessage(inText);
        return Json::parse(mPeer.ReadMessage(), nullptr, false);
    }
    std::shared_ptr<RPCClient> Connect() { return RPCClient::Connect(mTransport, "127.0.0.1", mServer->GetPort()); }

    rpc_test::TestContext mTest;
    const noxcore::HubContext::Scope mScope;
    Events<ResponderPtr> mHeld;
    Events<std::string> mClosed;
    std::shared_ptr<SocketTransport> mTransport;
    std::shared_ptr<SocketTransport::Server> mServer;
    std::unique_ptr<noxmarshal::RPCServer> mRPCServer;
    RawPeer mPeer;
};

TEST_F(RPCTest, ARecordComesBackUnderTheKeyValueAndAPlainOKIsAnEmptyObject)
{
    EXPECT_EQ(Json::parse(R"({"jsonrpc":"2.0","id":7,"result":{"value":{"text":"a","number":5}}})"),
              Ask(R"({"jsonrpc":"2.0","id":7,"method":"echo","params":[{"text":"a","number":5}]})"));
    EXPECT_EQ(Json::parse(R"({"jsonrpc":"2.0","id":"x","result":{}})"),
              Ask(R"({"jsonrpc":"2.0","id":"x","method":"ok"})"));
}

TEST_F(RPCTest, AnObjectAsParamsIsTheOneArgument)
{
    const Json answer = Ask(R"({"jsonrpc":"2.0","id":1,"method":"echo","params":{"text":"b","number":6}})");
    EXPECT_EQ(6, answer["result"]["value"]["number"]);
}

TEST_F(RPCTest, AMessageThatNobodyRegisteredIsAnError)
{
    const Json answer = Ask(R"({"jsonrpc":"2.0","id":1,"method":"nothing"})");
    EXPECT_EQ(-32601, answer["error"]["code"]);
    EXPECT_EQ(1, answer["id"]);
    MessageRegistrar::Unregister("ok");
    EXPECT_EQ(-32601, Ask(R"({"jsonrpc":"2.0","id":2,"method":"ok"})")["error"]["code"]);
}

TEST_F(RPCTest, ATextThatIsNotJSONIsAnsweredAndTheSessionGoesOn)
{
    for (const char* text : {"", "{", "nonsense", "{\"jsonrpc\":}", "\xff\xfe"}) {
        const Json answer = Ask(text);
        EXPECT_EQ(-32700, answer["error"]["code"]) << text;
        EXPECT_TRUE(answer["id"].is_null());
    }
    EXPECT_TRUE(Ask(R"({"jsonrpc":"2.0","id":1,"method":"ok"})").contains("result"));
}

TEST_F(RPCTest, NestingWithoutEndIsAParseError)
{
    EXPECT_EQ(-32700, Ask(std::string(200000, '['))["error"]["code"]);
}

TEST_F(RPCTest, AJSONTextThatIsNoRequestIsAnsweredWithItsIDWhereThatCanBeRead)
{
    const std::pair<const char*, Json> cases[] = {
        {"[]", nullptr},
        {R"([{"jsonrpc":"2.0","id":1,"method":"ok"}])", nullptr},
        {"17", nullptr},
        {R"({"id":1,"method":"ok"})", 1},
        {R"({"jsonrpc":"1.0","id":2,"method":"ok"})", 2},
        {R"({"jsonrpc":"2.0","id":"three"})", "three"},
        {R"({"jsonrpc":"2.0","id":4,"method":4})", 4},
        {R"({"jsonrpc":"2.0","id":5,"method":"ok","params":"text"})", 5},
        {R"({"jsonrpc":"2.0","id":{},"method":"ok"})", nullptr},
        {R"({"jsonrpc":"2.0","id":6,"result":{}})", 6},
    };
    for (const auto& [text, id] : cases) {
        const Json answer = Ask(text);
        EXPECT_EQ(-32600, answer["error"]["code"]) << text;
        EXPECT_EQ(id, answer["id"]) << text;
    }
}

TEST_F(RPCTest, ABrokenFramingIsAnsweredWithAParseErrorAndClosed)
{
    mPeer.SendBytes("GET / HTTP/1.1\r\nHost: x\r\n\r\n");
    const Json answer = Json::parse(mPeer.ReadMessage());
    EXPECT_EQ(-32700, answer["error"]["code"]);
    EXPECT_TRUE(mPeer.WaitForEnd());
    mClosed.WaitFor(1);
}

TEST_F(RPCTest, AMessagePastOneMebibyteIsRefusedBeforeItIsSent)
{
    mPeer.SendBytes("Content-Length: 1048577\r\n\r\n");
    const Json answer = Json::parse(mPeer.ReadMessage());
    EXPECT_EQ(-32700, answer["error"]["code"]);
    EXPECT_EQ("The message is too large", answer["error"]["message"]);
    EXPECT_TRUE(mPeer.WaitForEnd());
}

TEST_F(RPCTest, ANotificationIsHandledAndNotAnswered)
{
    mPeer.SendMessage(BuildCall("silent"));
    mPeer.SendMessage(BuildCall("nothing"));
    mHeld.WaitFor(1).front()->SendSimpleOK();
    EXPECT_EQ(9, Ask(R"({"jsonrpc":"2.0","id":9,"method":"ok"})")["id"]);
}

TEST_F(RPCTest, AHandlerThatThrowsOrForgetsToAnswerStillLeadsToAnAnswer)
{
    MessageRegistrar::Register(
        "throw", [](const Arguments&, const ResponderPtr&) { throw std::runtime_error("handler is broken"); });
    MessageRegistrar::Register("forget", [](const Arguments&, const ResponderPtr&) {});
    EXPECT_EQ(-32603, Ask(R"({"jsonrpc":"2.0","id":1,"method":"throw"})")["error"]["code"]);
    EXPECT_EQ(-32603, Ask(R"({"jsonrpc":"2.0","id":2,"method":"forget"})")["error"]["code"]);
    EXPECT_EQ("handler is broken",
              mTest.mLog->Find("A request handler ended with an exception").at(0).Value("exception"));
}

TEST_F(RPCTest, OfTwoAnswersTheFirstCounts)
{
    MessageRegistrar::Register("twice", [](const Arguments&, const ResponderPtr& inResponder) {
        inResponder->SendError(-1, "first");
        inResponder->SendSimpleOK();
    });
    EXPECT_EQ("first", Ask(R"({"jsonrpc":"2.0","id":1,"method":"twice"})")["error"]["message"]);
    EXPECT_TRUE(Ask(R"({"jsonrpc":"2.0","id":2,"method":"ok"})").contains("result"));
    EXPECT_EQ(1U, mTest.mLog->Count("A request was answered twice"));
}

TEST_F(RPCTest, AnswersMayComeLateAndInAnyOrder)
{
    mPeer.SendMessage(R"({"jsonrpc":"2.0","id":1,"method":"silent"})");
    mPeer.SendMessage(R"({"jsonrpc":"2.0","id":2,"method":"silent"})");
    const auto responders = mHeld.WaitFor(2);
    EXPECT_EQ(responders[0]->SessionID(), responders[1]->SessionID());
    responders[1]->SendSimpleOK();
    EXPECT_EQ(2, Json::parse(mPeer.ReadMessage())["id"]);
    responders[0]->SendSimpleOK();
    EXPECT_EQ(1, Json::parse(mPeer.ReadMessage())["id"]);
}

TEST_F(RPCTest, AnAnswerToAPeerThatHasGoneIsDropped)
{
    mPeer.SendMessage(R"({"jsonrpc":"2.0","id":1,"method":"silent"})");
    const auto responder = mHeld.WaitFor(1).front();
    mPeer.Close();
    EXPECT_EQ(responder->SessionID(), mClosed.WaitFor(1).front());
    responder->SendSimpleOK();
}

TEST_F(RPCTest, ANumberPastSixteenBitsIsNoPort)
{
    EXPECT_EQ(
        -32602,
        Ask(R"({"jsonrpc":"2.0","id":1,"method":"echo","params":[{"text":"","number":65536}]})")["error"]["code"]);
    EXPECT_EQ(-32602,
              Ask(R"({"jsonrpc":"2.0","id":1,"method":"echo","params":[{"text":"","number":-1}]})")["error"]["code"]);
}

TEST_F(RPCTest, AClientGetsResultsAndErrors)
{
    const auto client = Connect();
    Sum sum;
    RPCError error;
    EXPECT_TRUE(client->Ask(BuildCall("echo", Sum{"q\"\n", 9}), kPatienceInMilliseconds, sum, error));
    EXPECT_EQ("q\"\n", sum.mText);
    EXPECT_EQ(9, sum.mNumber);
    EXPECT_FALSE(client->Ask(BuildCall("nothing"), kPatienceInMilliseconds, sum, error));
    EXPECT_EQ(-32601, error.mCode);
    EXPECT_FALSE(client->Ask(BuildCall("ok"), kPatienceInMilliseconds, sum, error)) << "an OK has no value";
    EXPECT_TRUE(client->Ask(BuildCall("ok"), kPatienceInMilliseconds, error));
}

TEST_F(RPCTest, RequestsFromManyThreadsGetTheirOwnAnswers)
{
    const auto client = Connect();
    std::atomic<int> right{0};
    noxcore::threads::ExecuteCPUBoundTaskOnAllProcessors([&](std::size_t inIndex, std::size_t) {
        for (std::uint16_t i = 0; i < 200; ++i) {
            Sum sum;
            RPCError error;
            const Sum sent{std::to_string(inIndex), i};
            if (!client->Ask(BuildCall("echo", sent), kPatienceInMilliseconds, sum, error)) continue;
            if (sum.mText == sent.mText && sum.mNumber == i) ++right;
        }
    });
    EXPECT_EQ(0, right % 200);
    EXPECT_GT(right, 0);
}

TEST_F(RPCTest, ALostServerFailsWhatIsPendingOnceAndEverythingAfterwards)
{
    const auto client = Connect();
    Events<int> failures;
    Events<bool> lost;
    client->SetOnLost([&] { lost.Add(true); });
    const auto fail = [&](const RPCError& inError) { failures.Add(inError.mCode); };
    client->SendRequest(
        BuildCall("silent"), [](const JSONValue&) { ADD_FAILURE(); }, fail);
    mHeld.WaitFor(1);
    mRPCServer.reset();
    mServer.reset();
    EXPECT_EQ(std::vector<int>{noxmarshal::kRPCError_ConnectionLost}, failures.WaitFor(1));
    EXPECT_EQ(1U, lost.WaitFor(1).size());
    EXPECT_FALSE(client->IsOpen());
    client->SendRequest(
        BuildCall("ok"), [](const JSONValue&) { ADD_FAILURE(); }, fail);
    EXPECT_EQ(2U, failures.All().size());
    bool toldAtOnce = false;
    client->SetOnLost([&] { toldAtOnce = true; });
    EXPECT_TRUE(toldAtOnce);
}

TEST_F(RPCTest, AClientThatGoesFailsWhatItWaitsForAndIsNoticed)
{
    auto client = Connect();
    Events<int> failures;
    client->SendRequest(BuildCall("silent"), nullptr, [&](const RPCError& inError) { failures.Add(inError.mCode); });
    mHeld.WaitFor(1);
    client.reset();
    EXPECT_EQ(1U, failures.All().size());
    EXPECT_EQ(mHeld.All().front()->SessionID(), mClosed.WaitFor(1).front());
}

TEST_F(RPCTest, ARequestFailsWhenItsTimeIsUpAndItsLateAnswerIsPassedOver)
{
    const auto client = Connect();
    Events<int> failures;
    client->SendRequest(
        BuildCall("silent"), [](const JSONValue&) { ADD_FAILURE(); },
        [&](const RPCError& inError) { failures.Add(inError.mCode); }, 3000);
    const auto responder = mHeld.WaitFor(1).front();
    mTest.mTime->Advance(2999);
    EXPECT_TRUE(failures.All().empty());
    mTest.mTime->Advance(1);
    EXPECT_EQ(std::vector<int>{noxmarshal::kRPCError_Timeout}, failures.All());
    responder->SendSimpleOK();
    RPCError error;
    EXPECT_TRUE(client->Ask(BuildCall("ok"), kPatienceInMilliseconds, error));
    EXPECT_EQ(1U, failures.All().size());
}

TEST_F(RPCTest, ACallIsJSONWithItsArgumentsInOrder)
{
    EXPECT_EQ(R"({"jsonrpc":"2.0","method":"m","params":["a",true,{"text":"t","number":1}]})",
              BuildCall("m", "a", true, Sum{"t", 1}));
}

}  // namespace

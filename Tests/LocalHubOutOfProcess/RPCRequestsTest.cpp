#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/noxmarshal/MessageRegistrar.h"
#include "Platform/swiftlatch/Protocol.h"
#include "Tests/LocalHubOutOfProcess/FakeHub.h"

namespace VantryLocalHub {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

class FakeSession final : public noxtransport::Session
{
public:
    [[nodiscard]] const std::string& ID() const override { return mID; }
    bool Send(std::string_view inMessage) override
    {
        mSent.emplace_back(inMessage);
        return true;
    }
    void Close() override {}

    const std::string mID = "session-7";
    std::vector<std::string> mSent;
};

class RPCRequestsTest : public testing::Test, protected FakeProcess
{
protected:
    void Construct(std::uint16_t inPort, std::uint16_t inInfoPort)
    {
        mServer = std::make_unique<OutOfProcessServer>(MakeFakeParts(mScript), u"hub", inPort, inInfoPort,
                                                       std::string(), std::string(), std::string());
    }

    /// The answer's text.
    std::string Ask(std::string_view inMessage, std::string_view inArguments = "[]")
    {
        const auto session = std::make_shared<FakeSession>();
        noxcore::serialization::JSONDocument document;
        EXPECT_TRUE(document.Parse(inArguments));
        const auto handler = noxmarshal::MessageRegistrar::Instance()->Find(inMessage);
        if (!handler) return "nobody";
        (*handler)(noxmarshal::Arguments(document.Root()),
                   std::make_shared<noxmarshal::Responder>(session, "1", std::string(inMessage)));
        EXPECT_THAT(session->mSent, SizeIs(1));
        return session->mSent.empty() ? std::string() : session->mSent[0];
    }

    std::unique_ptr<OutOfProcessServer> mServer;
};

constexpr std::string_view kGetServerInformation = "com.corvane.tesselprojects.localhub.GetServerInformation";
constexpr std::string_view kGiveClientInformation = "com.corvane.tesselprojects.localhub.GiveClientInformation";

TEST_F(RPCRequestsTest, AClientLearnsThePortOfTheHTTPServer)
{
    Construct(4000, 0);
    EXPECT_THAT(Ask(kGetServerInformation), testing::HasSubstr(R"("result":{"value":{"port":4000}})"));
}

TEST_F(RPCRequestsTest, AClientLearnsThePortOfTheServerThatReplacedTheFirst)
{
    mScript->mStartResults = {500};
    Construct(4000, 0);
    EXPECT_THAT(Ask(kGetServerInformation), testing::HasSubstr(R"({"port":49152})"));
}

TEST_F(RPCRequestsTest, TheInfoPortIsToldWhateverTheHTTPPortIs)
{
    Construct(4000, 5000);
    EXPECT_THAT(Ask(kGetServerInformation), testing::HasSubstr(R"({"port":5000})"));
    EXPECT_EQ(1U, mScript->Count("info port 5000"));  // the gate lets requests for it in
}

TEST_F(RPCRequestsTest, AClientThatTellsWhoItIsLeavesOneRecord)
{
    Construct(0, 0);
    EXPECT_THAT(Ask(kGiveClientInformation, R"([{"name":"Editor","version":"25.3","build":"9","headless":"true"}])"),
                testing::HasSubstr(R"("result":{})"));
    const auto records = mLog->Find("Client connected");
    ASSERT_THAT(records, SizeIs(1));
    EXPECT_EQ(noxcore::logging::Level::Information, records[0].mLevel);
    EXPECT_EQ("session-7", records[0].Value("session"));
    EXPECT_EQ(R"({"name":"Editor","version":"25.3","build":"9","headless":true})", records[0].Value("info"));
}

TEST_F(RPCRequestsTest, AClientThatLeavesARequiredKeyOutIsAnsweredWithAnError)
{
    Construct(0, 0);
    for (const char* arguments : {"[]", "[{}]", R"([{"name":"Editor","version":"25.3"}])"}) {
        EXPECT_THAT(Ask(kGiveClientInformation, arguments), testing::HasSubstr("-32602")) << arguments;
    }
    EXPECT_THAT(mLog->Find("Client connected"), IsEmpty());
}

TEST_F(RPCRequestsTest, NobodyAnswersAfterTerminate)
{
    Construct(0, 0);
    mServer->Terminate();
    EXPECT_EQ("nobody", Ask(kGetServerInformation));
    EXPECT_EQ("nobody", Ask(kGiveClientInformation));
}

}  // namespace
}  // namespace VantryLocalHub

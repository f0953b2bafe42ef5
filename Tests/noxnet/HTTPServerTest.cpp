#include <gmock/gmock.h>

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

#include "Inc/Service/AnswerCache.h"
#include "Inc/Service/ServiceUtils.h"
#include "Tests/Service/ServiceFixture.h"

namespace service_test {

namespace {

using testing::Return;

constexpr Routes::Service kRow = {"KeepingService", R"(^/api/keep/([\w\-]+)/([\w\-]+)$)", 2, 1, 2, {{Routes::Get()}}};
const std::string kRevision(40, 'a');
const std::string kPath = "/api/keep/p-1/" + kRevision;

/// Counts how often its answers are made anew.
class KeepingService : public VantryAPIService
{
public:
    explicit KeepingService(std::size_t inMaxBytes) : VantryAPIService(kRow)
    {
        KeepAnswersOfRevisions(inMaxBytes);
        AddSyncMethod("GET", [this](const RequestPtr& inRequest, const ResponsePtr& outResponse) {
            ++mMade;
            if (mWhileMade) mWhileMade();
            if (SetEntityTag(*inRequest, "tag", *outResponse)) return noxnet::kHTTPStatus_NotModified;
            SetPayload(std::string(mSize, 'x') + std::string(inRequest->Header("Host")), *outResponse);
            return mStatus;
        });
    }
    const noxnet::http::server::PathExpression& Expression() const override
    {
        static const noxnet::http::server::PathExpression kExpression(kRow.mExpression);
        return kExpression;
    }

    std::function<void()> mWhileMade;
    int mMade = 0;
    int mStatus = 200;
    std::size_t mSize = 0;
};

class AnswerCacheTest : public ServiceFixture
{
protected:
    void SetUp() override
    {
        EXPECT_CALL(*mStore, GetHistoryGeneration(ImmutableString("p-1"))).WillRepeatedly([this] {
            return mGeneration;
        });
        mService->Register(mServer);
    }

    std::uint64_t mGeneration = 7;
    std::shared_ptr<KeepingService> mService = std::make_shared<KeepingService>(100000);
};

TEST_F(AnswerCacheTest, WhatARevisionHoldsIsMadeOnce)
{
    const auto first = Send("GET", kPath);
    const auto second = Send("GET", kPath, {}, WithHost("X-Request-ID", "r-2"));
    EXPECT_EQ(1, mService->mMade);
    EXPECT_EQ(200, second.Status());
    EXPECT_EQ(first.Body(), second.Body());
    EXPECT_EQ(first.Header("Content-Type"), second.Header("Content-Type"));
    EXPECT_EQ("r-2", second.Header("X-Request-ID"));
    EXPECT_EQ("", Send("GET", kPath).Header("X-Request-ID"));
}

TEST_F(AnswerCacheTest, AKnownTagGivesNotModifiedFromWhatWasKept)
{
    Send("GET", kPath);
    const auto known = Send("GET", kPath, {}, WithHost("If-None-Match", "tag"));
    EXPECT_EQ(304, known.Status());
    EXPECT_EQ("tag", known.Header("ETag"));
    EXPECT_EQ("", known.Body());
    EXPECT_EQ(200, Send("GET", kPath, {}, WithHost("If-None-Match", "other")).Status());
    EXPECT_EQ(1, mService->mMade);
}

TEST_F(AnswerCacheTest, AnAnswerWithoutABodyIsNotKept)
{
    EXPECT_EQ(304, Send("GET", kPath, {}, WithHost("If-None-Match", "tag")).Status());
    EXPECT_EQ(200, Send("GET", kPath).Status());
    EXPECT_EQ(2, mService->mMade);
}

TEST_F(AnswerCacheTest, AFailureIsNotKept)
{
    mService->mStatus = 500;
    EXPECT_EQ(500, Send("GET", kPath).Status());
    mService->mStatus = 200;
    EXPECT_EQ(200, Send("GET", kPath).Status());
}

TEST_F(AnswerCacheTest, ASymbolicOrShortRevisionIsAskedForEachTime)
{
    Send("GET", "/api/keep/p-1/latest");
    Send("GET", "/api/keep/p-1/latest");
    EXPECT_EQ(2, mService->mMade);
}

TEST_F(AnswerCacheTest, LinksForAnotherHostAreMadeAnew)
{
    Send("GET", kPath);
    EXPECT_EQ("localhost:7777", Send("GET", kPath, {}, {{"Host", "localhost:7777"}}).Body());
    EXPECT_EQ(2, mService->mMade);
}

TEST_F(AnswerCacheTest, TheAnswerOfASessionThatHasGoneIsNotGivenAgain)
{
    Send("GET", kPath);
    mGeneration = 0;
    mService->mStatus = 404;
    EXPECT_EQ(404, Send("GET", kPath).Status());
}

TEST_F(AnswerCacheTest, AnAnswerOfAnotherHistoryOfTheSessionIsNotGivenAgain)
{
    Send("GET", kPath);
    ++mGeneration;
    EXPECT_EQ(200, Send("GET", kPath).Status());
    EXPECT_EQ(2, mService->mMade);
    Send("GET", kPath);
    EXPECT_EQ(2, mService->mMade);
}

TEST_F(AnswerCacheTest, WhatWasReadWhileTheHistoryWasReplacedIsNotGivenAgain)
{
    mService->mWhileMade = [this] { ++mGeneration; };
    Send("GET", kPath);
    Send("GET", kPath);
    EXPECT_EQ(2, mService->mMade);
}

TEST_F(AnswerCacheTest, TheLeastRecentlyAskedGoWhenThereAreTooManyBytes)
{
    mService->mSize = 20000;
    const auto path = [](char inDigit) { return "/api/keep/p-1/" + std::string(40, inDigit); };
    for (const char digit : {'0', '1', '2', '3'})
        Send("GET", path(digit));
    Send("GET", path('0'));
    EXPECT_EQ(4, mService->mMade);
    Send("GET", path('4'));  // takes the place of 1
    Send("GET", path('0'));
    Send("GET", path('2'));
    EXPECT_EQ(5, mService->mMade);
    Send("GET", path('1'));
    EXPECT_EQ(6, mService->mMade);
}

TEST_F(AnswerCacheTest, AnAnswerThatWouldTakeMostOfTheRoomIsNotKept)
{
    mService->mSize = 50000;
    Send("GET", kPath);
    Send("GET", kPath);
    EXPECT_EQ(2, mService->mMade);
}

TEST_F(AnswerCacheTest, ALargePayloadIsKeptWhereASocketCanTakeItFrom)
{
    const auto request =
        noxnet::http::server::MakeRequest("GET", kPath, kHost, noxcore::utility::CopyToRecycledMemory({}));
    for (const std::size_t size : {std::size_t{1000}, std::size_t{1} << 20}) {
        AnswerCache cache(8 << 20);
        noxnet::http::server::MutableResponse response;
        response.mPayload = noxcore::utility::CopyToRecycledMemory(std::string(size, 'x'));
        cache.Add(*request, response, 1);
        std::uint64_t generation = 0;
        const auto kept = cache.Find(*request, generation);
        EXPECT_EQ(1U, generation);
        EXPECT_EQ(1U, cache.GenerationOf(*request));
        ASSERT_NE(nullptr, kept);
        EXPECT_EQ(response.mPayload->View(), kept->mPayload->View());
        EXPECT_EQ(size > 1000, kept->mPayload->File() >= 0) << size;
    }
}

TEST_F(AnswerCacheTest, AnUnregisteredServiceGivesNothingFromBefore)
{
    Send("GET", kPath);
    mService->Unregister(mServer);
    mServer.RegisterService(mService->Expression(), mService);
    EXPECT_EQ(503, Send("GET", kPath).Status());
}

TEST_F(AnswerCacheTest, APathAskedBeforeGoesToTheServiceThatIsRegisteredNow)
{
    Send("GET", kPath);
    mService->Unregister(mServer);
    EXPECT_EQ(404, Send("GET", kPath).Status());
    const auto other = std::make_shared<KeepingService>(100000);
    other->Register(mServer);
    EXPECT_EQ(200, Send("GET", kPath).Status());
    EXPECT_EQ(1, other->mMade);
}

}  // namespace

}  // namespace service_test

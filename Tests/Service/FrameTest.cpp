#include "Inc/Service/DropAllLongPolls.h"
#include "Inc/Service/ServiceUtils.h"
#include "Tests/Service/ServiceFixture.h"

namespace service_test {

namespace {

using noxcore::logging::Level;

constexpr Routes::Service kRow = {"TestService",    R"(^/api/test/([\w\-]+)/([\w\-]+)/?([\w]+)?$)", 3, 1, 2,
                                  {{Routes::Get()}}};

/// A service with one handler of each kind, whose completions the test keeps.
class TestService : public VantryAPIService
{
public:
    explicit TestService(HeadLookup inHeadLookup = LookUpHeadInProjectBox)
        : VantryAPIService(kRow, std::move(inHeadLookup))
    {
        AddSyncMethod("GET", [this](const RequestPtr&, const ResponsePtr&) {
            mCalled = "get";
            return 200;
        });
        AddSyncMethod("HEAD", [this](const RequestPtr&, const ResponsePtr&) {
            mCalled = "head";
            return 200;
        });
        AddSyncSelector("GET", "part", 3, [this](const RequestPtr&, const ResponsePtr&) {
            mCalled = "part";
            return 200;
        });
        AddSyncSelector("GET", "part", 9, [](const RequestPtr&, const ResponsePtr&) { return 418; });
        AddAsyncMethod("POST", [this](const RequestPtr&, const ResponsePtr&, const Completion& inCompletion) {
            mCompletions.push_back(inCompletion);
        });
        AddSyncMethod("PUT", [](const RequestPtr& inRequest, const ResponsePtr& outResponse) {
            return SetPayloadWithEntityTag(*inRequest, "payload", *outResponse);
        });
        AddSyncMethod("DELETE",
                      [](const RequestPtr&, const ResponsePtr&) -> int { throw std::runtime_error("broken"); });
        AddSyncMethod("PATCH", [](const RequestPtr&, const ResponsePtr&) -> int { throw 1; });
        AddAsyncMethod("OPTIONS", [](const RequestPtr&, const ResponsePtr&, const Completion& inCompletion) {
            inCompletion(201);
            throw std::runtime_error("too late");
        });
    }
    const noxnet::http::server::PathExpression& Expression() const override
    {
        static const noxnet::http::server::PathExpression kExpression(kRow.mExpression);
        return kExpression;
    }

    std::string mCalled;
    std::vector<Completion> mCompletions;
};

class FrameTest : public ServiceFixture
{
protected:
    void Register(HeadLookup inHeadLookup)
    {
        mService = std::make_shared<TestService>(std::move(inHeadLookup));
        mService->Register(mServer);
    }
    void SetUp() override
    {
        Register([this](const ImmutableString&, ImmutableString& outCommit) {
            ++mLookups;
            outCommit = mHead;
            return mHeadStatus;
        });
    }

    /// The only record of a message, which has this level.
    [[nodiscard]] noxcore::logging::Record OnlyRecord(std::string_view inMessage, noxcore::logging::Level inLevel) const
    {
        const auto records = mLog->Find(inMessage);
        EXPECT_EQ(1U, records.size()) << inMessage;
        if (records.empty()) return {};
        EXPECT_EQ(inLevel, records[0].mLevel) << inMessage;
        return records[0];
    }

    std::shared_ptr<TestService> mService;
    int mLookups = 0;
    int mHeadStatus = 200;
    ImmutableString mHead = "abc123";
};

TEST_F(FrameTest, AGetAtHeadIsSentToTheRealRevisionByPathAlone)
{
    const auto answer = Send("GET", "/api/test/p-1/HEAD/part?view=CONDENSED");
    EXPECT_EQ(307, answer.Status());
    EXPECT_EQ("/api/test/p-1/abc123/part", answer.Header("Location"));
    EXPECT_EQ("", mService->mCalled);
}

TEST_F(FrameTest, AHeadAtHeadIsRedirectedLikeAGet)
{
    EXPECT_EQ(307, Send("HEAD", "/api/test/p-1/HEAD").Status());
}

TEST_F(FrameTest, AProductionNamedHeadIsNotTakenForTheRevision)
{
    EXPECT_EQ("/api/test/HEAD/abc123", Send("GET", "/api/test/HEAD/HEAD").Header("Location"));
    EXPECT_EQ(200, Send("GET", "/api/test/HEAD/c0ffee").Status());
}

TEST_F(FrameTest, ARealRevisionDoesNotAskTheStoreForTheHead)
{
    EXPECT_EQ(200, Send("GET", "/api/test/p-1/c0ffee").Status());
    EXPECT_EQ(0, mLookups);
}

TEST_F(FrameTest, APostAtHeadIsNotRedirected)
{
    Start("POST", "/api/test/p-1/HEAD");
    EXPECT_EQ(0, mLookups);
    EXPECT_EQ(1U, mService->mCompletions.size());
    mService->mCompletions.front()(200);
}

TEST_F(FrameTest, AHeadThatCannotBeFoundLeavesTheRequestToItsHandler)
{
    mHeadStatus = 404;
    EXPECT_EQ(200, Send("GET", "/api/test/p-1/HEAD").Status());
    mHeadStatus = 200;
    mHead = "";
    EXPECT_EQ(200, Send("GET", "/api/test/p-1/HEAD").Status());
}

TEST_F(FrameTest, AnExceptionDuringTheRedirectIsLoggedAndTheHandlerAnswers)
{
    mService->Unregister(mServer);
    Register([](const ImmutableString&, ImmutableString&) -> int { throw std::runtime_error("no disk"); });
    EXPECT_EQ(200, Send("GET", "/api/test/p-1/HEAD").Status());
    const auto record = OnlyRecord("caught std::exception while redirecting", Level::Error);
    EXPECT_EQ("no disk", record.Value("exception"));
    EXPECT_EQ("GET", record.Value("method"));
    EXPECT_EQ("/api/test/p-1/HEAD", record.Value("resource"));
}

TEST_F(FrameTest, TheHeadComesFromTheStoreUnlessToldOtherwise)
{
    mService->Unregister(mServer);
    Register(LookUpHeadInProjectBox);
    EXPECT_CALL(*mStore, GetProduction(ImmutableString("p-1"), ImmutableString("HEAD"), _))
        .WillOnce(DoAll(SetArgReferee<2>(MakeSession("feed")), Return(200)));
    EXPECT_EQ("/api/test/p-1/feed", Send("GET", "/api/test/p-1/HEAD").Header("Location"));
    ProjectBox::SetInstance(nullptr);
    EXPECT_EQ(200, Send("GET", "/api/test/p-1/HEAD").Status());
}

TEST_F(FrameTest, AHeadRequestIsServedByTheHandlerOfGet)
{
    EXPECT_EQ(200, Send("HEAD", "/api/test/p-1/c0ffee").Status());
    EXPECT_EQ("get", mService->mCalled);
}

TEST_F(FrameTest, ASelectorDecidesBeforeTheMethod)
{
    EXPECT_EQ(200, Send("GET", "/api/test/p-1/c0ffee/part").Status());
    EXPECT_EQ("part", mService->mCalled);
}

TEST_F(FrameTest, AnUnknownSelectorIsServedByTheMethodAndAMissingGroupIsLogged)
{
    EXPECT_EQ(200, Send("GET", "/api/test/p-1/c0ffee/other", {}, WithHost("X-Request-ID", "id 7")).Status());
    EXPECT_EQ("get", mService->mCalled);
    const auto record = OnlyRecord("Insufficient number of regex match capture groups", Level::Warning);
    EXPECT_EQ("TestService", record.Value("class"));
    EXPECT_EQ("4", record.Value("size"));
    EXPECT_EQ("9", record.Value("expected"));
    EXPECT_EQ("/api/test/p-1/c0ffee/other", record.Value("url"));
    EXPECT_EQ("id 7", record.Value("requestID"));
}

TEST_F(FrameTest, AnUnknownMethodGivesNotImplementedWithContentTypeAndRequestID)
{
    const auto answer = Send("BREW", "/api/test/p-1/c0ffee", {}, WithHost("X-Request-ID", "id 7"));
    EXPECT_EQ(501, answer.Status());
    EXPECT_EQ("application/json; charset=utf-8", answer.Header("Content-Type"));
    EXPECT_EQ("id 7", answer.Header("X-Request-ID"));
    const auto record = OnlyRecord("Method not implemented", Level::Warning);
    EXPECT_EQ("BREW", record.Value("method"));
    EXPECT_EQ("/api/test/p-1/c0ffee", record.Value("url"));
    EXPECT_EQ("TestService", record.Value("class"));
}

TEST_F(FrameTest, AnUnsuccessfulStatusLeavesARecordAndATrace)
{
    Send("BREW", "/api/test/p-1/c0ffee", {}, WithHost("X-Request-ID", "id 7"));
    const auto records = mLog->Find("FinishFulfillment: unsuccessful status");
    ASSERT_EQ(2U, records.size());
    EXPECT_EQ(Level::Information, records[0].mLevel);
    EXPECT_EQ(Level::Warning, records[1].mLevel);
    for (const auto& record : records) {
        EXPECT_EQ("/api/test/p-1/c0ffee", record.Value("url"));
        EXPECT_EQ("501", record.Value("status"));
        EXPECT_EQ("id 7", record.Value("requestID"));
    }
}

TEST_F(FrameTest, ASuccessAndARedirectLeaveNoRecord)
{
    Send("GET", "/api/test/p-1/c0ffee");
    Send("GET", "/api/test/p-1/HEAD");
    EXPECT_EQ(0U, LogCount("FinishFulfillment: unsuccessful status"));
}

TEST_F(FrameTest, ACompletionCalledTwiceAnswersOnceAndIsLogged)
{
    const auto answer = Start("POST", "/api/test/p-1/c0ffee");
    EXPECT_TRUE(answer->mResponses.empty());
    mService->mCompletions.front()(201);
    mService->mCompletions.front()(500);
    EXPECT_EQ(201, answer->Status());
    EXPECT_NE("", OnlyRecord("Received a callback for an already-fulfilled completion", Level::Warning).Value("id"));
}

TEST_F(FrameTest, ARequestToAnUnregisteredServiceGetsUnavailableWithoutContentType)
{
    mServer.RegisterService(mService->Expression(), mService);
    mService->Unregister(mServer);  // leaves the second registration standing
    const auto answer = Send("GET", "/api/test/p-1/c0ffee");
    EXPECT_EQ(503, answer.Status());
    EXPECT_EQ("", answer.Header("Content-Type"));
    EXPECT_EQ("", mService->mCalled);
}

TEST_F(FrameTest, OpenRequestsFailAtShutDownAndLateCompletionsHaveNoEffect)
{
    const auto first = Start("POST", "/api/test/p-1/c0ffee");
    const auto second = Start("POST", "/api/test/p-2/c0ffee");
    mService->Unregister(mServer);
    mService->FailAllAsyncFulfillments();
    EXPECT_EQ(503, first->Status());
    EXPECT_EQ(503, second->Status());
    const auto record = OnlyRecord("Failing in-flight requests", Level::Warning);
    EXPECT_EQ("2", record.Value("count"));
    EXPECT_EQ("TestService", record.Value("class"));
    EXPECT_EQ("fulfillments.size() != 0", record.Value("expression"));
    mService->mCompletions.front()(200);
    EXPECT_EQ(503, first->Status());
    EXPECT_EQ(1U, LogCount("Received a callback for an already-fulfilled completion"));
}

TEST_F(FrameTest, ShutDownWithoutOpenRequestsLeavesNoRecord)
{
    mService->FailAllAsyncFulfillments();
    EXPECT_EQ(0U, LogCount("Failing in-flight requests"));
}

TEST_F(FrameTest, AServiceThatDiesWithOpenRequestsSaysSo)
{
    const auto answer = Start("POST", "/api/test/p-1/c0ffee");
    const auto completion = mService->mCompletions.front();
    mService->Unregister(mServer);
    mService.reset();
    EXPECT_EQ("1", LogValue("Killing a service with in-flight requests", "count"));
    EXPECT_EQ("mInFlightFulfillments.size() != 0", LogValue("Killing a service with in-flight requests", "expression"));
    completion(200);
    EXPECT_EQ(1U, LogCount("Received a callback for an already-fulfilled completion"));
}

TEST_F(FrameTest, AHandlerThatThrowsAnswersInternalServerError)
{
    EXPECT_EQ(500, Send("DELETE", "/api/test/p-1/c0ffee").Status());
    EXPECT_EQ("broken", LogValue("A handler threw an exception", "exception"));
}

TEST_F(FrameTest, AHandlerThatThrowsWhatIsNoExceptionAnswersInternalServerErrorToo)
{
    EXPECT_EQ(500, Send("PATCH", "/api/test/p-1/c0ffee", {}, WithHost("X-Request-ID", "id 7")).Status());
    const auto record = OnlyRecord("A handler threw an exception", Level::Error);
    EXPECT_EQ("unknown", record.Value("exception"));
    EXPECT_EQ("TestService", record.Value("class"));
    EXPECT_EQ(0U, LogCount("A handler dropped its request"));
}

TEST_F(FrameTest, AnExceptionAfterTheAnswerChangesNothing)
{
    EXPECT_EQ(201, Send("OPTIONS", "/api/test/p-1/c0ffee").Status());
    EXPECT_EQ(1U, LogCount("A handler threw an exception"));
    EXPECT_EQ(1U, LogCount("Received a callback for an already-fulfilled completion"));
}

TEST_F(FrameTest, ACompletionThatIsDroppedAnswersInternalServerError)
{
    const auto answer = Start("POST", "/api/test/p-1/c0ffee", {}, WithHost("X-Request-ID", "id 7"));
    EXPECT_TRUE(answer->mResponses.empty());
    mService->mCompletions.clear();
    EXPECT_EQ(500, answer->Status());
    EXPECT_EQ("id 7", answer->Header("X-Request-ID"));
    EXPECT_EQ("/api/test/p-1/c0ffee", OnlyRecord("A handler dropped its request", Level::Error).Value("url"));
}

TEST_F(FrameTest, ACompletionThatIsDroppedAfterShutDownIsNoFailure)
{
    const auto answer = Start("POST", "/api/test/p-1/c0ffee");
    mService->Unregister(mServer);
    mService->FailAllAsyncFulfillments();
    mService->mCompletions.clear();
    EXPECT_EQ(503, answer->Status());
    EXPECT_EQ(0U, LogCount("A handler dropped its request"));
    EXPECT_EQ(0U, LogCount("Received a callback for an already-fulfilled completion"));
}

TEST_F(FrameTest, AKnownTagGivesNotModifiedWithTheTagAndNoBody)
{
    const auto first = Send("PUT", "/api/test/p-1/c0ffee");
    EXPECT_EQ(200, first.Status());
    EXPECT_EQ("payload", first.Body());
    EXPECT_EQ(HashPayload("payload"), first.Header("ETag"));
    const auto second = Send("PUT", "/api/test/p-1/c0ffee", {}, WithHost("If-None-Match", first.Header("ETag")));
    EXPECT_EQ(304, second.Status());
    EXPECT_EQ(first.Header("ETag"), second.Header("ETag"));
    EXPECT_EQ("", second.Body());
}

TEST_F(FrameTest, TagsDifferForPayloadsThatDiffer)
{
    EXPECT_NE(HashPayload("a"), HashPayload("b"));
    EXPECT_EQ(36U, HashPayload("").size());
}

TEST(HashPayload, IsTheHashOfItsSeedAndThePayload)
{
    // Computed by another implementation, which gives cbd8a7b341bd9b025b1e906a48ae1d19 for "hello" alone.
    EXPECT_EQ("d71e92c3-4bdf-1bcb-6aac-009988c3d0ef", HashPayload(""));
    EXPECT_EQ("fa39364d-4012-643c-c05e-fa5ec334562b", HashPayload("payload"));
    EXPECT_EQ("a70be369-78bc-f070-096c-32f126780b70", HashPayload(R"({"name":"Film","frames":[1,2,3]})"));
}

TEST(FormatURL, ARequestWithoutHostGetsAnEmptyURLAndARecord)
{
    const auto log = std::make_shared<testing_support::LogCapture>();
    const auto context = std::make_shared<testing_support::VirtualScheduler>(1)->MakeContext(log);
    const noxcore::HubContext::Scope scope(context);
    const auto request = noxnet::http::server::MakeRequest("GET", "/api/x", {}, nullptr);
    EXPECT_EQ("", FormatURL(*request, "/api/x"));
    ASSERT_EQ(1U, log->Count("Request does not have a HOST"));
    const auto record = log->Find("Request does not have a HOST")[0];
    EXPECT_EQ(Level::Error, record.mLevel);
    EXPECT_EQ("/api/x", record.Value("url"));
    EXPECT_EQ("GET", record.Value("method"));
    EXPECT_EQ("authority == noxnet::URIElement()", record.Value("expression"));
    EXPECT_NE("", record.Value("stack"));
}

TEST(FormatURL, ElementsFillThePlacesAndAPathGetsItsSlash)
{
    const auto request = noxnet::http::server::MakeRequest("GET", "/", kHost, nullptr);
    EXPECT_EQ("http://127.0.0.1:7777", FormatURL(*request, ""));
    EXPECT_EQ("http://127.0.0.1:7777/a/1/b/2", FormatURL(*request, "a/%s/b/%s", "1", "2"));
    EXPECT_EQ("http://127.0.0.1:7777/{id}/x", FormatURL(*request, "/{id}/%s", "x"));
    EXPECT_EQ("http://127.0.0.1:7777:80/a", FormatURL(*request, "/a", {}, {}, {}, {}, 80));
}

TEST(FormatURL, APercentSignInAnElementIsNoFormat)
{
    const auto request = noxnet::http::server::MakeRequest("GET", "/", kHost, nullptr);
    EXPECT_EQ("http://127.0.0.1:7777/%s%n%d/b", FormatURL(*request, "/%s/%s", "%s%n%d", "b"));
}

TEST(FormatURL, APathThatDoesNotFitIn2047BytesWithItsZeroIsRefusedWithARecord)
{
    const auto log = std::make_shared<testing_support::LogCapture>();
    const auto context = std::make_shared<testing_support::VirtualScheduler>(1)->MakeContext(log);
    const noxcore::HubContext::Scope scope(context);
    const auto request = noxnet::http::server::MakeRequest("GET", "/", kHost, nullptr);
    EXPECT_NE("", FormatURL(*request, "/%s", std::string(2045, 'a')));
    EXPECT_EQ("", FormatURL(*request, "/%s", std::string(2046, 'a')));
    EXPECT_EQ("", FormatURL(*request, "/%s/%s", std::string(10000, 'a'), "b"));
    EXPECT_EQ(2U, log->Count("URL too long"));
    EXPECT_EQ("b", log->Find("URL too long")[1].Value("inElement2"));
}

TEST(LinkMaker, TellsOfItsFirstFailureAlone)
{
    const auto log = std::make_shared<testing_support::LogCapture>();
    const auto context = std::make_shared<testing_support::VirtualScheduler>(1)->MakeContext(log);
    const noxcore::HubContext::Scope scope(context);
    const auto request = noxnet::http::server::MakeRequest("GET", "/", kHost, nullptr);
    LinkMaker maker(*request);
    EXPECT_EQ("http://127.0.0.1:7777/a%2Fb", maker.URL("/%s", "a/b"));
    EXPECT_FALSE(maker.Failed());
    EXPECT_EQ("", maker.URL("/%s", std::string(10000, 'a')));
    EXPECT_EQ("", maker.URL("/%s", "b"));
    EXPECT_TRUE(maker.Failed());
    EXPECT_EQ(1U, log->Count("URL too long"));
}

TEST(PathElements, OnlyUnreservedCharactersThatPathsMayHoldStayAsTheyAre)
{
    EXPECT_EQ("-_.%7E09azAZ", EncodePathElement("-_.~09azAZ"));
    EXPECT_EQ("%2F%20%25%C3%A4%00%2A", EncodePathElement(std::string_view("/ %\xC3\xA4\0*", 7)));
}

TEST(Forms, ABooleanIsOneOfTwoWordsOrTheMessageSaysSo)
{
    EXPECT_TRUE(ReadFormBoolean("enabled", "true"));
    EXPECT_FALSE(ReadFormBoolean("enabled", "false"));
    try {
        ReadFormBoolean("enabled", "TRUE");
        FAIL() << "no exception";
    } catch (const std::invalid_argument& exception) {
        EXPECT_STREQ("ReadForm: enabled: Expected either \"true\" or \"false\"", exception.what());
    }
}

TEST(Forms, ABodyThatIsNoFormIsInvalidInput)
{
    const auto request = noxnet::http::server::MakeRequest("POST", "/", {{"Content-Type", "application/json"}},
                                                           noxcore::utility::CopyToRecycledMemory("{"));
    EXPECT_THROW(ReadFormFields(*request), std::invalid_argument);
}

TEST(SubExpressions, AGroupThatTheMatchHasNotIsLogged)
{
    const auto log = std::make_shared<testing_support::LogCapture>();
    const auto context = std::make_shared<testing_support::VirtualScheduler>(1)->MakeContext(log);
    const noxcore::HubContext::Scope scope(context);
    const auto request = noxnet::http::server::MakeRequest("GET", "/a%20b", kHost, nullptr);
    std::string text = "before";
    EXPECT_FALSE(ExtractSubExpression(*request, 1, text));
    EXPECT_EQ("before", text);
    EXPECT_EQ(1U, log->Count("Insufficient number of regex subexpressions"));
    request->MutableMatch() = {request->Path(), request->Path().substr(1)};
    EXPECT_TRUE(ExtractSubExpression(*request, 1, text));
    EXPECT_EQ("a%20b", text);  // not decoded
}

TEST_F(FrameTest, DroppingLongPollsReachesListenersOnTheMainThread)
{
    int heard = 0;
    const auto listener = DropAllLongPollsMessage::Station()->Listen<DropAllLongPollsMessage>(
        [&](const DropAllLongPollsMessage&) { ++heard; });
    DropAllLongPollsMessage::Post();
    EXPECT_EQ(0, heard);
    mScheduler->RunUntilIdle();
    EXPECT_EQ(1, heard);
}

}  // namespace

}  // namespace service_test

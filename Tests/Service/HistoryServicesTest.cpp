#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Vocabulary.h"
#include "Tests/Service/ServiceFixture.h"

// History, differences, resolving and sharing.

namespace service_test {

namespace {

namespace Relation = VYCL::LinkRelation;
using testing::InvokeArgument;
using testing::SaveArg;

constexpr const char* kBase = "http://127.0.0.1:7777";

class HistoryServicesTest : public ServiceFixture
{
protected:
    void SetUp() override { RegisterAll(); }

    void StoreHasHead()
    {
        EXPECT_CALL(*mStore, GetProduction(ImmutableString("p-1"), ImmutableString("HEAD"), _))
            .WillRepeatedly(DoAll(SetArgReferee<2>(MakeSession()), Return(200)));
    }
    static StoredVersion MakeVersion(const std::string& inCommit, const std::string& inMessage)
    {
        StoredVersion version;
        version.mCommitID = inCommit;
        version.mAuthorName = "Ann";
        version.mCommitter = "Hub";
        version.mMessage = inMessage;
        version.mParents = {"fa7e"};
        version.mVersionNumber = 7;
        return version;
    }
    void StoreHasHistory(std::size_t inStart, std::size_t inCount, const std::vector<StoredVersion>& inVersions,
                         std::size_t inTotal)
    {
        EXPECT_CALL(*mStore, GetSessionHistory(ImmutableString("session-1"), inStart, inCount, _, _))
            .WillOnce(DoAll(SetArgReferee<3>(inVersions), SetArgReferee<4>(inTotal), Return(200)));
    }
    Answer SendForm(const std::string& inPath, const FormFields& inFields)
    {
        return Send("POST", inPath, FormOf(inFields), WithHost("Content-Type", "application/x-www-form-urlencoded"));
    }
};

TEST_F(HistoryServicesTest, AHistoryShowsItsVersionsAndLeadsOn)
{
    StoreHasHead();
    StoreHasHistory(2, 1, {MakeVersion("beef", "First cut\n\nwith sound")}, 9);
    const auto answer = Send("GET", "/api/history/p-1?startIndex=2&count=1");
    ASSERT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ(R"({"totalResults":9,"startIndex":2,"itemsPerPage":1,"count":1})", body.Root()["stats"].Raw());
    const auto version = body.Root()["versions"].Children().at(0);
    EXPECT_EQ(R"("beef")", version["commitId"].Raw());
    EXPECT_EQ(R"("First cut\n\nwith sound")", version["info"]["message"].Raw());
    EXPECT_EQ(R"("Ann")", version["name"].Raw());
    EXPECT_EQ(R"("Hub")", version["committer"].Raw());
    EXPECT_EQ(R"(["fa7e"])", version["parents"].Raw());
    EXPECT_EQ("7", version["versionNumber"].Raw());
    EXPECT_EQ(std::string(kBase) + "/api/differences/p-1/fa7e/beef",
              FindLink(version["links"], Relation::ProductionsProduction_DifferenceByCommit()));
    EXPECT_EQ(std::string(kBase) + "/api/history/p-1", FindLink(body.Root()["links"], "self"));
    EXPECT_EQ(std::string(kBase) + "/api/history/p-1?startIndex=HEAD", FindLink(body.Root()["links"], "first"));
    EXPECT_EQ(std::string(kBase) + "/api/history/p-1?startIndex=3", FindLink(body.Root()["links"], "next"));
}

TEST_F(HistoryServicesTest, TheMessageOfACommitOfTheHubsOwnIsShownWithoutItsMetadata)
{
    StoreHasHead();
    const std::string message = R"({"commitMessage":"Reverted","metadata":{},"commitMessageCode":3})";
    StoreHasHistory(0, 100, {MakeVersion("beef", message)}, 1);
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/history/p-1").Body()));
    const auto version = body.Root()["versions"].Children().at(0);
    std::string title;
    ASSERT_TRUE(version["title"].GetString(title));
    EXPECT_EQ(message, title);
    EXPECT_EQ(R"("Reverted")", version["info"]["message"].Raw());
    EXPECT_EQ("", FindLink(body.Root()["links"], "next"));
}

TEST_F(HistoryServicesTest, AClientThatHasTheHeadsHistoryReadsNone)
{
    StoreHasHead();
    const auto known =
        Send("GET", "/api/history/p-1?startIndex=HEAD", {}, WithHost("If-None-Match", "c0ffee"));  // a strict store
    EXPECT_EQ(304, known.Status());
    EXPECT_EQ("", known.Body());
    StoreHasHistory(0, 100, {}, 0);
    const auto stale = Send("GET", "/api/history/p-1?startIndex=HEAD", {}, WithHost("If-None-Match", "old"));
    EXPECT_EQ(200, stale.Status());
    EXPECT_EQ("c0ffee", stale.Header("ETag"));
}

TEST_F(HistoryServicesTest, PlacesThatAreNoNumbersAreRefused)
{
    for (const std::string query : {"startIndex=-1", "startIndex=100000000000000000000", "startIndex=2147483648",
                                    "startIndex=head", "startIndex=1e3", "startIndex=%201", "startIndex=0x1",
                                    "count=-1", "count=many", "count=2147483648", "startIndex=-0", "startIndex=1%00"})
        EXPECT_EQ(400, Send("GET", "/api/history/p-1?" + query).Status()) << query;
}

TEST_F(HistoryServicesTest, ACountOfNoneAndAPlacePastTheEndAreEmptyLists)
{
    StoreHasHead();
    StoreHasHistory(0, 0, {}, 9);
    StoreHasHistory(2147483647, 100, {}, 9);
    for (const std::string query : {"count=0", "startIndex=2147483647"}) {
        const auto answer = Send("GET", "/api/history/p-1?" + query);
        ASSERT_EQ(200, answer.Status()) << query;
        JSONDocument body;
        ASSERT_TRUE(body.Parse(answer.Body()));
        EXPECT_EQ("[]", body.Root()["versions"].Raw());
        EXPECT_EQ("9", body.Root()["stats"]["totalResults"].Raw());
        EXPECT_EQ("", FindLink(body.Root()["links"], "next"));
    }
}

TEST_F(HistoryServicesTest, AHistoryOfNoSessionIsWhatTheStoreSays)
{
    EXPECT_CALL(*mStore, GetProduction).WillOnce(Return(404)).WillOnce(Return(200));
    EXPECT_EQ(404, Send("GET", "/api/history/p-1").Status());
    EXPECT_CALL(*mStore, GetSessionHistory).WillOnce(Return(500));
    EXPECT_EQ(500, Send("GET", "/api/history/p-1").Status());
}

TEST_F(HistoryServicesTest, DifferencesAreTaggedAndLeadToTheSideWhereAThingIs)
{
    dto::DifferencesResource differences;
    differences.mDifferences.mAssets = {{"a-1", VYCL::GetDifferenceType_Updated(), {}, {}, {}},
                                        {"a-2", VYCL::GetDifferenceType_Removed(), "c0", "ba5e", {}}};
    differences.mDifferences.mEnclosures = {{"poster", VYCL::GetDifferenceType_Added(), {}, {}, {}},
                                            {"titles", VYCL::GetDifferenceType_Updated(), "c1", "ba5e", {}}};
    differences.mDifferences.mProperties = {VYCL::GetDifferenceType_Updated(), "c2", "ba5e", {}};
    EXPECT_CALL(*mSync, GetDifferences(ImmutableString("p-1"), ImmutableString("fa7e"), ImmutableString("beef"), _))
        .WillRepeatedly(InvokeArgument<3>(200, differences));
    const auto answer = Send("GET", "/api/differences/p-1/fa7e/beef");
    ASSERT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ(R"("fa7e")", body.Root()["leftSideCommitId"].Raw());
    EXPECT_EQ(R"("beef")", body.Root()["rightSideCommitId"].Raw());
    const auto assets = body.Root()["differences"]["assets"].Children();
    EXPECT_EQ(std::string(kBase) + "/api/asset/p-1/beef/a-1",
              FindLink(assets[0]["links"], Relation::AssetsAsset_ById()));
    EXPECT_EQ(std::string(kBase) + "/api/asset/p-1/fa7e/a-2",
              FindLink(assets[1]["links"], Relation::AssetsAsset_ById()));
    EXPECT_EQ(R"("c0")", assets[1]["vy:conflictsWithContentId"].Raw());
    // What is in conflict leads to where that is decided, and nothing else does.
    const auto enclosures = body.Root()["differences"]["enclosures"].Children();
    const std::string resolve = std::string(kBase) + "/api/resolve/p-1/";
    EXPECT_EQ("", FindLink(assets[0]["links"], "edit"));
    EXPECT_EQ(resolve + "asset/a-2/beef", FindLink(assets[1]["links"], "edit"));
    EXPECT_EQ("", FindLink(enclosures[0]["links"], "edit"));
    EXPECT_EQ(resolve + "enclosure/titles/beef", FindLink(enclosures[1]["links"], "edit"));
    EXPECT_EQ(resolve + "properties/-/beef", FindLink(body.Root()["differences"]["properties"]["links"], "edit"));
    EXPECT_EQ(std::string(kBase) + "/api/differences/p-1/fa7e/beef", FindLink(body.Root()["links"], "self"));
    EXPECT_EQ(
        304,
        Send("GET", "/api/differences/p-1/fa7e/beef", {}, WithHost("If-None-Match", answer.Header("ETag"))).Status());
}

TEST_F(HistoryServicesTest, DifferencesThatCannotBeHadAnswerTheirStatus)
{
    EXPECT_CALL(*mSync, GetDifferences).WillOnce(InvokeArgument<3>(501, dto::DifferencesResource()));
    const auto answer = Send("GET", "/api/differences/p-1/a/b");
    EXPECT_EQ(501, answer.Status());
    EXPECT_EQ("", answer.Body());
}

TEST_F(HistoryServicesTest, ADecisionOnOneThingNamesItTheCommitAndTheSide)
{
    ConflictDecision asset;
    ConflictDecision enclosure;
    ConflictDecision properties;
    EXPECT_CALL(*mSync, ResolveAssetConflict(ImmutableString("s-1"), _, _))
        .WillOnce(DoAll(SaveArg<1>(&asset), InvokeArgument<2>(200)));
    EXPECT_CALL(*mSync, ResolveProductionEnclosureConflict(ImmutableString("s-1"), _, _))
        .WillOnce(DoAll(SaveArg<1>(&enclosure), InvokeArgument<2>(503)));
    EXPECT_CALL(*mSync, ResolveProductionPropertiesConflict(ImmutableString("s-1"), _, _))
        .WillOnce(DoAll(SaveArg<1>(&properties), InvokeArgument<2>(200)));
    const FormFields theirs = {{":resolveStrategy", "accept-theirs"}};
    EXPECT_EQ(200, SendForm("/api/resolve/s-1/asset/a-1/beef", theirs).Status());
    EXPECT_EQ(503, SendForm("/api/resolve/s-1/enclosure/e-1/beef", theirs).Status());
    EXPECT_EQ(200,
              Send("POST", "/api/resolve/s-1/properties/-/beef", R"({":resolveStrategy":"accept-yours"})").Status());
    EXPECT_EQ("a-1", asset.mID.View());
    EXPECT_EQ("beef", asset.mLocalRevision.View());
    EXPECT_EQ("accept-theirs", asset.mDecision.View());
    EXPECT_EQ("e-1", enclosure.mID.View());
    EXPECT_EQ("", properties.mID.View());
    EXPECT_EQ("accept-yours", properties.mDecision.View());
}

TEST_F(HistoryServicesTest, ADecisionForNoSideIsRefused)
{
    for (const std::string thing : {"asset/a-1/beef", "enclosure/e-1/beef", "properties/-/beef"}) {
        EXPECT_EQ(400, SendForm("/api/resolve/s-1/" + thing, {{":resolveStrategy", "accept-both"}}).Status()) << thing;
        EXPECT_EQ(400, SendForm("/api/resolve/s-1/" + thing, {{"resolveStrategy", "accept-yours"}}).Status()) << thing;
        EXPECT_EQ(400, Send("POST", "/api/resolve/s-1/" + thing).Status()) << thing;
        EXPECT_EQ(400, Send("POST", "/api/resolve/s-1/" + thing, "{").Status()) << thing;
    }
    EXPECT_EQ(501, SendForm("/api/resolve/s-1/other/-/-", {{":resolveStrategy", "accept-yours"}}).Status());
}

TEST_F(HistoryServicesTest, ASessionIsResolvedByThrowingItsChangesAwayOnly)
{
    EXPECT_CALL(*mSync, DiscardLocalChanges(ImmutableString("s-1"), _)).WillOnce(InvokeArgument<1>(304));
    EXPECT_EQ(304, SendForm("/api/resolve/s-1/session/-/-", {{"action", "discardLocalChanges"}}).Status());
    EXPECT_EQ(400, SendForm("/api/resolve/s-1/session/-/-", {{"action", "discard"}}).Status());
    EXPECT_EQ(400, SendForm("/api/resolve/s-1/session/-/-", {}).Status());
}

TEST_F(HistoryServicesTest, ManyDecisionsGoInOneForm)
{
    BulkConflicts conflicts;
    EXPECT_CALL(*mSync, ResolveRemoteConflict(ImmutableString("s-1"), _, _))
        .WillOnce(DoAll(SaveArg<1>(&conflicts), InvokeArgument<2>(200)));
    EXPECT_EQ(200, SendForm("/api/resolve/s-1/bulk/-/-", {{"assets+asset-1", "accept-theirs"},
                                                          {"assets+asset-2", "accept-yours"},
                                                          {"enclosures+enc-1", "accept-yours"},
                                                          {"properties", "accept-theirs"}})
                       .Status());
    ASSERT_EQ(2U, conflicts.mAssets.size());
    EXPECT_EQ("asset-2", conflicts.mAssets[1].mID.View());
    EXPECT_EQ("accept-yours", conflicts.mAssets[1].mDecision.View());
    ASSERT_EQ(1U, conflicts.mProductionEnclosures.size());
    EXPECT_TRUE(conflicts.mProductionPropertiesConflict);
}

TEST_F(HistoryServicesTest, AFormWithADecisionThatCannotBeReadIsRefusedAsAWhole)
{
    const FormFields rows[] = {{{"assets+asset-1", "accept-both"}},     {{"assets", "accept-yours"}},
                               {{"assets+", "accept-yours"}},           {{"bins+asset-1", "accept-yours"}},
                               {{"properties+x", "accept-yours"}},      {{"assets+a/b", "accept-yours"}},
                               {{"enclosures+enc-1+x", "accept-yours"}}};
    for (FormFields fields : rows) {
        fields.insert(fields.begin(), {"assets+asset-0", "accept-yours"});
        EXPECT_EQ(400, SendForm("/api/resolve/s-1/bulk/-/-", fields).Status()) << fields.back().first;
    }
    EXPECT_EQ(400, SendForm("/api/resolve/s-1/bulk/-/-", {}).Status());
}

TEST_F(HistoryServicesTest, ChangesThatWaitAreListedWithTheirLinks)
{
    dto::DifferencesResource changes;
    changes.mLeftSideCommitID = "fa7e";
    changes.mRightSideCommitID = "beef";
    EXPECT_CALL(*mSync, GetIncomingChanges(ImmutableString("s-1"), false, _)).WillOnce(InvokeArgument<2>(200, changes));
    EXPECT_CALL(*mSync, GetOutgoingChanges(ImmutableString("s-1"), false, _))
        .WillOnce(InvokeArgument<2>(200, changes))
        .WillOnce(InvokeArgument<2>(417, changes));
    for (const std::string side : {"incoming", "outgoing"}) {
        const auto answer = Send("GET", "/api/share/s-1/" + side);
        ASSERT_EQ(200, answer.Status());
        JSONDocument body;
        ASSERT_TRUE(body.Parse(answer.Body()));
        EXPECT_EQ(R"("fa7e")", body.Root()["leftSideCommitId"].Raw());
        EXPECT_EQ(std::string(kBase) + "/api/share/s-1/" + side, FindLink(body.Root()["links"], "self"));
    }
    EXPECT_EQ(417, Send("GET", "/api/share/s-1/outgoing").Status());
}

TEST_F(HistoryServicesTest, APullAndAPushHandTheirFormOn)
{
    dto::ShareResult result;
    result.mPushResult = "pushed";
    EXPECT_CALL(*mSync, PullIncomingChanges(ImmutableString("s-1"), ImmutableString("beef"),
                                            ImmutableString("accept-theirs"), _))
        .WillOnce(InvokeArgument<3>(200, result));
    const auto pulled = SendForm("/api/share/s-1/pull", {{":commitId", "beef"}, {":mergeStrategy", "accept-theirs"}});
    EXPECT_EQ(200, pulled.Status());
    EXPECT_NE(std::string::npos, pulled.Body().find(R"("vy:pushResult":"pushed")"));
    CommitMessage message{"x"};
    EXPECT_CALL(*mSync, PushOutgoingChanges(ImmutableString("s-1"), ImmutableString("beef"), _, ImmutableString(), _))
        .WillOnce(DoAll(SaveArg<2>(&message), InvokeArgument<4>(200, result)))
        .WillOnce(InvokeArgument<4>(503, result));
    EXPECT_EQ(200, SendForm("/api/share/s-1/push", {{":commitId", "beef"}, {":commitMessage", ""}}).Status());
    EXPECT_EQ("", message.mText);
    const auto busy = SendForm("/api/share/s-1/push", {{":commitId", "beef"}, {":commitMessage", "m"}});
    EXPECT_EQ(503, busy.Status());
    EXPECT_EQ("", busy.Body());
}

TEST_F(HistoryServicesTest, APullOrPushOfABadFormIsRefused)
{
    EXPECT_EQ(400, SendForm("/api/share/s-1/pull", {}).Status());
    EXPECT_EQ(400, SendForm("/api/share/s-1/pull", {{":commitId", "b"}, {":mergeStrategy", "x"}}).Status());
    EXPECT_EQ(400, SendForm("/api/share/s-1/push", {{":commitId", "b"}}).Status());
    EXPECT_EQ(400, SendForm("/api/share/s-1/push", {{":commitMessage", "b"}}).Status());
    EXPECT_EQ(400, Send("POST", "/api/share/s-1/push", "[]", WithHost("Content-Type", "text/plain")).Status());
}

}  // namespace

}  // namespace service_test

#include "Tests/Service/ServiceFixture.h"

namespace service_test {
namespace {

using testing::_;
using testing::DoAll;
using testing::Field;
using testing::InvokeArgument;
using testing::Return;
using testing::SetArgReferee;

constexpr std::string_view kBase = "http://127.0.0.1:7777";

class SnapshotServicesTest : public ServiceFixture
{
protected:
    SnapshotServicesTest() { RegisterAll(); }

    Answer PostForm(const std::string& inTarget, const FormFields& inFields)
    {
        return Send("POST", inTarget, FormOf(inFields), WithHost("Content-Type", "application/x-www-form-urlencoded"));
    }
    static auto HasProperties(const std::string& inText)
    {
        return Field(&dto::ProductionProperties::mProperties, dto::RawJSON(inText));
    }
};

TEST_F(SnapshotServicesTest, OpeningGoesToTheEngineAndAnswersASession)
{
    EXPECT_CALL(*mSync, OpenSnapshot("/x/a.zip", ImmutableString("root-asset"), HasProperties(""), false, _))
        .WillOnce(DoAll(SetArgReferee<4>(MakeSession()), Return(200)));
    const auto opened = PostForm("/api/snapshot/open", {{"zipFile", "/x/a.zip"}, {"rootAssetID", "root-asset"}});
    EXPECT_EQ(200, opened.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(opened.Body()));
    EXPECT_EQ("\"session-1\"", body.Root()["vy:sessionId"].Raw());
    EXPECT_CALL(*mSync, OpenSnapshot("/x/a.zip", ImmutableString(), HasProperties(R"({"name":"New"})"), true, _))
        .WillOnce(DoAll(SetArgReferee<4>(MakeSession()), Return(201)))
        .WillOnce(Return(404));
    const FormFields fields{{"zipFile", "/x/a.zip"}, {"createSession", "true"}, {"properties", R"({"name":"New"})"}};
    const auto made = PostForm("/api/snapshot/open", fields);
    EXPECT_EQ(201, made.Status());
    EXPECT_EQ(std::string(kBase) + "/api/production/p-1/HEAD", made.Header("Location"));
    EXPECT_EQ(404, PostForm("/api/snapshot/open", fields).Status());
}

TEST_F(SnapshotServicesTest, AFormThatCannotBeUsedIsRefusedWithItsReason)
{
    constexpr const char* kRecord = "SnapshotService: Bad form element";
    const std::vector<FormFields> bad = {
        {},
        {{"createSession", "true"}},
        {{"zipFile", ""}},
        {{"zipFile", "relative.zip"}},
        {{"zipFile", "/a/folder/"}},
        {{"zipFile", "/x/a.zip"}, {"properties", "[]"}},
        {{"zipFile", "/x/a.zip"}, {"properties", "nonsense"}},
        {{"zipFile", "/x/a.zip"}, {"rootAssetID", "../x"}},
        {{"zipFile", "/x/a.zip"}, {"createSession", "TRUE"}},
        {{"zipFile", "/x/a.zip"}, {"keepSessionProperties", "1"}},
        {{"zipFile", "/x/a.zip"}, {"deleteAssetsNotInSnapshot", ""}},
    };
    for (const char* target : {"/api/snapshot/open", "/api/snapshot/take/p-1/c0ffee", "/api/snapshot/apply/s-1"}) {
        for (const FormFields& fields : bad) {
            mLog->Clear();
            EXPECT_EQ(400, PostForm(target, fields).Status()) << target << " " << FormOf(fields);
            EXPECT_EQ(1U, LogCount(kRecord)) << target << " " << FormOf(fields);
        }
    }
    EXPECT_EQ(R"(ReadForm: deleteAssetsNotInSnapshot: Expected either "true" or "false")",
              LogValue(kRecord, "exception"));
}

TEST_F(SnapshotServicesTest, ASnapshotIsTakenOfTheRevisionThatURLAndFormNameAlike)
{
    EXPECT_CALL(*mStore, TakeSnapshot(ImmutableString("p-1"), ImmutableString("c0ffee"),
                                      HasProperties(R"({"name":"S"})"), ImmutableString("root-asset"), "/x/a.zip"))
        .WillOnce(Return(200))
        .WillOnce(Return(404));
    const FormFields fields{{"zipFile", "/x/a.zip"},
                            {"rootAssetID", "root-asset"},
                            {"properties", R"({"vy:commitId":"c0ffee","properties":{"name":"S"}})"}};
    EXPECT_EQ(200, PostForm("/api/snapshot/take/p-1/c0ffee", fields).Status());
    EXPECT_EQ(404, PostForm("/api/snapshot/take/p-1/c0ffee", fields).Status());
    EXPECT_EQ(400, PostForm("/api/snapshot/take/p-1/0ther", fields).Status());
    constexpr const char* kRecord =
        "TakeSnapshot: URL revision (revisionID) does not match revision to copy (commitID)";
    EXPECT_EQ("revisionID != settings.mProperties.commitId", LogValue(kRecord, "expression"));
    EXPECT_EQ("p-1", LogValue(kRecord, "sessionID"));
    EXPECT_EQ("0ther", LogValue(kRecord, "revisionID"));
    EXPECT_EQ(R"({"vy:commitId":"c0ffee","properties":{"name":"S"}})", LogValue(kRecord, "properties"));
    EXPECT_EQ(400, PostForm("/api/snapshot/take/p-1", fields).Status());
    EXPECT_EQ(400, PostForm("/api/snapshot/take/p-1/c0ffee", {{"zipFile", "/x/a.zip"}}).Status());
}

TEST_F(SnapshotServicesTest, ClosingAnswersWhatTheEngineSays)
{
    EXPECT_CALL(*mSync, CloseSnapshot(ImmutableString("sn-1"))).WillOnce(Return(204)).WillOnce(Return(404));
    EXPECT_EQ(204, Send("POST", "/api/snapshot/close/sn-1").Status());
    EXPECT_EQ(404, Send("POST", "/api/snapshot/close/sn-1").Status());
}

TEST_F(SnapshotServicesTest, AnApplicationAnswersTheSessionWithItsTag)
{
    EXPECT_CALL(*mStore, ApplySnapshot(ImmutableString("s-1"), "/x/a.zip", true, false, _))
        .WillOnce(DoAll(SetArgReferee<4>(MakeSession()), Return(200)));
    const auto applied =
        PostForm("/api/snapshot/apply/s-1", {{"zipFile", "/x/a.zip"}, {"keepSessionProperties", "true"}});
    EXPECT_EQ(200, applied.Status());
    EXPECT_NE("", applied.Header("ETag"));
    EXPECT_CALL(*mStore, ApplySnapshot(ImmutableString("s-1"), "/x/a.zip", false, true, _)).WillOnce(Return(500));
    EXPECT_EQ(
        500,
        PostForm("/api/snapshot/apply/s-1", {{"zipFile", "/x/a.zip"}, {"deleteAssetsNotInSnapshot", "true"}}).Status());
}

TEST_F(SnapshotServicesTest, TemplatesAreListedWithLinksToWhatCanBeDoneWithThem)
{
    EXPECT_CALL(*mStore, GetTemplates).WillRepeatedly(Return(std::vector<dto::Session>{MakeSession()}));
    const auto list = Send("GET", "/api/template/list");
    ASSERT_EQ(200, list.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(list.Body()));
    ASSERT_EQ(1U, body.Root()["productions"].Children().size());
    EXPECT_TRUE(body.Root()["stats"].IsObject());
    EXPECT_NE(std::string::npos, list.Body().find("/api/template/createSession/p-1"));
    EXPECT_NE(std::string::npos, list.Body().find("/api/template/recipients/p-1"));
    EXPECT_EQ(304, Send("GET", "/api/template/list", {}, WithHost("If-None-Match", list.Header("ETag"))).Status());
}

TEST_F(SnapshotServicesTest, OneTemplateIsAnsweredAsAProduction)
{
    EXPECT_CALL(*mStore, GetTemplate(ImmutableString("p-1"), _))
        .WillOnce(DoAll(SetArgReferee<1>(MakeSession("c0ffee")), Return(200)))
        .WillOnce(Return(404));
    const auto found = Send("GET", "/api/template/template/p-1");
    EXPECT_EQ(200, found.Status());
    EXPECT_NE(std::string::npos, found.Body().find(R"("vy:commitId":"c0ffee")"));
    EXPECT_EQ(404, Send("GET", "/api/template/template/p-1").Status());
}

TEST_F(SnapshotServicesTest, RecipientsAreAnsweredAsTheyAreStored)
{
    EXPECT_CALL(*mStore, GetTemplateRecipients(ImmutableString("p-1"), _))
        .WillOnce(DoAll(SetArgReferee<1>(dto::RawArray(R"([{"email":"ann"}])")), Return(200)))
        .WillOnce(Return(404));
    const auto found = Send("GET", "/api/template/recipients/p-1");
    EXPECT_EQ(200, found.Status());
    EXPECT_TRUE(found.Body().starts_with(R"({"recipients":[{"email":"ann"}],"links":[)")) << found.Body();
    EXPECT_EQ(404, Send("GET", "/api/template/recipients/p-1").Status());
}

TEST_F(SnapshotServicesTest, CollaboratorsOfATemplateAreTheEngines)
{
    EXPECT_CALL(*mStore, GetTemplate(ImmutableString("t-1"), _))
        .WillOnce(Return(404))
        .WillRepeatedly(DoAll(SetArgReferee<1>(MakeSession()), Return(200)));
    EXPECT_EQ(404, Send("GET", "/api/template/collaborators/t-1").Status());
    EXPECT_CALL(*mSync, GetRemoteProductionID(ImmutableString("p-1"))).WillRepeatedly(Return(ImmutableString()));
    dto::CollaboratorsResource people;
    people.mCollaborators.resize(1);
    people.mCollaborators[0].mEmail = "ann@example.com";
    EXPECT_CALL(*mSync, GetCollaborators(ImmutableString("p-1"), ImmutableString(), _))
        .WillOnce(InvokeArgument<2>(200, people))
        .WillOnce(InvokeArgument<2>(501, dto::CollaboratorsResource()));
    const auto found = Send("GET", "/api/template/collaborators/t-1");
    EXPECT_EQ(200, found.Status());
    EXPECT_NE(std::string::npos, found.Body().find("ann@example.com"));
    EXPECT_EQ(501, Send("GET", "/api/template/collaborators/t-1").Status());
}

TEST_F(SnapshotServicesTest, ATemplateIsMadeWithPropertiesAndRecipients)
{
    EXPECT_CALL(*mStore, CreateTemplate(ImmutableString("p-1"), HasProperties(R"({"name":"T"})"),
                                        dto::RawArray(R"(["ann"])"), _))
        .WillOnce(DoAll(SetArgReferee<3>(MakeSession()), Return(201)));
    const auto made =
        Send("POST", "/api/template/createTemplate/p-1", R"({"properties":{"name":"T"},"recipients":["ann"]})");
    EXPECT_EQ(201, made.Status());
    EXPECT_EQ(std::string(kBase) + "/api/template/template/p-1", made.Header("Location"));
    EXPECT_CALL(*mStore, CreateTemplate(ImmutableString("p-2"), _, dto::RawArray(), _)).WillOnce(Return(404));
    EXPECT_EQ(404, Send("POST", "/api/template/createTemplate/p-2", "{}").Status());
    for (const char* bad : {"", "nonsense", "[]", R"({"recipients":"ann"})", R"({"properties":7})"})
        EXPECT_EQ(400, Send("POST", "/api/template/createTemplate/p-1", bad).Status()) << bad;
    EXPECT_EQ(5U, LogCount("TemplateService: Bad payload"));
}

TEST_F(SnapshotServicesTest, ASessionIsMadeOfTheTemplatesOwnRevision)
{
    EXPECT_CALL(*mStore, GetTemplate(ImmutableString("p-1"), _))
        .WillRepeatedly(DoAll(SetArgReferee<1>(MakeSession("c0ffee")), Return(200)));
    EXPECT_CALL(*mStore, CopySessionToLyra2(ImmutableString("session-1"), ImmutableString("c0ffee"),
                                            HasProperties(R"({"name":"N"})"), _))
        .WillOnce(DoAll(SetArgReferee<3>(MakeSession()), Return(201)))
        .WillOnce(Return(500));
    EXPECT_CALL(*mSync, AssociateWithUserOnly(ImmutableString("session-1"), _, true)).WillOnce(Return(200));
    const std::string request = R"({"vy:commitId":"c0ffee","properties":{"name":"N"}})";
    const auto made = Send("POST", "/api/template/createSession/p-1", request);
    EXPECT_EQ(201, made.Status());
    EXPECT_EQ(std::string(kBase) + "/api/production/p-1/HEAD", made.Header("Location"));
    EXPECT_EQ(500, Send("POST", "/api/template/createSession/p-1", request).Status());
    EXPECT_EQ(400, Send("POST", "/api/template/createSession/p-1", R"({"vy:commitId":"0ther"})").Status());
    EXPECT_EQ("inRevision != properties.commitId",
              LogValue("TemplateService: URL revision (revisionID) does not match revision to copy (commitID)",
                       "expression"));
    EXPECT_EQ(400, Send("POST", "/api/template/createSession/p-1", "nonsense").Status());
    EXPECT_EQ(1U, LogCount("TemplateService: Bad payload"));
}

}  // namespace
}  // namespace service_test

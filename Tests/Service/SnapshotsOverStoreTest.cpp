// Snapshots, templates and copies as a client lives through them, over the real store and the real engine.

#include "Tests/Service/StoreServicesFixture.h"
#include "Tests/Support/PackedSession.h"

namespace service_test {
namespace {

constexpr std::string_view kBase = "http://127.0.0.1:7777";

class SnapshotsOverStoreTest : public StoreServicesTest
{
protected:
    void SetUp() override
    {
        Apply("bulkCreate", {{"assets+" + kAsset + "+properties", R"({"name":"Clip"})"},
                             {"enclosures+" + kEnclosure + "+name+" + kAsset, "waveform"},
                             {"enclosures+" + kEnclosure + "+content+" + kAsset, "bytes"}});
    }
    Answer PostForm(const std::string& inTarget, const FormFields& inFields)
    {
        return Send("POST", inTarget, FormOf(inFields), WithHost("Content-Type", "application/x-www-form-urlencoded"));
    }
    std::string HeadRevision()
    {
        const std::string head = Head();
        return head.substr(head.rfind('/') + 1);
    }
    static std::string Member(const Answer& inAnswer, const char* inKey)
    {
        JSONDocument body;
        EXPECT_TRUE(body.Parse(inAnswer.Body()));
        return Text(body.Root()[inKey]);
    }
    void Take(const std::string& inFile)
    {
        const std::string revision = HeadRevision();
        ASSERT_EQ(200, PostForm("/api/snapshot/take/" + mProduction + "/" + revision,
                                {{"zipFile", inFile}, {"properties", R"({"vy:commitId":")" + revision + "\"}"}})
                           .Status());
    }
    std::size_t CountOfAssets(const std::string& inProduction)
    {
        const auto redirect = Send("GET", "/api/assets/" + inProduction + "/HEAD");
        JSONDocument body;
        EXPECT_TRUE(body.Parse(Send("GET", redirect.Header("Location")).Body()));
        return body.Root()["assets"].Children().size();
    }

    const std::string kAsset = "11111111-2222-4333-8444-555555555555";
    const std::string kEnclosure = "aaaaaaaa-2222-4333-8444-555555555555";
};

TEST_F(SnapshotsOverStoreTest, ASnapshotIsTakenOpenedClosedAndApplied)
{
    const std::string file = mHome / "snapshot.zip";
    Take(file);
    const auto opened = PostForm("/api/snapshot/open", {{"zipFile", file}});
    ASSERT_EQ(200, opened.Status());
    const std::string snapshot = Member(opened, "vy:parentProductionId");
    EXPECT_EQ(1U, CountOfAssets(snapshot));
    EXPECT_EQ(204, Send("POST", "/api/snapshot/close/" + Member(opened, "vy:sessionId")).Status());
    EXPECT_EQ(404, Send("GET", "/api/production/" + snapshot + "/HEAD").Status());

    const auto made = PostForm("/api/snapshot/open",
                               {{"zipFile", file}, {"createSession", "true"}, {"properties", R"({"name":"Made"})"}});
    ASSERT_EQ(201, made.Status());
    EXPECT_EQ(1U, CountOfAssets(Member(made, "vy:parentProductionId")));

    Apply("bulkDelete", {{"assets+" + kAsset, ""}});
    EXPECT_TRUE(AssetIDs().empty());
    const auto applied =
        PostForm("/api/snapshot/apply/" + mProduction, {{"zipFile", file}, {"deleteAssetsNotInSnapshot", "true"}});
    ASSERT_EQ(200, applied.Status());
    EXPECT_EQ(std::vector<std::string>{kAsset}, AssetIDs());
    EXPECT_EQ(1U, EnclosureCount(kAsset));
    EXPECT_EQ(HeadRevision(), Member(applied, "vy:commitId"));
}

TEST_F(SnapshotsOverStoreTest, AProductionIsCopiedBesideItself)
{
    const std::string revision = HeadRevision();
    const std::string target = "/api/production/" + mProduction + "/" + revision + "/copy";
    const std::string body = R"({"vy:commitId":")" + revision + R"(","properties":{"name":"Copy"}})";
    const auto copied = Send("POST", target + "?localOnly=true", body);
    ASSERT_EQ(201, copied.Status());
    const std::string copy = Member(copied, "vy:productionId");
    EXPECT_NE(mProduction, copy);
    EXPECT_EQ(1U, CountOfAssets(copy));
    EXPECT_EQ(200, Send("GET", copied.Header("Location").substr(kBase.size())).Status());
    EXPECT_EQ(204, Send("DELETE", "/api/production/" + mProduction + "/HEAD").Status());
    EXPECT_EQ(1U, CountOfAssets(copy));
    EXPECT_EQ(404, Send("POST", target + "?localOnly=true", body).Status());
}

TEST_F(SnapshotsOverStoreTest, AProductionThatIsLocalOnlyIsNotCopiedToAServer)
{
    const std::string revision = HeadRevision();
    EXPECT_EQ(400, Send("POST", "/api/production/" + mProduction + "/" + revision + "/copy",
                        R"({"vy:commitId":")" + revision + R"(","properties":{"name":"Copy"}})")
                       .Status());
}

TEST_F(SnapshotsOverStoreTest, ATemplateIsMadeOfAProductionAndASessionOfTheTemplate)
{
    const auto made = Send("POST", "/api/template/createTemplate/" + mProduction,
                           R"({"properties":{"name":"Template"},"recipients":["ann@example.com"]})");
    ASSERT_EQ(201, made.Status());
    const std::string id = Member(made, "vy:productionId");
    JSONDocument list;
    ASSERT_TRUE(list.Parse(Send("GET", "/api/template/list").Body()));
    ASSERT_EQ(1U, list.Root()["productions"].Children().size());
    EXPECT_EQ(id, Text(list.Root()["productions"].Children()[0]["vy:productionId"]));
    const auto created =
        Send("POST", "/api/template/createSession/" + id,
             R"({"vy:commitId":")" + Member(made, "vy:commitId") + R"(","properties":{"name":"New film"}})");
    ASSERT_EQ(201, created.Status());
    EXPECT_EQ(1U, CountOfAssets(Member(created, "vy:parentProductionId")));
    const auto recipients = Send("GET", "/api/template/recipients/" + Member(created, "vy:parentProductionId"));
    EXPECT_EQ(200, recipients.Status());
    EXPECT_NE(std::string::npos, recipients.Body().find("ann@example.com"));
    EXPECT_EQ(501, Send("GET", "/api/template/collaborators/" + id).Status());
}

TEST_F(SnapshotsOverStoreTest, ASnapshotOfAnotherProgramDoesNotSpoilTheListOfProductions)
{
    const std::string file = mHome / "snapshot.zip";
    Take(file);
    testing_support::WritePropertiesIntoPacked(file, R"({"name":)");
    EXPECT_EQ(500, PostForm("/api/snapshot/open", {{"zipFile", file}}).Status());
    EXPECT_EQ(500, PostForm("/api/snapshot/open", {{"zipFile", file}, {"createSession", "true"}}).Status());
    JSONDocument list;
    ASSERT_TRUE(list.Parse(Send("GET", "/api/productions").Body()));
    EXPECT_EQ(1U, list.Root()["productions"].Children().size());
}

}  // namespace
}  // namespace service_test

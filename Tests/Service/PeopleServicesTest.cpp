#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Vocabulary.h"
#include "Tests/Service/ServiceFixture.h"

// Collaborators, invites, activity, presence, batons and archives: all of it passes through to the engine.

namespace service_test {

namespace {

namespace Relation = VYCL::LinkRelation;
using testing::InvokeArgument;
using testing::SaveArg;

constexpr const char* kBase = "http://127.0.0.1:7777";

class PeopleServicesTest : public ServiceFixture
{
protected:
    void SetUp() override
    {
        RegisterAll();
        EXPECT_CALL(*mStore, GetSession).WillRepeatedly(Return(404));
    }
    Answer SendForm(const std::string& inPath, const FormFields& inFields)
    {
        return Send("POST", inPath, FormOf(inFields), WithHost("Content-Type", "application/x-www-form-urlencoded"));
    }
};

TEST_F(PeopleServicesTest, NoCollaboratorsAreAValidAnswer)
{
    EXPECT_CALL(*mSync, GetRemoteProductionID(ImmutableString("p-1"))).WillOnce(Return(ImmutableString("remote-1")));
    EXPECT_CALL(*mSync, GetCollaborators(ImmutableString("p-1"), ImmutableString("remote-1"), _))
        .WillOnce(InvokeArgument<2>(200, dto::CollaboratorsResource()));
    const auto answer = Send("GET", "/api/collaborators/p-1");
    ASSERT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ("[]", body.Root()["collaborators"].Raw());
    EXPECT_EQ(std::string(kBase) + "/api/collaborators/p-1", FindLink(body.Root()["links"], Relation::Collaborators()));
    EXPECT_EQ(std::string(kBase) + "/api/invites", FindLink(body.Root()["links"], "patch"));
}

TEST_F(PeopleServicesTest, CollaboratorsAreFoundByAPlaceInTheStorageToo)
{
    EXPECT_CALL(*mSync, GetCollaborators(ImmutableString("-"), ImmutableString("https://storage/x"), _))
        .WillOnce(InvokeArgument<2>(501, dto::CollaboratorsResource()));
    EXPECT_EQ(501, Send("GET", "/api/collaborators/-?url=https%3A%2F%2Fstorage%2Fx").Status());
}

TEST_F(PeopleServicesTest, AnInvitationGoesToTheEngine)
{
    std::vector<dto::Invitation> invitations;
    EXPECT_CALL(*mSync, InviteCollaborators(ImmutableString("p-1"), _, _))
        .WillOnce(DoAll(SaveArg<1>(&invitations), InvokeArgument<2>(200, dto::CollaboratorsResource())));
    EXPECT_EQ(200,
              Send("POST", "/api/collaborators/p-1", R"({"recipient":"bo@example.com","role":"editor"})").Status());
    ASSERT_EQ(1U, invitations.size());
    EXPECT_EQ("bo@example.com", invitations[0].mRecipient);
    EXPECT_EQ(400, Send("POST", "/api/collaborators/p-1", "{").Status());
    EXPECT_EQ(1U, LogCount("JSON not well-formed"));
    for (const std::string body : {"7", "[]", "[7]", R"({"recipient":7})"})
        EXPECT_EQ(400, Send("POST", "/api/collaborators/p-1", body).Status()) << body;
    EXPECT_EQ(4U, LogCount("CollaboratorsService: Bad payload"));
}

TEST_F(PeopleServicesTest, InvitesOfAKindAreListedWithWhatCanBeDone)
{
    dto::InvitesResource invites;
    invites.mInvites.emplace_back();
    EXPECT_CALL(*mSync, GetInvites(ImmutableString("received"), _)).WillOnce(InvokeArgument<1>(200, invites));
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/invites?type=received").Body()));
    const auto invite = body.Root()["invites"].Children().at(0);
    EXPECT_EQ(std::string(kBase) + "/api/invites", FindLink(invite["links"], Relation::InvitesInvite_Accept()));
    EXPECT_EQ(std::string(kBase) + "/api/invites", FindLink(invite["links"], Relation::InvitesInvite_Reject()));
}

TEST_F(PeopleServicesTest, AnAcceptedInviteTellsTheProductionInAHeader)
{
    EXPECT_CALL(*mSync, AcceptInvite)
        .WillOnce(InvokeArgument<1>(200, ImmutableString("p-9")))
        .WillOnce(InvokeArgument<1>(403, ImmutableString()));
    const std::string invite = R"({"resourceUrn":"urn:1","resourceType":"production"})";
    const auto answer = Send("POST", "/api/invites", invite);
    EXPECT_EQ(200, answer.Status());
    EXPECT_EQ("p-9", answer.Header("InviteAcceptedProductionID"));
    EXPECT_NE(std::string::npos, answer.Body().find(R"("localhub:resourceUrn":"urn:1")"));
    EXPECT_EQ(1U, LogCount("Invites: Create Response for Accept Invite"));
    EXPECT_EQ(403, Send("POST", "/api/invites", invite).Status());
    EXPECT_EQ(2U, LogCount("Invites: Accept Invite Completed"));
    EXPECT_EQ(400, Send("POST", "/api/invites", "[]").Status());
    EXPECT_EQ(400, Send("DELETE", "/api/invites", "{").Status());
    EXPECT_EQ(2U, LogCount("Invites: Bad payload"));
}

TEST_F(PeopleServicesTest, AnInviteIsRejected)
{
    EXPECT_CALL(*mSync, RejectInvite).WillOnce(InvokeArgument<1>(200));
    EXPECT_EQ(200, Send("DELETE", "/api/invites", R"({"resourceUrn":"urn:1"})").Status());
    EXPECT_EQ(1U, LogCount("Invites: Reject Invite Completed"));
}

TEST_F(PeopleServicesTest, ARevocationNeedsAReadableBody)
{
    for (const std::string body : {"", "{", "[]", "{}", R"({"action":7})"})
        EXPECT_EQ(400, Send("PATCH", "/api/invites", body).Status()) << body;
    EXPECT_EQ(5U, LogCount("RevokeCollaboratorOrInvite: Bad request body"));
    EXPECT_EQ(501, Send("PATCH", "/api/invites", R"({"action":"revoke","modifyMode":"all"})").Status());
}

TEST_F(PeopleServicesTest, ActivityIsTagged)
{
    EXPECT_CALL(*mSync, UpdateCollaboratorActivity(ImmutableString("p-1"), _))
        .WillOnce(InvokeArgument<1>(200, dto::ActivityResource()))
        .WillOnce(InvokeArgument<1>(501, dto::ActivityResource()));
    const auto answer = Send("GET", "/api/activity/p-1");
    EXPECT_EQ(200, answer.Status());
    EXPECT_EQ(HashPayload(answer.Body()), answer.Header("ETag"));
    EXPECT_EQ(501, Send("GET", "/api/activity/p-1").Status());
}

TEST_F(PeopleServicesTest, PresenceAndBatonsAreWhatTheEngineSays)
{
    dto::PresenceResource presence;
    presence.mConnected = true;
    EXPECT_CALL(*mSync, GetCollaboratorsPresence(ImmutableString("p-1"), _))
        .WillOnce(DoAll(SetArgReferee<1>(presence), Return(200)))
        .WillOnce(Return(501));
    EXPECT_NE(std::string::npos, Send("GET", "/api/presence/p-1").Body().find(R"("connected":true)"));
    EXPECT_EQ(501, Send("GET", "/api/presence/p-1").Status());
    EXPECT_CALL(*mSync, GetProductionBatons(ImmutableString("p-1"), _)).WillOnce(Return(200));
    EXPECT_EQ(200, Send("GET", "/api/batons/p-1").Status());
}

TEST_F(PeopleServicesTest, ABatonIsAcquiredOrReleasedAndNothingElse)
{
    EXPECT_CALL(*mSync, AcquireProductionBaton(ImmutableString("p-1"), ImmutableString("b-1"), _))
        .WillOnce(InvokeArgument<2>(200));
    EXPECT_CALL(*mSync, ReleaseProductionBaton(ImmutableString("p-1"), ImmutableString("b-1"), _))
        .WillOnce(InvokeArgument<2>(412));
    EXPECT_EQ(200, SendForm("/api/batons/p-1", {{"action", "acquire"}, {"name", "b-1"}}).Status());
    EXPECT_EQ(412, SendForm("/api/batons/p-1", {{"action", "release"}, {"name", "b-1"}}).Status());
    EXPECT_EQ("412",
              LogValue("ProductionBatonService: Cannot start async request to acquire or release baton", "status"));
    EXPECT_EQ(400, SendForm("/api/batons/p-1", {{"action", "steal"}, {"name", "b-1"}}).Status());
    EXPECT_EQ(400, SendForm("/api/batons/p-1", {{"action", "acquire"}}).Status());
    EXPECT_EQ(400, SendForm("/api/batons/p-1", {}).Status());
}

TEST_F(PeopleServicesTest, TheArchiveListsRestoresAndDeletes)
{
    EXPECT_CALL(*mSync, GetArchivedProductionList(testing::An<SyncBox::SessionListCompletion>()))
        .WillOnce(InvokeArgument<0>(200, std::vector<dto::Session>{MakeSession()}));
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/archives").Body()));
    EXPECT_EQ(std::string(kBase) + "/api/archive/p-1/restore",
              FindLink(body.Root()["productions"].Children().at(0)["links"], Relation::ArchivesArchive_Restore()));
    EXPECT_CALL(*mSync, UnarchiveProduction(ImmutableString("p-1"), _)).WillOnce(InvokeArgument<1>(501));
    EXPECT_CALL(*mSync, DeleteRemoteProduction(ImmutableString("p-1"), _)).WillOnce(InvokeArgument<1>(501));
    EXPECT_EQ(501, Send("POST", "/api/archive/p-1/restore").Status());
    EXPECT_EQ(501, Send("DELETE", "/api/archive/p-1/delete").Status());
}

}  // namespace

}  // namespace service_test

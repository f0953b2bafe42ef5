// What the engine is told when a single file is opened.

#include "Client/VYClient/Environment.h"
#include "Client/VYClient/LocalHub.h"
#include "Platform/noxcore/FileSupport.h"
#include "Tests/Service/ServiceFixture.h"
#include "Tests/Service/SignIn.h"
#include "Tests/Support/TempFolder.h"

namespace service_test {
namespace {

class RopeFileSyncTest : public ServiceFixture
{
protected:
    RopeFileSyncTest()
    {
        mContext->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(mHome.Path()));
        RegisterAll();
        SignIn("guid-ann", "ann@example.com");
    }

    static dto::Session InFile(bool inLocalOnly)
    {
        dto::Session session = MakeSession();
        session.mRopeFileID = "file-1";
        session.mLocalOnly = inLocalOnly;
        return session;
    }
    void SetUp() override { EXPECT_CALL(*mStore, GetSessions).WillRepeatedly(Return(std::vector<dto::Session>())); }

    /// The file as the store has it: whether it is local only, and the remote side, if it has one.
    Answer Open(bool inLocalOnly, const std::optional<RemoteAssociation>& inAssociation)
    {
        LinkState link;
        link.mAssociated = inAssociation.has_value();
        link.mAssociation = inAssociation.value_or(RemoteAssociation());
        EXPECT_CALL(*mStore, OpenRopeFile("/films/Film.lyr", _))
            .WillOnce(DoAll(SetArgReferee<1>(InFile(inLocalOnly)), Return(200)));
        EXPECT_CALL(*mStore, ReadLinkState(kID, _)).WillRepeatedly(DoAll(SetArgReferee<1>(link), Return(true)));
        return Send("POST", "/api/ropeFile/open", FormOf({{"path", "/films/Film.lyr"}}),
                    WithHost("Content-Type", "application/x-www-form-urlencoded"));
    }
    static RemoteAssociation Association(const std::string& inUser, const std::string& inGUID)
    {
        RemoteAssociation association;
        association.mServerURL = "https://hub.example";
        association.mProductionID = "p-remote";
        association.mSessionID = "remote";
        association.mUserID = inUser;
        association.mCorvaneID = inGUID;
        return association;
    }

    const testing_support::TempFolder mHome;
    const ImmutableString kID{"session-1"};
};

TEST_F(RopeFileSyncTest, ASynchronizedFileWithoutARemoteSideGetsOneForWhoIsSignedInAndIsPolled)
{
    for (const int status : {200, 500}) {  // what comes of it is no matter of the file
        const testing::Sequence order;
        EXPECT_CALL(*mSync, AssociateWithUserOnly(kID, ImmutableString("ann@example.com"), false))
            .InSequence(order)
            .WillOnce(Return(status));
        EXPECT_CALL(*mSync, CreateRemoteAssociatedSession(kID, _)).InSequence(order);
        EXPECT_CALL(*mSync, EngagePollingForSync(kID, false)).InSequence(order).WillOnce(Return(status));
        EXPECT_EQ(200, Open(false, {}).Status());
    }
}

TEST_F(RopeFileSyncTest, ASynchronizedFileThatHasItsRemoteSideIsPolledAndKeepsIt)
{
    EXPECT_CALL(*mSync, EngagePollingForSync(kID, false)).WillOnce(Return(200));
    EXPECT_EQ(200, Open(false, Association("ann@example.com", "guid-ann")).Status());
}

TEST_F(RopeFileSyncTest, TheLinkOfAProjectInWhosePlaceAnotherOneLiesEnds)
{
    dto::Session other = InFile(true);
    other.mRopeFileID = "file-2";
    EXPECT_CALL(*mStore, GetSessions).WillOnce(Return(std::vector{InFile(false)})).WillOnce(Return(std::vector{other}));
    EXPECT_CALL(*mSync, DisengagePollingForSync(kID)).WillOnce(Return(200));
    EXPECT_EQ(200, Open(true, {}).Status());
}

TEST_F(RopeFileSyncTest, OfALocalOnlyFileTheEngineIsNotTold)
{
    EXPECT_EQ(200, Open(true, {}).Status());
    EXPECT_EQ(200, Open(true, Association("ann@example.com", "guid-ann")).Status());
}

TEST_F(RopeFileSyncTest, AFileOfSomebodyElseIsClosedAndNeitherAssociatedNorPolled)
{
    EXPECT_CALL(*mSync, DisengagePollingForSync(kID)).WillOnce(Return(200));
    EXPECT_CALL(*mStore, ClearSandbox(kID)).WillOnce(Return(200));
    EXPECT_EQ(403, Open(false, Association("ben@example.com", "guid-ben")).Status());
}

}  // namespace
}  // namespace service_test

#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Client/VYClient/Interfaces.h"
#include "Tests/Support/MockProjectBox.h"
#include "Tests/Sync/SyncFixture.h"

namespace VantryLocalHub {

/// A server that somebody is logged in at.
class FakeServer final : public VYCL::IVYCDataServer
{
public:
    explicit FakeServer(std::string inUser) : mUser(std::move(inUser)) {}
    [[nodiscard]] VYCL::UserRecord GetUser() const override { return {mUser, "", "", {}}; }
    [[nodiscard]] std::string GetServerURL() const override { return "https://hub.example"; }
    [[nodiscard]] VYCL::VYSCredentials GetCredentials() const override { return {}; }
    [[nodiscard]] std::string GetSessionURL(std::string_view) const override { return {}; }
    [[nodiscard]] std::vector<dto::Limit> GetLimits() const override { return {}; }
    bool CallOnWorker(std::function<void()>) override { return false; }
    bool CallOnWorkerAfter(unsigned, std::function<void()>) override { return false; }
    void CancelRequest(const Guid&) override {}

private:
    const std::string mUser;
};

/// A hub whose store is a strict mock that knows the sessions that a test gives it.
class StoreFixture : public SyncFixture
{
protected:
    using Box = testing::StrictMock<testing_support::MockProjectBox>;

    StoreFixture() { ProjectBox::SetInstance(mBox); }

    /// A session that is there, found by both of its ids, as often as it is asked for.
    void Have(const char* inID, const char* inHead)
    {
        using namespace testing;
        dto::Session& session = mSessions[inID];
        session.mIdentifier = inID;
        session.mProductionID = std::string("p-") + inID;
        session.mRevision = inHead;
        const auto isMeant = AnyOf(session.mIdentifier, session.mProductionID);
        EXPECT_CALL(*mBox, GetSession(isMeant, _))
            .Times(AnyNumber())
            .WillRepeatedly(DoAll(SetArgReferee<1>(session), Return(200)));
        EXPECT_CALL(*mBox, GetProduction(isMeant, VYCL::LocalHub::Revision_HEAD(), _))
            .Times(AnyNumber())
            .WillRepeatedly(DoAll(SetArgReferee<2>(session), Return(200)));
        EXPECT_CALL(*mBox, SessionExists(isMeant)).Times(AnyNumber()).WillRepeatedly(Return(true));
        EXPECT_CALL(*mBox, GetHistoryGeneration(isMeant)).Times(AnyNumber()).WillRepeatedly(Return(1));
    }

    void Lack(const char* inID)
    {
        using namespace testing;
        EXPECT_CALL(*mBox, GetSession(ImmutableString(inID), _)).Times(AnyNumber()).WillRepeatedly(Return(404));
        EXPECT_CALL(*mBox, GetProduction(ImmutableString(inID), _, _)).Times(AnyNumber()).WillRepeatedly(Return(404));
    }

    /// The session's sync database holds no association; its link is read that many times.
    void HaveNoAssociation(const char* inID, bool inLocalOnly = false, const char* inUserID = "", int inTimes = 1)
    {
        using namespace testing;
        LinkState state;
        state.mAssociation.mUserID = inUserID;
        state.mLocalOnly = inLocalOnly;
        EXPECT_CALL(*mBox, ReadLinkState(ImmutableString(inID), _))
            .Times(inTimes)
            .WillRepeatedly(DoAll(SetArgReferee<1>(state), Return(true)));
    }

    /// It is associated, with a sync point between local and remote revision.
    void HaveAssociation(const char* inID, const char* inLocal, const char* inRemote)
    {
        using namespace testing;
        const LinkState state{true,
                              {"https://hub.example", "rp-1", "rs-1", "ann", "", 7},
                              {"rs-1", inRemote, "", inLocal, RFC3339DateTime(1)},
                              false};
        EXPECT_CALL(*mBox, ReadLinkState(ImmutableString(inID), _))
            .WillOnce(DoAll(SetArgReferee<1>(state), Return(true)));
    }

    std::map<std::string, dto::Session> mSessions;
    std::shared_ptr<Box> mBox = std::make_shared<Box>();
};

}  // namespace VantryLocalHub

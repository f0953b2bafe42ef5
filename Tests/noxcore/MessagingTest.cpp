#include <gtest/gtest.h>

#include "Platform/noxcore/Messaging.h"
#include "Tests/Support/VirtualHub.h"

namespace {

using namespace noxcore::messaging;

class Changed : public MessageBase<Changed>
{
public:
    static constexpr std::string_view kTypeName = "Test::Changed";
    explicit Changed(int inValue) : mValue(inValue) {}
    int mValue;
};

class Other : public MessageBase<Other>
{
public:
    static constexpr std::string_view kTypeName = "Test::Other";
};

class MessagingTest : public testing::Test
{
protected:
    std::shared_ptr<testing_support::VirtualScheduler> mScheduler =
        std::make_shared<testing_support::VirtualScheduler>(testing_support::TestSeed());
    noxcore::HubContext::Scope mScope{mScheduler->MakeContext(std::make_shared<testing_support::LogCapture>())};
    std::shared_ptr<MessageStation> mStation = std::make_shared<MessageStation>();
};

TEST_F(MessagingTest, AMessageReachesItsListenersLaterInTheOrderOfPosting)
{
    std::vector<int> seen;
    const auto listener =
        mStation->Listen<Changed>([&](const Changed& inMessage) { seen.push_back(inMessage.mValue); });
    const auto other = mStation->Listen<Other>([&](const Other&) { seen.push_back(-1); });
    PostMessageToUIThread(mStation, std::make_shared<Changed>(1));
    PostMessageToUIThread(mStation, std::make_shared<Changed>(2));
    EXPECT_TRUE(seen.empty());
    mScheduler->RunUntilIdle();
    EXPECT_EQ((std::vector<int>{1, 2}), seen);
}

TEST_F(MessagingTest, AListenerThatIsGoneOrADisposedStationDeliversNothing)
{
    int seen = 0;
    auto listener = mStation->Listen<Changed>([&](const Changed&) { ++seen; });
    listener.reset();
    const auto second = mStation->Listen<Changed>([&](const Changed&) { ++seen; });
    mStation->Deliver(Changed(1));
    EXPECT_EQ(1, seen);
    PostMessageToUIThread(mStation, std::make_shared<Changed>(2));
    DisposeStation(mStation);
    mScheduler->RunUntilIdle();
    EXPECT_EQ(1, seen);
}

}  // namespace

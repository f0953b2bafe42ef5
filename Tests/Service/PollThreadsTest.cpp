#include <atomic>
#include <thread>

#include "Inc/Service/DropAllLongPolls.h"
#include "Tests/Service/StoreServicesFixture.h"

// Readers that wait while others commit, on real threads.

namespace service_test {

namespace {

constexpr int kReaders = 4;
constexpr int kRounds = 40;

class PollThreadsTest : public StoreServicesTest
{
protected:
    std::thread RunUnderContext(std::function<void()> inWork)
    {
        return std::thread([context = mContext, work = std::move(inWork)] {
            const noxcore::HubContext::Scope scope(context);
            work();
        });
    }
    [[nodiscard]] std::string StatusPath() const { return "/api/session/status/" + mProduction; }

    /// Reads the state and waits for the next, over and over.
    void Read()
    {
        for (int round = 0; round < kRounds; ++round) {
            const std::string tag = Send("GET", StatusPath()).Header("ETag");
            HeaderList headers = WithHost("X-LongPoll", "1");
            headers.emplace_back("If-None-Match", tag);
            const auto answer = Send("GET", StatusPath(), {}, headers);
            if (answer.mResponses.empty() || answer.mResponses.front() == nullptr) {
                ++mLost;
                return;
            }
            const int status = answer.Status();
            if (status == 304)
                ++mDropped;
            else if (status != 200 || answer.Header("ETag") == tag)
                ++mWrong;
        }
    }
    void Change()
    {
        for (int number = 0; mReadersLeft > 0; ++number) {
            const std::string body = R"({"properties":{"name":"Film )" + std::to_string(number) + "\"}}";
            if (Send("PUT", "/api/production/" + mProduction + "/HEAD/properties", body).Status() != 200) ++mWrong;
            if (number % 10 == 9) DropAllLongPollsMessage::Post();
        }
    }

    std::atomic<int> mReadersLeft = kReaders;
    std::atomic<int> mLost = 0;
    std::atomic<int> mWrong = 0;
    std::atomic<int> mDropped = 0;
};

TEST_F(PollThreadsTest, EveryReaderSeesAChangeOrIsSentAwayAndNoneWaitsForEver)
{
    const auto mainThread = noxcore::threads::GetRegisteredMainThread();
    std::thread loop = RunUnderContext([mainThread] { mainThread->RunLoop(); });
    std::vector<std::thread> readers;
    for (int i = 0; i < kReaders; ++i)
        readers.push_back(RunUnderContext([this] {
            Read();
            --mReadersLeft;
        }));
    std::thread writer = RunUnderContext([this] { Change(); });
    for (std::thread& reader : readers)
        reader.join();
    writer.join();
    mainThread->Quit();
    loop.join();
    EXPECT_EQ(0, mLost);
    EXPECT_EQ(0, mWrong);
    EXPECT_GT(kReaders * kRounds, mDropped);
}

}  // namespace

}  // namespace service_test

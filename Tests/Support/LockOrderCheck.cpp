#include "Tests/Support/LockOrderCheck.h"

#include <gtest/gtest.h>

#include "Platform/noxcore/RecursiveMutex.h"

namespace testing_support {

namespace {

/// Asks after each test. What happens between two tests is counted to the later one.
class LockOrderCheck final : public testing::EmptyTestEventListener
{
public:
    void OnTestEnd(const testing::TestInfo&) override
    {
        const unsigned now = noxcore::threads::LockOrderViolations();
        EXPECT_EQ(mSeen + mExpected, now) << "locks were taken against their order";
        mSeen = now;
        mExpected = 0;
    }
    void Expect(unsigned inCount) { mExpected += inCount; }

private:
    unsigned mSeen = 0;
    unsigned mExpected = 0;
};

/// The listeners' list of the test program owns it.
LockOrderCheck* Register()
{
    auto* const check = new LockOrderCheck;
    testing::UnitTest::GetInstance()->listeners().Append(check);
    return check;
}

LockOrderCheck* const sCheck = Register();

}  // namespace

void ExpectLockOrderViolations(unsigned inCount)
{
    sCheck->Expect(inCount);
}

}  // namespace testing_support

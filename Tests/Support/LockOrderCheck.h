#pragma once

namespace testing_support {

/// Every test fails in which a lock was taken against the order. One that does so on purpose says how often.
void ExpectLockOrderViolations(unsigned inCount);

}  // namespace testing_support

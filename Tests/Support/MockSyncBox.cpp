#include "Tests/Support/MockSyncBox.h"

namespace testing_support {

MockSyncBox::MockSyncBox() = default;
MockSyncBox::~MockSyncBox() = default;

}  // namespace testing_support

template class testing::StrictMock<testing_support::MockSyncBox>;

#include "Tests/Support/MockProjectBox.h"
#include "Tests/Support/MockSyncBox.h"

namespace testing_support {

MockProjectBox::MockProjectBox() = default;
MockProjectBox::~MockProjectBox() = default;

MockSyncBox::MockSyncBox() = default;
MockSyncBox::~MockSyncBox() = default;

}  // namespace testing_support

#include "Tests/Support/MockProjectBox.h"

namespace testing_support {

MockProjectBox::MockProjectBox() = default;
MockProjectBox::~MockProjectBox() = default;

}  // namespace testing_support

template class testing::StrictMock<testing_support::MockProjectBox>;

#include <gtest/gtest.h>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"
#include "Tests/Support/TempFolder.h"
#include "Tests/Support/WaitUntil.h"

namespace {

TEST(FileSink, AnInformationReachesTheFileWhileTheProgramGoesOn)
{
    const testing_support::TempFolder folder;
    const auto sink = noxcore::logging::MakeFileSink(folder.Path(), "hub");
    ASSERT_NE(nullptr, sink);
    noxcore::logging::Record record;
    record.mMessage = "the last words before a crash";
    sink->Write(record);
    EXPECT_TRUE(testing_support::WaitUntil([&] {
        std::string text;
        return noxcore::filesupport::Files().ReadFile(folder / "hub.log", text) &&
               text.find(record.mMessage) != std::string::npos;
    }));
}

}  // namespace

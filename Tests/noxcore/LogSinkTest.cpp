#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"
#include "Tests/Support/TempFolder.h"

namespace {

TEST(LogSink, ARecordIsOneLineWhateverStandsInItsValues)
{
    const testing_support::TempFolder folder;
    noxcore::logging::Record record;
    record.mMessage = "Bad form element";
    record.mPairs = {{"key", std::string("a\n2025-01-01T00:00:00.000Z E forged\r\x1B[2J\0\x7F\tb", 44)},
                     {"name", "gr\u00FC\u00DFe"}};
    {
        const auto sink = noxcore::logging::MakeFileSink(folder.Path(), "test");
        ASSERT_NE(nullptr, sink);
        sink->Write(record);
        sink->Flush();
    }
    std::string text;
    ASSERT_TRUE(noxcore::filesupport::Files().ReadFile(noxcore::filesupport::Join(folder.Path(), "test.log"), text));
    EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n'));
    EXPECT_EQ(text.size() - 1, text.find('\n'));
    EXPECT_TRUE(std::none_of(text.begin(), text.end() - 1, [](unsigned char inByte) { return inByte < ' '; }));
    EXPECT_NE(std::string::npos,
              text.find("Bad form element, key: a\\x0A2025-01-01T00:00:00.000Z E forged\\x0D\\x1B[2J\\x00\\x7F\\x09b, "
                        "name: gr\u00FC\u00DFe"));
}

}  // namespace

#include "Platform/noxtransport/Framing.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "Tests/Support/VirtualHub.h"

namespace {

using noxtransport::EncodeFrame;
using noxtransport::FrameDecoder;
using noxtransport::FrameStatus;
using noxtransport::FramingLimits;

/// All messages that a decoder gives now.
std::vector<std::string> Drain(FrameDecoder& ioDecoder)
{
    std::vector<std::string> messages;
    std::string message;
    while (ioDecoder.Next(message) == FrameStatus::Message)
        messages.push_back(message);
    return messages;
}

FrameStatus StatusOf(std::string_view inBytes, const FramingLimits& inLimits = {})
{
    FrameDecoder decoder(inLimits);
    decoder.Feed(inBytes);
    std::string message;
    return decoder.Next(message);
}

TEST(Framing, AMessageHasItsLengthBeforeIt)
{
    EXPECT_EQ("Content-Length: 2\r\n\r\n{}", EncodeFrame("{}"));
}

TEST(Framing, AStreamCutAtAnyByteGivesTheSameMessages)
{
    const std::string stream = EncodeFrame("{\"a\":1}") + EncodeFrame("") + EncodeFrame("\r\n\r\n[]");
    const std::vector<std::string> expected{"{\"a\":1}", "", "\r\n\r\n[]"};
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
        FrameDecoder decoder;
        decoder.Feed(std::string_view(stream).substr(0, cut));
        std::vector<std::string> messages = Drain(decoder);
        decoder.Feed(std::string_view(stream).substr(cut));
        for (std::string& message : Drain(decoder))
            messages.push_back(std::move(message));
        EXPECT_EQ(expected, messages) << "cut at " << cut;
        EXPECT_FALSE(decoder.IsInsideMessage());
    }
}

TEST(Framing, RandomMessagesSurviveRandomCuts)
{
    std::mt19937_64 random(testing_support::TestSeed());
    for (int round = 0; round < 200; ++round) {
        std::vector<std::string> sent(random() % 6);
        std::string stream;
        for (std::string& message : sent) {
            message.resize(random() % 3000);
            for (char& byte : message)
                byte = random() % 4 == 0 ? "\r\n: "[random() % 4] : static_cast<char>(random());
            stream += EncodeFrame(message);
        }
        FrameDecoder decoder;
        std::vector<std::string> received;
        for (std::string_view rest = stream; !rest.empty();) {
            const std::size_t size = std::min<std::size_t>(rest.size(), 1 + random() % 700);
            decoder.Feed(rest.substr(0, size));
            rest.remove_prefix(size);
            for (std::string& message : Drain(decoder))
                received.push_back(std::move(message));
        }
        ASSERT_EQ(sent, received) << "round " << round;
    }
}

TEST(Framing, HeaderNamesCountInAnyCaseAndOthersArePassedOver)
{
    FrameDecoder decoder;
    decoder.Feed("Content-Type: text/plain\r\ncontent-LENGTH:  3 \r\nX-Any:\r\n\r\nabc");
    std::string message;
    ASSERT_EQ(FrameStatus::Message, decoder.Next(message));
    EXPECT_EQ("abc", message);
}

TEST(Framing, ABrokenHeaderBreaksTheStream)
{
    for (const char* header : {"Content-Length: x\r\n\r\n", "Content-Length: -1\r\n\r\n", "Content-Length: 1 2\r\n\r\n",
                               "Content-Length:\r\n\r\n", "Content-Length: 99999999999999999999999\r\n\r\n",
                               "Content-Length: 2\r\nContent-Length: 2\r\n\r\n{}", "Other: 2\r\n\r\n{}",
                               "no colon\r\n\r\n", ": 2\r\n\r\n{}", "\r\n\r\n", "Content-Length: 0x2\r\n\r\n{}"}) {
        EXPECT_EQ(FrameStatus::Broken, StatusOf(header)) << header;
    }
}

TEST(Framing, ABrokenStreamStaysBroken)
{
    FrameDecoder decoder;
    std::string message = "kept";
    decoder.Feed("Content-Length: x\r\n\r\n");
    EXPECT_EQ(FrameStatus::Broken, decoder.Next(message));
    decoder.Feed(EncodeFrame("{}"));
    EXPECT_EQ(FrameStatus::Broken, decoder.Next(message));
    EXPECT_EQ("kept", message);
    EXPECT_FALSE(decoder.Reason().empty());
}

TEST(Framing, AMessageAtTheBoundIsTakenAndALargerOneBreaksTheStreamBeforeItsBodyCame)
{
    const FramingLimits limits{100, 10};
    EXPECT_EQ(FrameStatus::Message, StatusOf("Content-Length: 10\r\n\r\n0123456789", limits));
    EXPECT_EQ(FrameStatus::Broken, StatusOf("Content-Length: 11\r\n\r\n", limits));
}

TEST(Framing, AHeaderThatDoesNotEndWithinItsBoundBreaksTheStream)
{
    const FramingLimits limits{64, 10};
    EXPECT_EQ(FrameStatus::NeedMore, StatusOf(std::string(64, 'a'), limits));
    EXPECT_EQ(FrameStatus::Broken, StatusOf(std::string(65, 'a'), limits));
    EXPECT_EQ(FrameStatus::Broken, StatusOf("X: " + std::string(60, 'a') + "\r\nContent-Length: 1\r\n\r\na", limits));
}

}  // namespace

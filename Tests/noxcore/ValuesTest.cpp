#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <set>
#include <thread>

#include "Platform/noxappsupport/RFC3339DateTime.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/ImmutableString.h"
#include "Platform/noxcore/MemoryFile.h"
#include "Platform/noxcore/Murmur3.h"
#include "Platform/noxcore/RecycledMemory.h"
#include "Tests/Support/VirtualHub.h"

namespace {

using namespace noxcore::utility;
using noxappsupport::cloudservice::RFC3339DateTime;

TEST(ImmutableString, EqualTextsShareTheirData)
{
    const ImmutableString first("session");
    const ImmutableString second(std::string("sess") + "ion");
    EXPECT_EQ(first, second);
    EXPECT_EQ(static_cast<const void*>(first.c_str()), static_cast<const void*>(second.c_str()));
    EXPECT_FALSE(first == ImmutableString("Session"));
    EXPECT_TRUE(ImmutableString("").empty());
    EXPECT_EQ(ImmutableString(), ImmutableString(""));
}

TEST(ImmutableString, OrderIsThatOfTheTexts)
{
    const std::set<ImmutableString> ordered{"b", "a", "", "ab"};
    std::string all;
    for (const auto& text : ordered)
        all += text.Text() + ";";
    EXPECT_EQ(";a;ab;b;", all);
}

TEST(ImmutableString, ManyThreadsInternAndForgetTheSameTexts)
{
    noxcore::threads::ExecuteCPUBoundTaskOnAllProcessors([](std::size_t, std::size_t) {
        for (int i = 0; i < 20000; ++i) {
            const ImmutableString text("key" + std::to_string(i % 7));
            const ImmutableString copy = text;
            ASSERT_EQ("key" + std::to_string(i % 7), copy.View());
        }
    });
}

TEST(RecycledMemory, AFileInMemoryHoldsTheBytesItWasMadeOf)
{
    const std::string bytes(300'000, 'x');
    const ConstRecycledMemoryPtr file = CopyToMemoryFile(bytes + "end");
    ASSERT_NE(nullptr, file);
    EXPECT_EQ(bytes + "end", file->View());
    ASSERT_GE(file->File(), 0);
    std::string end(3, ' ');
    EXPECT_EQ(3, pread(file->File(), end.data(), end.size(), 300'000));
    EXPECT_EQ("end", end);
    EXPECT_EQ(-1, write(file->File(), "y", 1)) << "what a socket still holds must not change";
    EXPECT_EQ(-1, file->Part(1, 2).File());
    EXPECT_EQ(nullptr, CopyToMemoryFile({}));
}

TEST(Guid, TheTextFormReadsBackInEitherCase)
{
    const Guid guid = Guid::CreateUnique();
    EXPECT_EQ(36U, guid.Text().size());
    EXPECT_EQ(guid, Guid::FromText(guid.Text()));
    EXPECT_EQ(Guid::FromText("0123ABCD-89ef-4567-89AB-cdef01234567")->Text(), "0123abcd-89ef-4567-89ab-cdef01234567");
    EXPECT_NE(guid, Guid::CreateUnique());
}

TEST(Guid, WhatIsNoGuidIsRefused)
{
    for (const char* text : {"", "0123abcd89ef4567 89abcdef01234567", "{0123abcd-89ef-4567-89ab-cdef01234567}",
                             "0123abcd-89ef-4567-89ab-cdef0123456", "0123abcd-89ef-4567-89ab-cdef0123456g",
                             "0123abcd-89ef-4567-89ab-cdef012345678", "0123abcd.89ef-4567-89ab-cdef01234567"}) {
        EXPECT_FALSE(Guid::FromText(text)) << text;
    }
}

TEST(Murmur3, GivesTheKnownHashesAndDoesNotDependOnHowTheInputIsCut)
{
    const auto hex = [](const Murmur3& inHash) {
        std::string text;
        for (const auto byte : inHash.Finish()) {
            char digits[3];
            std::snprintf(digits, sizeof digits, "%02x", byte);
            text += digits;
        }
        return text;
    };
    Murmur3 empty;
    EXPECT_EQ("00000000000000000000000000000000", hex(empty));
    Murmur3 fox;
    fox.Add("The quick brown fox jumps over the lazy dog");
    EXPECT_EQ("6c1b07bc7bbc4be347939ac4a93c437a", hex(fox));

    std::mt19937_64 generator(testing_support::TestSeed());
    for (int i = 0; i < 200; ++i) {
        std::string text(generator() % 200, '\0');
        for (char& character : text)
            character = static_cast<char>(generator());
        Murmur3 whole;
        whole.Add(text);
        Murmur3 pieces;
        for (std::size_t place = 0; place < text.size();) {
            const std::size_t size = std::min<std::size_t>(generator() % 20, text.size() - place);
            pieces.Add(text.data() + place, size);
            place += size;
        }
        ASSERT_EQ(hex(whole), hex(pieces));
    }
}

TEST(RecycledMemory, APartKeepsTheWholeAliveAndNeverReachesPastItsEnd)
{
    RecycledMemory part;
    {
        const auto whole = MakeRecycledMemory("header and payload");
        part = whole->Part(11, 100);
        EXPECT_TRUE(whole->Part(100, 1).empty());
    }
    EXPECT_EQ("payload", part.View());
}

TEST(RFC3339DateTime, TextsReadBackInUtc)
{
    const struct
    {
        const char* mText;
        const char* mExpected;
    } rows[] = {
        {"1970-01-01T00:00:00Z", "1970-01-01T00:00:00Z"},
        {"2026-01-31T23:59:59.1234567Z", "2026-01-31T23:59:59.1234567Z"},
        {"2026-01-31T23:59:59.120000000Z", "2026-01-31T23:59:59.12Z"},
        {"2026-01-31T23:59:59.123456789Z", "2026-01-31T23:59:59.1234567Z"},
        {"2024-02-29t12:00:00+01:30", "2024-02-29T10:30:00Z"},
        {"2016-12-31T23:59:60Z", "2017-01-01T00:00:00Z"},
        {"1969-12-31T23:59:59.5Z", "1969-12-31T23:59:59.5Z"},
        {"0001-01-01T00:00:00Z", "0001-01-01T00:00:00Z"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.mExpected, RFC3339DateTime::FromText(row.mText).Text()) << row.mText;
}

TEST(RFC3339DateTime, WhatIsNoDateIsInvalidAndHasNoText)
{
    for (const char* text : {"", "2026-01-31", "2026-02-29T00:00:00Z", "2026-13-01T00:00:00Z", "2026-01-01T24:00:00Z",
                             "2026-01-01T00:00:00", "2026-01-01T00:00:00.Z", "2026-01-01T00:00:00+1:00",
                             "2026-01-01T00:00:00Zz", "26-01-01T00:00:00Z"}) {
        EXPECT_FALSE(RFC3339DateTime::FromText(text).IsValid()) << text;
        EXPECT_EQ("", RFC3339DateTime::FromText(text).Text());
    }
}

TEST(RFC3339DateTime, SecondsOfACommitBecomeTicks)
{
    EXPECT_EQ(17000000000000000, RFC3339DateTime::FromSeconds(1700000000).Ticks());
    EXPECT_EQ("2023-11-14T22:13:20Z", RFC3339DateTime::FromSeconds(1700000000).Text());
}

}  // namespace

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/JSON.h"
#include "Tests/Support/VirtualHub.h"

namespace {

using namespace noxcore::serialization;

TEST(JSON, NumbersEscapesAndRepeatedKeysPassThroughDigitForDigit)
{
    const std::string text =
        R"({ "big" : 9007199254740993, "huge":1e400, "a":1, "a":2, "esc":"\u00e9\/\n", "deep":[[{}]] })";
    const auto minified = MinifyJSON(text);
    ASSERT_TRUE(minified);
    EXPECT_EQ(R"({"big":9007199254740993,"huge":1e400,"a":1,"a":2,"esc":"\u00e9\/\n","deep":[[{}]]})", *minified);
}

TEST(JSON, BlanksInsideStringsStay)
{
    EXPECT_EQ(R"({"a b":" c "})", MinifyJSON(" {\n\t\"a b\" : \" c \" }\r\n").value_or("refused"));
}

TEST(JSON, WhatEndsAStringIsSeenAtEveryPlaceOfIt)
{
    for (const std::string& plain :
         {std::string("a"), std::string("\x7f"), std::string("\xc3\xa9"), std::string(" ")}) {
        std::string before;
        for (int length = 0; length < 20; ++length, before += plain) {
            for (const std::string& after : {std::string(), plain, plain + before}) {
                const std::string good = "[\"" + before + R"(\")" + after + R"(\\","x"])";
                EXPECT_EQ(good, MinifyJSON(good).value_or("refused"));
                EXPECT_EQ(good, MinifyJSON("[ " + good.substr(1) + " ").value_or("refused"));
                EXPECT_FALSE(MinifyJSON("[\"" + before + "\n" + after + "\"]"));
                EXPECT_FALSE(MinifyJSON("[\"" + before + "\"" + after + "x\"]"));
                EXPECT_FALSE(MinifyJSON("[\"" + before + R"(\q)" + after + "\"]"));
                EXPECT_FALSE(MinifyJSON("[\"" + before + after));
            }
        }
    }
}

TEST(JSON, WhatIsNotWellFormedIsRefused)
{
    for (const char* text : {"",
                             " ",
                             "{",
                             "}",
                             "[1,]",
                             "{\"a\":}",
                             "{\"a\" 1}",
                             "{a:1}",
                             "[1 2]",
                             "01",
                             "1.",
                             "-",
                             "1e",
                             ".5",
                             "+1",
                             "nul",
                             "truefalse",
                             "\"\\x\"",
                             "\"\\u12g4\"",
                             "\"tab\there\"",
                             "\"open",
                             "[\"a\" \"b\"]",
                             "{} {}",
                             "1 2",
                             "[1],",
                             "{\"a\":1,}",
                             "\"\xff\"",
                             "\xEF\xBB\xBF{}",
                             "{\"a\":1 \"b\":2}",
                             "tr ue",
                             "- 1"}) {
        EXPECT_FALSE(MinifyJSON(text)) << text;
    }
}

TEST(JSON, DepthIsBoundedAndATextOfTenThousandBracketsIsRefused)
{
    const auto nested = [](std::size_t inDepth) { return std::string(inDepth, '[') + std::string(inDepth, ']'); };
    EXPECT_TRUE(MinifyJSON(nested(JSONBounds().mMaxDepth)));
    EXPECT_FALSE(MinifyJSON(nested(JSONBounds().mMaxDepth + 1)));
    EXPECT_FALSE(MinifyJSON(nested(10000)));
    EXPECT_FALSE(MinifyJSON(std::string(10000000, '[')));
}

/// Whether both ways to read a text take it under a bound; they must agree.
bool TakesUnder(const char* inKey, const char* inBound, const std::string& inText)
{
    const noxcore::HubContext::Scope scope(noxcore::HubContext::Create({}));
    noxcore::debug::DebugDatabase::Instance()->SetEntry(inKey, inBound);
    JSONDocument document;
    const bool parsed = document.Parse(inText);
    EXPECT_EQ(parsed, MinifyJSON(inText).has_value()) << inText;
    EXPECT_EQ(parsed, document.Root().Exists()) << inText;
    return parsed;
}

TEST(JSON, TheNumberOfValuesIsBoundedByASetting)
{
    constexpr const char* kKey = "VY.Config.LocalHub.JSON.MaxValues";
    EXPECT_TRUE(TakesUnder(kKey, "5", "[1,2,3,4]"));
    EXPECT_FALSE(TakesUnder(kKey, "5", "[1,2,3,4,5]"));
    EXPECT_TRUE(TakesUnder(kKey, "5", R"({"a":[1,{"b":",,,,,,"}]})"));
    EXPECT_FALSE(TakesUnder(kKey, "5", R"([{},[],"",null,true])"));
    EXPECT_TRUE(TakesUnder(kKey, "0", R"([{},[],"",null,true])")) << "no bound, so the default";
}

TEST(JSON, TheDepthIsBoundedByASetting)
{
    constexpr const char* kKey = "VY.Config.LocalHub.JSON.MaxDepth";
    EXPECT_TRUE(TakesUnder(kKey, "3", R"([{"a":[1]},[[]]])"));
    EXPECT_FALSE(TakesUnder(kKey, "3", R"([{"a":[{}]}])"));
    EXPECT_TRUE(TakesUnder(kKey, "1000", std::string(1000, '[') + std::string(1000, ']')));
}

TEST(JSON, TheKindOfTheOutermostValueComesWithItsText)
{
    using Kind = JSONValue::Kind;
    const std::pair<const char*, Kind> kinds[] = {
        {" {} ", Kind::Object},   {" [1] ", Kind::Array}, {"\"a\"", Kind::String}, {"true", Kind::Boolean},
        {"false", Kind::Boolean}, {"null", Kind::Null},   {"-1.5", Kind::Number}};
    for (const auto& [text, expected] : kinds) {
        Kind kind = Kind::Missing;
        EXPECT_TRUE(MinifyJSON(text, &kind));
        EXPECT_EQ(expected, kind) << text;
        JSONDocument document;
        EXPECT_TRUE(document.Parse(text));
        EXPECT_EQ(expected, document.Root().GetKind()) << text;
    }
}

TEST(JSON, AMemberIsFoundByItsUnescapedKeyAndTheLastOfAnEqualKeyCounts)
{
    JSONDocument document;
    ASSERT_TRUE(document.Parse(R"({"n\u0061me":"first","name":"\ud83d\ude00 \ud800","n":-12,"t":true,"x":null})"));
    std::string text;
    ASSERT_TRUE(document.Root()["name"].GetString(text));
    EXPECT_EQ("\xF0\x9F\x98\x80 \xEF\xBF\xBD", text);
    std::int64_t number = 0;
    ASSERT_TRUE(document.Root()["n"].GetInt64(number));
    EXPECT_EQ(-12, number);
    bool flag = false;
    EXPECT_TRUE(document.Root()["t"].GetBool(flag));
    EXPECT_TRUE(flag);
    EXPECT_EQ(JSONValue::Kind::Null, document.Root()["x"].GetKind());
    EXPECT_FALSE(document.Root()["absent"].Exists());
    EXPECT_FALSE(document.Root()["absent"].GetString(text));
    EXPECT_EQ("name", document.Root().Children().front().Key());
}

TEST(JSON, AWholeNumberWithFractionOrPastSixtyFourBitsIsNoInteger)
{
    JSONDocument document;
    ASSERT_TRUE(document.Parse("[1.0,1e2,9223372036854775808,9223372036854775807,-9223372036854775808]"));
    const auto children = document.Root().Children();
    std::int64_t number = 0;
    EXPECT_FALSE(children[0].GetInt64(number));
    EXPECT_FALSE(children[1].GetInt64(number));
    EXPECT_FALSE(children[2].GetInt64(number));
    EXPECT_TRUE(children[3].GetInt64(number));
    EXPECT_TRUE(children[4].GetInt64(number));
}

TEST(JSON, TheWriterSeparatesAndEscapes)
{
    JSONWriter writer;
    writer.BeginObject();
    writer.Member("text", "a\"\\\n\x01é");
    writer.Key("list");
    writer.BeginArray();
    writer.Int(-1);
    writer.Bool(true);
    writer.Null();
    writer.Double(0.5);
    writer.Raw("{\"raw\":1e400}");
    writer.BeginObject();
    writer.EndObject();
    writer.EndArray();
    writer.Member("last", "");
    writer.EndObject();
    EXPECT_EQ(R"({"text":"a\"\\\n\u0001é","list":[-1,true,null,0.5,{"raw":1e400},{}],"last":""})", writer.Text());
}

/// Damages a text at one random place.
std::string Mutate(std::string inText, std::mt19937_64& inGenerator)
{
    static constexpr char kCharacters[] = "{}[],:\"\\ 019.eE+-tfnu\n\xC3\xA9";
    const std::size_t place = inGenerator() % (inText.size() + 1);
    const char character = kCharacters[inGenerator() % (sizeof kCharacters - 1)];
    switch (inGenerator() % 3) {
        case 0:
            if (place < inText.size()) inText[place] = character;
            break;
        case 1:
            inText.insert(place, 1, character);
            break;
        default:
            if (place < inText.size()) inText.erase(place, 1 + inGenerator() % 3);
    }
    return inText;
}

TEST(JSON, AcceptsAndRefusesWhatAnotherParserDoes)
{
    std::mt19937_64 generator(testing_support::TestSeed());
    const std::string seeds[] = {R"({"a":[1,2.5e3,-0,{"b":"\u0041\n"}],"c":null,"d":true})",
                                 R"([ "x" , { } , [ ] , 0 ])", R"("text \" \\ \/ é")", "  -12.75E+2 ",
                                 R"({"":{"":{"":[]}}})"};
    int accepted = 0;
    for (int i = 0; i < 100000; ++i) {
        std::string text = seeds[generator() % std::size(seeds)];
        for (std::uint64_t changes = generator() % 3 + 1; changes > 0; --changes)
            text = Mutate(text, generator);
        const bool ours = MinifyJSON(text).has_value();
        // The other parser skips a byte order mark and refuses nothing else differently, but for numbers out of range.
        const auto theirs = nlohmann::json::parse(text, nullptr, false);
        const bool outOfRange = text.find_first_of("eE") != std::string::npos;
        if (ours != !theirs.is_discarded() && outOfRange) continue;
        ASSERT_EQ(!theirs.is_discarded(), ours) << text;
        accepted += ours ? 1 : 0;
        if (ours && !theirs.is_discarded()) {
            ASSERT_EQ(theirs, nlohmann::json::parse(*MinifyJSON(text), nullptr, false)) << text;
        }
    }
    EXPECT_GT(accepted, 1000);
}

}  // namespace

#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "Client/Wire/Asset.h"
#include "Client/Wire/AssetProperties.h"
#include "Client/Wire/OpaqueMembers.h"
#include "Client/Wire/Production.h"
#include "Tests/Support/VirtualHub.h"

namespace VantryLocalHub::dto {

namespace {

/// A production whose properties went through reading and writing once.
std::string PropertiesAfterARoundTrip(const std::string& inProperties)
{
    ProductionResource production;
    if (!FromJSON(R"({"properties" : )" + inProperties + "}", production)) {
        return "unreadable";
    }
    return std::string(FindMember(ToJSON(production), "properties"));
}

TEST(Opaque, PropertiesPassThroughDigitForDigit)
{
    for (const auto* text :
         {R"({"n":9007199254740993})", R"({"n":-0.0,"m":1.10,"o":1E+2})", R"({"n":1e400})",
          R"({"n":123456789012345678901234567890.123456789012345678901234567890})", R"({"k":1,"k":2,"k":{"k":[]}})",
          R"({"b":1,"a":2})", R"({"":"","\u0061":"\u00e9\/\ud83d\ude00é"})"}) {
        EXPECT_EQ(text, PropertiesAfterARoundTrip(text));
    }
}

TEST(Opaque, PropertiesLoseBlanksOutsideStringsOnly)
{
    EXPECT_EQ(R"({"a b":" c ","d":[1,2]})", PropertiesAfterARoundTrip("{ \"a b\" :\n\t\" c \" , \"d\" : [ 1 , 2 ] }"));
}

TEST(Opaque, DeepPropertiesPassUpToTheBoundAndAreRefusedPastIt)
{
    const auto nested = [](std::size_t inDepth) {
        return R"({"d":)" + std::string(inDepth, '[') + std::string(inDepth, ']') + "}";
    };
    const auto bound = noxcore::serialization::JSONBounds().mMaxDepth - 2;
    EXPECT_EQ(nested(bound), PropertiesAfterARoundTrip(nested(bound)));
    EXPECT_EQ("unreadable", PropertiesAfterARoundTrip(nested(bound + 1)));
    EXPECT_EQ("unreadable", PropertiesAfterARoundTrip(nested(100000)));
}

TEST(Opaque, TextThatIsNoObjectIsNoProperties)
{
    RawJSON properties(R"({"old":1})");
    for (const auto* text : {"[]", "1", "", "{", R"({"a":})", "{\"a\":\"\xff\"}", "nul"}) {
        EXPECT_FALSE(RawJSON::FromText(text, properties)) << text;
    }
    EXPECT_EQ(R"({"old":1})", properties.Text());
    EXPECT_TRUE(RawJSON::FromText("{ }", properties));
    EXPECT_EQ("{}", properties.Text());
}

TEST(OpaqueMembers, AMemberIsFoundByItsUnescapedKeyAndTheLastOneCounts)
{
    const std::string_view text = R"({"a":"}{,","\u0062":[1,{"a":2}],"a":{"c":"\"a\":3"}})";
    EXPECT_EQ(R"({"c":"\"a\":3"})", FindMember(text, "a"));
    EXPECT_EQ(R"([1,{"a":2}])", FindMember(text, "b"));
    EXPECT_EQ("", FindMember(text, "c"));
}

TEST(OpaqueMembers, SettingAMemberLeavesAllOthersAsTheyAre)
{
    RawJSON object(R"({"z":1e400,"name":"old","\u0061":[1, 2],"name":3})");
    SetTextMember(object, "name", "new \"é\"");
    EXPECT_EQ(R"({"z":1e400,"name":"new \"é\"","\u0061":[1, 2]})", object.Text());
    SetMember(object, "a", "{}");
    EXPECT_EQ(R"({"z":1e400,"name":"new \"é\"","\u0061":{}})", object.Text());
    RawJSON empty;
    SetMember(empty, "a", "1");
    SetMember(empty, "b", "2");
    EXPECT_EQ(R"({"a":1,"b":2})", empty.Text());
}

TEST(OpaqueMembers, ManyEditsAtOnceAreTheSameAsOneAfterTheOther)
{
    const RawJSON edits[] = {RawJSON(R"({"b":1,"new":[2],"\u0061":3})"), RawJSON("{}"),
                             RawJSON(R"({"new":4,"c\"d":5})")};
    for (const char* base : {"{}", R"({"a":1e400})", R"({"x":0,"b":7,"a":8,"b":9,"c\"d":{}})"}) {
        RawJSON each{base};
        RawJSON together{base};
        MemberEdits gathered;
        for (const RawJSON& edit : edits) {
            ForEachMember(edit.Text(), [&](std::string_view inKey, std::string_view inValue) {
                SetMember(each, inKey, inValue);
                return true;
            });
            gathered.Add(edit);
        }
        gathered.ApplyTo(together);
        EXPECT_EQ(each.mText, together.mText) << base;
    }
}

TEST(OpaqueMembers, BrokenTextIsNeverReadPastItsEnd)
{
    const std::string text = R"({"a":"b\"","c":[{"d":1}],"e":null})";
    for (std::size_t length = 0; length < text.size(); ++length) {
        const auto cut = std::make_unique<char[]>(length);  // its end is where the sanitizer watches
        text.copy(cut.get(), length);
        EXPECT_EQ("", FindMember({cut.get(), length}, "e"));
    }
}

nlohmann::json RandomValue(std::mt19937_64& ioRandom, int inDepth)
{
    switch (ioRandom() % (inDepth > 3 ? 4 : 6)) {
        case 0:
            return nullptr;
        case 1:
            return static_cast<std::int64_t>(ioRandom());
        case 2:
            return std::string(1 + ioRandom() % 3, "\"\\{}[],:a"[ioRandom() % 9]);
        case 3:
            return ioRandom() % 2 == 0;
        case 4: {
            auto array = nlohmann::json::array();
            for (auto count = ioRandom() % 4; count > 0; --count)
                array.push_back(RandomValue(ioRandom, inDepth + 1));
            return array;
        }
        default: {
            auto object = nlohmann::json::object();
            for (auto count = ioRandom() % 4; count > 0; --count) {
                object[std::string(1 + ioRandom() % 2, "\"\\{},:é"[ioRandom() % 6])] =
                    RandomValue(ioRandom, inDepth + 1);
            }
            return object;
        }
    }
}

TEST(OpaqueMembers, AgreeWithAnotherReaderOnRandomObjects)
{
    const auto seed = testing_support::TestSeed();
    std::mt19937_64 random(seed);
    for (int round = 0; round < 500; ++round) {
        auto object = nlohmann::json::object();
        for (int key = 0; key < 5; ++key)
            object["k" + std::to_string(random() % 8)] = RandomValue(random, 0);
        const auto text = object.dump();
        std::size_t members = 0;
        ForEachMember(text, [&](std::string_view inKey, std::string_view inValue) {
            ++members;
            EXPECT_EQ(object.at(std::string(inKey)), nlohmann::json::parse(inValue)) << "seed " << seed;
            return true;
        });
        EXPECT_EQ(object.size(), members) << text;
        RawJSON changed(text);
        SetMember(changed, "k3", "[3]");
        object["k3"] = {3};
        EXPECT_EQ(object, nlohmann::json::parse(changed.Text())) << "seed " << seed;
    }
}

TEST(AssetTraits, AreReadFromPropertiesAndIgnoreWhatIsNoText)
{
    const auto traits = ReadAssetTraits(RawJSON(
        R"({"x":{"name":"inner"},"name":"Clip \"1\"","lumo:assetType":"bin","vy:parent":7,"medi\u0061Locator":"m"})"));
    EXPECT_EQ("Clip \"1\"", traits.mName);
    EXPECT_EQ("bin", traits.mAssetType);
    EXPECT_EQ("", traits.mParent);
    EXPECT_EQ("m", traits.mMediaLocator);
    EXPECT_EQ("", ReadAssetTraits(RawJSON()).mName);
}

}  // namespace

}  // namespace VantryLocalHub::dto

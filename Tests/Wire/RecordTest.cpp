#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Client/Wire/AllRecords.h"
#include "Client/Wire/OpaqueMembers.h"
#include "Platform/noxcore/FileSupport.h"
#include "Tests/Wire/Sample.h"

namespace wire_test {

namespace {

using noxcore::serialization::MinifyJSON;

/// A value of another type than the member's; empty where any value fits.
template <class Type>
std::string WrongValue()
{
    if constexpr (detail::IsOptional<Type>::value) {
        return WrongValue<typename Type::value_type>();
    } else if constexpr (std::is_same_v<Type, RawValue>) {
        return {};
    } else if constexpr (detail::IsVector<Type>::value || std::is_same_v<Type, RawArray>) {
        return "{}";
    } else if constexpr (WireRecord<Type> || detail::IsOpaque<Type>::value) {
        return "[]";
    } else if constexpr (std::is_arithmetic_v<Type>) {
        return R"("1")";
    } else {
        return "1";
    }
}

struct Key
{
    std::string mName;
    std::string mWrongValue;
    bool mTakesNull;
};

/// What the tests ask of one record, without its type.
struct RecordCase
{
    std::string mName;
    std::vector<Key> mKeys;
    std::function<std::string(bool inWithReadOnly)> mWriteSample;
    std::function<bool(std::string_view inText)> mReads;
    std::function<bool(std::string_view inText)> mReadsAsSample;
    std::function<bool(std::string_view inText)> mReadsAsDefault;
    std::function<std::string(std::string_view inText)> mReadAndWrite;
};

template <class Owner, class Type>
Key DescribeKey(const Field<Owner, Type>& inField)
{
    const bool takesNull = detail::IsOptional<Type>::value || std::is_same_v<Type, RawValue>;
    return {std::string(inField.mKey), WrongValue<Type>(), takesNull};
}

template <class Record>
Record Filled(bool inWithReadOnly)
{
    Record record{};
    Sample(inWithReadOnly).Fill(record);
    return record;
}

template <class Record>
bool ReadsAs(std::string_view inText, const Record& inExpected)
{
    Record record{};
    return FromJSON(inText, record) && record == inExpected;
}

template <class Record>
RecordCase MakeCase(const char* inName)
{
    RecordCase result;
    result.mName = inName;
    std::apply([&](const auto&... field) { (result.mKeys.push_back(DescribeKey(field)), ...); }, Record::kFields);
    result.mWriteSample = [](bool inWithReadOnly) { return ToJSON(Filled<Record>(inWithReadOnly)); };
    result.mReads = [](std::string_view inText) {
        Record record{};
        return FromJSON(inText, record);
    };
    result.mReadsAsSample = [](std::string_view inText) { return ReadsAs(inText, Filled<Record>(false)); };
    result.mReadsAsDefault = [](std::string_view inText) { return ReadsAs(inText, Record{}); };
    result.mReadAndWrite = [](std::string_view inText) {
        Record record{};
        return FromJSON(inText, record) ? ToJSON(record) : "unreadable";
    };
    return result;
}

std::vector<RecordCase> AllCases()
{
    std::vector<RecordCase> cases;
#define ROW(Record) cases.push_back(MakeCase<Record>(#Record));
    HUB_WIRE_RECORDS(ROW)
#undef ROW
    return cases;
}

std::string Golden(const std::string& inName)
{
    std::string text;
    EXPECT_TRUE(noxcore::filesupport::Files().ReadFile(std::string(WIRE_GOLDEN_FOLDER "/") + inName + ".json", text));
    return MinifyJSON(text).value_or("not well-formed");
}

class RecordTest : public testing::TestWithParam<RecordCase>
{
protected:
    const std::string mGolden = Golden(GetParam().mName);
};

INSTANTIATE_TEST_SUITE_P(All, RecordTest, testing::ValuesIn(AllCases()),
                         [](const auto& inInfo) { return inInfo.param.mName; });

TEST_P(RecordTest, IsWrittenAsItsGoldenFileSays)
{
    EXPECT_EQ(mGolden, GetParam().mWriteSample(false));
}

TEST_P(RecordTest, IsReadBackEqualFromItsGoldenFile)
{
    EXPECT_TRUE(GetParam().mReadsAsSample(mGolden));
}

TEST_P(RecordTest, IsReadTheSameWithUnknownKeysAroundItsOwn)
{
    const std::string unknown = R"("x:unknown":{"rel":[1,{}]})";
    const std::string rest = mGolden.substr(1);
    EXPECT_TRUE(GetParam().mReadsAsSample("{" + unknown + (rest == "}" ? "" : ",") + rest));
    RawJSON text(mGolden);
    SetMember(text, "x:unknown", "null");
    EXPECT_TRUE(GetParam().mReadsAsSample(text.Text()));
}

TEST_P(RecordTest, KeepsItsDefaultsForKeysThatAreMissing)
{
    EXPECT_TRUE(GetParam().mReadsAsDefault("{}"));
    for (const auto& key : GetParam().mKeys) {
        RawJSON alone;
        const auto value = FindMember(mGolden, key.mName);
        if (!value.empty()) {
            SetMember(alone, key.mName, value);
            EXPECT_EQ(value, FindMember(GetParam().mReadAndWrite(alone.Text()), key.mName)) << key.mName;
        }
    }
}

TEST_P(RecordTest, IsRefusedWithAKeyOfTheWrongType)
{
    for (const auto& key : GetParam().mKeys) {
        RawJSON text(mGolden);
        if (!key.mWrongValue.empty()) {
            SetMember(text, key.mName, key.mWrongValue);
            EXPECT_FALSE(GetParam().mReads(text.Text())) << key.mName;
        }
        SetMember(text, key.mName, "null");
        EXPECT_EQ(key.mTakesNull, GetParam().mReads(text.Text())) << key.mName;
    }
}

TEST_P(RecordTest, IsRefusedWhereAnotherKindOfValueStands)
{
    for (const auto* text : {"[]", "null", "1", "\"\"", "", "{", "{}{}"}) {
        EXPECT_FALSE(GetParam().mReads(text)) << text;
    }
}

TEST(Record, OfAProductionThatIsSharedHasNoLocalOnlyKey)
{
    ProductionDescriptor production;
    EXPECT_EQ("", FindMember(ToJSON(production), "localhub:localOnly"));
    EXPECT_EQ("", FindMember(ToJSON(SessionResource()), "localhub:localOnly"));
    production.mLocalOnly = true;
    EXPECT_EQ("true", FindMember(ToJSON(production), "localhub:localOnly"));
    ASSERT_TRUE(FromJSON(R"({"localhub:localOnly":false})", production));
    EXPECT_FALSE(production.mLocalOnly);
}

TEST(Record, LeavesOutWhatIsOptionalAndWritesWhatIsNot)
{
    EXPECT_EQ(R"({"rel":"","href":""})", ToJSON(Link()));
    EXPECT_EQ(R"({"vy:mediaLocatorId":"","vy:created":"","vy:lastModified":"","vy:createdBy":"",)"
              R"("vy:lastModifiedBy":"","properties":{},"links":[]})",
              ToJSON(MediaLocator()));
    EXPECT_EQ("{}", ToJSON(MediaLocatorProperties()));
}

TEST(Record, ReadsKeysThatItNeverWrites)
{
    Job job;
    ASSERT_TRUE(FromJSON(R"({"jcr:created":"2026-01-31T23:59:59Z"})", job));
    EXPECT_EQ("2026-01-31T23:59:59Z", job.mCreated.Text());
    EXPECT_EQ("", FindMember(ToJSON(job), "jcr:created"));
    LoginCredentials credentials;
    ASSERT_TRUE(FromJSON(R"({"authType":"Bearer","pass":"secret","localHubAPIKey":"key"})", credentials));
    EXPECT_EQ("secret", credentials.mPass);
    EXPECT_EQ("key", credentials.mLocalHubAPIKey);
    EXPECT_EQ("{}", ToJSON(credentials));
}

TEST(Record, TakesItsValuesFromAWrappingObjectWhereItMay)
{
    SyncJobParameters parameters;
    ASSERT_TRUE(FromJSON(R"({"SerializerWrappedObject":{"direction":"Pull","priority":3}})", parameters));
    EXPECT_EQ("Pull", parameters.mDirection);
    EXPECT_EQ(3, parameters.mPriority);
    EXPECT_FALSE(FromJSON(R"({"SerializerWrappedObject":{"priority":"3"}})", parameters));
    Job job;
    ASSERT_TRUE(FromJSON(R"({"vy:parameters":{"SerializerWrappedObject":{"direction":"Push"}}})", job));
    EXPECT_EQ("Push", job.mParameters.mDirection);
    Stats stats;
    ASSERT_TRUE(FromJSON(R"({"SerializerWrappedObject":{"count":1}})", stats));
    EXPECT_EQ(0, stats.mCount);
}

TEST(Record, TellsAnEmptyListOfMediaLocatorsFromNone)
{
    SyncJobParameters parameters;
    EXPECT_EQ("", FindMember(ToJSON(parameters), "mediaLocatorIDs"));
    ASSERT_TRUE(FromJSON(R"({"mediaLocatorIDs":[]})", parameters));
    ASSERT_TRUE(parameters.mMediaLocatorIDs.has_value());
    EXPECT_EQ("[]", FindMember(ToJSON(parameters), "mediaLocatorIDs"));
}

TEST(Record, TakesWholeNumbersOfItsOwnSizeOnly)
{
    Stats stats;
    EXPECT_TRUE(FromJSON(R"({"count":2147483647})", stats));
    for (const auto* number : {"2147483648", "-2147483649", "1.5", "1e3", "9223372036854775808", "true"}) {
        EXPECT_FALSE(FromJSON(std::string(R"({"count":)") + number + "}", stats)) << number;
    }
    SizeInfo size;
    EXPECT_TRUE(FromJSON(R"({"sizeOnDisk":9223372036854775807})", size));
    EXPECT_EQ(9223372036854775807, size.mSizeOnDisk);
}

TEST(Record, TakesATimeOrAnEmptyTextAsATimeStamp)
{
    ProductionDescriptor production;
    EXPECT_TRUE(FromJSON(R"({"vy:lastModified":"2026-01-31T23:59:59.5+01:00"})", production));
    EXPECT_EQ("2026-01-31T22:59:59.5Z", production.mLastModified.Text());
    EXPECT_TRUE(FromJSON(R"({"vy:lastModified":""})", production));
    EXPECT_FALSE(production.mLastModified.IsValid());
    EXPECT_FALSE(FromJSON(R"({"vy:lastModified":"yesterday"})", production));
}

TEST(Record, RefusesAListWithOneElementThatDoesNotFit)
{
    std::vector<MediaLocator> locators;
    EXPECT_TRUE(FromJSON(R"([{"vy:mediaLocatorId":"a"},{}])", locators));
    EXPECT_EQ(2U, locators.size());
    EXPECT_FALSE(FromJSON(R"([{"vy:mediaLocatorId":"a"},1])", locators));
    EXPECT_FALSE(FromJSON("{}", locators));
    HistoryVersion version;
    EXPECT_FALSE(FromJSON(R"({"parents":["a",2]})", version));
}

TEST(Record, TakesTheLastOfAKeyThatRepeats)
{
    Link link;
    ASSERT_TRUE(FromJSON(R"({"rel":"self","rel":"next"})", link));
    EXPECT_EQ("next", link.mRel);
}

}  // namespace

}  // namespace wire_test

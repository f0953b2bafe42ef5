#include <gmock/gmock.h>

#include <random>

#include "Platform/noxnet/Forms.h"
#include "Platform/noxnet/IncomingRequest.h"
#include "Tests/Support/VirtualHub.h"

using namespace noxnet::http::server;
using noxcore::utility::MakeRecycledMemory;

namespace {

struct Field
{
    std::string mName;
    std::string mValue;
    std::string mFileName;
    bool operator==(const Field&) const = default;
};

void PrintTo(const Field& inField, std::ostream* outStream)
{
    *outStream << inField.mName << "=" << inField.mValue << " (" << inField.mFileName << ")";
}

bool Parse(const std::string& inBody, std::string_view inType, std::vector<Field>& outFields,
           std::size_t inMaxFields = 1000)
{
    std::vector<FormField> fields;
    const bool read = ParseForm(*MakeRecycledMemory(std::string(inBody)), inType, inMaxFields, fields);
    outFields.clear();
    for (const FormField& field : fields)
        outFields.push_back({field.mName, std::string(field.mValue.View()), field.mFileName});
    return read;
}

constexpr std::string_view kMultipart = "multipart/form-data; boundary=xyz";
constexpr std::string_view kURLEncoded = "application/x-www-form-urlencoded";

std::string Part(const std::string& inHead, const std::string& inContent)
{
    return "--xyz\r\nContent-Disposition: form-data; " + inHead + "\r\n\r\n" + inContent + "\r\n";
}

std::string RandomText(std::mt19937_64& ioRandom, std::string_view inAlphabet, std::size_t inLongest)
{
    std::string text(ioRandom() % (inLongest + 1), ' ');
    for (char& letter : text)
        letter = inAlphabet[ioRandom() % inAlphabet.size()];
    return text;
}

std::string PercentEncoded(std::string_view inText)
{
    std::string text;
    for (const char letter : inText) {
        char buffer[4];
        std::snprintf(buffer, sizeof(buffer), "%%%02X", static_cast<unsigned char>(letter));
        text += std::isalnum(static_cast<unsigned char>(letter)) != 0 ? std::string(1, letter) : buffer;
    }
    return text;
}

}  // namespace

TEST(Forms, ThePartsOfAMultipartBodyShareItsMemory)
{
    const auto body = MakeRecycledMemory(Part("name=\"a\"", "first") +
                                         Part("name=\"b\"; filename=\"f.bin\"", "second") + "--xyz--\r\n");
    std::vector<FormField> fields;
    ASSERT_TRUE(ParseForm(*body, kMultipart, 10, fields));
    ASSERT_EQ(2U, fields.size());
    EXPECT_EQ("second", fields[1].mValue.View());
    EXPECT_EQ("f.bin", fields[1].mFileName);
    EXPECT_GE(fields[1].mValue.data(), body->data());
    EXPECT_LE(fields[1].mValue.data() + fields[1].mValue.size(), body->data() + body->size());
}

TEST(Forms, MultipartNamesMayBeQuotedEscapedOrPlain)
{
    std::vector<Field> fields;
    EXPECT_TRUE(Parse(Part("name=plain", "1") + Part("filename=\"x;y\"; name=\"a\\\"b%22c\"", "2") +
                          "--xyz \r\ncontent-disposition:form-data;NAME=\"assets+1+properties\"\r\n"
                          "Content-Type: application/json\r\n\r\n{}\r\n--xyz--",
                      "Multipart/Form-Data; charset=utf-8; boundary=\"xyz\"", fields));
    EXPECT_THAT(fields, testing::ElementsAre(Field{"plain", "1", ""}, Field{"a\"b\"c", "2", "x;y"},
                                             Field{"assets+1+properties", "{}", ""}));
}

TEST(Forms, AMultipartContentMayHoldWhatLooksLikeABoundary)
{
    std::vector<Field> fields;
    const std::string content = "\r\n--xy\r\n--xyzz\r\n--xyz-\r\n--";
    EXPECT_TRUE(Parse("preamble\r\n" + Part("name=a", content) + "--xyz--epilogue", kMultipart, fields));
    EXPECT_THAT(fields, testing::ElementsAre(Field{"a", content, ""}));
}

TEST(Forms, EmptyFormsAndEmptyPartsAreForms)
{
    std::vector<Field> fields;
    EXPECT_TRUE(Parse("", kMultipart, fields));
    EXPECT_TRUE(Parse("", "", fields));
    EXPECT_TRUE(Parse("--xyz--", kMultipart, fields));
    EXPECT_TRUE(fields.empty());
    EXPECT_TRUE(Parse(Part("name=a", "") + "--xyz--", kMultipart, fields));
    EXPECT_THAT(fields, testing::ElementsAre(Field{"a", "", ""}));
    EXPECT_TRUE(Parse("--xyz\r\nContent-Disposition: form-data; name=a\r\n\r\n--xyz--", kMultipart, fields));
    EXPECT_THAT(fields, testing::ElementsAre(Field{"a", "", ""}));
}

TEST(Forms, BrokenMultipartBodiesAreRefusedWithoutFields)
{
    const std::string good = Part("name=a", "1") + Part("name=b", "2") + "--xyz--";
    std::vector<Field> fields;
    ASSERT_TRUE(Parse(good, kMultipart, fields));
    for (std::size_t size = 1; size < good.size(); ++size)
        EXPECT_FALSE(Parse(good.substr(0, size), kMultipart, fields)) << size;
    EXPECT_TRUE(fields.empty());
    EXPECT_FALSE(Parse(good, "multipart/form-data", fields));
    EXPECT_FALSE(Parse(good, "multipart/form-data; boundary=", fields));
    EXPECT_FALSE(Parse(good, "multipart/form-data; boundary=\"xyz", fields));
    EXPECT_FALSE(Parse(good, "multipart/form-data; boundary=other", fields));
    EXPECT_FALSE(Parse(good, "text/plain", fields));
    EXPECT_FALSE(Parse(Part("filename=f", "1") + "--xyz--", kMultipart, fields)) << "no name";
    EXPECT_FALSE(Parse("--xyz\r\nnonsense\r\n\r\n1\r\n--xyz--", kMultipart, fields));
    EXPECT_FALSE(Parse("--xyz\r\nX: " + std::string(20000, 'x') + "\r\n\r\n1\r\n--xyz--", kMultipart, fields));
}

TEST(Forms, MoreFieldsThanTheBoundAreRefusedInEveryForm)
{
    std::vector<Field> fields;
    EXPECT_TRUE(Parse(Part("name=a", "1") + Part("name=b", "2") + "--xyz--", kMultipart, fields, 2));
    EXPECT_FALSE(Parse(Part("name=a", "1") + Part("name=b", "2") + "--xyz--", kMultipart, fields, 1));
    EXPECT_TRUE(Parse("a=1&b=2", kURLEncoded, fields, 2));
    EXPECT_FALSE(Parse("a=1&b=2", kURLEncoded, fields, 1));
    EXPECT_TRUE(Parse("{\"a\":1,\"b\":2}", "application/json", fields, 2));
    EXPECT_FALSE(Parse("{\"a\":1,\"b\":2}", "application/json", fields, 1));
}

TEST(Forms, URLEncodedFieldsAreDecoded)
{
    std::vector<Field> fields;
    EXPECT_TRUE(Parse("a=1&&b%3D=x+y%26&c&=d&e=%zz%4", "Application/X-WWW-Form-Urlencoded; charset=utf-8", fields));
    EXPECT_THAT(fields, testing::ElementsAre(Field{"a", "1", ""}, Field{"b=", "x y&", ""}, Field{"c", "", ""},
                                             Field{"", "d", ""}, Field{"e", "%zz%4", ""}));
}

TEST(Forms, TheMembersOfAJSONObjectAreFields)
{
    std::vector<Field> fields;
    EXPECT_TRUE(Parse(R"({":commitMessage": "a\n\"b\"", "n": 1.50, "o": {"p": [1, 2]}, "t": true, "z": null})",
                      "application/json; charset=utf-8", fields));
    EXPECT_THAT(fields,
                testing::ElementsAre(Field{":commitMessage", "a\n\"b\"", ""}, Field{"n", "1.50", ""},
                                     Field{"o", "{\"p\":[1,2]}", ""}, Field{"t", "true", ""}, Field{"z", "null", ""}));
    EXPECT_FALSE(Parse("{\"a\":", "application/json", fields));
    EXPECT_TRUE(Parse("[1]", "application/json", fields));
    EXPECT_TRUE(fields.empty());
}

TEST(Forms, RandomFieldsComeBackFromEachEncoding)
{
    std::mt19937_64 random(testing_support::TestSeed());
    for (int round = 0; round < 500; ++round) {
        std::vector<Field> sent(random() % 6);
        std::string multipart;
        std::string urlEncoded;
        for (Field& field : sent) {
            field.mName = RandomText(random, "ab+:%-;=é", 8);
            field.mValue = RandomText(random, "ab\r\n-xyz%&=+\"", 60);
            if (field.mName.find("%22") != std::string::npos || field.mValue.find("\r\n--xyz") != std::string::npos)
                field = {"n", "v", ""};
            multipart += Part("name=\"" + field.mName + "\"", field.mValue);
            urlEncoded += "&" + PercentEncoded(field.mName) + "=" + PercentEncoded(field.mValue);
        }
        std::vector<Field> received;
        ASSERT_TRUE(Parse(multipart + "--xyz--\r\n", kMultipart, received)) << multipart;
        ASSERT_EQ(sent, received);
        ASSERT_TRUE(Parse(urlEncoded, kURLEncoded, received));
        ASSERT_EQ(sent, received);
    }
}

TEST(MadeRequest, HeadersQueryAndFormAreReadAsFromASocket)
{
    const auto request =
        MakeRequest("POST", "/api/x?view=CONDENSED&url=a%2Fb+c&view=2&flag#part&no=1",
                    {{"X-One", "1"}, {"content-type", std::string(kURLEncoded)}}, MakeRecycledMemory("k=v"));
    EXPECT_EQ("/api/x", request->Path());
    EXPECT_EQ("POST", request->Method().View());
    EXPECT_EQ("1", request->Header("x-ONE"));
    EXPECT_EQ("", request->Header("X-Two"));
    EXPECT_EQ("CONDENSED", request->QueryValue("view"));
    EXPECT_EQ("a/b c", request->QueryValue("url"));
    EXPECT_EQ("", request->QueryValue("flag"));
    EXPECT_EQ("", request->QueryValue("no"));
    std::vector<FormField> fields;
    ASSERT_TRUE(request->FormFields(fields));
    ASSERT_EQ(1U, fields.size());
    EXPECT_EQ("v", fields[0].mValue.View());
}

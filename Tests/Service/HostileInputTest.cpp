#include <algorithm>
#include <fstream>
#include <functional>

#include "Tests/Service/DescribedServicesFixture.h"
#include "Tools/apidoc/Statuses.h"

// What no client should send, to everything that can be asked: answered as it is described, and soon.

namespace service_test {

namespace {

constexpr std::size_t kManyFields = 100'000;
constexpr std::size_t kDepth = 10'000;
constexpr std::string_view kForm = "application/x-www-form-urlencoded";
constexpr std::string_view kMultipart = "multipart/form-data; boundary=cut";
constexpr std::string_view kJSON = "application/json";

/// What a sanitizer keeps of memory that was freed.
#ifdef __has_feature
constexpr std::size_t kKeptBySanitizer = __has_feature(address_sanitizer) ? std::size_t{256} << 20 : 0;
#else
constexpr std::size_t kKeptBySanitizer = 0;
#endif

/// A body and the type that it claims.
struct Body
{
    std::string mWhat;
    std::string_view mType;
    std::string mBytes;
    bool mIsBroken = false;  ///< no form and no JSON that the hub takes
};

std::string Repeat(std::size_t inCount, const std::function<std::string(std::size_t)>& inPart)
{
    std::string text;
    for (std::size_t i = 0; i < inCount; ++i)
        text += inPart(i);
    return text;
}

std::string Nested(std::string_view inOpening, std::string_view inClosing)
{
    return Repeat(kDepth, [&](std::size_t) { return std::string(inOpening); }) + "0" +
           Repeat(kDepth, [&](std::size_t) { return std::string(inClosing); });
}

const std::vector<Body>& LargeBodies()
{
    static const std::vector<Body> kBodies = {
        {"a form of many fields", kForm,
         Repeat(kManyFields, [](std::size_t i) { return "field" + std::to_string(i) + "=x&"; })},
        {"a form of one field many times", kForm,
         Repeat(kManyFields, [](std::size_t) { return "assets%2Ba%2Bname=x&"; })},
        {"a multipart form of many parts", kMultipart,
         Repeat(kManyFields,
                [](std::size_t i) {
                    return "--cut\r\nContent-Disposition: form-data; name=\"" + std::to_string(i) + "\"\r\n\r\nx\r\n";
                }) +
             "--cut--\r\n"},
        {"a JSON object of many members", kJSON,
         "{" + Repeat(kManyFields, [](std::size_t i) { return "\"" + std::to_string(i) + "\":0,"; }) + "\"last\":0}"},
    };
    return kBodies;
}

const std::vector<Body>& SmallBodies()
{
    static const std::vector<Body> kBodies = {
        {"objects nested too deep", kJSON, Nested("{\"a\":", "}"), true},
        {"arrays nested too deep", kJSON, Nested("[", "]"), true},
        {"JSON that ends early", kJSON, "{\"a\":", true},
        {"JSON that is no UTF-8", kJSON, "{\"a\":\"\xff\xfe\"}", true},
        {"a JSON text", kJSON, "\"text\"", true},
        {"a JSON null", kJSON, "null", true},
        {"percent-encoded nonsense", kForm, "%=%&%zz=%f&%00=%ff%fe&a%u0041=+%2&%%%", true},
        {"a multipart form that ends early", kMultipart, "--cut\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\nx",
         true},
        {"a type that is none", "no/type", std::string("\0\x01\x02", 3), true},
        {"one field twice", kForm, "a=1&a=2"},
    };
    return kBodies;
}

/// The fields that an operation knows, each with that value, twice.
Body KnownFields(const Operation& inOperation, const std::string& inWhat, const std::string& inValue)
{
    FormFields fields = {{"assets+a+properties", inValue}, {"assets+a+properties", inValue}};
    if (!inOperation.mBodyFields.empty()) fields.clear();
    for (const API::Field& field : inOperation.mBodyFields)
        fields.insert(fields.end(), 2, {std::string(field.mKey.View()), inValue});
    return {inWhat, kForm, FormOf(fields)};
}

bool TakesBody(const Operation& inOperation)
{
    return inOperation.mBody != API::BodyKind::None;
}

/// Bytes of this process's memory: what it uses now ("VmRSS"), or has ever used ("VmHWM").
std::size_t MemoryOf(const std::string& inKey)
{
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);)
        if (line.starts_with(inKey + ":")) return std::stoull(line.substr(inKey.size() + 1)) * 1024;
    ADD_FAILURE() << "no " << inKey;
    return 0;
}

class HostileInputTest : public DescribedServicesTest
{
protected:
    /// Sends it, and expects a status that the API describes for the operation; no failure of the hub is one.
    int Expect(const Resource& inResource, const Operation& inOperation, const std::string& inTarget,
               const Body& inBody)
    {
        const std::string method(inOperation.mMethod);
        const int status =
            Send(method, inTarget, inBody.mBytes, WithHost("Content-Type", std::string(inBody.mType))).Status();
        const bool isRefused = status == 400 || status == 404;
        const bool isDescribed = apidoc::StatusesOf(inResource, inOperation).contains(status);
        EXPECT_TRUE(isRefused || isDescribed)
            << method << " " << inTarget << " with " << inBody.mWhat << ": " << status;
        EXPECT_TRUE(status < 500 || status == 501) << method << " " << inTarget << " with " << inBody.mWhat;
        return status;
    }
    void SendBody(const Resource& inResource, const Operation& inOperation, const Body& inBody)
    {
        const std::string path = PathOf(inOperation);
        const int status = Expect(inResource, inOperation, path, inBody);
        if (!inBody.mIsBroken || !TakesBody(inOperation) || inOperation.mBodyIsOptional) return;
        EXPECT_GE(status, 400) << inOperation.mMethod << " " << path << " with " << inBody.mWhat;
    }
};

TEST_F(HostileInputTest, NoBodyHoweverStrangeGetsMoreThanItsRefusal)
{
    const std::string deep = Nested("[", "]");
    ForEachOperation([&](const Resource& inResource, const Operation& inOperation) {
        for (const Body& body : SmallBodies())
            SendBody(inResource, inOperation, body);
        if (!TakesBody(inOperation)) return;
        SendBody(inResource, inOperation, KnownFields(inOperation, "its fields nested too deep", deep));
        SendBody(inResource, inOperation, KnownFields(inOperation, "nonsense in its fields", "%zz\x01\xff"));
        SendBody(inResource, inOperation, KnownFields(inOperation, "its fields twice", "-"));
    });
}

TEST_F(HostileInputTest, AFormOfAHundredThousandFieldsTakesNoMoreMemoryThanItsFieldsNeed)
{
    std::size_t largest = 0;
    for (const Body& body : LargeBodies())
        largest = std::max(largest, body.mBytes.size());
    HaveProduction();
    const std::size_t before = MemoryOf("VmRSS");
    ForEachOperation([&](const Resource& inResource, const Operation& inOperation) {
        if (!TakesBody(inOperation)) return;
        for (const Body& body : LargeBodies())
            SendBody(inResource, inOperation, body);
    });
    // A field takes about 13 bytes of a body, and a note of 130 in each list that it is gathered in while that grows.
    EXPECT_LT(MemoryOf("VmHWM"), before + kKeptBySanitizer + 40 * largest);
}

TEST_F(HostileInputTest, NoQueryGetsMoreThanItsRefusal)
{
    const std::string values[] = {"-1", "100000000000000000000", "0", "1e400", "%zz%", "%00%ff", "HEAD%00", ""};
    ForEachOperation([&](const Resource& inResource, const Operation& inOperation) {
        for (const std::string_view key : inOperation.mQueryKeys)
            for (const std::string& value : values)
                for (const std::string& again : {std::string(), "&" + std::string(key) + "=" + value}) {
                    const std::string query = "?" + std::string(key) + "=" + value + again;
                    Expect(inResource, inOperation, PathOf(inOperation) + query, {"nothing", kJSON, "{}"});
                }
    });
}

TEST_F(HostileInputTest, NoElementOfAPathGetsMoreThanItsRefusal)
{
    const std::string values[] = {"%ZZ", "%00", "%ff%fe", "..%2F..", "*", "-", ".", std::string(5000, 'a')};
    ForEachOperation([&](const Resource& inResource, const Operation& inOperation) {
        for (const std::string& name : apidoc::NamesInPath(inOperation.mPath.Named()))
            for (const std::string& value : values)
                Expect(inResource, inOperation, PathOf(inOperation, name, value), {"nothing", kJSON, ""});
    });
}

TEST_F(HostileInputTest, AHistoryStartsAndCountsWithinItsNumbers)
{
    HaveProduction();
    const std::string path = "/api/history/" + mProduction;
    const std::pair<std::string, int> rows[] = {{"?startIndex=-1", 400},
                                                {"?startIndex=100000000000000000000", 400},
                                                {"?startIndex=2147483648", 400},
                                                {"?startIndex=2147483647", 200},
                                                {"?startIndex=%00", 400},
                                                {"?count=-1", 400},
                                                {"?count=100000000000000000000", 400},
                                                {"?count=0", 200},
                                                {"?startIndex=HEAD&count=0", 200},
                                                {"?startIndex=-0", 400},
                                                {"?startIndex=0x1", 400}};
    for (const auto& [query, status] : rows) {
        const auto answer = Send("GET", path + query);
        EXPECT_EQ(status, answer.Status()) << query;
        if (status != 200) continue;
        JSONDocument body;
        ASSERT_TRUE(body.Parse(answer.Body()));
        EXPECT_TRUE(body.Root()["versions"].IsArray() && body.Root()["versions"].Children().empty()) << query;
        EXPECT_EQ("2", body.Root()["stats"]["totalResults"].Raw());
    }
}

}  // namespace

}  // namespace service_test

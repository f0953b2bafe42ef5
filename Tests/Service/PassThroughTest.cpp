#include "Tests/Service/StoreServicesFixture.h"

// What belongs to the editing application comes back as it was sent.

namespace service_test {

namespace {

const std::string kAsset = "11111111-2222-4333-8444-555555555555";
const std::string kDeepest = std::string(500, '[') + std::string(500, ']');
/// Numbers that no machine number holds, keys that repeat or are empty, escapes of every kind, and nesting.
const std::string kOwn =
    R"("n":9007199254740993,"big":123456789012345678901234567890.10,"huge":1e400,"tiny":-1E-400,)"
    R"("zero":-0.0,"e":1E+2,"k":1,"k":{"k":2},"k":[],"":null,"\u006b":"\ud83d\ude00\u0000\/\u00E9é",)"
    R"("lone":"\ud800","q\"\\":true,"deep":)" +
    kDeepest;

std::string Object(const std::string& inFirst)
{
    return "{" + inFirst + "," + kOwn + "}";
}

class PassThroughTest : public StoreServicesTest
{
protected:
    static void ExpectIn(const Answer& inAnswer, const std::string& inText)
    {
        EXPECT_TRUE(inAnswer.Status() == 200 || inAnswer.Status() == 201) << inAnswer.Status();
        EXPECT_NE(std::string::npos, inAnswer.Body().find(inText)) << inAnswer.Body().substr(0, 1000);
    }
    void Restart()
    {
        SyncBox::Instance()->Terminate();
        SyncBox::Close();
        ProjectBox::Close();
        ProjectBox::SetInstance(std::make_shared<GitBox::GitBox>(true));
        SyncBox::SetInstance(std::make_shared<HubSync>());
    }
};

TEST_F(PassThroughTest, PropertiesOfAProductionAreWhatTheClientSent)
{
    const std::string made = Object(R"("name":"Film")");
    const auto created = Send("POST", "/api/productions?localOnly=true", made);
    ExpectIn(created, "\"properties\":" + made);
    JSONDocument body;
    ASSERT_TRUE(body.Parse(created.Body()));
    mProduction = Text(body.Root()["vy:parentProductionId"]);

    const auto expectEverywhere = [this](const std::string& inProperties) {
        const std::string text = "\"properties\":" + inProperties;
        ExpectIn(GetAtHead("production"), text);
        ExpectIn(GetAtHead("production", "/properties"), text);
        ExpectIn(Send("GET", "/api/productions"), text);
        ExpectIn(Send("GET", "/api/sessions/" + mProduction), text);
    };
    expectEverywhere(made);
    const std::string edited = Object(R"("name":"Recut")");
    const std::string target = "/api/production/" + mProduction + "/HEAD/properties";
    ExpectIn(Send("PUT", target, R"({"properties": )" + edited + " }"), "\"properties\":" + edited);
    expectEverywhere(edited);
    const std::string transaction = Open();
    const std::string again = Object(R"("name":"Recut twice")");
    EXPECT_EQ(
        200,
        Send("PUT", target, R"({"vy:transactionId":")" + transaction + R"(","properties":)" + again + "}").Status());
    ASSERT_EQ(200, Commit(transaction));
    Restart();
    expectEverywhere(again);
}

TEST_F(PassThroughTest, PropertiesOfAnAssetAreWhatTheClientSent)
{
    const auto expectEverywhere = [this](const std::string& inProperties) {
        const std::string text = "\"properties\":" + inProperties;
        ExpectIn(GetAtHead("asset", "/" + kAsset), text);
        ExpectIn(GetAtHead("assets"), text);
    };
    const std::string row = "assets+" + kAsset;
    const std::string made = Object(R"("name":"Clip")");
    Apply("bulkCreate", {{row + "+properties", made}});
    expectEverywhere(made);
    const std::string first = GetAtHead("asset", "/" + kAsset).Header("ETag");

    // A member that the hub sets leaves all the others as they are.
    Apply("bulkEdit", {{row + "+name", "Renamed"}});
    expectEverywhere(Object(R"("name":"Renamed")"));
    const std::string put = Object(R"("name":"Put")");
    Apply("bulkEdit", {{row + "+properties", "{ " + put.substr(1)}});
    expectEverywhere(put);
    Restart();
    expectEverywhere(put);
    EXPECT_EQ(200, Send("POST", "/api/asset/" + mProduction + "/HEAD/" + kAsset + "/restore/" + first).Status());
    expectEverywhere(made);
}

TEST_F(PassThroughTest, PropertiesOfAMediaLocatorAreWhatTheClientSent)
{
    const std::string path = "/api/medialocators/" + mProduction;
    const auto locator = [](const std::string& inID, const std::string& inProperties) {
        return R"({"vy:mediaLocatorId":")" + inID + R"(","properties":)" + inProperties + "}";
    };
    const auto expectOf = [&](const std::string& inID, const std::string& inProperties) {
        const std::string text = "\"properties\":" + inProperties;
        ExpectIn(Send("GET", path + "/byMediaLocatorId/" + inID), text);
        ExpectIn(Send("GET", path + "/all"), text);
    };
    const std::string one = Object(R"("href":"file:///one")");
    EXPECT_EQ(200, Send("POST", path + "/all", FormOf({{":medialocator", locator("m-1", one)}}),
                        WithHost("Content-Type", "application/x-www-form-urlencoded"))
                       .Status());
    const std::string two = Object(R"("href":"file:///two")");
    EXPECT_EQ(200, Send("POST", path + "/bulkCreate", "[" + locator("m-2", two) + "]").Status());
    expectOf("m-1", one);
    expectOf("m-2", two);

    // An edit sets the members that it names, and leaves all the others as they are.
    const std::string edit = locator("m-1", R"({"displayName":1e400})");
    const auto putEdit = [&](const std::string& inText) {
        return Send("PUT", path + "/byMediaLocatorId/m-1", FormOf({{":medialocator", inText}}),
                    WithHost("Content-Type", "application/x-www-form-urlencoded"))
            .Status();
    };
    EXPECT_EQ(400, putEdit(edit)) << "of a key that the hub knows, the kind is checked";
    EXPECT_EQ(200, putEdit(locator("m-1", R"({"displayName":"b","own":1e400})")));
    const std::string edited = one.substr(0, one.size() - 1) + R"(,"displayName":"b","own":1e400})";
    expectOf("m-1", edited);
    Restart();
    expectOf("m-1", edited);
    expectOf("m-2", two);
}

TEST_F(PassThroughTest, PayloadsOfEnclosuresAreWhatTheClientSent)
{
    std::string bytes;
    for (int value = 0; value < 256; ++value)
        bytes.push_back(static_cast<char>(value));
    bytes += "\r\n--cut--\r\n" + kOwn;
    const std::string enclosure = "aaaaaaaa-2222-4333-8444-555555555555";
    Apply("bulkCreate", {{"assets+" + kAsset + "+name", "Clip"},
                         {"enclosures+" + enclosure + "+content+" + kAsset, bytes},
                         {"enclosures+" + enclosure + "+content", bytes}});
    EXPECT_EQ(bytes, GetAtHead("asset", "/" + kAsset + "/enclosureById/" + enclosure).Body());
    EXPECT_EQ(bytes, GetAtHead("production", "/enclosure/" + enclosure).Body());

    const auto form = WithHost("Content-Type", "application/x-www-form-urlencoded");
    const auto created = Send("POST", "/api/user/ann@example.com/enclosures/" + mProduction,
                              FormOf({{":name", "layout"}, {":enclosure", bytes}}), form);
    ASSERT_EQ(200, created.Status());
    const std::string url = created.Header("Location");
    const std::string place = url.substr(url.find("/api/"));
    EXPECT_EQ(bytes, Send("GET", place).Body());
    EXPECT_EQ(200, Send("PUT", place, FormOf({{":enclosure", kOwn}}), form).Status());
    Restart();
    EXPECT_EQ(kOwn, Send("GET", place).Body());
}

}  // namespace

}  // namespace service_test

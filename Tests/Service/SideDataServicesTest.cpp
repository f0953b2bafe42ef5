#include "Client/VYClient/Environment.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/SystemDb.h"
#include "Tests/Service/ServiceFixture.h"
#include "Tests/Support/TempFolder.h"

// Media locators, user enclosures, the current user and preferences.

namespace service_test {

namespace {

namespace Relation = VYCL::LinkRelation;
using testing::Invoke;
using testing::SaveArg;

constexpr const char* kBase = "http://127.0.0.1:7777";
constexpr const char* kLocator = R"({"vy:mediaLocatorId":"m-1","properties":{"href":"file:///a","own":1e400}})";

class SideDataServicesTest : public ServiceFixture
{
protected:
    SideDataServicesTest()
    {
        mContext->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(mHome.Path()));
        mContext->SetInstance(std::make_shared<SystemDb::Location>(SystemDb::Location{mHome.Path()}));
    }
    void SetUp() override
    {
        RegisterAll();
        EXPECT_CALL(*mStore, GetLastModifiedMediaLocatorTime).WillRepeatedly(Return(200));
    }

    Answer SendForm(const std::string& inMethod, const std::string& inPath, const FormFields& inFields)
    {
        return Send(inMethod, inPath, FormOf(inFields), WithHost("Content-Type", "application/x-www-form-urlencoded"));
    }
    static dto::MediaLocator MakeLocator(const std::string& inID)
    {
        dto::MediaLocator locator;
        locator.mMediaLocatorID = inID;
        locator.mProperties.mText = R"({"href":"file:///a","own":1e400})";
        return locator;
    }
    std::string Preference(const std::string& inBody, std::size_t inIndex)
    {
        JSONDocument body;
        EXPECT_TRUE(body.Parse(inBody));
        return std::string(body.Root()["preferences"].Children().at(inIndex).Raw());
    }

    testing_support::TempFolder mHome;
};

TEST_F(SideDataServicesTest, LocatorsAreListedWithTheirTimeAndLinks)
{
    const auto time = dto::RFC3339DateTime::FromText("2026-01-02T03:04:05Z");
    EXPECT_CALL(*mStore, GetLastModifiedMediaLocatorTime).WillRepeatedly(DoAll(SetArgReferee<1>(time), Return(200)));
    EXPECT_CALL(*mStore, GetMediaLocators(ImmutableString("s-1"), _))
        .WillRepeatedly(DoAll(SetArgReferee<1>(std::vector{MakeLocator("m-1")}), Return(200)));
    const auto answer = Send("GET", "/api/medialocators/s-1/all");
    ASSERT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ(R"("2026-01-02T03:04:05Z")", body.Root()["vy:lastModified"].Raw());
    const auto row = body.Root()["medialocators"].Children().at(0);
    EXPECT_EQ(R"({"href":"file:///a","own":1e400})", row["properties"].Raw());
    for (const char* relation : {"self", "edit"})
        EXPECT_EQ(std::string(kBase) + "/api/medialocators/s-1/byMediaLocatorId/m-1", FindLink(row["links"], relation));
    EXPECT_EQ(304,
              Send("GET", "/api/medialocators/s-1/all", {}, WithHost("If-None-Match", answer.Header("ETag"))).Status());
}

TEST_F(SideDataServicesTest, TheTimeOfAListOfLocatorsIsNotNewerThanTheList)
{
    const testing::InSequence inOrder;
    EXPECT_CALL(*mStore, GetLastModifiedMediaLocatorTime).WillOnce(Return(200));
    EXPECT_CALL(*mStore, GetMediaLocators).WillOnce(Return(200));
    EXPECT_EQ(200, Send("GET", "/api/medialocators/s-1/all").Status());
}

TEST_F(SideDataServicesTest, ALocatorThatTheStoreDoesNotHaveIsWhatTheStoreSays)
{
    EXPECT_CALL(*mStore, GetMediaLocator(ImmutableString("s-1"), ImmutableString("m 1"), _))
        .WillOnce(DoAll(SetArgReferee<2>(MakeLocator("m 1")), Return(200)))
        .WillOnce(Return(404));
    const auto answer = Send("GET", "/api/medialocators/s-1/byMediaLocatorId/m%201");
    EXPECT_EQ(200, answer.Status());
    EXPECT_NE(std::string::npos, answer.Body().find("byMediaLocatorId/m%201"));
    EXPECT_EQ(404, Send("GET", "/api/medialocators/s-1/byMediaLocatorId/m%201").Status());
    EXPECT_EQ(400, Send("GET", "/api/medialocators/s-1/byMediaLocatorId").Status());
}

TEST_F(SideDataServicesTest, ALocatorIsAddedByAForm)
{
    std::vector<dto::MediaLocator> all;
    EXPECT_CALL(*mSync, AddMediaLocators(ImmutableString("s-1"), _))
        .WillRepeatedly(DoAll(SaveArg<1>(&all), Return(201)));
    auto answer = SendForm("POST", "/api/medialocators/s-1/all", {{":medialocator", kLocator}});
    EXPECT_EQ(201, answer.Status());
    EXPECT_EQ("m-1", all.front().mMediaLocatorID.View());
    EXPECT_EQ(R"({"href":"file:///a","own":1e400})", all.front().mProperties.mText);
    EXPECT_EQ(std::string(kBase) + "/api/medialocators/s-1/byMediaLocatorId/m-1", answer.Header("Location"));
    answer = SendForm("POST", "/api/medialocators/s-1/all", {{":medialocator", kLocator}, {":id", "m-2"}});
    EXPECT_EQ("m-2", all.front().mMediaLocatorID.View());
}

TEST_F(SideDataServicesTest, FormsOfALocatorThatCannotBeReadAreRefused)
{
    const std::string all = "/api/medialocators/s-1/all";
    EXPECT_EQ(400, SendForm("POST", all, {{":medialocator", "{"}}).Status());
    EXPECT_EQ(1U, LogCount("JSON not well-formed"));
    EXPECT_EQ(400, SendForm("POST", all, {}).Status());
    EXPECT_EQ(400, SendForm("POST", all, {{"medialocator", kLocator}}).Status());
    EXPECT_EQ(400, SendForm("POST", all, {{":medialocator", "[]"}}).Status());
    EXPECT_EQ(400, SendForm("POST", all, {{":medialocator", R"({"vy:mediaLocatorId":7})"}}).Status());
    EXPECT_EQ(400, Send("POST", all, "nonsense", WithHost("Content-Type", "text/plain")).Status());
    EXPECT_EQ(5U, LogCount("MediaLocatorsService: Bad form element"));
}

TEST_F(SideDataServicesTest, ALocatorIsEditedThroughTheEngineUnderTheIdOfItsURL)
{
    dto::MediaLocator edited;
    EXPECT_CALL(*mSync, EditMediaLocators(ImmutableString("s-1"), testing::An<dto::MediaLocator&>()))
        .WillOnce(DoAll(SaveArg<1>(&edited), Return(200)))
        .WillOnce(Return(404));
    const std::string one = "/api/medialocators/s-1/byMediaLocatorId/m-1";
    EXPECT_EQ(200, SendForm("PUT", one, {{":medialocator", R"({"properties":{"href":"x"}})"}}).Status());
    EXPECT_EQ("m-1", edited.mMediaLocatorID.View());
    EXPECT_EQ(404, SendForm("PUT", one, {{":medialocator", kLocator}}).Status());
    EXPECT_EQ(400, SendForm("PUT", one, {{":medialocator", kLocator}, {":id", "m-2"}}).Status());
}

TEST_F(SideDataServicesTest, ManyLocatorsComeAsAnArrayOrACollection)
{
    std::vector<dto::MediaLocator> added;
    EXPECT_CALL(*mSync, AddMediaLocators(ImmutableString("s-1"), _))
        .WillRepeatedly(DoAll(SaveArg<1>(&added), Return(200)));
    const std::string array = "[" + std::string(kLocator) + R"(,{"vy:mediaLocatorId":"m-2"}])";
    for (const std::string& body : {array, R"({"medialocators":)" + array + "}"}) {
        added.clear();
        const auto answer = Send("POST", "/api/medialocators/s-1/bulkCreate", body);
        EXPECT_EQ(200, answer.Status());
        ASSERT_EQ(2U, added.size());
        EXPECT_EQ("m-2", added[1].mMediaLocatorID.View());
        EXPECT_NE(std::string::npos, answer.Body().find("byMediaLocatorId/m-2"));
    }
    EXPECT_CALL(*mSync, EditMediaLocators(ImmutableString("s-1"), testing::An<std::vector<dto::MediaLocator>&>()))
        .WillOnce(Return(404));
    EXPECT_EQ(404, Send("PUT", "/api/medialocators/s-1/bulkUpdate", array).Status());
}

TEST_F(SideDataServicesTest, ManyLocatorsOfWhichOneIsUnreadableAreRefused)
{
    for (const std::string body :
         {R"([{"vy:mediaLocatorId":"m-1"},7])", R"([{}])", "{}", "7", R"({"medialocators":7})"})
        EXPECT_EQ(400, Send("POST", "/api/medialocators/s-1/bulkCreate", body).Status()) << body;
    EXPECT_EQ(5U, LogCount("MediaLocatorsService: Bad form element"));
    EXPECT_EQ(400, Send("PUT", "/api/medialocators/s-1/bulkUpdate", "[").Status());
    EXPECT_EQ(1U, LogCount("JSON not well-formed"));
}

TEST_F(SideDataServicesTest, OnlyLocatorsNewerThanTheTimeOfTheURLAreAdded)
{
    std::vector<dto::MediaLocator> added;
    EXPECT_CALL(*mSync, AddMediaLocators).WillOnce(DoAll(SaveArg<1>(&added), Return(200)));
    const std::string body = R"([{"vy:mediaLocatorId":"old","vy:lastModified":"2026-01-01T00:00:00Z"},
        {"vy:mediaLocatorId":"new","vy:lastModified":"2026-01-01T00:00:01Z"},{"vy:mediaLocatorId":"timeless"}])";
    const std::string path = "/api/medialocators/s-1/bulkCreateByLastModified/";
    EXPECT_EQ(200, Send("POST", path + "2026-01-01T00%3A00%3A00Z", body).Status());
    ASSERT_EQ(2U, added.size());
    EXPECT_EQ("new", added[0].mMediaLocatorID.View());
    EXPECT_EQ(400, Send("POST", path + "yesterday", body).Status());
    EXPECT_EQ(400, Send("POST", "/api/medialocators/s-1/bulkCreateByLastModified", body).Status());
    EXPECT_EQ(200, Send("POST", path + "2027-01-01T00%3A00%3A00Z", "[]").Status());  // nothing is written
}

TEST_F(SideDataServicesTest, IdsThatNoLinkCanHoldAndPropertiesOfAWrongTypeAreRefusedBeforeAnyWrite)
{
    const std::string bulk = "/api/medialocators/s-1/bulkCreate";
    std::string wide;
    for (int i = 0; i < 200; ++i)
        wide += "\xc3\xa9";
    for (const std::string& id : {std::string(2100, 'a'), wide, std::string()})
        EXPECT_EQ(400, Send("POST", bulk, R"([{"vy:mediaLocatorId":")" + id + R"(","properties":{}}])").Status());
    EXPECT_EQ(400, Send("POST", bulk, R"([{"vy:mediaLocatorId":"m","properties":{"href":5}}])").Status());
    const FormFields form = {{":medialocator", R"({"properties":{}})"}, {":id", "\xff\xfe"}};
    EXPECT_EQ(400, SendForm("POST", "/api/medialocators/s-1/all", form).Status());
    EXPECT_EQ(5U, LogCount("MediaLocatorsService: Bad form element"));
}

TEST_F(SideDataServicesTest, ALocatorThatNoLinkCanHoldDoesNotHideTheOthers)
{
    EXPECT_CALL(*mStore, GetMediaLocators)
        .WillOnce(
            DoAll(SetArgReferee<1>(std::vector{MakeLocator(std::string(3000, 'a')), MakeLocator("m-1")}), Return(200)));
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/medialocators/s-1/all").Body()));
    EXPECT_EQ("[]", body.Root()["medialocators"].Children().at(0)["links"].Raw());
    EXPECT_NE("", FindLink(body.Root()["medialocators"].Children().at(1)["links"], "self"));
}

TEST_F(SideDataServicesTest, TextsThatAreNotUTF8AreRefused)
{
    EXPECT_EQ(400, SendForm("POST", "/api/preferences/save", {{"autosaveLocation", "/\xff"}}).Status());
    EXPECT_EQ(400, SendForm("POST", "/api/preferences/save", {{"autosaveLocation", std::string("/a\0b", 4)}}).Status());
    EXPECT_EQ(400, SendForm("POST", "/api/user/-/enclosures/s-1", {{":enclosure", "x"}, {":name", "\xff"}}).Status());
    EXPECT_EQ(400,
              SendForm("POST", "/api/user/-/enclosures/s-1/" + std::string(2100, 'a'), {{":enclosure", "x"}}).Status());
    EXPECT_EQ(400, Send("GET", "/api/user/%FF/enclosures/s-1").Status());
    EXPECT_CALL(*mStore, AddUserEnclosure).WillOnce(Return(201));
    EXPECT_EQ(201, SendForm("POST", "/api/user/-/enclosures/s-1", {{":enclosure", "\xff"}}).Status());
}

TEST_F(SideDataServicesTest, DeletingManyLocatorsIsNeverDone)
{
    EXPECT_EQ(501, Send("POST", "/api/medialocators/s-1/bulkDelete", "[]").Status());
    EXPECT_EQ(501, Send("POST", "/api/medialocators/s-1/bulkDelete").Status());
}

TEST_F(SideDataServicesTest, NobodySignedInIsAUserOfEmptyTexts)
{
    const auto answer = Send("GET", "/api/user/-/currentUser");
    ASSERT_EQ(200, answer.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(answer.Body()));
    EXPECT_EQ(R"("")", body.Root()["vy:userId"].Raw());
    EXPECT_EQ(R"("")", body.Root()["properties"]["email"].Raw());
    EXPECT_EQ(std::string(kBase) + "/api/user/-/currentUser", FindLink(body.Root()["links"], "self"));
}

TEST_F(SideDataServicesTest, TheUserIsTheOneOfTheLastLogin)
{
    SystemDb::AddOrUpdateSystemEnclosure("LastUserEmail", "ann@example.com");
    SystemDb::AddOrUpdateSystemEnclosure("LastPersonGUID", "person-1");
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/user/-/currentUser").Body()));
    EXPECT_EQ(R"("person-1")", body.Root()["vy:userId"].Raw());
    EXPECT_EQ(R"("ann@example.com")", body.Root()["properties"]["email"].Raw());
}

TEST_F(SideDataServicesTest, ANewProductionIsTheLastUsers)
{
    SystemDb::AddOrUpdateSystemEnclosure("LastUserEmail", "ann@example.com");
    EXPECT_CALL(*mSync, CreateSession(_, ImmutableString("ann@example.com"), true, _)).WillOnce(Return(507));
    EXPECT_EQ(507, Send("POST", "/api/productions?localOnly=true", R"({"name":"Film"})").Status());
}

TEST_F(SideDataServicesTest, EnclosuresOfAUserAreListedAndRead)
{
    dto::UserEnclosure enclosure;
    enclosure.mEnclosureID = "e-1";
    enclosure.mEtag = "tag-1";
    EXPECT_CALL(*mStore, GetUserEnclosures(ImmutableString("s-1"), ImmutableString("ann@example.com"), _))
        .WillOnce(DoAll(SetArgReferee<2>(std::vector{enclosure}), Return(200)));
    JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/user/ann%40example.com/enclosures/s-1").Body()));
    EXPECT_EQ(std::string(kBase) + "/api/user/ann%40example.com/enclosures/s-1/e-1",
              FindLink(body.Root()["enclosures"].Children().at(0)["links"], Relation::EnclosuresEnclosureUser()));
    EXPECT_CALL(*mStore, GetUserEnclosure(_, ImmutableString("ann@example.com"), ImmutableString("e-1"), _, _))
        .WillRepeatedly(DoAll(SetArgReferee<3>(enclosure),
                              SetArgReferee<4>(noxcore::utility::CopyToRecycledMemory("bytes")), Return(200)));
    const std::string one = "/api/user/ann%40example.com/enclosures/s-1/e-1";
    const auto answer = Send("GET", one);
    EXPECT_EQ("bytes", answer.Body());
    EXPECT_EQ("application/octet-stream", answer.Header("Content-Type"));
    EXPECT_EQ(304, Send("GET", one, {}, WithHost("If-None-Match", "tag-1")).Status());
    EXPECT_EQ(400, Send("GET", "/api/user/-/enclosures").Status());
    EXPECT_EQ(404, Send("GET", "/api/user/-/other/s-1").Status());
}

TEST_F(SideDataServicesTest, AHyphenStandsForTheCurrentUser)
{
    SystemDb::AddOrUpdateSystemEnclosure("LastUserEmail", "ann@example.com");
    EXPECT_CALL(*mStore, GetUserEnclosures(ImmutableString("s-1"), ImmutableString("ann@example.com"), _))
        .WillOnce(Return(404));
    EXPECT_EQ(404, Send("GET", "/api/user/-/enclosures/s-1").Status());
}

TEST_F(SideDataServicesTest, AnEnclosureOfAUserIsAddedAndUpdatedByAForm)
{
    std::string payload;
    const auto take = [&](const ImmutableString&, const ImmutableString&, WriteMode,
                          const ConstRecycledMemoryPtr& inPayload, dto::UserEnclosure& ioEnclosure) {
        payload = inPayload ? inPayload->View() : "none";
        if (ioEnclosure.mEnclosureID.empty()) ioEnclosure.mEnclosureID = "e-new";
        ioEnclosure.mEtag = "tag";
        return 201;
    };
    EXPECT_CALL(*mStore, AddUserEnclosure).WillOnce(Invoke(take));
    const auto added = SendForm("POST", "/api/user/-/enclosures/s-1", {{":enclosure", "bytes"}, {":name", "n"}});
    EXPECT_EQ(201, added.Status());
    EXPECT_EQ("bytes", payload);
    EXPECT_EQ(std::string(kBase) + "/api/user/-/enclosures/s-1/e-new", added.Header("Location"));
    EXPECT_NE(std::string::npos, added.Body().find(R"("name":"n")"));
    EXPECT_CALL(*mStore, UpdateUserEnclosure).WillOnce(Invoke(take));
    EXPECT_EQ(201, SendForm("PUT", "/api/user/-/enclosures/s-1/e-1", {{":name", "m"}}).Status());
    EXPECT_EQ("none", payload);
    EXPECT_EQ(400, SendForm("POST", "/api/user/-/enclosures/s-1", {{":name", "n"}}).Status());
    EXPECT_EQ(400, SendForm("PUT", "/api/user/-/enclosures/s-1", {{":name", "n"}}).Status());
    EXPECT_EQ(400, SendForm("PUT", "/api/user/-/enclosures/s-1/e-1", {{"other", "n"}}).Status());
}

TEST_F(SideDataServicesTest, PreferencesThatNobodySetAreTheirDefaults)
{
    const auto answer = Send("GET", "/api/preferences/read");
    ASSERT_EQ(200, answer.Status());
    EXPECT_NE(std::string::npos, Preference(answer.Body(), 0).find(R"("name":"AutosaveLocation")"));
    EXPECT_NE(std::string::npos, Preference(answer.Body(), 0).find(R"("isDefault":true)"));
    EXPECT_EQ(R"({"name":"SetAutosaveToRope","value":"false","isDefault":true})", Preference(answer.Body(), 1));
    EXPECT_EQ(304, Send("GET", "/api/preferences/read", {}, WithHost("If-None-Match", answer.Header("ETag"))).Status());
}

TEST_F(SideDataServicesTest, SavedPreferencesStay)
{
    const FormFields fields = {{"autosaveLocation", "/films"}, {"setAutosaveToRope", "true"}, {"unknown", "x"}};
    EXPECT_EQ(200, SendForm("POST", "/api/preferences/save", fields).Status());
    const auto answer = Send("GET", "/api/preferences/read");
    EXPECT_EQ(R"({"name":"AutosaveLocation","value":"/films","isDefault":false})", Preference(answer.Body(), 0));
    EXPECT_EQ(R"({"name":"SetAutosaveToRope","value":"true","isDefault":false})", Preference(answer.Body(), 1));
}

TEST_F(SideDataServicesTest, OneBadPreferenceKeepsAllFromBeingSaved)
{
    EXPECT_EQ(400,
              SendForm("POST", "/api/preferences/save", {{"autosaveLocation", "/films"}, {"setAutosaveToRope", "yes"}})
                  .Status());
    EXPECT_EQ(R"(ReadForm: setAutosaveToRope: Expected either "true" or "false")",
              LogValue("PreferencesService: Bad form element", "exception"));
    EXPECT_EQ(400, SendForm("POST", "/api/preferences/save", {{"autosaveLocation", "films"}}).Status());
    EXPECT_EQ(400, SendForm("POST", "/api/preferences/save", {}).Status());
    EXPECT_EQ(400, Send("POST", "/api/preferences/save", "{").Status());
    EXPECT_EQ(4U, LogCount("PreferencesService: Bad form element"));
    EXPECT_NE(std::string::npos,
              Preference(Send("GET", "/api/preferences/read").Body(), 0).find(R"("isDefault":true)"));
}

TEST_F(SideDataServicesTest, APosterFrameIsWhatIsKeptHere)
{
    EXPECT_CALL(*mStore, GetProduction).WillRepeatedly(DoAll(SetArgReferee<2>(MakeSession()), Return(200)));
    EXPECT_CALL(*mStore, GetSession).WillRepeatedly(DoAll(SetArgReferee<1>(MakeSession()), Return(200)));
    EXPECT_EQ(404, Send("GET", "/api/poster/p-1").Status());
    EXPECT_EQ(404, Send("GET", "/api/poster/p-1/rendition").Status());
    SystemDb::AddOrUpdateSystemEnclosure("PosterFrameProperties", R"({"md5":"abc","properties":{"w":1}})");
    SystemDb::AddOrUpdateSystemEnclosure("PosterFrameRendition", "image");
    const auto frame = Send("GET", "/api/poster/p-1");
    ASSERT_EQ(200, frame.Status());
    JSONDocument body;
    ASSERT_TRUE(body.Parse(frame.Body()));
    EXPECT_EQ(R"("abc")", body.Root()["md5"].Raw());
    EXPECT_EQ(std::string(kBase) + "/api/poster/p-1", FindLink(body.Root()["links"], "self"));
    EXPECT_EQ(304, Send("GET", "/api/poster/p-1", {}, WithHost("If-None-Match", frame.Header("ETag"))).Status());
    const auto image = Send("GET", "/api/poster/p-1/rendition");
    EXPECT_EQ("image", image.Body());
    EXPECT_EQ(304,
              Send("GET", "/api/poster/p-1/rendition", {}, WithHost("If-None-Match", image.Header("ETag"))).Status());
}

TEST_F(SideDataServicesTest, APosterFrameIsNeverPosted)
{
    EXPECT_EQ(405, Send("POST", "/api/poster/p-1", "{}").Status());
    EXPECT_EQ(1U, LogCount("POST method is no longer supported"));
}

}  // namespace

}  // namespace service_test

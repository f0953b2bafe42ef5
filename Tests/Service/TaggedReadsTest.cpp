#include <set>

#include "Tests/Service/DescribedServicesFixture.h"
#include "Tools/apidoc/Statuses.h"

// Whoever has the newest answer already gets no other.

namespace service_test {

namespace {

class TaggedReadsTest : public DescribedServicesTest
{
protected:
    TaggedReadsTest()
    {
        HaveProduction();
        const std::string user = "/api/user/-/enclosures/" + mProduction;
        const auto made = Send("POST", user, FormOf({{":name", "layout"}, {":enclosure", "bytes"}}),
                               WithHost("Content-Type", "application/x-www-form-urlencoded"));
        EXPECT_EQ(200, made.Status());
        mUserEnclosure = made.Header("Location").substr(made.Header("Location").rfind('/') + 1);
        JSONDocument asset;
        EXPECT_TRUE(asset.Parse(GetAtHead("asset", "/" + kAsset).Body()));
        mContent = Text(asset.Root()["enclosures"].Children().at(0)["vy:dataContentId"]);
    }
    std::string ValueOf(const API::PathParameter& inParameter) override
    {
        return inParameter.mName == "contentId" ? mContent : DescribedServicesTest::ValueOf(inParameter);
    }

    std::string mContent;
    std::string mUserEnclosure;
};

TEST_F(TaggedReadsTest, EachReadThatIsDescribedWithATagHasOneAndIsNotAnsweredTwice)
{
    std::set<std::string> unanswered;
    std::size_t answered = 0;
    ForEachOperation([&](const Resource& inResource, const Operation& inOperation) {
        if (inOperation.mMethod != "GET" || !inOperation.mIsTagged) return;
        const bool isOfUser = inResource.mService == "CurrentUserService";
        const std::string path = isOfUser ? PathOf(inOperation, "enclosureId", mUserEnclosure) : PathOf(inOperation);
        const auto answer = Send("GET", path);
        if (answer.Status() != 200) {
            unanswered.insert(std::to_string(answer.Status()) + " " + std::string(inOperation.mPath.mTemplate));
            return;
        }
        ++answered;
        const std::string tag = answer.Header("ETag");
        EXPECT_FALSE(tag.empty()) << path;
        const auto again = Send("GET", path, {}, WithHost("If-None-Match", tag));
        EXPECT_EQ(304, again.Status()) << path;
        EXPECT_EQ(tag, again.Header("ETag")) << path;
        EXPECT_EQ("", again.Body()) << path;
        EXPECT_EQ(200, Send("GET", path, {}, WithHost("If-None-Match", "another")).Status()) << path;
    });
    // Of a server, of a template, and of a poster frame, which this production has not.
    const std::set<std::string> expected = {"404 /api/poster/%s",
                                            "404 /api/template/collaborators/%s",
                                            "404 /api/template/recipients/%s",
                                            "404 /api/template/template/%s",
                                            "501 /api/activity/%s",
                                            "501 /api/batons/%s",
                                            "501 /api/collaborators/{productionId}",
                                            "501 /api/invites?type={inviteType}",
                                            "501 /api/presence/%s"};
    EXPECT_EQ(expected, unanswered);
    EXPECT_LE(30U, answered);
}

}  // namespace

}  // namespace service_test

#include "Inc/Sync/PosterFrameManifold.h"

#include "Tests/Sync/StoreFixture.h"

namespace VantryLocalHub {
namespace {

class PosterFrameManifoldTest : public StoreFixture
{
protected:
    PosterFrameManifoldTest()
    {
        Have("s1", "c1");
        Have("s2", "c1");
        Lack("gone");
    }

    static void Keep(const char* inKey, const std::string& inValue)
    {
        EXPECT_EQ(200, SystemDb::AddOrUpdateSystemEnclosure(inKey, inValue));
    }
    static std::string Image(const ImmutableString& inProductionID, int inStatus)
    {
        noxcore::utility::ConstRecycledMemoryPtr image;
        EXPECT_EQ(inStatus, PosterFrameManifold::LoadPosterFrameRendition(inProductionID, image));
        return image ? std::string(image->View()) : "none";
    }

    dto::PosterFrame mFrame;
};

TEST_F(PosterFrameManifoldTest, AFrameIsAnsweredAsItIsKept)
{
    Keep("PosterFrameProperties",
         R"({"md5":"abc","metadata":{"width":1.0},"properties":{"name":"localhubPosterFrame"},"rendition":7,)"
         R"("links":[{"rel":"self","href":"/elsewhere"}]})");
    const std::string bytes("\xFF\xD8\0\x01", 4);
    Keep("PosterFrameRendition", bytes);
    ASSERT_EQ(200, PosterFrameManifold::LoadPosterFrame("p-s1", mFrame));
    EXPECT_EQ(R"({"md5":"abc","metadata":{"width":1.0},"properties":{"name":"localhubPosterFrame"},"rendition":7,)"
              R"("links":[]})",
              dto::ToJSON(mFrame));
    EXPECT_EQ(bytes, Image("p-s1", 200));
    EXPECT_EQ(bytes, Image("s1", 200));
}

TEST_F(PosterFrameManifoldTest, WithoutAFrameOrAProductionNothingIsFound)
{
    mFrame.mMd5 = "kept";
    EXPECT_EQ(404, PosterFrameManifold::LoadPosterFrame("p-s1", mFrame));
    Keep("PosterFrameRendition", "an image without a record");
    EXPECT_EQ("none", Image("p-s1", 404));
    Keep("PosterFrameProperties", "{}");
    EXPECT_EQ(404, PosterFrameManifold::LoadPosterFrame("gone", mFrame));
    EXPECT_EQ("none", Image("gone", 404));
    EXPECT_EQ("kept", mFrame.mMd5);
}

TEST_F(PosterFrameManifoldTest, AFrameWithoutAnImageHasNoRendition)
{
    Keep("PosterFrameProperties", R"({"md5":"abc"})");
    EXPECT_EQ(200, PosterFrameManifold::LoadPosterFrame("p-s1", mFrame));
    EXPECT_EQ("none", Image("p-s1", 404));
    Keep("PosterFrameRendition", "");
    EXPECT_EQ("none", Image("p-s1", 404));
}

TEST_F(PosterFrameManifoldTest, AFrameThatNamesItsProductionIsOfNoOther)
{
    Keep("PosterFrameProperties", R"({"md5":"abc","metadata":{"vy:productionId":"p-s2"}})");
    Keep("PosterFrameRendition", "bytes");
    EXPECT_EQ(404, PosterFrameManifold::LoadPosterFrame("p-s1", mFrame));
    EXPECT_EQ("none", Image("p-s1", 404));
    EXPECT_EQ(200, PosterFrameManifold::LoadPosterFrame("p-s2", mFrame));
    EXPECT_EQ("bytes", Image("s2", 200)) << "by the session's id too";
}

TEST_F(PosterFrameManifoldTest, ARecordThatCannotBeReadIsAFailureThatIsLogged)
{
    for (const char* bad : {"", "no JSON", "[]", R"({"md5":7})"}) {
        Keep("PosterFrameProperties", bad);
        EXPECT_EQ(500, PosterFrameManifold::LoadPosterFrame("p-s1", mFrame)) << bad;
    }
    EXPECT_EQ(4U, mLog->Count("PosterFrameService: Bad frame properties enclosure"));
    ProjectBox::SetInstance(nullptr);
    EXPECT_EQ(500, PosterFrameManifold::LoadPosterFrame("p-s1", mFrame));
}

}  // namespace
}  // namespace VantryLocalHub

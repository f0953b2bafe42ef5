#include <gtest/gtest.h>

#include "Client/VYClient/EnclosureNames.h"
#include "Client/VYClient/History.h"
#include "Client/VYClient/Interfaces.h"
#include "Client/VYClient/LocalHub.h"
#include "Client/VYClient/UTF16.h"

namespace VYCL {

namespace {

TEST(Results, CarryAStatusInTheirLowBits)
{
    EXPECT_EQ(static_cast<int>(0xA0450130U), GetResultFromStatusCode(304));
    EXPECT_EQ(static_cast<int>(0xA0450191U), GetResultFromStatusCode(401));
    EXPECT_EQ(static_cast<int>(0xA0450197U), GetResultFromStatusCode(407));
    EXPECT_EQ(static_cast<int>(0xA0450199U), GetResultFromStatusCode(409));
    EXPECT_EQ(static_cast<int>(0xA04501F7U), GetResultFromStatusCode(503));
    for (int status = 100; status < 600; ++status) {
        const bool succeeded = noxnet::IsSuccessfulHTTPStatus(status);
        EXPECT_EQ(succeeded, GetResultFromStatusCode(status) >= 0) << status;
        EXPECT_EQ(succeeded ? 200 : status, GetStatusCodeFromResult(GetResultFromStatusCode(status))) << status;
    }
}

TEST(Results, WithoutAStatusAreAServerError)
{
    for (const int result : {eAsyncRequestCancelled, eAsyncRequestFailed, noxcore::eGeneralFailure,
                             noxcore::eUserCanceled, -1, GetResultFromStatusCode(0), GetResultFromStatusCode(-7)}) {
        EXPECT_LT(result, 0);
        EXPECT_EQ(500, GetStatusCodeFromResult(result)) << result;
    }
}

TEST(Results, OfALoadSucceedWhenNothingIsNew)
{
    EXPECT_TRUE(LoadResultSucceeded(0));
    EXPECT_TRUE(LoadResultSucceeded(GetResultFromStatusCode(304)));
    EXPECT_FALSE(LoadResultSucceeded(GetResultFromStatusCode(404)));
    EXPECT_FALSE(LoadResultSucceeded(eAsyncRequestCancelled));
}

TEST(Results, TellACancellationFromAFailure)
{
    EXPECT_TRUE(ResultSucceededOrCanceled(0));
    EXPECT_TRUE(ResultSucceededOrCanceled(eAsyncRequestCancelled));
    EXPECT_TRUE(ResultSucceededOrCanceled(noxcore::eUserCanceled));
    EXPECT_FALSE(ResultSucceededOrCanceled(GetResultFromStatusCode(304)));
    EXPECT_FALSE(ResultSucceededOrCanceled(eAsyncRequestFailed));
}

TEST(ServerElement, IsHostAndPortInAFormForFoldersAndURIs)
{
    using LocalHub::MakeEscapedServerAndPortURIElement;
    EXPECT_EQ("hub.example%3A443", MakeEscapedServerAndPortURIElement("https://Hub.Example/x?y#z"));
    EXPECT_EQ("hub.example%3A80", MakeEscapedServerAndPortURIElement("HTTP://user:pw@hub.example"));
    EXPECT_EQ("hub.example%3A8443", MakeEscapedServerAndPortURIElement("https://hub.example:8443/"));
    EXPECT_EQ("%5B%3A%3A1%5D%3A443", MakeEscapedServerAndPortURIElement("https://[::1]"));
    EXPECT_EQ("hub.example", MakeEscapedServerAndPortURIElement("hub.example"));
    EXPECT_EQ("", MakeEscapedServerAndPortURIElement(""));
    EXPECT_EQ("hub.example%25zz%20x", MakeEscapedServerAndPortURIElement("hub.example%zz x"));
    EXPECT_EQ("hub%252", MakeEscapedServerAndPortURIElement("hub%2"));
}

TEST(ServerElement, StaysAsItIsOnceItIsEscaped)
{
    const auto element = LocalHub::MakeEscapedServerAndPortURIElement("https://hub.example");
    EXPECT_EQ(element, LocalHub::MakeEscapedServerAndPortURIElement(element));
}

TEST(ServerElement, NeverLeadsOutOfItsFolder)
{
    for (const auto* url : {"..", ".", "x://..", "x://.", "https://../../x", "https://a/../b", "/..", "https://\n"}) {
        const auto element = LocalHub::MakeEscapedServerAndPortURIElement(url);
        EXPECT_NE("..", element) << url;
        EXPECT_NE(".", element) << url;
        EXPECT_EQ(std::string::npos, element.find('/')) << url;
    }
}

TEST(Strategies, AreKnownByTheirWordsAlone)
{
    EXPECT_EQ(IVYCServerResource::MergeStrategy::AcceptTheirs, MergeStrategyFromString("accept-theirs"));
    EXPECT_EQ(IVYCServerResource::ResolveStrategy::AcceptYours, ResolveStrategyFromString("accept-yours"));
    for (const auto* text : {"", "accept", "Accept-Theirs", "accept-yours "}) {
        EXPECT_EQ(IVYCServerResource::MergeStrategy::Unknown, MergeStrategyFromString(text)) << text;
        EXPECT_EQ(IVYCServerResource::ResolveStrategy::Unknown, ResolveStrategyFromString(text)) << text;
    }
}

TEST(Server, IsNoneWhileNobodyIsSignedIn)
{
    EXPECT_EQ(nullptr, IVYCDataServer::GetLoggedInServerRef());
}

TEST(Server, HasOneLockForAllOfAContext)
{
    EXPECT_EQ(&IVYCDataServer::GetLock(), &IVYCDataServer::GetLock());
}

TEST(Address, IsFoldedToOneForm)
{
    EXPECT_EQ("ada@corvane.example", IVYCCollaborator::FoldEmailAddress(" Ada@Corvane.EXAMPLE\n"));
    EXPECT_EQ("é@x", IVYCCollaborator::FoldEmailAddress("é@X"));
    EXPECT_EQ("", IVYCCollaborator::FoldEmailAddress(" \t"));
}

TEST(Credentials, DifferInWhateverTheyHold)
{
    VYSCredentials first;
    VYSCredentials second;
    EXPECT_EQ(GetAuthTokenType_None(), first.GetAuthTokenType());
    EXPECT_TRUE(first == second);
    second.SetAuthTokenType(GetAuthTokenType_Bearer());
    EXPECT_TRUE(first != second);
    first = second;
    second.SetLocalHubAPIKey("key");
    EXPECT_TRUE(first != second);
    EXPECT_EQ("key", LocalHub::GetAPIKey(second));
    EXPECT_EQ("", LocalHub::GetAPIKey(first));
}

TEST(Credentials, TakeTheTokenOutOfABearerValue)
{
    EXPECT_EQ("abc", LoginUtils::BearerTokenToAccessToken("Bearer abc"));
    EXPECT_EQ("abc", LoginUtils::BearerTokenToAccessToken(" bearer   abc\r\n"));
    EXPECT_EQ("abc", LoginUtils::BearerTokenToAccessToken("abc"));
    EXPECT_EQ("", LoginUtils::BearerTokenToAccessToken(""));
}

TEST(EnclosureNames, OfUserDataAreKnownByTheirPrefix)
{
    EXPECT_TRUE(IsProductionUserDataEnclosureName(GetProductionUserDataEnclosureName("layout")));
    for (const auto* name : {"", "layout", "_userdata.", "_userdata", "x_userdata.y", "_xmp"}) {
        EXPECT_FALSE(IsProductionUserDataEnclosureName(name)) << name;
    }
    EXPECT_NE(GetPreSyncHeadCommitIdEnclosureName("s"), GetPostSyncBaseCommitIdEnclosureName("s"));
    EXPECT_NE(GetPreSyncHeadCommitIdEnclosureName("s"), GetPreSyncHeadCommitIdEnclosureName("t"));
}

TEST(EnclosureNames, OfXMPMayNameAPart)
{
    std::string part = "before";
    EXPECT_TRUE(IsXMPEnclosureName("_xmp", part));
    EXPECT_EQ("", part);
    EXPECT_TRUE(IsXMPEnclosureName("_xmp.sidecar", part));
    EXPECT_EQ("sidecar", part);
    for (const auto* name : {"", "xmp", "_xmp.", "_xmpsidecar"}) {
        EXPECT_FALSE(IsXMPEnclosureName(name, part)) << name;
        EXPECT_EQ("", part);
    }
}

TEST(CommitMetadata, IsReadFromATitleAndPlainTextIsItsMessage)
{
    CommitMetadata metadata;
    EXPECT_TRUE(GetCommitMetadataFromTitle(
        R"({"commitMessage":"m","metadata":{"machineID":"x"},"commitMessageCode":6,"localCommitID":"c"})", metadata));
    EXPECT_EQ("c", metadata.mLocalCommitID);
    EXPECT_EQ("x", metadata.mMetadata.mMachineID);
    EXPECT_FALSE(GetCommitMetadataFromTitle("first take", metadata));
    EXPECT_EQ("first take", metadata.mCommitMessage);
    EXPECT_EQ("", metadata.mLocalCommitID);
}

TEST(CommitMetadata, OfAVersionComesFromItsTitleOrElseItsMessage)
{
    VantryLocalHub::dto::HistoryVersion version;
    CommitMetadata metadata;
    version.mTitle = "plain";
    EXPECT_FALSE(GetCommitMetadataFromHistoryVersion(version, metadata));
    EXPECT_EQ("plain", metadata.mCommitMessage);
    version.mInfo.mMessage = R"({"SerializerWrappedObject":{"localCommitID":"c","localSessionID":"s"}})";
    EXPECT_TRUE(GetCommitMetadataFromHistoryVersion(version, metadata));
    EXPECT_EQ("s", metadata.mLocalSessionID);
}

TEST(UTF16, SurvivesTheWayThroughUTF8)
{
    const std::u16string text = u"aé\u4e2d\U0001F600\u0000z";
    EXPECT_EQ(text, ToUTF16(ToUTF8(text)));
    EXPECT_EQ("a\xc3\xa9\xe4\xb8\xad\xf0\x9f\x98\x80", ToUTF8(u"aé\u4e2d\U0001F600"));
}

TEST(UTF16, PutsAReplacementForWhatIsBroken)
{
    EXPECT_EQ("a\xef\xbf\xbd", ToUTF8(std::u16string(u"a") + char16_t(0xD800)));
    EXPECT_EQ(
        "\xef\xbf\xbd"
        "b",
        ToUTF8(std::u16string(1, char16_t(0xDC00)) + u"b"));
    EXPECT_EQ(u"\uFFFD\uFFFDb", ToUTF16("\xc0\xaf"
                                        "b"));                  // overlong
    EXPECT_EQ(u"\uFFFD\uFFFD", ToUTF16("\xe4\xb8"));            // cut short
    EXPECT_EQ(u"\uFFFD\uFFFD\uFFFD", ToUTF16("\xed\xa0\x80"));  // a surrogate
}

TEST(Time, IsShownByDateAndTime)
{
    std::u16string text = u"before";
    PosixTimeToOSSpecificString(VantryLocalHub::dto::RFC3339DateTime(17000000000000005), text);
    EXPECT_EQ(u"2023-11-14 22:13:20", text);
    PosixTimeToOSSpecificString({}, text);
    EXPECT_EQ(u"", text);
}

}  // namespace

}  // namespace VYCL

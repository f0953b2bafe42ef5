#include "Inc/Service/TransactionForm.h"

#include <boost/regex.hpp>
#include <iostream>
#include <random>

#include "Tests/Service/ServiceFixture.h"

namespace service_test {

namespace {

TransactionFormKey MatchWithBoost(const boost::regex& inExpression, const std::string& inKey, bool& outMatches)
{
    boost::smatch match;
    TransactionFormKey key;
    outMatches = boost::regex_match(inKey, match, inExpression);
    if (!outMatches) return key;
    const auto group = [&](int inIndex) {
        const auto& part = match[inIndex];
        return part.matched ? std::string_view(inKey).substr(static_cast<std::size_t>(part.first - inKey.begin()),
                                                             static_cast<std::size_t>(part.length()))
                            : std::string_view();
    };
    return {group(1), group(2), group(3), group(4), group(5)};
}

TEST(TransactionFormKeys, GroupsAreThoseOfTheExpression)
{
    const std::uint64_t seed = testing_support::TestSeed();
    std::cout << "seed " << seed << "\n";
    std::mt19937_64 random(seed);
    const boost::regex expression{std::string(kTransactionFormKeyExpression)};
    constexpr std::string_view kAlphabet = "aZ9_-+++:. \n\x80";
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (std::size_t left = random() % 14; left > 0; --left)
            text += kAlphabet[random() % kAlphabet.size()];
        bool expected = false;
        const TransactionFormKey oracle = MatchWithBoost(expression, text, expected);
        TransactionFormKey key;
        ASSERT_EQ(expected, MatchTransactionFormKey(text, key)) << testing::PrintToString(text);
        if (expected) {
            ASSERT_EQ(oracle, key) << testing::PrintToString(text);
        }
    }
}

TEST(TransactionFormKeys, AKeyWithoutJointIsRefusedAndALongOneIsNoTrouble)
{
    TransactionFormKey key;
    EXPECT_FALSE(MatchTransactionFormKey("assets", key));
    EXPECT_FALSE(MatchTransactionFormKey("", key));
    EXPECT_FALSE(MatchTransactionFormKey(std::string(1000000, 'a'), key));
    EXPECT_FALSE(MatchTransactionFormKey(std::string(1000000, '+'), key));
    EXPECT_TRUE(MatchTransactionFormKey("assets+" + std::string(1000000, ':'), key));
    ASSERT_TRUE(MatchTransactionFormKey("enclosures+e-1++a-1", key));
    EXPECT_EQ((TransactionFormKey{"enclosures", "e-1", "", "a-1", ""}), key);
}

class TransactionFormTest : public ServiceFixture
{
protected:
    int Parse(const std::string& inBody)
    {
        mRequest =
            noxnet::http::server::MakeRequest("POST", "/", {{"Content-Type", "application/x-www-form-urlencoded"}},
                                              noxcore::utility::CopyToRecycledMemory(inBody));
        mForm = {};
        return ParseFormForCreateOrEdit(*mRequest, mForm);
    }
    std::shared_ptr<noxnet::http::server::IncomingRequest> mRequest;
    TransactionForm mForm;
};

TEST_F(TransactionFormTest, RowsStandInTheOrderOfTheirFirstField)
{
    ASSERT_EQ(200,
              Parse("assets%2B1%2Bname=B&enclosures%2Be%2Bname%2B0=E&assets%2B0%2Bproperties={}&"
                    "enclosures%2Bp%2Bcontent=x&assets%2B1%2Bproperties={\"k\":1}&enclosures%2Be%2Bcontent%2B0=y"));
    ASSERT_EQ(3U, mForm.mRows.size());
    EXPECT_EQ("1", mForm.mRows[0].mRow);
    EXPECT_EQ("B", mForm.mRows[0].mName);
    EXPECT_EQ("{\"k\":1}", mForm.mRows[0].mProperties->mText);
    EXPECT_EQ("0", mForm.mRows[1].mRow);
    ASSERT_EQ(1U, mForm.mRows[1].mEnclosures.size());
    EXPECT_EQ("E", mForm.mRows[1].mEnclosures[0].mName);
    EXPECT_EQ("y", mForm.mRows[1].mEnclosures[0].mPayload->View());
    EXPECT_FALSE(mForm.mRows[2].mIsAsset);
    EXPECT_EQ("x", mForm.mRows[2].mEnclosures.at(0).mPayload->View());
}

TEST_F(TransactionFormTest, AnEnclosureIsThePairOfItsRowAndItsAssets)
{
    ASSERT_EQ(200,
              Parse("enclosures%2Be%2Bcontent%2Ba=1&enclosures%2Be%2Bcontent%2Bb=2&enclosures%2Be%2Bcontent%2B-=3"));
    ASSERT_EQ(3U, mForm.mRows.size());
    EXPECT_EQ("1", mForm.mRows[0].mEnclosures.at(0).mPayload->View());
    EXPECT_EQ("2", mForm.mRows[1].mEnclosures.at(0).mPayload->View());
    EXPECT_FALSE(mForm.mRows[2].mIsAsset);
}

TEST_F(TransactionFormTest, ContentIsNamedOrSentButNotBoth)
{
    ASSERT_EQ(200, Parse("enclosures%2Be%2Bcontent%2Ba%2Bcafe="));
    EXPECT_EQ("cafe", mForm.mRows.at(0).mEnclosures.at(0).mContentID);
    EXPECT_EQ(nullptr, mForm.mRows[0].mEnclosures[0].mPayload);
    EXPECT_EQ(400, Parse("enclosures%2Be%2Bcontent%2Ba%2Bcafe=payload"));
    EXPECT_EQ(1U, LogCount("TransactionService: Bad form element"));
}

TEST_F(TransactionFormTest, AKeyThatDoesNotMatchIsLoggedWithItself)
{
    EXPECT_EQ(400, Parse("assets=1"));
    EXPECT_EQ("assets", LogValue("TransactionService: Regex mismatch error", "key"));
    EXPECT_EQ(400, Parse(":name=1"));
    EXPECT_EQ(2U, LogCount("TransactionService: Regex mismatch error"));
}

TEST_F(TransactionFormTest, FieldsThatAreNotUnderstoodAreRefused)
{
    for (const std::string body :
         {"bins%2B0%2Bname=x", "assets%2B0%2Bcolour=x", "assets%2B0=x", "assets%2B%2Bname=x", "%2B0%2Bname=x",
          "assets%2B0%2Bproperties=[]", "assets%2B0%2Bproperties={", "assets%2B0%2Bname%2B1=x",
          "assets%2B0%2Bproperties=%7B%22name%22%3A5%7D", "assets%2B0%2Bproperties=%7B%22lumo%3AassetType%22%3A5%7D",
          "enclosures%2Be%2Bproperties%2Ba={}", "assets%2B0%2Bname=%FF", "assets%2B%FF%2Bname=x"}) {
        mLog->Clear();
        EXPECT_EQ(400, Parse(body)) << body;
        EXPECT_EQ(1U, LogCount("TransactionService: Bad form element")) << body;
    }
}

TEST_F(TransactionFormTest, AnEmptyNameIsRefused)
{
    for (const std::string body : {"assets%2B0%2Bname=", "enclosures%2Be%2Bname%2B0=", "enclosures%2Be%2Bname=++",
                                   "assets%2B0%2Bproperties=%7B%22name%22%3A%22%22%7D"}) {
        mLog->Clear();
        EXPECT_EQ(400, Parse(body)) << body;
        EXPECT_EQ(1U, LogCount("TransactionService: Bad request - empty name property.")) << body;
    }
}

TEST_F(TransactionFormTest, AnEnclosureNameIsTrimmedWithARecord)
{
    ASSERT_EQ(200, Parse("enclosures%2Be%2Bname%2Ba-1=take+1+"));
    EXPECT_EQ("take 1", mForm.mRows.at(0).mEnclosures.at(0).mName);
    EXPECT_EQ("a-1", LogValue("TransactionService: trimmed enclosure name", "assetID"));
    EXPECT_EQ("take 1", LogValue("TransactionService: trimmed enclosure name", "name"));
    EXPECT_EQ("value.length() != origLen", LogValue("TransactionService: trimmed enclosure name", "expression"));
}

TEST_F(TransactionFormTest, AnEmptyOrBrokenFormIsRefused)
{
    EXPECT_EQ(400, Parse(""));
    mRequest = noxnet::http::server::MakeRequest("POST", "/", {{"Content-Type", "multipart/form-data; boundary=b"}},
                                                 noxcore::utility::CopyToRecycledMemory("--b\r\nbroken"));
    EXPECT_EQ(400, ParseFormForCreateOrEdit(*mRequest, mForm));
    EXPECT_EQ(2U, LogCount("ReadForm: invalid input"));
}

TEST_F(TransactionFormTest, APayloadOfAMultipartFormIsAPartOfTheRequest)
{
    const std::string body =
        "--b\r\nContent-Disposition: form-data; name=\"enclosures+e+content+a\"; filename=\"f\"\r\n\r\n"
        "bytes\r\n--b--\r\n";
    const auto payload = noxcore::utility::CopyToRecycledMemory(body);
    mRequest =
        noxnet::http::server::MakeRequest("POST", "/", {{"Content-Type", "multipart/form-data; boundary=b"}}, payload);
    ASSERT_EQ(200, ParseFormForCreateOrEdit(*mRequest, mForm));
    const auto part = mForm.mRows.at(0).mEnclosures.at(0).mPayload;
    EXPECT_EQ("bytes", part->View());
    EXPECT_GE(part->data(), payload->data());
    EXPECT_LE(part->data() + part->size(), payload->data() + payload->size());
}

}  // namespace

}  // namespace service_test

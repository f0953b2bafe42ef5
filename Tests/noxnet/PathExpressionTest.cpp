#include <gmock/gmock.h>

#include <iostream>
#include <random>

#include <boost/regex.hpp>

#include "Platform/noxnet/HTTPServer.h"
#include "Tests/Support/VirtualHub.h"
#include "Tests/noxnet/ServerFixture.h"

using noxnet::http::server::PathExpression;

namespace {

/// Expressions of every shape that services register.
constexpr std::string_view kPatterns[] = {
    "^/api/archives$",
    "^/api/archive/([\\w\\-\\*]+)/([\\w]+)$",
    "^/api/asset/([\\w\\-]+)/([\\w\\-]+)/([\\w\\-]+)/?([\\w]+)?/?([\\.\\w\\-]+)?$",
    "^/api/assets/([\\w\\-]+)/([\\w\\-]+)/?([\\w]+)?/?([\\w\\-]+)?$",
    "^/api/collaborators/([\\w\\-\\*]+)([\\w\\%\\?\\-\\=\\.\\/]+)?$",
    "^/api/user/([\\w\\-\\@\\.\\%]+)/([\\w]+)/?([\\w\\-]+)?/?([\\.\\w\\-]+)?$",
    "^/api/invites([\\w\\%\\?\\-\\=\\.\\/]+)?$",
    "^/api/jobs/([\\w]+)/?([\\.\\w\\-\\*]+)?/?([%\\.\\w\\-]+)?/?([\\w]+)?$",
    "^/api/poster/([\\w\\-\\*]+)/?([\\w]+)?$",
    "^/api/ropeFile/([\\w]+)?/?([\\.\\w\\-]+)?/?([\\.\\w\\-]+)?$",
    "^/api/remoteLog(in|out)$",
    "^/api/resolve/([\\w\\-]+)/([\\w]+)/([\\.\\w\\-]+)/([\\w\\-]+)$",
    ".*discovery.*",
    "^/api/preferences/([a-zA-Z]+)$",
    "^/a|/b(c)?$",
    "^/ab?(c)$",
    "^/a[(]|b$",
};

std::vector<std::string> BoostGroups(const boost::regex& inExpression, const std::string& inPath)
{
    boost::smatch match;
    std::vector<std::string> groups;
    if (boost::regex_match(inPath, match, inExpression))
        for (const auto& group : match)
            groups.push_back(group.str());
    return groups;
}

/// A path that an expression may well match: made from its own text.
std::string RandomPath(std::mt19937_64& ioRandom, std::string_view inPattern)
{
    static const std::vector<std::string> kPieces = {"/",   "a",  "HEAD",      "-",    "*",    ".", "%20", "@", "in",
                                                     "out", "_9", "discovery", "?x=1", "\xe9", "b", "c",   "(", "\n"};
    std::string path(inPattern.substr(1, inPattern.find_first_of("([.$|?", 1) - 1));
    for (std::size_t count = ioRandom() % 10; count > 0; --count)
        path += kPieces[ioRandom() % kPieces.size()];
    if (ioRandom() % 10 == 0 && !path.empty()) path[ioRandom() % path.size()] = 'z';
    return path;
}

}  // namespace

TEST(PathExpression, TheCapturesAreThoseOfBoost)
{
    std::mt19937_64 random(testing_support::TestSeed());
    std::size_t matched = 0;
    for (const std::string_view pattern : kPatterns) {
        const PathExpression expression(pattern);
        const boost::regex reference{std::string(pattern)};
        for (int round = 0; round < 3000; ++round) {
            const std::string path = RandomPath(random, pattern);
            std::vector<std::string_view> groups;
            const bool matches = expression.Match(path, groups);
            const std::vector<std::string> expected = BoostGroups(reference, path);
            ASSERT_EQ(!expected.empty(), matches) << pattern << " and " << path;
            if (!matches) continue;
            ++matched;
            ASSERT_THAT(groups, testing::ElementsAreArray(expected)) << pattern << " and " << path;
        }
    }
    EXPECT_GT(matched, 3000U) << "the paths must not all be misses";
}

TEST(PathExpression, CapturesArePartsOfThePath)
{
    const PathExpression expression("^/api/poster/([\\w\\-\\*]+)/?([\\w]+)?$");
    const std::string path = "/api/poster/p-1";
    std::vector<std::string_view> groups;
    ASSERT_TRUE(expression.Match(path, groups));
    EXPECT_THAT(groups, testing::ElementsAre(path, "p-1", ""));
    EXPECT_EQ(path.data() + 12, groups[1].data());
}

TEST(PathExpression, AHostileTextIsMatchedInLinearTime)
{
    const PathExpression expression("^/api/((a*)*)*b$");
    std::vector<std::string_view> groups;
    EXPECT_FALSE(expression.Match("/api/" + std::string(8000, 'a'), groups));
}

TEST(PathExpression, AnExpressionThatIsNotUnderstoodMatchesNothingAndIsLogged)
{
    const auto log = std::make_shared<testing_support::LogCapture>();
    const noxcore::HubContext::Scope scope(testing_support::MakeLoggingContext(log));
    const PathExpression expression("^/(a)\\1$");
    std::vector<std::string_view> groups;
    EXPECT_FALSE(expression.Match("/aa", groups));
    EXPECT_EQ(1U, log->Count("Path expression not understood"));
}

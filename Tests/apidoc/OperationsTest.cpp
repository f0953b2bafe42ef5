#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>
#include <string>

#include "Client/Wire/Operations/TransactionKeys.h"
#include "Client/Wire/Operations/WordKeys.h"
#include "Tests/apidoc/Samples.h"
#include "Tools/apidoc/RecordShapes.h"
#include "Tools/apidoc/Statuses.h"

namespace apidoc_test {

namespace {

namespace API = VantryLocalHub::API;
namespace Routes = VantryLocalHub::Routes;
using apidoc::NamesInPath;

using HandlerName = std::tuple<std::string, std::string, std::string>;  // service, method, selector

TEST(Operations, AreThereForEveryHandlerAndForNoOther)
{
    std::set<HandlerName> handlers;
    for (const Routes::Service& service : Routes::kServices)
        for (const Routes::Handler& handler : service)
            handlers.emplace(service.mName, handler.mMethod, handler.mSelector);
    std::set<HandlerName> described;
    ForEachOperation([&](const Resource& inResource, const Operation& inOperation) {
        described.emplace(inResource.mService, inOperation.mMethod, inOperation.mSelector);
    });
    EXPECT_EQ(handlers, described);
    EXPECT_EQ(Routes::kServices.size(), API::kResources.size());
}

TEST(Operations, HavePathsThatReachTheirHandlers)
{
    ForEachOperation([](const Resource& inResource, const Operation& inOperation) {
        const std::string path = SamplePath(inOperation, API::kSampleCommit);
        std::vector<std::string> groups;
        const Routes::Service* service = Route(path, groups);
        ASSERT_NE(nullptr, service) << path;
        EXPECT_EQ(inResource.mService, service->mName) << path;
        const std::string selector =
            service->mSelectorGroup == 0 ? "" : groups.at(static_cast<std::size_t>(service->mSelectorGroup));
        const bool hasHandler = std::any_of(service->begin(), service->end(), [&](const Routes::Handler& inHandler) {
            return inHandler.mMethod == inOperation.mMethod && inHandler.mSelector == selector;
        });
        // Where no handler names the selector, the one without answers.
        EXPECT_EQ(inOperation.mSelector, hasHandler ? selector : "") << inOperation.mMethod << " " << path;
    });
}

TEST(Operations, HavePathsThatAreURLTemplatesWithANameForEveryGap)
{
    ForEachOperation([](const Resource&, const Operation& inOperation) {
        const auto& path = inOperation.mPath;
        EXPECT_EQ(1, std::ranges::count(VYCL::URLTemplate::kAll, path.mTemplate)) << path.mTemplate;
        std::size_t gaps = 0;
        for (auto gap = path.mTemplate.find("%s"); gap != std::string_view::npos;
             gap = path.mTemplate.find("%s", gap + 1))
            ++gaps;
        EXPECT_EQ(gaps, path.mNames.size()) << path.mTemplate;
        const auto names = NamesInPath(path.Named());
        EXPECT_EQ(names.size(), std::set<std::string>(names.begin(), names.end()).size()) << path.mTemplate;
    });
}

std::vector<std::string> ElementsOf(std::string_view inPath)
{
    std::vector<std::string> elements;
    std::string_view rest = inPath.substr(0, inPath.find('?'));
    while (!rest.empty()) {
        rest.remove_prefix(1);
        const auto element = rest.substr(0, rest.find('/'));
        elements.emplace_back(element == "%s" || element.starts_with('{') ? "{}" : element);
        rest.remove_prefix(element.size());
    }
    return elements;
}

bool IsURLOf(const std::vector<std::string>& inURL, const std::vector<std::string>& inPath)
{
    return std::ranges::equal(inURL, inPath, [](const std::string& inLeft, const std::string& inRight) {
        return inLeft == inRight || (inRight == "{}" && (inLeft == "-" || inLeft == "HEAD"));
    });
}

TEST(Operations, AnswerEveryURLThatTheHubHandsOut)
{
    // Links that stand for a later request, or that clients follow with a transaction's form.
    const std::set<std::string_view> withoutOperation = {
        "/api/asset/%s/HEAD/%s/createEnclosure", "/api/assets/%s/HEAD/create",
        "/api/assets/%s/{commitId}/template/{assetId}", "/api/production/%s/%s/bulkGet",
        "/api/transaction/%s/enclosures"};
    for (const std::string_view url : VYCL::URLTemplate::kAll) {
        bool isAnswered = false;
        ForEachOperation([&](const Resource&, const Operation& inOperation) {
            isAnswered = isAnswered || IsURLOf(ElementsOf(url), ElementsOf(inOperation.mPath.Named()));
        });
        EXPECT_EQ(!isAnswered, withoutOperation.contains(url)) << url;
    }
}

TEST(Operations, UseDeclaredParametersOnlyAndAllOfThem)
{
    std::set<std::string> names;
    std::set<std::string> keys;
    ForEachOperation([&](const Resource&, const Operation& inOperation) {
        for (const std::string& name : NamesInPath(inOperation.mPath.Named()))
            names.insert(name);
        keys.insert(inOperation.mQueryKeys.begin(), inOperation.mQueryKeys.end());
    });
    std::set<std::string> declared;
    for (const auto& parameter : API::kPathParameters)
        EXPECT_TRUE(declared.emplace(parameter.mName).second) << parameter.mName;
    EXPECT_EQ(declared, names);
    declared.clear();
    for (const auto& parameter : API::kQueryParameters)
        EXPECT_TRUE(declared.emplace(parameter.mKey).second) << parameter.mKey;
    EXPECT_EQ(declared, keys);
}

TEST(Operations, AreRedirectedWhereTheRevisionOfTheirServiceIsInThePath)
{
    std::size_t redirected = 0;
    ForEachOperation([&](const Resource& inResource, const Operation& inOperation) {
        if (inOperation.mMethod != "GET" && inOperation.mMethod != "HEAD") {
            EXPECT_FALSE(apidoc::IsRedirected(inResource, inOperation));
            return;
        }
        std::vector<std::string> groups;
        const Routes::Service* service = Route(SamplePath(inOperation, "HEAD"), groups);
        ASSERT_NE(nullptr, service);
        const bool expected = service->mRevisionGroup != service->mProductionGroup &&
                              groups.at(static_cast<std::size_t>(service->mRevisionGroup)) == "HEAD";
        EXPECT_EQ(expected, apidoc::IsRedirected(inResource, inOperation)) << inOperation.mPath.mTemplate;
        redirected += expected ? 1 : 0;
    });
    EXPECT_GT(redirected, 0U);
}

TEST(Operations, HaveNamesOfTheirOwnAndShareAPathOnlyUnderTheSameNames)
{
    std::set<std::string> ids;
    std::map<std::vector<std::string>, std::string> paths;
    ForEachOperation([&](const Resource&, const Operation& inOperation) {
        const std::string id = apidoc::OperationID(inOperation);
        EXPECT_TRUE(ids.insert(id).second) << id;
        const std::string path = inOperation.mPath.Named();
        EXPECT_EQ(path, paths.emplace(ElementsOf(path), path).first->second);
    });
}

TEST(Operations, SayNoStatusTwice)
{
    ForEachOperation([](const Resource& inResource, const Operation& inOperation) {
        std::size_t said = inOperation.mAnswers.size() + inOperation.mFailures.size();
        said += inOperation.mIsTagged ? 1 : 0;
        said += apidoc::IsRedirected(inResource, inOperation) ? 1 : 0;
        const auto statuses = apidoc::StatusesOf(inResource, inOperation);
        EXPECT_EQ(statuses.size(), said) << inOperation.mMethod << inOperation.mPath.mTemplate;
    });
}

TEST(Operations, AnswerASuccessUnlessTheyAreAlwaysRefused)
{
    std::set<std::string> refused;
    ForEachOperation([&](const Resource&, const Operation& inOperation) {
        for (const auto& answer : inOperation.mAnswers)
            EXPECT_LT(answer.mStatus, 400) << inOperation.mPath.mTemplate;
        for (const auto& failure : inOperation.mFailures)
            EXPECT_GE(failure.mStatus, 400) << inOperation.mPath.mTemplate;
        const bool succeeds = std::ranges::any_of(
            inOperation.mAnswers, [](const API::Answer& inAnswer) { return inAnswer.mStatus / 100 == 2; });
        if (!succeeds) refused.insert(std::string(inOperation.mMethod) + " " + inOperation.mPath.Named());
        if (!succeeds) EXPECT_EQ("always", inOperation.mFailures.begin()->mWhen);
    });
    EXPECT_EQ(3U, refused.size());
}

TEST(Operations, TakeABodyOnlyWhereTheMethodHasOne)
{
    ForEachOperation([](const Resource&, const Operation& inOperation) {
        if (inOperation.mMethod == "GET" || inOperation.mMethod == "HEAD")
            EXPECT_EQ(API::BodyKind::None, inOperation.mBody) << inOperation.mPath.mTemplate;
        else
            EXPECT_FALSE(inOperation.mIsTagged) << inOperation.mPath.mTemplate;
        for (const API::Field& field : inOperation.mBodyFields)
            EXPECT_TRUE(field.mRecord.empty() || field.mKind == API::ValueKind::Object) << field.mMeaning;
    });
}

TEST(Operations, ThatWaitForAChangeHaveATag)
{
    std::size_t longPolls = 0;
    ForEachOperation([&](const Resource& inResource, const Operation& inOperation) {
        if (!apidoc::IsLongPoll(inResource, inOperation)) return;
        EXPECT_TRUE(inOperation.mIsTagged) << inOperation.mPath.mTemplate;
        ++longPolls;
    });
    EXPECT_EQ(6U, longPolls);
}

TEST(Operations, ReachEveryRecordButThoseThatAreExplained)
{
    std::set<std::string> reached = apidoc::RecordsThatAreRead();
    reached.merge(apidoc::RecordsThatAreAnswered());
    for (const auto& record : API::kOtherRecords) {
        EXPECT_FALSE(reached.contains(std::string(record.mRecord))) << record.mRecord << " needs no explanation";
        EXPECT_FALSE(record.mWhy.empty()) << record.mRecord;
    }
    for (const auto& record : API::kOtherRecords)
        apidoc::AddReachable(std::string(record.mRecord), reached);
    for (const auto& [record, shape] : apidoc::AllRecordShapes())
        EXPECT_TRUE(reached.contains(record)) << record;
}

TEST(WordKeys, AreKeysOfTheirRecordsThatHoldText)
{
    for (const API::WordKey& key : API::kWordKeys) {
        const auto& shape = apidoc::AllRecordShapes().at(std::string(key.mRecord));
        const auto found = std::ranges::find(shape, key.mKey, &apidoc::KeyShape::mKey);
        ASSERT_NE(shape.end(), found) << key.mRecord << " " << key.mKey;
        EXPECT_EQ(apidoc::TypeKind::Text, found->mType.mKind) << key.mRecord << " " << key.mKey;
        EXPECT_FALSE(key.mWords.empty());
    }
}

TEST(TransactionKeys, FitOneExpressionOfTheirForm)
{
    for (const API::TransactionKey& key : API::kTransactionKeys) {
        const std::string sample = std::regex_replace(key.Shown(), std::regex("<[^>]*>"), "row-1");
        const auto fits = std::ranges::count_if(API::kTransactionKeys, [&](const API::TransactionKey& inOther) {
            return inOther.mDeletes == key.mDeletes && std::regex_match(sample, std::regex(inOther.Expression()));
        });
        EXPECT_TRUE(std::regex_match(sample, std::regex(key.Expression()))) << sample;
        EXPECT_EQ(1, fits) << sample;
    }
}

}  // namespace

}  // namespace apidoc_test

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "Client/Wire/Operations/Operations.h"
#include "Tests/Service/ServiceFixture.h"
#include "Tests/apidoc/Samples.h"
#include "Tools/apidoc/Statuses.h"

namespace service_test {

namespace {

namespace API = VantryLocalHub::API;
using apidoc_test::ForEachOperation;
using apidoc_test::SamplePath;

/// The services under their description, without store and engine: whatever needs one of them answers 500.
class DescriptionTest : public ServiceFixture
{
protected:
    DescriptionTest()
    {
        ProjectBox::SetInstance(nullptr);
        SyncBox::SetInstance(nullptr);
        RegisterAll();
    }
};

TEST_F(DescriptionTest, NamesEachOperationThatAnswers501)
{
    ForEachOperation([&](const API::Resource&, const API::Operation& inOperation) {
        const bool isRefused = std::ranges::count(inOperation.mFailures, 501, &API::Failure::mStatus) != 0;
        const int status =
            Send(std::string(inOperation.mMethod), SamplePath(inOperation, API::kSampleCommit), "{}").Status();
        EXPECT_TRUE(status != 501 || isRefused) << inOperation.mMethod << " " << inOperation.mPath.mTemplate;
    });
}

TEST_F(DescriptionTest, TellsEveryStatusThatIsGivenWithoutStoreAndEngine)
{
    ForEachOperation([&](const API::Resource& inResource, const API::Operation& inOperation) {
        const std::string method(inOperation.mMethod);
        const std::string path = SamplePath(inOperation, API::kSampleCommit);
        const int status = Send(method, path, "{}").Status();
        const bool isCommon = std::ranges::any_of(apidoc::kCommonStatuses,
                                                  [&](const auto& inCommon) { return inCommon.mStatus == status; });
        EXPECT_TRUE(isCommon || apidoc::StatusesOf(inResource, inOperation).contains(status))
            << method << " " << path << " " << status;
    });
}

TEST_F(DescriptionTest, HasTheVersionThatDiscoveryTells)
{
    noxcore::serialization::JSONDocument body;
    ASSERT_TRUE(body.Parse(Send("GET", "/api/v1/discovery").Body()));
    EXPECT_EQ(API::kVersion,
              std::string(body.Root()["majorVersion"].Raw()) + "." + std::string(body.Root()["minorVersion"].Raw()));
}

}  // namespace

}  // namespace service_test

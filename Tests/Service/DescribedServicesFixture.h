#pragma once

#include <string>
#include <string_view>

#include "Client/Wire/Operations/Operations.h"
#include "Client/Wire/Operations/Parameters.h"
#include "Tests/Service/StoreServicesFixture.h"

namespace service_test {

using API::Operation;
using API::Resource;

/// The services over the real store, and everything that can be asked of them, as the API describes it.
class DescribedServicesTest : public StoreServicesTest
{
protected:
    inline static const std::string kAsset = "11111111-2222-4333-8444-555555555555";
    inline static const std::string kEnclosure = "aaaaaaaa-2222-4333-8444-555555555555";
    inline static const std::string kLocator = "cccccccc-2222-4333-8444-555555555555";

    /// A production with one of each thing, made anew where a request has taken the last one away.
    void HaveProduction()
    {
        if (!mHead.empty() && Send("GET", "/api/production/" + mProduction + "/" + mHead).Status() == 200) return;
        mProduction = CreateProduction();
        Apply("bulkCreate", {{"assets+" + kAsset + "+properties", R"({"name":"Clip"})"},
                             {"enclosures+" + kEnclosure + "+content+" + kAsset, "bytes"},
                             {"enclosures+" + kEnclosure + "+content", "bytes"}});
        const std::string locators = R"([{"vy:mediaLocatorId":")" + kLocator + R"(","properties":{}}])";
        EXPECT_EQ(200, Send("POST", "/api/medialocators/" + mProduction + "/bulkCreate", locators).Status());
        mHead = Head().substr(Head().rfind('/') + 1);
    }
    /// What stands for a parameter of a path.
    virtual std::string ValueOf(const API::PathParameter& inParameter)
    {
        const std::string_view name = inParameter.mName;
        if (name == "productionId" || name == "sessionId") return mProduction;
        if (name == "commitId" || name == "baseCommitId") return mHead;
        if (name == "assetId") return kAsset;
        if (name == "enclosureId") return kEnclosure;
        if (name == "mediaLocatorId") return kLocator;
        return name == "transactionId" ? Open() : std::string(inParameter.mSample);
    }
    /// The path of an operation on what there is, but for one parameter that has the value given.
    std::string PathOf(const Operation& inOperation, std::string_view inOther = {}, const std::string& inValue = {})
    {
        HaveProduction();
        std::string path = inOperation.mPath.Named();
        for (const API::PathParameter& parameter : API::kPathParameters) {
            const std::string gap = "{" + std::string(parameter.mName) + "}";
            const auto place = path.find(gap);
            if (place == std::string::npos) continue;
            path.replace(place, gap.size(), parameter.mName == inOther ? inValue : ValueOf(parameter));
        }
        return path;
    }
    template <class Function>
    static void ForEachOperation(const Function& inFunction)
    {
        for (const Resource& resource : API::kResources)
            for (const Operation& operation : resource.mOperations)
                inFunction(resource, operation);
    }

    std::string mHead;
};

}  // namespace service_test

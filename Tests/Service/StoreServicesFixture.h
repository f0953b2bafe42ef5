#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "Client/VYClient/Environment.h"
#include "Inc/Model/GitBox.h"
#include "Inc/Sync/HubSync.h"
#include "Platform/noxcore/Executor.h"
#include "Tests/Service/RouterServer.h"
#include "Tests/Support/FaultVfs.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/TempFolder.h"

namespace service_test {

using testing_support::FaultVfs;

inline std::string Text(const JSONValue& inValue)
{
    std::string text;
    EXPECT_TRUE(inValue.GetString(text));
    return text;
}

/// The services over the real store and the real engine, on real threads, and a production to begin with.
class StoreServicesTest : public testing::Test
{
protected:
    using ResponsePromise = std::promise<ResponsePtr>;

    StoreServicesTest()
    {
        mContext->SetLog(mLog);
        mContext->SetInstance<VYCL::Environment>(std::make_shared<VYCL::FixedEnvironment>(mHome.Path()));
        ProjectBox::SetInstance(std::make_shared<GitBox::GitBox>(true));
        SyncBox::SetInstance(std::make_shared<HubSync>());
        for (const auto& service : MakeAllServices()) {
            service->Register(mServer);
            mServices.push_back(service);
        }
        mProduction = CreateProduction();
    }
    ~StoreServicesTest() override
    {
        SyncBox::Instance()->Terminate();
        SyncBox::Close();
        ProjectBox::Close();
        // What is still posted holds the context: it runs, and then the loop ends.
        const auto mainThread = noxcore::threads::GetRegisteredMainThread();
        mainThread->Post([mainThread] { mainThread->Quit(); });
        mainThread->RunLoop();
    }

    std::future<ResponsePtr> Start(const std::string& inMethod, const std::string& inTarget,
                                   const std::string& inBody = {}, const HeaderList& inHeaders = kHost)
    {
        const auto promise = std::make_shared<ResponsePromise>();
        mServer.Dispatch(noxnet::http::server::MakeRequest(inMethod, inTarget, inHeaders,
                                                           noxcore::utility::CopyToRecycledMemory(inBody)),
                         [promise](const ResponsePtr& inResponse) { promise->set_value(inResponse); });
        return promise->get_future();
    }
    static Answer Wait(std::future<ResponsePtr> inResponse)
    {
        if (inResponse.wait_for(std::chrono::minutes(2)) != std::future_status::ready) return {};
        return {{inResponse.get()}};
    }
    Answer Send(const std::string& inMethod, const std::string& inTarget, const std::string& inBody = {},
                const HeaderList& inHeaders = kHost)
    {
        return Wait(Start(inMethod, inTarget, inBody, inHeaders));
    }
    std::future<ResponsePtr> StartForm(const std::string& inTransaction, const std::string& inOperation,
                                       const FormFields& inFields)
    {
        return Start("POST", "/api/transaction/" + inTransaction + "/" + inOperation, FormOf(inFields),
                     WithHost("Content-Type", "application/x-www-form-urlencoded"));
    }
    int SendForm(const std::string& inTransaction, const std::string& inOperation, const FormFields& inFields)
    {
        return Wait(StartForm(inTransaction, inOperation, inFields)).Status();
    }

    std::string CreateProduction()
    {
        const auto answer = Send("POST", "/api/productions?localOnly=true", R"({"name":"Film"})");
        EXPECT_EQ(201, answer.Status());
        JSONDocument body;
        EXPECT_TRUE(body.Parse(answer.Body()));
        return Text(body.Root()["vy:parentProductionId"]);
    }
    std::string Open(const std::string& inBody = "{}")
    {
        const auto answer = Send("POST", "/api/transactions/" + mProduction + "/HEAD", inBody);
        EXPECT_EQ(201, answer.Status());
        JSONDocument body;
        EXPECT_TRUE(body.Parse(answer.Body()));
        return Text(body.Root()["vy:transactionId"]);
    }
    int Commit(const std::string& inTransaction)
    {
        return Send("POST", "/api/transaction/" + inTransaction + "/commit", R"({":commitMessage":"Cut"})").Status();
    }
    /// One form in a transaction of its own.
    void Apply(const std::string& inOperation, const FormFields& inFields)
    {
        const std::string transaction = Open();
        ASSERT_EQ(200, SendForm(transaction, inOperation, inFields));
        ASSERT_EQ(200, Commit(transaction));
    }

    /// What is read at the head, which the hub redirects to.
    Answer GetAtHead(const std::string& inKind, const std::string& inRest = {})
    {
        const auto redirect = Send("GET", "/api/" + inKind + "/" + mProduction + "/HEAD" + inRest);
        return redirect.Status() == 307 ? Send("GET", redirect.Header("Location")) : redirect;
    }
    std::string Head() { return Send("GET", "/api/production/" + mProduction + "/HEAD").Header("Location"); }
    std::vector<std::string> AssetIDs()
    {
        const auto answer = GetAtHead("assets");
        EXPECT_EQ(200, answer.Status());
        JSONDocument body;
        EXPECT_TRUE(body.Parse(answer.Body()));
        std::vector<std::string> ids;
        for (const JSONValue& asset : body.Root()["assets"].Children())
            ids.push_back(Text(asset["vy:assetId"]));
        return ids;
    }
    std::size_t EnclosureCount(const std::string& inAssetID)
    {
        JSONDocument body;
        EXPECT_TRUE(body.Parse(GetAtHead("asset", "/" + inAssetID).Body()));
        return body.Root()["enclosures"].Children().size();
    }
    bool HasBin()
    {
        JSONDocument body;
        EXPECT_TRUE(body.Parse(Send("GET", "/api/sessions/" + mProduction).Body()));
        return body.Root()["sessions"].Children().at(0)["hasBin"].Raw() == "true";
    }
    std::size_t OpenTransactions()
    {
        JSONDocument body;
        EXPECT_TRUE(body.Parse(GetAtHead("transactions").Body()));
        return body.Root()["transactions"].Children().size();
    }

    const testing_support::TempFolder mHome;
    const std::shared_ptr<testing_support::LogCapture> mLog = std::make_shared<testing_support::LogCapture>();
    const std::shared_ptr<noxcore::HubContext> mContext = noxcore::HubContext::Create({});
    const noxcore::HubContext::Scope mScope{mContext};
    FaultVfs mVfs{mContext};
    RouterServer mServer;
    std::vector<std::shared_ptr<VantryAPIService>> mServices;
    std::string mProduction;
};

}  // namespace service_test

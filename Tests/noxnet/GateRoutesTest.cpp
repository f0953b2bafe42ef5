#include <map>

#include "Client/Wire/Routes.h"
#include "Client/Wire/URLTemplates.h"
#include "Tests/noxnet/ServerFixture.h"

using namespace testing_support;
using VantryLocalHub::Routes::kServices;

namespace {

/// The path that a client makes of a template.
std::string FillIn(std::string_view inTemplate)
{
    std::string path(inTemplate);
    for (auto place = path.find("%s"); place != std::string::npos; place = path.find("%s"))
        path.replace(place, 2, "id-1");
    for (auto place = path.find('{'); place != std::string::npos; place = path.find('{'))
        path.replace(place, path.find('}') - place + 1, "id2");
    return path;
}

}  // namespace

/// A server with a service for each row of the routing table, all of which only count.
class GateOverRoutes : public ServerTest
{
protected:
    GateOverRoutes()
    {
        for (const auto& row : kServices) {
            const auto service = std::make_shared<TestService>(row.mExpression, Echo);
            mHub->RegisterService(service->Expression(), service);
            mServices[row.mName] = service;
        }
        EXPECT_EQ(200, mHub->Start());
    }

    int Ask(std::string_view inMethod, const std::string& inPath, const std::string& inHeaders,
            const std::string& inBody = {})
    {
        SocketClient client(mHub->GetPort());
        client.Send(std::string(inMethod) + " " + inPath + " HTTP/1.1\r\n" + inHeaders +
                    "Content-Length: " + std::to_string(inBody.size()) + "\r\n\r\n" + inBody);
        return client.Read(inMethod != "HEAD").mStatus;
    }
    [[nodiscard]] int Requests() const
    {
        int requests = 0;
        for (const auto& [name, service] : mServices)
            requests += service->Requests();
        return requests;
    }

    const std::shared_ptr<server::Server> mHub = MakeServer();
    std::map<std::string_view, std::shared_ptr<TestService>> mServices;
};

TEST_F(GateOverRoutes, NoRouteIsReachedByAnyMethodWithAForeignHostOrFromAnotherSite)
{
    const std::string port = std::to_string(mHub->GetPort());
    const std::string own = "Host: localhost:" + port + "\r\n";
    const std::string form = own + "Content-Type: application/x-www-form-urlencoded\r\n";
    for (const std::string_view text : VYCL::URLTemplate::kAll) {
        const std::string path = FillIn(text);
        for (const std::string_view method : {"GET", "HEAD", "POST", "PUT", "DELETE", "PATCH", "OPTIONS"}) {
            ASSERT_EQ(403, Ask(method, path, "Host: attacker.example:" + port + "\r\n")) << method << " " << path;
            ASSERT_EQ(403, Ask(method, path, own + "Sec-Fetch-Site: cross-site\r\n")) << method << " " << path;
        }
        ASSERT_EQ(403, Ask("POST", path, form + "Origin: https://attacker.example\r\n", "a=b")) << path;
    }
    EXPECT_EQ(0, Requests());
}

TEST_F(GateOverRoutes, EachRouteIsReachedFromOurOwnSite)
{
    const std::string own = "Host: localhost:" + std::to_string(mHub->GetPort()) + "\r\n";
    for (const std::string_view text : VYCL::URLTemplate::kAll)
        ASSERT_EQ(200, Ask("POST", FillIn(text), own + "Sec-Fetch-Site: same-origin\r\n", "a=b")) << text;
    for (const auto& [name, service] : mServices)
        EXPECT_GT(service->Requests(), 0) << name;
}

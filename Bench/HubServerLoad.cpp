// The hub's own HTTP server under load, to be asked by wrk beside BareBeastServer and nginx in the same run.
//
// HubServerLoad <port> <small bytes> <large bytes>
//
// /api/pool and /api/once answer the small payload, on the pool and at once; /api/large and /api/large/once the large
// one; /api/wait never. With 32 further expressions before them, as the hub has. Ends with the end of its input.

#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/noxnet/HTTPServer.h"

namespace server = noxnet::http::server;

namespace {

class FixedService final : public server::Service
{
public:
    FixedService(const std::string& inPattern, server::ConstRecycledMemoryPtr inPayload, bool inAtOnce)
        : mExpression(inPattern), mPayload(std::move(inPayload)), mAtOnce(inAtOnce)
    {
    }
    void FulfillResource(std::shared_ptr<const server::Request> /*inRequest*/,
                         std::shared_ptr<server::MutableResponse> inResponse,
                         server::Fulfillment inFulfillment) override
    {
        inResponse->SetHeader(noxnet::kHEADER_ContentType, noxnet::kContentType_JSON);
        inResponse->mPayload = mPayload;
        inFulfillment(inResponse);
    }
    [[nodiscard]] const server::PathExpression& Expression() const override { return mExpression; }
    [[nodiscard]] bool AnswersAtOnce(const server::Request& /*inRequest*/) const override { return mAtOnce; }

private:
    const server::PathExpression mExpression;
    const server::ConstRecycledMemoryPtr mPayload;
    const bool mAtOnce;
};

/// Keeps its requests open until the end.
class WaitingService final : public server::Service
{
public:
    void FulfillResource(std::shared_ptr<const server::Request> inRequest,
                         std::shared_ptr<server::MutableResponse> inResponse,
                         server::Fulfillment inFulfillment) override
    {
        const std::lock_guard lock(mMutex);
        mWaiting.push_back({std::move(inRequest), std::move(inResponse), std::move(inFulfillment)});
    }
    [[nodiscard]] const server::PathExpression& Expression() const override { return mExpression; }

private:
    struct Waiter
    {
        std::shared_ptr<const server::Request> mRequest;
        std::shared_ptr<server::MutableResponse> mResponse;
        server::Fulfillment mFulfillment;
    };
    const server::PathExpression mExpression{"^/api/wait$"};
    std::mutex mMutex;
    std::vector<Waiter> mWaiting;
};

void Register(server::Server& inServer, const std::shared_ptr<server::Service>& inService)
{
    inServer.RegisterService(inService->Expression(), inService);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::cerr << "HubServerLoad <port> <small bytes> <large bytes>\n";
        return 2;
    }
    const auto payload = [](const char* inSize) {
        return noxcore::utility::MakeRecycledMemory(std::string(std::strtoull(inSize, nullptr, 10), 'x'));
    };
    const auto hub = server::Server::Create(static_cast<std::uint16_t>(std::strtoul(argv[1], nullptr, 10)), true, -1);
    for (int i = 0; i < 32; ++i)
        Register(*hub, std::make_shared<FixedService>("^/api/other" + std::to_string(i) + "/([\\w\\-\\*]+)$", nullptr,
                                                      false));
    Register(*hub, std::make_shared<FixedService>("^/api/pool$", payload(argv[2]), false));
    Register(*hub, std::make_shared<FixedService>("^/api/once$", payload(argv[2]), true));
    Register(*hub, std::make_shared<FixedService>("^/api/large$", payload(argv[3]), false));
    Register(*hub, std::make_shared<FixedService>("^/api/large/once$", payload(argv[3]), true));
    Register(*hub, std::make_shared<WaitingService>());
    if (hub->Start() != noxnet::kHTTPStatus_OK) return 1;
    std::cout << "port " << hub->GetPort() << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
    }
    hub->Stop();
    return 0;
}

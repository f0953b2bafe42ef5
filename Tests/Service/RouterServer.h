#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Inc/Service/ServiceRegistry.h"
#include "Inc/Service/ServiceUtils.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxnet/IncomingRequest.h"
#include "Platform/noxnet/Router.h"

namespace service_test {

using namespace VantryLocalHub;
using noxcore::serialization::JSONDocument;
using noxcore::serialization::JSONValue;
using noxnet::http::server::HeaderList;

/// A server without sockets: it keeps the registrations, and the test hands requests to the router.
class RouterServer final : public noxnet::http::server::Server
{
public:
    int Start() override { return noxnet::kHTTPStatus_OK; }
    std::uint16_t GetPort() const override { return 0; }
    void Stop() override {}
    void RegisterService(const noxnet::http::server::PathExpression& inExpression,
                         std::shared_ptr<noxnet::http::server::Service> inService) override
    {
        mOrder.push_back(inExpression.Pattern());
        mRouter->Register(inExpression, std::move(inService));
    }
    void UnregisterService(const noxnet::http::server::PathExpression& inExpression) override
    {
        mRouter->Unregister(inExpression);
    }
    void SetInfoPort(std::uint16_t) override {}
    void Dispatch(std::shared_ptr<noxnet::http::server::IncomingRequest> inRequest, Fulfillment inFulfillment) override
    {
        mRouter->Deliver(std::move(inRequest), std::move(inFulfillment));
    }

    std::vector<std::string> mOrder;
    std::shared_ptr<noxnet::http::server::Router> mRouter =
        std::make_shared<noxnet::http::server::Router>(noxnet::http::server::Limits());
};

/// What came back for one request.
struct Answer
{
    std::vector<ResponsePtr> mResponses;

    [[nodiscard]] int Status() const { return mResponses.size() == 1 ? mResponses.front()->mStatus : 0; }
    [[nodiscard]] std::string Header(std::string_view inName) const
    {
        return std::string(mResponses.front()->Header(inName));
    }
    [[nodiscard]] std::string Body() const
    {
        const auto& payload = mResponses.front()->mPayload;
        return payload == nullptr ? std::string() : std::string(payload->View());
    }
};
using AnswerPtr = std::shared_ptr<Answer>;

inline const HeaderList kHost = {{"Host", "127.0.0.1:7777"}};

inline HeaderList WithHost(const std::string& inName, const std::string& inValue)
{
    HeaderList headers = kHost;
    headers.emplace_back(inName, inValue);
    return headers;
}

/// The link of a relation in the links of a JSON answer; empty for none.
inline std::string FindLink(const JSONValue& inLinks, std::string_view inRelation)
{
    for (const JSONValue& link : inLinks.Children()) {
        std::string relation;
        std::string href;
        if (link["rel"].GetString(relation) && relation == inRelation && link["href"].GetString(href)) return href;
    }
    return {};
}

using FormFields = std::vector<std::pair<std::string, std::string>>;

/// A form of keys and values as a client sends it.
inline std::string FormOf(const FormFields& inFields)
{
    std::string body;
    for (const auto& [key, value] : inFields)
        body += EncodePathElement(key) + "=" + EncodePathElement(value) + "&";
    if (!body.empty()) body.pop_back();
    return body;
}

}  // namespace service_test

#include "Platform/noxmarshal/RPCServer.h"

#include <exception>
#include <utility>

#include "Platform/noxcore/Logging.h"
#include "Platform/noxmarshal/MessageRegistrar.h"

namespace noxmarshal {

namespace {

using noxcore::serialization::JSONDocument;
using noxtransport::Session;

constexpr std::string_view kUnknownID = "null";

bool IsValidID(const JSONValue& inID)
{
    using Kind = JSONValue::Kind;
    const Kind kind = inID.GetKind();
    return kind == Kind::Missing || kind == Kind::Null || kind == Kind::Number || kind == Kind::String;
}

/// What a request must look like; null when it does.
const char* FindFault(const JSONValue& inRequest)
{
    if (!inRequest.IsObject()) return "The message is no request object";
    std::string text;
    if (!inRequest["jsonrpc"].GetString(text) || text != "2.0") return "The message is not JSON-RPC 2.0";
    if (inRequest["method"].GetKind() != JSONValue::Kind::String) return "The request has no method";
    const JSONValue params = inRequest["params"];
    if (params.Exists() && !params.IsArray() && !params.IsObject()) return "The params are neither array nor object";
    if (!IsValidID(inRequest["id"])) return "The id is neither text nor number";
    return nullptr;
}

}  // namespace

class RPCServer::Dispatcher final : public noxtransport::Receiver
{
public:
    explicit Dispatcher(std::string inName) : mName(std::move(inName)), mRegistrar(MessageRegistrar::Instance()) {}

    void OnMessage(const std::shared_ptr<Session>& inSession, std::string_view inMessage) override
    {
        JSONDocument document;
        if (!document.Parse(inMessage)) {
            inSession->Send(BuildErrorAnswer(kUnknownID, kRPCError_Parse, "The message is not JSON"));
            return;
        }
        const JSONValue request = document.Root();
        if (const char* fault = FindFault(request)) {
            const JSONValue id = request.IsObject() ? request["id"] : JSONValue();
            inSession->Send(BuildErrorAnswer(id.Exists() && IsValidID(id) ? id.Raw() : kUnknownID,
                                             kRPCError_InvalidRequest, fault));
            return;
        }
        Dispatch(inSession, request);
    }

    void OnBroken(const std::shared_ptr<Session>& inSession, std::string_view inReason) override
    {
        inSession->Send(BuildErrorAnswer(kUnknownID, kRPCError_Parse, inReason));
    }

    void OnClosed(const std::shared_ptr<Session>&) override {}

private:
    void Dispatch(const std::shared_ptr<Session>& inSession, const JSONValue& inRequest) const
    {
        std::string method;
        inRequest["method"].GetString(method);
        const JSONValue id = inRequest["id"];
        const auto responder =
            std::make_shared<Responder>(inSession, id.Exists() ? std::string(id.Raw()) : std::string(), method);
        const auto handler = mRegistrar->Find(method);
        if (handler == nullptr) {
            responder->SendError(kRPCError_MethodNotFound, "There is no such method");
            return;
        }
        try {
            (*handler)(Arguments(inRequest["params"]), responder);
        } catch (const std::exception& exception) {
            noxcore::logging::LogError("noxmarshal", "A request handler ended with an exception",
                                       {{"server", mName}, {"method", method}, {"exception", exception.what()}});
            // The responder's end answers, unless the handler did or has handed it on.
        }
    }

    const std::string mName;
    const std::shared_ptr<MessageRegistrar> mRegistrar;
};

RPCServer::RPCServer(std::shared_ptr<noxtransport::SocketTransport::Server> inServer, std::string inName)
    : mServer(std::move(inServer)), mDispatcher(std::make_shared<Dispatcher>(std::move(inName)))
{
    mServer->SetReceiver(mDispatcher);
}

RPCServer::~RPCServer()
{
    mServer->SetReceiver({});
}

}  // namespace noxmarshal

#include "Platform/noxmarshal/Responder.h"

#include <utility>

#include "Platform/noxcore/Logging.h"

namespace noxmarshal {

std::string BuildErrorAnswer(std::string_view inID, int inCode, std::string_view inMessage)
{
    JSONWriter writer;
    writer.BeginObject();
    writer.Member("jsonrpc", "2.0");
    writer.Key("id");
    writer.Raw(inID);
    writer.Key("error");
    writer.BeginObject();
    writer.Key("code");
    writer.Int(inCode);
    writer.Member("message", inMessage);
    writer.EndObject();
    writer.EndObject();
    return writer.TakeText();
}

Responder::Responder(std::shared_ptr<noxtransport::Session> inSession, std::string inID, std::string inMethod)
    : mSession(std::move(inSession)), mID(std::move(inID)), mMethod(std::move(inMethod))
{
}

Responder::~Responder()
{
    if (!mAnswered) SendError(kRPCError_Internal, "The request was not answered");
}

bool Responder::BeginAnswer()
{
    if (mAnswered.exchange(true)) {
        noxcore::logging::LogWarning("noxmarshal", "A request was answered twice",
                                     {{"method", mMethod}, {"session", SessionID()}});
        return false;
    }
    return !mID.empty();
}

void Responder::SendResult(std::string_view inResultJSON)
{
    if (!BeginAnswer()) return;
    JSONWriter writer;
    writer.BeginObject();
    writer.Member("jsonrpc", "2.0");
    writer.Key("id");
    writer.Raw(mID);
    writer.Key("result");
    writer.Raw(inResultJSON);
    writer.EndObject();
    mSession->Send(writer.Text());
}

void Responder::SendGeneralResult(std::string_view inValueJSON)
{
    JSONWriter writer;
    writer.BeginObject();
    writer.Key("value");
    writer.Raw(inValueJSON);
    writer.EndObject();
    SendResult(writer.Text());
}

void Responder::SendSimpleOK()
{
    SendResult("{}");
}

void Responder::SendError(int inCode, std::string_view inMessage)
{
    if (!BeginAnswer()) return;
    mSession->Send(BuildErrorAnswer(mID, inCode, inMessage));
}

}  // namespace noxmarshal

#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/noxmarshal/RPCError.h"
#include "Platform/noxmarshal/Record.h"
#include "Platform/noxtransport/SocketTransport.h"

namespace noxmarshal {

/// Answers one request, now or later. The first answer counts; a further one is logged and dropped. A responder that
/// goes without having answered sends an internal error, so that no caller waits for ever. Nothing is sent for a
/// notification or over a session that has ended.
///
/// Threading: any thread.
class Responder
{
public:
    /// inID is the JSON text of the request's id; empty for a notification.
    Responder(std::shared_ptr<noxtransport::Session> inSession, std::string inID, std::string inMethod);
    ~Responder();
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

    /// The result is an object whose "value" is the record.
    template <Record T>
    void SendGeneralResult(const T& inRecord)
    {
        SendGeneralResult(ToJSON(inRecord));
    }
    /// The same with the record's JSON text.
    void SendGeneralResult(std::string_view inValueJSON);
    /// The result is an empty object.
    void SendSimpleOK();
    void SendError(int inCode, std::string_view inMessage);

    /// The session that asked; the ID that the session callbacks were given.
    [[nodiscard]] const std::string& SessionID() const { return mSession->ID(); }

private:
    bool BeginAnswer();
    void SendResult(std::string_view inResultJSON);

    const std::shared_ptr<noxtransport::Session> mSession;
    const std::string mID;
    const std::string mMethod;
    std::atomic<bool> mAnswered{false};
};

/// The text of an error answer. inID is JSON text; "null" when the id is not known.
std::string BuildErrorAnswer(std::string_view inID, int inCode, std::string_view inMessage);

}  // namespace noxmarshal

#include "Platform/noxnet/AnswerText.h"

#include <ctime>

#include <boost/beast/http/status.hpp>

#include "Platform/noxcore/Clock.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/IncomingRequest.h"

namespace noxnet::http::server {

namespace {

/// The date of an answer. It changes once a second, so each thread keeps its last one.
const std::string& DateText(std::int64_t inNow)
{
    thread_local std::int64_t tSecond = -1;
    thread_local std::string tText;
    const std::int64_t second = inNow / noxcore::kTicksPerSecond;
    if (second != tSecond) {
        const auto time = static_cast<std::time_t>(second);
        std::tm parts{};
        ::gmtime_r(&time, &parts);
        char buffer[64];
        // The names of days and months are those of the C locale, which the hub never leaves.
        tText.assign(buffer, std::strftime(buffer, sizeof(buffer), "%a, %d %b %Y %H:%M:%S GMT", &parts));
        tSecond = second;
    }
    return tText;
}

bool IsSafe(std::string_view inText)
{
    using namespace std::string_view_literals;
    return inText.find_first_of("\r\n\0"sv) == std::string_view::npos;
}

/// Headers that are the server's own business.
bool IsOwnHeader(std::string_view inName)
{
    return EqualWithoutCase(inName, "Content-Length") || EqualWithoutCase(inName, "Connection") ||
           EqualWithoutCase(inName, "Transfer-Encoding") || EqualWithoutCase(inName, "Date");
}

void AppendHeader(std::string& ioText, std::string_view inName, std::string_view inValue)
{
    ioText += inName;
    ioText += ": ";
    ioText += inValue;
    ioText += "\r\n";
}

}  // namespace

EncodedAnswer EncodeAnswer(const MutableResponse& inResponse, const AnswerTraits& inTraits)
{
    const int status =
        inResponse.mStatus >= 200 && inResponse.mStatus <= 599 ? inResponse.mStatus : kHTTPStatus_InternalServerError;
    EncodedAnswer answer;
    answer.mClose = !inTraits.mKeepAlive;
    std::string& text = answer.mHead;
    text.reserve(256);
    text += inTraits.mHTTP11 ? "HTTP/1.1 " : "HTTP/1.0 ";
    text += std::to_string(status);
    text += ' ';
    const auto reason = boost::beast::http::obsolete_reason(static_cast<boost::beast::http::status>(status));
    text.append(reason.data(), reason.size());
    text += "\r\n";
    for (const auto& [name, value] : inResponse.mHeaders) {
        if (IsOwnHeader(name)) continue;
        if (IsSafe(name) && IsSafe(value))
            AppendHeader(text, name, value);
        else
            noxcore::logging::LogWarning("noxnet", "Header with a line break left out", {{"status", status}});
    }
    const bool mayHaveBody = status != kHTTPStatus_NoContent && status != kHTTPStatus_NotModified;
    if (mayHaveBody) {
        const std::size_t size = inResponse.mPayload ? inResponse.mPayload->size() : 0;
        AppendHeader(text, "Content-Length", std::to_string(size));
        if (size > 0 && !inTraits.mHead) answer.mBody = inResponse.mPayload;
    }
    AppendHeader(text, "Date", DateText(inTraits.mNow));
    if (!inTraits.mKeepAlive)
        AppendHeader(text, "Connection", "close");
    else if (!inTraits.mHTTP11)
        AppendHeader(text, "Connection", "keep-alive");
    text += "\r\n";
    return answer;
}

}  // namespace noxnet::http::server

#include "Inc/Service/ServiceUtils.h"

#include <algorithm>
#include <stdexcept>

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/ProjectBox.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/Murmur3.h"

namespace VantryLocalHub {

using noxcore::logging::LogError;
using noxcore::logging::LogWarning;
using noxnet::http::server::MutableResponse;
using noxnet::http::server::Request;

namespace {

constexpr std::string_view kScheme = "http";
constexpr std::string_view kSchemeSeparator = "://";
constexpr std::string_view kHashSeed = "VantryLocalHub::HashPayload";
constexpr int kStackDepth = 10;

/// Puts the elements into the places of the format, in order. False when the result is too long.
bool Print(std::string_view inFormat, const std::string_view (&inElements)[4], std::string& outPath)
{
    std::size_t element = 0;
    std::size_t begin = 0;
    for (auto place = inFormat.find('%'); place != std::string_view::npos; place = inFormat.find('%', begin)) {
        outPath.append(inFormat, begin, place - begin);
        outPath.append(inElements[element++]);
        begin = place + 2;
        if (outPath.size() > kMaxFormattedPath) return false;
    }
    outPath.append(inFormat, begin);
    return outPath.size() <= kMaxFormattedPath;
}

bool FindSubExpression(const Request& inRequest, int inIndex, std::string_view& outText)
{
    const auto& groups = inRequest.Match();
    if (inIndex >= 0 && static_cast<std::size_t>(inIndex) < groups.size()) {
        outText = groups[static_cast<std::size_t>(inIndex)];
        return true;
    }
    LogWarning(kServiceLogCategory, "Insufficient number of regex subexpressions",
               {{"size", groups.size()},
                {"expected", inIndex},
                {"url", inRequest.URL()},
                {"requestID", inRequest.Header(noxnet::kHEADER_XRequestID)}});
    return false;
}

}  // namespace

bool ExtractSubExpression(const Request& inRequest, int inIndex, std::string& outText)
{
    std::string_view text;
    if (!FindSubExpression(inRequest, inIndex, text)) return false;
    outText = text;
    return true;
}

bool ExtractSubExpression(const Request& inRequest, int inIndex, ImmutableString& outText)
{
    std::string_view text;
    if (!FindSubExpression(inRequest, inIndex, text)) return false;
    outText = text;
    return true;
}

ImmutableString FindProductionKey(const Request& inRequest)
{
    ImmutableString id;
    const auto projectBox = ProjectBox::Instance();
    dto::Session session;
    if (!ExtractSubExpression(inRequest, 1, id) || projectBox == nullptr ||
        !noxnet::IsSuccessfulHTTPStatus(projectBox->GetSession(id, session)))
        return id;
    return session.mProductionID;
}

std::string FormatURL(const Request& inRequest, URLFormat inFormat, std::string_view inElement1,
                      std::string_view inElement2, std::string_view inElement3, std::string_view inElement4,
                      std::uint16_t inPort)
{
    const std::string_view authority = inRequest.Header(noxnet::kHEADER_Host);
    if (authority.empty()) {
        LogError(kServiceLogCategory, "Request does not have a HOST",
                 {{"url", inRequest.URL()},
                  {"method", inRequest.Method().View()},
                  {"expression", "authority == noxnet::URIElement()"},
                  {"stack", noxcore::logging::StackTrace(kStackDepth)}});
        return {};
    }
    std::string url = std::string(kScheme).append(kSchemeSeparator).append(authority);
    if (inPort != 0) url.append(":").append(std::to_string(inPort));
    if (inFormat.Text().empty()) return url;
    std::string path;
    if (!Print(inFormat.Text(), {inElement1, inElement2, inElement3, inElement4}, path)) {
        LogError(kServiceLogCategory, "URL too long",
                 {{"formatString", inFormat.Text()},
                  {"inElement1", inElement1},
                  {"inElement2", inElement2},
                  {"inElement3", inElement3},
                  {"inElement4", inElement4}});
        return {};
    }
    if (!path.starts_with('/')) url.append("/");
    return url.append(path);
}

bool CanMakeURLs(const Request& inRequest)
{
    return !FormatURL(inRequest, URLFormat("")).empty();
}

bool IsUTF8(std::string_view inText)
{
    // A text of JSON is well-formed exactly when it is UTF-8.
    if (std::ranges::none_of(inText, [](char inChar) { return static_cast<unsigned char>(inChar) >= 0x80U; }))
        return true;
    noxcore::serialization::JSONWriter writer;
    writer.String(inText);
    return noxcore::serialization::MinifyJSON(writer.Text()).has_value();
}

bool IsLinkable(std::string_view inName)
{
    constexpr std::size_t kLongestElement = 512;
    return !inName.empty() && IsUTF8(inName) && EncodePathElement(inName).size() <= kLongestElement;
}

std::string EncodePathElement(std::string_view inText)
{
    constexpr std::string_view kKept = "-_.0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    text.reserve(inText.size());
    for (const char letter : inText) {
        if (kKept.find(letter) != std::string_view::npos) {
            text += letter;
        } else {
            const auto byte = static_cast<unsigned char>(letter);
            text += {'%', kDigits[byte >> 4U], kDigits[byte & 15U]};
        }
    }
    return text;
}

std::string LinkMaker::URL(URLFormat inFormat, std::string_view inElement1, std::string_view inElement2,
                           std::string_view inElement3, std::string_view inElement4)
{
    if (mFailed) return {};  // the first failure has been told
    std::string url = FormatURL(mRequest, inFormat, EncodePathElement(inElement1), EncodePathElement(inElement2),
                                EncodePathElement(inElement3), EncodePathElement(inElement4));
    mFailed = url.empty();
    return url;
}

std::string HashPayload(std::string_view inPayload)
{
    noxcore::utility::Murmur3 hash;
    hash.Add(kHashSeed);
    hash.Add(inPayload);
    return noxcore::utility::Guid(hash.Finish()).Text();
}

bool SetEntityTag(const Request& inRequest, std::string_view inTag, MutableResponse& outResponse)
{
    outResponse.SetHeader(noxnet::kHEADER_ETag, inTag);
    const std::string_view known = inRequest.Header(noxnet::kHEADER_IfNoneMatch);
    return !known.empty() && known == inTag;
}

void SetPayload(std::string inPayload, MutableResponse& outResponse)
{
    outResponse.mPayload = noxcore::utility::MakeRecycledMemory(std::move(inPayload));
}

int SetPayloadWithEntityTag(const Request& inRequest, std::string inPayload, MutableResponse& outResponse)
{
    if (SetEntityTag(inRequest, HashPayload(inPayload), outResponse)) return noxnet::kHTTPStatus_NotModified;
    SetPayload(std::move(inPayload), outResponse);
    return noxnet::kHTTPStatus_OK;
}

bool HasHeader(const Request& inRequest, std::string_view inName)
{
    // A header without a value is a place in the request all the same.
    return inRequest.Header(inName).data() != nullptr;
}

bool IsRead(const Request& inRequest)
{
    return inRequest.Method() == "GET" || inRequest.Method() == "HEAD";
}

dto::Stats StatsOfAll(std::size_t inCount)
{
    const int count = static_cast<int>(inCount);
    return {count, 0, count, count};
}

std::string_view PayloadText(const Request& inRequest)
{
    const auto& payload = inRequest.Payload();
    return payload == nullptr ? std::string_view() : payload->View();
}

bool QueryIsTrue(const Request& inRequest, std::string_view inKey)
{
    return inRequest.QueryValue(inKey) == VYCL::QueryKeys::kTrue;
}

bool ReadFormBoolean(std::string_view inKey, std::string_view inValue)
{
    const std::string_view yes = VYCL::LocalHub::FormValue_True();
    const std::string_view no = VYCL::LocalHub::FormValue_False();
    if (inValue == yes) return true;
    if (inValue == no) return false;
    throw std::invalid_argument(std::string("ReadForm: ")
                                    .append(inKey)
                                    .append(": Expected either \"")
                                    .append(yes)
                                    .append("\" or \"")
                                    .append(no)
                                    .append("\""));
}

std::vector<noxnet::http::server::FormField> ReadFormFields(const Request& inRequest)
{
    std::vector<noxnet::http::server::FormField> fields;
    if (!inRequest.FormFields(fields)) throw std::invalid_argument("ReadForm: invalid input");
    return fields;
}

}  // namespace VantryLocalHub

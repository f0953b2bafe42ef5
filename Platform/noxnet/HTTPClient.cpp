#include "Platform/noxnet/HTTPClient.h"

#include <curl/curl.h>
#include <strings.h>

#include <algorithm>

#include "Platform/noxnet/HTTPStatus.h"

namespace noxnet::http::client {

bool TextBody::Rewind()
{
    mPlace = 0;
    return true;
}

std::optional<std::size_t> TextBody::Read(std::span<char> outBytes)
{
    const std::size_t size = mText.copy(outBytes.data(), outBytes.size(), mPlace);
    mPlace += size;
    return size;
}

std::string_view Answer::Header(std::string_view inName) const
{
    for (const auto& [name, value] : mHeaders) {
        if (name.size() == inName.size() && strncasecmp(name.data(), inName.data(), name.size()) == 0) return value;
    }
    return {};
}

namespace {

struct HandleCloser
{
    void operator()(CURL* inHandle) const { curl_easy_cleanup(inHandle); }
};
struct ListFreer
{
    void operator()(curl_slist* inList) const { curl_slist_free_all(inList); }
};
using HandlePtr = std::unique_ptr<CURL, HandleCloser>;
using ListPtr = std::unique_ptr<curl_slist, ListFreer>;

bool InitialiseOnce()
{
    static const bool initialised = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return initialised;
}

void AddLine(ListPtr& ioList, const std::string& inLine)
{
    if (curl_slist* grown = curl_slist_append(ioList.get(), inLine.c_str())) {
        [[maybe_unused]] curl_slist* before = ioList.release();
        ioList.reset(grown);
    }
}

std::string_view Trimmed(std::string_view inText)
{
    const std::size_t begin = std::min(inText.find_first_not_of(" \t\r\n"), inText.size());
    const std::size_t end = inText.find_last_not_of(" \t\r\n");
    return end == std::string_view::npos ? std::string_view() : inText.substr(begin, end + 1 - begin);
}

/// Bytes of a body that go to the socket in one call.
constexpr long kUploadBufferBytes = 256L * 1024;

/// One request on its way: what the library's callbacks see.
struct Exchange
{
    CURL* mHandle = nullptr;
    const Request* mRequest = nullptr;
    const Settings* mSettings = nullptr;
    Answer* mAnswer = nullptr;
    const char* mReason = nullptr;  ///< why this side gave up
};

std::size_t TakeHeader(char* inBytes, std::size_t inSize, std::size_t inCount, void* inExchange)
{
    auto& exchange = *static_cast<Exchange*>(inExchange);
    const std::string_view line(inBytes, inSize * inCount);
    if (line.starts_with("HTTP/")) exchange.mAnswer->mHeaders.clear();  // what came before was an interim answer
    const std::size_t colon = line.find(':');
    if (colon != std::string_view::npos)
        exchange.mAnswer->mHeaders.emplace_back(Trimmed(line.substr(0, colon)), Trimmed(line.substr(colon + 1)));
    return line.size();
}

std::size_t TakeBody(char* inBytes, std::size_t inSize, std::size_t inCount, void* inExchange)
{
    auto& exchange = *static_cast<Exchange*>(inExchange);
    const std::string_view bytes(inBytes, inSize * inCount);
    long status = 0;
    curl_easy_getinfo(exchange.mHandle, CURLINFO_RESPONSE_CODE, &status);
    if (exchange.mRequest->mSink && IsSuccessfulHTTPStatus(static_cast<int>(status))) {
        if (exchange.mRequest->mSink(bytes)) return bytes.size();
        exchange.mReason = "the answer cannot be written";
        return 0;
    }
    if (exchange.mAnswer->mBody.size() + bytes.size() > exchange.mSettings->mMaxAnswerBytes) {
        exchange.mReason = "the answer is too large";
        return 0;
    }
    exchange.mAnswer->mBody += bytes;
    return bytes.size();
}

std::size_t GiveBody(char* outBytes, std::size_t inSize, std::size_t inCount, void* inExchange)
{
    auto& exchange = *static_cast<Exchange*>(inExchange);
    const auto size = exchange.mRequest->mBody->Read({outBytes, inSize * inCount});
    if (size) return *size;
    exchange.mReason = "the body cannot be read";
    return CURL_READFUNC_ABORT;
}

int RewindBody(void* inExchange, curl_off_t inOffset, int inOrigin)
{
    const auto& exchange = *static_cast<Exchange*>(inExchange);
    const bool toBegin = inOffset == 0 && inOrigin == SEEK_SET;
    return toBegin && exchange.mRequest->mBody->Rewind() ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

int LookWhetherToStop(void* inExchange, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    auto& exchange = *static_cast<Exchange*>(inExchange);
    if (!exchange.mSettings->mShouldStop || !exchange.mSettings->mShouldStop()) return 0;
    exchange.mReason = "interrupted";
    return 1;
}

class CurlClient final : public Client
{
public:
    CurlClient(HandlePtr inHandle, const std::string& inAddress, std::uint16_t inPort, Settings inSettings)
        : mHandle(std::move(inHandle)),
          mOrigin("http://" + inAddress + ":" + std::to_string(inPort)),
          mSettings(std::move(inSettings))
    {
    }

    bool Send(const Request& inRequest, Answer& outAnswer, std::string& outError) override
    {
        outAnswer = {};
        CURL* handle = mHandle.get();
        Exchange exchange{handle, &inRequest, &mSettings, &outAnswer, nullptr};
        curl_easy_reset(handle);  // keeps the connection
        SetTransport(handle, inRequest, exchange);
        ListPtr headers = SetBody(handle, inRequest, exchange);
        for (const auto& [name, value] : inRequest.mHeaders)
            AddLine(headers, std::string(name).append(": ").append(value));
        AddLine(headers, "Expect:");  // a server of ours answers at the end, whatever the size
        curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
        char text[CURL_ERROR_SIZE] = "";
        curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, text);
        if (inRequest.mBody && !inRequest.mBody->Rewind()) {
            outError = "the body cannot be read";
            return false;
        }
        const CURLcode result = curl_easy_perform(handle);
        curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, nullptr);
        if (result == CURLE_OK) {
            long status = 0;
            curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
            outAnswer.mStatus = static_cast<int>(status);
            return true;
        }
        outError = exchange.mReason ? exchange.mReason : text[0] ? text : curl_easy_strerror(result);
        return false;
    }

private:
    void SetTransport(CURL* inHandle, const Request& inRequest, Exchange& inExchange) const
    {
        curl_easy_setopt(inHandle, CURLOPT_URL, (mOrigin + inRequest.mTarget).c_str());
        curl_easy_setopt(inHandle, CURLOPT_PATH_AS_IS, 1L);
        curl_easy_setopt(inHandle, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(inHandle, CURLOPT_PROXY, "");
        curl_easy_setopt(inHandle, CURLOPT_NOPROXY, "*");
        curl_easy_setopt(inHandle, CURLOPT_PROTOCOLS_STR, "http");
        curl_easy_setopt(inHandle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        curl_easy_setopt(inHandle, CURLOPT_CONNECTTIMEOUT, static_cast<long>(mSettings.mConnectTimeoutInSeconds));
        curl_easy_setopt(inHandle, CURLOPT_LOW_SPEED_LIMIT, 1L);
        curl_easy_setopt(inHandle, CURLOPT_LOW_SPEED_TIME, static_cast<long>(mSettings.mStallTimeoutInSeconds));
        curl_easy_setopt(inHandle, CURLOPT_HEADERFUNCTION, &TakeHeader);
        curl_easy_setopt(inHandle, CURLOPT_HEADERDATA, &inExchange);
        curl_easy_setopt(inHandle, CURLOPT_WRITEFUNCTION, &TakeBody);
        curl_easy_setopt(inHandle, CURLOPT_WRITEDATA, &inExchange);
        curl_easy_setopt(inHandle, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(inHandle, CURLOPT_XFERINFOFUNCTION, &LookWhetherToStop);
        curl_easy_setopt(inHandle, CURLOPT_XFERINFODATA, &inExchange);
    }

    static ListPtr SetBody(CURL* inHandle, const Request& inRequest, Exchange& inExchange)
    {
        ListPtr headers;
        if (inRequest.mBody) {
            curl_easy_setopt(inHandle, CURLOPT_POST, 1L);
            curl_easy_setopt(inHandle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(inRequest.mBody->Size()));
            curl_easy_setopt(inHandle, CURLOPT_READFUNCTION, &GiveBody);
            curl_easy_setopt(inHandle, CURLOPT_READDATA, &inExchange);
            curl_easy_setopt(inHandle, CURLOPT_UPLOAD_BUFFERSIZE, kUploadBufferBytes);
            curl_easy_setopt(inHandle, CURLOPT_SEEKFUNCTION, &RewindBody);
            curl_easy_setopt(inHandle, CURLOPT_SEEKDATA, &inExchange);
            AddLine(headers, "Content-Type: " + inRequest.mContentType);
        }
        if (inRequest.mMethod == "HEAD") curl_easy_setopt(inHandle, CURLOPT_NOBODY, 1L);  // else it waits for the body
        curl_easy_setopt(inHandle, CURLOPT_CUSTOMREQUEST, inRequest.mMethod.c_str());
        return headers;
    }

    const HandlePtr mHandle;
    const std::string mOrigin;
    const Settings mSettings;
};

}  // namespace

std::unique_ptr<Client> Client::Create(const std::string& inAddress, std::uint16_t inPort, Settings inSettings)
{
    HandlePtr handle(InitialiseOnce() ? curl_easy_init() : nullptr);
    if (!handle) return nullptr;
    return std::make_unique<CurlClient>(std::move(handle), inAddress, inPort, std::move(inSettings));
}

}  // namespace noxnet::http::client

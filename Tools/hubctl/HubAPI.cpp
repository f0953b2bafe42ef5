#include "Tools/hubctl/HubAPI.h"

#include <algorithm>

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace hubctl {

namespace client = noxnet::http::client;
namespace Template = VYCL::URLTemplate;

namespace {

constexpr const char* kJSONType = "application/json; charset=utf-8";
constexpr int kMaxRedirects = 3;

struct StatusMeaning
{
    int mStatus;
    const char* mMeaning;
};

constexpr StatusMeaning kMeanings[] = {
    {400, "the hub does not understand the request"},
    {403, "the hub refuses it"},
    {404, "there is no such thing"},
    {409, "it conflicts with what is there"},
    {412, "it is too late: the state has changed, or the transaction is closed"},
    {413, "it is too large for one request"},
    {415, "the hub does not understand the body"},
    {423, "it is being synchronized"},
    {500, "the hub failed; its log tells why"},
    {501, "not available yet"},
    {503, "the hub is busy or ending"},
};

/// The target of a redirect, with the query of the first request. Empty for none of ours.
std::string RedirectTarget(const client::Answer& inAnswer, std::string_view inTarget)
{
    std::string location(inAnswer.Header("Location"));
    if (!location.starts_with('/')) return {};
    const std::size_t query = inTarget.find('?');
    if (query != std::string_view::npos && location.find('?') == std::string::npos) location += inTarget.substr(query);
    return location;
}

}  // namespace

const char* MeaningOf(int inStatus)
{
    const auto* const found = std::find_if(std::begin(kMeanings), std::end(kMeanings),
                                           [&](const StatusMeaning& inRow) { return inRow.mStatus == inStatus; });
    return found == std::end(kMeanings) ? "unexpected" : found->mMeaning;
}

std::string FillURL(std::string_view inTemplate, const std::vector<std::string_view>& inValues)
{
    std::string url;
    auto value = inValues.begin();
    while (!inTemplate.empty() && value != inValues.end()) {
        const std::size_t place = inTemplate.find_first_of("%{");
        if (place == std::string_view::npos) break;
        const std::size_t end = inTemplate[place] == '{' ? inTemplate.find('}', place) + 1 : place + 2;
        url += inTemplate.substr(0, place);
        url += *value++;
        inTemplate.remove_prefix(end);
    }
    return url + std::string(inTemplate);
}

bool IsIdentifier(std::string_view inText)
{
    return !inText.empty() && std::all_of(inText.begin(), inText.end(), [](char inChar) {
        return (inChar >= '0' && inChar <= '9') || (inChar >= 'a' && inChar <= 'z') ||
               (inChar >= 'A' && inChar <= 'Z') || inChar == '-' || inChar == '_';
    });
}

bool HubAPI::Exchange(client::Request inRequest, client::Answer& outAnswer, std::string& outError)
{
    for (int i = 0; i <= kMaxRedirects; ++i) {
        if (!mClient->Send(inRequest, outAnswer, outError)) return false;
        if (outAnswer.mStatus != noxnet::kHTTPStatus_TemporaryRedirect) return true;
        std::string target = RedirectTarget(outAnswer, inRequest.mTarget);
        if (target.empty()) return true;
        inRequest.mTarget = std::move(target);
    }
    return true;
}

bool HubAPI::Send(client::Request inRequest, std::string& outBody, Failure& outFailure)
{
    const std::string what = inRequest.mMethod + " " + inRequest.mTarget;
    client::Answer answer;
    std::string error;
    if (!Exchange(std::move(inRequest), answer, error)) {
        outFailure = {0, what + ": " + error};
        return false;
    }
    if (noxnet::IsSuccessfulHTTPStatus(answer.mStatus)) {
        outBody = std::move(answer.mBody);
        return true;
    }
    outFailure = {answer.mStatus,
                  what + ": status " + std::to_string(answer.mStatus) + ", " + MeaningOf(answer.mStatus)};
    return false;
}

bool HubAPI::Get(const std::string& inURL, std::string& outBody, Failure& outFailure)
{
    client::Request request;
    request.mTarget = inURL;
    return Send(std::move(request), outBody, outFailure);
}

bool HubAPI::Download(const std::string& inURL, std::function<bool(std::string_view)> inSink, Failure& outFailure)
{
    client::Request request;
    request.mTarget = inURL;
    request.mSink = std::move(inSink);
    std::string none;
    return Send(std::move(request), none, outFailure);
}

bool HubAPI::PostJSON(const std::string& inURL, std::string inBody, std::string& outBody, Failure& outFailure)
{
    client::TextBody body(std::move(inBody));
    return Send({.mMethod = "POST", .mTarget = inURL, .mContentType = kJSONType, .mBody = &body, .mSink = {}}, outBody,
                outFailure);
}

bool HubAPI::PostForm(const std::string& inURL, client::MultipartForm& ioForm, std::string& outBody,
                      Failure& outFailure)
{
    return Send(
        {.mMethod = "POST", .mTarget = inURL, .mContentType = ioForm.ContentType(), .mBody = &ioForm, .mSink = {}},
        outBody, outFailure);
}

bool HubAPI::Delete(const std::string& inURL, Failure& outFailure)
{
    std::string none;
    return Send({.mMethod = "DELETE", .mTarget = inURL, .mContentType = {}, .mBody = nullptr, .mSink = {}}, none,
                outFailure);
}

template <class Record>
bool HubAPI::PostJSONForRecord(const std::string& inURL, std::string inBody, Record& outRecord, Failure& outFailure)
{
    std::string body;
    return PostJSON(inURL, std::move(inBody), body, outFailure) && ReadBody(inURL, body, outRecord, outFailure);
}

bool HubAPI::CreateLocalProduction(const std::string& inProperties, dto::SessionResource& outSession,
                                   Failure& outFailure)
{
    const std::string url(Template::kProductions_LocalOnly);
    if (!PostJSONForRecord(url, inProperties, outSession, outFailure)) return false;
    if (!outSession.mSessionID.empty()) return true;
    outFailure = Unreadable(url);
    return false;
}

bool HubAPI::OpenTransaction(std::string_view inSession, dto::TransactionResource& outTransaction, Failure& outFailure)
{
    const std::string url = FillURL(Template::kTransactions, {inSession, VYCL::LocalHub::Revision_HEAD()});
    dto::TransactionCreate create;
    create.mRequireHead = true;
    if (!PostJSONForRecord(url, dto::ToJSON(create), outTransaction, outFailure)) return false;
    if (!outTransaction.mTransactionID.empty()) return true;
    outFailure = Unreadable(url);
    return false;
}

bool HubAPI::PostRows(const std::string& inURL, client::MultipartForm& ioForm, dto::TransactionResult& outResult,
                      Failure& outFailure)
{
    std::string body;
    return PostForm(inURL, ioForm, body, outFailure) && ReadBody(inURL, body, outResult, outFailure);
}

bool HubAPI::BulkCreate(std::string_view inTransaction, client::MultipartForm& ioForm,
                        dto::TransactionResult& outResult, Failure& outFailure)
{
    return PostRows(FillURL(Template::kTransactionBulkCreate, {inTransaction}), ioForm, outResult, outFailure);
}

bool HubAPI::BulkEdit(std::string_view inTransaction, client::MultipartForm& ioForm, dto::TransactionResult& outResult,
                      Failure& outFailure)
{
    return PostRows(FillURL(Template::kTransactionBulkEdit, {inTransaction}), ioForm, outResult, outFailure);
}

bool HubAPI::Commit(std::string_view inTransaction, std::string_view inMessage, dto::TransactionResource& outCommitted,
                    Failure& outFailure)
{
    noxcore::serialization::JSONWriter form;
    form.BeginObject();
    form.Member(VYCL::FormKeys::kCommitMessage, inMessage);
    form.EndObject();
    return PostJSONForRecord(FillURL(Template::kTransactionCommit, {inTransaction}), form.TakeText(), outCommitted,
                             outFailure);
}

bool HubAPI::Rollback(std::string_view inTransaction, Failure& outFailure)
{
    std::string none;
    return PostJSON(FillURL(Template::kTransactionRollback, {inTransaction}), "{}", none, outFailure);
}

bool HubAPI::GetAsset(std::string_view inSession, std::string_view inRevision, std::string_view inAsset,
                      dto::Asset& outAsset, Failure& outFailure)
{
    return GetRecord(FillURL(Template::kAsset, {inSession, inRevision, inAsset}), outAsset, outFailure);
}

bool HubAPI::GetCondensedAssets(std::string_view inSession, std::string_view inRevision,
                                dto::CondensedAssetsResource& outAssets, Failure& outFailure)
{
    return GetRecord(FillURL(Template::kAssets_ViewCondensed, {inSession, inRevision}), outAssets, outFailure);
}

Failure HubAPI::Unreadable(const std::string& inURL)
{
    // The state at the hub is unknown, so this counts as no answer.
    return {0, inURL + ": the answer cannot be understood"};
}

}  // namespace hubctl

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Client/Wire/AssetLists.h"
#include "Client/Wire/SessionResource.h"
#include "Client/Wire/Transaction.h"
#include "Platform/noxnet/HTTPClient.h"
#include "Platform/noxnet/MultipartForm.h"

namespace hubctl {

namespace dto = VantryLocalHub::dto;

/// Why a request did not succeed.
struct Failure
{
    int mStatus = 0;    ///< what the hub answered; 0: there was no answer
    std::string mText;  ///< one sentence for people

    [[nodiscard]] bool GotAnswer() const { return mStatus != 0; }
};

/// Fills the "%s" and the braces of a URL template, one after the other.
std::string FillURL(std::string_view inTemplate, const std::vector<std::string_view>& inValues);
/// True for a text that can stand as an identifier or a revision in a URL.
bool IsIdentifier(std::string_view inText);

/// What a status of a failure means, in words for people.
const char* MeaningOf(int inStatus);

/// The hub's HTTP API in the words of its records. Waits for each answer.
///
/// Each operation is true for a status from 200 to 299 with a body that can be read; false with outFailure filled.
/// Threading: one thread at a time.
class HubAPI
{
public:
    explicit HubAPI(std::unique_ptr<noxnet::http::client::Client> inClient) : mClient(std::move(inClient)) {}

    /// Follows a redirect to the concrete revision; its Location is a path, so the query goes with it. True for an
    /// answer of whatever status; false with the reason where there is none.
    bool Exchange(noxnet::http::client::Request inRequest, noxnet::http::client::Answer& outAnswer,
                  std::string& outError);
    bool Get(const std::string& inURL, std::string& outBody, Failure& outFailure);
    /// The same for a body that is not kept.
    bool Download(const std::string& inURL, std::function<bool(std::string_view)> inSink, Failure& outFailure);
    bool PostJSON(const std::string& inURL, std::string inBody, std::string& outBody, Failure& outFailure);
    bool PostForm(const std::string& inURL, noxnet::http::client::MultipartForm& ioForm, std::string& outBody,
                  Failure& outFailure);
    bool Delete(const std::string& inURL, Failure& outFailure);

    template <class Record>
    bool GetRecord(const std::string& inURL, Record& outRecord, Failure& outFailure)
    {
        std::string body;
        return Get(inURL, body, outFailure) && ReadBody(inURL, body, outRecord, outFailure);
    }

    bool CreateLocalProduction(const std::string& inProperties, dto::SessionResource& outSession, Failure& outFailure);
    /// Opens one at the head of the session, which must still be there when it is committed.
    bool OpenTransaction(std::string_view inSession, dto::TransactionResource& outTransaction, Failure& outFailure);
    bool BulkCreate(std::string_view inTransaction, noxnet::http::client::MultipartForm& ioForm,
                    dto::TransactionResult& outResult, Failure& outFailure);
    bool BulkEdit(std::string_view inTransaction, noxnet::http::client::MultipartForm& ioForm,
                  dto::TransactionResult& outResult, Failure& outFailure);
    bool Commit(std::string_view inTransaction, std::string_view inMessage, dto::TransactionResource& outCommitted,
                Failure& outFailure);
    bool Rollback(std::string_view inTransaction, Failure& outFailure);
    bool GetAsset(std::string_view inSession, std::string_view inRevision, std::string_view inAsset,
                  dto::Asset& outAsset, Failure& outFailure);
    bool GetCondensedAssets(std::string_view inSession, std::string_view inRevision,
                            dto::CondensedAssetsResource& outAssets, Failure& outFailure);

private:
    bool Send(noxnet::http::client::Request inRequest, std::string& outBody, Failure& outFailure);
    template <class Record>
    static bool ReadBody(const std::string& inURL, const std::string& inBody, Record& outRecord, Failure& outFailure)
    {
        if (dto::FromJSON(inBody, outRecord)) return true;
        outFailure = Unreadable(inURL);
        return false;
    }
    template <class Record>
    bool PostJSONForRecord(const std::string& inURL, std::string inBody, Record& outRecord, Failure& outFailure);
    bool PostRows(const std::string& inURL, noxnet::http::client::MultipartForm& ioForm,
                  dto::TransactionResult& outResult, Failure& outFailure);
    static Failure Unreadable(const std::string& inURL);

    const std::unique_ptr<noxnet::http::client::Client> mClient;
};

}  // namespace hubctl

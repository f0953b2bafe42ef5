#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/noxnet/HTTPServer.h"

namespace testing_support {

/// A hub's HTTP API in little: one production whose commits are kept in memory. Stricter than a hub: whatever comes
/// out of order, names what is not there or is written other than agreed is answered with 400 and kept as a complaint.
///
/// Threading: any thread; the mutex guards all.
class FakeHub final : public noxnet::http::server::Service
{
public:
    struct StoredAsset
    {
        std::string mProperties;
        std::map<std::string, std::pair<std::string, std::string>> mEnclosures;  // id -> name and payload
    };
    using Assets = std::map<std::string, StoredAsset>;

    FakeHub();
    void FulfillResource(std::shared_ptr<const noxnet::http::server::Request> inRequest,
                         std::shared_ptr<noxnet::http::server::MutableResponse> inResponse,
                         noxnet::http::server::Fulfillment inFulfillment) override;
    [[nodiscard]] const noxnet::http::server::PathExpression& Expression() const override { return mExpression; }

    /// Answers the request with this number (the first is 1) whose text begins so with a status, and does nothing.
    void FailAt(const std::string& inCall, int inNumber, int inStatus);

    /// Method and target of each request, in their order; a transaction's id as "T1", "T2".
    std::vector<std::string> Calls();
    std::vector<std::string> Complaints();
    /// The assets of each commit, the first being the empty production's.
    std::vector<Assets> Commits();
    std::size_t OpenTransactions();
    std::size_t LargestBody();
    bool HasProduction();

    static constexpr const char* kSession = "5e551011-0000-4000-8000-000000000001";

private:
    struct Answer
    {
        int mStatus = 200;
        std::string mBody;
        std::string mLocation;
    };
    using Request = noxnet::http::server::Request;

    Answer Serve(const Request& inRequest);
    Answer Refuse(const std::string& inWhy, int inStatus = 400);
    Answer CreateProduction(const Request& inRequest);
    Answer OpenTransaction(const Request& inRequest);
    Answer ServeTransaction(const Request& inRequest, const std::string& inID, const std::string& inVerb);
    Answer TakeRows(const Request& inRequest, Assets& ioAssets, bool inCreate);
    Answer TakeRow(const noxnet::http::server::FormField& inField, Assets& ioAssets, bool inCreate);
    Answer Commit(const Request& inRequest, const std::string& inID);
    Answer ServeAssets(const std::string& inRevision, bool inCondensed);
    Answer ServeAsset(const std::vector<std::string>& inParts);
    const Assets* AtRevision(const std::string& inRevision) const;
    static std::string AssetJSON(const std::string& inID, const StoredAsset& inAsset, bool inCondensed);
    static std::string RevisionText(std::size_t inIndex);

    const noxnet::http::server::PathExpression mExpression;
    std::mutex mMutex;
    bool mMade = false;
    std::vector<Assets> mCommits{Assets()};
    std::map<std::string, Assets> mTransactions;  // id -> the assets as they would be
    std::vector<std::string> mRowsOfForm;
    int mLastTransaction = 0;
    std::vector<std::string> mCalls;
    std::vector<std::string> mComplaints;
    std::size_t mLargestBody = 0;
    std::map<std::string, std::map<int, int>> mFailures;  // begin of the call -> number -> status
    std::map<std::string, int> mCounts;                   // begin of the call -> how many came
};

}  // namespace testing_support

#include "Tests/hubctl/FakeHub.h"

#include <algorithm>
#include <functional>

#include "Client/Wire/AssetLists.h"
#include "Client/Wire/OpaqueMembers.h"
#include "Client/Wire/Production.h"
#include "Client/Wire/SessionResource.h"
#include "Client/Wire/Transaction.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/JSON.h"

namespace testing_support {

namespace dto = VantryLocalHub::dto;
namespace server = noxnet::http::server;

namespace {

std::vector<std::string> Split(std::string_view inText, char inAt)
{
    std::vector<std::string> parts;
    for (;;) {
        const std::size_t end = inText.find(inAt);
        parts.emplace_back(inText.substr(0, end));
        if (end == std::string_view::npos) return parts;
        inText.remove_prefix(end + 1);
    }
}

std::string Hash(const std::string& inText)
{
    std::string digits = std::to_string(std::hash<std::string>()(inText));
    return digits + std::string(40 - std::min<std::size_t>(40, digits.size()), '0');
}

std::string TextOf(std::string_view inObject, std::string_view inKey)
{
    return dto::TextOf(dto::FindMember(inObject, inKey));
}

bool IsGuid(const std::string& inText)
{
    return noxcore::utility::Guid::FromText(inText).has_value();
}

}  // namespace

FakeHub::FakeHub() : mExpression("^/api/.*$") {}

void FakeHub::FulfillResource(std::shared_ptr<const Request> inRequest,
                              std::shared_ptr<server::MutableResponse> inResponse, server::Fulfillment inFulfillment)
{
    Answer answer;
    {
        const std::lock_guard lock(mMutex);
        answer = Serve(*inRequest);
    }
    inResponse->mStatus = answer.mStatus;
    inResponse->mPayload = noxcore::utility::MakeRecycledMemory(std::move(answer.mBody));
    if (!answer.mLocation.empty()) inResponse->SetHeader(noxnet::kHEADER_Location, answer.mLocation);
    inFulfillment(inResponse);
}

void FakeHub::FailAt(const std::string& inCall, int inNumber, int inStatus)
{
    const std::lock_guard lock(mMutex);
    mFailures[inCall][inNumber] = inStatus;
}

std::vector<std::string> FakeHub::Calls()
{
    const std::lock_guard lock(mMutex);
    return mCalls;
}

std::vector<std::string> FakeHub::Complaints()
{
    const std::lock_guard lock(mMutex);
    return mComplaints;
}

std::vector<FakeHub::Assets> FakeHub::Commits()
{
    const std::lock_guard lock(mMutex);
    return mCommits;
}

std::size_t FakeHub::OpenTransactions()
{
    const std::lock_guard lock(mMutex);
    return mTransactions.size();
}

std::size_t FakeHub::LargestBody()
{
    const std::lock_guard lock(mMutex);
    return mLargestBody;
}

bool FakeHub::HasProduction()
{
    const std::lock_guard lock(mMutex);
    return mMade;
}

FakeHub::Answer FakeHub::Refuse(const std::string& inWhy, int inStatus)
{
    mComplaints.push_back(inWhy);
    return {inStatus, {}, {}};
}

std::string FakeHub::RevisionText(std::size_t inIndex)
{
    const std::string digits = std::to_string(inIndex);
    return std::string(40 - digits.size(), '0') + digits;
}

const FakeHub::Assets* FakeHub::AtRevision(const std::string& inRevision) const
{
    for (std::size_t i = 0; i < mCommits.size(); ++i) {
        if (RevisionText(i) == inRevision) return &mCommits[i];
    }
    return nullptr;
}

FakeHub::Answer FakeHub::Serve(const Request& inRequest)
{
    const std::string method = inRequest.Method().Text();
    const std::string call = method + " " + std::string(inRequest.URL());
    mCalls.push_back(call);
    mLargestBody = std::max(mLargestBody, inRequest.Payload()->size());
    for (const auto& [begin, failures] : mFailures) {
        if (!call.starts_with(begin)) continue;
        const auto failure = failures.find(++mCounts[begin]);
        if (failure != failures.end()) return {failure->second, {}, {}};
    }
    const auto parts = Split(inRequest.Path(), '/');  // "", "api", kind, ...
    const std::string kind = parts.size() > 2 ? parts[2] : "";
    if (call == "POST /api/productions?localOnly=true") return CreateProduction(inRequest);
    if (call == "GET /api/v1/discovery")
        return {200,
                R"({"server":{"name":"TesselProjectsLocalHub","version":"25"},"majorVersion":1,"minorVersion":0})",
                {}};
    if (!mMade) return Refuse(call + " before there is a production", 404);
    if (call == "GET /api/productions") {
        dto::ProductionsResource resource;
        resource.mProductions.resize(1);
        resource.mProductions[0].mProductionID = kSession;
        return {200, dto::ToJSON(resource), {}};
    }
    if (kind == "transaction" && method == "POST" && parts.size() == 5)
        return ServeTransaction(inRequest, parts[3], parts[4]);
    if (parts.size() < 5 || parts[3] != kSession) return Refuse("unexpected " + call, 404);
    if (method == "GET" && parts[4] == "HEAD") {
        auto concrete = parts;
        concrete[4] = RevisionText(mCommits.size() - 1);
        std::string location;
        for (std::size_t i = 1; i < concrete.size(); ++i)
            location += "/" + concrete[i];
        return {307, {}, location};
    }
    if (call == "POST /api/transactions/" + std::string(kSession) + "/HEAD") return OpenTransaction(inRequest);
    if (method == "GET" && kind == "assets") return ServeAssets(parts[4], inRequest.QueryValue("view") == "CONDENSED");
    if (method == "GET" && kind == "asset" && parts.size() >= 6) return ServeAsset(parts);
    if (call == "DELETE /api/production/" + std::string(kSession) + "/-?localOnly=true") {
        mMade = false;
        return {204, {}, {}};
    }
    return Refuse("unexpected " + call, 404);
}

FakeHub::Answer FakeHub::CreateProduction(const Request& inRequest)
{
    if (mMade) return Refuse("a second production");
    dto::RawJSON properties;
    if (!dto::RawJSON::FromText(inRequest.Payload()->View(), properties) || TextOf(properties.Text(), "name").empty())
        return Refuse("a production without a name");
    mMade = true;
    dto::SessionResource session;
    session.mSessionID = kSession;
    session.mParentProductionID = "p-" + std::string(kSession);
    session.mLocalOnly = true;
    session.mProperties = properties;
    return {201, dto::ToJSON(session), {}};
}

FakeHub::Answer FakeHub::OpenTransaction(const Request& inRequest)
{
    dto::TransactionCreate create;
    if (!dto::FromJSON(inRequest.Payload()->View(), create) || !create.mRequireHead)
        return Refuse("a transaction that does not insist on the head", 415);
    if (!mTransactions.empty()) return Refuse("a second transaction beside an open one");
    dto::TransactionResource transaction;
    transaction.mTransactionID = "T" + std::to_string(++mLastTransaction);
    transaction.mCommitID = RevisionText(mCommits.size() - 1);
    mTransactions[transaction.mTransactionID.Text()] = mCommits.back();
    return {201, dto::ToJSON(transaction), {}};
}

FakeHub::Answer FakeHub::ServeTransaction(const Request& inRequest, const std::string& inID, const std::string& inVerb)
{
    const auto found = mTransactions.find(inID);
    if (found == mTransactions.end()) return Refuse(inVerb + " of a transaction that is not open", 404);
    if (inVerb == "bulkCreate") return TakeRows(inRequest, found->second, true);
    if (inVerb == "bulkEdit") return TakeRows(inRequest, found->second, false);
    if (inVerb == "commit") return Commit(inRequest, inID);
    if (inVerb != "rollback") return Refuse("unexpected " + inVerb);
    mTransactions.erase(found);
    return {200, {}, {}};
}

FakeHub::Answer FakeHub::TakeRows(const Request& inRequest, Assets& ioAssets, bool inCreate)
{
    std::vector<server::FormField> fields;
    if (!inRequest.FormFields(fields) || fields.empty()) return Refuse("a form that cannot be read");
    mRowsOfForm.clear();
    Assets assets = ioAssets;
    for (const auto& field : fields) {
        const Answer answer = TakeRow(field, assets, inCreate);
        if (answer.mStatus != 200) return answer;
    }
    for (const auto& [id, asset] : assets) {
        for (const auto& [enclosureID, enclosure] : asset.mEnclosures) {
            if (enclosure.second.empty()) return Refuse("an enclosure without content");
        }
    }
    ioAssets = std::move(assets);
    dto::TransactionResult result;
    for (const std::string& row : mRowsOfForm) {
        auto& asset = result.mAssets.emplace_back();
        asset.mAssetID = row;
        asset.mIndexID = row;
    }
    return {200, dto::ToJSON(result), {}};
}

/// One field; the form is taken as a whole or not at all.
FakeHub::Answer FakeHub::TakeRow(const server::FormField& inField, Assets& ioAssets, bool inCreate)
{
    const auto parts = Split(inField.mName, '+');
    const std::string value(inField.mValue.View());
    if (parts.size() == 3 && parts[0] == "assets" && parts[2] == "properties") {
        dto::RawJSON properties;
        if (!IsGuid(parts[1])) return Refuse("an asset whose id is no guid");
        if (!dto::RawJSON::FromText(value, properties)) return Refuse("properties that are no JSON");
        if (inCreate == ioAssets.contains(parts[1]))
            return Refuse("an asset made twice, or edited before it is made", 409);
        if (TextOf(properties.Text(), "name").empty()) return Refuse("an asset without a name");
        const std::string parent = TextOf(properties.Text(), "vy:parent");
        if (!parent.empty() && !ioAssets.contains(parent)) return Refuse("an asset before its parent");
        if (parent.empty() && inCreate && !ioAssets.empty()) return Refuse("a second root");
        ioAssets[parts[1]].mProperties = properties.Text();
        mRowsOfForm.push_back(parts[1]);
        return {};
    }
    if (parts.size() != 4 || parts[0] != "enclosures" || !IsGuid(parts[1])) return Refuse("the key " + inField.mName);
    if (std::find(mRowsOfForm.begin(), mRowsOfForm.end(), parts[3]) == mRowsOfForm.end())
        return Refuse("an enclosure before its asset");
    auto& enclosure = ioAssets[parts[3]].mEnclosures[parts[1]];
    if (parts[2] == "name") {
        if (value.empty()) return Refuse("an empty name");
        enclosure.first = value;
        return {};
    }
    if (parts[2] != "content" || inField.mFileName.empty()) return Refuse("the key " + inField.mName);
    enclosure.second = value;
    return {};
}

FakeHub::Answer FakeHub::Commit(const Request& inRequest, const std::string& inID)
{
    const std::string_view form = inRequest.Payload()->View();
    dto::RawJSON object;
    if (!dto::RawJSON::FromText(form, object) || TextOf(object.Text(), ":commitMessage").empty())
        return Refuse("a commit without a message");
    mCommits.push_back(mTransactions[inID]);
    mTransactions.erase(inID);
    dto::TransactionResource transaction;
    transaction.mTransactionID = inID;
    transaction.mCommitID = RevisionText(mCommits.size() - 1);
    return {200, dto::ToJSON(transaction), {}};
}

std::string FakeHub::AssetJSON(const std::string& inID, const StoredAsset& inAsset, bool inCondensed)
{
    dto::Asset asset;
    asset.mAssetID = inID;
    std::string content = inAsset.mProperties;
    asset.mProperties.mText = inAsset.mProperties;
    for (const auto& [id, enclosure] : inAsset.mEnclosures) {
        auto& added = asset.mEnclosures.emplace_back();
        added.mEnclosureID = id;
        added.mName = enclosure.first;
        content += id + enclosure.second;
    }
    asset.mAssetContentID = Hash(content);
    return inCondensed ? dto::ToJSON(dto::CondensedAsset(asset)) : dto::ToJSON(asset);
}

FakeHub::Answer FakeHub::ServeAssets(const std::string& inRevision, bool inCondensed)
{
    const Assets* const assets = AtRevision(inRevision);
    if (assets == nullptr) return Refuse("no such revision", 404);
    std::string list;
    for (const auto& [id, asset] : *assets)
        list += (list.empty() ? "" : ",") + AssetJSON(id, asset, inCondensed);
    return {200, "{\"assets\":[" + list + "]}", {}};
}

FakeHub::Answer FakeHub::ServeAsset(const std::vector<std::string>& inParts)
{
    const Assets* const assets = AtRevision(inParts[4]);
    if (assets == nullptr) return Refuse("no such revision", 404);
    const auto asset = assets->find(inParts[5]);
    if (asset == assets->end()) return Refuse("no such asset", 404);
    if (inParts.size() == 6) return {200, AssetJSON(asset->first, asset->second, false), {}};
    if (inParts.size() != 8 || inParts[6] != "enclosureById") return Refuse("unexpected selector", 404);
    const auto enclosure = asset->second.mEnclosures.find(inParts[7]);
    if (enclosure == asset->second.mEnclosures.end()) return Refuse("no such enclosure", 404);
    return {200, enclosure->second.second, {}};
}

}  // namespace testing_support

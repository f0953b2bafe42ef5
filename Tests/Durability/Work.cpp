#include "Tests/Durability/Work.h"

#include <cstdio>

#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/GitBoxSandboxes.h"
#include "Inc/Model/Lyra2Db.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxstorage/Git.h"
#include "Tests/Support/Noise.h"

namespace durability {

using namespace VantryLocalHub;
using noxcore::utility::CopyToRecycledMemory;
using noxnet::IsSuccessfulHTTPStatus;
using testing_support::Noise;

namespace {

constexpr std::size_t kSmallPayload = 300;
constexpr std::size_t kLargePayload = 90000;
constexpr std::size_t kLargestPayload = 1100000;  ///< takes a way of its own into the repository
constexpr const char* kCounter = "cccccccc-0000-4000-8000-000000000001";

std::string NumberedID(const char* inPrefix, int inNumber)
{
    char text[40];
    std::snprintf(text, sizeof(text), "%s-0000-4000-8000-%012d", inPrefix, inNumber);
    return text;
}

AssetContent AssetOf(const NumberedAsset& inAsset)
{
    AssetContent content;
    content.mAsset.mProperties = dto::RawJSON(inAsset.mProperties);
    for (const auto& [name, payload] : inAsset.mEnclosures) {
        EnclosureContent enclosure;
        enclosure.mEnclosure.mName = name;
        enclosure.mPayload = CopyToRecycledMemory(payload);
        content.mEnclosures.push_back(std::move(enclosure));
    }
    return content;
}

}  // namespace

NumberedCommit::NumberedCommit(int inNumber)
{
    const std::string number = std::to_string(inNumber);
    const auto seed = static_cast<std::uint32_t>(inNumber);
    const std::size_t large = inNumber % 10 == 0 ? kLargestPayload : kLargePayload;
    mAssets.push_back({NumberedID("aaaaaaaa", inNumber),
                       R"({"name":"clip )" + number + R"(","lumo:assetType":"clip"})",
                       {{"small", Noise(kSmallPayload, seed)}, {"large", Noise(large, seed + 1)}}});
    mAssets.push_back({NumberedID("bbbbbbbb", inNumber),
                       R"({"name":"bin )" + number + R"(","lumo:assetType":"bin"})",
                       {{"text", "bin " + number}}});
    mAssets.push_back({kCounter, R"({"name":"counter","number":")" + number + "\"}", {}});
    mDeletedAsset = NumberedID("bbbbbbbb", inNumber - 1);
    mProductionPayload = "poster frame " + number;
    mProperties = R"({"name":"Feature","number":")" + number + "\"}";
}

std::string HashOf(std::string_view inPayload)
{
    return noxstorage::git::ComputeObjectID(noxstorage::git::ObjectType::Blob, inPayload).Text();
}

std::string LocatorID(int inBatch, int inIndex)
{
    return "locator " + std::to_string(inBatch) + "-" + std::to_string(inIndex);
}

bool Work::Create()
{
    ++mLedger.mCreationsInDoubt;
    Changed();
    dto::Session session;
    const int status =
        mStore.CreateSession({}, {dto::RawJSON(std::string(kInitialProperties)), {}}, SessionKind::LocalOnly, session);
    // Nobody was told of a session that was refused: there must be none.
    --mLedger.mCreationsInDoubt;
    if (IsSuccessfulHTTPStatus(status)) {
        SessionLedger& entry = mLedger.mSessions[session.mIdentifier.Text()];
        entry.mVersions.push_back({session.mRevision.Text(), InitialContent()});
        entry.mProduction = InitialContent();
    }
    Changed();
    return IsSuccessfulHTTPStatus(status);
}

bool Work::WriteCommit(const std::string& inSession, const NumberedCommit& inCommit, std::string& outRevision)
{
    dto::TransactionResource transaction;
    int status = mStore.OpenTransaction(inSession, {}, VYCL::GetTransactionType_Edit(), {}, transaction);
    const ImmutableString id = transaction.mTransactionID;
    for (const NumberedAsset& asset : inCommit.mAssets) {
        dto::Asset added;
        if (IsSuccessfulHTTPStatus(status)) status = mStore.AddAsset(id, asset.mID, AssetOf(asset), added);
    }
    if (IsSuccessfulHTTPStatus(status)) status = mStore.FlushTransactionContent(id);
    if (IsSuccessfulHTTPStatus(status)) status = mStore.DeleteAsset(id, inCommit.mDeletedAsset);
    EnclosureContent enclosure;
    enclosure.mEnclosure.mEnclosureID = std::string(kProductionEnclosure);
    enclosure.mEnclosure.mName = "poster";
    enclosure.mPayload = CopyToRecycledMemory(inCommit.mProductionPayload);
    dto::Enclosure stored;
    if (IsSuccessfulHTTPStatus(status)) status = mStore.AddOrUpdateProductionEnclosure(id, enclosure, stored);
    if (IsSuccessfulHTTPStatus(status))
        status = mStore.EditSessionProperties(id, {dto::RawJSON(inCommit.mProperties), {}});
    if (!IsSuccessfulHTTPStatus(status)) return false;
    CommitOutcome outcome;
    status = mStore.CommitTransaction(id, {"a commit"}, false, outcome);
    outRevision = outcome.mSession.mRevision.Text();
    return IsSuccessfulHTTPStatus(status);
}

bool Work::Commit(const std::string& inSession)
{
    const int number = ++mLedger.mLastNumber;
    SessionLedger& session = Of(inSession);
    session.mAttempt = ContentAfterCommit(session.mVersions.back().mContent, number);
    Changed();
    std::string revision;
    const bool done = WriteCommit(inSession, NumberedCommit(number), revision);
    if (done) {
        session.mVersions.push_back({revision, *session.mAttempt});
        session.mAttempt.reset();
    }
    Changed();
    return done;
}

bool Work::Revert(const std::string& inSession, std::size_t inVersion)
{
    SessionLedger& session = Of(inSession);
    const SessionLedger::Version target = session.mVersions[inVersion];
    session.mAttempt = target.mContent;
    Changed();
    ImmutableString revision;
    const bool done = IsSuccessfulHTTPStatus(mStore.RevertSession(inSession, target.mRevision, revision));
    if (done) {
        session.mVersions.push_back({revision.Text(), target.mContent});
        session.mAttempt.reset();
    }
    Changed();
    return done;
}

bool Work::MoveProduction(const std::string& inSession, std::size_t inVersion, bool inReset)
{
    SessionLedger& session = Of(inSession);
    const SessionLedger::Version target = session.mVersions[inVersion];
    session.mProductionAttempt = target.mContent;
    Changed();
    const int status = inReset ? mStore.ResetProductionToRevision(inSession, target.mRevision)
                               : mStore.AdvanceProduction(inSession, target.mRevision);
    if (IsSuccessfulHTTPStatus(status)) {
        session.mProduction = target.mContent;
        session.mProductionAttempt.reset();
    }
    Changed();
    return IsSuccessfulHTTPStatus(status);
}

bool Work::AdvanceProduction(const std::string& inSession, std::size_t inVersion)
{
    return MoveProduction(inSession, inVersion, false);
}

bool Work::ResetProduction(const std::string& inSession, std::size_t inVersion)
{
    return MoveProduction(inSession, inVersion, true);
}

bool Work::Link(const std::string& inSession)
{
    SessionLedger& session = Of(inSession);
    session.mLinkAttempt = true;
    Changed();
    AssociationForSync association;
    association.mServerURL = "https://hub.example";
    association.mProductionID = "p-remote";
    association.mSessionID = "remote";
    association.mUserID = "user";
    association.mDate = RFC3339DateTime::Now();
    const bool done = mStore.WriteAssociationForSync(inSession, association);
    if (done) {
        session.mLinked = true;
        session.mLinkAttempt = false;
    }
    Changed();
    return done;
}

bool Work::AddSyncPoint(const std::string& inSession)
{
    SessionLedger& session = Of(inSession);
    SyncPoint point;
    point.mLocalRevision = session.mVersions.back().mRevision;
    point.mRemoteRevision = "remote " + std::to_string(++mLedger.mLastNumber);
    point.mDate = RFC3339DateTime::Now();
    session.mSyncPointAttempt = {point.mLocalRevision.Text(), point.mRemoteRevision.Text()};
    Changed();
    std::int64_t count = 0;
    const bool done = mStore.WriteSyncPoint(inSession, point, count);
    if (done) {
        session.mSyncPoints.push_back(*session.mSyncPointAttempt);
        session.mSyncPointAttempt.reset();
    }
    Changed();
    return done;
}

bool Work::AddLocators(const std::string& inSession)
{
    SessionLedger& session = Of(inSession);
    const int batch = ++mLedger.mLastNumber;
    session.mLocatorAttempt = batch;
    Changed();
    std::vector<VantryLocalHub::GitBox::Lyra2Db::MediaLocatorRow> rows;
    for (int index = 0; index < kLocatorsOfABatch; ++index)
        rows.push_back({LocatorID(batch, index), R"({"id":")" + LocatorID(batch, index) + "\"}"});
    const auto sandbox = VantryLocalHub::GitBox::Sandboxes::Instance()->FindSandbox(inSession);
    VantryLocalHub::GitBox::Sandbox::Handles handles;
    std::int64_t count = 0;
    const bool done = sandbox != nullptr && sandbox->RetainDB(handles) && sandbox->IncrementChangeCount(count) &&
                      VantryLocalHub::GitBox::Lyra2Db::WriteMediaLocators(*handles.mDb, rows, count);
    if (done) {
        session.mLocatorBatches.push_back(batch);
        session.mLocatorAttempt.reset();
    }
    Changed();
    return done;
}

bool Work::Delete(const std::string& inSession)
{
    SessionLedger& session = Of(inSession);
    session.mPresence = SessionLedger::Presence::InDoubt;
    Changed();
    const bool done = IsSuccessfulHTTPStatus(mStore.DeletePersistedSessionData(inSession));
    if (done) session.mPresence = SessionLedger::Presence::Gone;
    Changed();
    return done;
}

std::string Work::GoOn()
{
    for (const auto& [id, session] : mLedger.mSessions) {
        if (session.mPresence != SessionLedger::Presence::There) continue;
        if (!Commit(id)) return "the next commit of " + id + " fails";
        if (!session.mLinked && !Link(id)) return "the link of " + id + " cannot be written";
        if (!AddSyncPoint(id)) return "the next sync point of " + id + " fails";
        SyncPoint latest;
        if (!mStore.ReadLatestSyncPoint(id, latest) ||
            latest.mRemoteRevision.Text() != session.mSyncPoints.back().second) {
            return "the sync point of " + id + " that was written last is not the latest";
        }
        if (!AddLocators(id)) return "the next media locators of " + id + " fail";
    }
    return {};
}

}  // namespace durability

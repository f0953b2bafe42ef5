#include "Tests/Durability/Work.h"

#include <algorithm>
#include <cstdio>
#include <tuple>

#include "Client/VYClient/LocalHub.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/SystemDb.h"
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

std::string EnclosureID(int inNumber)
{
    return NumberedID("dddddddd", inNumber);
}

std::string EnclosurePayload(int inNumber)
{
    return Noise(kSmallPayload, static_cast<std::uint32_t>(inNumber));
}

bool Work::Create()
{
    return Do({Write::Kind::Create, {}, 0, {}, {}});
}

bool Work::Commit(const std::string& inSession)
{
    return Do({Write::Kind::Commit, inSession, mLedger.mLastNumber + 1, {}, {}});
}

bool Work::Revert(const std::string& inSession, std::size_t inVersion)
{
    return Do({Write::Kind::Revert, inSession, 0, Of(inSession).mVersions[inVersion].mRevision, {}});
}

bool Work::AdvanceProduction(const std::string& inSession, std::size_t inVersion)
{
    return Do({Write::Kind::AdvanceProduction, inSession, 0, Of(inSession).mVersions[inVersion].mRevision, {}});
}

bool Work::ResetProduction(const std::string& inSession, std::size_t inVersion)
{
    return Do({Write::Kind::ResetProduction, inSession, 0, Of(inSession).mVersions[inVersion].mRevision, {}});
}

bool Work::Link(const std::string& inSession)
{
    return Do({Write::Kind::Link, inSession, 0, {}, {}});
}

bool Work::AddSyncPoint(const std::string& inSession)
{
    const std::string& head = Of(inSession).mVersions.back().mRevision;
    return Do({Write::Kind::SyncPoint, inSession, mLedger.mLastNumber + 1, head, {}});
}

bool Work::AddLocators(const std::string& inSession)
{
    return Do({Write::Kind::Locators, inSession, mLedger.mLastNumber + 1, {}, {}});
}

bool Work::Delete(const std::string& inSession)
{
    return Do({Write::Kind::Delete, inSession, 0, {}, {}});
}

bool Work::SetPreference(const std::string& inName)
{
    return Do({Write::Kind::SetPreference, {}, mLedger.mLastNumber + 1, inName, {}});
}

bool Work::RemovePreference(const std::string& inName)
{
    return Do({Write::Kind::RemovePreference, {}, 0, inName, {}});
}

std::string Work::SnapshotFile()
{
    return noxcore::filesupport::Join(VYCL::LocalHub::GetBaseSuiteDataFolder(), "snapshot.zip");
}

bool Work::TakeSnapshot(const std::string& inSession)
{
    if (!IsSuccessfulHTTPStatus(mStore.TakeSnapshot(inSession, {}, {}, {}, SnapshotFile()))) return false;
    mLedger.mSnapshot = Of(inSession);
    return true;
}

bool Work::Copy(const std::string& inSession)
{
    return Do({Write::Kind::Copy, {}, 0, inSession, {}});
}

bool Work::MakeOfSnapshot()
{
    return Do({Write::Kind::FromSnapshot, {}, 0, {}, {}});
}

bool Work::ApplySnapshot(const std::string& inSession)
{
    return Do({Write::Kind::ApplySnapshot, inSession, 0, {}, {}});
}

bool Work::CreateFile()
{
    return Do({Write::Kind::CreateFile, {}, 0, {}, {}});
}

bool Work::AddUserEnclosure(const std::string& inSession)
{
    return Do({Write::Kind::UserEnclosure, inSession, mLedger.mLastNumber + 1, {}, {}});
}

bool Work::SetValue(const std::string& inSession)
{
    return Do({Write::Kind::Value, inSession, mLedger.mLastNumber + 1, {}, {}});
}

bool Work::Thin(const std::string& inSession)
{
    std::vector<std::string> kept;
    const auto& [versions, points] = std::tie(Of(inSession).mVersions, Of(inSession).mSyncPoints);
    for (std::size_t index = 0; index < versions.size(); ++index) {
        const std::string& revision = versions[index].mRevision;
        const bool isSynced =
            std::any_of(points.begin(), points.end(), [&](const auto& inPoint) { return inPoint.first == revision; });
        if (index % 2 == 0 || index + 1 == versions.size() || isSynced) kept.push_back(revision);
    }
    return Do({Write::Kind::Thin, inSession, 0, JoinRevisions(kept), {}});
}

bool Work::OverwriteFile(const std::string& inSession)
{
    return Do({Write::Kind::OverwriteFile, inSession, 0, {}, {}});
}

bool Work::CopyOverFile(const std::string& inSource, const std::string& inSession)
{
    return Do({Write::Kind::CopyOverFile, inSession, 0, inSource, {}});
}

bool Work::Do(Write inWrite)
{
    Begin(inWrite, mLedger);
    if (mListener) mListener(Phase::Begun, inWrite);
    const bool done = Ask(inWrite);
    Answer(inWrite, done, mLedger);
    if (mListener) mListener(done ? Phase::Done : Phase::Refused, inWrite);
    return done;
}

bool Work::Ask(Write& ioWrite)
{
    switch (ioWrite.mKind) {
        case Write::Kind::Create:
            return AskForCreation(ioWrite);
        case Write::Kind::Commit:
            return AskForCommit(ioWrite);
        case Write::Kind::Revert: {
            ImmutableString revision;
            const int status = mStore.RevertSession(ioWrite.mSession, ioWrite.mTarget, revision);
            ioWrite.mRevision = revision.Text();
            return IsSuccessfulHTTPStatus(status);
        }
        case Write::Kind::AdvanceProduction:
            return IsSuccessfulHTTPStatus(mStore.AdvanceProduction(ioWrite.mSession, ioWrite.mTarget));
        case Write::Kind::ResetProduction:
            return IsSuccessfulHTTPStatus(mStore.ResetProductionToRevision(ioWrite.mSession, ioWrite.mTarget));
        case Write::Kind::Link:
            return AskForLink(ioWrite);
        case Write::Kind::SyncPoint:
            return AskForSyncPoint(ioWrite);
        case Write::Kind::Locators:
            return AskForLocators(ioWrite);
        case Write::Kind::Delete:
            return IsSuccessfulHTTPStatus(mStore.DeletePersistedSessionData(ioWrite.mSession));
        case Write::Kind::SetPreference:
            return IsSuccessfulHTTPStatus(
                SystemDb::AddOrUpdateSystemEnclosure(ioWrite.mTarget, PreferenceText(ioWrite.mNumber)));
        case Write::Kind::RemovePreference:
            return IsSuccessfulHTTPStatus(SystemDb::DeleteSystemEnclosure(ioWrite.mTarget));
        case Write::Kind::Copy:
        case Write::Kind::FromSnapshot:
        case Write::Kind::ApplySnapshot:
            return AskForCopy(ioWrite);
        case Write::Kind::UserEnclosure:
            return AskForUserEnclosure(ioWrite);
        case Write::Kind::Value:
            return IsSuccessfulHTTPStatus(
                mStore.WriteRopeFileValue(ioWrite.mSession, kKey, std::to_string(ioWrite.mNumber)));
        case Write::Kind::Thin:
            return AskForThinning(ioWrite);
        case Write::Kind::CreateFile:
        case Write::Kind::OverwriteFile:
        case Write::Kind::CopyOverFile:
            return AskForFile(ioWrite);
    }
    return false;
}

bool Work::AskForCreation(Write& ioWrite)
{
    dto::Session session;
    const int status =
        mStore.CreateSession({}, {dto::RawJSON(std::string(kInitialProperties)), {}}, SessionKind::LocalOnly, session);
    ioWrite.mSession = session.mIdentifier.Text();
    ioWrite.mRevision = session.mRevision.Text();
    return IsSuccessfulHTTPStatus(status);
}

bool Work::AskForCopy(Write& ioWrite)
{
    dto::Session session;
    int status = 0;
    if (ioWrite.mKind == Write::Kind::Copy)
        status = mStore.CopySessionToLyra2(ioWrite.mTarget, {}, {}, session);
    else if (ioWrite.mKind == Write::Kind::FromSnapshot)
        status = mStore.CreateSessionFromSnapshot(SnapshotFile(), {}, session);
    else
        status = mStore.ApplySnapshot(ioWrite.mSession, SnapshotFile(), false, true, session);
    if (ioWrite.mSession.empty()) ioWrite.mSession = session.mIdentifier.Text();
    ioWrite.mRevision = session.mRevision.Text();
    return IsSuccessfulHTTPStatus(status);
}

bool Work::AskForCommit(Write& ioWrite)
{
    const NumberedCommit commit(ioWrite.mNumber);
    dto::TransactionResource transaction;
    int status = mStore.OpenTransaction(ioWrite.mSession, {}, VYCL::GetTransactionType_Edit(), {}, transaction);
    const ImmutableString id = transaction.mTransactionID;
    for (const NumberedAsset& asset : commit.mAssets) {
        dto::Asset added;
        if (IsSuccessfulHTTPStatus(status)) status = mStore.AddAsset(id, asset.mID, AssetOf(asset), added);
    }
    if (IsSuccessfulHTTPStatus(status)) status = mStore.FlushTransactionContent(id);
    if (IsSuccessfulHTTPStatus(status)) status = mStore.DeleteAsset(id, commit.mDeletedAsset);
    EnclosureContent enclosure;
    enclosure.mEnclosure.mEnclosureID = std::string(kProductionEnclosure);
    enclosure.mEnclosure.mName = "poster";
    enclosure.mPayload = CopyToRecycledMemory(commit.mProductionPayload);
    dto::Enclosure stored;
    if (IsSuccessfulHTTPStatus(status)) status = mStore.AddOrUpdateProductionEnclosure(id, enclosure, stored);
    if (IsSuccessfulHTTPStatus(status))
        status = mStore.EditSessionProperties(id, {dto::RawJSON(commit.mProperties), {}});
    CommitOutcome outcome;
    if (IsSuccessfulHTTPStatus(status)) status = mStore.CommitTransaction(id, {"a commit"}, false, outcome);
    if (!IsSuccessfulHTTPStatus(status)) mStore.CloseTransaction(id);  // as a client does that gives up
    ioWrite.mRevision = outcome.mSession.mRevision.Text();
    return IsSuccessfulHTTPStatus(status);
}

bool Work::AskForLink(const Write& inWrite)
{
    AssociationForSync association;
    association.mServerURL = "https://hub.example";
    association.mProductionID = "p-remote";
    association.mSessionID = "remote";
    association.mUserID = "user";
    association.mDate = RFC3339DateTime::Now();
    return mStore.WriteAssociationForSync(inWrite.mSession, association);
}

bool Work::AskForSyncPoint(const Write& inWrite)
{
    SyncPoint point;
    point.mLocalRevision = inWrite.mTarget;
    point.mRemoteRevision = "remote " + std::to_string(inWrite.mNumber);
    point.mDate = RFC3339DateTime::Now();
    std::int64_t count = 0;
    return mStore.WriteSyncPoint(inWrite.mSession, point, count);
}

bool Work::AskForLocators(const Write& inWrite)
{
    std::vector<dto::MediaLocator> locators(kLocatorsOfABatch);
    for (int index = 0; index < kLocatorsOfABatch; ++index)
        locators[static_cast<std::size_t>(index)].mMediaLocatorID = LocatorID(inWrite.mNumber, index);
    return IsSuccessfulHTTPStatus(mStore.AddMediaLocators(inWrite.mSession, WriteMode::LocalEdit, locators));
}

bool Work::AskForUserEnclosure(const Write& inWrite)
{
    dto::UserEnclosure enclosure;
    enclosure.mEnclosureID = EnclosureID(inWrite.mNumber);
    enclosure.mName = "notes";
    return IsSuccessfulHTTPStatus(mStore.AddUserEnclosure(inWrite.mSession, std::string(kUser), WriteMode::LocalEdit,
                                                          CopyToRecycledMemory(EnclosurePayload(inWrite.mNumber)),
                                                          enclosure));
}

bool Work::AskForThinning(Write& ioWrite)
{
    std::string file;
    std::vector<ImmutableString> kept;
    const auto& known = Of(ioWrite.mSession).mVersions;
    for (std::size_t index = 0; index < known.size(); index += 2)
        kept.emplace_back(known[index].mRevision);  // the head of the production stays by itself
    if (!IsSuccessfulHTTPStatus(mStore.GetRopeFilePath(ioWrite.mSession, file)) ||
        !IsSuccessfulHTTPStatus(mStore.ThinHistoryToRopeFile(ioWrite.mSession, file, kept)))
        return false;
    std::vector<StoredVersion> versions;
    std::size_t total = 0;
    // What cannot be read now is told of by nobody: it is in doubt.
    if (!IsSuccessfulHTTPStatus(mStore.GetSessionHistory(ioWrite.mSession, 0, 10000, versions, total))) return false;
    std::vector<std::string> revisions;
    for (auto version = versions.rbegin(); version != versions.rend(); ++version)
        revisions.push_back(version->mCommitID.Text());
    ioWrite.mRevision = JoinRevisions(revisions);
    return revisions.size() == Of(ioWrite.mSession).mThinned->size();
}

bool Work::AskForFile(Write& ioWrite)
{
    const dto::ProductionProperties properties{dto::RawJSON(std::string(kInitialProperties)), {}};
    dto::Session session;
    std::string file;
    int status = 0;
    if (ioWrite.mKind != Write::Kind::CreateFile) {
        status = mStore.GetRopeFilePath(ioWrite.mSession, file);
        if (!IsSuccessfulHTTPStatus(status)) return false;
    }
    if (ioWrite.mKind == Write::Kind::CreateFile)
        status = mStore.CreateSession({}, properties, SessionKind::RopeFile, session);
    else if (ioWrite.mKind == Write::Kind::OverwriteFile)
        status = mStore.CreateRopeFile(file, properties, true, session);
    else
        status = mStore.CopyToRopeFile(ioWrite.mTarget, {}, file, true, session);
    ioWrite.mSession = session.mIdentifier.empty() ? ioWrite.mSession : session.mIdentifier.Text();
    ioWrite.mRevision = session.mRevision.Text();
    if (ioWrite.mKind != Write::Kind::CreateFile)
        ioWrite.mRevision = JoinRevisions({session.mProductionRevision.Text(), session.mRevision.Text()});
    return IsSuccessfulHTTPStatus(status);
}

std::string Work::GoOn()
{
    if (!Create()) return "no session can be made";
    if (!SetPreference("going-on")) return "no preference can be set";
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
        if (!session.mIsFile) continue;
        if (!AddUserEnclosure(id)) return "the next user's enclosure of " + id + " fails";
        if (!SetValue(id)) return "the next value of " + id + " cannot be set";
        if (!Thin(id)) return "the history of " + id + " cannot be thinned";
    }
    return {};
}

}  // namespace durability

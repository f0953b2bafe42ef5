#include "Tests/Durability/Audit.h"

#include <algorithm>
#include <set>

#include "Client/VYClient/LocalHub.h"
#include "Inc/Model/GitBoxFolders.h"
#include "Inc/Model/Lyra2Db.h"
#include "Inc/Model/RopeFile.h"
#include "Inc/Model/SystemDb.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxstorage/Git.h"
#include "Tests/Durability/Work.h"

namespace durability {

namespace {

using namespace VantryLocalHub;
namespace git = noxstorage::git;
namespace Lyra2Db = VantryLocalHub::GitBox::Lyra2Db;
using Store = VantryLocalHub::GitBox::GitBox;
using Handles = VantryLocalHub::GitBox::Sandbox::Handles;
using Presence = SessionLedger::Presence;

constexpr int kOK = 200;
constexpr int kNotFound = 404;
constexpr std::string_view kFolderEnd = ".lyra2";
constexpr std::string_view kFileEnd = ".lyr";

// ---- Objects

/// Looks at all that the branches of a repository reach.
class GraphWalk
{
public:
    explicit GraphWalk(git::RepoPtr inRepo) : mRepo(std::move(inRepo)) {}

    std::string Run()
    {
        std::vector<std::string> branches;
        if (!git::ListBranches(mRepo, branches) || branches.empty()) return "no branches";
        for (const std::string& branch : branches)
            Expect(git::GetBranchHead(mRepo, branch), git::ObjectType::Commit);
        while (!mToSee.empty() && mFault.empty()) {
            const auto [oid, type] = mToSee.back();
            mToSee.pop_back();
            See(oid, type);
        }
        return mFault;
    }

private:
    void Expect(const git::Oid& inOid, git::ObjectType inType)
    {
        if (mSeen.insert(inOid).second) mToSee.emplace_back(inOid, inType);
    }

    void See(const git::Oid& inOid, git::ObjectType inType)
    {
        git::ObjectType type = git::ObjectType::Invalid;
        git::Bytes content;
        if (!git::ReadObject(mRepo, inOid, type, content) || type != inType) return Fault(inOid, "is missing");
        if (git::ComputeObjectID(type, *content) != inOid) return Fault(inOid, "has another content");
        if (type == git::ObjectType::Commit) {
            const auto commit = git::Commit::Parse(inOid, *content);
            if (commit == nullptr) return Fault(inOid, "is no commit");
            Expect(commit->TreeID(), git::ObjectType::Tree);
            for (std::size_t index = 0; index < commit->ParentCount(); ++index)
                Expect(commit->ParentID(index), git::ObjectType::Commit);
        } else if (type == git::ObjectType::Tree) {
            const auto tree = git::Tree::Parse(inOid, content);
            if (tree == nullptr) return Fault(inOid, "is no tree");
            for (const git::TreeEntry& entry : *tree)
                Expect(entry.mOid, entry.Type());
        }
    }

    void Fault(const git::Oid& inOid, const char* inWhat) { mFault = "object " + inOid.Text() + " " + inWhat; }

    const git::RepoPtr mRepo;
    std::vector<std::pair<git::Oid, git::ObjectType>> mToSee;
    std::set<git::Oid> mSeen;
    std::string mFault;
};

// ---- What a revision holds, read as a client would

bool DescribeAsset(Store& inStore, const ImmutableString& inSession, const ImmutableString& inRevision,
                   const dto::Asset& inAsset, Content& outContent)
{
    const std::string name = "asset " + inAsset.mAssetID.Text();
    outContent[name] = inAsset.mProperties.Text();
    for (const dto::Enclosure& enclosure : inAsset.mEnclosures) {
        ConstRecycledMemoryPtr payload;
        if (inStore.GetAssetEnclosure(inSession, inRevision, inAsset.mAssetID, enclosure.mEnclosureID, payload) != kOK)
            return false;
        outContent[name + "/" + enclosure.mName] = HashOf(payload->View());
    }
    return true;
}

bool Describe(Store& inStore, const ImmutableString& inSession, const ImmutableString& inRevision, Content& outContent)
{
    dto::Session record;
    AssetListPtr assets;
    std::vector<dto::Enclosure> enclosures;
    if (inStore.GetProduction(inSession, inRevision, record) != kOK ||
        inStore.GetAssets(inSession, inRevision, {}, true, assets) != kOK ||
        inStore.GetProductionEnclosures(inSession, inRevision, enclosures) != kOK) {
        return false;
    }
    outContent = {{"properties", std::string(record.mProperties.Text())}};
    for (const dto::Asset& asset : *assets) {
        if (!DescribeAsset(inStore, inSession, inRevision, asset, outContent)) return false;
    }
    for (const dto::Enclosure& enclosure : enclosures) {
        dto::Enclosure read;
        ConstRecycledMemoryPtr payload;
        if (inStore.GetProductionEnclosure(inSession, inRevision, enclosure.mEnclosureID, read, payload) != kOK)
            return false;
        outContent["enclosure " + enclosure.mEnclosureID.Text()] = HashOf(payload->View());
    }
    return true;
}

std::string Differences(const Content& inFound, const Content& inExpected)
{
    std::string text;
    for (const auto& [name, value] : inExpected) {
        if (!inFound.contains(name))
            text += " lacks " + name + ";";
        else if (inFound.at(name) != value)
            text += " other " + name + ";";
    }
    for (const auto& [name, value] : inFound) {
        if (!inExpected.contains(name)) text += " has " + name + ";";
    }
    return text;
}

// ---- One session

/// The revisions of a session, oldest first.
bool ReadHistory(Store& inStore, const ImmutableString& inSession, std::vector<std::string>& outRevisions)
{
    std::vector<StoredVersion> versions;
    std::size_t total = 0;
    if (inStore.GetSessionHistory(inSession, 0, 10000, versions, total) != kOK) return false;
    for (auto version = versions.rbegin(); version != versions.rend(); ++version)
        outRevisions.push_back(version->mCommitID.Text());
    return true;
}

bool Contains(const std::vector<std::string>& inRevisions, const std::string& inRevision)
{
    return std::find(inRevisions.begin(), inRevisions.end(), inRevision) != inRevisions.end();
}

class SessionAudit
{
public:
    SessionAudit(Store& inStore, std::string inID, SessionLedger& ioLedger, Loss inLoss)
        : mStore(inStore), mID(std::move(inID)), mLedger(ioLedger), mLoss(ioLedger.mIsFile ? Loss::Nothing : inLoss)
    {
    }

    std::string Run()
    {
        if (mStore.GetSession(mID, mRecord) != kOK) return "the session cannot be read";
        for (const auto part :
             {&SessionAudit::Thinning, &SessionAudit::Head, &SessionAudit::History, &SessionAudit::Production,
              &SessionAudit::Objects, &SessionAudit::Association, &SessionAudit::SyncPoints, &SessionAudit::Locators,
              &SessionAudit::UserEnclosures, &SessionAudit::Value}) {
            std::string fault = (this->*part)();
            if (!fault.empty()) return fault;
        }
        return {};
    }

private:
    /// A history that was to be thinned is as it was, or holds what was to be kept alone.
    std::string Thinning()
    {
        std::vector<std::string> revisions;
        if (!mLedger.mThinned) return {};
        if (!ReadHistory(mStore, mID, revisions)) return "the history cannot be read";
        if (!Contains(revisions, mLedger.mVersions.back().mRevision)) {
            if (revisions.size() != mLedger.mThinned->size())
                return "a history of " + std::to_string(revisions.size()) + " revisions, thinned to " +
                       std::to_string(mLedger.mThinned->size());
            TakeThinned(revisions, mLedger);
        }
        mLedger.mThinned.reset();
        return {};
    }

    std::string Head()
    {
        Content content;
        if (!Describe(mStore, mID, mRecord.mRevision, content)) return "the head cannot be read";
        const bool isLast = mRecord.mRevision.Text() == mLedger.mVersions.back().mRevision;
        if (!isLast && mLedger.mAttempt && content == *mLedger.mAttempt)
            mLedger.mVersions.push_back({mRecord.mRevision.Text(), content});
        else if (!isLast)
            return "the head is neither what was answered last nor what was tried since:" +
                   Differences(content, mLedger.mVersions.back().mContent);
        mLedger.mAttempt.reset();
        if (content != mLedger.mVersions.back().mContent)
            return "the head:" + Differences(content, mLedger.mVersions.back().mContent);
        const bool hasBin = std::any_of(content.begin(), content.end(), [](const auto& inEntry) {
            return inEntry.second.find(R"("lumo:assetType":"bin")") != std::string::npos;
        });
        return hasBin == mRecord.mHasBin ? std::string() : "the record is wrong about bins";
    }

    std::string History()
    {
        std::vector<StoredVersion> versions;
        std::size_t total = 0;
        if (mStore.GetSessionHistory(mID, 0, 10000, versions, total) != kOK) return "the history cannot be read";
        auto known = mLedger.mVersions.rbegin();
        for (const StoredVersion& version : versions) {
            if (known != mLedger.mVersions.rend() && version.mCommitID.Text() == known->mRevision) ++known;
        }
        if (known != mLedger.mVersions.rend()) return "revision " + known->mRevision + " is gone";
        for (const auto& version : mLedger.mVersions) {
            Content content;
            if (!mLedger.mIsFile) break;
            if (!Describe(mStore, mID, version.mRevision, content)) return version.mRevision + " cannot be read";
            if (content != version.mContent)
                return "revision " + version.mRevision + ":" + Differences(content, version.mContent);
        }
        return {};
    }

    std::string Production()
    {
        Content content;
        if (!Describe(mStore, mID, mRecord.mProductionRevision, content)) return "the production cannot be read";
        if (content != mLedger.mProduction && mLedger.mProductionAttempt == content) mLedger.mProduction = content;
        mLedger.mProductionAttempt.reset();
        return content == mLedger.mProduction ? std::string()
                                              : "the production:" + Differences(content, mLedger.mProduction);
    }

    bool Retain(Handles& outHandles) const
    {
        const auto sandbox = VantryLocalHub::GitBox::Sandboxes::Instance()->FindSandbox(mID);
        return sandbox != nullptr && sandbox->RetainDB(outHandles);
    }

    std::string Objects()
    {
        Handles handles;
        return Retain(handles) ? GraphWalk(handles.mRepo).Run() : "the session cannot be opened";
    }

    std::string Association()
    {
        RemoteAssociation association;
        const bool found = mStore.ReadCurrentRemoteAssociation(mID, association);
        const bool mayDiffer = mLedger.mLinkAttempt || (mLoss == Loss::LatestSideData && mLedger.mLinked);
        if (found != mLedger.mLinked && !mayDiffer) return found ? "a link that nobody wrote" : "the link is gone";
        mLedger.mLinked = found;
        mLedger.mLinkAttempt = false;
        return {};
    }

    std::string SyncPoints()
    {
        std::vector<ImmutableString> local;
        std::vector<ImmutableString> remote;
        if (!mStore.ReadSyncPointRevisions(mID, local, remote)) return "the sync points cannot be read";
        std::vector<SessionLedger::Point> expected = mLedger.mSyncPoints;
        if (mLedger.mSyncPointAttempt) expected.push_back(*mLedger.mSyncPointAttempt);
        std::vector<SessionLedger::Point> found;
        for (std::size_t index = 0; index < local.size(); ++index) {
            found.emplace_back(local[index].Text(), remote[index].Text());
            if (!mStore.RevisionExists(mID, local[index])) return "a sync point names a commit that is not there";
        }
        const std::size_t least = mLoss == Loss::Nothing ? mLedger.mSyncPoints.size() : 0;
        const bool isPrefix =
            found.size() <= expected.size() && std::equal(found.begin(), found.end(), expected.begin());
        if (found.size() < least || !isPrefix)
            return std::to_string(found.size()) + " sync points instead of " + std::to_string(least);
        if (!found.empty() && !mLedger.mLinked) return "sync points without the link that was written before them";
        mLedger.mSyncPoints = std::move(found);
        mLedger.mSyncPointAttempt.reset();
        return {};
    }

    std::string Locators()
    {
        Handles handles;
        std::vector<dto::MediaLocator> listed;
        std::int64_t count = 0;
        if (!Retain(handles)) return "no media locators";
        if (mLedger.mIsFile ? mStore.GetMediaLocators(mID, listed) != kOK
                            : !Lyra2Db::CountMediaLocators(*handles.mDb, count))
            return "no media locators";
        if (mLedger.mIsFile) count = static_cast<std::int64_t>(listed.size());
        const std::size_t least = mLoss == Loss::Nothing ? mLedger.mLocatorBatches.size() : 0;
        std::vector<int> expected = mLedger.mLocatorBatches;
        if (mLedger.mLocatorAttempt) expected.push_back(*mLedger.mLocatorAttempt);
        const auto batches = static_cast<std::size_t>(count / kLocatorsOfABatch);
        if (count % kLocatorsOfABatch != 0 || batches < least || batches > expected.size())
            return std::to_string(count) + " media locators";
        expected.resize(batches);
        for (const int batch : expected) {
            for (int index = 0; index < kLocatorsOfABatch; ++index) {
                dto::MediaLocator locator;
                Lyra2Db::StoredRecord record;
                const std::string id = LocatorID(batch, index);
                const bool found = mLedger.mIsFile
                                       ? mStore.GetMediaLocator(mID, id, locator) == kOK
                                       : Lyra2Db::ReadMediaLocator(*handles.mDb, id, record) == Lyra2Db::Lookup::Found;
                if (!found) return id + " is gone";
            }
        }
        mLedger.mLocatorBatches = std::move(expected);
        mLedger.mLocatorAttempt.reset();
        return {};
    }

    std::string UserEnclosures()
    {
        std::vector<dto::UserEnclosure> listed;
        if (!mLedger.mIsFile) return {};
        if (mStore.GetUserEnclosures(mID, std::string(kUser), listed) != kOK) return "no user enclosures";
        std::vector<int> expected = mLedger.mEnclosures;
        if (listed.size() == expected.size() + 1 && mLedger.mEnclosureAttempt)
            expected.push_back(*mLedger.mEnclosureAttempt);
        if (listed.size() != expected.size()) return std::to_string(listed.size()) + " user enclosures";
        for (const int number : expected) {
            dto::UserEnclosure enclosure;
            ConstRecycledMemoryPtr payload;
            if (mStore.GetUserEnclosure(mID, std::string(kUser), EnclosureID(number), enclosure, payload) != kOK)
                return EnclosureID(number) + " is gone";
            if (!payload || payload->View() != EnclosurePayload(number)) return EnclosureID(number) + " is another";
        }
        mLedger.mEnclosures = std::move(expected);
        mLedger.mEnclosureAttempt.reset();
        return {};
    }

    std::string Value()
    {
        std::string text;
        if (!mLedger.mIsFile) return {};
        const int status = mStore.ReadRopeFileValue(mID, kKey, text);
        if (status != kOK && status != kNotFound) return "the value cannot be read";
        const auto found = status == kOK ? std::optional(std::stoi(text)) : std::nullopt;
        const bool isAttempt = mLedger.mValueAttempt && found == mLedger.mValueAttempt;
        if (found != mLedger.mValue && !isAttempt) return "the value is " + (found ? text : "gone");
        mLedger.mValue = found;
        mLedger.mValueAttempt.reset();
        return {};
    }

    Store& mStore;
    const std::string mID;
    SessionLedger& mLedger;
    const Loss mLoss;
    dto::Session mRecord;
};

// ---- All sessions

std::vector<std::string> AutosaveFiles()
{
    std::vector<noxcore::filesupport::DirectoryEntry> entries;
    noxcore::filesupport::Files().ListDirectory(VYCL::LocalHub::GetDefaultRopeFileAutosaveLocation(), entries);
    std::vector<std::string> names;
    for (const auto& entry : entries)
        if (!entry.mIsDirectory) names.push_back(entry.mName);
    return names;
}

std::set<std::string> LiveFolders()
{
    std::set<std::string> ids;
    for (const auto& place : VantryLocalHub::GitBox::Folder::SessionFolders()) {
        std::vector<noxcore::filesupport::DirectoryEntry> entries;
        noxcore::filesupport::Files().ListDirectory(place.mFolder, entries);
        for (const auto& entry : entries) {
            if (!VantryLocalHub::GitBox::IO::IsLiveSessionFolder(
                    noxcore::filesupport::Join(place.mFolder, entry.mName)))
                continue;
            ids.insert(entry.mName.substr(0, entry.mName.size() - kFolderEnd.size()));
        }
    }
    for (const std::string& name : AutosaveFiles()) {
        const std::string file = noxcore::filesupport::Join(VYCL::LocalHub::GetDefaultRopeFileAutosaveLocation(), name);
        dto::Session session;
        VantryLocalHub::GitBox::RopeFile::IO::CreateUniqueRopeFileIDs(file, session);
        if (name.ends_with(kFileEnd)) ids.insert(session.mIdentifier.Text());
    }
    return ids;
}

/// Of a file that was to be overwritten, which of the two it is: what was refused may have been followed by other
/// writes.
void TakeReplacement(const std::string& inID, Store& inStore, Ledger& ioLedger)
{
    const auto replacement = ioLedger.mReplacements.find(inID);
    dto::Session record;
    std::vector<std::string> revisions;
    if (replacement == ioLedger.mReplacements.end() || inStore.GetSession(inID, record) != kOK ||
        !ReadHistory(inStore, inID, revisions))
        return;
    if (Contains(revisions, ioLedger.mSessions.at(inID).mVersions.back().mRevision))
        ioLedger.mReplacements.erase(replacement);
    else
        TakeReplaced(inID, {record.mProductionRevision.Text(), record.mRevision.Text()}, ioLedger);
}

/// A session that nobody was told of, made as the process or the power went.
bool TakeUp(const std::string& inID, Store& inStore, Ledger& ioLedger)
{
    dto::Session record;
    if (ioLedger.mCopyInDoubt && inStore.GetSession(inID, record) == kOK) {
        SessionLedger& copy = ioLedger.mSessions[inID] = std::move(*ioLedger.mCopyInDoubt);
        ioLedger.mCopyInDoubt.reset();
        copy.mVersions.back().mRevision = record.mRevision.Text();
        return true;
    }
    const bool isFile = inID.starts_with("r-");
    unsigned& inDoubt = isFile ? ioLedger.mFilesInDoubt : ioLedger.mCreationsInDoubt;
    if (inDoubt == 0 || inStore.GetSession(inID, record) != kOK) return false;
    --inDoubt;
    SessionLedger& session = ioLedger.mSessions[inID] = {};
    session.mIsFile = isFile;
    session.mVersions.push_back({record.mRevision.Text(), InitialContent()});
    session.mProduction = InitialContent();
    return true;
}

// ---- The preferences, which are synced with each write

std::string AuditPreferences(Ledger& ioLedger)
{
    Ledger::Preferences expected = ioLedger.mPreferences;
    for (const auto& [name, attempt] : ioLedger.mPreferenceAttempts)
        expected.try_emplace(name);
    for (const auto& [name, answered] : expected) {
        std::string text;
        const int status = SystemDb::GetSystemEnclosure(name, text);
        if (status != kOK && status != kNotFound) return "preference " + name + " cannot be read";
        const auto found = status == kOK ? std::optional(text) : std::nullopt;
        const auto attempt = ioLedger.mPreferenceAttempts.find(name);
        const bool isAttempt = attempt != ioLedger.mPreferenceAttempts.end() && attempt->second == found;
        if (found != answered && !isAttempt) return "preference " + name + ": " + found.value_or("is gone");
        ioLedger.mPreferences[name] = found;
    }
    ioLedger.mPreferenceAttempts.clear();
    return {};
}

}  // namespace

std::string AuditLeftovers()
{
    for (const std::string& name : AutosaveFiles())
        if (!name.ends_with(kFileEnd)) return name + " was left over";
    return {};
}

std::string Audit(Store& inStore, Ledger& ioLedger, Loss inLoss)
{
    std::set<std::string> found;
    for (const dto::Session& session : inStore.GetSessions())
        found.insert(session.mIdentifier.Text());
    if (found != LiveFolders()) return "the sessions are not those of the folders";
    for (const std::string& id : found) {
        // A file that takes the name of a deleted one has its id.
        const auto known = ioLedger.mSessions.find(id);
        const bool isNew = known == ioLedger.mSessions.end() || known->second.mPresence == Presence::Gone;
        if (isNew && !TakeUp(id, inStore, ioLedger)) return "nobody made session " + id;
    }
    for (auto& [id, session] : ioLedger.mSessions) {
        const bool isThere = found.contains(id);
        if (session.mPresence == Presence::InDoubt) session.mPresence = isThere ? Presence::There : Presence::Gone;
        if (isThere != (session.mPresence == Presence::There))
            return "session " + id + (isThere ? " was deleted" : " is gone");
        if (isThere) TakeReplacement(id, inStore, ioLedger);
        const std::string fault = isThere ? SessionAudit(inStore, id, session, inLoss).Run() : std::string();
        if (!fault.empty()) return "session " + id + ": " + fault;
    }
    ioLedger.mCreationsInDoubt = 0;
    ioLedger.mFilesInDoubt = 0;
    ioLedger.mCopyInDoubt.reset();
    return AuditPreferences(ioLedger);
}

}  // namespace durability

#include "Tests/Durability/Ledger.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "Tests/Durability/Work.h"

namespace durability {

namespace {

constexpr const char* kNone = "-";

/// A value that is there no more afterwards.
template <class Value>
std::optional<Value> Take(std::optional<Value>& ioValue)
{
    return std::exchange(ioValue, std::nullopt);
}

Content ContentOf(const SessionLedger& inSession, const std::string& inRevision)
{
    const auto found = std::find_if(inSession.mVersions.begin(), inSession.mVersions.end(),
                                    [&](const auto& inVersion) { return inVersion.mRevision == inRevision; });
    return found->mContent;
}

void AddAsset(const NumberedAsset& inAsset, Content& ioContent)
{
    const std::string name = "asset " + inAsset.mID;
    ioContent[name] = inAsset.mProperties;
    for (const auto& [enclosure, payload] : inAsset.mEnclosures)
        ioContent[name + "/" + enclosure] = HashOf(payload);
}

bool IsPreference(const Write& inWrite)
{
    return inWrite.mKind == Write::Kind::SetPreference || inWrite.mKind == Write::Kind::RemovePreference;
}

std::optional<std::string> PreferenceAfter(const Write& inWrite)
{
    if (inWrite.mKind == Write::Kind::RemovePreference) return std::nullopt;
    return PreferenceText(inWrite.mNumber);
}

/// What becomes of a session's state as a session of its own.
SessionLedger CopyOf(const SessionLedger& inSource, Content inProduction)
{
    SessionLedger copy;
    copy.mVersions.push_back(inSource.mVersions.back());
    copy.mProduction = std::move(inProduction);
    copy.mLocatorBatches = inSource.mLocatorBatches;
    copy.mEnclosures = inSource.mEnclosures;
    copy.mValue = inSource.mValue;
    return copy;
}

/// Copies and sessions of snapshots; nothing of other writes.
std::optional<SessionLedger> CopyMadeBy(const Write& inWrite, const Ledger& inLedger)
{
    if (inWrite.mKind == Write::Kind::FromSnapshot)
        return CopyOf(inLedger.mSnapshot, inLedger.mSnapshot.mVersions.back().mContent);
    if (inWrite.mKind != Write::Kind::Copy) return std::nullopt;
    const SessionLedger& source = inLedger.mSessions.at(inWrite.mTarget);
    return CopyOf(source, {{"properties", source.mVersions.back().mContent.at("properties")}});
}

SessionLedger NewSession(const std::string& inRevision, bool inIsFile)
{
    SessionLedger session;
    session.mVersions.push_back({inRevision, InitialContent()});
    session.mProduction = InitialContent();
    session.mIsFile = inIsFile;
    return session;
}

/// What takes the place of a session in its file; nothing of other writes.
std::optional<SessionLedger> ReplacementMadeBy(const Write& inWrite, const Ledger& inLedger)
{
    if (inWrite.mKind == Write::Kind::OverwriteFile) return NewSession({}, true);
    if (inWrite.mKind != Write::Kind::CopyOverFile) return std::nullopt;
    const SessionLedger& source = inLedger.mSessions.at(inWrite.mTarget);
    const Content made{{"properties", source.mVersions.back().mContent.at("properties")}};
    auto copy = CopyOf(source, made);
    copy.mIsFile = true;
    copy.mVersions.insert(copy.mVersions.begin(), {{}, made});
    return copy;
}

std::vector<SessionLedger::Version> KeptOf(const SessionLedger& inSession, const std::string& inRevisions)
{
    const auto named = SplitRevisions(inRevisions);
    std::set<std::string> kept(named.begin(), named.end());
    kept.insert(inSession.mVersions.back().mRevision);
    std::vector<SessionLedger::Version> versions;
    for (const auto& version : inSession.mVersions)
        if (kept.contains(version.mRevision)) versions.push_back(version);
    return versions;
}

}  // namespace

std::string JoinRevisions(const std::vector<std::string>& inRevisions)
{
    std::string text;
    for (const std::string& revision : inRevisions)
        text += (text.empty() ? "" : ",") + revision;
    return text;
}

std::vector<std::string> SplitRevisions(const std::string& inText)
{
    std::vector<std::string> revisions;
    std::istringstream text(inText);
    for (std::string revision; std::getline(text, revision, ',');)
        revisions.push_back(revision);
    return revisions;
}

void TakeReplaced(const std::string& inSession, const std::vector<std::string>& inRevisions, Ledger& ioLedger)
{
    SessionLedger& session = ioLedger.mSessions.at(inSession);
    session = std::move(ioLedger.mReplacements.at(inSession));
    ioLedger.mReplacements.erase(inSession);
    session.mVersions.front().mRevision = inRevisions.at(0);
    session.mVersions.back().mRevision = inRevisions.at(1);
}

void TakeThinned(const std::vector<std::string>& inNewRevisions, SessionLedger& ioSession)
{
    std::map<std::string, std::string> newIDs;
    auto versions = *Take(ioSession.mThinned);
    for (std::size_t index = 0; index < versions.size(); ++index)
        versions[index].mRevision = newIDs[versions[index].mRevision] = inNewRevisions.at(index);
    ioSession.mVersions = std::move(versions);
    std::vector<SessionLedger::Point> points;
    for (const auto& [local, remote] : ioSession.mSyncPoints)
        if (newIDs.contains(local)) points.emplace_back(newIDs.at(local), remote);
    ioSession.mSyncPoints = std::move(points);
}

std::string PreferenceText(int inNumber)
{
    return "set by write " + std::to_string(inNumber);
}

Content InitialContent()
{
    return {{"properties", std::string(kInitialProperties)}};
}

Content ContentAfterCommit(Content inBefore, int inNumber)
{
    const NumberedCommit commit(inNumber);
    for (const NumberedAsset& asset : commit.mAssets)
        AddAsset(asset, inBefore);
    if (inBefore.erase("asset " + commit.mDeletedAsset) != 0) {
        const std::string enclosures = "asset " + commit.mDeletedAsset + "/";
        std::erase_if(inBefore, [&](const auto& inEntry) { return inEntry.first.starts_with(enclosures); });
    }
    inBefore["enclosure " + std::string(kProductionEnclosure)] = HashOf(commit.mProductionPayload);
    inBefore["properties"] = commit.mProperties;
    return inBefore;
}

void Begin(const Write& inWrite, Ledger& ioLedger)
{
    ioLedger.mLastNumber = std::max(ioLedger.mLastNumber, inWrite.mNumber);
    if (inWrite.mKind == Write::Kind::Create) {
        ++ioLedger.mCreationsInDoubt;
        return;
    }
    if (inWrite.mKind == Write::Kind::CreateFile) {
        ++ioLedger.mFilesInDoubt;
        return;
    }
    if (auto replacement = ReplacementMadeBy(inWrite, ioLedger)) {
        ioLedger.mReplacements[inWrite.mSession] = std::move(*replacement);
        return;
    }
    if (auto copy = CopyMadeBy(inWrite, ioLedger)) {
        ioLedger.mCopyInDoubt = std::move(copy);
        return;
    }
    if (IsPreference(inWrite)) {
        ioLedger.mPreferenceAttempts[inWrite.mTarget] = PreferenceAfter(inWrite);
        return;
    }
    SessionLedger& session = ioLedger.mSessions.at(inWrite.mSession);
    switch (inWrite.mKind) {
        case Write::Kind::Commit:
            session.mAttempt = ContentAfterCommit(session.mVersions.back().mContent, inWrite.mNumber);
            break;
        case Write::Kind::Revert:
            session.mAttempt = ContentOf(session, inWrite.mTarget);
            break;
        case Write::Kind::ApplySnapshot:
            session.mAttempt = ioLedger.mSnapshot.mVersions.back().mContent;
            break;
        case Write::Kind::AdvanceProduction:
        case Write::Kind::ResetProduction:
            session.mProductionAttempt = ContentOf(session, inWrite.mTarget);
            break;
        case Write::Kind::Link:
            session.mLinkAttempt = true;
            break;
        case Write::Kind::SyncPoint:
            session.mSyncPointAttempt = {inWrite.mTarget, "remote " + std::to_string(inWrite.mNumber)};
            break;
        case Write::Kind::Locators:
            session.mLocatorAttempt = inWrite.mNumber;
            break;
        case Write::Kind::UserEnclosure:
            session.mEnclosureAttempt = inWrite.mNumber;
            break;
        case Write::Kind::Value:
            session.mValueAttempt = inWrite.mNumber;
            break;
        case Write::Kind::Thin:
            session.mThinned = KeptOf(session, inWrite.mTarget);
            break;
        default:
            session.mPresence = SessionLedger::Presence::InDoubt;
            break;
    }
}

void Answer(const Write& inWrite, bool inDone, Ledger& ioLedger)
{
    if (inWrite.mKind == Write::Kind::Create) --ioLedger.mCreationsInDoubt;
    auto copy = std::exchange(ioLedger.mCopyInDoubt, std::nullopt);
    if (!inDone) return;
    if (copy) {
        copy->mVersions.back().mRevision = inWrite.mRevision;
        ioLedger.mSessions[inWrite.mSession] = std::move(*copy);
        return;
    }
    if (IsPreference(inWrite)) {
        ioLedger.mPreferences[inWrite.mTarget] = PreferenceAfter(inWrite);
        ioLedger.mPreferenceAttempts.erase(inWrite.mTarget);
        return;
    }
    SessionLedger& session = ioLedger.mSessions[inWrite.mSession];
    switch (inWrite.mKind) {
        case Write::Kind::CreateFile:
            --ioLedger.mFilesInDoubt;
            [[fallthrough]];
        case Write::Kind::Create:
            session = NewSession(inWrite.mRevision, inWrite.mKind == Write::Kind::CreateFile);
            break;
        case Write::Kind::OverwriteFile:
        case Write::Kind::CopyOverFile:
            TakeReplaced(inWrite.mSession, SplitRevisions(inWrite.mRevision), ioLedger);
            break;
        case Write::Kind::Commit:
        case Write::Kind::Revert:
        case Write::Kind::ApplySnapshot:
            session.mVersions.push_back({inWrite.mRevision, *Take(session.mAttempt)});
            break;
        case Write::Kind::AdvanceProduction:
        case Write::Kind::ResetProduction:
            session.mProduction = *Take(session.mProductionAttempt);
            break;
        case Write::Kind::Link:
            session.mLinkAttempt = false;
            session.mLinked = true;
            break;
        case Write::Kind::SyncPoint:
            session.mSyncPoints.push_back(*Take(session.mSyncPointAttempt));
            break;
        case Write::Kind::Locators:
            session.mLocatorBatches.push_back(*Take(session.mLocatorAttempt));
            break;
        case Write::Kind::UserEnclosure:
            session.mEnclosures.push_back(*Take(session.mEnclosureAttempt));
            break;
        case Write::Kind::Value:
            session.mValue = Take(session.mValueAttempt);
            break;
        case Write::Kind::Thin:
            TakeThinned(SplitRevisions(inWrite.mRevision), session);
            break;
        case Write::Kind::Delete:
            session.mPresence = SessionLedger::Presence::Gone;
            break;
        default:
            break;
    }
}

std::string ToText(const Write& inWrite)
{
    const auto orNone = [](const std::string& inText) { return inText.empty() ? std::string(kNone) : inText; };
    return std::to_string(static_cast<int>(inWrite.mKind)) + " " + orNone(inWrite.mSession) + " " +
           std::to_string(inWrite.mNumber) + " " + orNone(inWrite.mTarget) + " " + orNone(inWrite.mRevision);
}

bool FromText(const std::string& inText, Write& outWrite)
{
    std::istringstream text(inText);
    int kind = -1;
    if (!(text >> kind >> outWrite.mSession >> outWrite.mNumber >> outWrite.mTarget >> outWrite.mRevision))
        return false;
    if (kind < 0 || kind > static_cast<int>(Write::kLastKind)) return false;
    outWrite.mKind = static_cast<Write::Kind>(kind);
    for (std::string* field : {&outWrite.mSession, &outWrite.mTarget, &outWrite.mRevision})
        if (*field == kNone) field->clear();
    return true;
}

}  // namespace durability

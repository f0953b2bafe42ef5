#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace durability {

/// What one revision of a session holds: a name for each thing in it, with its text or, of a payload, its hash.
using Content = std::map<std::string, std::string>;

/// What may stand in a session after all that was asked of the store and answered by it. An attempt is a write that was
/// begun and not answered with success: it may be there whole, or not at all.
struct SessionLedger
{
    struct Version
    {
        std::string mRevision;
        Content mContent;
    };
    using Point = std::pair<std::string, std::string>;  ///< local and remote revision

    enum class Presence
    {
        There,
        InDoubt,
        Gone
    };
    Presence mPresence = Presence::There;
    bool mIsFile = false;            ///< a project in a single file: what lies beside its history is as durable as that
    std::vector<Version> mVersions;  ///< oldest first
    std::optional<Content> mAttempt;
    Content mProduction;
    std::optional<Content> mProductionAttempt;
    bool mLinked = false;
    bool mLinkAttempt = false;
    std::vector<Point> mSyncPoints;
    std::optional<Point> mSyncPointAttempt;
    std::vector<int> mLocatorBatches;
    std::optional<int> mLocatorAttempt;
    std::vector<int> mEnclosures;  ///< of users
    std::optional<int> mEnclosureAttempt;
    std::optional<int> mValue;  ///< of a key
    std::optional<int> mValueAttempt;
    std::optional<std::vector<Version>> mThinned;  ///< an attempt: what is kept, by the ids of before
};

struct Ledger
{
    using Preferences = std::map<std::string, std::optional<std::string>>;  ///< name -> text; nothing: removed

    std::map<std::string, SessionLedger> mSessions;
    Preferences mPreferences;
    Preferences mPreferenceAttempts;
    unsigned mCreationsInDoubt = 0;
    unsigned mFilesInDoubt = 0;                          ///< a creation that was refused may be there as well
    std::map<std::string, SessionLedger> mReplacements;  ///< attempts: session -> what its file is to hold instead
    std::optional<SessionLedger> mCopyInDoubt;           ///< what a copy is to hold that was begun
    SessionLedger mSnapshot;                             ///< what the snapshot that lies there holds
    int mLastNumber = 0;  ///< of anything that was tried: what it wrote can be told from it
};

/// A write as it is asked of the store.
struct Write
{
    enum class Kind
    {
        Create,
        Commit,
        Revert,
        AdvanceProduction,
        ResetProduction,
        Link,
        SyncPoint,
        Locators,
        Delete,
        SetPreference,
        RemovePreference,
        Copy,          ///< of the session that the target names
        FromSnapshot,  ///< a session that is made of the snapshot
        ApplySnapshot,
        CreateFile,
        UserEnclosure,
        Value,
        Thin,  ///< in place; the target names the revisions that stay beside the head, the revision all new ones
        OverwriteFile,  ///< a new project in the file of a session
        CopyOverFile    ///< of the session that the target names
    };
    static constexpr Kind kLastKind = Kind::CopyOverFile;
    Kind mKind = Kind::Create;
    std::string mSession;   ///< of a creation or copy: as it was answered
    int mNumber = 0;        ///< what is written can be told from it
    std::string mTarget;    ///< the revision or preference that the write goes back to or names
    std::string mRevision;  ///< the new one, as it was answered
};

/// Notes that a write begins: before the store is asked.
void Begin(const Write& inWrite, Ledger& ioLedger);
/// Notes how it was answered. A refused creation or deletion has left nothing, or all.
void Answer(const Write& inWrite, bool inDone, Ledger& ioLedger);

/// One line, for another process.
std::string ToText(const Write& inWrite);
bool FromText(const std::string& inText, Write& outWrite);

/// Several revisions in one word.
std::string JoinRevisions(const std::vector<std::string>& inRevisions);
std::vector<std::string> SplitRevisions(const std::string& inText);
/// Notes that a history was thinned as it was tried, by the new ids of what was kept, oldest first.
void TakeThinned(const std::vector<std::string>& inNewRevisions, SessionLedger& ioSession);

/// Notes that a session's file holds what was to replace it; the revisions of the production and of the head.
void TakeReplaced(const std::string& inSession, const std::vector<std::string>& inRevisions, Ledger& ioLedger);

/// The text of a preference that a write of this number sets.
std::string PreferenceText(int inNumber);
/// What all sessions are made with.
Content InitialContent();
/// What the commit of a number makes of a content.
Content ContentAfterCommit(Content inBefore, int inNumber);

}  // namespace durability

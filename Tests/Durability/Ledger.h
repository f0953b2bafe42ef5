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
};

struct Ledger
{
    using Preferences = std::map<std::string, std::optional<std::string>>;  ///< name -> text; nothing: removed

    std::map<std::string, SessionLedger> mSessions;
    Preferences mPreferences;
    Preferences mPreferenceAttempts;
    unsigned mCreationsInDoubt = 0;
    std::optional<SessionLedger> mCopyInDoubt;  ///< what a copy is to hold that was begun
    SessionLedger mSnapshot;                    ///< what the snapshot that lies there holds
    int mLastNumber = 0;                        ///< of anything that was tried: what it wrote can be told from it
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
        ApplySnapshot
    };
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

/// The text of a preference that a write of this number sets.
std::string PreferenceText(int inNumber);
/// What all sessions are made with.
Content InitialContent();
/// What the commit of a number makes of a content.
Content ContentAfterCommit(Content inBefore, int inNumber);

}  // namespace durability

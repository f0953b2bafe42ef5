#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/Lyra2Db.h"

/// Copies of sessions: the state at one revision, without the history that led to it.
///
/// The content of a whole revision goes over as it lies in the source's file; that of a part of one, payload by
/// payload. Each object is held against its id on the way. Results, threads and locks as in GitBoxIO.h.
namespace VantryLocalHub::GitBox::IO {

using LocatorRows = std::vector<Lyra2Db::MediaLocatorRow>;

/// What is copied, and from where.
struct CopySource
{
    RepoPtr mRepo;
    ImmutableString mRevision;                   ///< empty: the head of `session`
    ImmutableString mRootAssetID = {};           ///< not empty: this asset and those that it depends on, nothing else
    std::optional<std::int64_t> mBinCount = {};  ///< at this revision, where that is known
    ImmutableString mNotedRootAssetID = {};  ///< what the source itself was limited to once; it limits nothing any more
};

struct SessionIDs
{
    ImmutableString mSessionID;
    ImmutableString mProductionID;

    /// New ones that belong together.
    static SessionIDs Create();
};

/// The media locators of a session, to be written into another one. One that cannot be read is left out.
bool ReadLocatorRows(Lyra2Db::Db& inDb, LocatorRows& outRows);
/// One that is not readable is told of and left out.
LocatorRows ToLocatorRows(std::vector<Lyra2Db::StoredRecord> inRecords);

/// Makes a session in a new folder and copies into it. Empty properties: those of the revision. After a failure the
/// folder is the caller's to remove.
bool CopySession(const CopySource& inSource, const LocatorRows& inLocators, const std::string& inFolder,
                 const SessionIDs& inIDs, const dto::RawJSON& inProperties, RepoPtr& outRepo, DbPtr& outDb,
                 dto::Session& outSession);
/// The same into a session that is there, as one commit on its head. Locators are durable on return.
bool CopySessionData(const CopySource& inSource, const LocatorRows& inLocators, const dto::RawJSON& inProperties,
                     const RepoPtr& inRepo, const DbPtr& inDb, CommitPtr& outCommit);

enum class Destination
{
    New,    ///< a repository that has nothing but its first commit
    Filled  ///< each object is looked for first
};
/// Brings the content of a whole revision into a repository as it lies in the source's file, and gives its trees.
bool TransferWhole(const CopySource& inSource, const RepoPtr& inRepo, Destination inDestination,
                   WholeContent& outContent);
/// Brings the content of the source into a repository, and gives what a commit is to say of it: assets and production
/// enclosures. ioLocators: of a copy that is limited to a root asset, those that it does not use are taken out.
bool PrepareContent(const CopySource& inSource, const RepoPtr& inRepo, TransactionChanges& outChanges,
                    LocatorRows& ioLocators);
/// The same for one asset; sets its content id.
bool PrepareAsset(const RepoPtr& inSource, const RepoPtr& inRepo, dto::Asset& ioAsset);
/// The same for a production enclosure's payload.
bool PrepareProductionEnclosure(const RepoPtr& inSource, const RepoPtr& inRepo, const dto::Enclosure& inEnclosure);
/// Writes what was prepared: the commit, then the locators.
bool WriteCopiedSessionData(const RepoPtr& inRepo, const DbPtr& inDb, const TransactionChanges& inChanges,
                            const LocatorRows& inLocators, std::string_view inMessage, CommitPtr& outCommit);

}  // namespace VantryLocalHub::GitBox::IO

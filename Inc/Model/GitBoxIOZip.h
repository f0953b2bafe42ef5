#pragma once

#include <functional>
#include <string>

#include "Inc/Model/GitBoxIOCopy.h"

/// Snapshots: session folders packed into one file. Results, threads and locks as in GitBoxIO.h.
namespace VantryLocalHub::GitBox::IO {

/// Packs a folder that nobody has open. A database in use is never packed: a part of it is in its log.
bool CreateZipFile(const std::string& inFolder, const std::string& inFile);
/// Unpacks into a folder that is there, or one that appears whole or not at all.
bool ExtractZipFile(const std::string& inFile, const std::string& inFolder);

/// The folder that a snapshot is extracted to: beside the file, under its title.
std::string FolderOfSnapshot(const std::string& inFile);
/// Extracts a snapshot to that folder. One that lies there already is used as it is.
bool ExtractSnapshot(const std::string& inFile, std::string& outFolder);

/// Whether what was unpacked says nothing that could not be passed on. Asked once: reads trust what lies in a session.
bool HasReadableContent(const std::string& inFolder);

/// Packs the state of a session at a revision, as a session of its own.
bool TakeSnapshot(const CopySource& inSource, const LocatorRows& inLocators, const dto::RawJSON& inProperties,
                  const std::string& inFile);
/// The same with something done to its database before.
bool TakeSnapshot(const CopySource& inSource, const LocatorRows& inLocators, const dto::RawJSON& inProperties,
                  const std::string& inFile, const std::function<bool(Lyra2Db::Db&)>& inPrepare);

/// Makes a session of a snapshot in a folder that is there, with new ids, and its history. Empty properties: those of
/// the snapshot. After a failure the folder is the caller's to remove.
bool CreateSessionFromSnapshot(const std::string& inFile, const std::string& inFolder, const SessionIDs& inIDs,
                               const dto::RawJSON& inProperties, RepoPtr& outRepo, DbPtr& outDb,
                               dto::Session& outSession);

/// What a snapshot holds, brought into another session's repository, for a commit that is still to be made.
struct AppliedSnapshot
{
    TransactionChanges mChanges;  ///< assets, production enclosures and properties
    LocatorRows mLocators;
};

/// Reads a snapshot for its application to a session. The session stays as it is.
bool ApplySnapshot(const std::string& inFile, const RepoPtr& inRepo, AppliedSnapshot& outApplied);
/// Reads it from an opened session.
bool ApplySnapshotSessionData(const RepoPtr& inSource, Lyra2Db::Db& inSourceDb, const RepoPtr& inRepo,
                              AppliedSnapshot& outApplied);
/// Adds to the changes that all goes which the revision has and the changes do not.
bool DeleteWhatIsNotIn(const RepoPtr& inRepo, std::string_view inRevision, TransactionChanges& ioChanges);

}  // namespace VantryLocalHub::GitBox::IO

#pragma once

#include <functional>
#include <map>
#include <memory>

#include "Inc/Model/AutosaveDiskMonitor.h"
#include "Inc/Model/GitBoxSandbox.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub::GitBox {

/// The registry of open sessions: finds them on disk at start, and leads from an id to its sandbox.
///
/// What opens, makes, replaces or deletes the file of a single-file project holds a mutex of its path (rank
/// RopeFilePath) until the registry knows of it: of two who want the same file one finds what the other made.
///
/// Threading: any thread. mMutex guards the map and the list of extracted snapshots, and is never held across a read of
/// a session (rank Sandboxes); scans run on the pool for waiting work, one task a folder, and take the lock only to
/// add.
class Sandboxes : public std::enable_shared_from_this<Sandboxes>
{
public:
    using Map = std::map<ImmutableString, SandboxPtr>;  ///< session id and production id, each -> sandbox

    /// The current hub's, made on first use; empty until ReadSandboxes.
    static std::shared_ptr<Sandboxes> Instance();

    /// Drops everything and reads all sessions from disk again.
    void ClearSandboxes();
    /// Drops everything. Operations that still run keep what they use.
    void Clear();

    void AddSandbox(const ImmutableString& inKey, const SandboxPtr& inSandbox);
    /// Adds it under its session id and its production id. Where the session is there already, that one stays and is
    /// given back.
    SandboxPtr AddSandbox(const SandboxPtr& inSandbox);
    void ClearSandbox(const ImmutableString& inKey);
    /// Finds by either id; null when there is none.
    [[nodiscard]] SandboxPtr FindSandbox(const ImmutableString& inID) const;
    [[nodiscard]] Map GetSessionSandboxes() const;

    /// 200; 404 when there is no such session or it cannot be turned.
    int UpgradeRepository(const ImmutableString& inSessionID);
    int DowngradeRepository(const ImmutableString& inSessionID);

    /// The one spelling of a path that files are known by: links followed, folders as they really lie. Of no file when
    /// it is relative.
    static std::string PlaceOfFile(const std::string& inFile);
    /// Held by whoever makes, replaces or removes what lies at a path (rank RopeFilePath).
    using PathMutex = noxcore::threads::RecursiveMutex;
    std::shared_ptr<PathMutex> MutexOfPath(const std::string& inFile);
    /// Whether a single-file project lies there, open or not.
    [[nodiscard]] bool IsRopeFile(const std::string& inFile) const;
    /// Closes a single-file project and deletes its file. False when that fails; where the file is still there it is
    /// the session that it was.
    bool DeleteRopeFile(const SandboxPtr& inSandbox);
    /// The statuses of Sandbox::ThinHistoryToRopeFile; of another file, those of making one over it.
    int ThinHistoryToRopeFile(Sandbox& inSandbox, const std::string& inFile,
                              const std::vector<ImmutableString>& inRevisions);
    /// Opens a single-file project and adds it; one that is there already is used. 200, or the status of the opening; a
    /// null sandbox then. outMoved: a session that stood in the way, since its file was moved while it was open; it is
    /// closed, and once it is forgotten the file can be opened. 423 as well while somebody uses it.
    int OpenRopeFile(const std::string& inFile, SandboxPtr& outSandbox, SandboxPtr& outMoved);
    /// Make one, open; its session is the caller's to add. One that the file was until now is closed; 423 while
    /// somebody still works in it.
    int CopyToRopeFile(Sandbox& inSource, const ImmutableString& inRevision, const std::string& inFile,
                       bool inOverwrite, SandboxPtr& outSandbox);
    int CreateRopeFile(const std::string& inFile, bool inOverwrite, const dto::RawJSON& inProperties,
                       SandboxPtr& outSandbox);

    /// Reads a folder like a session's, under ids that its path gives, and lists it, so that the next start finds it.
    /// Null when it cannot be read, or its path is not UTF-8; one that cannot be listed is there until the end of this
    /// run.
    SandboxPtr ReadAndAddExtractedSnapshot(const std::string& inFolder);
    /// Unpacks a snapshot beside its file, where that was not done yet, and opens it. A session whose folder is gone
    /// has no part in that: outDropped. 404: there is no such file, or no such root asset in it; 400: the folder would
    /// be that of another session, or the file itself. After a failure what was unpacked is gone, and what was not open
    /// before is not open.
    int OpenSnapshot(const std::string& inZipFile, const ImmutableString& inRootAssetID, SandboxPtr& outSandbox,
                     SandboxPtr& outDropped);
    /// Closes it and strikes it off the list; its folder stays. 404: no extracted snapshot has this id; 500: it is
    /// closed, but the next start finds it again.
    int ClearExtractedSnapshot(const ImmutableString& inID);

    /// Asks for a look at the volumes of single-file projects, and of sessions that failed to write something.
    void CheckAutosaveDiskSpace();
    bool VolumeIsLowOnAutosaveSpace(const std::string& inPath);

private:
    std::shared_ptr<AutosaveDiskMonitor> DiskMonitor();
    [[nodiscard]] std::vector<AutosaveDiskMonitor::Place> PlacesToWatch() const;

    void ReadSandboxes();
    void ReadOrClearUp(const std::string& inFolder);
    void ReadSandbox(const std::string& inFolder);
    /// The single-file projects of an autosave location, and of the folder `local` in it.
    void ReadRopeFileSandboxesInDirectory(const std::string& inFolder);
    /// The project in a file that a scan found, closed; null where it is known already or cannot be read.
    SandboxPtr ReadRopeFile(const std::string& inFile);
    /// Adds it, unless another file holds the same one: that is told of.
    void AddFoundFile(const SandboxPtr& inSandbox);
    int OpenFileAt(const std::string& inPlace, SandboxPtr& outSandbox);
    /// The session that was opened at a place where another file lies now, or the open one whose file lies there now.
    [[nodiscard]] SandboxPtr FindMoved(const std::string& inPlace) const;
    /// False while somebody uses it.
    bool CloseMoved(const SandboxPtr& inSandbox);
    /// Removes what killed processes left beside a place.
    void RemoveLeftovers(const std::string& inPlace);
    /// Closes the session that a file was until now: one that is to be overwritten. 200; 423: somebody works in it,
    /// here or in another process.
    int MakeWayFor(const std::string& inFile, bool inOverwrite, SandboxPtr& outClosed);
    /// Makes a file; one that is given back open is a session, not added yet. After a failure a session that was there
    /// before is there.
    using FileMaker = std::function<int(RopeFile::IO::OpenFile& outFile)>;
    int PutFile(const std::string& inPlace, bool inOverwrite, const FileMaker& inMaker, SandboxPtr& outSandbox);
    SandboxPtr FindCopyLocked(const Sandbox& inSandbox) const REQUIRES(mMutex);
    void ReadExtractedSnapshotSandboxes();
    /// Whether a folder is that of a session or a template, and no snapshot's.
    [[nodiscard]] bool IsOfAnother(const std::string& inFolder) const;
    /// The snapshot that is open in a folder; null when there is none.
    [[nodiscard]] SandboxPtr FindSnapshot(const std::string& inFolder) const;
    /// Removes a folder that a deletion has marked and then was cut off. False when that fails; true as well where
    /// there is nothing to remove.
    bool FinishDeletion(const std::string& inFolder);
    /// The statuses of OpenSnapshot for what lies in a folder. What was not open before is not after a failure.
    int OpenExtracted(const std::string& inFolder, const ImmutableString& inRootAssetID, SandboxPtr& outSandbox);
    /// Forgets the session of a folder that is gone; null when there is none.
    SandboxPtr DropSnapshot(const std::string& inFolder);
    /// The sandbox of a session, read from its folder where it is not in the map.
    SandboxPtr FindOrRead(const ImmutableString& inSessionID);

    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Sandboxes};
    Map mSandboxes GUARDED_BY(mMutex);
    std::shared_ptr<AutosaveDiskMonitor> mDiskMonitor GUARDED_BY(mMutex);             ///< made with the first question
    std::map<std::string, std::weak_ptr<PathMutex>> mPathMutexes GUARDED_BY(mMutex);  ///< path -> mutex in use
};

}  // namespace VantryLocalHub::GitBox

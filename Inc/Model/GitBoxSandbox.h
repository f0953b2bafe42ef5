#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Client/Wire/MediaLocator.h"
#include "Client/Wire/SizeInfo.h"
#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/GitBoxSyncDb.h"
#include "Inc/Model/Lyra2Db.h"
#include "Inc/Model/RopeFileCopy.h"
#include "Inc/Model/RopeFileSyncDb.h"
#include "Inc/Model/SideDb.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub::GitBox {

/// The live object of one opened session: its records in memory, its repository and databases on demand, its read
/// caches, and every write under its locks.
///
/// Statuses are 200, 404, 409, 500; a failed write leaves the records as they were. Handles that were released open
/// again with the next use.
/// Threading: any thread. mWriteMutex is held over each move of the history, so that there is one at a time; mMainMutex
/// guards records and handles and is not, so that the record of a session can be read while a large commit is written.
/// mChangeMutex guards the change count and is held over each read and write of media locators and user enclosures,
/// which share one connection: a batch under way is a transaction of everybody who uses it. Each cache has a mutex.
/// Lock order: mWriteMutex, mMainMutex, mChangeMutex, a cache's mutex (never two caches), the sync database. Handles
/// are retained, which takes mMainMutex, before mChangeMutex is taken, not under it. ReleaseDB only tries.
class Sandbox : public SyncDbSandbox, public RopeFile::RepoSource, public std::enable_shared_from_this<Sandbox>
{
public:
    /// The open handles of a session, kept alive by whoever uses them.
    struct Handles
    {
        IO::RepoPtr mRepo;
        IO::DbPtr mDb;  ///< null for a single-file project, which has all in its repository
    };

    /// By which ids a session goes: those it holds, or those of its path, for a copy that lies beside the original.
    enum class IDs
    {
        Own,
        OfExtractedSnapshot,
        OfExtractedTemplate  ///< new ones for each object: a template is a new one with each run
    };

    /// Of a folder whose repository and database are open already; either may be null, to be opened when needed. The
    /// record comes with the ids that its folder holds.
    static std::shared_ptr<Sandbox> Create(std::string inFolder, dto::Session inSession, Handles inHandles,
                                           IDs inIDs = IDs::Own);
    /// Of a single-file project that was just opened.
    static std::shared_ptr<Sandbox> Create(const std::string& inRopeFile, RopeFile::IO::OpenFile inFile);
    /// Puts the ids that the folder's path gives into the record, always the same ones for a path. The folder keeps its
    /// own.
    static void SetIDsForExtractedSnapshot(const std::string& inFolder, dto::Session& ioSession);
    /// Puts new ids into the record.
    static void SetIDsForExtractedTemplate(dto::Session& ioSession);
    ~Sandbox() override;

    // ---- Handles
    bool RetainDB(Handles& outHandles);
    /// Drops caches, and the handles when nobody is using the repository and nothing of it is left to write. Waits for
    /// nobody. True when they were dropped.
    bool ReleaseDB();
    /// From here on nothing in the folder is opened any more, lest a database be made anew in it. Waits for an opening
    /// or a write that is under way; whoever holds handles keeps them.
    void NoteDeleted();
    /// The same, for a file that another is to take the place of. False, and all as it was, while somebody uses it.
    bool CloseForGood();
    /// Of a revision, where it is known without counting: a copy of it has as many bins.
    std::optional<std::int64_t> KnownBinCount(ImmutableString& outRevision);
    void SetSnapshotRootAssetID(const ImmutableString& inAssetID);
    /// Whether a single file that is open was moved, deleted or replaced since.
    bool FileHasMoved();
    /// The status of the last attempt to open the single file, after one that failed.
    int WhyNotOpen();
    /// Takes either back: what was to go is there after all.
    void NoteKept();
    /// A complaint that the file cannot be opened goes with what it is about: when it can be, or is closed for good.
    void TakeReopenComplaintBack();
    /// See ProjectBox::GetHistoryGeneration.
    [[nodiscard]] std::uint64_t HistoryGeneration() const { return mHistoryGeneration.load(); }
    [[nodiscard]] std::int64_t LastUsed() const { return mLastUsed.load(std::memory_order_relaxed); }
    std::shared_ptr<ProjectBoxSyncDb> GetSyncDb();

    bool IncrementChangeCount(std::int64_t& outCount) override;
    bool RetainRepo(IO::RepoPtr& outRepo) override;
    /// Empty for a single-file project.
    [[nodiscard]] std::string GetFolder() const override { return mFolder; }
    [[nodiscard]] const std::string& GetRopeFile() const { return mRopeFile; }
    /// By which two files of one project are known from each other's copies; empty for a session folder.
    /// Which project lies in the single file; it may be another one when that is opened anew.
    [[nodiscard]] ImmutableString UniqueID() const;
    [[nodiscard]] bool IsRope() const override { return !mRopeFile.empty(); }
    [[nodiscard]] ImmutableString GetLocalSessionID() const override { return mSessionID; }
    [[nodiscard]] const ImmutableString& ProductionID() const { return mProductionID; }
    [[nodiscard]] bool IsExtractedSnapshot() const { return mIDs == IDs::OfExtractedSnapshot; }

    // ---- Writes that failed. A full disk shows here first.
    void NoteFailedWrite() { mFailedWrites.fetch_add(1); }
    /// Those that nobody has settled yet.
    [[nodiscard]] std::uint32_t FailedWrites() const { return mFailedWrites.load(); }
    /// Forgets as many as there were at some moment, unless there have been more since.
    void SettleFailedWrites(std::uint32_t inSeen) { mFailedWrites.compare_exchange_strong(inSeen, 0); }

    // ---- Reads
    /// The session's record: out of memory where all of it is known, else with what its databases hold. 200 or 500.
    int GetSession(dto::Session& outSession);
    /// Two reads that are made of all sessions in turn: what had to be opened for them is closed again at once.
    int GetSessionInPassing(dto::Session& outSession);
    bool ReadLinkStateInPassing(LinkState& outState);
    /// The record as far as it is known, where a part of it cannot be read.
    [[nodiscard]] dto::Session GetSession();
    [[nodiscard]] dto::Session GetProduction();
    /// The record at a revision: properties and time of it.
    int GetProductionAtRevision(const ImmutableString& inRevision, dto::Session& outProduction);
    int GetAssets(const ImmutableString& inRevision, bool inWithEnclosures, AssetListPtr& outAssets);
    int GetAsset(const ImmutableString& inRevision, const ImmutableString& inAssetID, dto::Asset& outAsset);
    int GetAssetByContentHash(const ImmutableString& inContentID, const ImmutableString& inAssetID,
                              dto::Asset& outAsset);
    int GetAssetEnclosure(const ImmutableString& inRevision, const ImmutableString& inAssetID,
                          const ImmutableString& inEnclosureID, ConstRecycledMemoryPtr& outPayload);
    int GetProductionEnclosures(const ImmutableString& inRevision, std::vector<dto::Enclosure>& outEnclosures);
    int GetProductionEnclosure(const ImmutableString& inRevision, const ImmutableString& inEnclosureID,
                               dto::Enclosure& outEnclosure, ConstRecycledMemoryPtr& outPayload);
    int GetPayloadByContentHash(const ImmutableString& inContentID, ConstRecycledMemoryPtr& outPayload);
    /// Whether a payload is in the repository; looks at its header alone.
    int HasContent(const ImmutableString& inContentID);
    int GetSessionHistory(std::size_t inStart, std::size_t inCount, std::vector<StoredVersion>& outVersions,
                          std::size_t& outTotal);
    int GetHistoryRevision(const ImmutableString& inRevision, StoredVersion& outVersion);
    int GetHeadParentCount(std::size_t& outCount);
    bool RevisionExists(const ImmutableString& inRevision);
    bool RevisionsDiffer(const ImmutableString& inLeft, const ImmutableString& inRight);
    int GetDifferences(const ImmutableString& inFrom, const ImmutableString& inTo, SessionDifferences& outDifferences);
    int GetOutgoingChanges(const ImmutableString& inFrom, const ImmutableString& inTo,
                           SessionDifferences& outDifferences);
    /// The marker at a path of the revision's tree.
    int GetConflictInfo(const ImmutableString& inRevision, const std::string& inPath, dto::ConflictMarker& outMarker);
    int GetSizeInfo(bool inDetailed, dto::SizeInfo& outInfo);

    // ---- Media locators and user enclosures, which have no history. What an in-out record holds besides its content
    // is filled in by a write that succeeds.
    int GetSideDataTags(SideDataTags& outTags);
    int GetLastModifiedMediaLocatorTime(RFC3339DateTime& outTime);
    int GetMediaLocators(std::vector<dto::MediaLocator>& outLocators);
    int GetUnsynchronizedLocallyModifiedMediaLocators(std::vector<dto::MediaLocator>& outLocators,
                                                      SyncChangeCount& outSyncTo);
    int GetMediaLocator(const ImmutableString& inLocatorID, dto::MediaLocator& outLocator);
    int AddMediaLocator(WriteMode inMode, dto::MediaLocator& ioLocator);
    int AddMediaLocators(WriteMode inMode, std::vector<dto::MediaLocator>& ioLocators);
    int EditMediaLocator(WriteMode inMode, dto::MediaLocator& ioLocator);
    int ApplyRemoteMediaLocatorIfNotLocallyModified(const dto::MediaLocator& inRemote,
                                                    const ImmutableString& inLocalUser, bool& outChanged);
    int GetUserEnclosures(const ImmutableString& inUser, std::vector<dto::UserEnclosure>& outEnclosures);
    int GetUnsynchronizedLocallyModifiedUserEnclosures(const ImmutableString& inUser,
                                                       std::vector<dto::UserEnclosure>& outEnclosures,
                                                       SyncChangeCount& outSyncTo);
    int GetUserEnclosure(const ImmutableString& inUser, const ImmutableString& inEnclosureID,
                         dto::UserEnclosure& outEnclosure, ConstRecycledMemoryPtr& outPayload);
    int AddUserEnclosure(const ImmutableString& inUser, WriteMode inMode, const ConstRecycledMemoryPtr& inPayload,
                         dto::UserEnclosure& ioEnclosure);
    int UpdateUserEnclosure(const ImmutableString& inUser, WriteMode inMode, const ConstRecycledMemoryPtr& inPayload,
                            dto::UserEnclosure& ioEnclosure);
    int DeleteUserEnclosure(const ImmutableString& inUser, const ImmutableString& inEnclosureID);

    // ---- Content on its way into a transaction
    ImmutableString ComputeContentHash(const std::vector<dto::Asset>& inAssets);
    ImmutableString ComputeContentHash(const ConstRecycledMemoryPtr& inPayload);
    int ComputeContentHashAndEmbedInAsset(dto::Asset& ioAsset);
    /// Writes what content is waiting into the repository's file; durable only with a commit.
    int FlushContent();

    // ---- History moves
    /// Fills the session's record as the commit left it, and the revision it was made on. 409: the session has moved on
    /// from a required head of other content.
    int CommitTransaction(bool inClearConflicts, std::string_view inMessage, const ImmutableString& inRequiredHead,
                          const TransactionChanges& inChanges, dto::Session& outSession,
                          ImmutableString& outPreviousRevision);
    int RevertSession(const ImmutableString& inRevision, ImmutableString& outRevision);
    int AdvanceProduction(const ImmutableString& inRevision);
    int ResetProductionToRevision(const ImmutableString& inRevision);
    /// Takes stale markers away, with a commit where there were any. The session's record in any case.
    int AuditConflictMarkers(dto::Session& outSession);

    /// Brings the session to the content of a snapshot: one commit, then the locators. Without the second flag what the
    /// snapshot does not have stays. 409: the session moved on again and again meanwhile.
    int ApplySnapshot(const std::string& inZipFile, bool inKeepSessionProperties, bool inDeleteWhatIsNotInSnapshot,
                      dto::Session& outSession);
    /// The media locators as they are stored, for a copy.
    int GetLocatorRows(std::vector<Lyra2Db::MediaLocatorRow>& outRows);
    /// 404: none were ever written.
    int GetTemplateRecipients(dto::RawArray& outRecipients);

    // ---- Single-file projects
    /// The statuses of RopeFile::IO::CopyToRopeFile; 400 as well for a copy onto itself.
    int CopyToRopeFile(const ImmutableString& inRevision, const std::string& inFile, bool inOverwrite,
                       RopeFile::IO::OpenFile& outFile);
    /// With the project's own file, puts one in its place that has these revisions, those of the sync points and both
    /// heads: 423 while somebody else uses it, or when it was written to meanwhile. 400: not a single-file project.
    int ThinHistoryToRopeFile(const std::string& inFile, const std::vector<ImmutableString>& inRevisions);

    /// Whether the session is local only, as its sync database says; read once and kept. A database that cannot be read
    /// counts as a yes, which is not kept.
    bool IsLocalOnly();
    bool SetLocalOnly(bool inLocalOnly);
    /// After a write of the sync database that may have changed it.
    void ForgetLocalOnly();

private:
    Sandbox(std::string inFolder, std::string inRopeFile, const dto::Session& inSession, IDs inIDs);

    /// Loads what a session that was just opened keeps in its database.
    void InitFromRepoAndDb(Handles inHandles);
    bool OpenLocked(Handles& outHandles) REQUIRES(mMainMutex);
    bool OpenRopeLocked(Handles& outHandles) REQUIRES(mMainMutex);
    /// Of a single file, what others keep of its history counts no more either: another may lie in its place.
    void ClearCaches();
    void BeginHistoryGeneration();
    /// After an asset could not be written into a single file, which is opened anew with the next use.
    void ComplainOfAsset(const ImmutableString& inAssetID);
    bool ReadAllSessionData(const Handles& inHandles, RopeFile::SessionData& outData);
    int Compact(const std::vector<ImmutableString>& inRevisions);
    template <class Heads>
    int ReplaceFile(const std::string& inBeside, const Heads& inHeads);
    /// The side folder of a single-file project that is closed goes at its own time.
    void NoteProjectOfFile(const ImmutableString& inUniqueID);
    void DropSideFolderLocked() REQUIRES(mMainMutex);
    bool WriteBinCount(const Handles& inHandles, const ImmutableString& inRevision, std::int64_t inCount)
        REQUIRES(mMainMutex);
    /// Drops what memory knows of side data whose database was lost; another one lies in its place.
    void ForgetSideData();
    bool HasStrongHandlesLocked() const REQUIRES(mMainMutex);
    /// False while a part of the record has not been read; outSession keeps its value then.
    bool GetSessionFromMemory(dto::Session& outSession);
    [[nodiscard]] dto::Session RecordLocked() const REQUIRES(mMainMutex);
    /// Runs a read, and closes what it opened.
    template <class Function>
    auto InPassing(const Function& inRead);
    /// Reads the number of bins of the head if it is not known, or counts them where what is stored is of another head.
    void LoadBinCountLocked(const Handles& inHandles) REQUIRES(mMainMutex);
    /// Writes the number of bins with the head it is of. A commit that leaves the number as it is leaves that to the
    /// closing of the handles; a process that ended before counts anew.
    void StoreBinCountLocked(const Handles& inHandles) REQUIRES(mMainMutex);
    void UpdateRecordLocked(const IO::CommitPtr& inCommit) REQUIRES(mMainMutex);
    [[nodiscard]] ImmutableString Head();
    void AddToBinCountLocked(const Handles& inHandles, std::int64_t inDelta) REQUIRES(mMainMutex);
    void RaiseLastUsed();
    bool ReadCachedSizeInfo(const Handles& inHandles, const ImmutableString& inRevision, bool inDetailed,
                            dto::SizeInfo& outInfo);
    /// 200, 404 or 500.
    static int StatusOf(IO::ReadResult inResult);
    static int ResolveRevision(const IO::RepoPtr& inRepo, const ImmutableString& inRevision, IO::CommitPtr& outCommit);
    /// The commit id of a revision that may be a name; of an id it is not known yet whether it is there.
    static int ConvertReferenceNameToID(const IO::RepoPtr& inRepo, const ImmutableString& inRevision,
                                        ImmutableString& outID);

    template <class Value>
    struct Cache
    {
        noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::SandboxCache};
        ImmutableString mRevision GUARDED_BY(mMutex);
        bool mComplete GUARDED_BY(mMutex) = false;  ///< with all that can be asked for
        std::shared_ptr<const std::vector<Value>> mValues GUARDED_BY(mMutex);

        void TryClear()
        {
            if (!mMutex.TryLock()) return;
            mRevision = {};
            mValues.reset();
            mMutex.Unlock();
        }
    };

    /// The last differences of one kind that were asked for.
    struct DifferenceCache
    {
        noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::SandboxCache};
        std::shared_ptr<const SessionDifferences> mDifferences GUARDED_BY(mMutex);

        void TryClear()
        {
            if (!mMutex.TryLock()) return;
            mDifferences.reset();
            mMutex.Unlock();
        }
    };
    /// What a use of media locators or user enclosures needs open. Retained before mChangeMutex is taken.
    struct SideDataHandles
    {
        Handles mHandles;
        std::shared_ptr<SyncDb> mSyncDb;  ///< of a session folder
        std::shared_ptr<SideDb> mSideDb;

        [[nodiscard]] SideDb& Db() const { return *mSideDb; }
        /// The database of a session folder, where the counts stand.
        [[nodiscard]] Lyra2Db::Db& Counts() const { return *mHandles.mDb; }
    };
    /// The commit that a side branch of a single-file project stands at.
    static bool ReadSideHead(const Handles& inHandles, SideData inKind, SyncChangeCount& outCount);
    /// How far the session has come, in what its remote side is told of.
    bool LoadSyncToLocked(const SideDataHandles& inHandles, SideData inKind, SyncChangeCount& outCount)
        REQUIRES(mChangeMutex);
    bool RetainSideData(SideDataHandles& outHandles);
    bool WriteAppliedLocators(const std::vector<Lyra2Db::MediaLocatorRow>& inRows, Lyra2Db::RecordsBefore& outBefore);
    void TakeBackAppliedLocators(const std::vector<Lyra2Db::MediaLocatorRow>& inRows,
                                 const Lyra2Db::RecordsBefore& inBefore);
    /// False while they have not been read.
    bool GetSideDataTagsFromMemory(SideDataTags& outTags);
    std::shared_ptr<SyncDb> ShareSyncDb();
    std::shared_ptr<RopeFile::SyncDb> ShareRopeSyncDb();
    void LogChangeCountFailure() const;
    /// The change count to go on from: the stored one, or that of the sync database where a power cut left the stored
    /// one behind it. False when one of them cannot be read.
    bool LoadChangeCountLocked(const SideDataHandles& inHandles, std::int64_t& outCount) REQUIRES(mChangeMutex);
    std::optional<Lyra2Db::LastWrite> KnownLastWrite(SideData inKind);
    void KeepLastWriteLocked(SideData inKind, const std::optional<Lyra2Db::LastWrite>& inWrite) REQUIRES(mChangeMutex);
    bool LoadLastWriteLocked(Lyra2Db::Db& inDb, SideData inKind, Lyra2Db::LastWrite& outWrite) REQUIRES(mChangeMutex);
    /// Takes the change count that a write is to carry: the next one for a local edit, logging inFailure where that
    /// cannot be written; for the sync engine the one up to which the remote side knows all. Notes the write as well:
    /// one that then fails has changed nothing else.
    bool CountWriteLocked(const SideDataHandles& inHandles, SideData inKind, WriteMode inMode,
                          std::string_view inFailure, std::int64_t& outCount) REQUIRES(mChangeMutex);
    /// Notes a write that leaves the counter where it is.
    bool NoteFurtherWriteLocked(const SideDataHandles& inHandles, SideData inKind) REQUIRES(mChangeMutex);
    /// The change count up to which everything of a kind was exchanged.
    bool ReadExchangedCountLocked(const SideDataHandles& inHandles, SideData inKind, SyncChangeCount& outCount)
        REQUIRES(mChangeMutex);
    int ReadMediaLocatorLocked(SideDb& inDb, const ImmutableString& inLocatorID, dto::MediaLocator& outLocator,
                               std::int64_t& outChangeCount) REQUIRES(mChangeMutex);
    int AddMediaLocatorLocked(const SideDataHandles& inHandles, WriteMode inMode, dto::MediaLocator& ioLocator)
        REQUIRES(mChangeMutex);
    int EditMediaLocatorLocked(const SideDataHandles& inHandles, WriteMode inMode, const dto::MediaLocator& inStored,
                               dto::MediaLocator& ioLocator) REQUIRES(mChangeMutex);
    int ReadUserEnclosureLocked(SideDb& inDb, const ImmutableString& inUser, const ImmutableString& inEnclosureID,
                                dto::UserEnclosure& outEnclosure) REQUIRES(mChangeMutex);
    void RaiseNewestLocatorLocked(SideDb& inDb, const RFC3339DateTime& inTime) REQUIRES(mChangeMutex);
    bool LoadNewestLocatorLocked(SideDb& inDb, RFC3339DateTime& outTime) REQUIRES(mChangeMutex);
    /// Looks at all locators and notes the newest time.
    bool FindNewestLocatorLocked(SideDb& inDb, const RFC3339DateTime& inAtLeast) REQUIRES(mChangeMutex);

    int GetDifferences(DifferenceCache& ioCache, bool inOutgoingOnly, const ImmutableString& inFrom,
                       const ImmutableString& inTo, SessionDifferences& outDifferences);

    const std::string mFolder;
    const std::string mRopeFile;  ///< empty for a session folder
    const ImmutableString mSessionID;
    const ImmutableString mProductionID;
    const IDs mIDs;
    std::atomic<std::int64_t> mLastUsed{0};  ///< monotonic ticks
    std::atomic<std::uint32_t> mFailedWrites{0};
    std::atomic<std::uint64_t> mHistoryGeneration{0};  ///< no two sessions ever have one

    noxcore::threads::RecursiveMutex mWriteMutex{noxcore::threads::LockRank::SandboxWrite};

    noxcore::threads::RecursiveMutex mMainMutex{noxcore::threads::LockRank::SandboxMain};
    dto::Session mSession GUARDED_BY(mMainMutex);
    dto::Session mProduction GUARDED_BY(mMainMutex);
    IO::RepoPtr mRepo GUARDED_BY(mMainMutex);
    IO::DbPtr mDb GUARDED_BY(mMainMutex);
    std::weak_ptr<noxstorage::git::Repo> mWeakRepo GUARDED_BY(mMainMutex);
    std::weak_ptr<noxstorage::sqlite::Db> mWeakDb GUARDED_BY(mMainMutex);
    std::optional<std::int64_t> mBinCount GUARDED_BY(mMainMutex);
    ImmutableString mBinCountRevision GUARDED_BY(mMainMutex);  ///< where the stored one was counted
    std::optional<bool> mLocalOnly GUARDED_BY(mMainMutex);
    std::shared_ptr<SyncDb> mSyncDb GUARDED_BY(mMainMutex);
    std::shared_ptr<RopeFile::SyncDb> mRopeSyncDb GUARDED_BY(mMainMutex);
    std::string mSideFolder GUARDED_BY(mMainMutex);  ///< of a single-file project that is open
    std::string mReopenComplaint GUARDED_BY(mMainMutex);
    std::string mReleasedFile GUARDED_BY(mMainMutex);         ///< as the single file was when it was closed
    mutable noxcore::threads::RecursiveMutex mUniqueIDMutex;  ///< rank None
    ImmutableString mUniqueID GUARDED_BY(mUniqueIDMutex);
    int mOpeningStatus GUARDED_BY(mMainMutex) = 0;  ///< of the single file
    bool mDeleted GUARDED_BY(mMainMutex) = false;

    noxcore::threads::RecursiveMutex mChangeMutex{noxcore::threads::LockRank::SandboxChange};
    std::optional<std::int64_t> mChangeCount GUARDED_BY(mChangeMutex);
    /// Given out by a database that was lost, and to be exceeded by the one in its place.
    std::int64_t mLostChangeCount GUARDED_BY(mChangeMutex) = 0;
    /// No time where there is no locator. What the database says is checked once against the locators.
    std::optional<RFC3339DateTime> mNewestLocator GUARDED_BY(mChangeMutex);

    /// By kind. Like the counter, loaded when first needed: of most sessions nobody ever asks. Changed under
    /// mChangeMutex alone; has a mutex of its own, so that it can be read while a batch is written.
    noxcore::threads::RecursiveMutex mLastWriteMutex{noxcore::threads::LockRank::SandboxCache};
    std::array<std::optional<Lyra2Db::LastWrite>, kSideDataKinds> mLastWrites GUARDED_BY(mLastWriteMutex);

    DifferenceCache mDifferenceCache;
    DifferenceCache mOutgoingCache;
    Cache<dto::Asset> mAssetCache;
    Cache<dto::Enclosure> mEnclosureCache;
};

using SandboxPtr = std::shared_ptr<Sandbox>;

}  // namespace VantryLocalHub::GitBox

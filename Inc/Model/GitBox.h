#pragma once

#include <functional>

#include "Inc/Model/GitBoxSandboxes.h"
#include "Inc/Model/TemplateShop.h"
#include "Inc/Model/TransactionWindow.h"

namespace VantryLocalHub::GitBox {

/// The project store over git repositories in SQLite files. Operations that concern one session find its sandbox and
/// forward to it; what has no component in this build answers 501.
///
/// Threading: any thread. No lock of its own: the sandboxes serialise.
class GitBox final : public TemplateShop, public TransactionWindow
{
public:
    /// With the flag set the sessions on disk are read at once.
    explicit GitBox(bool inReadSessions);
    ~GitBox() override;
    GitBox(const GitBox&) = delete;
    GitBox& operator=(const GitBox&) = delete;

    /// 200; 404 when there is no such session or it cannot be turned.
    int UpgradeRepository(const ImmutableString& inSessionID);
    int DowngradeRepository(const ImmutableString& inSessionID);

    void ReleaseUnusedDB(std::int64_t inCutOffTicks) override;
    void ReleaseFiles(const ImmutableString& inSessionID) override;
    std::vector<dto::Session> GetSessions() override;
    int GetSession(const ImmutableString& inID, dto::Session& outSession) override;
    std::vector<dto::Session> GetSessionsOfProduction(const ImmutableString& inProductionID) override;
    int GetProduction(const ImmutableString& inID, const ImmutableString& inRevision,
                      dto::Session& outProduction) override;
    int CreateSession(const ImmutableString& inProductionID, const dto::ProductionProperties& inProperties,
                      SessionKind inKind, dto::Session& outSession) override;
    int CreateRopeFileName(const std::string& inName, std::string& outPath) override;
    int CopySessionToLyra2(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                           const dto::ProductionProperties& inProperties, dto::Session& outSession) override;
    int GetSizeInfo(const ImmutableString& inSessionID, bool inDetailed, dto::SizeInfo& outInfo) override;
    int DeletePersistedSessionData(const ImmutableString& inSessionID) override;
    int GetHistoryRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                           StoredVersion& outVersion) override;
    int GetHeadParentCount(const ImmutableString& inSessionID, std::size_t& outCount) override;
    bool RevisionExists(const ImmutableString& inSessionID, const ImmutableString& inRevision) override;
    int GetSessionHistory(const ImmutableString& inSessionID, std::size_t inStart, std::size_t inCount,
                          std::vector<StoredVersion>& outVersions, std::size_t& outTotal) override;
    int GetDifferences(const ImmutableString& inSessionID, const ImmutableString& inFrom, const ImmutableString& inTo,
                       SessionDifferences& outDifferences) override;
    int GetOutgoingChanges(const ImmutableString& inSessionID, const ImmutableString& inFrom,
                           const ImmutableString& inTo, SessionDifferences& outDifferences) override;
    int RevertSession(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                      ImmutableString& outRevision) override;
    int ResetProductionToRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision) override;
    int AdvanceProduction(const ImmutableString& inSessionID, const ImmutableString& inRevision) override;
    int ExtractSnapshot(const std::string& inZipFile, const ImmutableString& inRootAssetID,
                        dto::Session& outSession) override;
    int CreateSessionFromSnapshot(const std::string& inZipFile, const dto::ProductionProperties& inProperties,
                                  dto::Session& outSession) override;
    int ClearExtractedSnapshot(const ImmutableString& inSessionID) override;
    int ApplySnapshot(const ImmutableString& inSessionID, const std::string& inZipFile, bool inKeepSessionProperties,
                      bool inDeleteAssetsNotInSnapshot, dto::Session& outSession) override;
    int TakeSnapshot(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                     const dto::ProductionProperties& inProperties, const ImmutableString& inRootAssetID,
                     const std::string& inZipFile) override;
    int CreateRopeFile(const std::string& inFile, const dto::ProductionProperties& inProperties, bool inOverwrite,
                       dto::Session& outSession) override;
    int OpenRopeFile(const std::string& inFile, dto::Session& outSession) override;
    int CopyToRopeFile(const ImmutableString& inSessionID, const ImmutableString& inRevision, const std::string& inFile,
                       bool inOverwrite, dto::Session& outSession) override;
    int ThinHistoryToRopeFile(const ImmutableString& inSessionID, const std::string& inFile,
                              const std::vector<ImmutableString>& inRevisions) override;
    int SetSyncModeOfRopeFile(const ImmutableString& inSessionID, const ImmutableString& inMode) override;
    int ClearSandbox(const ImmutableString& inID) override;
    bool SessionExists(const ImmutableString& inID) override;
    std::uint64_t GetHistoryGeneration(const ImmutableString& inID) override;
    int GetRopeFilePath(const ImmutableString& inID, std::string& outPath) override;
    void CheckAutosaveDiskSpace() override;
    int GetAssets(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                  const ImmutableString& inTransactionID, bool inWithEnclosures, AssetListPtr& outAssets) override;
    int GetAsset(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                 const ImmutableString& inAssetID, dto::Asset& outAsset) override;
    int GetAssetByContentHash(const ImmutableString& inSessionID, const ImmutableString& inContentID,
                              const ImmutableString& inAssetID, dto::Asset& outAsset) override;
    int GetAssetEnclosure(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                          const ImmutableString& inAssetID, const ImmutableString& inEnclosureID,
                          ConstRecycledMemoryPtr& outPayload) override;
    int GetAssetEnclosureByContentHash(const ImmutableString& inSessionID, const ImmutableString& inContentID,
                                       ConstRecycledMemoryPtr& outPayload) override;
    ImmutableString ComputeContentHash(const ImmutableString& inSessionID,
                                       const std::vector<dto::Asset>& inAssets) override;
    ImmutableString ComputeContentHash(const ImmutableString& inSessionID,
                                       const ConstRecycledMemoryPtr& inPayload) override;
    int ComputeContentHashAndEmbedInAsset(const ImmutableString& inSessionID, dto::Asset& ioAsset) override;
    int GetUserEnclosures(const ImmutableString& inSessionID, const ImmutableString& inUser,
                          std::vector<dto::UserEnclosure>& outEnclosures) override;
    int GetUnsynchronizedLocallyModifiedUserEnclosures(const ImmutableString& inSessionID,
                                                       const ImmutableString& inUser,
                                                       std::vector<dto::UserEnclosure>& outEnclosures,
                                                       SyncChangeCount& outSyncTo) override;
    int GetUserEnclosure(const ImmutableString& inSessionID, const ImmutableString& inUser,
                         const ImmutableString& inEnclosureID, dto::UserEnclosure& outEnclosure,
                         ConstRecycledMemoryPtr& outPayload) override;
    int AddUserEnclosure(const ImmutableString& inSessionID, const ImmutableString& inUser, WriteMode inMode,
                         const ConstRecycledMemoryPtr& inPayload, dto::UserEnclosure& ioEnclosure) override;
    int UpdateUserEnclosure(const ImmutableString& inSessionID, const ImmutableString& inUser, WriteMode inMode,
                            const ConstRecycledMemoryPtr& inPayload, dto::UserEnclosure& ioEnclosure) override;
    int DeleteUserEnclosure(const ImmutableString& inSessionID, const ImmutableString& inUser,
                            const ImmutableString& inEnclosureID) override;
    int GetProductionEnclosures(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                std::vector<dto::Enclosure>& outEnclosures) override;
    int GetProductionEnclosure(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                               const ImmutableString& inEnclosureID, dto::Enclosure& outEnclosure,
                               ConstRecycledMemoryPtr& outPayload) override;
    int GetProductionEnclosureByContentHash(const ImmutableString& inSessionID, const ImmutableString& inContentID,
                                            ConstRecycledMemoryPtr& outPayload) override;
    int OpenTransaction(const ImmutableString& inSessionID, const ImmutableString& inRequiredHead,
                        const ImmutableString& inType, const dto::TransactionCreate& inClient,
                        dto::TransactionResource& outTransaction) override;
    int CommitTransaction(const ImmutableString& inTransactionID, const CommitMessage& inMessage, bool inClearConflicts,
                          CommitOutcome& outOutcome) override;
    int GetLastModifiedMediaLocatorTime(const ImmutableString& inSessionID, RFC3339DateTime& outTime) override;
    int GetMediaLocators(const ImmutableString& inSessionID, std::vector<dto::MediaLocator>& outLocators) override;
    int GetUnsynchronizedLocallyModifiedMediaLocators(const ImmutableString& inSessionID,
                                                      std::vector<dto::MediaLocator>& outLocators,
                                                      SyncChangeCount& outSyncTo) override;
    int GetMediaLocator(const ImmutableString& inSessionID, const ImmutableString& inLocatorID,
                        dto::MediaLocator& outLocator) override;
    int AddMediaLocator(const ImmutableString& inSessionID, WriteMode inMode, dto::MediaLocator& ioLocator) override;
    int AddMediaLocators(const ImmutableString& inSessionID, WriteMode inMode,
                         std::vector<dto::MediaLocator>& ioLocators) override;
    int EditMediaLocator(const ImmutableString& inSessionID, const ImmutableString& inTransactionID, WriteMode inMode,
                         dto::MediaLocator& ioLocator) override;
    int ApplyRemoteMediaLocatorIfNotLocallyModified(const ImmutableString& inSessionID,
                                                    const dto::MediaLocator& inRemote,
                                                    const ImmutableString& inLocalUser, bool& outChanged) override;
    int GetConflictInfo(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                        const ImmutableString& inAssetID, dto::ConflictMarker& outMarker) override;
    int GetEnclosureConflictInfo(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                 const ImmutableString& inEnclosureID, dto::ConflictMarker& outMarker) override;
    int GetConflictInfo(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                        dto::ConflictMarker& outMarker) override;
    int AuditConflictMarkers(const ImmutableString& inSessionID, dto::Session& outSession) override;
    int WriteRopeFileValue(const ImmutableString& inSessionID, const std::string& inKey,
                           const std::string& inValue) override;
    int ReadRopeFileValue(const ImmutableString& inSessionID, const std::string& inKey, std::string& outValue) override;
    bool ReadCurrentRemoteAssociation(const ImmutableString& inSessionID, RemoteAssociation& outAssociation) override;
    bool ReadLatestSyncPoint(const ImmutableString& inSessionID, SyncPoint& outPoint) override;
    bool WriteUserID(const ImmutableString& inSessionID, const ImmutableString& inUserID,
                     const ImmutableString& inCorvaneID) override;
    bool WriteAssociationForSync(const ImmutableString& inSessionID, const AssociationForSync& inAssociation) override;
    bool InvalidateAssociationForSync(const ImmutableString& inSessionID,
                                      const AssociationForSync& inAssociation) override;
    bool WriteSyncPoint(const ImmutableString& inSessionID, const SyncPoint& inPoint,
                        std::int64_t& outChangeCount) override;
    bool ReadSyncPointForLocalRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                       SyncPoint& outPoint) override;
    bool ReadSyncPointForRemoteRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                        SyncPoint& outPoint) override;
    bool ReadSyncPointRevisions(const ImmutableString& inSessionID, std::vector<ImmutableString>& outLocal,
                                std::vector<ImmutableString>& outRemote) override;
    bool SetMediaLocatorSyncChangeCount(const ImmutableString& inSessionID, const SyncChangeCount& inCount) override;
    bool ResetMediaLocatorSyncChangeCount(const ImmutableString& inSessionID) override;
    bool SetUserEnclosureSyncChangeCount(const ImmutableString& inSessionID, const SyncChangeCount& inCount) override;
    bool ResetUserEnclosureSyncChangeCount(const ImmutableString& inSessionID) override;
    bool SetUserEnclosureSyncEtag(const ImmutableString& inSessionID, const ImmutableString& inEtag) override;
    bool ReadDeletedDate(const ImmutableString& inSessionID, std::string& outDate) override;
    bool WriteDeletedDate(const ImmutableString& inSessionID, const std::string& inDate) override;
    bool RemoveDeletedDate(const ImmutableString& inSessionID) override;
    bool ResolveRestoredRemoteRevision(const ImmutableString& inSessionID, const ImmutableString& inRemoteRevision,
                                       ImmutableString& outLatestRemoteRevision) override;
    bool IsLocalOnly(const ImmutableString& inSessionID) override;
    bool WriteSynchronizedMode(const ImmutableString& inSessionID) override;
    bool WriteLocalOnlyMode(const ImmutableString& inSessionID) override;
    bool ReadLinkState(const ImmutableString& inSessionID, LinkState& outState) override;
    int GetSideDataTags(const ImmutableString& inSessionID, SideDataTags& outTags) override;
    int FlushTransactionContent(const ImmutableString& inTransactionID) override;
    int HasContent(const ImmutableString& inSessionID, const ImmutableString& inContentID) override;

private:
    /// In the autosave location, by the name that the properties give.
    int CreateRopeFileSession(const dto::ProductionProperties& inProperties, dto::Session& outSession);
    /// Makes the session of a new file known. 201, or the status of reading it.
    int AddNewRopeFile(const SandboxPtr& inSandbox, dto::Session& outSession);
    /// After a file could not be put into a place: another one lies there all the same where the last step had
    /// happened.
    void NoteFailedPlacing(const ImmutableString& inSessionID, bool inIsReplaced);
    int DeleteRopeFile(const SandboxPtr& inSandbox);
    /// Of a session in a folder. 200; 404: somebody else was quicker; 500: it is as before.
    int DeleteFolder(const SandboxPtr& inSandbox);
    static void PostSessionChanged(const ImmutableString& inSessionID);
    /// After every write of a session. One that failed, and each after it until its volume has room, has the free space
    /// looked at. Gives the status back.
    int NoteWrite(Sandbox& inSandbox, int inStatus);
    /// The same after a write of its sync database.
    bool NoteSyncWrite(Sandbox& inSandbox, bool inWritten);
    /// The same, and tells of the change where there is one.
    int NoteChange(Sandbox& inSandbox, int inStatus);
    /// The records of the sandboxes that a test names by their key; one that cannot be read is left out.
    std::vector<dto::Session> ReadSessions(
        const std::function<bool(const ImmutableString&, const Sandbox&)>& inTest) const;

    const std::shared_ptr<Sandboxes> mSandboxes;
};

}  // namespace VantryLocalHub::GitBox

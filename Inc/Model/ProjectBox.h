#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Client/Wire/MediaLocator.h"
#include "Client/Wire/SizeInfo.h"
#include "Inc/Model/ProjectBoxSyncDb.h"
#include "Inc/Model/StoreRecords.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Lifetime.h"
#include "Platform/noxcore/Messaging.h"

namespace VantryLocalHub {

/// The whole face of the project store: everything a session is on disk, behind one interface.
///
/// A session is found by its session id or its production id. Results are HTTP statuses (200, 201, 400, 404, 409,
/// 412, 415, 500) unless stated; an out argument keeps its value after a failure. A revision may be a commit id or one
/// of "session", "production", "HEAD"; empty means the head of `session`. Nothing throws outward.
///
/// Threading: any thread; the store serialises what one session needs serialised. Locks: none of its own.
class ProjectBox
{
public:
    /// Something of a session changed that its status record shows. Posted after the change is in the store.
    class SessionChangedMessage : public noxcore::messaging::MessageBase<SessionChangedMessage>
    {
    public:
        static constexpr std::string_view kTypeName = "VantryLocalHub::ProjectBox::SessionChangedMessage";
        explicit SessionChangedMessage(ImmutableString inSessionID) : mSessionID(std::move(inSessionID)) {}
        const ImmutableString mSessionID;
    };

    /// The store of the current hub; null while there is none.
    static std::shared_ptr<ProjectBox> Instance();
    static void SetInstance(std::shared_ptr<ProjectBox> inInstance);
    /// Where the store's messages are posted; made on first use.
    static std::shared_ptr<noxcore::messaging::MessageStation> Station();
    /// Withdraws the instance and waits until nobody holds it any more; disposes of the station.
    static void Close();

    virtual ~ProjectBox() = default;

    // 0 to 12: sessions
    /// Closes the files of sessions that nobody has used since that moment of the monotonic clock.
    virtual void ReleaseUnusedDB(std::int64_t inCutOffTicks) = 0;
    /// Closes those of one session, unless somebody uses them just now.
    virtual void ReleaseFiles(const ImmutableString& inSessionID) = 0;
    /// One that cannot be read is left out.
    virtual std::vector<dto::Session> GetSessions() = 0;
    virtual int GetSession(const ImmutableString& inID, dto::Session& outSession) = 0;
    virtual std::vector<dto::Session> GetSessionsOfProduction(const ImmutableString& inProductionID) = 0;
    virtual std::vector<dto::Session> GetTemplates() = 0;
    /// The production's record: head of branch `session` in mRevision where inRevision is "HEAD" or empty, else that
    /// revision; properties of it.
    virtual int GetProduction(const ImmutableString& inID, const ImmutableString& inRevision,
                              dto::Session& outProduction) = 0;
    virtual int GetTemplate(const ImmutableString& inID, dto::Session& outTemplate) = 0;
    /// 201. An empty production id asks for new ids.
    virtual int CreateSession(const ImmutableString& inProductionID, const dto::ProductionProperties& inProperties,
                              SessionKind inKind, dto::Session& outSession) = 0;
    virtual int CreateRopeFileName(const std::string& inName, std::string& outPath) = 0;
    /// 201: the state at the revision, as a session of its own. The source may be a template. Empty properties: those
    /// of the revision.
    virtual int CopySessionToLyra2(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                   const dto::ProductionProperties& inProperties, dto::Session& outSession) = 0;
    /// 201. Empty properties: those of the session. The recipients are those that the template is meant for.
    virtual int CreateTemplate(const ImmutableString& inSessionID, const dto::ProductionProperties& inProperties,
                               const dto::RawArray& inRecipients, dto::Session& outTemplate) = 0;
    virtual int GetSizeInfo(const ImmutableString& inSessionID, bool inDetailed, dto::SizeInfo& outInfo) = 0;
    virtual int DeletePersistedSessionData(const ImmutableString& inSessionID) = 0;

    // 13 to 21: history
    virtual int GetHistoryRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                   StoredVersion& outVersion) = 0;
    virtual int GetHeadParentCount(const ImmutableString& inSessionID, std::size_t& outCount) = 0;
    virtual bool RevisionExists(const ImmutableString& inSessionID, const ImmutableString& inRevision) = 0;
    /// The newest first, from the given place; outTotal is the length of the whole chain.
    virtual int GetSessionHistory(const ImmutableString& inSessionID, std::size_t inStart, std::size_t inCount,
                                  std::vector<StoredVersion>& outVersions, std::size_t& outTotal) = 0;
    virtual int GetDifferences(const ImmutableString& inSessionID, const ImmutableString& inFrom,
                               const ImmutableString& inTo, SessionDifferences& outDifferences) = 0;
    virtual int GetOutgoingChanges(const ImmutableString& inSessionID, const ImmutableString& inFrom,
                                   const ImmutableString& inTo, SessionDifferences& outDifferences) = 0;
    virtual int RevertSession(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                              ImmutableString& outRevision) = 0;
    virtual int ResetProductionToRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision) = 0;
    virtual int AdvanceProduction(const ImmutableString& inSessionID, const ImmutableString& inRevision) = 0;

    // 22 to 34: snapshots and single-file projects
    /// Unpacks a snapshot beside its file, to be read as a session; one that lies there already is used. 404: no such
    /// file. A root asset that is not empty is noted with it.
    virtual int ExtractSnapshot(const std::string& inZipFile, const ImmutableString& inRootAssetID,
                                dto::Session& outSession) = 0;
    /// 201: a session of its own, with the snapshot's history. Empty properties: those of the snapshot. 404: no such
    /// file.
    virtual int CreateSessionFromSnapshot(const std::string& inZipFile, const dto::ProductionProperties& inProperties,
                                          dto::Session& outSession) = 0;
    virtual int ClearExtractedSnapshot(const ImmutableString& inSessionID) = 0;
    /// Gives the session the content of a snapshot, as one commit. 404: no such session or file; 409: the session was
    /// changed again and again meanwhile.
    virtual int ApplySnapshot(const ImmutableString& inSessionID, const std::string& inZipFile,
                              bool inKeepSessionProperties, bool inDeleteAssetsNotInSnapshot,
                              dto::Session& outSession) = 0;
    virtual int CreateRopeFile(const std::string& inFile, const dto::ProductionProperties& inProperties,
                               bool inOverwrite, dto::Session& outSession) = 0;
    virtual int OpenRopeFile(const std::string& inFile, dto::Session& outSession) = 0;
    /// 201 with the new session.
    virtual int CopyToRopeFile(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                               const std::string& inFile, bool inOverwrite, dto::Session& outSession) = 0;
    /// With the project's own file: puts one in its place that has these revisions, those that were synchronized, and
    /// the head alone. 423 while it is in use; 400: not a single-file project.
    virtual int ThinHistoryToRopeFile(const ImmutableString& inSessionID, const std::string& inFile,
                                      const std::vector<ImmutableString>& inRevisions) = 0;
    virtual int SetSyncModeOfRopeFile(const ImmutableString& inSessionID, const ImmutableString& inMode) = 0;
    virtual int ClearSandbox(const ImmutableString& inID) = 0;
    virtual bool SessionExists(const ImmutableString& inID) = 0;
    /// Another number whenever another history may stand in a session's place: after a deletion, a closing, an
    /// overwriting, a compaction. What was read at a revision holds as long as the number that was read before it.
    /// 0: no such session.
    virtual std::uint64_t GetHistoryGeneration(const ImmutableString& inID) = 0;
    virtual int GetRopeFilePath(const ImmutableString& inID, std::string& outPath) = 0;
    virtual void CheckAutosaveDiskSpace() = 0;

    // 35 to 42: assets
    /// With a transaction: the session's assets with the transaction's changes put over them. The list is shared with
    /// whoever else reads the revision.
    virtual int GetAssets(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                          const ImmutableString& inTransactionID, bool inWithEnclosures, AssetListPtr& outAssets) = 0;
    virtual int GetAsset(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                         const ImmutableString& inAssetID, dto::Asset& outAsset) = 0;
    virtual int GetAssetByContentHash(const ImmutableString& inSessionID, const ImmutableString& inContentID,
                                      const ImmutableString& inAssetID, dto::Asset& outAsset) = 0;
    virtual int GetAssetEnclosure(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                  const ImmutableString& inAssetID, const ImmutableString& inEnclosureID,
                                  ConstRecycledMemoryPtr& outPayload) = 0;
    virtual int GetAssetEnclosureByContentHash(const ImmutableString& inSessionID, const ImmutableString& inContentID,
                                               ConstRecycledMemoryPtr& outPayload) = 0;
    /// Content id of a list of assets taken as one; empty on failure.
    virtual ImmutableString ComputeContentHash(const ImmutableString& inSessionID,
                                               const std::vector<dto::Asset>& inAssets) = 0;
    /// Stores the payload and gives its content id; empty for an empty payload or a failure.
    virtual ImmutableString ComputeContentHash(const ImmutableString& inSessionID,
                                               const ConstRecycledMemoryPtr& inPayload) = 0;
    virtual int ComputeContentHashAndEmbedInAsset(const ImmutableString& inSessionID, dto::Asset& ioAsset) = 0;

    // 43 to 48: user enclosures. An enclosure of another user counts as absent; 404 for what is not there.
    virtual int GetUserEnclosures(const ImmutableString& inSessionID, const ImmutableString& inUser,
                                  std::vector<dto::UserEnclosure>& outEnclosures) = 0;
    /// What the remote side does not know yet, and the count to write with SetUserEnclosureSyncChangeCount once it
    /// does: both of one moment, so that no write falls between them.
    virtual int GetUnsynchronizedLocallyModifiedUserEnclosures(const ImmutableString& inSessionID,
                                                               const ImmutableString& inUser,
                                                               std::vector<dto::UserEnclosure>& outEnclosures,
                                                               SyncChangeCount& outSyncTo) = 0;
    virtual int GetUserEnclosure(const ImmutableString& inSessionID, const ImmutableString& inUser,
                                 const ImmutableString& inEnclosureID, dto::UserEnclosure& outEnclosure,
                                 ConstRecycledMemoryPtr& outPayload) = 0;
    /// An id that is there already is replaced, even where another user holds it. Without an id it gets a new one.
    virtual int AddUserEnclosure(const ImmutableString& inSessionID, const ImmutableString& inUser, WriteMode inMode,
                                 const ConstRecycledMemoryPtr& inPayload, dto::UserEnclosure& ioEnclosure) = 0;
    /// A null payload and an empty name leave what is there.
    virtual int UpdateUserEnclosure(const ImmutableString& inSessionID, const ImmutableString& inUser, WriteMode inMode,
                                    const ConstRecycledMemoryPtr& inPayload, dto::UserEnclosure& ioEnclosure) = 0;
    virtual int DeleteUserEnclosure(const ImmutableString& inSessionID, const ImmutableString& inUser,
                                    const ImmutableString& inEnclosureID) = 0;

    // 49 to 51: production enclosures
    virtual int GetProductionEnclosures(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                        std::vector<dto::Enclosure>& outEnclosures) = 0;
    virtual int GetProductionEnclosure(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                       const ImmutableString& inEnclosureID, dto::Enclosure& outEnclosure,
                                       ConstRecycledMemoryPtr& outPayload) = 0;
    virtual int GetProductionEnclosureByContentHash(const ImmutableString& inSessionID,
                                                    const ImmutableString& inContentID,
                                                    ConstRecycledMemoryPtr& outPayload) = 0;

    // 52 to 66: transactions
    virtual int GetTransactionList(const ImmutableString& inSessionID,
                                   std::vector<dto::TransactionResource>& outTransactions) = 0;
    /// 201; 404: no such session; 409: the session has moved on from the required head. An empty required head
    /// demands nothing.
    virtual int OpenTransaction(const ImmutableString& inSessionID, const ImmutableString& inRequiredHead,
                                const ImmutableString& inType, const dto::TransactionCreate& inClient,
                                dto::TransactionResource& outTransaction) = 0;
    virtual int GetTransaction(const ImmutableString& inTransactionID, dto::TransactionResource& outTransaction) = 0;
    virtual int EditSessionProperties(const ImmutableString& inTransactionID,
                                      const dto::ProductionProperties& inProperties) = 0;
    virtual int AddAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                         const AssetContent& inAsset, dto::Asset& outAsset) = 0;
    virtual int GetTransactionAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                                    dto::Asset& outAsset) = 0;
    /// 409: mMergedFrom of the content is not what the transaction has.
    virtual int AddOrUpdateProductionEnclosure(const ImmutableString& inTransactionID,
                                               const EnclosureContent& inEnclosure, dto::Enclosure& outEnclosure) = 0;
    virtual int GetTransactionAssetEnclosure(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                                             const ImmutableString& inEnclosureID,
                                             ConstRecycledMemoryPtr& outPayload) = 0;
    /// 409: mMergedFrom of the content is not what the transaction has.
    virtual int EditAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                          const AssetContent& inAsset, dto::Asset& outAsset) = 0;
    virtual int DeleteAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID) = 0;
    virtual int DeleteAssetEnclosure(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                                     const ImmutableString& inEnclosureID) = 0;
    virtual int RestoreAsset(const ImmutableString& inTransactionID, const ImmutableString& inAssetID,
                             const ImmutableString& inContentID, dto::Asset& outAsset) = 0;
    virtual bool IsAssetRestoredInTransaction(const ImmutableString& inTransactionID,
                                              const ImmutableString& inAssetID) = 0;
    /// 200; 404, 409, 412, 500. The message is the commit's text as the client gave it.
    virtual int CommitTransaction(const ImmutableString& inTransactionID, const CommitMessage& inMessage,
                                  bool inClearConflicts, CommitOutcome& outOutcome) = 0;
    /// 200; 404: no such transaction; 412: closed already.
    virtual int CloseTransaction(const ImmutableString& inTransactionID) = 0;

    // 67 to 74: media locators. 404 for what is not there.
    /// No time where there are no locators.
    virtual int GetLastModifiedMediaLocatorTime(const ImmutableString& inSessionID, RFC3339DateTime& outTime) = 0;
    virtual int GetMediaLocators(const ImmutableString& inSessionID, std::vector<dto::MediaLocator>& outLocators) = 0;
    /// What the remote side does not know yet, and the count to write with SetMediaLocatorSyncChangeCount once it does:
    /// both of one moment, so that no write falls between them.
    virtual int GetUnsynchronizedLocallyModifiedMediaLocators(const ImmutableString& inSessionID,
                                                              std::vector<dto::MediaLocator>& outLocators,
                                                              SyncChangeCount& outSyncTo) = 0;
    virtual int GetMediaLocator(const ImmutableString& inSessionID, const ImmutableString& inLocatorID,
                                dto::MediaLocator& outLocator) = 0;
    /// A locator that is there already is replaced, and stays created when it was. 400: no id.
    virtual int AddMediaLocator(const ImmutableString& inSessionID, WriteMode inMode, dto::MediaLocator& ioLocator) = 0;
    /// All or none, as one change.
    virtual int AddMediaLocators(const ImmutableString& inSessionID, WriteMode inMode,
                                 std::vector<dto::MediaLocator>& ioLocators) = 0;
    /// Properties replace the whole object; none leave what is there. A transaction id that is not empty is refused
    /// with 400: locators are not versioned.
    virtual int EditMediaLocator(const ImmutableString& inSessionID, const ImmutableString& inTransactionID,
                                 WriteMode inMode, dto::MediaLocator& ioLocator) = 0;
    /// Adds a locator of the remote side or takes over its properties. 200 with outChanged false: the local one is
    /// equal, or was changed since the last exchange and goes out with the next. inLocalUser stands in where the remote
    /// record names nobody.
    virtual int ApplyRemoteMediaLocatorIfNotLocallyModified(const ImmutableString& inSessionID,
                                                            const dto::MediaLocator& inRemote,
                                                            const ImmutableString& inLocalUser, bool& outChanged) = 0;

    // 75 to 80: conflicts and values of single-file projects
    virtual int GetConflictInfo(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                const ImmutableString& inAssetID, dto::ConflictMarker& outMarker) = 0;
    virtual int GetEnclosureConflictInfo(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                         const ImmutableString& inEnclosureID, dto::ConflictMarker& outMarker) = 0;
    virtual int GetConflictInfo(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                dto::ConflictMarker& outMarker) = 0;
    virtual int AuditConflictMarkers(const ImmutableString& inSessionID, dto::Session& outSession) = 0;
    /// No effect on a session folder.
    virtual int WriteRopeFileValue(const ImmutableString& inSessionID, const std::string& inKey,
                                   const std::string& inValue) = 0;
    virtual int ReadRopeFileValue(const ImmutableString& inSessionID, const std::string& inKey,
                                  std::string& outValue) = 0;

    // 81 to 101: the operations of ProjectBoxSyncDb, each of one session. A session that cannot be found gives the
    // operation's failure value.
    virtual bool ReadCurrentRemoteAssociation(const ImmutableString& inSessionID,
                                              RemoteAssociation& outAssociation) = 0;
    virtual bool ReadLatestSyncPoint(const ImmutableString& inSessionID, SyncPoint& outPoint) = 0;
    virtual bool WriteUserID(const ImmutableString& inSessionID, const ImmutableString& inUserID,
                             const ImmutableString& inCorvaneID) = 0;
    virtual bool WriteAssociationForSync(const ImmutableString& inSessionID,
                                         const AssociationForSync& inAssociation) = 0;
    virtual bool InvalidateAssociationForSync(const ImmutableString& inSessionID,
                                              const AssociationForSync& inAssociation) = 0;
    virtual bool WriteSyncPoint(const ImmutableString& inSessionID, const SyncPoint& inPoint,
                                std::int64_t& outChangeCount) = 0;
    virtual bool ReadSyncPointForLocalRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                               SyncPoint& outPoint) = 0;
    virtual bool ReadSyncPointForRemoteRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                                                SyncPoint& outPoint) = 0;
    virtual bool ReadSyncPointRevisions(const ImmutableString& inSessionID, std::vector<ImmutableString>& outLocal,
                                        std::vector<ImmutableString>& outRemote) = 0;
    virtual bool SetMediaLocatorSyncChangeCount(const ImmutableString& inSessionID, const SyncChangeCount& inCount) = 0;
    virtual bool ResetMediaLocatorSyncChangeCount(const ImmutableString& inSessionID) = 0;
    virtual bool SetUserEnclosureSyncChangeCount(const ImmutableString& inSessionID,
                                                 const SyncChangeCount& inCount) = 0;
    virtual bool ResetUserEnclosureSyncChangeCount(const ImmutableString& inSessionID) = 0;
    virtual bool SetUserEnclosureSyncEtag(const ImmutableString& inSessionID, const ImmutableString& inEtag) = 0;
    virtual bool ReadDeletedDate(const ImmutableString& inSessionID, std::string& outDate) = 0;
    virtual bool WriteDeletedDate(const ImmutableString& inSessionID, const std::string& inDate) = 0;
    virtual bool RemoveDeletedDate(const ImmutableString& inSessionID) = 0;
    virtual bool ResolveRestoredRemoteRevision(const ImmutableString& inSessionID,
                                               const ImmutableString& inRemoteRevision,
                                               ImmutableString& outLatestRemoteRevision) = 0;
    virtual bool IsLocalOnly(const ImmutableString& inSessionID) = 0;
    virtual bool WriteSynchronizedMode(const ImmutableString& inSessionID) = 0;
    virtual bool WriteLocalOnlyMode(const ImmutableString& inSessionID) = 0;

    // Beside the slots
    /// Packs the state at a revision into a snapshot. A root asset that is not empty: it and what it depends on, alone.
    virtual int TakeSnapshot(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                             const dto::ProductionProperties& inProperties, const ImmutableString& inRootAssetID,
                             const std::string& inZipFile) = 0;
    /// Whom a template is meant for, or a session that was made of one. 404: no such, or nobody was ever named.
    virtual int GetTemplateRecipients(const ImmutableString& inID, dto::RawArray& outRecipients) = 0;
    /// For the status that clients watch.
    virtual int GetSideDataTags(const ImmutableString& inSessionID, SideDataTags& outTags) = 0;
    /// All that a link to the remote side begins with. False: no such session, or it cannot be read now.
    virtual bool ReadLinkState(const ImmutableString& inSessionID, LinkState& outState) = 0;
    /// Writes what a transaction's assets and enclosures brought into the session's file, not yet durable: called once
    /// at the end of a request, so that a full disk is that request's status. 404: no such transaction.
    virtual int FlushTransactionContent(const ImmutableString& inTransactionID) = 0;
    /// An enclosure of the production that the transaction added or changed. 404: it has none of that id.
    virtual int GetTransactionProductionEnclosure(const ImmutableString& inTransactionID,
                                                  const ImmutableString& inEnclosureID,
                                                  dto::Enclosure& outEnclosure) = 0;
    /// Whether the session's repository has the content of an enclosure, without reading it. 200, 404, 500.
    virtual int HasContent(const ImmutableString& inSessionID, const ImmutableString& inContentID) = 0;

private:
    const noxcore::Lifetime mLifetime;  ///< tells Close when the last holder has let go
};

}  // namespace VantryLocalHub

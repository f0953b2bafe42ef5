#pragma once

#include <gmock/gmock.h>

#include "Inc/Model/ProjectBox.h"

namespace testing_support {

using namespace VantryLocalHub;

/// A store whose every answer a test gives. Made and destroyed out of line, which keeps the tests' compile time down.
class MockProjectBox : public ProjectBox
{
public:
    MockProjectBox();
    ~MockProjectBox() override;

    MOCK_METHOD(void, ReleaseUnusedDB, (std::int64_t), (override));
    MOCK_METHOD(void, ReleaseFiles, (const ImmutableString&), (override));
    MOCK_METHOD(std::vector<dto::Session>, GetSessions, (), (override));
    MOCK_METHOD(int, GetSession, (const ImmutableString&, dto::Session&), (override));
    MOCK_METHOD(std::vector<dto::Session>, GetSessionsOfProduction, (const ImmutableString&), (override));
    MOCK_METHOD(std::vector<dto::Session>, GetTemplates, (), (override));
    MOCK_METHOD(int, GetProduction, (const ImmutableString&, const ImmutableString&, dto::Session&), (override));
    MOCK_METHOD(int, GetTemplate, (const ImmutableString&, dto::Session&), (override));
    MOCK_METHOD(int, CreateSession,
                (const ImmutableString&, const dto::ProductionProperties&, SessionKind, dto::Session&), (override));
    MOCK_METHOD(int, CreateRopeFileName, (const std::string&, std::string&), (override));
    MOCK_METHOD(int, CopySessionToLyra2,
                (const ImmutableString&, const ImmutableString&, const dto::ProductionProperties&, dto::Session&),
                (override));
    MOCK_METHOD(int, CreateTemplate,
                (const ImmutableString&, const dto::ProductionProperties&, const dto::RawArray&, dto::Session&),
                (override));
    MOCK_METHOD(int, TakeSnapshot,
                (const ImmutableString&, const ImmutableString&, const dto::ProductionProperties&,
                 const ImmutableString&, const std::string&),
                (override));
    MOCK_METHOD(int, GetTemplateRecipients, (const ImmutableString&, dto::RawArray&), (override));
    MOCK_METHOD(int, GetSizeInfo, (const ImmutableString&, bool, dto::SizeInfo&), (override));
    MOCK_METHOD(int, DeletePersistedSessionData, (const ImmutableString&), (override));
    MOCK_METHOD(int, GetHistoryRevision, (const ImmutableString&, const ImmutableString&, StoredVersion&), (override));
    MOCK_METHOD(int, GetHeadParentCount, (const ImmutableString&, std::size_t&), (override));
    MOCK_METHOD(bool, RevisionExists, (const ImmutableString&, const ImmutableString&), (override));
    MOCK_METHOD(int, GetSessionHistory,
                (const ImmutableString&, std::size_t, std::size_t, std::vector<StoredVersion>&, std::size_t&),
                (override));
    MOCK_METHOD(int, GetDifferences,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, SessionDifferences&),
                (override));
    MOCK_METHOD(int, GetOutgoingChanges,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, SessionDifferences&),
                (override));
    MOCK_METHOD(int, RevertSession, (const ImmutableString&, const ImmutableString&, ImmutableString&), (override));
    MOCK_METHOD(int, ResetProductionToRevision, (const ImmutableString&, const ImmutableString&), (override));
    MOCK_METHOD(int, AdvanceProduction, (const ImmutableString&, const ImmutableString&), (override));
    MOCK_METHOD(int, ExtractSnapshot, (const std::string&, const ImmutableString&, dto::Session&), (override));
    MOCK_METHOD(int, CreateSessionFromSnapshot, (const std::string&, const dto::ProductionProperties&, dto::Session&),
                (override));
    MOCK_METHOD(int, ClearExtractedSnapshot, (const ImmutableString&), (override));
    MOCK_METHOD(int, ApplySnapshot, (const ImmutableString&, const std::string&, bool, bool, dto::Session&),
                (override));
    MOCK_METHOD(int, CreateRopeFile, (const std::string&, const dto::ProductionProperties&, bool, dto::Session&),
                (override));
    MOCK_METHOD(int, OpenRopeFile, (const std::string&, dto::Session&), (override));
    MOCK_METHOD(int, CopyToRopeFile,
                (const ImmutableString&, const ImmutableString&, const std::string&, bool, dto::Session&), (override));
    MOCK_METHOD(int, ThinHistoryToRopeFile,
                (const ImmutableString&, const std::string&, const std::vector<ImmutableString>&), (override));
    MOCK_METHOD(int, SetSyncModeOfRopeFile, (const ImmutableString&, const ImmutableString&), (override));
    MOCK_METHOD(int, ClearSandbox, (const ImmutableString&), (override));
    MOCK_METHOD(bool, SessionExists, (const ImmutableString&), (override));
    MOCK_METHOD(std::uint64_t, GetHistoryGeneration, (const ImmutableString&), (override));
    MOCK_METHOD(int, GetRopeFilePath, (const ImmutableString&, std::string&), (override));
    MOCK_METHOD(void, CheckAutosaveDiskSpace, (), (override));
    MOCK_METHOD(int, GetAssets,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, bool, AssetListPtr&),
                (override));
    MOCK_METHOD(int, GetAsset, (const ImmutableString&, const ImmutableString&, const ImmutableString&, dto::Asset&),
                (override));
    MOCK_METHOD(int, GetAssetByContentHash,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, dto::Asset&), (override));
    MOCK_METHOD(int, GetAssetEnclosure,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, const ImmutableString&,
                 ConstRecycledMemoryPtr&),
                (override));
    MOCK_METHOD(int, GetAssetEnclosureByContentHash,
                (const ImmutableString&, const ImmutableString&, ConstRecycledMemoryPtr&), (override));
    MOCK_METHOD(ImmutableString, ComputeContentHash, (const ImmutableString&, const std::vector<dto::Asset>&),
                (override));
    MOCK_METHOD(ImmutableString, ComputeContentHash, (const ImmutableString&, const ConstRecycledMemoryPtr&),
                (override));
    MOCK_METHOD(int, ComputeContentHashAndEmbedInAsset, (const ImmutableString&, dto::Asset&), (override));
    MOCK_METHOD(int, GetUserEnclosures,
                (const ImmutableString&, const ImmutableString&, std::vector<dto::UserEnclosure>&), (override));
    MOCK_METHOD(int, GetUnsynchronizedLocallyModifiedUserEnclosures,
                (const ImmutableString&, const ImmutableString&, std::vector<dto::UserEnclosure>&, SyncChangeCount&),
                (override));
    MOCK_METHOD(int, GetUserEnclosure,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, dto::UserEnclosure&,
                 ConstRecycledMemoryPtr&),
                (override));
    MOCK_METHOD(int, AddUserEnclosure,
                (const ImmutableString&, const ImmutableString&, WriteMode, const ConstRecycledMemoryPtr&,
                 dto::UserEnclosure&),
                (override));
    MOCK_METHOD(int, UpdateUserEnclosure,
                (const ImmutableString&, const ImmutableString&, WriteMode, const ConstRecycledMemoryPtr&,
                 dto::UserEnclosure&),
                (override));
    MOCK_METHOD(int, DeleteUserEnclosure, (const ImmutableString&, const ImmutableString&, const ImmutableString&),
                (override));
    MOCK_METHOD(int, GetProductionEnclosures,
                (const ImmutableString&, const ImmutableString&, std::vector<dto::Enclosure>&), (override));
    MOCK_METHOD(int, GetProductionEnclosure,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, dto::Enclosure&,
                 ConstRecycledMemoryPtr&),
                (override));
    MOCK_METHOD(int, GetProductionEnclosureByContentHash,
                (const ImmutableString&, const ImmutableString&, ConstRecycledMemoryPtr&), (override));
    MOCK_METHOD(int, GetTransactionList, (const ImmutableString&, std::vector<dto::TransactionResource>&), (override));
    MOCK_METHOD(int, OpenTransaction,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, const dto::TransactionCreate&,
                 dto::TransactionResource&),
                (override));
    MOCK_METHOD(int, GetTransaction, (const ImmutableString&, dto::TransactionResource&), (override));
    MOCK_METHOD(int, EditSessionProperties, (const ImmutableString&, const dto::ProductionProperties&), (override));
    MOCK_METHOD(int, AddAsset, (const ImmutableString&, const ImmutableString&, const AssetContent&, dto::Asset&),
                (override));
    MOCK_METHOD(int, GetTransactionAsset, (const ImmutableString&, const ImmutableString&, dto::Asset&), (override));
    MOCK_METHOD(int, AddOrUpdateProductionEnclosure, (const ImmutableString&, const EnclosureContent&, dto::Enclosure&),
                (override));
    MOCK_METHOD(int, GetTransactionAssetEnclosure,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, ConstRecycledMemoryPtr&),
                (override));
    MOCK_METHOD(int, EditAsset, (const ImmutableString&, const ImmutableString&, const AssetContent&, dto::Asset&),
                (override));
    MOCK_METHOD(int, DeleteAsset, (const ImmutableString&, const ImmutableString&), (override));
    MOCK_METHOD(int, DeleteAssetEnclosure, (const ImmutableString&, const ImmutableString&, const ImmutableString&),
                (override));
    MOCK_METHOD(int, RestoreAsset,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, dto::Asset&), (override));
    MOCK_METHOD(bool, IsAssetRestoredInTransaction, (const ImmutableString&, const ImmutableString&), (override));
    MOCK_METHOD(int, CommitTransaction, (const ImmutableString&, const CommitMessage&, bool, CommitOutcome&),
                (override));
    MOCK_METHOD(int, CloseTransaction, (const ImmutableString&), (override));
    MOCK_METHOD(int, GetLastModifiedMediaLocatorTime, (const ImmutableString&, RFC3339DateTime&), (override));
    MOCK_METHOD(int, GetMediaLocators, (const ImmutableString&, std::vector<dto::MediaLocator>&), (override));
    MOCK_METHOD(int, GetUnsynchronizedLocallyModifiedMediaLocators,
                (const ImmutableString&, std::vector<dto::MediaLocator>&, SyncChangeCount&), (override));
    MOCK_METHOD(int, GetMediaLocator, (const ImmutableString&, const ImmutableString&, dto::MediaLocator&), (override));
    MOCK_METHOD(int, AddMediaLocator, (const ImmutableString&, WriteMode, dto::MediaLocator&), (override));
    MOCK_METHOD(int, AddMediaLocators, (const ImmutableString&, WriteMode, std::vector<dto::MediaLocator>&),
                (override));
    MOCK_METHOD(int, EditMediaLocator, (const ImmutableString&, const ImmutableString&, WriteMode, dto::MediaLocator&),
                (override));
    MOCK_METHOD(int, ApplyRemoteMediaLocatorIfNotLocallyModified,
                (const ImmutableString&, const dto::MediaLocator&, const ImmutableString&, bool&), (override));
    MOCK_METHOD(int, GetConflictInfo,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, dto::ConflictMarker&),
                (override));
    MOCK_METHOD(int, GetEnclosureConflictInfo,
                (const ImmutableString&, const ImmutableString&, const ImmutableString&, dto::ConflictMarker&),
                (override));
    MOCK_METHOD(int, GetConflictInfo, (const ImmutableString&, const ImmutableString&, dto::ConflictMarker&),
                (override));
    MOCK_METHOD(int, AuditConflictMarkers, (const ImmutableString&, dto::Session&), (override));
    MOCK_METHOD(int, WriteRopeFileValue, (const ImmutableString&, const std::string&, const std::string&), (override));
    MOCK_METHOD(int, ReadRopeFileValue, (const ImmutableString&, const std::string&, std::string&), (override));
    MOCK_METHOD(bool, ReadCurrentRemoteAssociation, (const ImmutableString&, RemoteAssociation&), (override));
    MOCK_METHOD(bool, ReadLatestSyncPoint, (const ImmutableString&, SyncPoint&), (override));
    MOCK_METHOD(bool, WriteUserID, (const ImmutableString&, const ImmutableString&, const ImmutableString&),
                (override));
    MOCK_METHOD(bool, WriteAssociationForSync, (const ImmutableString&, const AssociationForSync&), (override));
    MOCK_METHOD(bool, InvalidateAssociationForSync, (const ImmutableString&, const AssociationForSync&), (override));
    MOCK_METHOD(bool, WriteSyncPoint, (const ImmutableString&, const SyncPoint&, std::int64_t&), (override));
    MOCK_METHOD(bool, ReadSyncPointForLocalRevision, (const ImmutableString&, const ImmutableString&, SyncPoint&),
                (override));
    MOCK_METHOD(bool, ReadSyncPointForRemoteRevision, (const ImmutableString&, const ImmutableString&, SyncPoint&),
                (override));
    MOCK_METHOD(bool, ReadSyncPointRevisions,
                (const ImmutableString&, std::vector<ImmutableString>&, std::vector<ImmutableString>&), (override));
    MOCK_METHOD(bool, SetMediaLocatorSyncChangeCount, (const ImmutableString&, const SyncChangeCount&), (override));
    MOCK_METHOD(bool, ResetMediaLocatorSyncChangeCount, (const ImmutableString&), (override));
    MOCK_METHOD(bool, SetUserEnclosureSyncChangeCount, (const ImmutableString&, const SyncChangeCount&), (override));
    MOCK_METHOD(bool, ResetUserEnclosureSyncChangeCount, (const ImmutableString&), (override));
    MOCK_METHOD(bool, SetUserEnclosureSyncEtag, (const ImmutableString&, const ImmutableString&), (override));
    MOCK_METHOD(bool, ReadDeletedDate, (const ImmutableString&, std::string&), (override));
    MOCK_METHOD(bool, WriteDeletedDate, (const ImmutableString&, const std::string&), (override));
    MOCK_METHOD(bool, RemoveDeletedDate, (const ImmutableString&), (override));
    MOCK_METHOD(bool, ResolveRestoredRemoteRevision, (const ImmutableString&, const ImmutableString&, ImmutableString&),
                (override));
    MOCK_METHOD(bool, IsLocalOnly, (const ImmutableString&), (override));
    MOCK_METHOD(bool, WriteSynchronizedMode, (const ImmutableString&), (override));
    MOCK_METHOD(bool, WriteLocalOnlyMode, (const ImmutableString&), (override));
    MOCK_METHOD(bool, ReadLinkState, (const ImmutableString&, LinkState&), (override));
    MOCK_METHOD(int, GetSideDataTags, (const ImmutableString&, SideDataTags&), (override));
    MOCK_METHOD(int, FlushTransactionContent, (const ImmutableString&), (override));
    MOCK_METHOD(int, GetTransactionProductionEnclosure,
                (const ImmutableString&, const ImmutableString&, dto::Enclosure&), (override));
    MOCK_METHOD(int, HasContent, (const ImmutableString&, const ImmutableString&), (override));
};

}  // namespace testing_support

// Made once, in MockProjectBox.cpp: every table of virtual functions would bring all mock methods with it.
extern template class testing::StrictMock<testing_support::MockProjectBox>;

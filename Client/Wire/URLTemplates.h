#pragma once

#include <array>
#include <string_view>

// The URLs that the hub hands out. "%s" is filled by the hub, what stands in braces by the client. "-" stands for an
// element that does not apply, "*" for any production, "HEAD" for the newest commit of a session. A name ends in the
// names of the braces that its template keeps.

// clang-format off
#define VYCL_URL_TEMPLATES(ROW) \
    ROW(kActivity, "/api/activity/%s") \
    ROW(kArchiveDelete, "/api/archive/%s/delete") \
    ROW(kArchiveRestore, "/api/archive/%s/restore") \
    ROW(kArchives, "/api/archives") \
    ROW(kAsset, "/api/asset/%s/%s/%s") \
    ROW(kAssetEnclosureByContentId_ContentId, "/api/asset/%s/%s/%s/enclosureByContentId/{contentId}") \
    ROW(kAssetEnclosureById, "/api/asset/%s/%s/%s/enclosureById/%s") \
    ROW(kAssetEnclosures, "/api/asset/%s/%s/%s/enclosures") \
    ROW(kAssetProperties, "/api/asset/%s/%s/%s/properties") \
    ROW(kAsset_AssetId, "/api/asset/%s/%s/{assetId}") \
    ROW(kAsset_AssetIdEnclosureByContentId_ContentId, "/api/asset/%s/%s/{assetId}/enclosureByContentId/{contentId}") \
    ROW(kAsset_AssetIdEnclosureById_EnclosureId, "/api/asset/%s/%s/{assetId}/enclosureById/{enclosureId}") \
    ROW(kAsset_AssetIdEnclosures, "/api/asset/%s/%s/{assetId}/enclosures") \
    ROW(kAssetHEADCreateEnclosure, "/api/asset/%s/HEAD/%s/createEnclosure") \
    ROW(kAssetHEAD_AssetIdRestore_AssetContentId, "/api/asset/%s/HEAD/{assetId}/restore/{assetContentId}") \
    ROW(kAssetHEAD_AssetIdRestoreFromProduction, "/api/asset/%s/HEAD/{assetId}/restoreFromProduction") \
    ROW(kAsset_CommitId_AssetId, "/api/asset/%s/{commitId}/{assetId}") \
    ROW(kAssets, "/api/assets/%s/%s") \
    ROW(kAssets_ViewCondensed, "/api/assets/%s/%s?view=CONDENSED") \
    ROW(kAssetsHEADCreate, "/api/assets/%s/HEAD/create") \
    ROW(kAssets_CommitIdTemplate_AssetId, "/api/assets/%s/{commitId}/template/{assetId}") \
    ROW(kBatons, "/api/batons/%s") \
    ROW(kCollaborators, "/api/collaborators/%s") \
    ROW(kCollaborators_Url, "/api/collaborators/-?url={nimboStorageURL}") \
    ROW(kCollaborators_ProductionId, "/api/collaborators/{productionId}") \
    ROW(kDifferences, "/api/differences/%s/%s/%s") \
    ROW(kDifferences_ProductionId_BaseCommitId_CommitId, "/api/differences/{productionId}/{baseCommitId}/{commitId}") \
    ROW(kErrorsAll, "/api/errors/all") \
    ROW(kHistory, "/api/history/%s") \
    ROW(kHistory_StartIndex, "/api/history/%s?startIndex=%s") \
    ROW(kHistory_StartIndexHEAD, "/api/history/%s?startIndex=HEAD") \
    ROW(kInvites, "/api/invites") \
    ROW(kInvites_Type, "/api/invites?type={inviteType}") \
    ROW(kJobsControl, "/api/jobs/control/%s/%s") \
    ROW(kJobsDetail, "/api/jobs/detail/%s") \
    ROW(kJobsList, "/api/jobs/list") \
    ROW(kJobsListOfSession, "/api/jobs/list/%s") \
    ROW(kJobsListOfRevision, "/api/jobs/list/%s/%s") \
    ROW(kJobsTypes, "/api/jobs/types") \
    ROW(kJobsType, "/api/jobs/types/%s") \
    ROW(kMediaLocatorsAll, "/api/medialocators/%s/all") \
    ROW(kMediaLocatorsBulkCreate, "/api/medialocators/%s/bulkCreate") \
    ROW(kMediaLocatorsBulkCreateByLastModified_LastModified, \
        "/api/medialocators/%s/bulkCreateByLastModified/{lastModified}") \
    ROW(kMediaLocatorsBulkDelete, "/api/medialocators/%s/bulkDelete") \
    ROW(kMediaLocatorsBulkUpdate, "/api/medialocators/%s/bulkUpdate") \
    ROW(kMediaLocatorsByMediaLocatorId, "/api/medialocators/%s/byMediaLocatorId/%s") \
    ROW(kMediaLocatorsByMediaLocatorId_MediaLocatorId, "/api/medialocators/%s/byMediaLocatorId/{mediaLocatorId}") \
    ROW(kPoster, "/api/poster/%s") \
    ROW(kPosterRendition, "/api/poster/%s/rendition") \
    ROW(kPreferencesRead, "/api/preferences/read") \
    ROW(kPreferencesSave, "/api/preferences/save") \
    ROW(kPresence, "/api/presence/%s") \
    ROW(kProduction, "/api/production/%s/%s") \
    ROW(kProductionArchive, "/api/production/%s/%s/archive") \
    ROW(kProductionBulkGet, "/api/production/%s/%s/bulkGet") \
    ROW(kProductionCopy, "/api/production/%s/%s/copy") \
    ROW(kProductionCopy_LocalOnly, "/api/production/%s/%s/copy?localOnly=true") \
    ROW(kProductionEnclosure, "/api/production/%s/%s/enclosure/%s") \
    ROW(kProductionEnclosures, "/api/production/%s/%s/enclosures") \
    ROW(kProductionMigrate, "/api/production/%s/%s/migrate") \
    ROW(kProductionProperties, "/api/production/%s/%s/properties") \
    ROW(kProductionCompact, "/api/production/%s/-/compact") \
    ROW(kProductionEnclosureByContentId, "/api/production/%s/-/enclosureByContentId/%s") \
    ROW(kProductionEnclosureByContentId_ContentId, "/api/production/%s/-/enclosureByContentId/{contentId}") \
    ROW(kProductionRollback_CommitId, "/api/production/%s/-/rollback/{commitId}") \
    ROW(kProductionSizeof, "/api/production/%s/-/sizeof") \
    ROW(kProduction_LocalOnly, "/api/production/%s/-?localOnly=true") \
    ROW(kProduction_ProductionId_CommitId, "/api/production/{productionId}/{commitId}") \
    ROW(kProductions, "/api/productions") \
    ROW(kProductions_LocalOnly, "/api/productions?localOnly=true") \
    ROW(kRemoteLogin, "/api/remoteLogin") \
    ROW(kRemoteLogout, "/api/remoteLogout") \
    ROW(kResolveAsset, "/api/resolve/%s/asset/%s/%s") \
    ROW(kResolveBulk, "/api/resolve/%s/bulk/-/-") \
    ROW(kResolveEnclosure, "/api/resolve/%s/enclosure/%s/%s") \
    ROW(kResolveProperties, "/api/resolve/%s/properties/-/%s") \
    ROW(kResolve_SessionIdSession, "/api/resolve/{sessionId}/session/-/-") \
    ROW(kRopeFileClose_ProductionId, "/api/ropeFile/close/{productionId}") \
    ROW(kRopeFileCopyTo_ProductionId_CommitId, "/api/ropeFile/copyTo/{productionId}/{commitId}") \
    ROW(kRopeFileOpen, "/api/ropeFile/open") \
    ROW(kRopeFileSetSyncMode_ProductionId, "/api/ropeFile/setSyncMode/{productionId}") \
    ROW(kSessionStatus, "/api/session/status/%s") \
    ROW(kSessions, "/api/sessions/%s") \
    ROW(kSessions_ProductionId, "/api/sessions/{productionId}") \
    ROW(kShareIncoming, "/api/share/%s/incoming") \
    ROW(kShareOutgoing, "/api/share/%s/outgoing") \
    ROW(kSharePull, "/api/share/%s/pull") \
    ROW(kSharePush, "/api/share/%s/push") \
    ROW(kSnapshotApply, "/api/snapshot/apply/%s") \
    ROW(kSnapshotApply_SessionId, "/api/snapshot/apply/{sessionId}") \
    ROW(kSnapshotClose, "/api/snapshot/close/%s") \
    ROW(kSnapshotClose_ProductionId, "/api/snapshot/close/{productionId}") \
    ROW(kSnapshotOpen, "/api/snapshot/open") \
    ROW(kSnapshotTake, "/api/snapshot/take/%s/%s") \
    ROW(kSnapshotTake_ProductionId_CommitId, "/api/snapshot/take/{productionId}/{commitId}") \
    ROW(kSyncControlClientAppState, "/api/sync/control/clientAppState") \
    ROW(kSyncControlPolling_SessionId, "/api/sync/control/polling/{sessionId}") \
    ROW(kSyncControlSync, "/api/sync/control/sync") \
    ROW(kSyncStatusAll, "/api/sync/status/all") \
    ROW(kSyncStatusServer_ServerAndPort, "/api/sync/status/server/{serverAndPort}") \
    ROW(kSyncStatusSession, "/api/sync/status/session/%s") \
    ROW(kSyncStatusSession_SessionId, "/api/sync/status/session/{sessionId}") \
    ROW(kTemplateCollaborators, "/api/template/collaborators/%s") \
    ROW(kTemplateCreateSession, "/api/template/createSession/%s") \
    ROW(kTemplateCreateTemplate, "/api/template/createTemplate/%s") \
    ROW(kTemplateList, "/api/template/list") \
    ROW(kTemplateRecipients, "/api/template/recipients/%s") \
    ROW(kTemplateTemplate, "/api/template/template/%s") \
    ROW(kTransaction, "/api/transaction/%s") \
    ROW(kTransactionBulkCreate, "/api/transaction/%s/bulkCreate") \
    ROW(kTransactionBulkDelete, "/api/transaction/%s/bulkDelete") \
    ROW(kTransactionBulkEdit, "/api/transaction/%s/bulkEdit") \
    ROW(kTransactionBulkPreflight, "/api/transaction/%s/bulkPreflight") \
    ROW(kTransactionCommit, "/api/transaction/%s/commit") \
    ROW(kTransactionEnclosures, "/api/transaction/%s/enclosures") \
    ROW(kTransactionRollback, "/api/transaction/%s/rollback") \
    ROW(kTransactions, "/api/transactions/%s/%s") \
    ROW(kUserEnclosures, "/api/user/%s/enclosures/%s") \
    ROW(kUserEnclosure, "/api/user/%s/enclosures/%s/%s") \
    ROW(kUserCurrentUser, "/api/user/-/currentUser") \
    ROW(kDiscovery, "/api/v1/discovery")
// clang-format on

namespace VYCL::URLTemplate {

#define VYCL_ROW(name, text) inline constexpr std::string_view name = text;
VYCL_URL_TEMPLATES(VYCL_ROW)
#undef VYCL_ROW

/// All templates, in the order of the table.
#define VYCL_ROW(name, text) name,
inline constexpr auto kAll = std::to_array<std::string_view>({VYCL_URL_TEMPLATES(VYCL_ROW)});
#undef VYCL_ROW

/// kJobsListOfRevision with the word for any session in its place, which is no element that could be encoded.
inline constexpr std::string_view kJobsListOfRevisionInAnySession = "/api/jobs/list/*/%s";

}  // namespace VYCL::URLTemplate

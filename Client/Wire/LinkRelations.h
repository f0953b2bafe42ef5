#pragma once

#include <array>
#include <string_view>

#include "Client/Wire/Constant.h"

// The words of a link's `rel`: what a client follows. Each row is a constant of VYCL::LinkRelation and its text.

/// Stands before the path of every relation that is a URI.
#define VYCL_LINK_RELATION_PREFIX "https://ns.corvane.example/rel"

// clang-format off
#define VYCL_URI_LINK_RELATIONS(ROW) \
    ROW(Archives, "/archives") \
    ROW(ArchivesArchive_Restore, "/archives/archive#restore") \
    ROW(Assets, "/assets") \
    ROW(Assets_Full, "/assets#full") \
    ROW(Assets_FullCondensed, "/assets#full-condensed") \
    ROW(Assets_Restore, "/assets#restore") \
    ROW(AssetsAsset_ByAssetId, "/assets/asset#byAssetId") \
    ROW(AssetsAsset_ById, "/assets/asset#byId") \
    ROW(AssetsAsset_Create, "/assets/asset#create") \
    ROW(AssetsAssetEnclosure_ByContentId, "/assets/asset/enclosure#byContentId") \
    ROW(AssetsAssetEnclosure_ById, "/assets/asset/enclosure#byId") \
    ROW(Bulk_Create, "/bulk#create") \
    ROW(Bulk_Delete, "/bulk#delete") \
    ROW(Bulk_Edit, "/bulk#edit") \
    ROW(Bulk_Get, "/bulk#get") \
    ROW(Bulk_Preflight, "/bulk#preflight") \
    ROW(Bulk_Resolve, "/bulk#resolve") \
    ROW(Collaborators, "/collaborators") \
    ROW(Collaborators_ByNimboStorageUrl, "/collaborators#byNimboStorageUrl") \
    ROW(Collaborators_ByProductionId, "/collaborators#byProductionId") \
    ROW(CollaboratorsActivity, "/collaborators/activity") \
    ROW(CollaboratorsCollaborator_Image, "/collaborators/collaborator#image") \
    ROW(CollaboratorsPresence, "/collaborators/presence") \
    ROW(DiscoveryV1, "/discovery/v1") \
    ROW(Enclosures, "/enclosures") \
    ROW(Enclosures_ByAssetId, "/enclosures#byAssetId") \
    ROW(EnclosuresEnclosure, "/enclosures/enclosure") \
    ROW(EnclosuresEnclosure_ByContentId, "/enclosures/enclosure#byContentId") \
    ROW(EnclosuresEnclosure_Create, "/enclosures/enclosure#create") \
    ROW(EnclosuresEnclosure_Temporary, "/enclosures/enclosure#temporary") \
    ROW(EnclosuresEnclosureUser, "/enclosures/enclosure/user") \
    ROW(Groups, "/groups") \
    ROW(Invites, "/invites") \
    ROW(InvitesInvite_Accept, "/invites/invite#accept") \
    ROW(InvitesInvite_Reject, "/invites/invite#reject") \
    ROW(Jobs, "/jobs") \
    ROW(JobsTypes, "/jobs/types") \
    ROW(LocalHubAssets_RestoreFromProduction, "/localhub/assets#restoreFromProduction") \
    ROW(LocalHubErrors_All, "/localhub/errors#all") \
    ROW(LocalHubLocalProject_Compact, "/localhub/localProject#compact") \
    ROW(LocalHubLocalProject_CopyTo, "/localhub/localProject#copyTo") \
    ROW(LocalHubLocalProject_Create, "/localhub/localProject#create") \
    ROW(LocalHubLocalProject_Delete, "/localhub/localProject#delete") \
    ROW(LocalHubLocalProject_Sizeof, "/localhub/localProject#sizeof") \
    ROW(LocalHubPosterFrame, "/localhub/posterFrame") \
    ROW(LocalHubPreferences_Read, "/localhub/preferences#read") \
    ROW(LocalHubPreferences_Save, "/localhub/preferences#save") \
    ROW(LocalHubRemoteProductionLatestVersion, "/localhub/remote-production-latest-version") \
    ROW(LocalHubRemoteLogin, "/localhub/remoteLogin") \
    ROW(LocalHubRemoteLogout, "/localhub/remoteLogout") \
    ROW(LocalHubResolve_Session, "/localhub/resolve#session") \
    ROW(LocalHubRopeFile_Close, "/localhub/ropeFile#close") \
    ROW(LocalHubRopeFile_CopyTo, "/localhub/ropeFile#copyTo") \
    ROW(LocalHubRopeFile_Open, "/localhub/ropeFile#open") \
    ROW(LocalHubRopeFile_SetSyncMode, "/localhub/ropeFile#setSyncMode") \
    ROW(LocalHubSessionTemplateRecipients, "/localhub/sessionTemplateRecipients") \
    ROW(LocalHubSnapshot_Apply, "/localhub/snapshot#apply") \
    ROW(LocalHubSnapshot_Close, "/localhub/snapshot#close") \
    ROW(LocalHubSnapshot_Open, "/localhub/snapshot#open") \
    ROW(LocalHubSnapshot_Take, "/localhub/snapshot#take") \
    ROW(LocalHubSyncControl_ClientAppState, "/localhub/syncControl#clientAppState") \
    ROW(LocalHubSyncControl_PollingBySessionId, "/localhub/syncControl#pollingBySessionId") \
    ROW(LocalHubSyncControl_Sync, "/localhub/syncControl#sync") \
    ROW(LocalHubSyncJobs, "/localhub/syncJobs") \
    ROW(LocalHubSyncJobs_Create, "/localhub/syncJobs#create") \
    ROW(LocalHubSyncStatus_All, "/localhub/syncStatus#all") \
    ROW(LocalHubSyncStatus_ByServer, "/localhub/syncStatus#byServer") \
    ROW(LocalHubSyncStatus_BySessionId, "/localhub/syncStatus#bySessionId") \
    ROW(MediaLocator_ByMediaLocatorId, "/medialocator#byMediaLocatorId") \
    ROW(MediaLocators, "/medialocators") \
    ROW(MediaLocators_BulkCreate, "/medialocators#bulk-create") \
    ROW(MediaLocators_BulkCreateByLastModified, "/medialocators#bulk-create-byLastModified") \
    ROW(MediaLocators_BulkDelete, "/medialocators#bulk-delete") \
    ROW(MediaLocators_BulkUpdate, "/medialocators#bulk-update") \
    ROW(Productions, "/productions") \
    ROW(Productions_ByOrg, "/productions#byOrg") \
    ROW(ProductionsProduction, "/productions/production") \
    ROW(ProductionsProduction_Archive, "/productions/production#archive") \
    ROW(ProductionsProduction_Batons, "/productions/production#batons") \
    ROW(ProductionsProduction_ByPlexaUrn, "/productions/production#byPlexaUrn") \
    ROW(ProductionsProduction_ByIdAndCommitId, "/productions/production#byIdAndCommitId") \
    ROW(ProductionsProduction_Copy, "/productions/production#copy") \
    ROW(ProductionsProduction_CreateProduction, "/productions/production#create-production") \
    ROW(ProductionsProduction_CreateTemplate, "/productions/production#create-template") \
    ROW(ProductionsProduction_Plexa, "/productions/production#plexa") \
    ROW(ProductionsProduction_DifferenceByCommit, "/productions/production#differenceByCommit") \
    ROW(ProductionsProduction_History, "/productions/production#history") \
    ROW(ProductionsProduction_Migrate, "/productions/production#migrate") \
    ROW(ProductionsProduction_Owner, "/productions/production#owner") \
    ROW(ProductionsTemplates, "/productions/templates") \
    ROW(Sessions, "/sessions") \
    ROW(Sessions_ByProductionId, "/sessions#byProductionId") \
    ROW(SessionsSession_Copy, "/sessions/session#copy") \
    ROW(SessionsSession_CreateTemplateProduction, "/sessions/session#create-template-production") \
    ROW(SessionsSession_IncomingChanges, "/sessions/session#incomingChanges") \
    ROW(SessionsSession_OutgoingChanges, "/sessions/session#outgoingChanges") \
    ROW(SessionsSession_Pull, "/sessions/session#pull") \
    ROW(SessionsSession_Push, "/sessions/session#push") \
    ROW(SessionsSession_Rollback, "/sessions/session#rollback") \
    ROW(SessionsSession_Status, "/sessions/session#status") \
    ROW(SystemLogin, "/system/login") \
    ROW(SystemLogout, "/system/logout") \
    ROW(Transactions, "/transactions") \
    ROW(TransactionsTransaction_Commit, "/transactions/transaction#commit") \
    ROW(TransactionsTransaction_Rollback, "/transactions/transaction#rollback") \
    ROW(Users, "/users") \
    ROW(UsersUser_ByUserId, "/users/user#byUserId") \
    ROW(UsersUser_Current, "/users/user#current")

#define VYCL_PLAIN_LINK_RELATIONS(ROW) \
    ROW(Self, "self") \
    ROW(Related, "related") \
    ROW(First, "first") \
    ROW(Next, "next") \
    ROW(Create, "create") \
    ROW(Delete, "delete") \
    ROW(Edit, "edit") \
    ROW(Patch, "patch") \
    ROW(LatestVersion, "latest-version") \
    ROW(Locator, "locator")
// clang-format on

namespace VYCL::LinkRelation {

#define VYCL_ROW(name, text) VYCL_CONSTANT(name, VYCL_LINK_RELATION_PREFIX text)
VYCL_URI_LINK_RELATIONS(VYCL_ROW)
#undef VYCL_ROW
VYCL_PLAIN_LINK_RELATIONS(VYCL_CONSTANT)

/// All relations that are URIs, in the order of the table.
#define VYCL_ROW(name, text) std::string_view(VYCL_LINK_RELATION_PREFIX text),
inline constexpr auto kAllURIs = std::to_array({VYCL_URI_LINK_RELATIONS(VYCL_ROW)});
#undef VYCL_ROW

}  // namespace VYCL::LinkRelation

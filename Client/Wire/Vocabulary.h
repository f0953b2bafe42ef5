#pragma once

#include "Client/Wire/Constant.h"

// Every word whose text is ours to choose, shared by the hub and its clients. The text is the last word of the
// constant's name: as it stands, and in lower camel case for form keys and form values. The few that follow another
// rule stand under a comment.

// clang-format off
#define VYCL_LOCALHUB_WORDS(ROW) \
    ROW(SyncState_Unknown, "Unknown") \
    ROW(SyncState_Uninitialized, "Uninitialized") \
    ROW(SyncState_NotAssociated, "NotAssociated") \
    ROW(SyncState_NotAuthorized, "NotAuthorized") \
    ROW(SyncState_Disconnected, "Disconnected") \
    ROW(SyncState_LocalOnly, "LocalOnly") \
    ROW(SyncState_LocalSessionConflict, "LocalSessionConflict") \
    ROW(SyncState_RevokedOrDeleted, "RevokedOrDeleted") \
    ROW(SyncState_Syncing, "Syncing") \
    ROW(SyncState_InSync, "InSync") \
    ROW(SyncState_OutOfSync, "OutOfSync") \
    ROW(SyncDirection_Pull, "Pull") \
    ROW(SyncDirection_Push, "Push") \
    ROW(SyncMode_LocalOnly, "LocalOnly") \
    ROW(SyncMode_Synchronized, "Synchronized") \
    ROW(Revision_HEAD, "HEAD") \
    ROW(Revision_LatestSyncPoint, "LatestSyncPoint") \
    ROW(HeaderKey_APIKey, "APIKey") \
    ROW(HeaderKey_FloodProtection, "FloodProtection") \
    ROW(HeaderKey_InviteAcceptedProductionID, "InviteAcceptedProductionID") \
    ROW(RemoteLoginForbiddenErrorCode_Generic, "Generic") \
    ROW(LocalHubPreferenceName_AutosaveLocation, "AutosaveLocation") \
    ROW(LocalHubPreferenceName_SetAutosaveToRope, "SetAutosaveToRope")

#define VYCL_LOCALHUB_FORM_WORDS(ROW) \
    ROW(FormKey_RemoteLogin_ServerURL, "serverURL") \
    ROW(FormKey_RemoteLogin_ServerType, "serverType") \
    ROW(FormKey_RemoteLogin_Credentials, "credentials") \
    ROW(FormKey_RemoteLogin_MachineID, "machineID") \
    ROW(FormKey_RemoteLogin_StageEnvironment, "stageEnvironment") \
    ROW(FormKey_ResolveSession_Action, "action") \
    ROW(FormValue_ResolveSessionAction_DiscardLocalChanges, "discardLocalChanges") \
    ROW(FormKey_RopeFile_Path, "path") \
    ROW(FormKey_RopeFile_CreateMode, "createMode") \
    ROW(FormKey_RopeFile_SyncMode, "syncMode") \
    ROW(FormKey_RopeFile_Properties, "properties") \
    ROW(FormValue_RopeFile_NeverCreate, "neverCreate") \
    ROW(FormValue_RopeFile_CreateNewOnly, "createNewOnly") \
    ROW(FormValue_RopeFile_CreateOverwrite, "createOverwrite") \
    ROW(FormKey_Snapshot_Properties, "properties") \
    ROW(FormKey_Snapshot_RootAssetID, "rootAssetID") \
    ROW(FormKey_Snapshot_ZipFile, "zipFile") \
    ROW(FormKey_Snapshot_KeepSessionProperties, "keepSessionProperties") \
    ROW(FormKey_Snapshot_DeleteAssetsNotInSnapshot, "deleteAssetsNotInSnapshot") \
    ROW(FormKey_Snapshot_CreateSession, "createSession") \
    ROW(FormKey_Enabled, "enabled") \
    ROW(FormKey_EnabledForIdleSessions, "enabledForIdleSessions") \
    ROW(FormKey_ResumeSuspend, "resumeSuspend") \
    ROW(FormKey_EnableBatons, "enableBatons") \
    ROW(FormKey_Preferences_AutosaveLocation, "autosaveLocation") \
    ROW(FormKey_Preferences_SetAutosaveToRope, "setAutosaveToRope") \
    ROW(FormValue_True, "true") \
    ROW(FormValue_False, "false")

#define VYCL_WORDS(ROW) \
    ROW(GetAuthTokenType_Bearer, "Bearer") \
    ROW(GetAuthTokenType_None, "None") \
    ROW(GetJobType_LocalHubSync, "LocalHubSync") \
    ROW(GetJobState_Waiting, "Waiting") \
    ROW(GetJobState_Running, "Running") \
    ROW(GetJobState_Successful, "Successful") \
    ROW(GetJobState_Failed, "Failed") \
    ROW(GetJobState_Cancelled, "Cancelled") \
    ROW(GetJobState_Cancel, "Cancel") \
    ROW(GetTransactionType_Edit, "Edit") \
    ROW(GetTransactionType_LocalHubInternalSync, "LocalHubInternalSync") \
    ROW(GetDifferenceType_Added, "Added") \
    ROW(GetDifferenceType_Updated, "Updated") \
    ROW(GetDifferenceType_Removed, "Removed") \
    ROW(GetProductionType_Sprint, "Sprint") \
    ROW(GetPresenceState_Present, "Present") \
    ROW(GetActivityType_FutureConflict, "FutureConflict") \
    ROW(GetActivityType_CurrentConflict, "CurrentConflict") \
    ROW(GetNumberedStillSequenceType_Numeric, "Numeric") \
    ROW(GetInvitationsService_ResourceTypeProduction, "ResourceTypeProduction")

// Words of data that clients write, and keys of the job record: not by the rule above.
#define VYCL_FIXED_WORDS(ROW) \
    ROW(GetAssetType_Bin, "bin") \
    ROW(GetAssetType_Clip, "clip") \
    ROW(GetAssetType_Sequence, "sequence") \
    ROW(GetJobProperty_Name, "jcr:name") \
    ROW(GetJobProperty_Parameters, "vy:parameters") \
    ROW(GetJobProperty_State, "vy:jobState")
// clang-format on

namespace VYCL {

VYCL_WORDS(VYCL_CONSTANT)
VYCL_FIXED_WORDS(VYCL_CONSTANT)

namespace LocalHub {

VYCL_LOCALHUB_WORDS(VYCL_CONSTANT)
VYCL_LOCALHUB_FORM_WORDS(VYCL_CONSTANT)

}  // namespace LocalHub

}  // namespace VYCL

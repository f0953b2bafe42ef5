#pragma once

#include <string_view>

#include "Client/Wire/Asset.h"
#include "Client/Wire/AssetLists.h"
#include "Client/Wire/AssetProperties.h"
#include "Client/Wire/Collaborators.h"
#include "Client/Wire/CommitMetadata.h"
#include "Client/Wire/Differences.h"
#include "Client/Wire/Discovery.h"
#include "Client/Wire/Errors.h"
#include "Client/Wire/History.h"
#include "Client/Wire/Job.h"
#include "Client/Wire/Link.h"
#include "Client/Wire/MediaLocator.h"
#include "Client/Wire/MediaSource.h"
#include "Client/Wire/PosterFrame.h"
#include "Client/Wire/Preferences.h"
#include "Client/Wire/Production.h"
#include "Client/Wire/SessionResource.h"
#include "Client/Wire/SizeInfo.h"
#include "Client/Wire/Status.h"
#include "Client/Wire/Templates.h"
#include "Client/Wire/Transaction.h"
#include "Client/Wire/User.h"

/// Every wire record: for what holds for all of them, and to name a record by its type.
// clang-format off
#define HUB_WIRE_RECORDS(ROW) \
    ROW(Rendition) \
    ROW(Enclosure) \
    ROW(UserEnclosure) \
    ROW(Asset) \
    ROW(CondensedAsset) \
    ROW(AssetsResource) \
    ROW(CondensedAssetsResource) \
    ROW(EnclosuresResource) \
    ROW(UserEnclosuresResource) \
    ROW(AssetProperties) \
    ROW(Collaborator) \
    ROW(Invitation) \
    ROW(InvitationAnswer) \
    ROW(CollaboratorsResource) \
    ROW(Invite) \
    ROW(InvitesResource) \
    ROW(ModifyCollaborator) \
    ROW(ActivityEntry) \
    ROW(ActivityResource) \
    ROW(PresenceResource) \
    ROW(Baton) \
    ROW(BatonsResource) \
    ROW(CommitOrigin) \
    ROW(CommitMetadata) \
    ROW(ConflictMarker) \
    ROW(AssetDifference) \
    ROW(EnclosureDifference) \
    ROW(PropertiesDifference) \
    ROW(DifferenceLists) \
    ROW(DifferencesResource) \
    ROW(ShareResult) \
    ROW(ServerDescription) \
    ROW(Limit) \
    ROW(DiscoveryResource) \
    ROW(ErrorRecord) \
    ROW(ServerErrors) \
    ROW(SessionErrors) \
    ROW(ErrorsResource) \
    ROW(HistoryInfo) \
    ROW(HistoryVersion) \
    ROW(HistoryResource) \
    ROW(SyncJobParameters) \
    ROW(Job) \
    ROW(JobList) \
    ROW(JobType) \
    ROW(JobTypes) \
    ROW(Link) \
    ROW(Stats) \
    ROW(MediaLocatorStillSequenceParams) \
    ROW(VYMediaFileProperties) \
    ROW(VYMediaVolumeProperties) \
    ROW(VYLinkedProductionProperties) \
    ROW(VYProxyInfo) \
    ROW(CMSLink) \
    ROW(CloudStorageEntity) \
    ROW(CloudProjectSettings) \
    ROW(FileTypeList) \
    ROW(MediaLocatorProperties) \
    ROW(MediaLocator) \
    ROW(MediaLocatorsResource) \
    ROW(StreamGroup) \
    ROW(VideoFrameRect) \
    ROW(PixelAspectRatio) \
    ROW(AlphaMatteColor) \
    ROW(VYMediaVideoStreamInfo) \
    ROW(AudioChannel) \
    ROW(VYMediaAudioStreamInfo) \
    ROW(VYMediaSourceDescription) \
    ROW(PosterFrame) \
    ROW(Preference) \
    ROW(PreferencesResource) \
    ROW(ProductionDescriptor) \
    ROW(ProductionResource) \
    ROW(ProductionsResource) \
    ROW(ProductionPropertiesResource) \
    ROW(SessionResource) \
    ROW(SessionDescriptor) \
    ROW(SessionsResource) \
    ROW(SizeInfo) \
    ROW(SyncStatusResource) \
    ROW(SyncStatusList) \
    ROW(SessionSyncStatus) \
    ROW(EtagStatus) \
    ROW(SessionEtagStatus) \
    ROW(MediaLocatorsStatus) \
    ROW(SessionStatus) \
    ROW(TemplateCollaborators) \
    ROW(TemplateRecipients) \
    ROW(TransactionMetadata) \
    ROW(TransactionResource) \
    ROW(TransactionCreate) \
    ROW(TransactionsResource) \
    ROW(CommittedRendition) \
    ROW(CommittedAsset) \
    ROW(CommittedEnclosure) \
    ROW(TransactionResult) \
    ROW(UploadTicket) \
    ROW(UploadTickets) \
    ROW(CurrentUserProperties) \
    ROW(CurrentUser) \
    ROW(RemoteLoginStatus) \
    ROW(RemoteLoginStatusList) \
    ROW(LoginCredentials) \
    ROW(LoginError)
// clang-format on

namespace VantryLocalHub::dto {

/// Name of a record. A record that is not in the list has none, and what names it does not compile.
template <WireRecord Record>
struct RecordName;

#define HUB_ROW(Record)                                    \
    template <>                                            \
    struct RecordName<Record>                              \
    {                                                      \
        static constexpr std::string_view kText = #Record; \
    };
HUB_WIRE_RECORDS(HUB_ROW)
#undef HUB_ROW

}  // namespace VantryLocalHub::dto

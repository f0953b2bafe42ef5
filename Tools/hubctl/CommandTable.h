#pragma once

#include <array>
#include <string_view>

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/URLTemplates.h"

/// How the operations of the API are called on the command line. What each takes and answers is in their description;
/// here stand only the words.
namespace hubctl {

/// What stands for the revision in the path.
enum class RevisionFrom : std::uint8_t
{
    Option,   ///< --revision, the newest without it
    Operand,  ///< an operand like the others: there is no revision that goes without saying
    Nothing   ///< it does not matter
};

/// One operation under the words of its command. Rows with the same words are one command: the number of operands
/// chooses among them.
struct CommandRow
{
    std::string_view mWords;   ///< a noun, or a noun and a verb
    std::string_view mMethod;  ///< with the template, what no other operation has
    std::string_view mTemplate;
    RevisionFrom mRevision = RevisionFrom::Option;
    std::string_view mHelp = {};  ///< where the description's sentence leans on its neighbours
};

namespace Template = VYCL::URLTemplate;

// clang-format off
inline constexpr auto kCommandRows = std::to_array<CommandRow>({
    {"discovery", "GET", Template::kDiscovery},
    {"productions", "GET", Template::kProductions},
    {"production create", "POST", Template::kProductions},
    {"production get", "GET", Template::kProduction},
    {"production exists", "HEAD", Template::kProduction, RevisionFrom::Option,
     "Tells whether there is such a production, by the exit status."},
    {"production delete", "DELETE", Template::kProduction, RevisionFrom::Nothing},
    {"production copy", "POST", Template::kProductionCopy},
    {"production archive", "POST", Template::kProductionArchive},
    {"production migrate", "POST", Template::kProductionMigrate},
    {"production rollback", "POST", Template::kProductionRollback_CommitId, RevisionFrom::Operand},
    {"production compact", "POST", Template::kProductionCompact},
    {"production enclosures", "GET", Template::kProductionEnclosures},
    {"production enclosure", "GET", Template::kProductionEnclosure},
    {"production content", "GET", Template::kProductionEnclosureByContentId_ContentId},
    {"production properties", "GET", Template::kProductionProperties},
    {"production size", "GET", Template::kProductionSizeof, RevisionFrom::Option,
     "What the session takes up."},
    {"production set-properties", "PUT", Template::kProductionProperties},
    {"production clear-properties", "DELETE", Template::kProductionProperties},
    {"sessions", "GET", Template::kSessions},
    {"session create", "POST", Template::kSessions},
    {"session-status", "GET", Template::kSessionStatus},
    {"assets", "GET", Template::kAssets},
    {"asset get", "GET", Template::kAsset},
    {"asset enclosures", "GET", Template::kAssetEnclosures},
    {"asset enclosure", "GET", Template::kAssetEnclosureById},
    {"asset content", "GET", Template::kAssetEnclosureByContentId_ContentId},
    {"asset restore", "POST", Template::kAssetHEAD_AssetIdRestore_AssetContentId},
    {"asset restore-from-production", "POST", Template::kAssetHEAD_AssetIdRestoreFromProduction},
    {"transactions", "GET", Template::kTransactions, RevisionFrom::Nothing},
    {"transaction open", "POST", Template::kTransactions},
    {"transaction get", "GET", Template::kTransaction},
    {"transaction create", "POST", Template::kTransactionBulkCreate},
    {"transaction edit", "POST", Template::kTransactionBulkEdit},
    {"transaction delete", "POST", Template::kTransactionBulkDelete},
    {"transaction preflight", "POST", Template::kTransactionBulkPreflight},
    {"transaction commit", "POST", Template::kTransactionCommit},
    {"transaction rollback", "POST", Template::kTransactionRollback},
    {"locators list", "GET", Template::kMediaLocatorsAll},
    {"locators get", "GET", Template::kMediaLocatorsByMediaLocatorId_MediaLocatorId},
    {"locators add", "POST", Template::kMediaLocatorsAll, RevisionFrom::Option,
     "Adds a media locator; one that is there already is replaced."},
    {"locators set", "PUT", Template::kMediaLocatorsByMediaLocatorId_MediaLocatorId, RevisionFrom::Option,
     "Changes a media locator; properties replace the whole object."},
    {"locators add-many", "POST", Template::kMediaLocatorsBulkCreate, RevisionFrom::Option,
     "Adds many media locators, all or none; the ids are the client's."},
    {"locators add-newer", "POST", Template::kMediaLocatorsBulkCreateByLastModified_LastModified, RevisionFrom::Option,
     "Adds those of many media locators that are newer than a time."},
    {"locators set-many", "PUT", Template::kMediaLocatorsBulkUpdate, RevisionFrom::Option,
     "Changes many media locators."},
    {"poster get", "GET", Template::kPoster},
    {"poster image", "GET", Template::kPosterRendition, RevisionFrom::Option,
     "The image that stands for a production in a list."},
    {"history", "GET", Template::kHistory, RevisionFrom::Option,
     "The versions of a session, the newest first."},
    {"differences", "GET", Template::kDifferences_ProductionId_BaseCommitId_CommitId, RevisionFrom::Operand},
    {"resolve asset", "POST", Template::kResolveAsset, RevisionFrom::Operand},
    {"resolve enclosure", "POST", Template::kResolveEnclosure, RevisionFrom::Operand},
    {"resolve properties", "POST", Template::kResolveProperties, RevisionFrom::Operand},
    {"resolve session", "POST", Template::kResolve_SessionIdSession},
    {"resolve many", "POST", Template::kResolveBulk},
    {"share incoming", "GET", Template::kShareIncoming},
    {"share outgoing", "GET", Template::kShareOutgoing},
    {"share pull", "POST", Template::kSharePull},
    {"share push", "POST", Template::kSharePush},
    {"jobs list", "GET", Template::kJobsList},
    {"jobs list", "GET", Template::kJobsListOfSession},
    {"jobs list", "GET", Template::kJobsListOfRevision, RevisionFrom::Operand},
    {"jobs get", "GET", Template::kJobsDetail},
    {"jobs set", "PUT", Template::kJobsDetail},
    {"jobs start", "POST", Template::kJobsControl},
    {"jobs types", "GET", Template::kJobsTypes},
    {"jobs types", "GET", Template::kJobsType},
    {"sync-status", "GET", Template::kSyncStatusAll},
    {"sync-status server", "GET", Template::kSyncStatusServer_ServerAndPort, RevisionFrom::Option,
     "The sync states of the sessions of one server."},
    {"sync-status session", "GET", Template::kSyncStatusSession_SessionId},
    {"sync-control sync", "POST", Template::kSyncControlSync},
    {"sync-control polling", "POST", Template::kSyncControlPolling_SessionId, RevisionFrom::Option,
     "Switches the exchange of one session on or off."},
    {"sync-control client-app-state", "POST", Template::kSyncControlClientAppState},
    {"errors", "GET", Template::kErrorsAll},
    {"rope-file open", "POST", Template::kRopeFileOpen},
    {"rope-file close", "POST", Template::kRopeFileClose_ProductionId},
    {"rope-file copy-to", "POST", Template::kRopeFileCopyTo_ProductionId_CommitId},
    {"rope-file set-sync-mode", "POST", Template::kRopeFileSetSyncMode_ProductionId},
    {"snapshot open", "POST", Template::kSnapshotOpen},
    {"snapshot take", "POST", Template::kSnapshotTake_ProductionId_CommitId},
    {"snapshot close", "POST", Template::kSnapshotClose_ProductionId},
    {"snapshot apply", "POST", Template::kSnapshotApply_SessionId},
    {"template list", "GET", Template::kTemplateList},
    {"template get", "GET", Template::kTemplateTemplate},
    {"template collaborators", "GET", Template::kTemplateCollaborators},
    {"template recipients", "GET", Template::kTemplateRecipients},
    {"template create", "POST", Template::kTemplateCreateTemplate},
    {"template create-session", "POST", Template::kTemplateCreateSession},
    {"preferences read", "GET", Template::kPreferencesRead},
    {"preferences save", "POST", Template::kPreferencesSave, RevisionFrom::Option,
     "Changes the preferences that are named."},
    {"remote-login", "GET", Template::kRemoteLogin},
    {"remote-login in", "POST", Template::kRemoteLogin, RevisionFrom::Option,
     "Connects to a server."},
    {"remote-login out", "POST", Template::kRemoteLogout},
    {"user", "GET", Template::kUserCurrentUser},
    {"user enclosures", "GET", Template::kUserEnclosures},
    {"user enclosure", "GET", Template::kUserEnclosure, RevisionFrom::Option,
     "The payload of an enclosure that a user keeps with a session."},
    {"user add-enclosure", "POST", Template::kUserEnclosures, RevisionFrom::Option,
     "Adds an enclosure that a user keeps with a session."},
    {"user set-enclosure", "PUT", Template::kUserEnclosure, RevisionFrom::Option,
     "Changes such an enclosure; what is not named stays."},
    {"collaborators list", "GET", Template::kCollaborators_ProductionId},
    {"collaborators invite", "POST", Template::kCollaborators_ProductionId},
    {"activity", "GET", Template::kActivity},
    {"presence", "GET", Template::kPresence},
    {"invites list", "GET", Template::kInvites_Type},
    {"invites accept", "POST", Template::kInvites},
    {"invites reject", "DELETE", Template::kInvites},
    {"invites modify", "PATCH", Template::kInvites},
    {"batons list", "GET", Template::kBatons},
    {"batons change", "POST", Template::kBatons},
    {"archive list", "GET", Template::kArchives},
    {"archive restore", "POST", Template::kArchiveRestore},
    {"archive delete", "DELETE", Template::kArchiveDelete},
    {"properties", "GET", Template::kProductionProperties},
    {"restore", "POST", Template::kAssetHEAD_AssetIdRestore_AssetContentId},
    {"rollback", "POST", Template::kProductionRollback_CommitId, RevisionFrom::Operand},
});
// clang-format on

/// Commands that another one says too, for the hands.
inline constexpr auto kShortForms = std::to_array<std::string_view>({"properties", "restore", "rollback"});

/// An operation that has no command.
struct Exception
{
    std::string_view mMethod;
    std::string_view mTemplate;
    std::string_view mWhy;
};

inline constexpr auto kExceptions = std::to_array<Exception>({
    {"POST", Template::kProductionProperties, "the same as PUT, which has a command"},
    {"PUT", Template::kTransactionBulkEdit, "the same as POST, which has a command"},
    {"PUT", Template::kAssetProperties, "always refused"},
    {"POST", Template::kMediaLocatorsBulkDelete, "always refused"},
    {"POST", Template::kPoster, "always refused"},
});

/// A noun with verbs, for --help.
struct Noun
{
    std::string_view mName;
    std::string_view mHelp;
};

inline constexpr auto kNouns = std::to_array<Noun>({
    {"archive", "Productions in the server's archive"},
    {"asset", "One asset: read it, restore it"},
    {"batons", "Who may write which asset"},
    {"collaborators", "Who works on a production"},
    {"invites", "Invitations that were received"},
    {"jobs", "Sync jobs"},
    {"locators", "Where the media of a session lie"},
    {"poster", "The image that stands for a production"},
    {"preferences", "What the hub keeps for the user"},
    {"production", "One production: create, read, change, delete it"},
    {"resolve", "End conflicts"},
    {"rope-file", "Single-file projects"},
    {"session", "Further local sessions"},
    {"share", "Exchange changes with the other collaborators"},
    {"snapshot", "Snapshots in a file"},
    {"sync-control", "Switch the exchange with servers"},
    {"template", "Templates of productions"},
    {"transaction", "Change assets: open a transaction, fill it, commit it"},
});

/// A name on the command line that is not made of the wire's by rule.
struct NameOnCommandLine
{
    std::string_view mKey;
    std::string_view mName;
};

inline constexpr auto kOperandNames = std::to_array<NameOnCommandLine>({
    {"assetContentId", "CONTENT"},
    {"baseCommitId", "FROM"},
    {"commitId", "REVISION"},
    {"jobType", "TYPE"},
    {"lastModified", "TIME"},
    {"mediaLocatorId", "LOCATOR"},
    {"serverAndPort", "SERVER"},
});

/// Commands whose properties have to name the revision of the path once more.
inline constexpr auto kNamingTheRevision = std::to_array<std::string_view>({"rope-file copy-to", "snapshot take"});

/// Keys of forms that hold the path of a file or folder: the hub runs in a folder of its own, so it gets absolute ones.
inline constexpr auto kPathKeys = std::to_array<std::string_view>({"autosaveLocation", "path", "zipFile"});

inline constexpr auto kOptionNames = std::to_array<NameOnCommandLine>({
    {VYCL::QueryKeys::kParentID, "--bin"},
    {VYCL::QueryKeys::kStartIndex, "--start"},
    {VYCL::QueryKeys::kView, "--condensed"},
});

/// A key of a record that has an option of its own; a record with one can be left out. All others take --body alone.
struct RecordOption
{
    std::string_view mRecord;
    std::string_view mKey;
    std::string_view mMeaning;
};

inline constexpr auto kRecordOptions = std::to_array<RecordOption>({
    {"TransactionCreate", VYCL::FormKeys::kRequireHead,
     "the session must be at the revision, now and when the transaction is committed"},
    {"ProductionResource", "vy:commitId", "the revision that is meant; by default that of the command"},
    {"ProductionResource", "properties", "properties of what is made"},
    {"SessionResource", "properties", "properties of the session"},
    {"ModifyCollaborator", "action", "what is to happen"},
    {"ModifyCollaborator", "modifyMode", "what the collaborator may do"},
    {"Job", "jcr:name", "name of the job"},
    {"Job", "vy:parameters", "which way, and what"},
});

}  // namespace hubctl

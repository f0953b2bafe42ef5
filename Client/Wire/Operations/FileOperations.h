#pragma once

#include "Client/Wire/Operations/Operation.h"
#include "Client/Wire/Operations/Phrases.h"
#include "Client/Wire/Vocabulary.h"

/// Single-file projects, snapshots, templates, and what the hub keeps for the user.
namespace VantryLocalHub::API {

namespace Template = VYCL::URLTemplate;
namespace Word = VYCL::LocalHub;

inline constexpr Field kRopePath{Word::FormKey_RopeFile_Path, ValueKind::Text, "path of the file", true};
inline constexpr Field kRopeSyncMode{Word::FormKey_RopeFile_SyncMode,
                                     ValueKind::Text,
                                     "whether the file is exchanged with a server",
                                     false,
                                     {},
                                     {Word::SyncMode_LocalOnly, Word::SyncMode_Synchronized}};

inline constexpr auto kRopeOpenFields = std::to_array<Field>({
    kRopePath,
    {Word::FormKey_RopeFile_CreateMode,
     ValueKind::Text,
     "what to do where there is no such file, or one",
     false,
     {},
     {Word::FormValue_RopeFile_NeverCreate, Word::FormValue_RopeFile_CreateNewOnly,
      Word::FormValue_RopeFile_CreateOverwrite}},
    {Word::FormKey_RopeFile_Properties, ValueKind::Object, "properties of a new project"},
    kRopeSyncMode,
});
inline constexpr auto kRopeCopyFields = std::to_array<Field>({
    kRopePath,
    {Word::FormKey_RopeFile_Properties, ValueKind::Object,
     "what to copy: `vy:commitId` must be the URL's revision, as text", true},
    {Word::FormKey_RopeFile_CreateMode,
     ValueKind::Text,
     "whether a file that is there may be replaced",
     false,
     {},
     {Word::FormValue_RopeFile_CreateNewOnly, Word::FormValue_RopeFile_CreateOverwrite}},
    kRopeSyncMode,
});
inline constexpr auto kRopeSyncModeFields = std::to_array<Field>({
    {Word::FormKey_RopeFile_SyncMode,
     ValueKind::Text,
     "whether the file is exchanged with a server",
     true,
     {},
     {Word::SyncMode_LocalOnly, Word::SyncMode_Synchronized}},
});

inline constexpr auto kRopeFileOperations = std::to_array<Operation>({
    Operation("POST", "open", At(Template::kRopeFileOpen),
              "Opens a single-file project, or makes one. A file that belongs to another user stays closed.")
        .Takes(BodyKind::Form, kRopeOpenFields)
        .Answers<dto::SessionResource>(200, "opened")
        .Answers<dto::SessionResource>(201, "made")
        .Located()
        .Fails(400, "the form is unreadable, or no file can have the name")
        .Fails(403, "the file belongs to another user")
        .Fails(404, "there is no such file")
        .Fails(409, "there is a file already")
        .Fails(423, "the file that would be replaced is in use"),
    Operation("POST", "close", At(Template::kRopeFileClose_ProductionId), "Closes the file of a production.")
        .AnswersNothing(204, "closed")
        .Fails(404, kNoProduction),
    Operation("POST", "copyTo", At(Template::kRopeFileCopyTo_ProductionId_CommitId),
              "Writes a revision into a single file with an identity of its own.")
        .Takes(BodyKind::Form, kRopeCopyFields)
        .Answers<dto::SessionResource>(201, "copied")
        .Located()
        .Fails(400, "the form is unreadable, the revision to copy is not the URL's, or no file can have the name")
        .Fails(404, kNoRevision)
        .Fails(409, "there is a file already")
        .Fails(423, "the file that would be replaced is in use"),
    Operation("POST", "setSyncMode", At(Template::kRopeFileSetSyncMode_ProductionId),
              "Says whether the file is exchanged with a server.")
        .Takes(BodyKind::Form, kRopeSyncModeFields)
        .Answers<dto::SessionResource>(200, "set")
        .Located()
        .Fails(400, kFormUnreadable)
        .Fails(404, kNoProduction),
});

inline constexpr std::string_view kNoFile = "no such file";
inline constexpr Field kSnapshotFile{Word::FormKey_Snapshot_ZipFile, ValueKind::Text, "path of the snapshot", true};

inline constexpr auto kSnapshotOpenFields = std::to_array<Field>({
    kSnapshotFile,
    {Word::FormKey_Snapshot_CreateSession, ValueKind::Boolean,
     "whether a session of its own is made of it, instead of reading it beside its file"},
    {Word::FormKey_Snapshot_Properties, ValueKind::Object, "properties of the session that is made"},
    {Word::FormKey_Snapshot_RootAssetID, ValueKind::Text, "the asset that the snapshot is of, where none is made"},
});
inline constexpr auto kSnapshotTakeFields = std::to_array<Field>({
    kSnapshotFile,
    {Word::FormKey_Snapshot_Properties, ValueKind::Object,
     "what to take: `vy:commitId` must be the URL's revision, as text; `properties` are those of the snapshot", true},
    {Word::FormKey_Snapshot_RootAssetID, ValueKind::Text, "the asset that the snapshot is of, with what it depends on"},
});
inline constexpr auto kSnapshotApplyFields = std::to_array<Field>({
    kSnapshotFile,
    {Word::FormKey_Snapshot_KeepSessionProperties, ValueKind::Boolean, "the session keeps its own properties"},
    {Word::FormKey_Snapshot_DeleteAssetsNotInSnapshot, ValueKind::Boolean, "assets that the snapshot does not have go"},
});

inline constexpr auto kSnapshotOperations = std::to_array<Operation>({
    Operation("POST", "open", At(Template::kSnapshotOpen),
              "Unpacks a snapshot and makes a session of it, or opens it beside its file.")
        .Takes(BodyKind::Form, kSnapshotOpenFields)
        .Answers<dto::SessionResource>(200, "opened")
        .Answers<dto::SessionResource>(201, "made")
        .Located()
        .Fails(400, kFormUnreadable)
        .Fails(404, kNoFile),
    Operation("POST", "take", At(Template::kSnapshotTake_ProductionId_CommitId), "Writes a revision into a snapshot.")
        .Takes(BodyKind::Form, kSnapshotTakeFields)
        .AnswersNothing(200, "taken")
        .Fails(400, "the form is unreadable, or the revision to take is not the URL's")
        .Fails(404, kNoRevision),
    Operation("POST", "close", At(Template::kSnapshotClose_ProductionId),
              "Closes a snapshot; what was unpacked of it stays.")
        .AnswersNothing(204, "closed")
        .Fails(404, kNoProduction),
    Operation("POST", "apply", At(Template::kSnapshotApply_SessionId), "Brings a session to the content of a snapshot.")
        .Takes(BodyKind::Form, kSnapshotApplyFields)
        .Answers<dto::SessionResource>()
        .Located()
        .Fails(400, kFormUnreadable)
        .Fails(404, "no such session or file")
        .Fails(409, "the session was changed again and again meanwhile"),
});

inline constexpr auto kTemplateOperations = std::to_array<Operation>({
    Operation("GET", "list", At(Template::kTemplateList), "The templates.")
        .Answers<dto::ProductionsResource>()
        .Tagged(),
    Operation("GET", "template", At(Template::kTemplateTemplate, "templateId"), "One template.")
        .Answers<dto::ProductionResource>()
        .Tagged()
        .Fails(404, "no such template"),
    Operation("GET", "collaborators", At(Template::kTemplateCollaborators, "templateId"), "Who works on a template.")
        .Answers<dto::TemplateCollaborators>()
        .Tagged()
        .Fails(404, "no such template")
        .Fails(501, kEngineCannot),
    Operation("GET", "recipients", At(Template::kTemplateRecipients, "templateId"), "Whom a template is meant for.")
        .Answers<dto::TemplateRecipients>()
        .Tagged()
        .Fails(404, "no such template or session, or one that was made of no template"),
    Operation("POST", "createTemplate", At(Template::kTemplateCreateTemplate, "productionId"),
              "Makes a template of a production.")
        .Takes<dto::ProductionResource>(
            "`properties` are those of the template; `recipients`, an array beside them, tells whom it is meant for.")
        .Answers<dto::ProductionResource>(201)
        .WithHeader("Location", "where the template is")
        .Fails(400, kBodyUnreadable)
        .Fails(404, kNoProduction),
    Operation("POST", "createSession", At(Template::kTemplateCreateSession, "templateId"),
              "Makes a session of a template.")
        .Takes<dto::ProductionResource>("`vy:commitId` must be the template's revision.")
        .Answers<dto::SessionResource>(201)
        .Located()
        .Fails(400, "the body is unreadable, or its revision is not the template's")
        .Fails(404, "no such template"),
});

inline constexpr auto kPreferencesFields = std::to_array<Field>({
    {Word::FormKey_Preferences_AutosaveLocation, ValueKind::Text, "folder of the files that the hub saves of its own"},
    {Word::FormKey_Preferences_SetAutosaveToRope, ValueKind::Boolean, "whether it saves single files"},
});

inline constexpr auto kPreferencesOperations = std::to_array<Operation>({
    Operation("GET", "read", At(Template::kPreferencesRead), "The hub's preferences.")
        .Answers<dto::PreferencesResource>(),
    Operation("POST", "save", At(Template::kPreferencesSave), "Changes those that the form names.")
        .Takes(BodyKind::Form, kPreferencesFields)
        .AnswersNothing(200, "saved")
        .Fails(400, kFormUnreadable),
});

}  // namespace VantryLocalHub::API

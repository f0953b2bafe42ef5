#pragma once

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/Operations/Operation.h"
#include "Client/Wire/Operations/Phrases.h"
#include "Client/Wire/Vocabulary.h"

/// Who the user is, and who else works on a production.
namespace VantryLocalHub::API {

namespace Template = VYCL::URLTemplate;
namespace QueryKeys = VYCL::QueryKeys;
namespace FormKeys = VYCL::FormKeys;
namespace Word = VYCL::LocalHub;

inline constexpr auto kCollaboratorsOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kCollaborators_ProductionId),
              "The collaborators of a production; with \"-\" and `url`, of the one at that storage URL.")
        .Asks(QueryKeys::kURL)
        .Answers<dto::CollaboratorsResource>()
        .Tagged()
        .Fails(404, kNoProduction)
        .Fails(501, kEngineCannot),
    Operation("POST", "", At(Template::kCollaborators_ProductionId), "Invites somebody to a production.")
        .Takes<dto::Invitation>()
        .Answers<dto::CollaboratorsResource>(200, "`invitations` tells what became of each")
        .Fails(400, kBodyUnreadable)
        .Fails(404, kNoProduction)
        .Fails(501, kEngineCannot),
});

inline constexpr auto kActivityOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kActivity, "productionId"),
              "What collaborators have changed, shared and not yet.")
        .Answers<dto::ActivityResource>()
        .Tagged()
        .Fails(404, kNoProduction)
        .Fails(501, kEngineCannot),
});

inline constexpr auto kPresenceOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kPresence, "productionId"), "Who has the production open now.")
        .Answers<dto::PresenceResource>()
        .Tagged()
        .Fails(404, kNoProduction)
        .Fails(501, kEngineCannot),
});

inline constexpr auto kInvitesOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kInvites_Type), "The invitations that the user has received.")
        .Asks(QueryKeys::kType)
        .Answers<dto::InvitesResource>()
        .Tagged()
        .Fails(501, kEngineCannot),
    Operation("POST", "", At(Template::kInvites), "Accepts an invitation.")
        .Takes<dto::Invite>()
        .Answers<dto::InvitesResource>()
        .WithHeader(Word::HeaderKey_InviteAcceptedProductionID, "the production that was joined")
        .Fails(400, kBodyUnreadable)
        .Fails(501, kEngineCannot),
    Operation("DELETE", "", At(Template::kInvites), "Rejects an invitation.")
        .Takes<dto::Invite>()
        .Answers<dto::InvitesResource>()
        .Fails(400, kBodyUnreadable)
        .Fails(501, kEngineCannot),
    Operation("PATCH", "", At(Template::kInvites), "Changes or takes back what a collaborator or an invitation may do.")
        .Takes<dto::ModifyCollaborator>()
        .AnswersNothing(200, "done")
        .Fails(400, kBodyUnreadable)
        .Fails(501, kEngineCannot),
});

inline constexpr auto kBatonFields = std::to_array<Field>({
    {FormKeys::kBatonAction, ValueKind::Text, "\"acquire\" or \"release\"", true},
    {FormKeys::kBatonName, ValueKind::Text, "the baton", true},
});

inline constexpr auto kBatonOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kBatons, "productionId"),
              "The batons of a production: who may write which asset.")
        .Answers<dto::BatonsResource>()
        .Tagged()
        .Fails(404, kNoProduction)
        .Fails(501, kEngineCannot),
    Operation("POST", "", At(Template::kBatons, "productionId"), "Acquires or releases a baton.")
        .Takes(BodyKind::Form, kBatonFields)
        .AnswersNothing(200, "done")
        .Fails(400, kFormUnreadable)
        .Fails(404, kNoProduction)
        .Fails(423, "somebody else holds the baton")
        .Fails(503, "batons are not followed now")
        .Fails(501, kEngineCannot),
});

inline constexpr Field kServerURL{Word::FormKey_RemoteLogin_ServerURL, ValueKind::Text, "URL of the server", true};
inline constexpr auto kLoginFields = std::to_array<Field>({
    kServerURL,
    {Word::FormKey_RemoteLogin_ServerType, ValueKind::Text, "kind of server"},
    {Word::FormKey_RemoteLogin_Credentials, ValueKind::Object, "what signs the user in", true,
     dto::RecordName<dto::LoginCredentials>::kText},
    {Word::FormKey_RemoteLogin_MachineID, ValueKind::Text, "id of this machine"},
    {Word::FormKey_RemoteLogin_StageEnvironment, ValueKind::Text, "environment of the server"},
});
inline constexpr auto kLogoutFields = std::to_array<Field>({kServerURL});

inline constexpr auto kRemoteLoginOperations = std::to_array<Operation>({
    Operation("POST", "in", At(Template::kRemoteLogin),
              "Connects to a server. A failure of the server has a body all the same.")
        .Takes(BodyKind::Form, kLoginFields)
        .Answers<dto::RemoteLoginStatus>(200, "`error_code` and `message` where the server refused")
        .Fails(400, "the form or the credentials are unreadable; no connection changes")
        .Fails(501, kEngineCannot),
    Operation("GET", "in", At(Template::kRemoteLogin), "How the hub stands with each server.")
        .Answers<dto::RemoteLoginStatusList>()
        .Tagged(),
    Operation("POST", "out", At(Template::kRemoteLogout), "Disconnects from a server.")
        .Takes(BodyKind::Form, kLogoutFields)
        .AnswersNothing(200, "disconnected")
        .Fails(400, kFormUnreadable)
        .Fails(404, "no such connection")
        .Fails(501, kEngineCannot),
});

inline constexpr auto kUserEnclosureFields = std::to_array<Field>({
    {FormKeys::kEnclosure, ValueKind::Payload, "the payload"},
    {FormKeys::kName, ValueKind::Text, "its name"},
});

inline constexpr auto kCurrentUserOperations = std::to_array<Operation>({
    Operation("GET", "currentUser", At(Template::kUserCurrentUser),
              "Who the user is; empty texts while nobody is signed in.")
        .Answers<dto::CurrentUser>(),
    Operation("GET", "", At(Template::kUserEnclosures, "userId", "sessionId"),
              "The enclosures that a user keeps with a session.")
        .Answers<dto::UserEnclosuresResource>()
        .Tagged()
        .Fails(404, kNoProduction),
    Operation("GET", "", At(Template::kUserEnclosure, "userId", "sessionId", "enclosureId"), "The payload of one.")
        .AnswersPayload("the payload; the tag is its content id")
        .Tagged()
        .Fails(404, "no such session or enclosure"),
    Operation("POST", "", At(Template::kUserEnclosures, "userId", "sessionId"), "Adds one.")
        .Takes(BodyKind::Form, kUserEnclosureFields)
        .Answers<dto::UserEnclosure>()
        .Fails(400, kFormUnreadable)
        .Fails(404, kNoProduction),
    Operation("PUT", "", At(Template::kUserEnclosure, "userId", "sessionId", "enclosureId"),
              "Changes one; what the form does not name stays.")
        .Takes(BodyKind::Form, kUserEnclosureFields)
        .Answers<dto::UserEnclosure>()
        .Fails(400, kFormUnreadable)
        .Fails(404, "no such session or enclosure"),
});

}  // namespace VantryLocalHub::API

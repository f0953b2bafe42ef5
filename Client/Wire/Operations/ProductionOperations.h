#pragma once

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/Operations/Operation.h"
#include "Client/Wire/Operations/Phrases.h"

/// Where a client begins: discovery, productions and their sessions.
namespace VantryLocalHub::API {

namespace Template = VYCL::URLTemplate;
namespace QueryKeys = VYCL::QueryKeys;

inline constexpr auto kDiscoveryOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kDiscovery), "What this hub is, and the links that a client starts from.")
        .Answers<dto::DiscoveryResource>(200, "`server.id` differs with every answer, so there is no entity tag"),
});

inline constexpr auto kProductionsOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kProductions), "The user's productions, local and remote, each once.")
        .Answers<dto::ProductionsResource>()
        .Tagged(),
    Operation("POST", "", At(Template::kProductions), "Creates a production with its first local session.")
        .Asks(QueryKeys::kLocalOnly)
        .Takes(BodyKind::Properties, "The properties of the new production.")
        .Answers<dto::SessionResource>(201)
        .Located()
        .Fails(400, "the body is not a JSON object"),
});

inline constexpr auto kPropertiesEditFields = std::to_array<Field>({
    {"properties", ValueKind::Object, "the new properties: they replace the whole object", true},
    {"vy:transactionId", ValueKind::Text,
     "the open transaction that the edit belongs to; without it the edit is committed at once"},
});
inline constexpr auto kPropertiesDeleteFields = std::to_array<Field>({
    {"vy:transactionId", ValueKind::Text,
     "the open transaction that the edit belongs to; without it the edit is committed at once"},
});
inline constexpr auto kMigrateFields = std::to_array<Field>({
    {"targetUserId", ValueKind::Text, "the user who takes the production over", true},
});

constexpr Operation EditsProperties(std::string_view inMethod, std::string_view inSummary)
{
    return Operation(inMethod, "properties", At(Template::kProductionProperties, "productionId", "commitId"), inSummary)
        .Answers<dto::ProductionPropertiesResource>(
            200, "the properties at the new head; no body where the request named a transaction")
        .WithHeader("ETag", kTagOfAnswer)
        .Fails(400, "the body is unreadable, or the transaction belongs to another session")
        .Fails(404, "no such production, session or transaction")
        .Fails(412, kTransactionClosed);
}

inline constexpr auto kProductionOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kProduction, "productionId", "commitId"), "One production at one revision.")
        .Answers<dto::ProductionResource>()
        .Tagged()
        .Fails(404, kNoRevision),
    Operation("HEAD", "", At(Template::kProduction, "productionId", "commitId"),
              "The same without the body, as for every GET.")
        .AnswersNothing(200, "there is such a production")
        .Tagged()
        .Fails(404, kNoRevision),
    Operation("DELETE", "", At(Template::kProduction, "productionId", "commitId"),
              "Deletes the production: its local session, and the production of the server unless `localOnly` is true. "
              "Without a local session the server's alone. The revision does not matter.")
        .Asks(QueryKeys::kLocalOnly)
        .AnswersNothing(204, "deleted")
        .Fails(400, "the production is \"-\" or \"*\"")
        .Fails(412, "`If-None-Match` is not the tag at the head, or the linked server cannot be reached")
        .Fails(423, "a sync job of the session runs")
        .Fails(501, "there is no local session, and the hub cannot delete at a server yet"),
    Operation("POST", "copy", At(Template::kProductionCopy, "productionId", "commitId"),
              "Makes a new production of a revision.")
        .Asks(QueryKeys::kLocalOnly)
        .Takes<dto::ProductionResource>(
            "`vy:commitId` must be the revision of the URL, as text; `properties` are those of the copy.")
        .Answers<dto::ProductionResource>(201)
        .Located()
        .Fails(400,
               "the body is unreadable, its `vy:commitId` is not the URL's revision, or what is local only is to be "
               "copied to a server")
        .Fails(404, kNoRevision)
        .Fails(501, "the copy is to be made at a server, which the hub cannot do yet"),
    Operation("POST", "archive", At(Template::kProductionArchive, "productionId", "commitId"),
              "Puts the server's production into the archive, after a push of what is local.")
        .AnswersNothing(201, "archived")
        .Fails(404, kNoProduction)
        .Fails(501, kEngineCannot),
    Operation("POST", "migrate", At(Template::kProductionMigrate, "productionId", "commitId"),
              "Gives the server's production to another user.")
        .Takes(BodyKind::Object, kMigrateFields)
        .AnswersNothing(200, "migrated")
        .Fails(400, "the body is not JSON")
        .Fails(501, kEngineCannot),
    Operation("POST", "rollback", At(Template::kProductionRollback_CommitId, "productionId"),
              "Makes a new head of the session with the content of an earlier revision.")
        .Answers<dto::ProductionResource>()
        .WithHeader("ETag", kTagOfAnswer)
        .AnswersNothing(304, "the session stayed as it is: another job held it all the while")
        .Fails(400, "no revision in the URL")
        .Fails(404, kNoRevision)
        .Fails(424, "the hub ended while the rollback waited"),
    Operation("POST", "compact", At(Template::kProductionCompact, "productionId"),
              "Gives back the space of what no revision needs.")
        .AnswersNothing(200, "compacted")
        .Fails(400, "not a single-file project")
        .Fails(404, kNoProduction)
        .Fails(423, "the file is in use"),
    Operation("GET", "enclosures", At(Template::kProductionEnclosures, "productionId", "commitId"),
              "The enclosures of the production itself.")
        .Answers<dto::EnclosuresResource>()
        .Tagged()
        .Fails(404, kNoRevision),
    Operation("GET", "enclosure", At(Template::kProductionEnclosure, "productionId", "commitId", "enclosureId"),
              "The payload of an enclosure, by its id or its name.")
        .AnswersPayload("the payload; the tag is its content id")
        .Tagged()
        .Fails(404, "no such production, revision or enclosure"),
    Operation("GET", "enclosureByContentId", At(Template::kProductionEnclosureByContentId_ContentId, "productionId"),
              "A payload by its content id.")
        .AnswersPayload("the payload; the tag is its content id")
        .Tagged()
        .Fails(404, "no such production or payload"),
    Operation("GET", "properties", At(Template::kProductionProperties, "productionId", "commitId"),
              "The production's properties at a revision.")
        .Answers<dto::ProductionPropertiesResource>()
        .Tagged()
        .Fails(404, kNoRevision),
    Operation("GET", "sizeof", At(Template::kProductionSizeof, "productionId"),
              "What the session takes up. The tag is the head commit: with it the hub need not count.")
        .Answers<dto::SizeInfo>()
        .Tagged()
        .Fails(404, kNoProduction),
    EditsProperties("PUT", "Replaces the production's properties.").Takes(BodyKind::Object, kPropertiesEditFields),
    EditsProperties("POST", "The same as PUT.").Takes(BodyKind::Object, kPropertiesEditFields),
    EditsProperties("DELETE", "Leaves the production without properties.")
        .Takes(BodyKind::Object, kPropertiesDeleteFields)
        .IfAny(),
});

inline constexpr auto kSessionsOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kSessions, "productionId"),
              "The local sessions of a production; none for one that is on the server alone.")
        .Answers<dto::SessionsResource>()
        .Tagged()
        .Fails(404, "no such production"),
    Operation("POST", "", At(Template::kSessions, "productionId"),
              "Makes a further local session of a production that is in the store.")
        .Takes<dto::SessionResource>()
        .Answers<dto::SessionResource>()
        .Located()
        .Fails(400, kBodyUnreadable)
        .Fails(404, kNoProduction)
        .Fails(501, kEngineCannot),
});

inline constexpr auto kSessionStatusOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kSessionStatus, "productionId"),
              "The tags of all that a client watches of a session.")
        .Answers<dto::SessionStatus>()
        .Tagged()
        .Fails(404, kNoProduction),
});

inline constexpr auto kArchivedProductionsOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kArchives), "The productions in the server's archive.")
        .Answers<dto::ProductionsResource>()
        .Tagged(),
});

inline constexpr auto kArchivedProductionOperations = std::to_array<Operation>({
    Operation("POST", "restore", At(Template::kArchiveRestore, "productionId"),
              "Takes a production out of the archive.")
        .AnswersNothing(200, "restored")
        .Fails(404, "no such production in the archive")
        .Fails(501, kEngineCannot),
    Operation("DELETE", "delete", At(Template::kArchiveDelete, "productionId"),
              "Deletes a production in the archive for good.")
        .AnswersNothing(200, "deleted")
        .Fails(404, "no such production in the archive")
        .Fails(501, kEngineCannot),
});

}  // namespace VantryLocalHub::API

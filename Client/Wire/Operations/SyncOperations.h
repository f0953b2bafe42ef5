#pragma once

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/Operations/Operation.h"
#include "Client/Wire/Operations/Phrases.h"
#include "Client/Wire/Vocabulary.h"

/// How a session has changed, how changes move between it and a server, and the jobs that move them.
namespace VantryLocalHub::API {

namespace Template = VYCL::URLTemplate;
namespace QueryKeys = VYCL::QueryKeys;
namespace FormKeys = VYCL::FormKeys;
namespace Word = VYCL::LocalHub;

inline constexpr auto kHistoryOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kHistory, "productionId"),
              "The versions of a session, the newest first. With `startIndex` HEAD the tag is the head commit, and a "
              "current one is answered without reading the history.")
        .Asks(QueryKeys::kStartIndex)
        .Asks(QueryKeys::kCount)
        .Answers<dto::HistoryResource>(200, "an empty list past the end, or for a `count` of 0")
        .Tagged()
        .Fails(400, "`startIndex` or `count` is no number within 0 and 2147483647")
        .Fails(404, kNoProduction),
});

inline constexpr auto kDifferencesOperations = std::to_array<Operation>({
    Operation("GET", "", At(Template::kDifferences_ProductionId_BaseCommitId_CommitId),
              "What differs between two revisions; where need be, they are fetched from the server first.")
        .Answers<dto::DifferencesResource>()
        .Tagged()
        .Fails(404, kNoRevision),
});

inline constexpr auto kStrategyField =
    Field{FormKeys::kResolveStrategy, ValueKind::Text, "which side wins", true, {}, {"accept-theirs", "accept-yours"}};
inline constexpr auto kResolveFields = std::to_array<Field>({kStrategyField});
inline constexpr auto kResolveSessionFields = std::to_array<Field>({
    {FormKeys::kResolveStrategy, ValueKind::Text, "which side wins", false, {}, {"accept-theirs", "accept-yours"}},
    {Word::FormKey_ResolveSession_Action,
     ValueKind::Text,
     "instead of a strategy: gives up what is local",
     false,
     {},
     {Word::FormValue_ResolveSessionAction_DiscardLocalChanges}},
});

constexpr Operation Resolves(std::string_view inSelector, const Path& inPath, std::string_view inSummary)
{
    return Operation("POST", inSelector, inPath, inSummary)
        .AnswersNothing(200, "resolved")
        .Fails(400, kFormUnreadable)
        .Fails(404, kNoProduction)
        .Fails(503, "another job holds the session: try again");
}

inline constexpr auto kResolveOperations = std::to_array<Operation>({
    Resolves("asset", At(Template::kResolveAsset, "sessionId", "assetId", "commitId"), "Ends the conflict of an asset.")
        .Takes(BodyKind::Form, kResolveFields)
        .Fails(501, kEngineCannot),
    Resolves("enclosure", At(Template::kResolveEnclosure, "sessionId", "enclosureId", "commitId"),
             "Ends the conflict of a production enclosure.")
        .Takes(BodyKind::Form, kResolveFields)
        .Fails(501, kEngineCannot),
    Resolves("properties", At(Template::kResolveProperties, "sessionId", "commitId"),
             "Ends the conflict of the session's own properties.")
        .Takes(BodyKind::Form, kResolveFields)
        .Fails(501, kEngineCannot),
    Resolves("session", At(Template::kResolve_SessionIdSession),
             "Ends all conflicts of a session one way, or gives up its local changes.")
        .Takes(BodyKind::Form, kResolveSessionFields)
        .Fails(501, kEngineCannot),
    Resolves("bulk", At(Template::kResolveBulk, "sessionId"),
             "Ends the conflicts of several assets and enclosures at once.")
        .Takes(BodyKind::Form,
               "Rows `assets+<asset>`, `enclosures+<enclosure>` and `properties`, each with its strategy; a row that "
               "cannot be read makes the whole form be refused.")
        .Fails(501, kEngineCannot),
});

inline constexpr auto kPullFields = std::to_array<Field>({
    {FormKeys::kCommitID, ValueKind::Text, "the revision to pull"},
    {FormKeys::kMergeStrategy, ValueKind::Text, "which side wins", false, {}, {"accept-theirs", "accept-yours"}},
});
inline constexpr auto kPushFields = std::to_array<Field>({
    {FormKeys::kCommitID, ValueKind::Text, "the revision to push"},
    {FormKeys::kCommitMessage, ValueKind::Text, "message of the commit; it may be empty", true},
    {FormKeys::kResolveStrategy, ValueKind::Text, "which side wins", false, {}, {"accept-theirs", "accept-yours"}},
});

inline constexpr auto kShareOperations = std::to_array<Operation>({
    Operation("GET", "incoming", At(Template::kShareIncoming, "sessionId"), "The changes that wait to be pulled.")
        .Answers<dto::DifferencesResource>()
        .Fails(404, kNoProduction)
        .Fails(501, kEngineCannot),
    Operation("GET", "outgoing", At(Template::kShareOutgoing, "sessionId"), "The changes that wait to be pushed.")
        .Answers<dto::DifferencesResource>()
        .Fails(404, kNoProduction)
        .Fails(501, kEngineCannot),
    Operation("POST", "pull", At(Template::kSharePull, "sessionId"), "Takes over what others have shared.")
        .Takes(BodyKind::Form, kPullFields)
        .Answers<dto::ShareResult>()
        .Fails(400, kFormUnreadable)
        .Fails(404, kNoProduction)
        .Fails(417, kNotInSync)
        .Fails(501, kEngineCannot),
    Operation("POST", "push", At(Template::kSharePush, "sessionId"), "Shares the session's changes with the others.")
        .Takes(BodyKind::Form, kPushFields)
        .Answers<dto::ShareResult>()
        .Fails(400, kFormUnreadable)
        .Fails(404, kNoProduction)
        .Fails(417, kNotInSync)
        .Fails(501, kEngineCannot),
});

inline constexpr auto kEditJobFields = std::to_array<Field>({
    {VYCL::GetJobProperty_State,
     ValueKind::Text,
     "the state that the job is to take",
     true,
     {},
     {VYCL::GetJobState_Cancel}},
});

inline constexpr auto kJobsOperations = std::to_array<Operation>({
    Operation("GET", "list", At(Template::kJobsList), "All jobs.").Answers<dto::JobList>().Tagged(),
    Operation("GET", "list", At(Template::kJobsListOfSession, "sessionId"), "The jobs of a session.")
        .Answers<dto::JobList>()
        .Tagged(),
    Operation("GET", "list", At(Template::kJobsListOfRevision, "sessionId", "commitId"),
              "The jobs of a session at a revision; \"*\" stands for any session.")
        .Answers<dto::JobList>()
        .Tagged(),
    Operation("GET", "detail", At(Template::kJobsDetail, "jobId"), "One job.")
        .Answers<dto::Job>()
        .Fails(404, "no such job"),
    Operation("PUT", "detail", At(Template::kJobsDetail, "jobId"), "Changes the state of a job: it can be cancelled.")
        .Takes(BodyKind::Object, kEditJobFields)
        .Answers<dto::Job>()
        .Fails(400, "no state, or one that no client can give")
        .Fails(404, "no such job"),
    Operation("POST", "control", At(Template::kJobsControl, "jobType", "sessionId"), "Asks for a sync job.")
        .Takes<dto::Job>("`jcr:name` and `vy:parameters` are read; the rest is the hub's.")
        .Answers<dto::Job>(201)
        .Located()
        .AnswersNothing(302, "a job like this runs already; `Location` leads to it")
        .Fails(400, kBodyUnreadable)
        .Fails(412, "the session is not linked to a production of a server, or that was revoked or deleted"),
    Operation("GET", "types", At(Template::kJobsTypes), "The types of jobs: one.").Answers<dto::JobTypes>(),
    Operation("GET", "types", At(Template::kJobsType, "jobType"), "One type of jobs.").Answers<dto::JobTypes>(),
});

inline constexpr auto kSyncStatusOperations = std::to_array<Operation>({
    Operation("GET", "all", At(Template::kSyncStatusAll), "The sync states of all linked sessions.")
        .Answers<dto::SyncStatusList>()
        .Tagged(),
    Operation("GET", "server", At(Template::kSyncStatusServer_ServerAndPort), "Those of one server.")
        .Answers<dto::SyncStatusList>()
        .Tagged(),
    Operation("GET", "session", At(Template::kSyncStatusSession_SessionId),
              "The sync state of a session; `Unknown` for one that nobody knows.")
        .Answers<dto::SyncStatusResource>()
        .Tagged(),
});

inline constexpr auto kSyncFields = std::to_array<Field>({
    {Word::FormKey_Enabled, ValueKind::Boolean, "whether the hub may connect to servers at all"},
    {Word::FormKey_EnabledForIdleSessions, ValueKind::Boolean,
     "whether sessions that nobody has open are exchanged too"},
});
inline constexpr auto kPollingFields = std::to_array<Field>({
    {Word::FormKey_Enabled, ValueKind::Boolean,
     "whether the session is exchanged of its own; switching it on begins with an exchange", true},
    {Word::FormKey_EnableBatons, ValueKind::Boolean, "whether the session's batons are followed"},
});
inline constexpr auto kClientAppStateFields = std::to_array<Field>({
    {Word::FormKey_ResumeSuspend, ValueKind::Boolean,
     "false: the client goes to the background, and what polling sessions hold is pushed", true},
});

inline constexpr auto kSyncControlOperations = std::to_array<Operation>({
    Operation("POST", "sync", At(Template::kSyncControlSync),
              "Switches the exchange with servers on or off, for all sessions or the idle ones.")
        .Takes(BodyKind::FormOrQuery, kSyncFields)
        .AnswersNothing(200, "at least one of the keys was given")
        .Fails(400, "neither key was given"),
    Operation("POST", "polling", At(Template::kSyncControlPolling_SessionId), "The same for one session.")
        .Takes(BodyKind::FormOrQuery, kPollingFields)
        .AnswersNothing(200, "switched")
        .Fails(400, kFormUnreadable)
        .Fails(404, kNoProduction)
        .Fails(501, kEngineCannot),
    Operation("POST", "clientAppState", At(Template::kSyncControlClientAppState),
              "Tells that the client is suspended or resumed.")
        .Takes(BodyKind::FormOrQuery, kClientAppStateFields)
        .AnswersNothing(200, "the key was given")
        .Fails(400, "the key was not given"),
});

inline constexpr auto kErrorsOperations = std::to_array<Operation>({
    Operation("GET", "all", At(Template::kErrorsAll), "The standing complaints, by server and by session.")
        .Answers<dto::ErrorsResource>()
        .Tagged(),
});

}  // namespace VantryLocalHub::API

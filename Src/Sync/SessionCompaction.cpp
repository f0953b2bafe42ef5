// Which revisions of a single-file project stay when its history is thinned.

#include <exception>

#include "Inc/Model/CommitMessages.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Sync/ProductionMesh.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub {

namespace {

constexpr std::string_view kCategory = "HubSync";
constexpr std::size_t kVersionsAtOnce = 1000;

/// Whether somebody wrote the message for people to read, rather than the hub for the record.
bool IsClientsOwnMessage(const std::string& inMessage)
{
    noxcore::serialization::JSONDocument document;
    std::string text;
    if (inMessage.empty()) return false;
    const bool isRecord = document.Parse(inMessage) && document.Root().IsObject() &&
                          document.Root()["commitMessage"].GetString(text) && document.Root()["metadata"].IsObject();
    if (!isRecord) return true;
    std::int64_t code = 0;
    if (!document.Root()["commitMessageCode"].GetInt64(code)) return !text.empty();
    // Such as have a text of their own are the hub's; of the others the text is somebody's comment.
    return GitBox::CommitMessageText(static_cast<GitBox::CommitMessageCode>(code)).empty();
}

/// Those with a message of their own; the head and what was synchronized stay in any case.
int ChooseRevisions(ProjectBox& inBox, const ImmutableString& inSessionID, std::vector<ImmutableString>& outRevisions)
{
    std::size_t total = 1;
    for (std::size_t start = 0; start < total; start += kVersionsAtOnce) {
        std::vector<StoredVersion> versions;
        const int status = inBox.GetSessionHistory(inSessionID, start, kVersionsAtOnce, versions, total);
        if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
        for (const StoredVersion& version : versions)
            if (IsClientsOwnMessage(version.mMessage)) outRevisions.push_back(version.mCommitID);
    }
    return noxnet::kHTTPStatus_OK;
}

/// outMayBeReplaced: another file may lie in the place of the old one, whatever the status. Set after an exception too.
int Thin(const ImmutableString& inSessionID, const std::string& inFile, bool& outMayBeReplaced)
{
    const auto box = ProjectBox::Instance();
    if (!box) return noxnet::kHTTPStatus_InternalServerError;
    std::vector<ImmutableString> revisions;
    int status = ChooseRevisions(*box, inSessionID, revisions);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    outMayBeReplaced = true;
    status = box->ThinHistoryToRopeFile(inSessionID, inFile, revisions);
    outMayBeReplaced = noxnet::IsSuccessfulHTTPStatus(status) || status == noxnet::kHTTPStatus_InternalServerError;
    return status;
}

/// An exception is told of and goes no further: whoever waits for the work has to be answered.
template <class Work>
void Guarded(const ImmutableString& inSessionID, const Work& inWork)
{
    try {
        inWork();
    } catch (const std::exception& exception) {
        noxcore::logging::LogError(kCategory, "ProductionMesh::CompactSession: Caught exception",
                                   {{"localSessionID", inSessionID.View()}, {"exception", exception.what()}});
    }
}

int Compact(const ImmutableString& inSessionID, const std::string& inFile)
{
    int status = noxnet::kHTTPStatus_InternalServerError;
    bool mayBeReplaced = false;
    Guarded(inSessionID, [&] { status = Thin(inSessionID, inFile, mayBeReplaced); });
    // What the link knows of the history has other ids now: the next question reads it anew.
    const auto engine = SyncBox::Instance();
    if (engine && mayBeReplaced) Guarded(inSessionID, [&] { engine->DisconnectAndCloseSession(inSessionID); });
    return status;
}

}  // namespace

void ProductionMesh::CompactSession(const ImmutableString& inSessionID, StatusCompletion inCompletion)
{
    const auto complete = [](const StatusCompletion& inDone, int inStatus) {
        if (inDone) inDone(inStatus);
    };
    const auto box = ProjectBox::Instance();
    dto::Session session;
    int status = box ? box->GetSession(inSessionID, session) : noxnet::kHTTPStatus_InternalServerError;
    std::string file;
    // The history of a session folder lies in a database that grows by what changed alone, and is not thinned.
    if (noxnet::IsSuccessfulHTTPStatus(status) &&
        !noxnet::IsSuccessfulHTTPStatus(box->GetRopeFilePath(session.mIdentifier, file))) {
        noxcore::logging::LogWarning(kCategory, "Only a project in a single file is compacted",
                                     {{"localSessionID", session.mIdentifier.View()}});
        status = noxnet::kHTTPStatus_BadRequest;
    }
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return complete(inCompletion, status);
    const bool queued = noxcore::threads::CPUBoundExecutor()->Queue(
        [id = session.mIdentifier, file, inCompletion, complete] { complete(inCompletion, Compact(id, file)); });
    if (!queued) {
        noxcore::logging::LogError(kCategory,
                                   "ProductionMesh::CompactSession: Could not start compact session operation",
                                   {{"localSessionID", session.mIdentifier.View()}});
        return complete(inCompletion, noxnet::kHTTPStatus_InternalServerError);
    }
}

}  // namespace VantryLocalHub

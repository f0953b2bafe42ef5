#include "Inc/Model/GitBox.h"

#include "Client/VYClient/LocalHub.h"
#include "Inc/Model/CommitMessages.h"
#include "Inc/Model/GitBoxFolders.h"
#include "Inc/Model/SessionDeletion.h"
#include "Inc/Model/SystemDb.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/ProcessMemory.h"
#include "Platform/noxcore/WorkSharing.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxstorage/Git.h"

namespace VantryLocalHub::GitBox {

using noxcore::threads::ScopedLock;
using noxnet::IsSuccessfulHTTPStatus;
using noxnet::kHTTPStatus_Conflict;
using noxnet::kHTTPStatus_Created;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_NotFound;
using noxnet::kHTTPStatus_NotImplemented;
using noxnet::kHTTPStatus_OK;

namespace {

constexpr std::size_t kReadersBesideTheCaller = 3;

}  // namespace

GitBox::GitBox(bool inReadSessions) : mSandboxes(Sandboxes::Instance())
{
    noxcore::HubContext::Current()->SetInstance(
        std::make_shared<SystemDb::Location>(SystemDb::Location{VYCL::LocalHub::GetBaseSuiteAgnosticDataFolder()}));
    noxstorage::git::Startup();
    if (inReadSessions) mSandboxes->ClearSandboxes();
}

GitBox::~GitBox()
{
    mSandboxes->Clear();
    ClearTemplates();
    noxstorage::git::Shutdown();
}

void GitBox::PostSessionChanged(const ImmutableString& inSessionID)
{
    noxcore::messaging::PostMessageToUIThread(Station(), std::make_shared<SessionChangedMessage>(inSessionID));
}

int GitBox::UpgradeRepository(const ImmutableString& inSessionID)
{
    return mSandboxes->UpgradeRepository(inSessionID);
}

int GitBox::DowngradeRepository(const ImmutableString& inSessionID)
{
    return mSandboxes->DowngradeRepository(inSessionID);
}

void GitBox::ReleaseUnusedDB(std::int64_t inCutOffTicks)
{
    bool released = false;
    ReleaseUnusedTemplates(inCutOffTicks);
    for (const auto& [id, sandbox] : mSandboxes->GetSessionSandboxes()) {
        if (sandbox->GetLocalSessionID() == id && sandbox->LastUsed() < inCutOffTicks)
            released = sandbox->ReleaseDB() || released;
    }
    // Page caches and lists of assets lie between what stays: the allocator would keep their room for ever.
    if (released) noxcore::process::GiveBackFreeMemory();
}

std::vector<dto::Session> GitBox::ReadSessions(
    const std::function<bool(const ImmutableString&, const Sandbox&)>& inTest) const
{
    std::vector<SandboxPtr> sandboxes;
    for (const auto& [id, sandbox] : mSandboxes->GetSessionSandboxes()) {
        if (inTest(id, *sandbox)) sandboxes.push_back(sandbox);
    }
    std::vector<std::optional<dto::Session>> records(sandboxes.size());
    const auto read = [&](std::size_t inIndex) {
        dto::Session session;
        if (IsSuccessfulHTTPStatus(sandboxes[inIndex]->GetSessionInPassing(session)))
            records[inIndex] = std::move(session);
    };
    noxcore::threads::ShareWork(noxcore::threads::IOBoundExecutor(), kReadersBesideTheCaller, sandboxes.size(), read);
    std::vector<dto::Session> sessions;
    for (auto& record : records) {
        if (record) sessions.push_back(std::move(*record));
    }
    return sessions;
}

std::vector<dto::Session> GitBox::GetSessions()
{
    return ReadSessions(
        [](const ImmutableString& inID, const Sandbox& inSandbox) { return inSandbox.GetLocalSessionID() == inID; });
}

int GitBox::GetSession(const ImmutableString& inID, dto::Session& outSession)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inID);
    if (!sandbox) return kHTTPStatus_NotFound;
    return sandbox->GetSession(outSession);
}

std::vector<dto::Session> GitBox::GetSessionsOfProduction(const ImmutableString& inProductionID)
{
    return ReadSessions([&](const ImmutableString& inID, const Sandbox& inSandbox) {
        return inSandbox.GetLocalSessionID() == inID &&
               (inSandbox.ProductionID() == inProductionID || inID == inProductionID);
    });
}

int GitBox::GetProduction(const ImmutableString& inID, const ImmutableString& inRevision, dto::Session& outProduction)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inID);
    return sandbox ? sandbox->GetProductionAtRevision(inRevision, outProduction) : kHTTPStatus_NotFound;
}

int GitBox::CreateSession(const ImmutableString& inProductionID, const dto::ProductionProperties& inProperties,
                          SessionKind inKind, dto::Session& outSession)
{
    if (inKind == SessionKind::RopeFile) return CreateRopeFileSession(inProperties, outSession);
    const ImmutableString sessionID(noxcore::utility::Guid::CreateUnique().Text());
    const ImmutableString productionID =
        inProductionID.empty() ? ImmutableString("p-" + sessionID.Text()) : inProductionID;
    const std::string folder = Folder::SessionFolder(sessionID, inKind);
    Sandbox::Handles handles;
    dto::Session session;
    if (!IO::InitSession(folder, sessionID, productionID, inProperties.mProperties, handles.mRepo, handles.mDb,
                         session)) {
        return kHTTPStatus_InternalServerError;
    }
    const SandboxPtr sandbox = mSandboxes->AddSandbox(Sandbox::Create(folder, session, std::move(handles)));
    outSession = sandbox->GetSession();
    return kHTTPStatus_Created;
}

int GitBox::CreateRopeFileName(const std::string& inName, std::string& outPath)
{
    return Folder::CreateUniqueRopeFileName(inName, outPath);
}

int GitBox::DeletePersistedSessionData(const ImmutableString& inSessionID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    if (sandbox->IsRope()) return DeleteRopeFile(sandbox);
    const int status = DeleteFolder(sandbox);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    DeleteTransactionsForSession(sandbox->GetLocalSessionID());
    CheckAutosaveDiskSpace();  // there may be room again
    PostSessionChanged(sandbox->GetLocalSessionID());
    return status;
}

int GitBox::DeleteFolder(const SandboxPtr& inSandbox)
{
    const std::string folder = inSandbox->GetFolder();
    const ImmutableString sessionID = inSandbox->GetLocalSessionID();
    // A snapshot that is opened meanwhile would be unpacked into what is going.
    const auto mutex = mSandboxes->MutexOfPath(folder);
    const ScopedLock path(*mutex);
    if (mSandboxes->FindSandbox(sessionID) != inSandbox) return kHTTPStatus_NotFound;
    // From this mark on the folder is no session any more, whatever happens to the rest of it.
    if (!SessionDeletion::Mark(folder)) return kHTTPStatus_InternalServerError;
    if (inSandbox->IsExtractedSnapshot()) mSandboxes->ClearExtractedSnapshot(sessionID);
    for (const ImmutableString& key : {inSandbox->ProductionID(), sessionID})
        mSandboxes->ClearSandbox(key);
    // Who found the session before works on with what is open; nothing new is made below the deletion.
    inSandbox->NoteDeleted();
    inSandbox->ReleaseDB();
    const bool deleted = SessionDeletion::Finish(folder);
    noxcore::logging::LogInformation("GitBox", "Deleted local session",
                                     {{"localSessionID", sessionID}, {"folder", folder}, {"deletedFolder", deleted}});
    return kHTTPStatus_OK;
}

int GitBox::OpenTransaction(const ImmutableString& inSessionID, const ImmutableString& inRequiredHead,
                            const ImmutableString& inType, const dto::TransactionCreate& inClient,
                            dto::TransactionResource& outTransaction)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    const ImmutableString revision = sandbox->GetSession().mRevision;
    const ImmutableString requiredHead = inRequiredHead == "HEAD" ? revision : inRequiredHead;
    if (!requiredHead.empty() && requiredHead != revision && sandbox->RevisionsDiffer(requiredHead, revision)) {
        noxcore::logging::LogWarning(
            "GitBox", "OpenTransaction: session HEAD does not match transaction required HEAD",
            {{"sessionID", inSessionID}, {"sessionRevision", revision}, {"transactionHeadRevision", requiredHead}});
        return kHTTPStatus_Conflict;
    }
    const int status =
        CreateTransaction(sandbox->GetLocalSessionID(), revision, requiredHead, inType, inClient, outTransaction);
    dto::Session ignored;
    if (IsSuccessfulHTTPStatus(status) && sandbox->GetSession().mRevision != revision &&
        sandbox->GetProductionAtRevision(revision, ignored) == kHTTPStatus_NotFound) {
        // Compacted meanwhile: the revision that it was to begin at has another id now.
        DeleteTransaction(outTransaction.mTransactionID);
        return noxnet::kHTTPStatus_Locked;
    }
    if (!mSandboxes->FindSandbox(sandbox->GetLocalSessionID())) {
        // Deleted meanwhile, and with it the transactions that were there.
        DeleteTransaction(outTransaction.mTransactionID);
        return kHTTPStatus_NotFound;
    }
    CheckAutosaveDiskSpace();
    return status;
}

int GitBox::CommitTransaction(const ImmutableString& inTransactionID, const CommitMessage& inMessage,
                              bool inClearConflicts, CommitOutcome& outOutcome)
{
    TransactionPtr transaction;
    const int closed = TransactionWindow::CloseTransaction(inTransactionID, transaction);
    if (!IsSuccessfulHTTPStatus(closed)) return closed;
    const SandboxPtr sandbox = mSandboxes->FindSandbox(transaction->mSessionID);
    if (!sandbox) {
        DeleteTransaction(inTransactionID);
        return kHTTPStatus_NotFound;
    }
    CommitOutcome outcome;
    outcome.mMessage = inMessage.mText;
    outcome.mRestoredAssets = GetRestoredAssets(*transaction);
    const int status =
        sandbox->CommitTransaction(inClearConflicts, inMessage.mText, transaction->mRequiredHead,
                                   TakeChanges(*transaction), outcome.mSession, outcome.mPreviousRevision);
    if (status < 300) {
        DeleteTransaction(inTransactionID);
        outOutcome = std::move(outcome);
    } else {
        AbandonTransaction(*transaction);
    }
    NoteWrite(*sandbox, status);
    CheckAutosaveDiskSpace();
    PostSessionChanged(transaction->mSessionID);
    return status;
}

int GitBox::ClearSandbox(const ImmutableString& inID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inID);
    if (!sandbox) return kHTTPStatus_NotFound;
    mSandboxes->ClearSandbox(sandbox->ProductionID());
    mSandboxes->ClearSandbox(sandbox->GetLocalSessionID());
    // A closed file is nobody's any more: it may be moved or opened by others at once.
    if (sandbox->IsRope()) {
        DeleteTransactionsForSession(sandbox->GetLocalSessionID());
        sandbox->ReleaseDB();
        sandbox->TakeReopenComplaintBack();
    }
    PostSessionChanged(sandbox->GetLocalSessionID());
    return kHTTPStatus_OK;
}

int GitBox::ClearExtractedSnapshot(const ImmutableString& inSessionID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    const int status = mSandboxes->ClearExtractedSnapshot(inSessionID);
    if (!sandbox || status == kHTTPStatus_NotFound) return status;
    DeleteTransactionsForSession(sandbox->GetLocalSessionID());
    PostSessionChanged(sandbox->GetLocalSessionID());
    return status;
}

bool GitBox::SessionExists(const ImmutableString& inID)
{
    return mSandboxes->FindSandbox(inID) != nullptr;
}

std::uint64_t GitBox::GetHistoryGeneration(const ImmutableString& inID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inID);
    return sandbox ? sandbox->HistoryGeneration() : 0;
}

void GitBox::CheckAutosaveDiskSpace()
{
    mSandboxes->CheckAutosaveDiskSpace();
}

int GitBox::NoteWrite(Sandbox& inSandbox, int inStatus)
{
    if (inStatus == kHTTPStatus_InternalServerError) inSandbox.NoteFailedWrite();
    if (inSandbox.FailedWrites() != 0) CheckAutosaveDiskSpace();
    return inStatus;
}

int GitBox::NoteChange(Sandbox& inSandbox, int inStatus)
{
    if (IsSuccessfulHTTPStatus(inStatus)) PostSessionChanged(inSandbox.GetLocalSessionID());
    return NoteWrite(inSandbox, inStatus);
}

bool GitBox::NoteSyncWrite(Sandbox& inSandbox, bool inWritten)
{
    NoteWrite(inSandbox, inWritten ? kHTTPStatus_OK : kHTTPStatus_InternalServerError);
    return inWritten;
}

int GitBox::RevertSession(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                          ImmutableString& outRevision)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? NoteChange(*sandbox, sandbox->RevertSession(inRevision, outRevision)) : kHTTPStatus_NotFound;
}

int GitBox::AuditConflictMarkers(const ImmutableString& inSessionID, dto::Session& outSession)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? NoteChange(*sandbox, sandbox->AuditConflictMarkers(outSession)) : kHTTPStatus_NotFound;
}

int GitBox::ResetProductionToRevision(const ImmutableString& inSessionID, const ImmutableString& inRevision)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? NoteChange(*sandbox, sandbox->ResetProductionToRevision(inRevision)) : kHTTPStatus_NotFound;
}

int GitBox::AdvanceProduction(const ImmutableString& inSessionID, const ImmutableString& inRevision)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    return sandbox ? NoteChange(*sandbox, sandbox->AdvanceProduction(inRevision)) : kHTTPStatus_NotFound;
}

}  // namespace VantryLocalHub::GitBox

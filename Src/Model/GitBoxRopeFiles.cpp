// The operations on single-file projects.

#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/GitBox.h"
#include "Inc/Model/RopeFileDb.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxstorage/RopeFileHold.h"

namespace VantryLocalHub::GitBox {

using noxnet::IsSuccessfulHTTPStatus;
using noxnet::kHTTPStatus_BadRequest;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_NotFound;
using noxnet::kHTTPStatus_OK;

namespace {

constexpr int kMostAttempts = 10;

/// A place that a file is about to be put into.
struct Place
{
    explicit Place(const std::string& inFile)
        : mFile(Sandboxes::PlaceOfFile(inFile)), mBefore(noxstorage::git::RopeBackends::IdentityOf(mFile))
    {
        dto::Session ids;
        RopeFile::IO::CreateUniqueRopeFileIDs(mFile, ids);
        mSession = ids.mIdentifier;
    }
    /// Whether another file lies there now.
    [[nodiscard]] bool IsReplaced() const { return noxstorage::git::RopeBackends::IdentityOf(mFile) != mBefore; }

    const std::string mFile;
    const std::string mBefore;
    ImmutableString mSession;
};

}  // namespace

int GitBox::CreateRopeFile(const std::string& inFile, const dto::ProductionProperties& inProperties, bool inOverwrite,
                           dto::Session& outSession)
{
    const Place place(inFile);
    SandboxPtr sandbox;
    const int status = mSandboxes->CreateRopeFile(inFile, inOverwrite, inProperties.mProperties, sandbox);
    if (sandbox) return AddNewRopeFile(sandbox, outSession);
    NoteFailedPlacing(place.mSession, place.IsReplaced());
    return status;
}

void GitBox::NoteFailedPlacing(const ImmutableString& inSessionID, bool inIsReplaced)
{
    if (!inIsReplaced || !mSandboxes->FindSandbox(inSessionID)) return;
    // The new project lies there all the same. What was begun in the old one is not for it.
    DeleteTransactionsForSession(inSessionID);
    PostSessionChanged(inSessionID);
}

int GitBox::AddNewRopeFile(const SandboxPtr& inSandbox, dto::Session& outSession)
{
    const ImmutableString sessionID = inSandbox->GetLocalSessionID();
    // Nobody finds the session before those of a project that was there until now are gone.
    DeleteTransactionsForSession(sessionID);
    mSandboxes->AddSandbox(inSandbox);
    CheckAutosaveDiskSpace();
    PostSessionChanged(sessionID);
    const int read = inSandbox->GetSession(outSession);
    return IsSuccessfulHTTPStatus(read) ? noxnet::kHTTPStatus_Created : read;
}

int GitBox::CreateRopeFileSession(const dto::ProductionProperties& inProperties, dto::Session& outSession)
{
    noxcore::serialization::JSONDocument properties;
    std::string name;
    if (properties.Parse(inProperties.mProperties.Text())) properties.Root()["name"].GetString(name);
    // Of two who take the same name at once, the slower one takes the next.
    int status = noxnet::kHTTPStatus_Conflict;
    for (int attempt = 0; attempt < kMostAttempts && status == noxnet::kHTTPStatus_Conflict; ++attempt) {
        std::string file;
        status = CreateRopeFileName(name, file);
        if (IsSuccessfulHTTPStatus(status)) status = CreateRopeFile(file, inProperties, false, outSession);
    }
    return status;
}

int GitBox::DeleteRopeFile(const SandboxPtr& inSandbox)
{
    const ImmutableString sessionID = inSandbox->GetLocalSessionID();
    const bool deleted = mSandboxes->DeleteRopeFile(inSandbox);
    DeleteTransactionsForSession(sessionID);
    noxcore::logging::LogInformation(
        "GitBox", "Deleted local session",
        {{"localSessionID", sessionID}, {"folder", inSandbox->GetRopeFile()}, {"deletedFolder", deleted}});
    CheckAutosaveDiskSpace();
    PostSessionChanged(sessionID);
    return deleted ? kHTTPStatus_OK : kHTTPStatus_InternalServerError;
}

int GitBox::OpenRopeFile(const std::string& inFile, dto::Session& outSession)
{
    SandboxPtr sandbox;
    SandboxPtr moved;
    int status = mSandboxes->OpenRopeFile(inFile, sandbox, moved);
    // Of its place and of the file's there may be one each.
    for (int count = 0; moved && count < 2; ++count) {
        DeleteTransactionsForSession(moved->GetLocalSessionID());
        PostSessionChanged(moved->GetLocalSessionID());
        moved = nullptr;
        status = mSandboxes->OpenRopeFile(inFile, sandbox, moved);
    }
    return sandbox ? sandbox->GetSession(outSession) : status;
}

void GitBox::ReleaseFiles(const ImmutableString& inSessionID)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (sandbox) sandbox->ReleaseDB();
}

int GitBox::CopyToRopeFile(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                           const std::string& inFile, bool inOverwrite, dto::Session& outSession)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    const Place place(inFile);
    SandboxPtr copy;
    const int status = mSandboxes->CopyToRopeFile(*sandbox, inRevision, inFile, inOverwrite, copy);
    if (copy) return AddNewRopeFile(copy, outSession);
    NoteFailedPlacing(place.mSession, place.IsReplaced());
    return status;
}

int GitBox::ThinHistoryToRopeFile(const ImmutableString& inSessionID, const std::string& inFile,
                                  const std::vector<ImmutableString>& inRevisions)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    const Place place(inFile);
    const bool isOwn = sandbox->IsRope() && place.mFile == sandbox->GetRopeFile();
    // What a transaction brings lies in the file as it is, and not in the one that takes its place.
    std::optional<Pause> pause;
    if (isOwn) pause.emplace(*this, sandbox->GetLocalSessionID());
    if (pause && !*pause) return noxnet::kHTTPStatus_Locked;
    const int status = mSandboxes->ThinHistoryToRopeFile(*sandbox, inFile, inRevisions);
    if (!IsSuccessfulHTTPStatus(status)) {
        NoteFailedPlacing(place.mSession, !isOwn && place.IsReplaced());
        return status;
    }
    // Of a project that was overwritten.
    if (!isOwn) DeleteTransactionsForSession(place.mSession);
    PostSessionChanged(place.mSession);
    return status;
}

int GitBox::SetSyncModeOfRopeFile(const ImmutableString& inSessionID, const ImmutableString& inMode)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    const bool isLocalOnly = inMode == VYCL::LocalHub::SyncMode_LocalOnly();
    if (!sandbox->IsRope() || (!isLocalOnly && !(inMode == VYCL::LocalHub::SyncMode_Synchronized())))
        return kHTTPStatus_BadRequest;
    const auto syncDb = sandbox->GetSyncDb();
    // What was exchanged with a remote side that it leaves is to be exchanged anew with the next one.
    const bool isSet =
        sandbox->SetLocalOnly(isLocalOnly) &&
        (!isLocalOnly || (syncDb->ResetMediaLocatorSyncChangeCount() && syncDb->ResetUserEnclosureSyncChangeCount()));
    const int status = isSet ? kHTTPStatus_OK : kHTTPStatus_InternalServerError;
    NoteWrite(*sandbox, status);
    if (IsSuccessfulHTTPStatus(status)) PostSessionChanged(sandbox->GetLocalSessionID());
    return status;
}

int GitBox::GetRopeFilePath(const ImmutableString& inID, std::string& outPath)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inID);
    if (!sandbox || !sandbox->IsRope()) return kHTTPStatus_NotFound;
    outPath = sandbox->GetRopeFile();
    return kHTTPStatus_OK;
}

int GitBox::WriteRopeFileValue(const ImmutableString& inSessionID, const std::string& inKey, const std::string& inValue)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    if (!sandbox->IsRope()) return kHTTPStatus_OK;
    IO::RepoPtr repo;
    const bool written =
        sandbox->RetainRepo(repo) && RopeFile::Db::WriteValue(repo, RopeFile::kSection_Session, inKey, inValue);
    const int status = written ? kHTTPStatus_OK : kHTTPStatus_InternalServerError;
    NoteWrite(*sandbox, status);
    return status;
}

int GitBox::ReadRopeFileValue(const ImmutableString& inSessionID, const std::string& inKey, std::string& outValue)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    IO::RepoPtr repo;
    if (!sandbox || !sandbox->IsRope()) return kHTTPStatus_NotFound;
    if (!sandbox->RetainRepo(repo)) return kHTTPStatus_InternalServerError;
    switch (RopeFile::Db::ReadValue(repo, RopeFile::kSection_Session, inKey, outValue)) {
        case Lyra2Db::Lookup::Found:
            return kHTTPStatus_OK;
        case Lyra2Db::Lookup::Absent:
            return kHTTPStatus_NotFound;
        case Lyra2Db::Lookup::Failed:
            break;
    }
    return kHTTPStatus_InternalServerError;
}

}  // namespace VantryLocalHub::GitBox

// Sessions that are made of other sessions: copies, and snapshots that are taken, opened and applied.

#include <algorithm>
#include <array>
#include <filesystem>

#include "Client/VYClient/LocalHub.h"
#include "Inc/Model/CopySources.h"
#include "Inc/Model/GitBox.h"
#include "Inc/Model/GitBoxFolders.h"
#include "Inc/Model/GitBoxIOZip.h"
#include "Inc/Model/SessionCreation.h"
#include "Inc/Model/SystemDb.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxstorage/RopeBackends.h"

namespace VantryLocalHub::GitBox {

using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
using noxnet::kHTTPStatus_Created;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_NotFound;
using noxnet::kHTTPStatus_OK;

namespace {

/// Makes a session in a new folder with what the function puts there, and opens it. Null when that fails; nothing is
/// left of it then.
SandboxPtr MakeSession(const IO::SessionIDs& inIDs,
                       const std::function<bool(const std::string&, Sandbox::Handles&, dto::Session&)>& inFill)
{
    const std::string folder = Folder::SessionFolder(inIDs.mSessionID, SessionKind::LocalOnly);
    SessionCreation creation(folder);
    Sandbox::Handles handles;
    dto::Session session;
    if (!creation.Begin() || !inFill(folder, handles, session) || !creation.Finish()) return nullptr;
    return Sandbox::Create(folder, session, std::move(handles));
}

/// Whether a path is that of a part of a session or of the system database.
bool IsOfTheHub(const std::string& inFile)
{
    const std::filesystem::path file(Sandboxes::PlaceOfFile(inFile));
    const std::filesystem::path folder = file.parent_path();
    const bool isInSession = std::any_of(folder.begin(), folder.end(), [](const std::filesystem::path& inPart) {
        return inPart.extension() == "." + std::string(IO::kFolderSuffix);
    });
    std::error_code error;
    const auto data = std::filesystem::weakly_canonical(VYCL::LocalHub::GetBaseSuiteDataFolder(), error);
    return isInSession || (folder == data && file.filename().string().starts_with(SystemDb::kSystemDatabaseName));
}

/// A snapshot takes the place of nothing, of an empty file or of an archive; of a folder it cannot.
bool MayBeReplaced(const std::string& inFile)
{
    constexpr std::string_view kBeginOfArchives = "PK";
    const noxstorage::git::RopeBackends::OtherUse use(inFile);
    if (!use) return false;
    std::error_code error;
    switch (std::filesystem::status(inFile, error).type()) {
        case std::filesystem::file_type::not_found:
        case std::filesystem::file_type::directory:
            return true;
        case std::filesystem::file_type::regular:
            break;
        default:
            return false;
    }
    std::array<char, kBeginOfArchives.size()> begin{};
    std::size_t read = 0;
    const auto file = Files().OpenFile(inFile);
    return file != nullptr && file->ReadAt(0, begin.size(), begin.data(), read) &&
           (read == 0 || std::string_view(begin.data(), read) == kBeginOfArchives);
}

}  // namespace

int OpenCopySource(Sandbox& inSandbox, const ImmutableString& inRevision, IO::CopySource& outSource,
                   IO::LocatorRows& outLocators)
{
    Sandbox::Handles handles;
    if (!inSandbox.RetainDB(handles)) return kHTTPStatus_InternalServerError;
    IO::CommitPtr commit;
    const IO::ReadResult found = IO::ResolveCommit(handles.mRepo, inRevision, commit);
    if (found == IO::ReadResult::Absent) return kHTTPStatus_NotFound;
    if (found != IO::ReadResult::Found) return kHTTPStatus_InternalServerError;
    outSource = {handles.mRepo, commit->ID().Text()};
    outSource.mNotedRootAssetID = inSandbox.GetSession().mSnapshotRootAssetID;
    ImmutableString counted;
    const auto bins = inSandbox.KnownBinCount(counted);
    if (counted == outSource.mRevision) outSource.mBinCount = bins;
    return inSandbox.GetLocatorRows(outLocators);
}

int GitBox::CopySessionToLyra2(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                               const dto::ProductionProperties& inProperties, dto::Session& outSession)
{
    SandboxPtr source = mSandboxes->FindSandbox(inSessionID);
    if (!source) source = FindTemplate(inSessionID);
    if (!source) return kHTTPStatus_NotFound;
    // Whom a session is meant for it has from the template that it was made of.
    dto::RawArray recipients;
    const bool hasRecipients = source->GetTemplateRecipients(recipients) == kHTTPStatus_OK;
    IO::CopySource from;
    IO::LocatorRows locators;
    const int status = OpenCopySource(*source, inRevision, from, locators);
    if (status != kHTTPStatus_OK) return status;
    const IO::SessionIDs ids = IO::SessionIDs::Create();
    ImmutableString initial;
    const SandboxPtr made =
        MakeSession(ids, [&](const std::string& inFolder, Sandbox::Handles& outHandles, dto::Session& outMade) {
            const bool copied = IO::CopySession(from, locators, inFolder, ids, inProperties.mProperties,
                                                outHandles.mRepo, outHandles.mDb, outMade);
            initial = outMade.mProductionRevision;
            return copied && (!hasRecipients || Lyra2Db::WriteTemplateRecipients(*outHandles.mDb, recipients.Text()));
        });
    if (!made) return NoteWrite(*source, kHTTPStatus_InternalServerError);
    const SandboxPtr added = mSandboxes->AddSandbox(made);
    if (added != made) {
        noxcore::logging::LogError("GitBox", "The sandbox for the copied session was already added!",
                                   {{"sessionID", ids.mSessionID}});
    }
    outSession = added->GetSession();
    noxcore::logging::LogInformation("GitBox", "Copied session to a new session",
                                     {{"copiedFrom", source->GetLocalSessionID()},
                                      {"initialRevision", initial},
                                      {"productionID", outSession.mProductionID},
                                      {"productionRevision", outSession.mProductionRevision},
                                      {"sessionID", outSession.mIdentifier},
                                      {"sessionRevision", outSession.mRevision}});
    return kHTTPStatus_Created;
}

int GitBox::TakeSnapshot(const ImmutableString& inSessionID, const ImmutableString& inRevision,
                         const dto::ProductionProperties& inProperties, const ImmutableString& inRootAssetID,
                         const std::string& inZipFile)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    IO::CopySource source;
    IO::LocatorRows locators;
    const int status = OpenCopySource(*sandbox, inRevision, source, locators);
    if (status != kHTTPStatus_OK) return status;
    if (IsOfTheHub(inZipFile)) {
        noxcore::logging::LogError("GitBox", "Won't put a snapshot among the hub's own files", {{"file", inZipFile}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    if (mSandboxes->IsRopeFile(inZipFile)) {
        noxcore::logging::LogError("GitBox", "Won't put a snapshot in the place of a rope file", {{"file", inZipFile}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    if (const std::string place = Sandboxes::PlaceOfFile(inZipFile); IO::FolderOfSnapshot(place) == place) {
        noxcore::logging::LogError("GitBox", "Won't give a snapshot the name of the folder that it would be opened in",
                                   {{"file", inZipFile}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    if (!MayBeReplaced(inZipFile)) {
        noxcore::logging::LogError("GitBox", "Won't put a snapshot in the place of what is no archive",
                                   {{"file", inZipFile}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    if (!inRootAssetID.empty()) {
        dto::Asset root;
        const int found = sandbox->GetAsset(source.mRevision, inRootAssetID, root);
        if (found != kHTTPStatus_OK) return found;
        source.mRootAssetID = inRootAssetID;
    }
    return IO::TakeSnapshot(source, locators, inProperties.mProperties, inZipFile) ? kHTTPStatus_OK
                                                                                   : kHTTPStatus_InternalServerError;
}

int GitBox::ExtractSnapshot(const std::string& inZipFile, const ImmutableString& inRootAssetID,
                            dto::Session& outSession)
{
    SandboxPtr opened;
    SandboxPtr dropped;
    const int status = mSandboxes->OpenSnapshot(inZipFile, inRootAssetID, opened, dropped);
    if (dropped) DeleteTransactionsForSession(dropped->GetLocalSessionID());
    if (status != kHTTPStatus_OK) return status;
    outSession = opened->GetSession();
    PostSessionChanged(outSession.mIdentifier);
    return kHTTPStatus_OK;
}

int GitBox::CreateSessionFromSnapshot(const std::string& inZipFile, const dto::ProductionProperties& inProperties,
                                      dto::Session& outSession)
{
    if (!Files().FileExists(inZipFile)) return kHTTPStatus_NotFound;
    const IO::SessionIDs ids = IO::SessionIDs::Create();
    const SandboxPtr made =
        MakeSession(ids, [&](const std::string& inFolder, Sandbox::Handles& outHandles, dto::Session& outMade) {
            return IO::CreateSessionFromSnapshot(inZipFile, inFolder, ids, inProperties.mProperties, outHandles.mRepo,
                                                 outHandles.mDb, outMade);
        });
    if (!made) return kHTTPStatus_InternalServerError;
    outSession = mSandboxes->AddSandbox(made)->GetSession();
    return kHTTPStatus_Created;
}

int GitBox::ApplySnapshot(const ImmutableString& inSessionID, const std::string& inZipFile,
                          bool inKeepSessionProperties, bool inDeleteAssetsNotInSnapshot, dto::Session& outSession)
{
    const SandboxPtr sandbox = mSandboxes->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    if (!Files().FileExists(inZipFile)) {
        noxcore::logging::LogError("GitBox", "Unable to apply snapshot",
                                   {{"destRepo", sandbox->GetFolder()}, {"srcRepo", inZipFile}});
        return kHTTPStatus_NotFound;
    }
    return NoteChange(
        *sandbox, sandbox->ApplySnapshot(inZipFile, inKeepSessionProperties, inDeleteAssetsNotInSnapshot, outSession));
}

}  // namespace VantryLocalHub::GitBox

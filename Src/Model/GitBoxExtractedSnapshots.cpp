// Snapshots that were extracted to be read as sessions: where they lie is listed in the system database, a JSON array
// of folder paths.

#include <algorithm>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>

#include "Client/VYClient/UTF16.h"
#include "Inc/Model/GitBoxFolders.h"
#include "Inc/Model/GitBoxIOZip.h"
#include "Inc/Model/GitBoxSandboxes.h"
#include "Inc/Model/Lyra2Db.h"
#include "Inc/Model/SessionDeletion.h"
#include "Inc/Model/SystemDb.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/WorkSharing.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
using noxcore::logging::LogError;
using noxcore::threads::ScopedLock;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_NotFound;
using noxnet::kHTTPStatus_OK;

namespace {

using Folders = std::vector<std::string>;

constexpr std::string_view kListName = "ExtractedSnapshots";
constexpr std::size_t kReadersBesideTheCaller = 3;

/// Nothing where what is stored is no list. Throws when it cannot be read: a list that would be written then would have
/// lost what stands in it.
std::optional<Folders> ReadList()
{
    std::string text;
    const int status = SystemDb::GetSystemEnclosure(kListName, text);
    if (status == kHTTPStatus_NotFound) return Folders();
    if (status != kHTTPStatus_OK) throw std::runtime_error("The list cannot be read");
    noxcore::serialization::JSONDocument document;
    if (!document.Parse(text) || !document.Root().IsArray()) return std::nullopt;
    Folders folders;
    for (const auto& child : document.Root().Children()) {
        std::string folder;
        if (child.GetString(folder)) folders.push_back(std::move(folder));
    }
    return folders;
}

void WriteList(const Folders& inFolders)
{
    noxcore::serialization::JSONWriter writer;
    writer.BeginArray();
    for (const std::string& folder : inFolders)
        writer.String(folder);
    writer.EndArray();
    if (SystemDb::AddOrUpdateSystemEnclosure(kListName, writer.Text()) != kHTTPStatus_OK) {
        throw std::runtime_error("The list cannot be written");
    }
}

/// Writes the list where the function says that it changed it. What is no list is begun anew.
bool ChangeList(std::string_view inFailure, const std::string& inFolder,
                const std::function<bool(Folders& ioFolders)>& inChange)
{
    try {
        Folders folders = ReadList().value_or(Folders());
        if (inChange(folders)) WriteList(folders);
        return true;
    } catch (const std::exception& exception) {
        LogError("GitBox", inFailure, {{"path", inFolder}, {"exception", exception.what()}});
        return false;
    }
}

/// A folder as it really lies, links followed.
std::string Resolved(const std::string& inFolder)
{
    std::error_code error;
    const std::filesystem::path path = std::filesystem::weakly_canonical(inFolder, error);
    return error ? inFolder : path.string();
}

/// Whether a folder, links followed, is one of the hub's own sessions or lies in one: opened as a snapshot's it would
/// be deleted as one.
bool IsBelowSessions(const std::string& inFolder)
{
    const std::string folder = Resolved(inFolder);
    const auto places = Folder::SessionFolders();
    return std::any_of(places.begin(), places.end(), [&](const auto& inPlace) {
        const std::string place = Resolved(inPlace.mFolder) + "/";
        if (!folder.starts_with(place)) return false;
        const std::string_view first = std::string_view(folder).substr(place.size());
        return first.substr(0, first.find('/')).ends_with(IO::kFolderSuffix);
    });
}

SandboxPtr ReadExtractedSnapshot(const std::string& inFolder)
{
    Sandbox::Handles handles;
    dto::Session session;
    if (!IO::IsLiveSessionFolder(inFolder) || !IO::ReadSessionRepo(inFolder, handles.mRepo, session)) {
        noxcore::logging::LogWarning("GitBox", "No extracted snapshot can be read", {{"path", inFolder}});
        return nullptr;
    }
    SandboxPtr sandbox = Sandbox::Create(inFolder, session, std::move(handles), Sandbox::IDs::OfExtractedSnapshot);
    sandbox->GetSyncDb();
    sandbox->ReleaseDB();
    return sandbox;
}

/// Whether what was just unpacked is a session that can be opened. Opened, a database that is missing or damaged would
/// be made anew, and what the snapshot had in it forgotten.
bool IsSoundExtract(const std::string& inFolder)
{
    return Lyra2Db::IsSoundSessionDatabase(inFolder) && IO::HasReadableContent(inFolder);
}

/// Notes which asset a snapshot is about. 404: it has none of the id.
int NoteRootAsset(Sandbox& inSandbox, const ImmutableString& inRootAssetID)
{
    if (inRootAssetID.empty()) return kHTTPStatus_OK;
    dto::Asset root;
    const int found = inSandbox.GetAsset(inSandbox.GetSession().mRevision, inRootAssetID, root);
    if (found != kHTTPStatus_OK) return found;
    if (!Files().WriteFileDurably(Join(inSandbox.GetFolder(), "rootassetid"), inRootAssetID))
        return kHTTPStatus_InternalServerError;
    inSandbox.SetSnapshotRootAssetID(inRootAssetID);
    return kHTTPStatus_OK;
}

}  // namespace

void Sandboxes::ReadExtractedSnapshotSandboxes()
{
    try {
        const auto folders = ReadList();
        if (!folders) throw std::runtime_error("What is stored is no list of folders");
        noxcore::threads::ShareSeparateWork(
            noxcore::threads::IOBoundExecutor(), kReadersBesideTheCaller, folders->size(),
            [&](std::size_t inIndex) { ReadAndAddExtractedSnapshot((*folders)[inIndex]); });
    } catch (const std::exception& exception) {
        LogError("GitBox", "ReadExtractedSnapshotSandboxes: Caught exception", {{"exception", exception.what()}});
    }
}

SandboxPtr Sandboxes::ReadAndAddExtractedSnapshot(const std::string& inFolder)
{
    constexpr std::string_view kFailure = "AddExtractedSnapshot: Caught exception";
    if (IsBelowSessions(inFolder)) {
        LogError("GitBox", "Won't open what belongs to another session as a snapshot", {{"path", inFolder}});
        return nullptr;
    }
    // The list holds nothing else: one path that is not would make the whole of it unreadable. Nor would the ids of
    // such paths tell them apart.
    if (!VYCL::IsUTF8(inFolder)) {
        LogError("GitBox", "The path of an extracted snapshot is not UTF-8",
                 {{"path", VYCL::ToUTF8(VYCL::ToUTF16(inFolder))}});
        return nullptr;
    }
    SandboxPtr sandbox = FindSnapshot(inFolder);
    try {
        // What is open already is not opened a second time beside itself.
        if (!sandbox) sandbox = ReadExtractedSnapshot(inFolder);
    } catch (const std::exception& exception) {
        LogError("GitBox", kFailure, {{"path", inFolder}, {"exception", exception.what()}});
    }
    if (!sandbox) return nullptr;
    const ScopedLock lock(mMutex);
    if (!IO::IsLiveSessionFolder(inFolder)) return nullptr;  // deleted meanwhile
    ChangeList(kFailure, inFolder, [&](Folders& ioFolders) {
        if (std::find(ioFolders.begin(), ioFolders.end(), inFolder) != ioFolders.end()) return false;
        ioFolders.push_back(inFolder);
        return true;
    });
    return AddSandbox(sandbox);
}

int Sandboxes::OpenSnapshot(const std::string& inZipFile, const ImmutableString& inRootAssetID, SandboxPtr& outSandbox,
                            SandboxPtr& outDropped)
{
    const std::string file = PlaceOfFile(inZipFile);
    const std::string folder = IO::FolderOfSnapshot(file);
    const auto mutex = MutexOfPath(folder);
    const ScopedLock path(*mutex);
    const bool isOfAnother = IsOfAnother(folder);
    if (!isOfAnother && !FinishDeletion(folder)) return kHTTPStatus_InternalServerError;
    const bool wasThere = Files().DirectoryExists(folder);
    if (!wasThere && !Files().FileExists(file)) return kHTTPStatus_NotFound;
    if (isOfAnother) {
        LogError("GitBox", "Won't open what belongs to another session as a snapshot", {{"path", folder}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    if (!wasThere && folder == file) {
        LogError("GitBox", "Won't open a snapshot in the place of itself", {{"file", file}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    if (wasThere) return OpenExtracted(folder, inRootAssetID, outSandbox);
    outDropped = DropSnapshot(folder);
    std::string extracted;
    if (!IO::ExtractSnapshot(file, extracted)) return kHTTPStatus_InternalServerError;
    const int status = IsSoundExtract(extracted) ? OpenExtracted(extracted, inRootAssetID, outSandbox)
                                                 : kHTTPStatus_InternalServerError;
    // Left there, it would be taken for the content of whatever file gets the name next.
    if (status != kHTTPStatus_OK) SessionDeletion::MarkAndFinish(extracted);
    return status;
}

bool Sandboxes::FinishDeletion(const std::string& inFolder)
{
    Files().DeleteEmptyDirectory(inFolder);  // cut off at its very end; one that has something in it stays
    if (!SessionDeletion::IsMarked(inFolder) || FindSnapshot(inFolder) || SessionDeletion::Finish(inFolder))
        return true;
    LogError("GitBox", "Cannot remove what a deletion had left", {{"folder", inFolder}});
    return false;
}

int Sandboxes::OpenExtracted(const std::string& inFolder, const ImmutableString& inRootAssetID, SandboxPtr& outSandbox)
{
    const bool wasOpen = FindSnapshot(inFolder) != nullptr;
    SandboxPtr sandbox = ReadAndAddExtractedSnapshot(inFolder);
    if (!sandbox) return kHTTPStatus_InternalServerError;
    const int status = NoteRootAsset(*sandbox, inRootAssetID);
    if (status == kHTTPStatus_OK)
        outSandbox = std::move(sandbox);
    else if (!wasOpen)
        ClearExtractedSnapshot(sandbox->GetLocalSessionID());
    return status;
}

SandboxPtr Sandboxes::FindSnapshot(const std::string& inFolder) const
{
    dto::Session ids;
    Sandbox::SetIDsForExtractedSnapshot(inFolder, ids);
    return FindSandbox(ids.mIdentifier);
}

bool Sandboxes::IsOfAnother(const std::string& inFolder) const
{
    const std::string folder = Resolved(inFolder);
    if (IsBelowSessions(folder) || folder.starts_with(Resolved(Folder::Templates()) + "/")) return true;
    const ScopedLock lock(mMutex);
    return std::any_of(mSandboxes.begin(), mSandboxes.end(), [&](const auto& inEntry) {
        return !inEntry.second->IsExtractedSnapshot() && inEntry.second->GetFolder() == folder;
    });
}

SandboxPtr Sandboxes::DropSnapshot(const std::string& inFolder)
{
    SandboxPtr sandbox = FindSnapshot(inFolder);
    if (!sandbox) return nullptr;
    ClearSandbox(sandbox->GetLocalSessionID());
    ClearSandbox(sandbox->ProductionID());
    sandbox->NoteDeleted();
    sandbox->ReleaseDB();
    return sandbox;
}

int Sandboxes::ClearExtractedSnapshot(const ImmutableString& inID)
{
    const SandboxPtr sandbox = FindSandbox(inID);  // closed after the mutex was given back
    if (!sandbox || !sandbox->IsExtractedSnapshot()) return kHTTPStatus_NotFound;
    const ScopedLock lock(mMutex);
    ClearSandbox(sandbox->GetLocalSessionID());
    ClearSandbox(sandbox->ProductionID());
    const bool removed =
        ChangeList("RemoveExtractedSnapshot: Caught exception", sandbox->GetFolder(),
                   [&](Folders& ioFolders) { return std::erase(ioFolders, sandbox->GetFolder()) != 0; });
    return removed ? kHTTPStatus_OK : kHTTPStatus_InternalServerError;
}

}  // namespace VantryLocalHub::GitBox

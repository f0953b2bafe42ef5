// Single-file projects in the registry of sessions.

#include <algorithm>
#include <exception>
#include <filesystem>
#include <set>

#include "Inc/Model/ComplaintBox.h"
#include "Inc/Model/GitBoxFolders.h"
#include "Inc/Model/GitBoxSandboxes.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/WorkSharing.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxstorage/RopeBackends.h"
#include "Platform/noxstorage/RopeFileHold.h"

namespace VantryLocalHub::GitBox {

namespace backend = noxstorage::git::RopeBackends;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
using noxcore::logging::LogError;
using noxcore::threads::ScopedLock;
using noxnet::IsSuccessfulHTTPStatus;

namespace {

constexpr std::size_t kReadersBesideTheCaller = 3;
constexpr std::string_view kExtension = ".lyr";
constexpr std::string_view kLocalFolder = "local";

void ListRopeFiles(const std::string& inFolder, std::vector<std::string>& outFiles)
{
    std::vector<noxcore::filesupport::DirectoryEntry> entries;
    Files().ListDirectory(inFolder, entries);
    std::set<std::string> names;
    for (const auto& entry : entries)
        if (!entry.mIsDirectory && entry.mName.ends_with(kExtension)) names.insert(entry.mName);
    for (const std::string& name : names)
        outFiles.push_back(Join(inFolder, name));
}

/// The places of which something that was never finished lies in a folder.
std::set<std::string> ListPlacesOfLeftovers(const std::string& inFolder)
{
    std::set<std::string> places;
    std::vector<noxcore::filesupport::DirectoryEntry> entries;
    Files().ListDirectory(inFolder, entries);
    for (const auto& entry : entries) {
        // A project's name, and what stands behind that of something that belongs to it.
        const std::size_t end = entry.mName.rfind(std::string(kExtension) + "-");
        if (entry.mIsDirectory || end == std::string::npos) continue;
        const std::string_view rest = std::string_view(entry.mName).substr(end + kExtension.size());
        const auto& names = RopeFile::IO::kNamesBeside;
        const bool isBeside =
            std::any_of(names.begin(), names.end(), [&](std::string_view inName) { return rest.starts_with(inName); });
        if (isBeside || rest == "-journal")
            places.insert(Join(inFolder, entry.mName.substr(0, end + kExtension.size())));
    }
    return places;
}

dto::Session IDsOf(const std::string& inFile)
{
    dto::Session ids;
    RopeFile::IO::CreateUniqueRopeFileIDs(inFile, ids);
    return ids;
}

void ReportCopy(const std::string& inSkipped, const Sandbox& inExisting)
{
    const ImmutableString id = inExisting.GetLocalSessionID();
    LogError("GitBox", "Autosave exists in multiple folders. Skipping",
             {{"ropeFile", inSkipped}, {"existingRopeFile", inExisting.GetRopeFile()}, {"existingSessionID", id}});
    ComplaintBox::Instance()->FileComplaint(id, 0,
                                            std::string("Autosave exists in multiple folders. Using: ")
                                                .append(inExisting.GetRopeFile())
                                                .append(" (")
                                                .append(id.View())
                                                .append(") Skipping: ")
                                                .append(inSkipped));
}

}  // namespace

SandboxPtr Sandboxes::FindCopyLocked(const Sandbox& inSandbox) const
{
    for (const auto& [id, sandbox] : mSandboxes) {
        const bool isSameProject = !inSandbox.UniqueID().empty() && sandbox->UniqueID() == inSandbox.UniqueID();
        if (isSameProject && sandbox->GetRopeFile() != inSandbox.GetRopeFile()) return sandbox;
    }
    return nullptr;
}

void Sandboxes::ReadRopeFileSandboxesInDirectory(const std::string& inFolder)
{
    std::vector<std::string> files;
    try {
        for (const std::string& folder : {inFolder, Join(inFolder, kLocalFolder)}) {
            ListRopeFiles(folder, files);
            for (const std::string& found : ListPlacesOfLeftovers(folder)) {
                const std::string place = PlaceOfFile(found);
                RemoveLeftovers(place);
            }
        }
    } catch (const std::exception& exception) {
        LogError("GitBox", "ReadSandboxes: Caught exception", {{"path", inFolder}, {"exception", exception.what()}});
    }
    std::vector<SandboxPtr> found(files.size());
    noxcore::threads::ShareSeparateWork(noxcore::threads::IOBoundExecutor(), kReadersBesideTheCaller, files.size(),
                                        [&](std::size_t inIndex) { found[inIndex] = ReadRopeFile(files[inIndex]); });
    // One after the other, so that of two copies it is always the same that stays.
    for (const SandboxPtr& sandbox : found)
        if (sandbox) AddFoundFile(sandbox);
}

SandboxPtr Sandboxes::ReadRopeFile(const std::string& inFile)
{
    const std::string place = PlaceOfFile(inFile);
    RopeFile::IO::OpenFile file;
    if (FindSandbox(IDsOf(place).mIdentifier) || !IsSuccessfulHTTPStatus(RopeFile::IO::OpenRopeFile(place, file)))
        return nullptr;
    SandboxPtr sandbox = Sandbox::Create(place, std::move(file));
    // Closed at once: many may lie here that nobody asks for, and an open one is locked for everybody else.
    sandbox->ReleaseDB();
    return sandbox;
}

void Sandboxes::AddFoundFile(const SandboxPtr& inSandbox)
{
    SandboxPtr copy;
    {
        const ScopedLock lock(mMutex);
        if (FindSandbox(inSandbox->GetLocalSessionID())) return;  // somebody has opened it meanwhile
        copy = FindCopyLocked(*inSandbox);
        if (!copy) AddSandbox(inSandbox);
    }
    if (copy) ReportCopy(inSandbox->GetRopeFile(), *copy);
}

std::string Sandboxes::PlaceOfFile(const std::string& inFile)
{
    namespace fs = std::filesystem;
    if (!inFile.starts_with('/')) return inFile;
    const fs::path path(inFile);
    std::error_code error;
    // What a link leads to is one project under whatever name, and what takes its place takes that of the file.
    if (const fs::path whole = fs::canonical(path, error); !error && fs::is_regular_file(whole, error)) return whole;
    const fs::path folder = fs::weakly_canonical(path.parent_path(), error);
    return (error ? path.parent_path().lexically_normal() : folder) / path.filename();
}

bool Sandboxes::IsRopeFile(const std::string& inFile) const
{
    const std::string place = PlaceOfFile(inFile);
    return FindSandbox(IDsOf(place).mIdentifier) || backend::IsRepository(place);
}

std::shared_ptr<Sandboxes::PathMutex> Sandboxes::MutexOfPath(const std::string& inFile)
{
    const ScopedLock lock(mMutex);
    std::erase_if(mPathMutexes, [](const auto& inEntry) { return inEntry.second.expired(); });
    auto mutex = mPathMutexes[inFile].lock();
    if (!mutex) {
        mutex = std::make_shared<PathMutex>(noxcore::threads::LockRank::RopeFilePath);
        mPathMutexes[inFile] = mutex;
    }
    return mutex;
}

void Sandboxes::RemoveLeftovers(const std::string& inPlace)
{
    // What this process builds beside the place it puts there under this mutex.
    const auto mutex = MutexOfPath(inPlace);
    const ScopedLock path(*mutex);
    RopeFile::IO::RemoveLeftovers(inPlace);
    // A session's file that somebody has moved away for now needs its journal.
    if (!FindSandbox(IDsOf(inPlace).mIdentifier)) backend::RemoveLoneJournal(inPlace);
}

SandboxPtr Sandboxes::FindMoved(const std::string& inPlace) const
{
    const SandboxPtr sandbox = FindSandbox(IDsOf(inPlace).mIdentifier);
    if (sandbox && sandbox->FileHasMoved()) return sandbox;
    const std::string opened = backend::WhereOpened(inPlace);
    return opened.empty() || opened == inPlace ? nullptr : FindSandbox(IDsOf(opened).mIdentifier);
}

bool Sandboxes::CloseMoved(const SandboxPtr& inSandbox)
{
    // Whoever is about to put something where it was has to be through with that.
    const auto mutex = MutexOfPath(inSandbox->GetRopeFile());
    if (!mutex->TryLock()) return false;
    const bool isClosed = inSandbox->CloseForGood();
    if (isClosed) {
        backend::RemoveLoneJournal(inSandbox->GetRopeFile());
        const ScopedLock lock(mMutex);
        for (const ImmutableString& id : {inSandbox->GetLocalSessionID(), inSandbox->ProductionID()})
            if (FindSandbox(id) == inSandbox) ClearSandbox(id);
    }
    mutex->Unlock();
    return isClosed;
}

int Sandboxes::OpenRopeFile(const std::string& inFile, SandboxPtr& outSandbox, SandboxPtr& outMoved)
{
    const std::string place = PlaceOfFile(inFile);
    const auto mutex = MutexOfPath(place);
    const ScopedLock path(*mutex);
    if (Files().FileExists(place)) {
        if (SandboxPtr moved = FindMoved(place)) {
            if (CloseMoved(moved)) outMoved = std::move(moved);
            return noxnet::kHTTPStatus_Locked;
        }
    } else if (FindSandbox(IDsOf(place).mIdentifier)) {
        return noxnet::kHTTPStatus_NotFound;
    }
    return OpenFileAt(place, outSandbox);
}

int Sandboxes::OpenFileAt(const std::string& inPlace, SandboxPtr& outSandbox)
{
    if (const SandboxPtr sandbox = FindSandbox(IDsOf(inPlace).mIdentifier)) {
        Sandbox::Handles handles;
        if (!sandbox->RetainDB(handles)) return sandbox->WhyNotOpen();
        outSandbox = sandbox;
        return noxnet::kHTTPStatus_OK;
    }
    RopeFile::IO::RemoveLeftovers(inPlace);
    RopeFile::IO::OpenFile file;
    const int status = RopeFile::IO::OpenRopeFile(inPlace, file);
    if (IsSuccessfulHTTPStatus(status)) outSandbox = AddSandbox(Sandbox::Create(inPlace, std::move(file)));
    return status;
}

int Sandboxes::MakeWayFor(const std::string& inFile, bool inOverwrite, SandboxPtr& outClosed)
{
    if (RopeFile::IO::CanBeMade(inFile)) RopeFile::IO::RemoveLeftovers(inFile);
    const dto::Session ids = IDsOf(inFile);
    const SandboxPtr before = FindSandbox(ids.mIdentifier);
    // A session whose file is gone is in the way of nothing.
    if (!inOverwrite && (!before || Files().FileExists(inFile))) return noxnet::kHTTPStatus_OK;
    if (!before) {
        const bool isInUse = backend::LookForUsers(inFile) == backend::FileStep::InUse;
        return isInUse ? noxnet::kHTTPStatus_Locked : noxnet::kHTTPStatus_OK;
    }
    // Whoever works in the file that is to go would go on in one that nobody finds.
    if (!before->CloseForGood()) return noxnet::kHTTPStatus_Locked;
    outClosed = before;
    ClearSandbox(ids.mIdentifier);
    ClearSandbox(ids.mProductionID);
    return noxnet::kHTTPStatus_OK;
}

int Sandboxes::PutFile(const std::string& inPlace, bool inOverwrite, const FileMaker& inMaker, SandboxPtr& outSandbox)
{
    const auto mutex = MutexOfPath(inPlace);
    const ScopedLock path(*mutex);
    RopeFile::IO::OpenFile file;
    SandboxPtr closed;
    int status = noxnet::kHTTPStatus_InternalServerError;
    try {
        status = MakeWayFor(inPlace, inOverwrite, closed);
        if (IsSuccessfulHTTPStatus(status)) status = inMaker(file);
    } catch (const std::exception& exception) {
        LogError("RopeFile", "CreateRopeFile: Caught exception", {{"file", inPlace}, {"exception", exception.what()}});
        status = noxnet::kHTTPStatus_InternalServerError;
    }
    if (IsSuccessfulHTTPStatus(status)) {
        if (file.mRepo) outSandbox = Sandbox::Create(inPlace, std::move(file));
    } else if (closed) {
        closed->NoteKept();
        AddSandbox(closed);
    }
    return status;
}

int Sandboxes::CreateRopeFile(const std::string& inFile, bool inOverwrite, const dto::RawJSON& inProperties,
                              SandboxPtr& outSandbox)
{
    const std::string place = PlaceOfFile(inFile);
    const auto make = [&](RopeFile::IO::OpenFile& outFile) {
        return RopeFile::IO::CreateRopeFile(place, inOverwrite, RopeFile::IO::Mode::LocalOnly, inProperties, outFile);
    };
    return PutFile(place, inOverwrite, make, outSandbox);
}

int Sandboxes::CopyToRopeFile(Sandbox& inSource, const ImmutableString& inRevision, const std::string& inFile,
                              bool inOverwrite, SandboxPtr& outSandbox)
{
    const std::string place = PlaceOfFile(inFile);
    if (inSource.GetRopeFile() == place) return noxnet::kHTTPStatus_BadRequest;
    // Nothing is closed for a copy that cannot be made.
    dto::Session ignored;
    const int status = inSource.GetProductionAtRevision(inRevision, ignored);
    if (!IsSuccessfulHTTPStatus(status)) return status;
    const auto copy = [&](RopeFile::IO::OpenFile& outFile) {
        return inSource.CopyToRopeFile(inRevision, place, inOverwrite, outFile);
    };
    return PutFile(place, inOverwrite, copy, outSandbox);
}

int Sandboxes::ThinHistoryToRopeFile(Sandbox& inSandbox, const std::string& inFile,
                                     const std::vector<ImmutableString>& inRevisions)
{
    if (!inSandbox.IsRope()) return noxnet::kHTTPStatus_BadRequest;
    const std::string place = PlaceOfFile(inFile);
    const auto thin = [&](RopeFile::IO::OpenFile&) { return inSandbox.ThinHistoryToRopeFile(place, inRevisions); };
    if (inSandbox.GetRopeFile() != place) {
        SandboxPtr none;
        return PutFile(place, true, thin, none);
    }
    const auto mutex = MutexOfPath(place);
    const ScopedLock path(*mutex);
    try {
        RopeFile::IO::RemoveLeftovers(place);
        return inSandbox.ThinHistoryToRopeFile(place, inRevisions);
    } catch (const std::exception& exception) {
        LogError("RopeFile", "ThinHistoryToRopeFile: Caught exception",
                 {{"file", place}, {"exception", exception.what()}});
        return noxnet::kHTTPStatus_InternalServerError;
    }
}

bool Sandboxes::DeleteRopeFile(const SandboxPtr& inSandbox)
{
    const std::string& file = inSandbox->GetRopeFile();
    const auto mutex = MutexOfPath(file);
    const ScopedLock path(*mutex);
    // What lies in the place of a file that was moved away is another's.
    const bool hasMoved = inSandbox->FileHasMoved();
    ClearSandbox(inSandbox->ProductionID());
    ClearSandbox(inSandbox->GetLocalSessionID());
    // Who found the session before works on with what is open, and loses it with the last handle.
    inSandbox->NoteDeleted();
    inSandbox->ReleaseDB();
    inSandbox->TakeReopenComplaintBack();
    if (hasMoved || backend::DeleteRepository(file)) return true;
    if (Files().FileExists(file)) {
        inSandbox->NoteKept();
        AddSandbox(inSandbox);
    }
    return false;
}

}  // namespace VantryLocalHub::GitBox

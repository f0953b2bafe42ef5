#include "Inc/Model/GitBoxSandboxes.h"

#include <exception>

#include "Client/VYClient/LocalHub.h"
#include "Inc/Model/GitBoxFolders.h"
#include "Inc/Model/Lyra2Db.h"
#include "Inc/Model/SessionDeletion.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/WorkSharing.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"

namespace VantryLocalHub::GitBox {

namespace backend = noxstorage::git::SQLite3OdbBackend;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
using noxcore::threads::ScopedLock;

namespace {

constexpr std::size_t kScannersBesideTheCaller = 3;

void LogReadException(const std::string& inFolder, const std::exception& inException)
{
    noxcore::logging::LogError("GitBox", "ReadSandboxes: Caught exception",
                               {{"path", inFolder}, {"exception", inException.what()}});
}

/// Turns a session's repository and rewrites its version when that is done.
int TurnRepository(const SandboxPtr& inSandbox, const IO::VersionRecord& inVersion,
                   const std::function<bool(const IO::RepoPtr&)>& inTurn)
{
    Sandbox::Handles handles;
    if (!inSandbox || inSandbox->IsRope() || !inSandbox->RetainDB(handles) || !inTurn(handles.mRepo))
        return noxnet::kHTTPStatus_NotFound;
    return IO::WriteVersion(inSandbox->GetFolder(), inVersion) ? noxnet::kHTTPStatus_OK : noxnet::kHTTPStatus_NotFound;
}

}  // namespace

std::shared_ptr<Sandboxes> Sandboxes::Instance()
{
    return noxcore::HubContext::Current()->GetOrCreateInstance<Sandboxes>();
}

void Sandboxes::ClearSandboxes()
{
    Clear();
    const std::string standard = VYCL::LocalHub::GetDefaultRopeFileAutosaveLocation();
    const std::string chosen = Folder::GetDefaultRopeFileAutosaveLocation();
    ReadRopeFileSandboxesInDirectory(standard);
    ReadSandboxes();
    ReadExtractedSnapshotSandboxes();
    if (chosen != standard) ReadRopeFileSandboxesInDirectory(chosen);
}

void Sandboxes::Clear()
{
    Map dropped;  // closed after the mutex was given back
    const ScopedLock lock(mMutex);
    dropped.swap(mSandboxes);
}

void Sandboxes::ReadSandboxes()
{
    std::vector<std::string> folders;
    for (const auto& place : Folder::SessionFolders()) {
        std::vector<noxcore::filesupport::DirectoryEntry> entries;
        try {
            Files().ListDirectory(place.mFolder, entries);
        } catch (const std::exception& exception) {
            LogReadException(place.mFolder, exception);
        }
        for (const auto& entry : entries) {
            if (entry.mIsDirectory) folders.push_back(Join(place.mFolder, entry.mName));
        }
    }
    noxcore::threads::ShareSeparateWork(noxcore::threads::IOBoundExecutor(), kScannersBesideTheCaller, folders.size(),
                                        [&](std::size_t inIndex) { ReadOrClearUp(folders[inIndex]); });
}

void Sandboxes::ReadOrClearUp(const std::string& inFolder)
{
    try {
        if (SessionDeletion::ClearUpLeftover(inFolder)) return;
    } catch (const std::exception& exception) {
        return LogReadException(inFolder, exception);
    }
    ReadSandbox(inFolder);
}

void Sandboxes::ReadSandbox(const std::string& inFolder)
{
    try {
        if (!IO::IsLiveSessionFolder(inFolder)) return;
        dto::Session session;
        IO::RepoPtr repo;
        if (!IO::ReadSessionRepo(inFolder, repo, session)) return;
        // The handle goes at once, before anybody can ask for the session: thousands may lie here that nobody asks for.
        repo = nullptr;
        AddSandbox(Sandbox::Create(inFolder, session, {}));
    } catch (const std::exception& exception) {
        LogReadException(inFolder, exception);
    }
}

void Sandboxes::AddSandbox(const ImmutableString& inKey, const SandboxPtr& inSandbox)
{
    const ScopedLock lock(mMutex);
    mSandboxes.insert_or_assign(inKey, inSandbox);
}

SandboxPtr Sandboxes::AddSandbox(const SandboxPtr& inSandbox)
{
    const ScopedLock lock(mMutex);
    const auto [entry, added] = mSandboxes.emplace(inSandbox->GetLocalSessionID(), inSandbox);
    if (added) mSandboxes.emplace(inSandbox->ProductionID(), inSandbox);
    return entry->second;
}

void Sandboxes::ClearSandbox(const ImmutableString& inKey)
{
    SandboxPtr dropped;
    const ScopedLock lock(mMutex);
    const auto found = mSandboxes.find(inKey);
    if (found == mSandboxes.end()) return;
    dropped = std::move(found->second);
    mSandboxes.erase(found);
}

SandboxPtr Sandboxes::FindSandbox(const ImmutableString& inID) const
{
    const ScopedLock lock(mMutex);
    const auto found = mSandboxes.find(inID);
    return found == mSandboxes.end() ? nullptr : found->second;
}

Sandboxes::Map Sandboxes::GetSessionSandboxes() const
{
    const ScopedLock lock(mMutex);
    return mSandboxes;
}

std::shared_ptr<AutosaveDiskMonitor> Sandboxes::DiskMonitor()
{
    const ScopedLock lock(mMutex);
    if (!mDiskMonitor) {
        const auto list = [weak = weak_from_this()] {
            const auto self = weak.lock();
            return self ? self->PlacesToWatch() : std::vector<AutosaveDiskMonitor::Place>();
        };
        const auto settle = [weak = weak_from_this()](const AutosaveDiskMonitor::Place& inPlace) {
            const auto self = weak.lock();
            const SandboxPtr sandbox = self ? self->FindSandbox(inPlace.mSessionID) : nullptr;
            if (sandbox) sandbox->SettleFailedWrites(inPlace.mFailedWrites);
        };
        mDiskMonitor = AutosaveDiskMonitor::Create({list, settle});
    }
    return mDiskMonitor;
}

std::vector<AutosaveDiskMonitor::Place> Sandboxes::PlacesToWatch() const
{
    std::vector<AutosaveDiskMonitor::Place> places;
    for (const auto& [id, sandbox] : GetSessionSandboxes()) {
        if (sandbox->GetLocalSessionID() != id) continue;
        const std::uint32_t failed = sandbox->FailedWrites();
        const bool isRope = sandbox->IsRope();
        if (failed != 0 || isRope)
            places.push_back({id, isRope ? sandbox->GetRopeFile() : sandbox->GetFolder(), failed});
    }
    return places;
}

void Sandboxes::CheckAutosaveDiskSpace()
{
    DiskMonitor()->Queue();
}

bool Sandboxes::VolumeIsLowOnAutosaveSpace(const std::string& inPath)
{
    return DiskMonitor()->VolumeIsLowOnAutosaveSpace(inPath);
}

SandboxPtr Sandboxes::FindOrRead(const ImmutableString& inSessionID)
{
    if (auto sandbox = FindSandbox(inSessionID)) return sandbox;
    for (const SessionKind kind : {SessionKind::LocalOnly, SessionKind::Synchronized}) {
        ReadSandbox(Folder::SessionFolder(inSessionID, kind));
    }
    return FindSandbox(inSessionID);
}

int Sandboxes::UpgradeRepository(const ImmutableString& inSessionID)
{
    return TurnRepository(
        FindOrRead(inSessionID), {ImmutableString(IO::kDataModelVersion), ImmutableString(IO::kSuiteClientVersion)},
        [](const IO::RepoPtr& inRepo) { return backend::UpgradeRepositoryInPlace(inRepo, IO::MaxBlobSize()); });
}

int Sandboxes::DowngradeRepository(const ImmutableString& inSessionID)
{
    return TurnRepository(FindOrRead(inSessionID), IO::kVersionRecord_1_0_1, [](const IO::RepoPtr& inRepo) {
        return backend::DowngradeRepositoryInPlace(inRepo, backend::kReadWrite);
    });
}

}  // namespace VantryLocalHub::GitBox

#include "Inc/Model/TemplateShop.h"

#include <exception>
#include <set>

#include "Inc/Model/CopySources.h"
#include "Inc/Model/GitBoxFolders.h"
#include "Inc/Model/GitBoxIOZip.h"
#include "Inc/Model/GitBoxSandboxes.h"
#include "Inc/Model/SessionDeletion.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/WorkSharing.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxcore::filesupport::BaseName;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
using noxcore::logging::LogError;
using noxcore::logging::LogInformation;
using noxcore::threads::ScopedLock;
using noxnet::kHTTPStatus_Created;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_NotFound;
using noxnet::kHTTPStatus_OK;

namespace {

constexpr std::string_view kExtension = ".lyra2template";
constexpr std::size_t kWorkersBesideTheCaller = 3;

std::vector<std::string> ListTemplateFiles()
{
    const std::string folder = Folder::Templates();
    std::vector<noxcore::filesupport::DirectoryEntry> entries;
    std::vector<std::string> files;
    if (!Files().DirectoryExists(folder) || !Files().ListDirectory(folder, entries)) return files;
    for (const auto& entry : entries) {
        const bool isTemplate = entry.mName.ends_with(kExtension) && entry.mName.size() > kExtension.size();
        if (isTemplate && !entry.mIsDirectory) files.push_back(Join(folder, entry.mName));
    }
    return files;
}

std::string FolderOfTemplate(const std::string& inFile)
{
    const std::string_view name = BaseName(inFile);
    const std::string title(name.substr(0, name.size() - kExtension.size()));
    return Join(Folder::Extracted(), title + "." + std::string(IO::kFolderSuffix));
}

/// Null when it cannot be read, or says nothing of whom it is for.
SandboxPtr ReadTemplate(const std::string& inFolder)
{
    Sandbox::Handles handles;
    dto::Session session;
    if (!IO::IsLiveSessionFolder(inFolder) || !IO::ReadSessionRepo(inFolder, handles.mRepo, session)) return nullptr;
    SandboxPtr sandbox = Sandbox::Create(inFolder, session, std::move(handles), Sandbox::IDs::OfExtractedTemplate);
    dto::RawArray recipients;
    const bool isOffered = sandbox->GetTemplateRecipients(recipients) == kHTTPStatus_OK;
    sandbox->ReleaseDB();  // many may lie here that nobody asks for
    return isOffered ? sandbox : nullptr;
}

}  // namespace

std::string TemplateShop::ExtractTemplateFile(const std::string& inFile)
{
    std::string folder = FolderOfTemplate(inFile);
    if (Files().DirectoryExists(folder)) {
        LogInformation("GitBox", "TemplateShop: Will not replace existing extracted template",
                       {{"src", inFile}, {"dest", folder}});
        return folder;
    }
    if (!Files().EnsureDirectoryExists(Folder::Extracted()) || !IO::ExtractZipFile(inFile, folder)) return {};
    // One of a later program stays, lest each look into the folder extracts it again.
    IO::VersionRecord version;
    if (IO::ReadVersion(folder, version) && IO::IsSupportedVersion(version) && !IO::HasReadableContent(folder)) {
        SessionDeletion::MarkAndFinish(folder);
        return {};
    }
    LogInformation("GitBox", "TemplateShop: Extracted template", {{"src", inFile}, {"dest", folder}});
    return folder;
}

void TemplateShop::OfferTemplate(const std::string& inFolder)
{
    {
        const ScopedLock lock(mTemplateMutex);
        if (mTemplates.contains(inFolder)) return;
    }
    SandboxPtr sandbox = ReadTemplate(inFolder);
    if (!sandbox) return;
    const ScopedLock lock(mTemplateMutex);
    mTemplates.emplace(inFolder, std::move(sandbox));
}

void TemplateShop::ExtractTemplates()
{
    // Of two at once the one would throw out what the other has just brought in.
    const auto mutex = Sandboxes::Instance()->MutexOfPath(Folder::Extracted());
    const ScopedLock path(*mutex);
    for (const std::string& folder : {Folder::Templates(), Folder::Extracted()})
        noxcore::filesupport::Dir::RemoveStaleTemporaries(folder);
    const std::vector<std::string> files = ListTemplateFiles();
    std::vector<std::string> folders(files.size());
    noxcore::threads::ShareSeparateWork(noxcore::threads::IOBoundExecutor(), kWorkersBesideTheCaller, files.size(),
                                        [&](std::size_t inIndex) {
                                            folders[inIndex] = ExtractTemplateFile(files[inIndex]);
                                            if (!folders[inIndex].empty()) OfferTemplate(folders[inIndex]);
                                        });
    const std::set<std::string> current(folders.begin(), folders.end());
    std::vector<SandboxPtr> stale;  // closed after the mutex was given back
    const ScopedLock lock(mTemplateMutex);
    for (auto entry = mTemplates.begin(); entry != mTemplates.end();) {
        if (current.contains(entry->first)) {
            ++entry;
            continue;
        }
        stale.push_back(std::move(entry->second));
        entry = mTemplates.erase(entry);
    }
}

TemplateShop::TemplateMap TemplateShop::GetTemplateMap()
{
    TemplateMap templates;
    const ScopedLock lock(mTemplateMutex);
    for (const auto& [folder, sandbox] : mTemplates)
        templates.emplace(sandbox->GetLocalSessionID(), sandbox);
    return templates;
}

SandboxPtr TemplateShop::FindTemplate(const ImmutableString& inID)
{
    ExtractTemplates();
    for (const auto& [id, sandbox] : GetTemplateMap()) {
        if (id == inID || sandbox->ProductionID() == inID) return sandbox;
    }
    return nullptr;
}

void TemplateShop::ReleaseUnusedTemplates(std::int64_t inCutOffTicks)
{
    for (const auto& [id, sandbox] : GetTemplateMap()) {
        if (sandbox->LastUsed() < inCutOffTicks) sandbox->ReleaseDB();
    }
}

void TemplateShop::ClearTemplates()
{
    std::map<std::string, SandboxPtr> dropped;  // closed after the mutex was given back
    const ScopedLock lock(mTemplateMutex);
    dropped.swap(mTemplates);
}

std::vector<dto::Session> TemplateShop::GetTemplates()
{
    ExtractTemplates();
    std::vector<dto::Session> templates;
    for (const auto& [id, sandbox] : GetTemplateMap()) {
        dto::Session session;
        if (sandbox->GetSessionInPassing(session) == kHTTPStatus_OK) templates.push_back(std::move(session));
    }
    return templates;
}

int TemplateShop::GetTemplate(const ImmutableString& inID, dto::Session& outTemplate)
{
    const SandboxPtr sandbox = FindTemplate(inID);
    return sandbox ? sandbox->GetSession(outTemplate) : kHTTPStatus_NotFound;
}

int TemplateShop::GetTemplateRecipients(const ImmutableString& inID, dto::RawArray& outRecipients)
{
    SandboxPtr sandbox = Sandboxes::Instance()->FindSandbox(inID);
    if (!sandbox) sandbox = FindTemplate(inID);
    return sandbox ? sandbox->GetTemplateRecipients(outRecipients) : kHTTPStatus_NotFound;
}

int TemplateShop::CreateTemplate(const ImmutableString& inSessionID, const dto::ProductionProperties& inProperties,
                                 const dto::RawArray& inRecipients, dto::Session& outTemplate)
{
    const SandboxPtr sandbox = Sandboxes::Instance()->FindSandbox(inSessionID);
    if (!sandbox) return kHTTPStatus_NotFound;
    IO::CopySource source;
    IO::LocatorRows locators;
    const int status = OpenCopySource(*sandbox, {}, source, locators);
    if (status != kHTTPStatus_OK) return status;
    const std::string file =
        Join(Folder::Templates(), noxcore::utility::Guid::CreateUnique().Text() + std::string(kExtension));
    const auto note = [&](Lyra2Db::Db& inDb) { return Lyra2Db::WriteTemplateRecipients(inDb, inRecipients.Text()); };
    int made = kHTTPStatus_InternalServerError;
    try {
        if (IO::TakeSnapshot(source, locators, inProperties.mProperties, file, note))
            made = OfferMade(file, outTemplate);
    } catch (const std::exception& exception) {
        LogError("GitBox", "CreateTemplate: Caught exception", {{"file", file}, {"exception", exception.what()}});
    }
    // What is answered as failed is not offered to anybody.
    if (made != kHTTPStatus_Created) RemoveTemplate(file);
    return made;
}

int TemplateShop::OfferMade(const std::string& inFile, dto::Session& outTemplate)
{
    ExtractTemplates();
    for (const auto& [id, made] : GetTemplateMap()) {
        if (made->GetFolder() != FolderOfTemplate(inFile)) continue;
        const int read = made->GetSession(outTemplate);
        return read == kHTTPStatus_OK ? kHTTPStatus_Created : read;
    }
    return kHTTPStatus_InternalServerError;
}

void TemplateShop::RemoveTemplate(const std::string& inFile)
{
    const auto mutex = Sandboxes::Instance()->MutexOfPath(Folder::Extracted());
    const ScopedLock path(*mutex);
    if (Files().FileExists(inFile) && !Files().DeleteFile(inFile))
        LogError("GitBox", "Cannot remove a template that could not be made", {{"file", inFile}});
    const std::string folder = FolderOfTemplate(inFile);
    SandboxPtr dropped;
    {
        const ScopedLock lock(mTemplateMutex);
        if (const auto found = mTemplates.find(folder); found != mTemplates.end()) {
            dropped = std::move(found->second);
            mTemplates.erase(found);
        }
    }
    if (dropped) {
        dropped->NoteDeleted();
        dropped->ReleaseDB();
    }
    if (Files().DirectoryExists(folder)) SessionDeletion::MarkAndFinish(folder);
}

}  // namespace VantryLocalHub::GitBox

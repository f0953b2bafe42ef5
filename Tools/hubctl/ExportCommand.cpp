#include "Tools/hubctl/ExportCommand.h"

#include "Client/VYClient/LocalHub.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxstorage/GitExport.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"

namespace hubctl {

namespace git = noxstorage::git;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;

namespace {

constexpr std::string_view kSessionSuffix = ".lyra2";

/// libgit2 is set up while this lives.
struct Library
{
    const bool mStarted = git::Startup();
    ~Library()
    {
        if (mStarted) git::Shutdown();
    }
};

/// The repository of a session: in the folder given, or in that of the id below any folder of the suite's data.
std::string FindRepository(const std::string& inSession)
{
    const std::string given = Join(inSession, "git");
    if (inSession.find('/') != std::string::npos) return Files().DirectoryExists(given) ? given : std::string();
    const std::string data = VYCL::LocalHub::GetBaseSuiteDataFolder();
    std::vector<noxcore::filesupport::DirectoryEntry> entries;
    Files().ListDirectory(data, entries);
    for (const auto& entry : entries) {
        const std::string folder = Join(Join(data, entry.mName), inSession + std::string(kSessionSuffix));
        if (entry.mIsDirectory && Files().DirectoryExists(Join(folder, "git"))) return Join(folder, "git");
    }
    return {};
}

}  // namespace

bool RunExport(const ExportArguments& inArguments, ProgressBar& ioProgress, std::string& outError)
{
    const std::string folder = FindRepository(inArguments.mSession);
    if (folder.empty()) {
        outError = "there is no session \"" + inArguments.mSession + "\"";
        return false;
    }
    const Library library;
    const git::RepoPtr repo = git::SQLite3OdbBackend::OpenRepository(folder, git::SQLite3OdbBackend::kReadOnly);
    if (repo == nullptr) {
        outError = "the session's repository cannot be opened: " + folder;
        return false;
    }
    const bool done = git::ExportToGit(repo, inArguments.mFolder, [&](std::size_t inDone, std::size_t inTotal) {
        ioProgress.Show("objects", inDone, inTotal);
    });
    ioProgress.Clear();
    if (!done)
        outError = "the export failed; is \"" + inArguments.mFolder + "\" an empty folder? (--verbose tells why)";
    return done;
}

}  // namespace hubctl

#include "Platform/noxstorage/SQLite3OdbBackend.h"

#include <sqlite3.h>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbRepository.h"
#include "Platform/noxstorage/OdbStore.h"
#include "Platform/noxstorage/SQLite.h"

namespace noxstorage::git::SQLite3OdbBackend {

namespace fs = noxcore::filesupport;

namespace {

OpenResult ResultOf(int inCode)
{
    if (inCode == SQLITE_EMPTY) return OpenResult::Absent;
    return sqlite::IsDamage(inCode) ? OpenResult::Damaged : OpenResult::Refused;
}

OpenResult Open(const odb::Store::Options& inOptions, RepoPtr& outRepo)
{
    int code = SQLITE_OK;
    outRepo = odb::OpenRepo(inOptions, code);
    if (outRepo != nullptr) return OpenResult::Opened;
    return code == SQLITE_OK ? OpenResult::Refused : ResultOf(code);
}

bool PutDamagedFileAside(const std::string& inFile)
{
    std::string aside;
    if (!sqlite::PutAside(inFile, aside)) return false;
    noxcore::logging::LogError("noxstorage", "Put a damaged object database aside", {{"file", inFile}, {"as", aside}});
    return true;
}

}  // namespace

bool InitRepository(const std::string& inFolder, const std::vector<NamedPayload>& inPayloads, const Signature& inAuthor,
                    const Signature& inCommitter, std::string_view inMessage, std::size_t inPageSize,
                    std::size_t inMaxBlobSize, unsigned, RepoPtr& outRepo, CommitPtr& outCommit)
{
    outRepo = nullptr;
    outCommit = nullptr;
    if (!fs::Files().EnsureDirectoryExists(inFolder)) {
        LogGitError(SQLITE_CANTOPEN, inFolder, kErrorClassOdb, "cannot make the folder");
        return false;
    }
    const odb::Store::Options options{inFolder, fs::Join(inFolder, kFileName), true, true, inPageSize, inMaxBlobSize};
    RepoPtr repo;
    OpenResult result = Open(options, repo);
    if (result == OpenResult::Damaged && PutDamagedFileAside(options.mFile)) result = Open(options, repo);
    if (result != OpenResult::Opened) return false;
    CommitPtr commit = odb::WriteFirstCommit(repo, inPayloads, inAuthor, inCommitter, inMessage);
    if (commit == nullptr) return false;
    if (!odb::SyncFolder(inFolder) || !odb::SyncFolder(std::string(fs::ParentFolder(inFolder)))) return false;
    outRepo = std::move(repo);
    outCommit = std::move(commit);
    return true;
}

OpenResult TryOpenRepository(const std::string& inFolder, unsigned inFlag, RepoPtr& outRepo)
{
    outRepo = nullptr;
    odb::Store::Options options;
    options.mFolder = inFolder;
    options.mFile = fs::Join(inFolder, kFileName);
    options.mWritable = (inFlag & kReadWrite) != 0;
    if (!fs::Files().FileExists(options.mFile)) return OpenResult::Absent;
    return Open(options, outRepo);
}

RepoPtr OpenRepository(const std::string& inFolder, unsigned inFlag)
{
    RepoPtr repo;
    if (TryOpenRepository(inFolder, inFlag, repo) == OpenResult::Absent)
        LogGitError(kErrorNotFound, inFolder, kErrorClassOdb, "no repository here");
    return repo;
}

bool UpgradeRepositoryInPlace(const RepoPtr& inRepo, std::size_t inMaxBlobSize)
{
    return inRepo != nullptr && inRepo->GetStore().Rewrite(inMaxBlobSize);
}

bool DowngradeRepositoryInPlace(const RepoPtr& inRepo, unsigned)
{
    return inRepo != nullptr && inRepo->GetStore().Rewrite(0);
}

std::size_t GetMaxBlobSize(const RepoPtr& inRepo)
{
    return inRepo->GetStore().MaxBlobSize();
}

bool Checkpoint(const RepoPtr& inRepo)
{
    bool complete = false;
    return inRepo != nullptr && inRepo->GetStore().Checkpoint(complete) && complete;
}

}  // namespace noxstorage::git::SQLite3OdbBackend

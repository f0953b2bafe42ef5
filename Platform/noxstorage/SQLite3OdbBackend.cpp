#include "Platform/noxstorage/SQLite3OdbBackend.h"

#include <git2.h>
#include <sqlite3.h>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbLibgit2.h"
#include "Platform/noxstorage/OdbStore.h"
#include "Platform/noxstorage/SQLite.h"

namespace noxstorage::git::SQLite3OdbBackend {

namespace fs = noxcore::filesupport;

namespace {

RepoPtr MakeRepo(std::shared_ptr<odb::Store> inStore)
{
    git_repository* handle = odb::MakeLibgit2Repository(inStore);
    return handle != nullptr ? std::make_shared<Repo>(std::move(inStore), handle) : nullptr;
}

OpenResult ResultOf(int inCode)
{
    if (inCode == SQLITE_EMPTY) return OpenResult::Absent;
    return sqlite::IsDamage(inCode) ? OpenResult::Damaged : OpenResult::Refused;
}

OpenResult Open(const odb::Store::Options& inOptions, RepoPtr& outRepo)
{
    int code = SQLITE_OK;
    auto store = odb::Store::Open(inOptions, code);
    if (store == nullptr) {
        LogGitError(code, inOptions.mFile, kErrorClassOdb, sqlite3_errstr(code));
        return ResultOf(code);
    }
    outRepo = MakeRepo(std::move(store));
    return outRepo != nullptr ? OpenResult::Opened : OpenResult::Refused;
}

bool PutDamagedFileAside(const std::string& inFile)
{
    std::string aside;
    if (!sqlite::PutAside(inFile, aside)) return false;
    noxcore::logging::LogError("noxstorage", "Put a damaged object database aside", {{"file", inFile}, {"as", aside}});
    return true;
}

CommitPtr WriteFirstCommit(const RepoPtr& inRepo, const std::vector<NamedPayload>& inPayloads,
                           const Signature& inAuthor, const Signature& inCommitter, std::string_view inMessage)
{
    std::vector<NewTreeEntry> entries;
    entries.reserve(inPayloads.size());
    for (const NamedPayload& payload : inPayloads)
        entries.push_back({payload.mName, kModeBlob, WriteBlob(inRepo, payload.mPayload)});
    const Oid tree = WriteTree(inRepo, std::move(entries));
    if (tree.IsZero()) return nullptr;
    Oid commit;
    {
        const auto scope = CommitScope::Begin(inRepo);
        if (scope == nullptr) return nullptr;
        commit = scope->AddCommit(tree, Oid(), inAuthor, inCommitter, inMessage);
        if (commit.IsZero() || !scope->Commit()) return nullptr;
    }
    return GetCommit(inRepo, commit);
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
    CommitPtr commit = WriteFirstCommit(repo, inPayloads, inAuthor, inCommitter, inMessage);
    if (commit == nullptr) return false;
    if (!fs::Files().SyncDirectory(inFolder) || !fs::Files().SyncDirectory(std::string(fs::ParentFolder(inFolder)))) {
        LogGitError(SQLITE_IOERR_DIR_FSYNC, inFolder, kErrorClassOdb, "cannot sync the folder");
        return false;
    }
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

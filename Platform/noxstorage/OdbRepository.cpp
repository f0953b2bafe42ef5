#include "Platform/noxstorage/OdbRepository.h"

#include <sqlite3.h>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbLibgit2.h"

namespace noxstorage::git::odb {

RepoPtr OpenRepo(const Store::Options& inOptions, int& outCode)
{
    auto store = Store::Open(inOptions, outCode);
    if (store == nullptr) {
        LogGitError(outCode, inOptions.mFile, kErrorClassOdb, sqlite3_errstr(outCode));
        return nullptr;
    }
    git_repository* handle = MakeLibgit2Repository(store);
    return handle != nullptr ? std::make_shared<Repo>(std::move(store), handle) : nullptr;
}

CommitPtr WriteFirstCommit(const RepoPtr& inRepo, const std::vector<SQLite3OdbBackend::NamedPayload>& inPayloads,
                           const Signature& inAuthor, const Signature& inCommitter, std::string_view inMessage)
{
    std::vector<NewTreeEntry> entries;
    entries.reserve(inPayloads.size());
    for (const SQLite3OdbBackend::NamedPayload& payload : inPayloads)
        entries.push_back({payload.mName, kModeBlob, WriteBlob(inRepo, payload.mPayload)});
    const Oid tree = WriteTree(inRepo, std::move(entries));
    if (tree.IsZero()) return nullptr;
    Oid commit;
    {
        const auto scope = SQLite3OdbBackend::CommitScope::Begin(inRepo);
        if (scope == nullptr) return nullptr;
        commit = scope->AddCommit(tree, Oid(), inAuthor, inCommitter, inMessage);
        if (commit.IsZero() || !scope->Commit()) return nullptr;
    }
    return GetCommit(inRepo, commit);
}

bool SyncFolder(const std::string& inFolder)
{
    if (noxcore::filesupport::Files().SyncDirectory(inFolder)) return true;
    LogGitError(SQLITE_IOERR_DIR_FSYNC, inFolder, kErrorClassOdb, "cannot sync the folder");
    return false;
}

}  // namespace noxstorage::git::odb

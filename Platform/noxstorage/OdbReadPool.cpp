#include "Platform/noxstorage/OdbReadPool.h"

#include <sqlite3.h>

#include <algorithm>

#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbStore.h"

namespace noxstorage::git::odb {

using noxcore::threads::ScopedLock;

namespace {

constexpr std::size_t kMostIdle = 16;
constexpr const char* kReaderSettings = "PRAGMA cache_size=-4096; PRAGMA mmap_size=1073741824; PRAGMA query_only=1";

struct ThreadScope
{
    const ReadPool* mPool = nullptr;
    std::shared_ptr<Connection> mConnection;
    unsigned mDepth = 0;
};

std::vector<ThreadScope>& ThreadScopes()
{
    thread_local std::vector<ThreadScope> scopes;
    return scopes;
}

ThreadScope* FindScope(const ReadPool* inPool)
{
    for (ThreadScope& scope : ThreadScopes())
        if (scope.mPool == inPool) return &scope;
    return nullptr;
}

}  // namespace

void ReadPool::OpenScope()
{
    if (ThreadScope* scope = FindScope(this)) {
        ++scope->mDepth;
        return;
    }
    // Without a connection the scope is only counted: each read then tries for itself and reports its failure.
    std::shared_ptr<Connection> connection = Acquire();
    if (connection != nullptr) connection->BeginScope();
    ThreadScopes().push_back({this, std::move(connection), 1});
}

void ReadPool::CloseScope()
{
    ThreadScope* scope = FindScope(this);
    if (scope == nullptr || --scope->mDepth != 0) return;
    std::shared_ptr<Connection> connection = std::move(scope->mConnection);
    std::erase_if(ThreadScopes(), [&](const ThreadScope& inScope) { return inScope.mPool == this; });
    if (connection == nullptr) return;
    connection->EndScope();
    Release(std::move(connection));
}

void ReadPool::RenewScope()
{
    const ThreadScope* scope = FindScope(this);
    if (scope == nullptr || scope->mConnection == nullptr) return;
    scope->mConnection->Run(Sql::Rollback);
    scope->mConnection->Run(Sql::Begin);
}

void ReadPool::Clear()
{
    const ScopedLock lock(mMutex);
    mIdle.clear();
}

std::shared_ptr<Connection> ReadPool::Acquire()
{
    {
        const ScopedLock lock(mMutex);
        if (!mIdle.empty()) {
            std::shared_ptr<Connection> connection = std::move(mIdle.back());
            mIdle.pop_back();
            return connection;
        }
    }
    auto connection = std::make_shared<Connection>();
    int code = connection->Open(mStore.mOptions.mFile, mStore.mVfs, mStore.mOptions.mWritable, false);
    if (code == SQLITE_OK) code = connection->Execute(kReaderSettings);
    connection->ForbidCheckpointOnClose();  // that is the writer's alone
    if (code == SQLITE_OK) return connection;
    LogGitError(code, mStore.mOptions.mFile, kErrorClassOdb, connection->ErrorMessage());
    return nullptr;
}

void ReadPool::Release(std::shared_ptr<Connection> inConnection)
{
    if (inConnection->InTransaction()) return;
    const ScopedLock lock(mMutex);
    if (mIdle.size() < kMostIdle) mIdle.push_back(std::move(inConnection));
}

ReadPool::Lease::Lease(ReadPool& inPool, bool inFresh) : mPool(inPool)
{
    const ThreadScope* scope = inFresh ? nullptr : FindScope(&inPool);
    mOfScope = scope != nullptr && scope->mConnection != nullptr;
    mConnection = mOfScope ? scope->mConnection : inPool.Acquire();
}

ReadPool::Lease::~Lease()
{
    if (!mOfScope && mConnection != nullptr) mPool.Release(std::move(mConnection));
}

}  // namespace noxstorage::git::odb

#include "Platform/noxstorage/OdbReadPool.h"

#include <sqlite3.h>

#include <algorithm>

#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbStore.h"

namespace noxstorage::git::odb {

using noxcore::threads::ScopedLock;

namespace {

constexpr std::size_t kMostIdle = 16;
constexpr std::size_t kMostIdleInBulk = 2;
constexpr const char* kBulkSettings = "PRAGMA cache_size=-1024; PRAGMA query_only=1";
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
    std::shared_ptr<Connection> connection = mStore.IsOneFile() ? nullptr : Acquire(true);
    if (connection != nullptr) connection->BeginScope(mStore.mWrites);
    ThreadScopes().push_back({this, std::move(connection), 1});
}

void ReadPool::CloseScope()
{
    ThreadScope* scope = FindScope(this);
    if (scope == nullptr || --scope->mDepth != 0) return;
    std::shared_ptr<Connection> connection = std::move(scope->mConnection);
    std::erase_if(ThreadScopes(), [&](const ThreadScope& inScope) { return inScope.mPool == this; });
    if (connection == nullptr) return;
    connection->EndScope(mStore.mOptions.mWritable);
    Release(std::move(connection));
}

void ReadPool::RenewScope()
{
    const ThreadScope* scope = FindScope(this);
    if (scope == nullptr || scope->mConnection == nullptr) return;
    scope->mConnection->EndTransaction();
    scope->mConnection->BeginScope(mStore.mWrites);
}

void ReadPool::Clear()
{
    const ScopedLock lock(mMutex);
    mIdle.clear();
    mIdleInBulk.clear();
}

void ReadPool::EndTransactions()
{
    const ScopedLock lock(mMutex);
    for (const std::shared_ptr<Connection>& connection : mIdle)
        connection->EndTransaction();
}

std::shared_ptr<Connection> ReadPool::Acquire(bool inForScope)
{
    std::shared_ptr<Connection> idle = TakeIdle(false);
    if (idle == nullptr) return OpenConnection(kReaderSettings);
    if (!inForScope) idle->EndTransaction();
    return idle;
}

std::shared_ptr<Connection> ReadPool::AcquireInBulk()
{
    std::shared_ptr<Connection> idle = TakeIdle(true);
    return idle != nullptr ? idle : OpenConnection(kBulkSettings);
}

std::shared_ptr<Connection> ReadPool::TakeIdle(bool inInBulk)
{
    const ScopedLock lock(mMutex);
    auto& idle = inInBulk ? mIdleInBulk : mIdle;
    if (idle.empty()) return nullptr;
    std::shared_ptr<Connection> connection = std::move(idle.back());
    idle.pop_back();
    return connection;
}

std::shared_ptr<Connection> ReadPool::OpenConnection(const char* inSettings)
{
    auto connection = std::make_shared<Connection>();
    int code = connection->Open(mStore.mOptions.mFile, mStore.mVfs, mStore.mOptions.mWritable, false);
    if (code == SQLITE_OK) code = connection->Execute(inSettings);
    connection->ForbidCheckpointOnClose();  // that is the writer's alone
    if (code == SQLITE_OK) return connection;
    LogGitError(code, mStore.mOptions.mFile, kErrorClassOdb, connection->ErrorMessage());
    return nullptr;
}

void ReadPool::Release(std::shared_ptr<Connection> inConnection, bool inInBulk)
{
    const ScopedLock lock(mMutex);
    auto& idle = inInBulk ? mIdleInBulk : mIdle;
    if (idle.size() < (inInBulk ? kMostIdleInBulk : kMostIdle)) idle.push_back(std::move(inConnection));
}

Connection* ReadPool::LockShared()
{
    mStore.mSharedConnection.Lock();
    Connection& connection = mStore.mWriterConnection;
    return connection.Handle() != nullptr ? &connection : nullptr;
}

void ReadPool::UnlockShared()
{
    mStore.mSharedConnection.Unlock();
}

ReadPool::Lease::Lease(ReadPool& inPool, Use inUse) : mPool(inPool), mUse(inUse)
{
    if (mPool.mStore.IsOneFile()) {
        mConnection = mPool.LockShared();
        return;
    }
    const ThreadScope* scope = mUse == Use::OfThread ? FindScope(&inPool) : nullptr;
    mOfScope = scope != nullptr && scope->mConnection != nullptr;
    mOwn = mOfScope ? scope->mConnection : mUse == Use::InBulk ? inPool.AcquireInBulk() : inPool.Acquire(false);
    mConnection = mOwn.get();
}

ReadPool::Lease::~Lease()
{
    if (mPool.mStore.IsOneFile())
        mPool.UnlockShared();
    else if (!mOfScope && mOwn != nullptr)
        mPool.Release(std::move(mOwn), mUse == Use::InBulk);
}

}  // namespace noxstorage::git::odb

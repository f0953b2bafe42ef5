#pragma once

#include <memory>
#include <vector>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxstorage/OdbConnection.h"

namespace noxstorage::git::odb {

class Store;

/// The reading connections of a store: each reader has one for itself while it reads.
///
/// A thread may open a scope; all its reads use the scope's connection then, in one read transaction. A store that is
/// the file's writer keeps that transaction open for the next scope as long as nothing is written: EndTransactions
/// comes before each write and checkpoint, which would be held up by an old one.
/// Of a single-file repository there is one connection, the writer's: a lease locks it, and a scope is only counted.
/// Threading: any thread. mMutex guards the list of idle connections (rank None).
class ReadPool
{
public:
    explicit ReadPool(Store& inStore) : mStore(inStore) {}

    void OpenScope();
    void CloseScope();
    /// Lets this thread's scope, if there is one, see what was committed since.
    void RenewScope();
    /// Closes the idle connections.
    void Clear();
    /// Ends the read transactions that idle connections keep.
    void EndTransactions();

    enum class Use
    {
        OfThread,  ///< the scope's, where the thread has one
        Fresh,     ///< never the scope's
        InBulk     ///< the same, without a view of the file in memory: who reads all of it would seem to have it all
    };
    /// A connection for a scope of code. Null inside when none could be opened (logged).
    class Lease
    {
    public:
        explicit Lease(ReadPool& inPool, Use inUse = Use::OfThread);
        ~Lease();
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;

        [[nodiscard]] Connection* Get() const { return mConnection; }
        [[nodiscard]] bool OfScope() const { return mOfScope; }

    private:
        ReadPool& mPool;
        std::shared_ptr<Connection> mOwn;
        Connection* mConnection = nullptr;
        const Use mUse;
        bool mOfScope = false;
    };

private:
    /// Outside a scope each statement shows what was committed last.
    std::shared_ptr<Connection> Acquire(bool inForScope);
    std::shared_ptr<Connection> AcquireInBulk();
    std::shared_ptr<Connection> TakeIdle(bool inInBulk);
    std::shared_ptr<Connection> OpenConnection(const char* inSettings);
    Connection* LockShared() NO_THREAD_SAFETY_ANALYSIS;
    void UnlockShared() NO_THREAD_SAFETY_ANALYSIS;
    void Release(std::shared_ptr<Connection> inConnection, bool inInBulk = false);

    Store& mStore;
    noxcore::threads::RecursiveMutex mMutex;
    std::vector<std::shared_ptr<Connection>> mIdle GUARDED_BY(mMutex);
    std::vector<std::shared_ptr<Connection>> mIdleInBulk GUARDED_BY(mMutex);
};

}  // namespace noxstorage::git::odb

#pragma once

#include <memory>
#include <vector>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxstorage/OdbConnection.h"

namespace noxstorage::git::odb {

class Store;

/// The reading connections of a store: each reader has one for itself while it reads.
///
/// A thread may open a scope; all its reads use the scope's connection then, in one read transaction.
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

    /// A connection for a scope of code. Null inside when none could be opened (logged).
    class Lease
    {
    public:
        explicit Lease(ReadPool& inPool, bool inFresh = false);
        ~Lease();
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;

        [[nodiscard]] Connection* Get() const { return mConnection.get(); }
        [[nodiscard]] bool OfScope() const { return mOfScope; }

    private:
        ReadPool& mPool;
        std::shared_ptr<Connection> mConnection;
        bool mOfScope = false;
    };

private:
    std::shared_ptr<Connection> Acquire();
    void Release(std::shared_ptr<Connection> inConnection);

    Store& mStore;
    noxcore::threads::RecursiveMutex mMutex;
    std::vector<std::shared_ptr<Connection>> mIdle GUARDED_BY(mMutex);
};

}  // namespace noxstorage::git::odb

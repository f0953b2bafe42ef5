#pragma once

#include <atomic>
#include <unordered_set>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxstorage/GitOid.h"

namespace noxstorage::git::odb {

/// Objects whose rows were found to hold something else than their ids promise. To say that such a one is stored
/// already would lose what somebody gives anew.
///
/// Threading: any thread; the mutex (rank None) guards the set for one look-up. None is asked for while there are none.
class DamagedObjects
{
public:
    void Add(const Oid& inOid)
    {
        const noxcore::threads::ScopedLock lock(mMutex);
        mOids.insert(inOid);
        mAny = true;
    }
    void Remove(const Oid& inOid)
    {
        const noxcore::threads::ScopedLock lock(mMutex);
        mOids.erase(inOid);
        mAny = !mOids.empty();
    }
    [[nodiscard]] bool Contains(const Oid& inOid) const
    {
        if (!mAny) return false;
        const noxcore::threads::ScopedLock lock(mMutex);
        return mOids.contains(inOid);
    }

private:
    mutable noxcore::threads::RecursiveMutex mMutex;
    std::unordered_set<Oid> mOids GUARDED_BY(mMutex);
    std::atomic<bool> mAny{false};
};

}  // namespace noxstorage::git::odb

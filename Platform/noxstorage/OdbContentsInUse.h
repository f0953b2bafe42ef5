#pragma once

#include <unordered_map>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxstorage/GitObjects.h"

namespace noxstorage::git::odb {

/// Large contents that somebody holds just now: whoever asks for one of them shares it, so that many readers of a
/// large payload cost one copy.
///
/// Threading: any thread; the mutex (rank None) guards the table for one look-up.
class ContentsInUse
{
public:
    static constexpr std::size_t kSmallest = 64 * 1024;  ///< bytes; a smaller one is read faster than looked up

    /// Null when nobody holds it.
    Bytes Find(const Oid& inOid) const;
    /// The content to use: that which is held already, else the one given, which is known from now on.
    Bytes Share(const Oid& inOid, Bytes inContent);

private:
    mutable noxcore::threads::RecursiveMutex mMutex;
    std::unordered_map<Oid, std::weak_ptr<const std::string>> mContents GUARDED_BY(mMutex);
    std::size_t mSweepAt GUARDED_BY(mMutex) = 64;  ///< entries; then those that nobody holds go
};

}  // namespace noxstorage::git::odb

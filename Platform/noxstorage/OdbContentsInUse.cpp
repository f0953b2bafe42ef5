#include "Platform/noxstorage/OdbContentsInUse.h"

#include <algorithm>

namespace noxstorage::git::odb {

using noxcore::threads::ScopedLock;

Bytes ContentsInUse::Find(const Oid& inOid) const
{
    const ScopedLock lock(mMutex);
    const auto found = mContents.find(inOid);
    return found != mContents.end() ? found->second.lock() : nullptr;
}

Bytes ContentsInUse::Share(const Oid& inOid, Bytes inContent)
{
    const ScopedLock lock(mMutex);
    std::weak_ptr<const std::string>& entry = mContents[inOid];
    if (Bytes held = entry.lock()) return held;
    entry = inContent;
    if (mContents.size() > mSweepAt) {
        std::erase_if(mContents, [](const auto& inEntry) { return inEntry.second.expired(); });
        mSweepAt = std::max<std::size_t>(64, 2 * mContents.size());
    }
    return inContent;
}

}  // namespace noxstorage::git::odb

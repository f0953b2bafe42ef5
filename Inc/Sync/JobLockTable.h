#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Inc/Sync/SyncRecords.h"
#include "Platform/noxcore/RecursiveMutex.h"

namespace VantryLocalHub {

/// Who may move which session at present: at most one holder a session and category.
///
/// A lock is held by whoever keeps the shared pointer, and given back by the last of them.
/// Threading: any thread. mMutex guards the table (rank JobLockTable, the engine's last).
class JobLockTable : public std::enable_shared_from_this<JobLockTable>
{
public:
    struct Holder
    {
        Guid mJobID;
        std::string mRequester;
    };

    /// The current hub's.
    static std::shared_ptr<JobLockTable> Instance();

    /// False while the session's lock of that category is held; outLock keeps its value then.
    bool Acquire(const ImmutableString& inSessionID, JobCategory inCategory, const Guid& inJobID,
                 std::string_view inRequester, std::shared_ptr<JobLock>& outLock);
    [[nodiscard]] std::vector<Holder> Holders() const;

private:
    friend class JobControlJobLock;
    using Key = std::pair<ImmutableString, JobCategory>;

    void Release(const Key& inKey);

    mutable noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::JobLockTable};
    std::map<Key, Holder> mHolders GUARDED_BY(mMutex);  // session and category -> who holds them
};

}  // namespace VantryLocalHub

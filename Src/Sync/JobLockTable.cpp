#include "Inc/Sync/JobLockTable.h"

#include "Platform/noxcore/HubContext.h"

namespace VantryLocalHub {

using noxcore::threads::ScopedLock;

class JobControlJobLock final : public JobLock
{
public:
    JobControlJobLock(std::shared_ptr<JobLockTable> inTable, JobLockTable::Key inKey, const Guid& inJobID)
        : mTable(std::move(inTable)), mKey(std::move(inKey)), mJobID(inJobID)
    {
    }
    ~JobControlJobLock() override { mTable->Release(mKey); }
    JobControlJobLock(const JobControlJobLock&) = delete;
    JobControlJobLock& operator=(const JobControlJobLock&) = delete;

    [[nodiscard]] const Guid& JobID() const override { return mJobID; }

private:
    const std::shared_ptr<JobLockTable> mTable;
    const JobLockTable::Key mKey;
    const Guid mJobID;
};

std::shared_ptr<JobLockTable> JobLockTable::Instance()
{
    return noxcore::HubContext::Current()->GetOrCreateInstance<JobLockTable>();
}

bool JobLockTable::Acquire(const ImmutableString& inSessionID, JobCategory inCategory, const Guid& inJobID,
                           std::string_view inRequester, std::shared_ptr<JobLock>& outLock)
{
    const Key key(inSessionID, inCategory);
    {
        const ScopedLock lock(mMutex);
        if (!mHolders.try_emplace(key, Holder{inJobID, std::string(inRequester)}).second) return false;
    }
    // Outside the mutex: the lock that stood in outLock may be given back here.
    outLock = std::make_shared<JobControlJobLock>(shared_from_this(), key, inJobID);
    return true;
}

std::vector<JobLockTable::Holder> JobLockTable::Holders() const
{
    std::vector<Holder> holders;
    const ScopedLock lock(mMutex);
    holders.reserve(mHolders.size());
    for (const auto& [key, holder] : mHolders)
        holders.push_back(holder);
    return holders;
}

void JobLockTable::Release(const Key& inKey)
{
    const ScopedLock lock(mMutex);
    mHolders.erase(inKey);
}

}  // namespace VantryLocalHub

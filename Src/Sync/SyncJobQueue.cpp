#include "Inc/Sync/SyncJobQueue.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace VantryLocalHub {

namespace {

bool ComesLater(const SyncJobPtr& inLeft, const SyncJobPtr& inRight)
{
    const int left = inLeft->Params().mPriority;
    const int right = inRight->Params().mPriority;
    return left != right ? left < right : inLeft->Sequence() > inRight->Sequence();
}

}  // namespace

void SyncJobQueue::Add(SyncJobPtr inJob)
{
    mHeap.push_back(std::move(inJob));
    std::push_heap(mHeap.begin(), mHeap.end(), ComesLater);
}

SyncJobPtr SyncJobQueue::TakeNext()
{
    if (mHeap.empty()) return nullptr;
    std::pop_heap(mHeap.begin(), mHeap.end(), ComesLater);
    SyncJobPtr job = std::move(mHeap.back());
    mHeap.pop_back();
    return job;
}

std::vector<SyncJobPtr> SyncJobQueue::TakeAll()
{
    std::vector<SyncJobPtr> jobs;
    while (auto job = TakeNext())
        jobs.push_back(std::move(job));
    return jobs;
}

std::vector<SyncJobPtr> SyncJobQueue::TakeIf(const std::function<bool(const SyncJob&)>& inTest)
{
    const auto first =
        std::partition(mHeap.begin(), mHeap.end(), [&](const SyncJobPtr& inJob) { return !inTest(*inJob); });
    std::vector<SyncJobPtr> jobs(std::make_move_iterator(first), std::make_move_iterator(mHeap.end()));
    mHeap.erase(first, mHeap.end());
    std::make_heap(mHeap.begin(), mHeap.end(), ComesLater);
    return jobs;
}

}  // namespace VantryLocalHub

#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "Inc/Sync/SyncJob.h"

namespace VantryLocalHub {

/// Jobs that wait for their turn: higher priority first, and of equal priority the one asked for first.
///
/// Threading: whoever owns it guards it.
class SyncJobQueue
{
public:
    void Add(SyncJobPtr inJob);
    /// The next one; null when none waits.
    SyncJobPtr TakeNext();
    [[nodiscard]] std::size_t Count() const { return mHeap.size(); }
    /// In no particular order.
    [[nodiscard]] const std::vector<SyncJobPtr>& Jobs() const { return mHeap; }
    /// Empties the queue; the next one first.
    std::vector<SyncJobPtr> TakeAll();
    /// Takes out what the test names.
    std::vector<SyncJobPtr> TakeIf(const std::function<bool(const SyncJob&)>& inTest);

private:
    std::vector<SyncJobPtr> mHeap;
};

}  // namespace VantryLocalHub

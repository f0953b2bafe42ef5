#pragma once

#include "Inc/Service/LongPollAPIService.h"
#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// How sessions stand with their remote sides; a reader may wait for that to change. Threading: any thread; no state.
class SyncStatusService final : public RoutedService<SyncStatusService, LongPollAPIService<int>>
{
public:
    static constexpr std::string_view kName = "SyncStatusService";
    SyncStatusService();
};

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// Switches of the synchronisation. Threading: any thread; no state.
class SyncControlService final : public RoutedService<SyncControlService>
{
public:
    static constexpr std::string_view kName = "SyncControlService";
    SyncControlService();
};

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// Productions that were put away on the remote hub: brings one back, or deletes it for good. Threading: any thread; no
/// state.
class ArchivedProductionService final : public RoutedService<ArchivedProductionService>
{
public:
    static constexpr std::string_view kName = "ArchivedProductionService";
    ArchivedProductionService();
};

}  // namespace VantryLocalHub

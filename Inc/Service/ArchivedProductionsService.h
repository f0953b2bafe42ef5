#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The list of productions that were put away on the remote hub. Threading: any thread; no state.
class ArchivedProductionsService final : public RoutedService<ArchivedProductionsService>
{
public:
    static constexpr std::string_view kName = "ArchivedProductionsService";
    ArchivedProductionsService();
};

}  // namespace VantryLocalHub

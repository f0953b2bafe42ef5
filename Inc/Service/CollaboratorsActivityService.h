#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// What collaborators have changed. Threading: any thread; no state.
class CollaboratorsActivityService final : public RoutedService<CollaboratorsActivityService>
{
public:
    static constexpr std::string_view kName = "CollaboratorsActivityService";
    CollaboratorsActivityService();
};

}  // namespace VantryLocalHub

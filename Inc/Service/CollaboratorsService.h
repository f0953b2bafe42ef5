#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// Who works on a production, and invitations to it. Threading: any thread; no state.
class CollaboratorsService final : public RoutedService<CollaboratorsService>
{
public:
    static constexpr std::string_view kName = "CollaboratorsService";
    CollaboratorsService();
};

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The invitations that the user has received. Threading: any thread; no state.
class InvitesService final : public RoutedService<InvitesService>
{
public:
    static constexpr std::string_view kName = "InvitesService";
    InvitesService();
};

}  // namespace VantryLocalHub

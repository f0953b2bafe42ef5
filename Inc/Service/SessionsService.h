#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The local sessions of a production, and the making of one more. Threading: any thread; no state.
class SessionsService final : public RoutedService<SessionsService>
{
public:
    static constexpr std::string_view kName = "SessionsService";
    SessionsService();
};

}  // namespace VantryLocalHub

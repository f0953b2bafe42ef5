#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The decisions of a user on what is in conflict. Threading: any thread; no state.
class ResolveService final : public RoutedService<ResolveService>
{
public:
    static constexpr std::string_view kName = "ResolveService";
    ResolveService();
};

}  // namespace VantryLocalHub

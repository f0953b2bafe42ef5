#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The hub's preferences. Threading: any thread; no state.
class PreferencesService final : public RoutedService<PreferencesService>
{
public:
    static constexpr std::string_view kName = "PreferencesService";
    PreferencesService();
};

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// What differs between two revisions. Threading: any thread; no state.
class DifferencesService final : public RoutedService<DifferencesService>
{
public:
    static constexpr std::string_view kName = "DifferencesService";
    DifferencesService();
};

}  // namespace VantryLocalHub

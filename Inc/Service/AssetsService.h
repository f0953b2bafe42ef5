#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The assets of a revision. Threading: any thread; no state.
class AssetsService final : public RoutedService<AssetsService>
{
public:
    static constexpr std::string_view kName = "AssetsService";
    AssetsService();
};

}  // namespace VantryLocalHub

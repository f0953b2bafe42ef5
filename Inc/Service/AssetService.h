#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// One asset at one revision with its enclosures, and its restoration. Threading: any thread; no state.
class AssetService final : public RoutedService<AssetService>
{
public:
    static constexpr std::string_view kName = "AssetService";
    AssetService();
};

}  // namespace VantryLocalHub

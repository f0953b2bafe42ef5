#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// One production at one revision, its properties and enclosures, and the heavy operations on it.
/// Threading: any thread; no state.
class ProductionService final : public RoutedService<ProductionService>
{
public:
    static constexpr std::string_view kName = "ProductionService";
    ProductionService();
};

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The list of the user's productions, and the making of one. Threading: any thread; no state.
class ProductionsService final : public RoutedService<ProductionsService>
{
public:
    static constexpr std::string_view kName = "ProductionsService";
    ProductionsService();
};

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Service/LongPollAPIService.h"
#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The locks on assets of a production; a reader may wait for one to change hands. Threading: any thread; no state.
class ProductionBatonService final : public RoutedService<ProductionBatonService, LongPollAPIService<ImmutableString>>
{
public:
    static constexpr std::string_view kName = "ProductionBatonService";
    ProductionBatonService();
};

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Service/LongPollAPIService.h"
#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The complaints that stand; a reader may wait for the next. Threading: any thread; no state.
class ErrorsService final : public RoutedService<ErrorsService, LongPollAPIService<int>>
{
public:
    static constexpr std::string_view kName = "ErrorsService";
    ErrorsService();
};

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The revisions of a session. Threading: any thread; no state.
class HistoryService final : public RoutedService<HistoryService>
{
public:
    static constexpr std::string_view kName = "HistoryService";
    HistoryService();
};

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// Changes that wait to be pulled or pushed, and moving them. Threading: any thread; no state.
class ShareService final : public RoutedService<ShareService>
{
public:
    static constexpr std::string_view kName = "ShareService";
    ShareService();
};

}  // namespace VantryLocalHub

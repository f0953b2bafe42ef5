#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The image that stands for a production in a list. Threading: any thread; no state.
class PosterFrameService final : public RoutedService<PosterFrameService>
{
public:
    static constexpr std::string_view kName = "PosterFrameService";
    PosterFrameService();
};

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The jobs that move history between the two sides of a session. Threading: any thread; no state.
class JobsService final : public RoutedService<JobsService>
{
public:
    static constexpr std::string_view kName = "JobsService";
    JobsService();
};

}  // namespace VantryLocalHub

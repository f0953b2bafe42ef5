#pragma once

#include <memory>
#include <vector>

#include "Inc/Service/VantryAPIService.h"

namespace VantryLocalHub {

/// All services, not registered yet, in the order in which they are to be: the first matching expression decides.
std::vector<std::shared_ptr<VantryAPIService>> MakeAllServices();

}  // namespace VantryLocalHub

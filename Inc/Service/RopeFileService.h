#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// Single-file projects: opening or making one by its path, closing it, copying a session into one, and whether it is
/// exchanged with a remote hub.
class RopeFileService : public RoutedService<RopeFileService>
{
public:
    static constexpr std::string_view kName = "RopeFileService";
    RopeFileService();
};

}  // namespace VantryLocalHub

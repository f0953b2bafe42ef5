#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// Snapshots of sessions in files. Threading: any thread; no state.
class SnapshotService final : public RoutedService<SnapshotService>
{
public:
    static constexpr std::string_view kName = "SnapshotService";
    SnapshotService();
};

}  // namespace VantryLocalHub

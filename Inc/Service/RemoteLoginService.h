#pragma once

#include "Inc/Service/LongPollAPIService.h"
#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// Signing in to a remote hub and out; a reader may wait for that to change. Threading: any thread; no state.
class RemoteLoginService final : public RoutedService<RemoteLoginService, LongPollAPIService<int>>
{
public:
    static constexpr std::string_view kName = "RemoteLoginService";
    RemoteLoginService();
};

}  // namespace VantryLocalHub

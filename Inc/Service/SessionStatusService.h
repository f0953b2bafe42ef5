#pragma once

#include "Inc/Service/LongPollAPIService.h"
#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The tags of all that a client watches of a session; a reader may wait for one to change. Threading: any thread; no
/// state.
class SessionStatusService final : public RoutedService<SessionStatusService, LongPollAPIService<ImmutableString>>
{
public:
    static constexpr std::string_view kName = "SessionStatusService";
    SessionStatusService();
};

}  // namespace VantryLocalHub

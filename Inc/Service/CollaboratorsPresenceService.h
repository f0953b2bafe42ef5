#pragma once

#include "Inc/Service/LongPollAPIService.h"
#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// Who has a production open now; a reader may wait for somebody to come or go. Threading: any thread; no state.
class CollaboratorsPresenceService final
    : public RoutedService<CollaboratorsPresenceService, LongPollAPIService<ImmutableString>>
{
public:
    static constexpr std::string_view kName = "CollaboratorsPresenceService";
    CollaboratorsPresenceService();
};

}  // namespace VantryLocalHub

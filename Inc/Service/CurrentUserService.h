#pragma once

#include "Inc/Service/VantryAPIService.h"

namespace VantryLocalHub {

/// Who the user of a request is. Threading: any thread; no state.
class CurrentUserService
{
public:
    /// Empty while nobody is signed in.
    static ImmutableString GetUserEmailFromRequest(const noxnet::http::server::Request& inRequest);
    static ImmutableString GetPersonGUIDFromRequest(const noxnet::http::server::Request& inRequest);
};

}  // namespace VantryLocalHub

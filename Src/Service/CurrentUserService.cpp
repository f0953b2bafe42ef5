#include "Inc/Service/CurrentUserService.h"

namespace VantryLocalHub {

// Requests carry no identity of their own, and without a remote hub nobody can sign in.

ImmutableString CurrentUserService::GetUserEmailFromRequest(const noxnet::http::server::Request&)
{
    return {};
}

ImmutableString CurrentUserService::GetPersonGUIDFromRequest(const noxnet::http::server::Request&)
{
    return {};
}

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// Who the user is, and the enclosures that users keep with a session. Threading: any thread; no state.
class CurrentUserService final : public RoutedService<CurrentUserService>
{
public:
    static constexpr std::string_view kName = "CurrentUserService";
    CurrentUserService();

    /// Whose request it is. None carries an identity of its own: it is the last user's that the hub knows of. Empty
    /// while nobody is signed in.
    static ImmutableString GetUserEmailFromRequest(const noxnet::http::server::Request& inRequest);
    static ImmutableString GetPersonGUIDFromRequest(const noxnet::http::server::Request& inRequest);
    /// The last user that the hub knows of: of the last login to a remote hub, else of the suite's applications.
    static ImmutableString GetCachedUserEmail();
    static ImmutableString GetCachedPersonGUID();
};

}  // namespace VantryLocalHub

#pragma once

namespace noxtransport {

/// What the owner of a server says to a new session.
enum class TransportError : int
{
    None = 0,    ///< the session is accepted
    Refused = 5  ///< the session is closed at once
};

}  // namespace noxtransport

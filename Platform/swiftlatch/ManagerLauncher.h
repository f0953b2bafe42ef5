#pragma once

#include <memory>
#include <stdexcept>

#include "Platform/noxmarshal/RPCClient.h"

namespace swiftlatch {

/// No link manager can be reached.
class LinkError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A session with the user's link manager, started first where none answers. Throws LinkError.
///
/// Uses the shared transport and the Paths of the current context. Waits for the manager, at most some seconds: not on
/// the transport's thread.
std::shared_ptr<noxmarshal::RPCClient> LaunchSwiftlatchManagerRPC();

}  // namespace swiftlatch

#pragma once

#include <memory>

#include "Platform/noxtransport/SocketTransport.h"

namespace swiftlatch {

/// The transport that all of a HubContext share: made when nobody holds one, with the noxtransport::Settings that are
/// published in the context (without them loopback peers are refused). Null when it cannot be made.
std::shared_ptr<noxtransport::SocketTransport> GetSharedTransport();

}  // namespace swiftlatch

#pragma once

namespace VantryLocalHub {

/// Publishes, in the current context, where this user's link manager is met and who may talk to the RPC transport: the
/// same gate that guards the HTTP server lets peers of our own user in.
void PublishRPCSettings();

}  // namespace VantryLocalHub

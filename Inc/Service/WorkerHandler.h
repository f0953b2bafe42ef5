#pragma once

#include "Inc/Service/VantryAPIService.h"

namespace VantryLocalHub {

/// A handler whose work takes long, for files are packed or copied: it runs on the pool for work that computes, so that
/// no other request waits for it. 503 while the hub ends.
AsyncHandler OnWorker(SyncHandler inHandler);

/// The same for what reads files and is soon done: it does not wait behind the packing of others.
AsyncHandler OnReader(SyncHandler inHandler);

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

/// Turns a session in conflict back into one that syncs. All of it needs a remote hub: its operations
/// answer as SyncBox does until one can be reached.
class ResolutionCentre : public virtual SyncBox
{
};

}  // namespace VantryLocalHub

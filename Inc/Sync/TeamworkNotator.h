#pragma once

#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

/// Tells who works on a production, and what they changed. All of it needs a remote hub: its operations
/// answer as SyncBox does until one can be reached.
class TeamworkNotator : public virtual SyncBox
{
};

}  // namespace VantryLocalHub

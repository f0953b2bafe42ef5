#pragma once

#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

/// Makes the local session of a remote production that the user opens. All of it needs a remote hub: its operations
/// answer as SyncBox does until one can be reached.
class LocalSessionCreator : public virtual SyncBox
{
};

}  // namespace VantryLocalHub

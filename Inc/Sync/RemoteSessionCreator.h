#pragma once

#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

/// Makes the remote production of a local session. All of it needs a remote hub: its operations
/// answer as SyncBox does until one can be reached.
class RemoteSessionCreator : public virtual SyncBox
{
};

}  // namespace VantryLocalHub

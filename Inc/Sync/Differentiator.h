#pragma once

#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

/// Tells what differs between two revisions of a session, on whatever side they are. All of it needs a remote hub: its
/// operations answer as SyncBox does until one can be reached.
class Differentiator : public virtual SyncBox
{
};

}  // namespace VantryLocalHub

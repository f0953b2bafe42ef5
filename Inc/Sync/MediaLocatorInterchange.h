#pragma once

#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

/// Keeps the media locators of a session in step with its remote side. All of it needs a remote hub: its operations
/// answer as SyncBox does until one can be reached.
class MediaLocatorInterchange : public virtual SyncBox
{
};

}  // namespace VantryLocalHub

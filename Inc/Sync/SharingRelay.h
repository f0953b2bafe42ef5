#pragma once

#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

/// Moves a chosen part of a session's history on demand: what others have shared, what this user wants to share.
///
/// Threading: any thread. Locks: none.
class SharingRelay : public virtual SyncBox
{
public:
    /// Nothing is shared without being asked for: completes with 304.
    void AutoShare(const ImmutableString& inSessionID, StatusCompletion inCompletion) override;
};

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

class ProjectBox;

/// Turns a session in conflict back into one that syncs, and brings single assets back from a production.
///
/// Conflicts are resolved at the remote hub: those operations answer as SyncBox does until one can be reached.
/// Threading: any thread. Locks: none.
class ResolutionCentre : public virtual SyncBox
{
public:
    /// Commits the asset as it is at the head of the production's local session to the session that is named first,
    /// without any mark of a conflict; of a session's own production, as it was shared last. Nothing is committed where
    /// the session has just that. Completes with 200, 404: no such session to restore to, or the store's status; no
    /// transaction stays open. An asset that the production does not have here is the remote side's: 501.
    void RestoreAssetFromProduction(const ImmutableString& inSessionID, const ImmutableString& inProductionID,
                                    const ImmutableString& inAssetID, StatusCompletion inCompletion) override;

    /// 304 where the session is not in conflict.
    void DiscardLocalChanges(const ImmutableString& inSessionID, StatusCompletion inCompletion) override;

private:
    int CommitRestored(ProjectBox& inBox, const ImmutableString& inSessionID, const dto::Asset& inAsset);
};

}  // namespace VantryLocalHub

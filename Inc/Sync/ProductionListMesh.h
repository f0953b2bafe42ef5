#pragma once

#include <vector>

#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

/// Who looks at the list of productions. Unknown parts are empty.
struct ProductionViewer
{
    ImmutableString mServerURL;
    ImmutableString mUserID;
    ImmutableString mCorvaneID;

    [[nodiscard]] bool IsUnknown() const { return mUserID.empty() && mCorvaneID.empty(); }
};

/// The user that is logged in, else the one that was last.
ProductionViewer ReadProductionViewer(SyncBox& inEngine);

/// Takes out of the list what belongs to another remote hub or to another user of it; the sessions themselves stay.
/// Only parts that are known on both sides are compared. The engine is asked for each session's link.
void HideSessionsOfOthers(SyncBox& inEngine, const ProductionViewer& inViewer, std::vector<dto::Session>& ioSessions);

}  // namespace VantryLocalHub

#include "Inc/Sync/ProductionListMesh.h"

#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

using namespace noxcore::logging;

namespace {

constexpr std::string_view kCategory = "HubSync";

bool Differ(const ImmutableString& inLeft, const ImmutableString& inRight)
{
    return !inLeft.empty() && !inRight.empty() && !(inLeft == inRight);
}

bool IsOfOthers(SyncBox& inEngine, const ProductionViewer& inViewer, const dto::Session& inSession)
{
    const ImmutableString& id = inSession.mIdentifier;
    SyncStatus status;
    if (inEngine.GetSyncStatusForSession(id, status) == 200 && Differ(status.mServerURL, inViewer.mServerURL)) {
        LogInformation(kCategory, "Hiding local session -- it is associated with a different remote hub",
                       {{"localSessionID", id.View()}, {"status", status.mState.View()}});
        return true;
    }
    const ImmutableString userID = inEngine.GetUserID(id);
    const ImmutableString corvaneID = inEngine.GetCorvaneID(id);
    if (!Differ(userID, inViewer.mUserID) && !Differ(corvaneID, inViewer.mCorvaneID)) return false;
    LogInformation(kCategory, "Hiding local session -- it is associated with a different remote user",
                   {{"localSessionID", id.View()},
                    {"userID", userID.View()},
                    {"serverUserID", inViewer.mUserID.View()},
                    {"serverCorvaneID", inViewer.mCorvaneID.View()}});
    return true;
}

}  // namespace

void HideSessionsOfOthers(SyncBox& inEngine, const ProductionViewer& inViewer, std::vector<dto::Session>& ioSessions)
{
    std::erase_if(ioSessions, [&](const dto::Session& inSession) { return IsOfOthers(inEngine, inViewer, inSession); });
}

}  // namespace VantryLocalHub

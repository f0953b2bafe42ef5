#include "Inc/Sync/ProductionListMesh.h"

#include "Client/VYClient/Interfaces.h"
#include "Client/VYClient/Registry.h"
#include "Inc/Model/SystemDb.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"

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
    if (inEngine.GetSyncStatusForSession(id, status) == noxnet::kHTTPStatus_OK &&
        Differ(status.mServerURL, inViewer.mServerURL)) {
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

std::string ReadSystemValue(std::string_view inKey)
{
    std::string value;
    SystemDb::GetSystemEnclosure(inKey, value);
    return value;
}

}  // namespace

ProductionViewer ReadProductionViewer(SyncBox& inEngine)
{
    ProductionViewer viewer;
    if (const auto server = inEngine.GetLoggedInDataServer()) {
        viewer.mServerURL = server->GetServerURL();
        viewer.mUserID = server->GetUser().mUserID;
        return viewer;
    }
    // Away from the server the user is known by mail address, as when a session was made.
    viewer.mUserID = ReadSystemValue("LastUserEmail");
    viewer.mCorvaneID = ReadSystemValue("LastPersonGUID");
    VYCL::VYLoginData login;
    if (viewer.IsUnknown() && VYCL::Registry::GetLastLoginData(login)) {
        viewer.mUserID = login.mUserEmail;
        viewer.mCorvaneID = login.mPersonGUID;
    }
    return viewer;
}

void HideSessionsOfOthers(SyncBox& inEngine, const ProductionViewer& inViewer, std::vector<dto::Session>& ioSessions)
{
    std::erase_if(ioSessions, [&](const dto::Session& inSession) { return IsOfOthers(inEngine, inViewer, inSession); });
}

}  // namespace VantryLocalHub

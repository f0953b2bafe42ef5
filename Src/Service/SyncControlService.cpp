#include "Inc/Service/SyncControlService.h"

#include <optional>

#include "Client/Wire/Vocabulary.h"
#include "Inc/Service/FormReader.h"
#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

using namespace VYCL::LocalHub;
using noxnet::http::server::Request;

namespace {

constexpr int kSessionGroup = 2;

/// The values of a request by name, from its form or else from its query.
class ControlValues
{
public:
    explicit ControlValues(const Request& inRequest) : mRequest(inRequest) {}
    bool Read() { return mForm.Read(mRequest); }

    [[nodiscard]] std::optional<std::string> Find(const ImmutableString& inKey) const
    {
        if (const auto text = mForm.Text(inKey.View())) return std::string(*text);
        std::string value = mRequest.QueryValue(inKey.View());
        return value.empty() ? std::nullopt : std::optional(std::move(value));
    }
    [[nodiscard]] bool IsTrue(const ImmutableString& inKey) const
    {
        return Find(inKey).value_or(std::string()) == FormValue_True().View();
    }

private:
    const Request& mRequest;
    FormReader mForm;
};

struct Switch
{
    const ImmutableString& (*mKey)();
    void (SyncBox::*mPermit)();
    void (SyncBox::*mRestrict)();
};

constexpr Switch kSwitches[] = {
    {FormKey_Enabled, &SyncBox::PermitRemoteConnections, &SyncBox::RestrictRemoteConnections},
    {FormKey_EnabledForIdleSessions, &SyncBox::PermitIdleSyncJobs, &SyncBox::RestrictIdleSyncJobs},
};

int ControlSync(const RequestPtr& inRequest, const ResponsePtr&)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ControlValues values(*inRequest);
    int status = noxnet::kHTTPStatus_BadRequest;
    if (!values.Read()) return status;
    for (const Switch& row : kSwitches) {
        if (!values.Find(row.mKey())) continue;
        ((*syncBox).*(values.IsTrue(row.mKey()) ? row.mPermit : row.mRestrict))();
        status = noxnet::kHTTPStatus_OK;
    }
    return status;
}

int ControlPolling(const RequestPtr& inRequest, const ResponsePtr&)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ControlValues values(*inRequest);
    ImmutableString session;
    if (!ExtractSubExpression(*inRequest, kSessionGroup, session) || session.empty() || !values.Read() ||
        !values.Find(FormKey_Enabled()))
        return noxnet::kHTTPStatus_BadRequest;
    if (!values.IsTrue(FormKey_Enabled())) return syncBox->DisengagePollingForSync(session);
    const int status = syncBox->EngagePollingForSync(session, values.IsTrue(FormKey_EnableBatons()));
    // The first exchange need not wait for a change.
    if (noxnet::IsSuccessfulHTTPStatus(status)) syncBox->RequestAutoShareSyncJob(session, {});
    return status;
}

int ControlClientAppState(const RequestPtr& inRequest, const ResponsePtr&)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ControlValues values(*inRequest);
    if (!values.Read()) return noxnet::kHTTPStatus_BadRequest;
    const auto resume = values.Find(FormKey_ResumeSuspend());
    if (!resume) return noxnet::kHTTPStatus_BadRequest;
    // A client that goes to rest may not come back: what it left is sent now.
    if (*resume == FormValue_False().View()) syncBox->SyncPollingSessionsToRemote();
    return noxnet::kHTTPStatus_OK;
}

}  // namespace

SyncControlService::SyncControlService()
{
    Sync("POST", "sync", ControlSync);
    Sync("POST", "polling", ControlPolling);
    Sync("POST", "clientAppState", ControlClientAppState);
}

}  // namespace VantryLocalHub

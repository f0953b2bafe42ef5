#include "Inc/Service/RemoteLoginService.h"

#include "Client/VYClient/VYClient.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/User.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Service/FormReader.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using namespace VYCL::LocalHub;
using noxcore::logging::LogWarning;
using noxnet::http::server::Request;

namespace {

int CreatePayload(const Request& inRequest, std::string& outPayload)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    LinkMaker maker(inRequest);
    dto::RemoteLoginStatusList list;
    list.mRemoteLogin = syncBox->GetRemoteHubStatusList();
    maker.Add(list.mLinks, Relation::Self(), Template::kRemoteLogin);
    maker.Add(list.mLinks, Relation::LocalHubRemoteLogout(), Template::kRemoteLogout);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    outPayload = dto::ToJSON(list);
    return noxnet::kHTTPStatus_OK;
}

struct LoginForm
{
    ImmutableString mServerURL;
    ImmutableString mServerType;
    dto::LoginCredentials mCredentials;
};

/// The credentials are JSON within a form, or an object of a body that is JSON itself.
int ReadCredentials(const Request& inRequest, std::string_view inText, dto::LoginCredentials& outCredentials)
{
    noxcore::serialization::JSONDocument document;
    if (!document.Parse(inText)) return RefuseJSON(inRequest);
    if (document.Root().IsObject() && dto::ReadRecord(document.Root(), outCredentials)) return noxnet::kHTTPStatus_OK;
    return Refuse(inRequest, "Error parsing credentials");
}

int ReadLogin(const Request& inRequest, LoginForm& outForm)
{
    FormReader form;
    if (!form.Read(inRequest)) return RefuseJSON(inRequest);
    outForm.mServerURL = form.TextOrEmpty(FormKey_RemoteLogin_ServerURL().View());
    outForm.mServerType = form.TextOrEmpty(FormKey_RemoteLogin_ServerType().View());
    const auto credentials = form.Text(FormKey_RemoteLogin_Credentials().View());
    if (outForm.mServerURL.empty() || !credentials) return noxnet::kHTTPStatus_BadRequest;
    const int status = ReadCredentials(inRequest, *credentials, outForm.mCredentials);
    // Last, so that a login that is refused changes nothing.
    if (noxnet::IsSuccessfulHTTPStatus(status))
        VYCL::SetMachineID(form.TextOrEmpty(FormKey_RemoteLogin_MachineID().View()));
    return status;
}

/// How the server stands now, with the reason of a login that failed.
int LoginFinished(const Request& inRequest, const ResponsePtr& inResponse, const ImmutableString& inServerURL,
                  int inStatus, const dto::LoginError& inError)
{
    dto::RemoteLoginStatus answer;
    answer.mServerURL = inServerURL.Text();
    if (const auto syncBox = SyncBox::Instance()) {
        for (auto& hub : syncBox->GetRemoteHubStatusList())
            if (inServerURL == std::string_view(hub.mServerURL)) answer = std::move(hub);
    }
    if (!noxnet::IsSuccessfulHTTPStatus(inStatus)) {
        LogWarning(kServiceLogCategory, "Unable to login to remote hub",
                   {{"url", inRequest.URL()},
                    {"serverURL", inServerURL.View()},
                    {"status", inStatus},
                    {"error_code", inError.mErrorCode}});
        answer.mErrorCode = inError.mErrorCode;
        answer.mMessage = inError.mMessage;
        answer.mLastAuthorizationStatusCode = inStatus;
    }
    SetPayload(dto::ToJSON(answer), *inResponse);
    return inStatus;
}

void Login(const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return inCompletion(noxnet::kHTTPStatus_InternalServerError);
    LoginForm form;
    const int status = ReadLogin(*inRequest, form);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return inCompletion(status);
    syncBox->ConnectToRemoteHub(form.mServerURL, form.mServerType, form.mCredentials,
                                [inRequest, inResponse, serverURL = form.mServerURL,
                                 completion = std::move(inCompletion)](int inStatus, const dto::LoginError& inError) {
                                    completion(LoginFinished(*inRequest, inResponse, serverURL, inStatus, inError));
                                });
}

int Logout(const RequestPtr& inRequest, const ResponsePtr&)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    FormReader form;
    if (!form.Read(*inRequest)) return RefuseJSON(*inRequest);
    const ImmutableString serverURL = form.TextOrEmpty(FormKey_RemoteLogin_ServerURL().View());
    return serverURL.empty() ? noxnet::kHTTPStatus_BadRequest : syncBox->DisconnectFromRemoteHub(serverURL);
}

}  // namespace

RemoteLoginService::RemoteLoginService()
{
    Async("POST", "in", Login);
    Sync("POST", "out", Logout);
    Async("GET", "in", [this](const RequestPtr& inRequest, const ResponsePtr& inResponse, Completion inCompletion) {
        Answer(kOnlyKey, CreatePayload, inRequest, inResponse, std::move(inCompletion));
    });
    WakeAllOn<SyncBox::RemoteHubStatusChangedMessage>(SyncBox::Station());
}

}  // namespace VantryLocalHub

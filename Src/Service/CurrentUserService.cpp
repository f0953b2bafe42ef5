#include "Inc/Service/CurrentUserService.h"

#include "Client/VYClient/Registry.h"
#include "Client/Wire/AssetLists.h"
#include "Client/Wire/FormKeys.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/User.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Model/SystemDb.h"
#include "Inc/Service/FormReader.h"
#include "Platform/noxnet/Forms.h"

namespace VantryLocalHub {

namespace FormKeys = VYCL::FormKeys;
namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using noxnet::http::server::Request;

namespace {

constexpr int kUserGroup = 1;
constexpr int kKindGroup = 2;
constexpr int kSessionGroup = 3;
constexpr int kEnclosureGroup = 4;
constexpr std::string_view kEnclosures = "enclosures";
constexpr std::string_view kUnknownUser = "-";

ImmutableString ReadSystemValue(std::string_view inKey, std::string VYCL::VYLoginData::*inFallback)
{
    std::string value;
    VYCL::VYLoginData login;
    SystemDb::GetSystemEnclosure(inKey, value);
    if (value.empty() && VYCL::Registry::GetLastLoginData(login)) value = login.*inFallback;
    return value;
}

/// Store, user and session of a request for enclosures. 200 to go on.
struct Scene
{
    std::shared_ptr<ProjectBox> mProjectBox = ProjectBox::Instance();
    ImmutableString mUser;         ///< whose enclosures; the current user where the URL leaves it open
    ImmutableString mUserElement;  ///< as links have it
    ImmutableString mSessionID;
    ImmutableString mEnclosureID;  ///< empty: the URL names none

    int Enter(const Request& inRequest)
    {
        if (mProjectBox == nullptr || !CanMakeURLs(inRequest)) return noxnet::kHTTPStatus_InternalServerError;
        std::string user;
        std::string kind;
        if (!ExtractSubExpression(inRequest, kUserGroup, user) || !ExtractSubExpression(inRequest, kKindGroup, kind) ||
            !ExtractSubExpression(inRequest, kSessionGroup, mSessionID) ||
            !ExtractSubExpression(inRequest, kEnclosureGroup, mEnclosureID))
            return noxnet::kHTTPStatus_BadRequest;
        if (kind != kEnclosures) return noxnet::kHTTPStatus_NotFound;
        if (mSessionID.empty()) return noxnet::kHTTPStatus_BadRequest;
        mUserElement = noxnet::http::server::PercentDecoded(user);
        if (!IsLinkable(mUserElement.View()) || (!mEnclosureID.empty() && !IsLinkable(mEnclosureID.View())))
            return noxnet::kHTTPStatus_BadRequest;
        mUser = mUserElement == kUnknownUser ? CurrentUserService::GetCachedUserEmail() : mUserElement;
        return noxnet::kHTTPStatus_OK;
    }
};

void AddEnclosureLinks(LinkMaker& ioMaker, const Scene& inScene, dto::UserEnclosure& ioEnclosure)
{
    for (const ImmutableString& relation : {Relation::EnclosuresEnclosureUser(), Relation::Edit()})
        ioMaker.Add(ioEnclosure.mLinks, relation, Template::kUserEnclosure, inScene.mUserElement, inScene.mSessionID,
                    ioEnclosure.mEnclosureID);
}

int GetUser(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    VYCL::VYLoginData login;
    VYCL::Registry::GetLastLoginData(login);
    dto::CurrentUser user;
    user.mUserID = CurrentUserService::GetPersonGUIDFromRequest(*inRequest);
    const ImmutableString email = CurrentUserService::GetUserEmailFromRequest(*inRequest);
    user.mProperties.mEmail = email.Text();
    // The names are those of whoever signed in last, and nobody else's.
    if (email == std::string_view(login.mUserEmail)) {
        user.mProperties.mFirstname = login.mFirstName;
        user.mProperties.mLastname = login.mLastName;
    }
    LinkMaker maker(*inRequest);
    maker.Add(user.mLinks, Relation::Self(), Template::kUserCurrentUser);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(user), *inResponse);
}

int GetList(const Scene& inScene, const Request& inRequest, const ResponsePtr& inResponse)
{
    dto::UserEnclosuresResource resource;
    const int status = inScene.mProjectBox->GetUserEnclosures(inScene.mSessionID, inScene.mUser, resource.mEnclosures);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    LinkMaker maker(inRequest);
    for (dto::UserEnclosure& enclosure : resource.mEnclosures) {
        enclosure.mLinks.clear();
        AddEnclosureLinks(maker, inScene, enclosure);
    }
    resource.mStats = StatsOfAll(resource.mEnclosures.size());
    for (const ImmutableString& relation : {Relation::Self(), Relation::EnclosuresEnclosure_Create()})
        maker.Add(resource.mLinks, relation, Template::kUserEnclosures, inScene.mUserElement, inScene.mSessionID);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(inRequest, dto::ToJSON(resource), *inResponse);
}

/// The bytes of one, as of any enclosure that is asked for by its id.
int GetOne(const Scene& inScene, const Request& inRequest, const ResponsePtr& inResponse)
{
    dto::UserEnclosure enclosure;
    ConstRecycledMemoryPtr payload;
    const int status = inScene.mProjectBox->GetUserEnclosure(inScene.mSessionID, inScene.mUser, inScene.mEnclosureID,
                                                             enclosure, payload);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    inResponse->SetHeader(noxnet::kHEADER_ContentType, noxnet::kContentType_Binary);
    if (SetEntityTag(inRequest, enclosure.mEtag, *inResponse)) return noxnet::kHTTPStatus_NotModified;
    inResponse->mPayload = payload;
    return noxnet::kHTTPStatus_OK;
}

int GetEnclosures(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    Scene scene;
    const int status = scene.Enter(*inRequest);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    return scene.mEnclosureID.empty() ? GetList(scene, *inRequest, inResponse) : GetOne(scene, *inRequest, inResponse);
}

/// A form of ":enclosure", the bytes, and ":name".
struct EnclosureForm
{
    dto::UserEnclosure mEnclosure;
    ConstRecycledMemoryPtr mPayload;

    bool Read(const Request& inRequest)
    {
        FormReader form;
        if (!form.Read(inRequest, FormKeys::kEnclosure)) return false;
        mEnclosure.mName = form.TextOrEmpty(FormKeys::kName);
        if (const auto* field = form.Find(FormKeys::kEnclosure))
            mPayload = std::make_shared<const noxcore::utility::RecycledMemory>(field->mValue);
        return form.HasOneOf({FormKeys::kName, FormKeys::kEnclosure});
    }
};

int AnswerEnclosure(const Request& inRequest, const ResponsePtr& inResponse, const Scene& inScene, int inStatus,
                    dto::UserEnclosure inEnclosure)
{
    LinkMaker maker(inRequest);
    inEnclosure.mLinks.clear();
    AddEnclosureLinks(maker, inScene, inEnclosure);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    inResponse->SetHeader(noxnet::kHEADER_Location, inEnclosure.mLinks.front().mHref);
    inResponse->SetHeader(noxnet::kHEADER_ETag, inEnclosure.mEtag.View());
    SetPayload(dto::ToJSON(inEnclosure), *inResponse);
    return inStatus;
}

int AddEnclosure(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    Scene scene;
    EnclosureForm form;
    int status = scene.Enter(*inRequest);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    if (!form.Read(*inRequest) || form.mPayload == nullptr) return noxnet::kHTTPStatus_BadRequest;
    form.mEnclosure.mEnclosureID = scene.mEnclosureID;
    status = scene.mProjectBox->AddUserEnclosure(scene.mSessionID, scene.mUser, WriteMode::LocalEdit, form.mPayload,
                                                 form.mEnclosure);
    return noxnet::IsSuccessfulHTTPStatus(status)
               ? AnswerEnclosure(*inRequest, inResponse, scene, status, std::move(form.mEnclosure))
               : status;
}

int UpdateEnclosure(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    Scene scene;
    EnclosureForm form;
    int status = scene.Enter(*inRequest);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    if (scene.mEnclosureID.empty() || !form.Read(*inRequest)) return noxnet::kHTTPStatus_BadRequest;
    form.mEnclosure.mEnclosureID = scene.mEnclosureID;
    status = scene.mProjectBox->UpdateUserEnclosure(scene.mSessionID, scene.mUser, WriteMode::LocalEdit, form.mPayload,
                                                    form.mEnclosure);
    return noxnet::IsSuccessfulHTTPStatus(status)
               ? AnswerEnclosure(*inRequest, inResponse, scene, status, std::move(form.mEnclosure))
               : status;
}

}  // namespace

CurrentUserService::CurrentUserService()
{
    Sync("GET", {}, GetEnclosures);
    Sync("GET", "currentUser", GetUser);
    Sync("POST", {}, AddEnclosure);
    Sync("PUT", {}, UpdateEnclosure);
}

ImmutableString CurrentUserService::GetUserEmailFromRequest(const Request&)
{
    return GetCachedUserEmail();
}

ImmutableString CurrentUserService::GetPersonGUIDFromRequest(const Request&)
{
    return GetCachedPersonGUID();
}

ImmutableString CurrentUserService::GetCachedUserEmail()
{
    return ReadSystemValue("LastUserEmail", &VYCL::VYLoginData::mUserEmail);
}

ImmutableString CurrentUserService::GetCachedPersonGUID()
{
    return ReadSystemValue("LastPersonGUID", &VYCL::VYLoginData::mPersonGUID);
}

}  // namespace VantryLocalHub

#include "Inc/Service/MediaLocatorsService.h"

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/MediaLocator.h"
#include "Client/Wire/URLTemplates.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/FormReader.h"
#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/JSON.h"
#include "Platform/noxnet/Forms.h"

namespace VantryLocalHub {

namespace FormKeys = VYCL::FormKeys;
namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using noxcore::serialization::JSONDocument;
using noxcore::serialization::JSONValue;
using noxnet::http::server::Request;

namespace {

constexpr int kElementGroup = 3;
constexpr std::string_view kBadElement = "MediaLocatorsService: Bad form element";

/// Store, engine and session of a request. 200 to go on.
struct Scene
{
    std::shared_ptr<ProjectBox> mProjectBox = ProjectBox::Instance();
    std::shared_ptr<SyncBox> mSyncBox = SyncBox::Instance();
    ImmutableString mSessionID;

    int Enter(const Request& inRequest)
    {
        if (mProjectBox == nullptr || mSyncBox == nullptr || !CanMakeURLs(inRequest))
            return noxnet::kHTTPStatus_InternalServerError;
        return ExtractSubExpression(inRequest, 1, mSessionID) ? noxnet::kHTTPStatus_OK : noxnet::kHTTPStatus_BadRequest;
    }
};

void AddLocatorLinks(LinkMaker& ioMaker, const ImmutableString& inSessionID, dto::MediaLocator& ioLocator)
{
    if (!IsLinkable(ioLocator.mMediaLocatorID.View())) return;  // one that came from elsewhere must not hide the rest
    for (const ImmutableString& relation : {Relation::Self(), Relation::Edit()})
        ioMaker.Add(ioLocator.mLinks, relation, Template::kMediaLocatorsByMediaLocatorId, inSessionID,
                    ioLocator.mMediaLocatorID);
}

int AnswerLocator(const Request& inRequest, const ResponsePtr& inResponse, const ImmutableString& inSessionID,
                  int inStatus, dto::MediaLocator inLocator)
{
    LinkMaker maker(inRequest);
    inLocator.mLinks.clear();
    AddLocatorLinks(maker, inSessionID, inLocator);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    if (IsRead(inRequest)) return SetPayloadWithEntityTag(inRequest, dto::ToJSON(inLocator), *inResponse);
    if (!inLocator.mLinks.empty()) inResponse->SetHeader(noxnet::kHEADER_Location, inLocator.mLinks.front().mHref);
    SetPayload(dto::ToJSON(inLocator), *inResponse);
    return inStatus;
}

int MakeCollection(const Request& inRequest, const Scene& inScene, dto::MediaLocatorsResource inResource,
                   std::string& outPayload)
{
    LinkMaker maker(inRequest);
    for (dto::MediaLocator& locator : inResource.mMedialocators) {
        locator.mLinks.clear();
        AddLocatorLinks(maker, inScene.mSessionID, locator);
    }
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    outPayload = dto::ToJSON(inResource);
    return noxnet::kHTTPStatus_OK;
}

int GetAll(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    Scene scene;
    int status = scene.Enter(*inRequest);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    dto::MediaLocatorsResource resource;
    // Before the list: a client that goes on from this time misses nothing that is written meanwhile.
    scene.mProjectBox->GetLastModifiedMediaLocatorTime(scene.mSessionID, resource.mLastModified);
    status = scene.mProjectBox->GetMediaLocators(scene.mSessionID, resource.mMedialocators);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    std::string payload;
    status = MakeCollection(*inRequest, scene, std::move(resource), payload);
    return noxnet::IsSuccessfulHTTPStatus(status) ? SetPayloadWithEntityTag(*inRequest, std::move(payload), *inResponse)
                                                  : status;
}

int GetOne(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    Scene scene;
    int status = scene.Enter(*inRequest);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    std::string id;
    if (!ExtractSubExpression(*inRequest, kElementGroup, id) || id.empty()) return noxnet::kHTTPStatus_BadRequest;
    dto::MediaLocator locator;
    status = scene.mProjectBox->GetMediaLocator(scene.mSessionID, noxnet::http::server::PercentDecoded(id), locator);
    return noxnet::IsSuccessfulHTTPStatus(status)
               ? AnswerLocator(*inRequest, inResponse, scene.mSessionID, status, std::move(locator))
               : status;
}

/// An id that links can hold, and properties whose known keys are of their types.
bool IsUsable(const dto::MediaLocator& inLocator)
{
    dto::MediaLocatorProperties properties;
    return IsLinkable(inLocator.mMediaLocatorID.View()) && dto::FromJSON(inLocator.mProperties.Text(), properties);
}

/// A form of ":medialocator", the JSON of a locator, and ":id", which counts where it is given.
int ReadForm(const Request& inRequest, dto::MediaLocator& outLocator)
{
    FormReader form;
    if (!form.Read(inRequest)) return Refuse(inRequest, kBadElement);
    const auto text = form.Text(FormKeys::kMediaLocator);
    if (!text) return Refuse(inRequest, kBadElement);
    JSONDocument document;
    if (!document.Parse(*text)) return RefuseJSON(inRequest);
    if (!document.Root().IsObject() || !dto::ReadRecord(document.Root(), outLocator))
        return Refuse(inRequest, kBadElement);
    if (const auto id = form.Text(FormKeys::kID)) outLocator.mMediaLocatorID = *id;
    return noxnet::kHTTPStatus_OK;
}

int AddOne(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    Scene scene;
    int status = scene.Enter(*inRequest);
    std::vector<dto::MediaLocator> locators(1);
    if (noxnet::IsSuccessfulHTTPStatus(status)) status = ReadForm(*inRequest, locators.front());
    if (noxnet::IsSuccessfulHTTPStatus(status) && !IsUsable(locators.front())) status = Refuse(*inRequest, kBadElement);
    if (noxnet::IsSuccessfulHTTPStatus(status)) status = scene.mSyncBox->AddMediaLocators(scene.mSessionID, locators);
    return noxnet::IsSuccessfulHTTPStatus(status)
               ? AnswerLocator(*inRequest, inResponse, scene.mSessionID, status, std::move(locators.front()))
               : status;
}

/// The URL names the locator; a form that names another one is a mistake.
int EditOne(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    Scene scene;
    int status = scene.Enter(*inRequest);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    std::string element;
    dto::MediaLocator locator;
    if (!ExtractSubExpression(*inRequest, kElementGroup, element) || element.empty())
        return noxnet::kHTTPStatus_BadRequest;
    status = ReadForm(*inRequest, locator);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    const ImmutableString id = noxnet::http::server::PercentDecoded(element);
    if (!locator.mMediaLocatorID.empty() && !(locator.mMediaLocatorID == id)) return Refuse(*inRequest, kBadElement);
    locator.mMediaLocatorID = id;
    if (!IsUsable(locator)) return Refuse(*inRequest, kBadElement);
    status = scene.mSyncBox->EditMediaLocators(scene.mSessionID, locator);
    return noxnet::IsSuccessfulHTTPStatus(status)
               ? AnswerLocator(*inRequest, inResponse, scene.mSessionID, status, std::move(locator))
               : status;
}

/// A body that is an array of locators, or a collection as a GET answers it.
int ReadLocators(const Request& inRequest, std::vector<dto::MediaLocator>& outLocators)
{
    JSONDocument document;
    if (!document.Parse(PayloadText(inRequest))) return RefuseJSON(inRequest);
    JSONValue list = document.Root();
    if (list.IsObject()) list = list["medialocators"];
    if (!list.IsArray()) return Refuse(inRequest, kBadElement);
    for (const JSONValue& child : list.Children()) {
        dto::MediaLocator& locator = outLocators.emplace_back();
        if (!child.IsObject() || !dto::ReadRecord(child, locator) || !IsUsable(locator))
            return Refuse(inRequest, kBadElement);
    }
    return noxnet::kHTTPStatus_OK;
}

int AnswerCollection(const Request& inRequest, const ResponsePtr& inResponse, const Scene& inScene, int inStatus,
                     std::vector<dto::MediaLocator> inLocators)
{
    dto::MediaLocatorsResource resource;
    inScene.mProjectBox->GetLastModifiedMediaLocatorTime(inScene.mSessionID, resource.mLastModified);
    resource.mMedialocators = std::move(inLocators);
    std::string payload;
    const int status = MakeCollection(inRequest, inScene, std::move(resource), payload);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    SetPayload(std::move(payload), *inResponse);
    return inStatus;
}

int BulkCreate(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    Scene scene;
    std::vector<dto::MediaLocator> locators;
    int status = scene.Enter(*inRequest);
    if (noxnet::IsSuccessfulHTTPStatus(status)) status = ReadLocators(*inRequest, locators);
    if (noxnet::IsSuccessfulHTTPStatus(status)) status = scene.mSyncBox->AddMediaLocators(scene.mSessionID, locators);
    return noxnet::IsSuccessfulHTTPStatus(status)
               ? AnswerCollection(*inRequest, inResponse, scene, status, std::move(locators))
               : status;
}

/// The same for those of the body that were modified after the time in the URL, or say no time.
int BulkCreateByLastModified(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    Scene scene;
    int status = scene.Enter(*inRequest);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    std::string element;
    if (!ExtractSubExpression(*inRequest, kElementGroup, element)) return noxnet::kHTTPStatus_BadRequest;
    const auto after = dto::RFC3339DateTime::FromText(noxnet::http::server::PercentDecoded(element));
    if (!after.IsValid()) return Refuse(*inRequest, kBadElement);
    std::vector<dto::MediaLocator> locators;
    status = ReadLocators(*inRequest, locators);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    std::erase_if(locators, [&](const dto::MediaLocator& inLocator) {
        return inLocator.mLastModified.IsValid() && !(after < inLocator.mLastModified);
    });
    if (!locators.empty()) status = scene.mSyncBox->AddMediaLocators(scene.mSessionID, locators);
    return noxnet::IsSuccessfulHTTPStatus(status)
               ? AnswerCollection(*inRequest, inResponse, scene, status, std::move(locators))
               : status;
}

int BulkUpdate(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    Scene scene;
    std::vector<dto::MediaLocator> locators;
    int status = scene.Enter(*inRequest);
    if (noxnet::IsSuccessfulHTTPStatus(status)) status = ReadLocators(*inRequest, locators);
    if (noxnet::IsSuccessfulHTTPStatus(status)) status = scene.mSyncBox->EditMediaLocators(scene.mSessionID, locators);
    return noxnet::IsSuccessfulHTTPStatus(status)
               ? AnswerCollection(*inRequest, inResponse, scene, status, std::move(locators))
               : status;
}

/// Other sessions may still use a locator: none is deleted.
int RefuseBulkDelete(const RequestPtr&, const ResponsePtr&)
{
    return noxnet::kHTTPStatus_NotImplemented;
}

}  // namespace

MediaLocatorsService::MediaLocatorsService()
{
    Sync("GET", "all", GetAll);
    Sync("GET", "byMediaLocatorId", GetOne);
    Sync("POST", "all", AddOne);
    Sync("POST", "bulkCreate", BulkCreate);
    Sync("POST", "bulkCreateByLastModified", BulkCreateByLastModified);
    Sync("POST", "bulkDelete", RefuseBulkDelete);
    Sync("PUT", "byMediaLocatorId", EditOne);
    Sync("PUT", "bulkUpdate", BulkUpdate);
}

}  // namespace VantryLocalHub

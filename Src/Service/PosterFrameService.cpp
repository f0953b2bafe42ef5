#include "Inc/Service/PosterFrameService.h"

#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/PosterFrame.h"
#include "Client/Wire/URLTemplates.h"
#include "Inc/Service/ServiceUtils.h"
#include "Inc/Sync/PosterFrameManifold.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub {

namespace {

int GetFrame(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    ImmutableString production;
    if (!ExtractSubExpression(*inRequest, 1, production)) return noxnet::kHTTPStatus_BadRequest;
    dto::PosterFrame frame;
    const int status = PosterFrameManifold::LoadPosterFrame(production, frame);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    LinkMaker maker(*inRequest);
    maker.Add(frame.mLinks, VYCL::LinkRelation::Self(), VYCL::URLTemplate::kPoster, production);
    maker.Add(frame.mLinks, VYCL::LinkRelation::Related(), VYCL::URLTemplate::kPosterRendition, production);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    return SetPayloadWithEntityTag(*inRequest, dto::ToJSON(frame), *inResponse);
}

int GetRendition(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    ImmutableString production;
    if (!ExtractSubExpression(*inRequest, 1, production)) return noxnet::kHTTPStatus_BadRequest;
    ConstRecycledMemoryPtr image;
    const int status = PosterFrameManifold::LoadPosterFrameRendition(production, image);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    inResponse->SetHeader(noxnet::kHEADER_ContentType, noxnet::kContentType_Binary);
    if (SetEntityTag(*inRequest, HashPayload(image->View()), *inResponse)) return noxnet::kHTTPStatus_NotModified;
    inResponse->mPayload = image;
    return noxnet::kHTTPStatus_OK;
}

int RefusePost(const RequestPtr& inRequest, const ResponsePtr&)
{
    noxcore::logging::LogWarning(kServiceLogCategory, "POST method is no longer supported",
                                 {{"url", inRequest->URL()}});
    return noxnet::kHTTPStatus_MethodNotAllowed;
}

}  // namespace

PosterFrameService::PosterFrameService()
{
    Sync("GET", {}, GetFrame);
    Sync("GET", "rendition", GetRendition);
    Sync("POST", {}, RefusePost);
}

}  // namespace VantryLocalHub

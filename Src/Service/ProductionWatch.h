#pragma once

#include <string>

#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Record.h"
#include "Inc/Service/ServiceUtils.h"
#include "Inc/Sync/SyncBox.h"

namespace VantryLocalHub {

/// Makes the payload of a record that the engine has of the production of a URL, with a link to itself.
template <class Resource>
int CreateProductionPayload(const noxnet::http::server::Request& inRequest,
                            int (SyncBox::*inGet)(const ImmutableString&, Resource&), URLFormat inSelf,
                            std::string& outPayload)
{
    const auto syncBox = SyncBox::Instance();
    if (syncBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString production;
    if (!ExtractSubExpression(inRequest, 1, production)) return noxnet::kHTTPStatus_BadRequest;
    Resource resource;
    const int status = ((*syncBox).*inGet)(production, resource);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    LinkMaker maker(inRequest);
    maker.Add(resource.mLinks, VYCL::LinkRelation::Self(), inSelf, production);
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    outPayload = dto::ToJSON(resource);
    return noxnet::kHTTPStatus_OK;
}

}  // namespace VantryLocalHub

#include "Inc/Model/TemplateShop.h"

#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

std::vector<dto::Session> TemplateShop::GetTemplates()
{
    return {};
}

int TemplateShop::GetTemplate(const ImmutableString&, dto::Session&)
{
    return noxnet::kHTTPStatus_NotImplemented;
}

int TemplateShop::CreateTemplate(const ImmutableString&, dto::Session&)
{
    return noxnet::kHTTPStatus_NotImplemented;
}

}  // namespace VantryLocalHub::GitBox

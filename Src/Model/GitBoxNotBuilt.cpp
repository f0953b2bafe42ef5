// Operations whose component this build does not have: they say so, and touch nothing.

#include "Inc/Model/GitBox.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxnet::kHTTPStatus_NotImplemented;

int GitBox::CopySessionToLyra2(const ImmutableString&, const ImmutableString&, const dto::ProductionProperties&,
                               dto::Session&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::ExtractSnapshot(const std::string&, const ImmutableString&, dto::Session&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::CreateSessionFromSnapshot(const std::string&, const dto::ProductionProperties&, dto::Session&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::ApplySnapshot(const ImmutableString&, const std::string&, bool, bool, dto::Session&)
{
    return kHTTPStatus_NotImplemented;
}

}  // namespace VantryLocalHub::GitBox

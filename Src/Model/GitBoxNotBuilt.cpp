// Operations whose component this build does not have: they say so, and touch nothing.

#include "Inc/Model/GitBox.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxnet::kHTTPStatus_NotImplemented;

int GitBox::CreateRopeFile(const std::string&, const dto::ProductionProperties&, bool, dto::Session&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::OpenRopeFile(const std::string&, dto::Session&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::CopyToRopeFile(const ImmutableString&, const ImmutableString&, const std::string&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::ThinHistoryToRopeFile(const ImmutableString&, const std::string&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::SetSyncModeOfRopeFile(const ImmutableString&, const ImmutableString&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::GetRopeFilePath(const ImmutableString&, std::string&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::WriteRopeFileValue(const ImmutableString&, const std::string&, const std::string&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::ReadRopeFileValue(const ImmutableString&, const std::string&, std::string&)
{
    return kHTTPStatus_NotImplemented;
}

}  // namespace VantryLocalHub::GitBox

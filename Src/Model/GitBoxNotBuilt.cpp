// Operations whose component this build does not have: they say so, and touch nothing.

#include "Inc/Model/GitBox.h"
#include "Platform/noxnet/HTTPStatus.h"

namespace VantryLocalHub::GitBox {

using noxnet::kHTTPStatus_NotImplemented;

int GitBox::CreateRopeFileName(const std::string&, std::string&)
{
    return kHTTPStatus_NotImplemented;
}

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

int GitBox::ClearExtractedSnapshot(const ImmutableString&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::ApplySnapshot(const ImmutableString&, const std::string&, bool, bool, dto::Session&)
{
    return kHTTPStatus_NotImplemented;
}

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

int GitBox::GetUserEnclosures(const ImmutableString&, const ImmutableString&, std::vector<dto::UserEnclosure>&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::GetUnsynchronizedLocallyModifiedUserEnclosures(const ImmutableString&, const ImmutableString&, std::int64_t,
                                                           std::vector<dto::UserEnclosure>&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::GetUserEnclosure(const ImmutableString&, const ImmutableString&, const ImmutableString&,
                             dto::UserEnclosure&, ConstRecycledMemoryPtr&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::AddUserEnclosure(const ImmutableString&, const ImmutableString&, WriteMode, const ConstRecycledMemoryPtr&,
                             dto::UserEnclosure&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::UpdateUserEnclosure(const ImmutableString&, const ImmutableString&, WriteMode,
                                const ConstRecycledMemoryPtr&, dto::UserEnclosure&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::DeleteUserEnclosure(const ImmutableString&, const ImmutableString&, const ImmutableString&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::GetLastModifiedMediaLocatorTime(const ImmutableString&, RFC3339DateTime&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::GetMediaLocators(const ImmutableString&, std::vector<dto::MediaLocator>&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::GetUnsynchronizedLocallyModifiedMediaLocators(const ImmutableString&, std::int64_t,
                                                          std::vector<dto::MediaLocator>&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::GetMediaLocator(const ImmutableString&, const ImmutableString&, dto::MediaLocator&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::AddMediaLocator(const ImmutableString&, WriteMode, dto::MediaLocator&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::AddMediaLocators(const ImmutableString&, WriteMode, std::vector<dto::MediaLocator>&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::EditMediaLocator(const ImmutableString&, const ImmutableString&, WriteMode, dto::MediaLocator&)
{
    return kHTTPStatus_NotImplemented;
}

int GitBox::ApplyRemoteMediaLocatorIfNotLocallyModified(const ImmutableString&, const dto::MediaLocator&,
                                                        const ImmutableString&, int&)
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

#include "Client/VYClient/History.h"

#include "Client/VYClient/UTF16.h"

namespace VYCL {

bool GetCommitMetadataFromTitle(std::string_view inTitle, CommitMetadata& outMetadata)
{
    CommitMetadata metadata;
    if (VantryLocalHub::dto::FromJSON(inTitle, metadata)) {
        outMetadata = std::move(metadata);
        return true;
    }
    outMetadata = CommitMetadata();
    outMetadata.mCommitMessage = inTitle;
    return false;
}

bool GetCommitMetadataFromHistoryVersion(const VantryLocalHub::dto::HistoryVersion& inVersion,
                                         CommitMetadata& outMetadata)
{
    if (GetCommitMetadataFromTitle(inVersion.mTitle, outMetadata)) {
        return true;
    }
    CommitMetadata metadata;
    if (!GetCommitMetadataFromTitle(inVersion.mInfo.mMessage, metadata)) {
        return false;
    }
    outMetadata = std::move(metadata);
    return true;
}

std::string GetCommitMessageFromTitle(std::string_view inTitle)
{
    CommitMetadata metadata;
    GetCommitMetadataFromTitle(inTitle, metadata);
    return std::move(metadata.mCommitMessage);
}

void PosixTimeToOSSpecificString(const VantryLocalHub::dto::RFC3339DateTime& inTime, std::u16string& outText)
{
    constexpr std::size_t kDateAndTime = 19;  // "2026-01-31T23:59:59"
    auto text = inTime.Text().substr(0, kDateAndTime);
    if (text.size() == kDateAndTime) {
        text[10] = ' ';
    }
    outText = ToUTF16(text);
}

}  // namespace VYCL

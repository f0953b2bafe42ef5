#pragma once

#include <string>
#include <string_view>

#include "Client/Wire/CommitMetadata.h"
#include "Client/Wire/History.h"

namespace VYCL {

using CommitMetadata = VantryLocalHub::dto::CommitMetadata;

/// Reads the metadata that a version's title carries. False for a title that is plain text: outMetadata then holds it
/// as the message and nothing else.
bool GetCommitMetadataFromTitle(std::string_view inTitle, CommitMetadata& outMetadata);

/// The same of a version: from its title, else from the message of its info.
bool GetCommitMetadataFromHistoryVersion(const VantryLocalHub::dto::HistoryVersion& inVersion,
                                         CommitMetadata& outMetadata);

/// What people are shown of a title: the message alone, without the machine and the program that its metadata name.
[[nodiscard]] std::string GetCommitMessageFromTitle(std::string_view inTitle);

/// A time as the system shows it to its user: "2026-01-31 23:59:59" in UTC. Emptied for no time.
void PosixTimeToOSSpecificString(const VantryLocalHub::dto::RFC3339DateTime& inTime, std::u16string& outText);

}  // namespace VYCL

#pragma once

#include <string>
#include <string_view>

namespace VantryLocalHub::GitBox {

/// What the hub's own commits say. The numbers stand in the commits; 7 is not used.
enum class CommitMessageCode
{
    None = 0,
    Initialized = 1,
    CopiedFromSession = 2,
    Reverted = 3,
    Synchronized = 4,
    Downloaded = 5,
    Shared = 6,
    Duplicated = 8,
    ReInitialized = 9,
    SnapshotApplied = 10,
    AssetRestored = 11,
    SharedWithComment = 12  ///< the text is the client's comment
};

/// Texts without a commit of their own; clients know them.
constexpr std::string_view kMessage_AutomaticallyShared = "Changes automatically shared to Tessel Projects Service";
constexpr std::string_view kMessage_PosterFrameSet = "Set poster frame and properties";

/// The fixed text of a code; empty for None and SharedWithComment.
std::string_view CommitMessageText(CommitMessageCode inCode);

/// The message of a commit of the hub's own: a JSON object of text, metadata and code. inText replaces the code's
/// text where it is not empty; inLocalCommitID is written where it is not empty.
std::string MakeCommitMessage(CommitMessageCode inCode, std::string_view inText = {},
                              std::string_view inLocalCommitID = {});

}  // namespace VantryLocalHub::GitBox

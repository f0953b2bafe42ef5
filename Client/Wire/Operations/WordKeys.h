#pragma once

#include <array>
#include <span>
#include <string_view>

#include "Client/Wire/AllRecords.h"
#include "Client/Wire/Operations/Operation.h"
#include "Client/Wire/Vocabulary.h"

/// The keys of records whose text is one of a few words.
namespace VantryLocalHub::API {

namespace Words {

using namespace VYCL::LocalHub;

inline constexpr auto kSyncStates =
    std::to_array<Text>({SyncState_Unknown, SyncState_Uninitialized, SyncState_NotAssociated, SyncState_NotAuthorized,
                         SyncState_Disconnected, SyncState_LocalOnly, SyncState_LocalSessionConflict,
                         SyncState_RevokedOrDeleted, SyncState_Syncing, SyncState_InSync, SyncState_OutOfSync});
inline constexpr auto kDirections = std::to_array<Text>({SyncDirection_Pull, SyncDirection_Push});
inline constexpr auto kJobStates =
    std::to_array<Text>({VYCL::GetJobState_Waiting, VYCL::GetJobState_Running, VYCL::GetJobState_Successful,
                         VYCL::GetJobState_Failed, VYCL::GetJobState_Cancelled, VYCL::GetJobState_Cancel});
inline constexpr auto kJobTypes = std::to_array<Text>({VYCL::GetJobType_LocalHubSync});
inline constexpr auto kDifferenceTypes = std::to_array<Text>(
    {VYCL::GetDifferenceType_Added, VYCL::GetDifferenceType_Updated, VYCL::GetDifferenceType_Removed});
inline constexpr auto kPreferences =
    std::to_array<Text>({LocalHubPreferenceName_AutosaveLocation, LocalHubPreferenceName_SetAutosaveToRope});

}  // namespace Words

struct WordKey
{
    std::string_view mRecord;
    std::string_view mKey;
    std::span<const Text> mWords;
};

template <class Record>
constexpr WordKey WordsOf(std::string_view inKey, std::span<const Text> inWords)
{
    return {dto::RecordName<Record>::kText, inKey, inWords};
}

inline constexpr auto kWordKeys = std::to_array<WordKey>({
    WordsOf<dto::SyncStatusResource>("state", Words::kSyncStates),
    WordsOf<dto::SessionSyncStatus>("state", Words::kSyncStates),
    WordsOf<dto::SessionStatus>("status", Words::kSyncStates),
    WordsOf<dto::SyncJobParameters>("direction", Words::kDirections),
    WordsOf<dto::Job>("vy:jobState", Words::kJobStates),
    WordsOf<dto::Job>("vy:jobType", Words::kJobTypes),
    WordsOf<dto::JobType>("name", Words::kJobTypes),
    WordsOf<dto::AssetDifference>("vy:differenceType", Words::kDifferenceTypes),
    WordsOf<dto::EnclosureDifference>("vy:differenceType", Words::kDifferenceTypes),
    WordsOf<dto::PropertiesDifference>("vy:differenceType", Words::kDifferenceTypes),
    WordsOf<dto::Preference>("name", Words::kPreferences),
});

}  // namespace VantryLocalHub::API

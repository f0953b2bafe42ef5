#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "Platform/noxcore/ImmutableString.h"

namespace VantryLocalHub {

/// The two kinds of data that a session keeps outside its history and exchanges apart from it.
enum class SideData
{
    MediaLocators,
    UserEnclosures
};
constexpr std::size_t kSideDataKinds = 2;

/// Stands for "no change count": nothing has been exchanged yet.
constexpr std::int64_t kNoChangeCount = -1;

/// How far one side's changes are known to the other: the session's change counter for a session folder, a commit of
/// a side branch for a rope file. The half that is not used keeps its empty value.
struct SyncChangeCount
{
    static constexpr const char* kNoCommitID = "0000000000000000000000000000000000000000";

    std::int64_t mCount = kNoChangeCount;
    noxcore::utility::ImmutableString mCommitID = kNoCommitID;

    [[nodiscard]] bool IsNone() const { return mCount == kNoChangeCount && mCommitID == kNoCommitID; }
    /// True when both halves are at or below those of the other.
    [[nodiscard]] bool IsWithin(const SyncChangeCount& inOther) const
    {
        return mCount <= inOther.mCount && !(inOther.mCommitID < mCommitID);
    }
    /// For log records: the count, with the commit id where there is one.
    [[nodiscard]] std::string Text() const
    {
        const std::string count = std::to_string(mCount);
        return mCommitID == kNoCommitID ? count : count + " @" + mCommitID.Text();
    }
    friend bool operator==(const SyncChangeCount&, const SyncChangeCount&) = default;
};

}  // namespace VantryLocalHub

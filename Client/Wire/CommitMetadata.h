#pragma once

#include <string>
#include <tuple>

#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// Who made a commit, as its message tells.
struct CommitOrigin
{
    std::string mApplicationName;
    std::string mApplicationBuildNumber;
    std::string mApplicationInstanceID;
    std::string mMachineID;
    std::string mMachineName;
    std::string mMachineIP;
    std::string mTransactionType;

    static constexpr auto kFields = std::tuple{Always("applicationName", &CommitOrigin::mApplicationName),
                                               Always("applicationBuildNumber", &CommitOrigin::mApplicationBuildNumber),
                                               Always("applicationInstanceID", &CommitOrigin::mApplicationInstanceID),
                                               Always("machineID", &CommitOrigin::mMachineID),
                                               Always("machineName", &CommitOrigin::mMachineName),
                                               Always("machineIP", &CommitOrigin::mMachineIP),
                                               Always("transactionType", &CommitOrigin::mTransactionType)};
    friend bool operator==(const CommitOrigin&, const CommitOrigin&) = default;
};

/// The message of a commit that the hub makes of its own, and of one that it sends to a remote hub.
struct CommitMetadata
{
    std::string mCommitMessage;
    CommitOrigin mMetadata;
    int mCommitMessageCode = 0;
    ImmutableString mLocalCommitID;   ///< the commit's id in the session that made it
    ImmutableString mLocalSessionID;  ///< that session, in what goes to a remote hub

    static constexpr auto kFields = std::tuple{Always("commitMessage", &CommitMetadata::mCommitMessage),
                                               Always("metadata", &CommitMetadata::mMetadata),
                                               WhenSet("commitMessageCode", &CommitMetadata::mCommitMessageCode),
                                               WhenSet("localCommitID", &CommitMetadata::mLocalCommitID),
                                               WhenSet("localSessionID", &CommitMetadata::mLocalSessionID)};
    static constexpr bool kMayBeWrapped = true;
    friend bool operator==(const CommitMetadata&, const CommitMetadata&) = default;
};

}  // namespace VantryLocalHub::dto

#pragma once

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// What a sync job is to do. Also taken from inside a wrapping object.
struct SyncJobParameters
{
    ImmutableString mDirection;
    int mPriority = 0;
    RFC3339DateTime mTimestamp;
    ImmutableString mFromRevision;
    ImmutableString mToRevision;
    std::optional<std::vector<ImmutableString>>
        mMediaLocatorIDs;          ///< given, even when empty: the job moves media locators alone
    bool mUserEnclosures = false;  ///< the job moves user enclosures alone

    static constexpr auto kFields = std::tuple{Always("direction", &SyncJobParameters::mDirection),
                                               Always("priority", &SyncJobParameters::mPriority),
                                               WhenSet("timestamp", &SyncJobParameters::mTimestamp),
                                               WhenSet("fromRevision", &SyncJobParameters::mFromRevision),
                                               WhenSet("toRevision", &SyncJobParameters::mToRevision),
                                               WhenSet("mediaLocatorIDs", &SyncJobParameters::mMediaLocatorIDs),
                                               Always("userEnclosures", &SyncJobParameters::mUserEnclosures)};
    static constexpr bool kMayBeWrapped = true;
    friend bool operator==(const SyncJobParameters&, const SyncJobParameters&) = default;
};

/// One job.
struct Job
{
    ImmutableString mJobState;
    ImmutableString mJobType;
    double mProgress = 0;  ///< 0 to 1
    SyncJobParameters mParameters;
    int mHttpStatusCode = 0;    ///< of a job that failed
    std::string mResponseBody;  ///< of a job that failed
    std::string mResult;
    std::string mName;
    ImmutableString mID;
    RFC3339DateTime mCreated;  ///< as a remote hub sends it
    RFC3339DateTime mLastModified;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{Always("vy:jobState", &Job::mJobState),
                                               Always("vy:jobType", &Job::mJobType),
                                               Always("vy:progress", &Job::mProgress),
                                               Always("vy:parameters", &Job::mParameters),
                                               WhenSet("httpStatusCode", &Job::mHttpStatusCode),
                                               WhenSet("responseBody", &Job::mResponseBody),
                                               Always("vy:result", &Job::mResult),
                                               Always("jcr:name", &Job::mName),
                                               Always("id", &Job::mID),
                                               ReadOnly("jcr:created", &Job::mCreated),
                                               ReadOnly("jcr:lastModified", &Job::mLastModified),
                                               Always("links", &Job::mLinks)};
    friend bool operator==(const Job&, const Job&) = default;
};

struct JobList
{
    std::vector<Job> mJobs;
    Stats mStats;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{Always("jobs", &JobList::mJobs), Always("stats", &JobList::mStats),
                                               Always("links", &JobList::mLinks)};
    friend bool operator==(const JobList&, const JobList&) = default;
};

struct JobType
{
    ImmutableString mName;

    static constexpr auto kFields = std::tuple{Always("name", &JobType::mName)};
    friend bool operator==(const JobType&, const JobType&) = default;
};

struct JobTypes
{
    std::vector<JobType> mJobTypes;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("jobTypes", &JobTypes::mJobTypes), Always("links", &JobTypes::mLinks)};
    friend bool operator==(const JobTypes&, const JobTypes&) = default;
};

}  // namespace VantryLocalHub::dto

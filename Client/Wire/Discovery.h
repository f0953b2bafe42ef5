#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

struct ServerDescription
{
    ImmutableString mID;
    std::string mEnv;
    std::string mName;
    std::string mDescription;
    std::string mVersion;
    bool mRemoteRendering = false;
    bool mLocalHub = false;
    RawJSON mConfiguration;

    static constexpr auto kFields = std::tuple{Always("id", &ServerDescription::mID),
                                               Always("env", &ServerDescription::mEnv),
                                               Always("name", &ServerDescription::mName),
                                               Always("description", &ServerDescription::mDescription),
                                               Always("version", &ServerDescription::mVersion),
                                               Always("remoteRendering", &ServerDescription::mRemoteRendering),
                                               Always("localHub", &ServerDescription::mLocalHub),
                                               Always("configuration", &ServerDescription::mConfiguration)};
    friend bool operator==(const ServerDescription&, const ServerDescription&) = default;
};

/// What a server takes in one request.
struct Limit
{
    ImmutableString mMethod;
    std::int64_t mMaxPayloadPerRequest = 0;
    std::int64_t mMaxCallsPerMin = 0;
    std::int64_t mMaxElementsPerBulkRequest = 0;
    std::int64_t mLargePropertiesThreshold = 0;
    std::int64_t mLargeEnclosureThreshold = 0;

    static constexpr auto kFields =
        std::tuple{Always("method", &Limit::mMethod),
                   Always("max_payload_per_request", &Limit::mMaxPayloadPerRequest),
                   Always("max_calls_per_min", &Limit::mMaxCallsPerMin),
                   Always("max_elements_per_bulk_request", &Limit::mMaxElementsPerBulkRequest),
                   Always("large_properties_threshold", &Limit::mLargePropertiesThreshold),
                   Always("large_enclosure_threshold", &Limit::mLargeEnclosureThreshold)};
    friend bool operator==(const Limit&, const Limit&) = default;
};

/// Where a client begins.
struct DiscoveryResource
{
    ServerDescription mServer;
    int mMinorVersion = 0;
    int mMajorVersion = 0;
    RawJSON mProperties;
    std::vector<Limit> mLimits;
    std::vector<Link> mLinks;
    std::vector<Link> mEndpoints;

    static constexpr auto kFields = std::tuple{Always("server", &DiscoveryResource::mServer),
                                               Always("minorVersion", &DiscoveryResource::mMinorVersion),
                                               Always("majorVersion", &DiscoveryResource::mMajorVersion),
                                               Always("properties", &DiscoveryResource::mProperties),
                                               Always("limits", &DiscoveryResource::mLimits),
                                               Always("links", &DiscoveryResource::mLinks),
                                               Always("endpoints", &DiscoveryResource::mEndpoints)};
    friend bool operator==(const DiscoveryResource&, const DiscoveryResource&) = default;
};

}  // namespace VantryLocalHub::dto

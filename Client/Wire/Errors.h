#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

/// A standing complaint.
struct ErrorRecord
{
    int mErrorCode = 0;
    std::string mErrorString;
    ImmutableString mErrorID;

    static constexpr auto kFields =
        std::tuple{Always("errorCode", &ErrorRecord::mErrorCode), Always("errorString", &ErrorRecord::mErrorString),
                   Always("errorID", &ErrorRecord::mErrorID)};
    friend bool operator==(const ErrorRecord&, const ErrorRecord&) = default;
};

struct ServerErrors
{
    std::string mServerURL;
    std::vector<ErrorRecord> mErrors;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("serverURL", &ServerErrors::mServerURL), Always("errors", &ServerErrors::mErrors),
                   Always("links", &ServerErrors::mLinks)};
    friend bool operator==(const ServerErrors&, const ServerErrors&) = default;
};

struct SessionErrors
{
    ImmutableString mSessionID;
    std::vector<ErrorRecord> mErrors;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("sessionId", &SessionErrors::mSessionID), Always("errors", &SessionErrors::mErrors),
                   Always("links", &SessionErrors::mLinks)};
    friend bool operator==(const SessionErrors&, const SessionErrors&) = default;
};

/// All standing complaints.
struct ErrorsResource
{
    std::vector<ServerErrors> mServerErrors;
    std::vector<SessionErrors> mSessionErrors;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("serverErrors", &ErrorsResource::mServerErrors),
                   Always("sessionErrors", &ErrorsResource::mSessionErrors), Always("links", &ErrorsResource::mLinks)};
    friend bool operator==(const ErrorsResource&, const ErrorsResource&) = default;
};

}  // namespace VantryLocalHub::dto

#pragma once

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "Client/Wire/Link.h"
#include "Client/Wire/Record.h"

namespace VantryLocalHub::dto {

struct CurrentUserProperties
{
    std::string mFirstname;
    std::string mLastname;
    std::string mEmail;
    std::vector<std::string> mPermissions;
    std::vector<std::string> mAdministratorURLs;

    static constexpr auto kFields = std::tuple{
        Always("firstname", &CurrentUserProperties::mFirstname), Always("lastname", &CurrentUserProperties::mLastname),
        Always("email", &CurrentUserProperties::mEmail), Always("permissions", &CurrentUserProperties::mPermissions),
        Always("administratorURLs", &CurrentUserProperties::mAdministratorURLs)};
    friend bool operator==(const CurrentUserProperties&, const CurrentUserProperties&) = default;
};

struct CurrentUser
{
    ImmutableString mUserID;
    CurrentUserProperties mProperties;
    std::vector<Link> mLinks;

    static constexpr auto kFields =
        std::tuple{Always("vy:userId", &CurrentUser::mUserID), Always("properties", &CurrentUser::mProperties),
                   Always("links", &CurrentUser::mLinks)};
    friend bool operator==(const CurrentUser&, const CurrentUser&) = default;
};

/// How the hub stands with one server.
struct RemoteLoginStatus
{
    std::string mServerURL;
    std::string mServerVersion;
    bool mAuthorized = false;
    bool mConnected = false;
    std::string mErrorCode;
    std::string mMessage;
    std::string mForbidden;
    int mLastAuthorizationStatusCode = 0;

    static constexpr auto kFields =
        std::tuple{Always("serverURL", &RemoteLoginStatus::mServerURL),
                   Always("serverVersion", &RemoteLoginStatus::mServerVersion),
                   Always("authorized", &RemoteLoginStatus::mAuthorized),
                   Always("connected", &RemoteLoginStatus::mConnected),
                   Always("error_code", &RemoteLoginStatus::mErrorCode),
                   Always("message", &RemoteLoginStatus::mMessage),
                   Always("forbidden", &RemoteLoginStatus::mForbidden),
                   Always("lastAuthorizationStatusCode", &RemoteLoginStatus::mLastAuthorizationStatusCode)};
    friend bool operator==(const RemoteLoginStatus&, const RemoteLoginStatus&) = default;
};

struct RemoteLoginStatusList
{
    std::vector<RemoteLoginStatus> mRemoteLogin;
    std::vector<Link> mLinks;

    static constexpr auto kFields = std::tuple{Always("remoteLogin", &RemoteLoginStatusList::mRemoteLogin),
                                               Always("links", &RemoteLoginStatusList::mLinks)};
    friend bool operator==(const RemoteLoginStatusList&, const RemoteLoginStatusList&) = default;
};

/// What a client sends to sign in. Never written.
struct LoginCredentials
{
    ImmutableString mAuthType;
    std::string mPass;
    std::optional<std::string> mLocalHubAPIKey;

    static constexpr auto kFields =
        std::tuple{ReadOnly("authType", &LoginCredentials::mAuthType), ReadOnly("pass", &LoginCredentials::mPass),
                   ReadOnly("localHubAPIKey", &LoginCredentials::mLocalHubAPIKey)};
    friend bool operator==(const LoginCredentials&, const LoginCredentials&) = default;
};

/// Why a sign-in failed.
struct LoginError
{
    std::string mErrorCode;
    std::string mMessage;

    static constexpr auto kFields =
        std::tuple{Always("error_code", &LoginError::mErrorCode), Always("message", &LoginError::mMessage)};
    static constexpr bool kMayBeWrapped = true;
    friend bool operator==(const LoginError&, const LoginError&) = default;
};

}  // namespace VantryLocalHub::dto

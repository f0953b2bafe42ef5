#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Client/Wire/Vocabulary.h"

namespace VYCL {

/// What a user signs in with. A plain value; its secrets are never logged and never written to a file.
class VYSCredentials
{
public:
    [[nodiscard]] const std::string& GetUserID() const { return mUserID; }
    void SetUserID(std::string inUserID) { mUserID = std::move(inUserID); }
    [[nodiscard]] const std::string& GetPassword() const { return mPassword; }
    void SetPassword(std::string inPassword) { mPassword = std::move(inPassword); }

    /// GetAuthTokenType_Bearer() or GetAuthTokenType_None().
    [[nodiscard]] const noxcore::utility::ImmutableString& GetAuthTokenType() const { return mAuthTokenType; }
    void SetAuthTokenType(const noxcore::utility::ImmutableString& inType) { mAuthTokenType = inType; }
    [[nodiscard]] const std::string& GetAuthToken() const { return mAuthToken; }
    /// A token that the client has already: no sign-in is needed to get one.
    void SetAuthTokenDirect(std::string inToken) { mAuthToken = std::move(inToken); }

    [[nodiscard]] const std::optional<std::string>& GetLocalHubAPIKey() const { return mLocalHubAPIKey; }
    void SetLocalHubAPIKey(std::optional<std::string> inKey) { mLocalHubAPIKey = std::move(inKey); }

    friend bool operator==(const VYSCredentials&, const VYSCredentials&) = default;

private:
    std::string mUserID;
    std::string mPassword;
    noxcore::utility::ImmutableString mAuthTokenType = GetAuthTokenType_None();
    std::string mAuthToken;
    std::optional<std::string> mLocalHubAPIKey;
};

namespace LocalHub {

/// The API key that a client gave with its credentials; empty when it gave none.
std::string GetAPIKey(const VYSCredentials& inCredentials);

}  // namespace LocalHub

namespace LoginUtils {

/// "Bearer abc" gives "abc"; a text without the word is the token itself.
std::string BearerTokenToAccessToken(std::string_view inBearer);

}  // namespace LoginUtils

}  // namespace VYCL

#include "Client/VYClient/VYSCredentials.h"

#include <strings.h>

namespace VYCL {

std::string LocalHub::GetAPIKey(const VYSCredentials& inCredentials)
{
    return inCredentials.GetLocalHubAPIKey().value_or(std::string());
}

std::string LoginUtils::BearerTokenToAccessToken(std::string_view inBearer)
{
    constexpr std::string_view kWord = "Bearer ";
    constexpr std::string_view kBlanks = " \t\r\n";
    const auto trim = [kBlanks](std::string_view& ioText) {
        const auto begin = ioText.find_first_not_of(kBlanks);
        ioText = begin == std::string_view::npos ? std::string_view() : ioText.substr(begin);
        ioText = ioText.substr(0, ioText.find_last_not_of(kBlanks) + 1);
    };
    trim(inBearer);
    if (inBearer.size() >= kWord.size() && strncasecmp(inBearer.data(), kWord.data(), kWord.size()) == 0) {
        inBearer.remove_prefix(kWord.size());
        trim(inBearer);
    }
    return std::string(inBearer);
}

}  // namespace VYCL

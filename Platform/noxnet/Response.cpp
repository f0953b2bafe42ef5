#include <algorithm>

#include "Platform/noxnet/IncomingRequest.h"

namespace noxnet::http::server {

void MutableResponse::SetHeader(std::string_view inName, std::string_view inValue)
{
    const auto found = std::find_if(mHeaders.begin(), mHeaders.end(), [inName](const auto& inHeader) {
        return EqualWithoutCase(inHeader.first, inName);
    });
    if (found == mHeaders.end())
        mHeaders.emplace_back(inName, inValue);
    else
        found->second = inValue;
}

std::string_view MutableResponse::Header(std::string_view inName) const
{
    for (const auto& [name, value] : mHeaders)
        if (EqualWithoutCase(name, inName)) return value;
    return {};
}

}  // namespace noxnet::http::server

#pragma once

#include <string>
#include <string_view>

namespace hubctl {

/// The text as UTF-8: each byte that is no part of it becomes U+FFFD. outChanged tells whether there was one.
std::string ToValidUTF8(std::string_view inBytes, bool& outChanged);

/// The bytes with all but unreserved characters and "/" as "%XX".
std::string PercentEncoded(std::string_view inBytes);

/// Valid UTF-8 without control characters, which could steer a terminal: those become "?".
std::string Printable(std::string_view inText);

}  // namespace hubctl

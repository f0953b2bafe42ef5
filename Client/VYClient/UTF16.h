#pragma once

#include <string>
#include <string_view>

namespace VYCL {

/// The two text forms of the suite: its names and paths are UTF-16, everything on the wire is UTF-8. What is broken in
/// the one becomes U+FFFD in the other.
std::string ToUTF8(std::u16string_view inText);
std::u16string ToUTF16(std::string_view inText);
inline bool IsUTF8(std::string_view inText)
{
    return ToUTF8(ToUTF16(inText)) == inText;
}

}  // namespace VYCL

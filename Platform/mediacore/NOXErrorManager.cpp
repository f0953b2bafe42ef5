#include "Platform/mediacore/NOXErrorManager.h"

#include <array>
#include <cstdio>

#include "Platform/noxcore/Logging.h"

namespace MX {

void NOXErrorManager::ReportError(std::uint32_t inCode, std::string_view inText)
{
    std::array<char, 16> code{};
    std::snprintf(code.data(), code.size(), "0x%08X", inCode);
    noxcore::logging::LogError("MX", "Unhandled error", {{"code", code.data()}, {"text", inText}});
}

}  // namespace MX

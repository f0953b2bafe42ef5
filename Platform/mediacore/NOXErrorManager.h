#pragma once

#include "Platform/noxcore/ErrorManager.h"

namespace MX {

/// The media core's error manager: every report becomes a record at error level. Threading: any thread.
class NOXErrorManager final : public noxcore::config::ErrorManager
{
public:
    void ReportError(std::uint32_t inCode, std::string_view inText) override;
};

}  // namespace MX

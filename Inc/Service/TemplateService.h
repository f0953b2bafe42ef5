#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// Templates, and the sessions that are made of them. Threading: any thread; no state.
class TemplateService final : public RoutedService<TemplateService>
{
public:
    static constexpr std::string_view kName = "TemplateService";
    TemplateService();
};

}  // namespace VantryLocalHub

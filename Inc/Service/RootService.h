#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// Discovery: what the hub is, and where everything else begins. Threading: any thread; no state.
class RootService final : public RoutedService<RootService>
{
public:
    static constexpr std::string_view kName = "RootService";
    RootService();
    [[nodiscard]] bool AnswersAtOnce(const noxnet::http::server::Request& inRequest) const override;
};

}  // namespace VantryLocalHub

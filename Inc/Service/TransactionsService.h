#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// The open transactions of a session, and the opening of one. Threading: any thread; no state.
class TransactionsService final : public RoutedService<TransactionsService>
{
public:
    static constexpr std::string_view kName = "TransactionsService";
    TransactionsService();
};

}  // namespace VantryLocalHub

#pragma once

#include "Inc/Service/RoutedService.h"

namespace VantryLocalHub {

/// One open transaction: what is added to it, its commit and its end. Threading: any thread; no state.
class TransactionService final : public RoutedService<TransactionService>
{
public:
    static constexpr std::string_view kName = "TransactionService";
    TransactionService();
};

}  // namespace VantryLocalHub

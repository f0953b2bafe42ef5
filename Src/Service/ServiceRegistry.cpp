#include "Inc/Service/ServiceRegistry.h"

#include <map>
#include <string_view>

#include "Inc/Service/AssetService.h"
#include "Inc/Service/AssetsService.h"
#include "Inc/Service/ProductionService.h"
#include "Inc/Service/ProductionsService.h"
#include "Inc/Service/RootService.h"
#include "Inc/Service/SessionsService.h"
#include "Inc/Service/TransactionService.h"
#include "Inc/Service/TransactionsService.h"
#include "Inc/Service/UnavailableService.h"

namespace VantryLocalHub {

namespace {

using MakeService = std::shared_ptr<VantryAPIService> (*)();

template <class Type>
std::shared_ptr<VantryAPIService> Make()
{
    return std::make_shared<Type>();
}

template <class... Types>
std::map<std::string_view, MakeService> MakersOf()
{
    return {{Types::kName, &Make<Types>}...};
}

}  // namespace

std::vector<std::shared_ptr<VantryAPIService>> MakeAllServices()
{
    const auto makers = MakersOf<AssetService, AssetsService, ProductionService, ProductionsService, RootService,
                                 SessionsService, TransactionService, TransactionsService>();
    std::vector<std::shared_ptr<VantryAPIService>> services;
    for (const Routes::Service& route : Routes::kServices) {
        const auto maker = makers.find(route.mName);
        services.push_back(maker == makers.end() ? std::make_shared<UnavailableService>(route) : maker->second());
    }
    return services;
}

}  // namespace VantryLocalHub

#include "Inc/Service/ServiceRegistry.h"

#include <map>
#include <string_view>

#include "Inc/Service/ArchivedProductionService.h"
#include "Inc/Service/ArchivedProductionsService.h"
#include "Inc/Service/AssetService.h"
#include "Inc/Service/AssetsService.h"
#include "Inc/Service/CollaboratorsActivityService.h"
#include "Inc/Service/CollaboratorsPresenceService.h"
#include "Inc/Service/CollaboratorsService.h"
#include "Inc/Service/CurrentUserService.h"
#include "Inc/Service/DifferencesService.h"
#include "Inc/Service/ErrorsService.h"
#include "Inc/Service/HistoryService.h"
#include "Inc/Service/InvitesService.h"
#include "Inc/Service/JobsService.h"
#include "Inc/Service/MediaLocatorsService.h"
#include "Inc/Service/PosterFrameService.h"
#include "Inc/Service/PreferencesService.h"
#include "Inc/Service/ProductionBatonService.h"
#include "Inc/Service/ProductionService.h"
#include "Inc/Service/ProductionsService.h"
#include "Inc/Service/RemoteLoginService.h"
#include "Inc/Service/ResolveService.h"
#include "Inc/Service/RootService.h"
#include "Inc/Service/RopeFileService.h"
#include "Inc/Service/SessionStatusService.h"
#include "Inc/Service/SessionsService.h"
#include "Inc/Service/ShareService.h"
#include "Inc/Service/SnapshotService.h"
#include "Inc/Service/SyncControlService.h"
#include "Inc/Service/SyncStatusService.h"
#include "Inc/Service/TemplateService.h"
#include "Inc/Service/TransactionService.h"
#include "Inc/Service/TransactionsService.h"

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
    const auto makers =
        MakersOf<ArchivedProductionService, ArchivedProductionsService, AssetService, AssetsService,
                 CollaboratorsActivityService, CollaboratorsPresenceService, CollaboratorsService, CurrentUserService,
                 DifferencesService, ErrorsService, HistoryService, InvitesService, JobsService, MediaLocatorsService,
                 PosterFrameService, PreferencesService, ProductionBatonService, ProductionService, ProductionsService,
                 RemoteLoginService, ResolveService, RootService, RopeFileService, SessionStatusService,
                 SessionsService, ShareService, SnapshotService, SyncControlService, SyncStatusService, TemplateService,
                 TransactionService, TransactionsService>();
    std::vector<std::shared_ptr<VantryAPIService>> services;
    for (const Routes::Service& route : Routes::kServices)
        services.push_back(makers.at(route.mName)());
    return services;
}

}  // namespace VantryLocalHub

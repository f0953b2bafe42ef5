#include "Inc/Service/UnavailableService.h"

namespace VantryLocalHub {

namespace {

int NotImplemented(const RequestPtr&, const ResponsePtr&)
{
    return noxnet::kHTTPStatus_NotImplemented;
}

}  // namespace

UnavailableService::UnavailableService(const Routes::Service& inRoute)
    : VantryAPIService(inRoute), mExpression(inRoute.mExpression)
{
    for (const Routes::Handler& handler : inRoute) {
        if (handler.mSelector.empty())
            AddSyncMethod(handler.mMethod, NotImplemented);
        else
            AddSyncSelector(handler.mMethod, handler.mSelector, inRoute.mSelectorGroup, NotImplemented);
    }
}

}  // namespace VantryLocalHub

#pragma once

#include <string_view>
#include <utility>

#include "Inc/Service/VantryAPIService.h"

namespace VantryLocalHub {

/// A service of one row of the routing table, named by Derived::kName. Its constructor gives each handler of the row.
template <class Derived, class Base = VantryAPIService>
class RoutedService : public Base
{
public:
    [[nodiscard]] const noxnet::http::server::PathExpression& Expression() const override
    {
        static const noxnet::http::server::PathExpression kExpression(Row().mExpression);
        return kExpression;
    }

protected:
    RoutedService() : Base(Row()) {}

    /// Without a selector the handler takes what no selector of the method takes.
    void Sync(std::string_view inMethod, std::string_view inSelector, SyncHandler inHandler)
    {
        if (inSelector.empty())
            this->AddSyncMethod(inMethod, std::move(inHandler));
        else
            this->AddSyncSelector(inMethod, inSelector, Row().mSelectorGroup, std::move(inHandler));
    }
    void Async(std::string_view inMethod, std::string_view inSelector, AsyncHandler inHandler)
    {
        if (inSelector.empty())
            this->AddAsyncMethod(inMethod, std::move(inHandler));
        else
            this->AddAsyncSelector(inMethod, inSelector, Row().mSelectorGroup, std::move(inHandler));
    }

private:
    static const Routes::Service& Row()
    {
        static_assert(Routes::FindService(Derived::kName) != nullptr, "the routing table has no such service");
        return *Routes::FindService(Derived::kName);
    }
};

}  // namespace VantryLocalHub

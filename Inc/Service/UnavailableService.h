#pragma once

#include "Inc/Service/VantryAPIService.h"

namespace VantryLocalHub {

/// A resource whose work the hub does not have: it takes its place in the routing, and each of its handlers answers
/// 501. Threading: any thread; no state.
class UnavailableService final : public VantryAPIService
{
public:
    explicit UnavailableService(const Routes::Service& inRoute);
    [[nodiscard]] const noxnet::http::server::PathExpression& Expression() const override { return mExpression; }

private:
    const noxnet::http::server::PathExpression mExpression;
};

}  // namespace VantryLocalHub

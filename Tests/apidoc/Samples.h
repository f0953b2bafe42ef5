#pragma once

#include <string>
#include <vector>

#include "Client/Wire/Operations/Operations.h"
#include "Client/Wire/Operations/Parameters.h"
#include "Client/Wire/Routes.h"
#include "Platform/noxnet/HTTPServer.h"

namespace apidoc_test {

using VantryLocalHub::API::Operation;
using VantryLocalHub::API::Resource;

/// The path of an operation as a client may send it, with the given revision.
inline std::string SamplePath(const Operation& inOperation, std::string_view inRevision)
{
    std::string path = inOperation.mPath.Named();
    for (const auto& parameter : VantryLocalHub::API::kPathParameters) {
        const std::string gap = std::string("{").append(parameter.mName).append("}");
        const auto place = path.find(gap);
        if (place != std::string::npos)
            path.replace(place, gap.size(), parameter.mName == "commitId" ? inRevision : parameter.mSample);
    }
    return path;
}

/// The first service whose expression matches, as the server asks them, and the groups of the match.
inline const VantryLocalHub::Routes::Service* Route(const std::string& inPath, std::vector<std::string>& outGroups)
{
    for (const auto& service : VantryLocalHub::Routes::kServices) {
        std::vector<std::string_view> groups;
        if (noxnet::http::server::PathExpression(service.mExpression).Match(inPath, groups)) {
            outGroups.assign(groups.begin(), groups.end());
            return &service;
        }
    }
    return nullptr;
}

/// Calls the function with each operation and its resource.
template <class Function>
void ForEachOperation(const Function& inFunction)
{
    for (const Resource& resource : VantryLocalHub::API::kResources)
        for (const Operation& operation : resource.mOperations)
            inFunction(resource, operation);
}

}  // namespace apidoc_test

#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Client/Wire/Operations/Operations.h"

namespace apidoc {

using VantryLocalHub::API::Answer;
using VantryLocalHub::API::Operation;
using VantryLocalHub::API::Resource;

/// What an operation answers with one status.
struct Status
{
    std::string mMeaning;
    const Answer* mAnswer = nullptr;  ///< null for a failure, a redirect and 304
};

/// All statuses of an operation that are its own, those that its routing row brings included. What any request can be
/// answered is not among them: kCommonStatuses.
std::map<int, Status> StatusesOf(const Resource& inResource, const Operation& inOperation);

struct CommonStatus
{
    int mStatus;
    std::string_view mWhen;
};
inline constexpr CommonStatus kCommonStatuses[] = {
    {400, "the request is no HTTP, its path is not understood, or it has no body where one is needed"},
    {403, "the connection is another user's, or `Host`, `Origin` or `Sec-Fetch-Site` tell of another site"},
    {404, "no resource has such a path"},
    {408, "the request did not arrive in time"},
    {413, "the body is too large"},
    {414, "the path is too long"},
    {431, "the header is too large"},
    {500,
     "the store or the engine is ending, a file cannot be read or written, or links cannot be made for lack of a "
     "`Host` header"},
    {501, "the resource has no such method"},
    {503, "the hub is ending, or has too much at hand"},
};

/// Whether a GET at "HEAD" is sent on to the commit.
bool IsRedirected(const Resource& inResource, const Operation& inOperation);
/// Whether it can wait for a change.
bool IsLongPoll(const Resource& inResource, const Operation& inOperation);

/// Names in braces of a path, in order.
std::vector<std::string> NamesInPath(std::string_view inPath);
/// A name of an operation that no other has: its method and its path.
std::string OperationID(const Operation& inOperation);

}  // namespace apidoc

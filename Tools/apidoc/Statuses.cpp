#include "Tools/apidoc/Statuses.h"

#include <algorithm>
#include <cctype>

#include "Client/Wire/Routes.h"

namespace apidoc {

namespace Routes = VantryLocalHub::Routes;
namespace API = VantryLocalHub::API;

namespace {

std::string Capitalised(std::string_view inWord)
{
    std::string word(inWord);
    if (!word.empty()) word.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(word.front())));
    return word;
}

}  // namespace

bool IsRedirected(const Resource& inResource, const Operation& inOperation)
{
    const Routes::Service* service = Routes::FindService(inResource.mService);
    return service != nullptr && service->mProductionGroup != service->mRevisionGroup &&
           (inOperation.mMethod == "GET" || inOperation.mMethod == "HEAD") &&
           std::ranges::count(NamesInPath(inOperation.mPath.Named()), "commitId") != 0;
}

bool IsLongPoll(const Resource& inResource, const Operation& inOperation)
{
    const Routes::Service* service = Routes::FindService(inResource.mService);
    return service != nullptr && std::any_of(service->begin(), service->end(), [&](const Routes::Handler& inHandler) {
               return inHandler.mLongPoll && inHandler.mMethod == inOperation.mMethod &&
                      inHandler.mSelector == inOperation.mSelector;
           });
}

std::map<int, Status> StatusesOf(const Resource& inResource, const Operation& inOperation)
{
    std::map<int, Status> statuses;
    for (const Answer& answer : inOperation.mAnswers)
        statuses.emplace(answer.mStatus, Status{std::string(answer.mMeaning), &answer});
    if (inOperation.mIsTagged)
        statuses.emplace(304, Status{IsLongPoll(inResource, inOperation)
                                         ? "`If-None-Match` is the tag still; with `X-LongPoll`, another client's "
                                           "session has ended: ask again"
                                         : "`If-None-Match` is the tag still",
                                     nullptr});
    if (IsRedirected(inResource, inOperation))
        statuses.emplace(307, Status{"the revision is \"HEAD\": `Location` has the path with the commit", nullptr});
    for (const API::Failure& failure : inOperation.mFailures)
        statuses.emplace(failure.mStatus, Status{std::string(failure.mWhen), nullptr});
    return statuses;
}

std::vector<std::string> NamesInPath(std::string_view inPath)
{
    std::vector<std::string> names;
    for (auto begin = inPath.find('{'); begin != std::string_view::npos; begin = inPath.find('{', begin + 1))
        names.emplace_back(inPath.substr(begin + 1, inPath.find('}', begin) - begin - 1));
    return names;
}

std::string OperationID(const Operation& inOperation)
{
    std::string id;
    for (const char letter : inOperation.mMethod)
        id += static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    const std::string path = inOperation.mPath.Named();
    std::string_view rest = std::string_view(path).substr(std::string_view("/api").size());
    std::string names;
    while (!rest.empty()) {
        rest.remove_prefix(1);
        const std::string_view element = rest.substr(0, rest.find('/'));
        rest.remove_prefix(element.size());
        if (element == "-" || element == "HEAD") continue;
        if (element.starts_with('{'))
            names += Capitalised(element.substr(1, element.size() - 2));
        else
            id += Capitalised(element);
    }
    return names.empty() ? id : id + "By" + names;
}

}  // namespace apidoc

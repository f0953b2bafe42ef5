#include "Inc/Service/HistoryService.h"

#include <charconv>
#include <limits>

#include "Client/VYClient/History.h"
#include "Client/Wire/FormKeys.h"
#include "Client/Wire/History.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Inc/Model/ProjectBox.h"
#include "Inc/Service/ServiceUtils.h"

namespace VantryLocalHub {

namespace Relation = VYCL::LinkRelation;
namespace Template = VYCL::URLTemplate;
using VYCL::LocalHub::Revision_HEAD;

namespace {

constexpr std::int32_t kVersionsWhenUnasked = 100;

/// A whole number from 0 on that fits 32 bits; an empty text leaves the number as it is.
bool ReadNumber(std::string_view inText, std::int32_t& ioNumber)
{
    if (inText.empty()) return true;
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(inText.data(), inText.data() + inText.size(), number);
    if (error != std::errc() || end != inText.data() + inText.size() || number < 0 || inText.front() == '-')
        return false;
    ioNumber = number;
    return true;
}

struct Page
{
    bool mFromHead = false;  ///< asked for by the word, not by a number
    std::int32_t mStart = 0;
    std::int32_t mCount = kVersionsWhenUnasked;
};

bool ReadPage(const noxnet::http::server::Request& inRequest, Page& outPage)
{
    const std::string start = inRequest.QueryValue(VYCL::QueryKeys::kStartIndex);
    outPage.mFromHead = Revision_HEAD().View() == start;
    return (outPage.mFromHead || ReadNumber(start, outPage.mStart)) &&
           ReadNumber(inRequest.QueryValue(VYCL::QueryKeys::kCount), outPage.mCount);
}

dto::HistoryVersion MakeVersion(LinkMaker& ioMaker, const ImmutableString& inProductionID, StoredVersion inVersion)
{
    dto::HistoryVersion version;
    version.mCommitID = inVersion.mCommitID;
    version.mID = inVersion.mCommitID;
    version.mTimestamp = inVersion.mTime;
    version.mName = std::move(inVersion.mAuthorName);
    version.mCommitter = std::move(inVersion.mCommitter);
    version.mParents = std::move(inVersion.mParents);
    version.mVersionNumber = static_cast<int>(inVersion.mVersionNumber);
    // The title is the message as the commit has it, which may carry metadata; the info's is for people.
    version.mInfo.mMessage = VYCL::GetCommitMessageFromTitle(inVersion.mMessage);
    version.mTitle = std::move(inVersion.mMessage);
    ioMaker.Add(version.mLinks, Relation::Self(), Template::kProduction, inProductionID, version.mCommitID);
    if (!version.mParents.empty())
        ioMaker.Add(version.mLinks, Relation::ProductionsProduction_DifferenceByCommit(), Template::kDifferences,
                    inProductionID, version.mParents.front(), version.mCommitID);
    return version;
}

int AnswerHistory(const RequestPtr& inRequest, const ResponsePtr& inResponse, const ImmutableString& inProductionID,
                  const Page& inPage, std::vector<StoredVersion> inVersions, std::size_t inTotal)
{
    LinkMaker maker(*inRequest);
    dto::HistoryResource resource;
    resource.mVersions.reserve(inVersions.size());
    for (StoredVersion& version : inVersions)
        resource.mVersions.push_back(MakeVersion(maker, inProductionID, std::move(version)));
    resource.mStats = {static_cast<int>(inTotal), inPage.mStart, inPage.mCount, static_cast<int>(inVersions.size())};
    maker.Add(resource.mLinks, Relation::Self(), Template::kHistory, inProductionID);
    maker.Add(resource.mLinks, Relation::First(), Template::kHistory_StartIndexHEAD, inProductionID);
    const std::size_t next = static_cast<std::size_t>(inPage.mStart) + inVersions.size();
    if (next < inTotal && !inVersions.empty())
        maker.Add(resource.mLinks, Relation::Next(), Template::kHistory_StartIndex, inProductionID,
                  std::to_string(next));
    if (maker.Failed()) return noxnet::kHTTPStatus_InternalServerError;
    std::string payload = dto::ToJSON(resource);
    if (!inPage.mFromHead) return SetPayloadWithEntityTag(*inRequest, std::move(payload), *inResponse);
    SetPayload(std::move(payload), *inResponse);
    return noxnet::kHTTPStatus_OK;
}

int GetHistory(const RequestPtr& inRequest, const ResponsePtr& inResponse)
{
    const auto projectBox = ProjectBox::Instance();
    if (projectBox == nullptr) return noxnet::kHTTPStatus_InternalServerError;
    ImmutableString production;
    Page page;
    if (!ExtractSubExpression(*inRequest, 1, production) || !ReadPage(*inRequest, page))
        return noxnet::kHTTPStatus_BadRequest;
    dto::Session head;
    int status = projectBox->GetProduction(production, Revision_HEAD(), head);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    // Whoever has this head's history needs no reading of it.
    if (page.mFromHead && SetEntityTag(*inRequest, head.mRevision, *inResponse)) return noxnet::kHTTPStatus_NotModified;
    std::vector<StoredVersion> versions;
    std::size_t total = 0;
    status = projectBox->GetSessionHistory(head.mIdentifier, static_cast<std::size_t>(page.mStart),
                                           static_cast<std::size_t>(page.mCount), versions, total);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    return AnswerHistory(inRequest, inResponse, production, page, std::move(versions), total);
}

}  // namespace

HistoryService::HistoryService()
{
    Sync("GET", {}, GetHistory);
}

}  // namespace VantryLocalHub

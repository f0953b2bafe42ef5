#include <gtest/gtest.h>
#include <re2/re2.h>

#include <algorithm>
#include <boost/regex.hpp>
#include <cctype>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Client/Wire/FormKeys.h"
#include "Client/Wire/LinkRelations.h"
#include "Client/Wire/Routes.h"
#include "Client/Wire/URLTemplates.h"
#include "Client/Wire/Vocabulary.h"
#include "Platform/noxcore/FileSupport.h"

namespace {

using VantryLocalHub::Routes::FindService;
using VantryLocalHub::Routes::kServices;
using VantryLocalHub::Routes::Service;

/// A URL that a client may send for a template: every gap filled, without the query.
std::string PathOf(std::string_view inTemplate)
{
    std::string path(inTemplate.substr(0, inTemplate.find('?')));
    for (auto gap = path.find("%s"); gap != std::string::npos; gap = path.find("%s")) {
        path.replace(gap, 2, "p-0f8fad5b-d9cb-469f-a165-70867728950e");
    }
    for (auto gap = path.find('{'); gap != std::string::npos; gap = path.find('{')) {
        const auto end = path.find('}', gap);
        const auto name = path.substr(gap, end - gap + 1);
        path.replace(
            gap, name.size(),
            name == "{lastModified}" ? "2026-01-31T23%3A59%3A59Z" : "9e107d9d372bb6826bd81d3542a419d6cafe0000");
    }
    return path;
}

/// The service that answers a path, and what its capture groups hold.
const Service* Route(const std::string& inPath, std::vector<std::string>& outGroups)
{
    for (const auto& service : kServices) {
        boost::smatch match;
        if (boost::regex_match(inPath, match, boost::regex(std::string(service.mExpression)))) {
            outGroups.assign(match.begin(), match.end());
            return &service;
        }
    }
    return nullptr;
}

bool RE2Matches(const Service& inService, const std::string& inPath)
{
    const re2::RE2 expression(std::string(inService.mExpression), re2::RE2::Quiet);
    EXPECT_TRUE(expression.ok()) << inService.mName;
    return re2::RE2::FullMatch(inPath, expression);
}

/// The lines of a file of the folder with the fixed texts.
std::vector<std::string> GoldenLines(const std::string& inName)
{
    std::string content;
    EXPECT_TRUE(noxcore::filesupport::Files().ReadFile(std::string(WIRE_GOLDEN_FOLDER) + "/" + inName, content));
    std::vector<std::string> lines;
    std::istringstream stream(content);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

/// A row of the routing table as the fixed text writes it: name, expression, groups of selector, production and
/// revision, then each handler with a colon before its selector and a plus behind a GET that can wait.
std::string TextOf(const Service& inService)
{
    std::vector<std::string> handlers;
    for (const auto& handler : inService) {
        std::string text(handler.mMethod);
        if (!handler.mSelector.empty()) text.append(":").append(handler.mSelector);
        handlers.push_back(text + (handler.mLongPoll ? "+" : ""));
    }
    std::sort(handlers.begin(), handlers.end());
    std::ostringstream row;
    row << inService.mName << ' ' << inService.mExpression << ' ' << inService.mSelectorGroup << ' '
        << inService.mProductionGroup << ' ' << inService.mRevisionGroup;
    for (const auto& handler : handlers)
        row << ' ' << handler;
    return row.str();
}

/// The service that each first word of a path is meant for.
const std::map<std::string, std::string>& ServicesByWord()
{
    static const std::map<std::string, std::string> kServicesByWord = {{"activity", "CollaboratorsActivityService"},
                                                                       {"archive", "ArchivedProductionService"},
                                                                       {"archives", "ArchivedProductionsService"},
                                                                       {"asset", "AssetService"},
                                                                       {"assets", "AssetsService"},
                                                                       {"batons", "ProductionBatonService"},
                                                                       {"collaborators", "CollaboratorsService"},
                                                                       {"differences", "DifferencesService"},
                                                                       {"errors", "ErrorsService"},
                                                                       {"history", "HistoryService"},
                                                                       {"invites", "InvitesService"},
                                                                       {"jobs", "JobsService"},
                                                                       {"medialocators", "MediaLocatorsService"},
                                                                       {"poster", "PosterFrameService"},
                                                                       {"preferences", "PreferencesService"},
                                                                       {"presence", "CollaboratorsPresenceService"},
                                                                       {"production", "ProductionService"},
                                                                       {"productions", "ProductionsService"},
                                                                       {"remoteLogin", "RemoteLoginService"},
                                                                       {"remoteLogout", "RemoteLoginService"},
                                                                       {"resolve", "ResolveService"},
                                                                       {"ropeFile", "RopeFileService"},
                                                                       {"session", "SessionStatusService"},
                                                                       {"sessions", "SessionsService"},
                                                                       {"share", "ShareService"},
                                                                       {"snapshot", "SnapshotService"},
                                                                       {"sync/control", "SyncControlService"},
                                                                       {"sync/status", "SyncStatusService"},
                                                                       {"template", "TemplateService"},
                                                                       {"transaction", "TransactionService"},
                                                                       {"transactions", "TransactionsService"},
                                                                       {"user", "CurrentUserService"},
                                                                       {"v1", "RootService"}};
    return kServicesByWord;
}

std::string ServiceMeantFor(const std::string& inPath)
{
    auto words = inPath.substr(std::string("/api/").size());
    auto end = words.find('/');
    if (words.starts_with("sync/")) end = words.find('/', end + 1);
    return ServicesByWord().at(words.substr(0, end));
}

TEST(LinkRelations, AreAHundredAndEightDifferentURIs)
{
    const std::set<std::string_view> different(VYCL::LinkRelation::kAllURIs.begin(),
                                               VYCL::LinkRelation::kAllURIs.end());
    EXPECT_EQ(108U, VYCL::LinkRelation::kAllURIs.size());
    EXPECT_EQ(108U, different.size());
    for (const auto relation : different) {
        EXPECT_TRUE(relation.starts_with("https://ns.corvane.example/rel/")) << relation;
    }
    EXPECT_EQ("https://ns.corvane.example/rel/assets/asset#byId", VYCL::LinkRelation::AssetsAsset_ById());
    EXPECT_EQ("latest-version", VYCL::LinkRelation::LatestVersion());
}

TEST(LinkRelations, AreThoseThatClientsKnow)
{
    std::vector<std::string> expected = GoldenLines("LinkRelations.txt");
    for (std::string& path : expected)
        path.insert(0, VYCL_LINK_RELATION_PREFIX);
    EXPECT_EQ(expected,
              std::vector<std::string>(VYCL::LinkRelation::kAllURIs.begin(), VYCL::LinkRelation::kAllURIs.end()));
#define ROW(name, text) EXPECT_EQ(text, VYCL::LinkRelation::name());
    VYCL_PLAIN_LINK_RELATIONS(ROW)
#undef ROW
}

TEST(URLTemplates, AreThoseThatClientsKnow)
{
    EXPECT_EQ(GoldenLines("URLTemplates.txt"),
              std::vector<std::string>(VYCL::URLTemplate::kAll.begin(), VYCL::URLTemplate::kAll.end()));
}

TEST(Routes, AreThoseThatClientsKnow)
{
    std::vector<std::string> rows;
    for (const auto& service : kServices)
        rows.push_back(TextOf(service));
    std::sort(rows.begin(), rows.end());
    EXPECT_EQ(GoldenLines("Routes.txt"), rows);
}

TEST(URLTemplates, AreAHundredAndTwentyOneDifferentPaths)
{
    const std::set<std::string_view> different(VYCL::URLTemplate::kAll.begin(), VYCL::URLTemplate::kAll.end());
    EXPECT_EQ(121U, VYCL::URLTemplate::kAll.size());
    EXPECT_EQ(121U, different.size());
    for (const auto text : different) {
        EXPECT_TRUE(text.starts_with("/api/")) << text;
    }
}

TEST(Routes, HoldThirtyTwoDifferentServices)
{
    std::set<std::string_view> names;
    for (const auto& service : kServices) {
        names.insert(service.mName);
        EXPECT_GT(service.CountHandlers(), 0U) << service.mName;
    }
    EXPECT_EQ(32U, kServices.size());
    EXPECT_EQ(32U, names.size());
    EXPECT_EQ(nullptr, FindService("NoService"));
}

TEST(Routes, BringEveryTemplateToTheServiceMeantForIt)
{
    for (const auto text : VYCL::URLTemplate::kAll) {
        const auto path = PathOf(text);
        std::vector<std::string> groups;
        const auto* service = Route(path, groups);
        ASSERT_NE(nullptr, service) << path;
        EXPECT_EQ(ServiceMeantFor(path), service->mName) << path;
    }
}

TEST(Routes, AreTheSameForBothRegularExpressionLibraries)
{
    for (const auto text : VYCL::URLTemplate::kAll) {
        const auto path = PathOf(text);
        for (const auto& service : kServices) {
            EXPECT_EQ(boost::regex_match(path, boost::regex(std::string(service.mExpression))),
                      RE2Matches(service, path))
                << service.mName << " " << path;
        }
    }
}

TEST(Routes, NameGroupsThatTheirExpressionsHave)
{
    for (const auto& service : kServices) {
        const auto groups = static_cast<int>(boost::regex(std::string(service.mExpression)).mark_count());
        EXPECT_LE(service.mSelectorGroup, groups) << service.mName;
        EXPECT_LE(service.mProductionGroup, groups) << service.mName;
        EXPECT_LE(service.mRevisionGroup, groups) << service.mName;
        EXPECT_EQ(service.mProductionGroup == 0, service.mRevisionGroup == 0) << service.mName;
        for (const auto& handler : service) {
            EXPECT_TRUE(handler.mSelector.empty() || service.mSelectorGroup > 0) << service.mName;
        }
    }
}

TEST(Routes, HaveAHandlerForTheSelectorOfEveryTemplate)
{
    // Links that clients follow with another method than the hub serves, or that stand for a later request.
    const std::set<std::string_view> withoutHandler = {"createEnclosure", "bulkGet", "enclosures"};
    for (const auto text : VYCL::URLTemplate::kAll) {
        std::vector<std::string> groups;
        const auto* service = Route(PathOf(text), groups);
        ASSERT_NE(nullptr, service);
        const auto selector =
            service->mSelectorGroup == 0 ? "" : groups[static_cast<std::size_t>(service->mSelectorGroup)];
        const bool handled = std::any_of(service->begin(), service->end(), [&selector](const auto& inHandler) {
            return inHandler.mSelector == selector;
        });
        EXPECT_TRUE(handled || withoutHandler.contains(selector)) << text << " " << selector;
    }
}

TEST(Routes, MarkTheSixGETsThatWaitForAChange)
{
    std::set<std::string> waiting;
    for (const auto& service : kServices) {
        for (const auto& handler : service) {
            if (handler.mLongPoll) {
                EXPECT_EQ("GET", handler.mMethod);
                waiting.insert(std::string(service.mName) + ":" + std::string(handler.mSelector));
            }
        }
    }
    const std::set<std::string> expected = {"CollaboratorsPresenceService:", "ErrorsService:all",
                                            "ProductionBatonService:",       "RemoteLoginService:in",
                                            "SessionStatusService:",         "SyncStatusService:all"};
    EXPECT_EQ(expected, waiting);
}

TEST(Routes, BringAnyPathWithTheWordDiscoveryToTheRootUnlessAnEarlierServiceTakesIt)
{
    std::vector<std::string> groups;
    EXPECT_EQ("RootService", Route("/any/discovery/at/all", groups)->mName);
    EXPECT_EQ("ProductionService", Route("/api/production/discovery/HEAD", groups)->mName);
    EXPECT_EQ("RootService", Route("/api/sessions/discovery", groups)->mName);
    EXPECT_EQ(nullptr, Route("/api/nothing", groups));
}

std::string LastWord(const std::string& inName)
{
    return inName.substr(inName.rfind('_') + 1);
}

TEST(Vocabulary, WordsAreTheLastWordOfTheirNames)
{
#define ROW(name, text) EXPECT_EQ(LastWord(#name), std::string(text)) << #name;
    VYCL_WORDS(ROW)
    VYCL_LOCALHUB_WORDS(ROW)
#undef ROW
}

TEST(Vocabulary, FormWordsAreTheLastWordOfTheirNamesInLowerCamelCase)
{
    const auto lowerCamel = [](std::string inWord) {
        inWord[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(inWord[0])));
        return inWord;
    };
#define ROW(name, text) EXPECT_EQ(lowerCamel(LastWord(#name)), std::string(text)) << #name;
    VYCL_LOCALHUB_FORM_WORDS(ROW)
#undef ROW
}

TEST(Vocabulary, FunctionsGiveTheTextsOfTheTable)
{
    EXPECT_EQ("InSync", VYCL::LocalHub::SyncState_InSync());
    EXPECT_EQ("createMode", VYCL::LocalHub::FormKey_RopeFile_CreateMode());
    EXPECT_EQ("neverCreate", VYCL::LocalHub::FormValue_RopeFile_NeverCreate());
    EXPECT_EQ("HEAD", VYCL::LocalHub::Revision_HEAD());
    EXPECT_EQ("LocalHubSync", VYCL::GetJobType_LocalHubSync());
    EXPECT_EQ("bin", VYCL::GetAssetType_Bin());
    EXPECT_EQ("vy:jobState", VYCL::GetJobProperty_State());
}

TEST(Vocabulary, WordsThatAreToldApartHaveDifferentTexts)
{
    std::map<std::string, std::set<std::string>> textsByFamily;
    std::map<std::string, std::size_t> sizes;
    const auto add = [&](const std::string& inName, const std::string& inText) {
        const auto family = inName.substr(0, inName.rfind('_'));
        textsByFamily[family].insert(inText);
        ++sizes[family];
    };
#define ROW(name, text) add(#name, text);
    VYCL_WORDS(ROW)
    VYCL_FIXED_WORDS(ROW)
    VYCL_LOCALHUB_WORDS(ROW)
    VYCL_LOCALHUB_FORM_WORDS(ROW)
#undef ROW
    for (const auto& [family, texts] : textsByFamily) {
        EXPECT_EQ(sizes[family], texts.size()) << family;
    }
    EXPECT_EQ(11U, textsByFamily["SyncState"].size());
}

}  // namespace

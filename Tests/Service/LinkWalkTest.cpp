#include <algorithm>
#include <map>
#include <set>

#include "Client/Wire/LinkRelations.h"
#include "Tests/Service/StoreServicesFixture.h"

// A client that knows relations and what stands in braces, and makes no path of its own.

namespace service_test {

namespace {

namespace Relation = VYCL::LinkRelation;

using Values = std::map<std::string, std::string>;  // name in braces -> value

/// One link that an answer handed out.
struct SeenLink
{
    std::string mRelation;
    std::string mHref;
    auto operator<=>(const SeenLink&) const = default;
};

std::string FillBraces(std::string ioHref, const Values& inValues)
{
    for (std::size_t begin = ioHref.find('{'); begin != std::string::npos; begin = ioHref.find('{')) {
        const std::size_t end = ioHref.find('}', begin);
        const auto value = inValues.find(ioHref.substr(begin + 1, end - begin - 1));
        EXPECT_NE(inValues.end(), value) << "nobody told the client of " << ioHref;
        ioHref.replace(begin, end + 1 - begin, value == inValues.end() ? "-" : EncodePathElement(value->second));
    }
    return ioHref;
}

/// What a link of a relation is sent with, where that is no plain read, and the only answers that are expected of it.
struct Expectation
{
    const ImmutableString& (*mRelation)();
    std::string_view mMethod;
    std::set<int> mStatuses;
};

/// Empty bodies are refused, and what has no component yet says so; nothing else answers 404 or 501.
const std::vector<Expectation>& Expectations()
{
    static const std::vector<Expectation> kRows = {
        // Forms and bodies that are not there.
        {Relation::Create, "POST", {400, 201, 200, 501}},
        {Relation::LocalHubLocalProject_Create, "POST", {400}},
        {Relation::Bulk_Create, "POST", {400}},
        {Relation::Bulk_Edit, "POST", {400}},
        {Relation::Bulk_Delete, "POST", {400}},
        {Relation::Bulk_Preflight, "POST", {400}},
        {Relation::Bulk_Resolve, "POST", {400}},
        {Relation::MediaLocators_BulkCreate, "POST", {400}},
        {Relation::MediaLocators_BulkCreateByLastModified, "POST", {400}},
        {Relation::MediaLocators_BulkUpdate, "PUT", {400}},
        {Relation::MediaLocators_BulkDelete, "POST", {501}},
        {Relation::LocalHubSyncJobs_Create, "POST", {400}},
        {Relation::LocalHubSyncControl_Sync, "POST", {400}},
        {Relation::LocalHubSyncControl_PollingBySessionId, "POST", {400}},
        {Relation::LocalHubSyncControl_ClientAppState, "POST", {400}},
        {Relation::LocalHubPreferences_Save, "POST", {400}},
        {Relation::LocalHubResolve_Session, "POST", {400}},
        {Relation::LocalHubRemoteLogout, "POST", {400}},
        {Relation::SessionsSession_Pull, "POST", {400}},
        {Relation::SessionsSession_Push, "POST", {400}},
        {Relation::ProductionsProduction_Copy, "POST", {400}},
        {Relation::LocalHubLocalProject_CopyTo, "POST", {400}},
        {Relation::ProductionsProduction_Migrate, "POST", {400}},
        // Committed or ended: the transaction has gone.
        {Relation::TransactionsTransaction_Commit, "POST", {400, 404, 412}},
        {Relation::TransactionsTransaction_Rollback, "POST", {404, 412}},
        // Of an asset, the remote hub alone makes a template.
        {Relation::ProductionsProduction_CreateTemplate, "POST", {400, 501}},
        {Relation::LocalHubSnapshot_Open, "POST", {400}},
        {Relation::LocalHubSnapshot_Take, "POST", {400}},
        {Relation::LocalHubSnapshot_Apply, "POST", {400}},
        // A session that was made here is no snapshot, and of no template.
        {Relation::LocalHubSnapshot_Close, "POST", {404}},
        {Relation::LocalHubSessionTemplateRecipients, "GET", {404}},
        // Their components come with the remote hub.
        {Relation::ProductionsProduction_Archive, "POST", {501}},
        // The project is no single file.
        {Relation::LocalHubLocalProject_Compact, "POST", {400}},
        {Relation::LocalHubRopeFile_Open, "POST", {400}},
        {Relation::LocalHubRopeFile_Close, "POST", {404}},
        {Relation::LocalHubRopeFile_CopyTo, "POST", {400}},
        {Relation::LocalHubRopeFile_SetSyncMode, "POST", {400}},
        {Relation::Invites, "GET", {501}},
        {Relation::Collaborators, "GET", {501}},
        {Relation::Collaborators_ByProductionId, "GET", {501}},
        {Relation::Collaborators_ByNimboStorageUrl, "GET", {501}},
        {Relation::CollaboratorsActivity, "GET", {501}},
        {Relation::CollaboratorsPresence, "GET", {501}},
        {Relation::ProductionsProduction_Batons, "GET", {501}},
        {Relation::SessionsSession_IncomingChanges, "GET", {501}},
        {Relation::SessionsSession_OutgoingChanges, "GET", {501}},
        // No production has a poster frame before a client gave it one.
        {Relation::LocalHubPosterFrame, "GET", {404}},
        // Nothing to write; assets change in transactions alone.
        {Relation::Edit, "PUT", {400, 412}},
        // Words of the remote hub's interface that no resource here serves.
        {Relation::AssetsAsset_Create, "POST", {501}},
        {Relation::EnclosuresEnclosure_Create, "POST", {400, 501}},
        {Relation::EnclosuresEnclosure_Temporary, "POST", {501}},
    };
    return kRows;
}

class LinkWalkTest : public StoreServicesTest
{
protected:
    /// The client's own project is the only one.
    void SetUp() override { ASSERT_EQ(204, Send("DELETE", "/api/production/" + mProduction + "/HEAD").Status()); }

    static constexpr std::string_view kOrigin = "http://127.0.0.1:7777";

    /// Sends to a link, follows redirects, and keeps every link of the answer.
    Answer Follow(const std::string& inMethod, const std::string& inHref, const std::string& inBody = {},
                  const std::string& inType = "application/json")
    {
        std::string target = inHref;
        if (target.starts_with(kOrigin)) target.erase(0, kOrigin.size());
        auto answer = Send(inMethod, target, inBody, WithHost("Content-Type", inType));
        for (int hops = 0; answer.Status() == 307 && hops < 3; ++hops)
            answer = Send(inMethod, answer.Header("Location"), inBody, WithHost("Content-Type", inType));
        JSONDocument body;
        if (body.Parse(answer.Body())) Collect(body.Root());
        return answer;
    }
    void Collect(const JSONValue& inValue)
    {
        std::string relation;
        std::string href;
        if (inValue.IsObject() && inValue["rel"].GetString(relation) && inValue["href"].GetString(href))
            mSeen.insert({relation, href});
        if (inValue.IsObject() || inValue.IsArray())
            for (const JSONValue& child : inValue.Children())
                Collect(child);
    }
    /// The link of a relation in an answer's own links.
    std::string Link(const Answer& inAnswer, const ImmutableString& inRelation, const std::string& inList = "links")
    {
        JSONDocument body;
        EXPECT_TRUE(body.Parse(inAnswer.Body()));
        const std::string href = FindLink(body.Root()[inList], inRelation.View());
        EXPECT_NE("", href) << inRelation.View() << " is not among " << body.Root()[inList].Raw();
        return FillBraces(href, mValues);
    }
    std::string Member(const Answer& inAnswer, const std::string& inKey)
    {
        JSONDocument body;
        EXPECT_TRUE(body.Parse(inAnswer.Body()));
        return Text(body.Root()[inKey]);
    }
    /// A form in a transaction that is opened and committed by links; gives the new commit.
    std::string Edit(const std::string& inOpenLink, const ImmutableString& inOperation, const FormFields& inFields)
    {
        const auto opened = Follow("POST", inOpenLink, "{}");
        EXPECT_EQ(201, opened.Status());
        const auto done =
            Follow("POST", Link(opened, inOperation), FormOf(inFields), "application/x-www-form-urlencoded");
        EXPECT_EQ(200, done.Status());
        const auto committed =
            Follow("POST", Link(opened, Relation::TransactionsTransaction_Commit()), R"({":commitMessage":"Cut"})");
        EXPECT_EQ(200, committed.Status());
        mGone.insert(Link(opened, Relation::Self()));
        return Member(committed, "commitId");
    }
    /// Every link that was seen, and those that come with their answers, once each.
    void FollowEveryLink()
    {
        mValues.insert({{"mediaLocatorId", "m-1"},
                        {"lastModified", "2026-01-01T00:00:00Z"},
                        {"serverAndPort", "hub.example:443"},
                        {"inviteType", "received"},
                        {"nimboStorageURL", "https://storage.example/x"}});
        std::set<SeenLink> done;
        for (std::set<SeenLink> left = mSeen; !left.empty(); left = mSeen) {
            std::erase_if(left, [&](const SeenLink& inLink) { return done.contains(inLink); });
            for (const SeenLink& link : left) {
                done.insert(link);
                FollowSeen(link);
            }
            if (left.empty()) break;
        }
        EXPECT_LT(80U, done.size());
    }
    static bool IsFollowedOnTheWay(std::string_view inRelation)
    {
        const ImmutableString& (*const kRelations[])() = {Relation::Delete, Relation::LocalHubLocalProject_Delete,
                                                          Relation::SessionsSession_Rollback, Relation::Assets_Restore,
                                                          Relation::LocalHubAssets_RestoreFromProduction};
        return std::ranges::any_of(kRelations, [&](const auto& inOne) { return inOne().View() == inRelation; });
    }
    /// The client's asset is not in the revision that the session began with.
    bool IsBeforeTheFirstAsset(const std::string& inHref)
    {
        return inHref.find(mEmptyRevision) != std::string::npos && inHref.find(mValues["assetId"]) != std::string::npos;
    }
    /// Whether the last word of a path, where it chooses a handler, has one of the method: a word that nobody serves
    /// reads as the resource above it.
    static bool HasHandler(const std::string& inMethod, const std::string& inHref)
    {
        std::string path = inHref.starts_with(kOrigin) ? inHref.substr(kOrigin.size()) : inHref;
        path = path.substr(0, path.find('?'));
        for (const Routes::Service& service : Routes::kServices) {
            std::vector<std::string_view> groups;
            if (!noxnet::http::server::PathExpression(service.mExpression).Match(path, groups)) continue;
            const auto group = static_cast<std::size_t>(service.mSelectorGroup);
            if (group == 0 || groups.size() <= group || groups[group].empty()) return true;
            return std::ranges::any_of(service, [&](const Routes::Handler& inHandler) {
                return inHandler.mMethod == inMethod && inHandler.mSelector == groups[group];
            });
        }
        return false;
    }
    void FollowSeen(const SeenLink& inLink)
    {
        if (IsFollowedOnTheWay(inLink.mRelation)) return;
        const auto& rows = Expectations();
        const auto row = std::ranges::find_if(
            rows, [&](const Expectation& inRow) { return inRow.mRelation().View() == inLink.mRelation; });
        const std::string href = FillBraces(inLink.mHref, mValues);
        const std::string method = row == rows.end() ? "GET" : std::string(row->mMethod);
        const int status = Follow(method, href).Status();
        EXPECT_TRUE(status != 200 || HasHandler(method, href))
            << inLink.mRelation << " " << href << " answers as something else";
        if (row != rows.end())
            EXPECT_TRUE(row->mStatuses.contains(status)) << inLink.mRelation << " " << href << ": " << status;
        else
            EXPECT_TRUE(status == 200 || mGone.contains(href) || IsBeforeTheFirstAsset(href))
                << inLink.mRelation << " " << href << ": " << status;
    }
    /// The current record of the production, with links at its head.
    Answer Production() { return Follow("GET", FillBraces(mLatest, mValues)); }

    std::set<SeenLink> mSeen;
    std::set<std::string> mGone;  ///< transactions that were committed
    Values mValues;
    std::string mEmptyRevision;  ///< the one that the session begins with
    std::string mLatest;         ///< link to the newest version of the production
};

TEST_F(LinkWalkTest, AProjectLivesByLinksAloneAndEveryLinkLeadsSomewhere)
{
    const auto root = Follow("GET", "/api/v1/discovery");
    const auto productions = Follow("GET", Link(root, Relation::Productions(), "endpoints"));
    const auto created =
        Follow("POST", Link(productions, Relation::LocalHubLocalProject_Create()), R"({"name":"Walked"})");
    ASSERT_EQ(201, created.Status());
    mValues["productionId"] = Member(created, "vy:parentProductionId");
    mValues["sessionId"] = Member(created, "vy:sessionId");
    const auto sessions = Follow("GET", Link(root, Relation::Sessions_ByProductionId(), "endpoints"));
    JSONDocument list;
    ASSERT_TRUE(list.Parse(sessions.Body()));
    mLatest = FindLink(list.Root()["sessions"].Children().at(0)["links"], "latest-version");

    auto production = Production();
    ASSERT_EQ(200, production.Status());
    mValues["baseCommitId"] = mEmptyRevision = Member(production, "vy:commitId");

    // Two assets, one with an enclosure; then an edit of one and the other deleted.
    const std::string asset = "11111111-2222-4333-8444-555555555555";
    const std::string other = "22222222-2222-4333-8444-555555555555";
    const std::string enclosure = "aaaaaaaa-2222-4333-8444-555555555555";
    const std::string poster = "bbbbbbbb-2222-4333-8444-555555555555";
    mValues["assetId"] = asset;
    mValues["enclosureId"] = enclosure;
    const std::string first = Edit(Link(production, Relation::Transactions()), Relation::Bulk_Create(),
                                   {{"assets+" + asset + "+properties", R"({"name":"Clip"})"},
                                    {"assets+" + other + "+properties", R"({"name":"Other"})"},
                                    {"enclosures+" + enclosure + "+name+" + asset, "waveform"},
                                    {"enclosures+" + enclosure + "+content+" + asset, "bytes"},
                                    {"enclosures+" + poster + "+name", "poster"},
                                    {"enclosures+" + poster + "+content+-", "bytes"}});
    production = Production();
    const auto assetThen = Follow("GET", Link(production, Relation::AssetsAsset_ById()));
    ASSERT_EQ(200, assetThen.Status());
    mValues["assetContentId"] = Member(assetThen, "vy:assetContentId");
    JSONDocument assetBody;
    ASSERT_TRUE(assetBody.Parse(assetThen.Body()));
    mValues["contentId"] = Text(assetBody.Root()["enclosures"].Children().at(0)["vy:enclosureContentId"]);
    mValues["commitId"] = first;
    Edit(Link(production, Relation::Transactions()), Relation::Bulk_Edit(), {{"assets+" + asset + "+name", "Take 2"}});
    production = Production();
    Edit(Link(production, Relation::Transactions()), Relation::Bulk_Delete(), {{"assets+" + other, ""}});

    ASSERT_TRUE(noxnet::IsSuccessfulHTTPStatus(
        Follow("POST", Link(production, Relation::MediaLocators()),
               FormOf({{":medialocator", R"({"vy:mediaLocatorId":"m-1","properties":{"href":"file:///a"}})"}}),
               "application/x-www-form-urlencoded")
            .Status()));

    // History, and what changed since the first commit.
    production = Production();
    const auto history = Follow("GET", Link(production, Relation::ProductionsProduction_History()));
    ASSERT_EQ(200, history.Status());
    JSONDocument versions;
    ASSERT_TRUE(versions.Parse(history.Body()));
    ASSERT_LE(4U, versions.Root()["versions"].Children().size());
    mValues["baseCommitId"] = first;
    mValues["commitId"] = Member(production, "vy:commitId");
    const auto differences =
        Follow("GET", Link(root, Relation::ProductionsProduction_DifferenceByCommit(), "endpoints"));
    ASSERT_EQ(200, differences.Status());
    JSONDocument changed;
    ASSERT_TRUE(changed.Parse(differences.Body()));
    EXPECT_EQ(2U, changed.Root()["differences"]["assets"].Children().size());

    // Back to what the asset was, by its content and out of the production, then the whole session back to its first
    // commit.
    ASSERT_EQ(200, Follow("POST", Link(production, Relation::Assets_Restore())).Status());
    EXPECT_EQ(501, Follow("POST", Link(production, Relation::LocalHubAssets_RestoreFromProduction())).Status())
        << "it was never shared";
    production = Production();
    const auto restored = Follow("GET", Link(production, Relation::AssetsAsset_ById()));
    EXPECT_EQ(mValues["assetContentId"], Member(restored, "vy:assetContentId"));
    mValues["commitId"] = first;
    const auto rolledBack = Follow("POST", Link(production, Relation::SessionsSession_Rollback()));
    ASSERT_EQ(200, rolledBack.Status());
    production = Production();
    JSONDocument assets;
    ASSERT_TRUE(assets.Parse(Follow("GET", Link(production, Relation::Assets_Full())).Body()));
    EXPECT_EQ(2U, assets.Root()["assets"].Children().size());

    ASSERT_EQ(200, Follow("GET", Link(production, Relation::LocalHubLocalProject_Sizeof())).Status());
    FollowEveryLink();
    ASSERT_EQ(204, Follow("DELETE", Link(production, Relation::LocalHubLocalProject_Delete())).Status());
    EXPECT_EQ(404, Follow("GET", FillBraces(mLatest, mValues)).Status());
}

}  // namespace

}  // namespace service_test

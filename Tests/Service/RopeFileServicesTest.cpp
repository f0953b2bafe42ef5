#include <sqlite3.h>

#include <filesystem>
#include <thread>

#include "Client/VYClient/LocalHub.h"
#include "Inc/Model/GitBoxSandboxes.h"
#include "Inc/Model/RopeFileBranches.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxstorage/RopeFileHold.h"
#include "Tests/Service/SignIn.h"
#include "Tests/Service/StoreServicesFixture.h"

// Single-file projects over HTTP, with the real store and the real engine.

namespace service_test {

namespace {

namespace fs = std::filesystem;

const std::string kAsset = "11111111-2222-4333-8444-555555555555";
const std::string kBin = R"({"name":"Bin","lumo:assetType":"bin"})";

class RopeFileServicesTest : public StoreServicesTest
{
protected:
    RopeFileServicesTest() { fs::create_directories(mHome / "films"); }

    [[nodiscard]] std::string File(const std::string& inName = "Film.lyr") const { return mHome / ("films/" + inName); }

    Answer Post(const std::string& inPath, const FormFields& inFields)
    {
        return Send("POST", inPath, FormOf(inFields), WithHost("Content-Type", "application/x-www-form-urlencoded"));
    }
    Answer OpenFile(const FormFields& inFields) { return Post("/api/ropeFile/open", inFields); }
    /// The production of a new file.
    std::string Make(const std::string& inFile)
    {
        const auto answer =
            OpenFile({{"path", inFile}, {"createMode", "createNewOnly"}, {"properties", R"({"name":"In one file"})"}});
        EXPECT_EQ(201, answer.Status());
        return ProductionOf(answer);
    }
    static std::string ProductionOf(const Answer& inAnswer)
    {
        JSONDocument body;
        EXPECT_TRUE(body.Parse(inAnswer.Body())) << inAnswer.Body();
        return Text(body.Root()["vy:parentProductionId"]);
    }
    static std::string SessionOf(const std::string& inProduction)
    {
        dto::Session session;
        EXPECT_EQ(200, ProjectBox::Instance()->GetSession(inProduction, session));
        return session.mIdentifier.Text();
    }
    std::string SyncStateOf(const std::string& inSession)
    {
        JSONDocument body;
        EXPECT_TRUE(body.Parse(Send("GET", "/api/sync/status/session/" + inSession).Body()));
        return Text(body.Root()["state"]);
    }
    std::size_t Logged(const std::string& inMessage) const { return mLog->Count(inMessage); }
};

TEST_F(RopeFileServicesTest, AFileIsMadeWorkedInClosedAndOpenedAgain)
{
    mProduction = Make(File());
    Apply("bulkCreate", {{"assets+" + kAsset + "+properties", kBin}});
    EXPECT_EQ(std::vector{kAsset}, AssetIDs());
    EXPECT_TRUE(HasBin());
    const std::string list = Send("GET", "/api/productions").Body();
    EXPECT_NE(std::string::npos, list.find("localhub:ropeFileId"));
    EXPECT_EQ(204, Post("/api/ropeFile/close/" + mProduction, {}).Status());
    EXPECT_EQ(404, Send("GET", "/api/production/" + mProduction + "/HEAD").Status());
    EXPECT_EQ(404, Post("/api/ropeFile/close/" + mProduction, {}).Status());
    const auto opened = OpenFile({{"path", File()}});
    EXPECT_EQ(200, opened.Status());
    EXPECT_EQ(mProduction, ProductionOf(opened));
    EXPECT_NE("", opened.Header("ETag"));
    EXPECT_EQ("http://127.0.0.1:7777/api/production/" + mProduction + "/HEAD", opened.Header("Location"));
    EXPECT_EQ(std::vector{kAsset}, AssetIDs());
    EXPECT_EQ(200, OpenFile({{"path", File()}}).Status()) << "what is open already is answered";
}

TEST_F(RopeFileServicesTest, TheModeOfCreationSaysWhatBecomesOfAFileThatIsThere)
{
    EXPECT_EQ(404, OpenFile({{"path", File()}}).Status());
    EXPECT_EQ(404, OpenFile({{"path", File()}, {"createMode", "neverCreate"}}).Status());
    mProduction = Make(File());
    Apply("bulkCreate", {{"assets+" + kAsset + "+properties", kBin}});
    EXPECT_EQ(409, OpenFile({{"path", File()}, {"createMode", "createNewOnly"}}).Status());
    EXPECT_EQ(std::vector{kAsset}, AssetIDs());
    EXPECT_EQ(201, OpenFile({{"path", File()}, {"createMode", "createOverwrite"}}).Status());
    EXPECT_TRUE(AssetIDs().empty());
}

TEST_F(RopeFileServicesTest, AFormThatCannotBeUsedIsRefusedInItsWords)
{
    for (const FormFields& fields :
         std::vector<FormFields>{{},
                                 {{"createMode", "createNewOnly"}},
                                 {{"path", "films/Film.lyr"}, {"createMode", "createNewOnly"}},
                                 {{"path", File()}, {"createMode", "sometimes"}},
                                 {{"path", File()}, {"syncMode", "maybe"}},
                                 {{"path", File()}, {"properties", "[]"}},
                                 {{"path", File()}, {"properties", "{"}}})
        EXPECT_EQ(400, OpenFile(fields).Status());
    EXPECT_EQ(7U, Logged("RopeFileService: Bad form element"));
    EXPECT_EQ("ReadForm: invalid input", mLog->Find("RopeFileService: Bad form element").back().Value("exception"));
    EXPECT_EQ(400, OpenFile({{"path", File("a:b.lyr")}, {"createMode", "createNewOnly"}}).Status());
    EXPECT_TRUE(fs::is_empty(mHome / "films"));
}

TEST_F(RopeFileServicesTest, AFileOfSomebodyElseStaysClosed)
{
    SignIn("guid-ann", "ann@example.com");
    const std::string production = Make(File());
    dto::Session session;
    ASSERT_EQ(200, ProjectBox::Instance()->GetSession(production, session));
    ASSERT_TRUE(ProjectBox::Instance()->WriteUserID(session.mIdentifier, "ann@example.com", "guid-ann"));
    EXPECT_EQ(204, Post("/api/ropeFile/close/" + production, {}).Status());
    SignIn("guid-ben", "ben@example.com");
    EXPECT_EQ(403, OpenFile({{"path", File()}}).Status());
    const auto records = mLog->Find("OpenRopeFile: user does not have permission to open this file");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ(File(), records.front().Value("file"));
    EXPECT_EQ("guid-ann", records.front().Value("associatedGUID"));
    EXPECT_EQ("ann@example.com", records.front().Value("associatedEmail"));
    EXPECT_EQ("guid-ben", records.front().Value("currentGUID"));
    EXPECT_EQ("ben@example.com", records.front().Value("currentEmail"));
    EXPECT_EQ(404, Send("GET", "/api/production/" + production + "/HEAD").Status());
    SignIn("guid-ann", "ann@example.com");
    EXPECT_EQ(200, OpenFile({{"path", File()}}).Status());
    // What is open already is not closed for somebody who may not open it.
    SignIn("guid-ben", "ben@example.com");
    EXPECT_EQ(403, OpenFile({{"path", File()}}).Status());
    // Nor is it kept from others.
    namespace backend = noxstorage::git::RopeBackends;
    EXPECT_EQ(backend::FileStep::Done, backend::LookForUsers(File()));
    EXPECT_EQ(307, Send("GET", "/api/production/" + production + "/HEAD").Status());
}

TEST_F(RopeFileServicesTest, AFileWhoseOwnerCannotBeReadStaysClosed)
{
    SignIn("guid-ann", "ann@example.com");
    const std::string production = Make(File());
    const std::string session = SessionOf(production);
    ASSERT_TRUE(ProjectBox::Instance()->WriteUserID(session, "ann@example.com", "guid-ann"));
    std::string oid;
    {
        namespace git = noxstorage::git;
        git::RepoPtr repo;
        git::TreePtr tree;
        ASSERT_TRUE(GitBox::Sandboxes::Instance()->FindSandbox(session)->RetainRepo(repo));
        ASSERT_TRUE(GitBox::RopeFile::ReadBranch(repo, "keyvalue", tree));
        oid = git::GetTree(repo, tree, "keyvalue/sync")->ID().Text();
    }
    EXPECT_EQ(204, Post("/api/ropeFile/close/" + production, {}).Status());
    sqlite3* db = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(File().c_str(), &db));
    const std::string damage = "UPDATE objects SET data=substr(data,1,10) WHERE oid=x'" + oid + "'";
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(db, damage.c_str(), nullptr, nullptr, nullptr)) << sqlite3_errmsg(db);
    ASSERT_EQ(1, sqlite3_changes(db));
    sqlite3_close(db);
    SignIn("guid-ben", "ben@example.com");
    EXPECT_EQ(500, OpenFile({{"path", File()}}).Status());
}

TEST_F(RopeFileServicesTest, ACopyIsOfTheRevisionThatUrlAndPropertiesName)
{
    Apply("bulkCreate", {{"assets+" + kAsset + "+properties", kBin}});
    const std::string head = Head();
    const std::string revision = head.substr(head.rfind('/') + 1);
    const std::string url = "/api/ropeFile/copyTo/" + mProduction + "/" + revision;
    EXPECT_EQ(400, Post(url, {{"path", File()}, {"properties", R"({"vy:commitId":"else"})"}}).Status());
    const auto records =
        mLog->Find("CopyToRopeFile: URL revision (revisionID) does not match revision to copy (commitID)");
    ASSERT_EQ(1U, records.size());
    EXPECT_EQ("revisionID != settings.mProperties.commitId", records.front().Value("expression"));
    EXPECT_EQ(revision, records.front().Value("revisionID"));
    EXPECT_EQ(400, Post(url, {{"properties", R"({"vy:commitId":")" + revision + "\"}"}}).Status());

    const FormFields fields = {{"path", File()}, {"properties", R"({"vy:commitId":")" + revision + "\"}"}};
    const auto answer = Post(url, fields);
    ASSERT_EQ(201, answer.Status());
    EXPECT_EQ(409, Post(url, fields).Status());
    const std::string copy = ProductionOf(answer);
    EXPECT_NE(mProduction, copy);
    mProduction = copy;
    EXPECT_EQ(std::vector{kAsset}, AssetIDs());
    EXPECT_EQ(404, Post("/api/ropeFile/copyTo/none/abc",
                        {{"path", File("x.lyr")}, {"properties", R"({"vy:commitId":"abc"})"}})
                       .Status());
}

TEST_F(RopeFileServicesTest, TheSyncModeOfAFileIsSetAndShown)
{
    const std::string production = Make(File());
    const auto isLocalOnly = [&] {
        dto::Session session;
        EXPECT_EQ(200, ProjectBox::Instance()->GetSession(production, session));
        return session.mLocalOnly;
    };
    EXPECT_TRUE(isLocalOnly());
    EXPECT_EQ(200, Post("/api/ropeFile/setSyncMode/" + production, {{"syncMode", "Synchronized"}}).Status());
    EXPECT_FALSE(isLocalOnly());
    EXPECT_EQ(200, Post("/api/ropeFile/setSyncMode/" + production, {{"syncMode", "LocalOnly"}}).Status());
    EXPECT_TRUE(isLocalOnly());
    EXPECT_EQ(400, Post("/api/ropeFile/setSyncMode/" + production, {{"syncMode", "no"}}).Status());
    EXPECT_EQ(400, Post("/api/ropeFile/setSyncMode/" + production, {{"path", File()}}).Status());
    EXPECT_EQ(404, Post("/api/ropeFile/setSyncMode/" + mProduction, {{"syncMode", "LocalOnly"}}).Status());
}

TEST_F(RopeFileServicesTest, TheStateOfSynchronizationFollowsTheModeOfTheFile)
{
    const auto answer = OpenFile({{"path", File()}, {"createMode", "createNewOnly"}, {"syncMode", "Synchronized"}});
    ASSERT_EQ(201, answer.Status());
    const std::string production = ProductionOf(answer);
    const std::string session = SessionOf(production);
    EXPECT_EQ("NotAssociated", SyncStateOf(session));
    const auto setMode = [&](const char* inMode) {
        EXPECT_EQ(200, Post("/api/ropeFile/setSyncMode/" + production, {{"syncMode", inMode}}).Status());
    };
    setMode("LocalOnly");
    EXPECT_EQ("LocalOnly", SyncStateOf(session));
    setMode("Synchronized");
    EXPECT_EQ("NotAssociated", SyncStateOf(session));
}

TEST_F(RopeFileServicesTest, AClosedFileHasNoStateOfSynchronization)
{
    const std::string production = Make(File());
    const std::string session = SessionOf(production);
    EXPECT_EQ("LocalOnly", SyncStateOf(session));
    EXPECT_NE(std::string::npos, Send("GET", "/api/sync/status/all").Body().find(session));
    EXPECT_EQ(204, Post("/api/ropeFile/close/" + production, {}).Status());
    EXPECT_EQ("Unknown", SyncStateOf(session));
    EXPECT_EQ(std::string::npos, Send("GET", "/api/sync/status/all").Body().find(session));
}

TEST_F(RopeFileServicesTest, TheStateOfSynchronizationIsThatOfTheFileThatTookThePlace)
{
    const std::string session = SessionOf(Make(File()));
    EXPECT_EQ("LocalOnly", SyncStateOf(session));
    EXPECT_EQ(201,
              OpenFile({{"path", File()}, {"createMode", "createOverwrite"}, {"syncMode", "Synchronized"}}).Status());
    EXPECT_EQ("NotAssociated", SyncStateOf(session));
    const std::string head = Head();
    const std::string revision = head.substr(head.rfind('/') + 1);
    EXPECT_EQ(201, Post("/api/ropeFile/copyTo/" + mProduction + "/" + revision,
                        {{"path", File()},
                         {"createMode", "createOverwrite"},
                         {"properties", R"({"vy:commitId":")" + revision + "\"}"}})
                       .Status());
    EXPECT_EQ("LocalOnly", SyncStateOf(session));
}

TEST_F(RopeFileServicesTest, ClosingAFileEndsTheWaitForItsStatus)
{
    mProduction = Make(File());
    const std::string path = "/api/session/status/" + mProduction;
    HeaderList headers = WithHost("X-LongPoll", "1");
    const Answer first = Send("GET", path);
    headers.emplace_back("If-None-Match", first.Header("ETag"));
    const auto mainThread = noxcore::threads::GetRegisteredMainThread();
    std::thread loop([context = mContext, mainThread] {
        const noxcore::HubContext::Scope scope(context);
        mainThread->RunLoop();
    });
    auto waiting = Start("GET", path, {}, headers);
    std::promise<void> isBehind;  // the request
    mainThread->Post([&] { isBehind.set_value(); });
    isBehind.get_future().wait();
    EXPECT_NE(std::future_status::ready, waiting.wait_for(std::chrono::seconds(0)));
    EXPECT_EQ(204, Post("/api/ropeFile/close/" + mProduction, {}).Status());
    const Answer answer = Wait(std::move(waiting));
    EXPECT_EQ(404, answer.Status()) << first.Body() << "\n" << answer.Body();
    mainThread->Quit();
    loop.join();
}

TEST_F(RopeFileServicesTest, ARevisionThatHasGoneIsNotAnsweredFromBefore)
{
    const std::string bin2 = R"({"name":"Other","lumo:assetType":"bin"})";
    const auto fill = [&] {
        mProduction = ProductionOf(OpenFile({{"path", File()}, {"createMode", "createOverwrite"}}));
        Apply("bulkCreate", {{"assets+" + kAsset + "+properties", kBin}});
        const std::string first = Head().substr(Head().rfind('/') + 1);
        Apply("bulkEdit", {{"assets+" + kAsset + "+properties", bin2}});
        const std::string second = Head().substr(Head().rfind('/') + 1);
        return std::vector<std::string>{"/api/asset/" + mProduction + "/" + first + "/" + kAsset,
                                        "/api/assets/" + mProduction + "/" + first,
                                        "/api/differences/" + mProduction + "/" + first + "/" + second};
    };
    const auto expect = [&](const std::vector<std::string>& inPaths, int inStatus, const char* inWhen) {
        for (int round = 0; round < 2; ++round)
            for (const std::string& path : inPaths)
                EXPECT_EQ(inStatus, Send("GET", path).Status()) << inWhen << ": " << path;
    };
    auto paths = fill();
    expect(paths, 200, "as it is");
    EXPECT_EQ(200, Send("POST", "/api/production/" + mProduction + "/HEAD/compact").Status());
    expect(paths, 404, "compacted");
    paths = fill();
    expect(paths, 200, "as it is");
    EXPECT_EQ(204, Post("/api/ropeFile/close/" + mProduction, {}).Status());
    expect(paths, 404, "closed");
    EXPECT_EQ(200, OpenFile({{"path", File()}}).Status());
    expect(paths, 200, "opened again");
    EXPECT_EQ(201, OpenFile({{"path", File()}, {"createMode", "createOverwrite"}}).Status());
    expect(paths, 404, "overwritten");
}

TEST_F(RopeFileServicesTest, AfterACompactionTheEngineKnowsTheSyncPointByItsNewID)
{
    mProduction = Make(File());
    const std::string id = SessionOf(mProduction);
    const auto box = ProjectBox::Instance();
    dto::Session session;
    ASSERT_EQ(200, box->GetSession(id, session));
    SyncPoint point;
    point.mLocalRevision = session.mRevision;
    point.mRemoteRevision = "remote-1";
    std::int64_t count = 0;
    ASSERT_TRUE(box->WriteAssociationForSync(id, {"https://hub.example", "p-remote", "remote", {}, "user", "corvane"}));
    ASSERT_TRUE(box->WriteSyncPoint(id, point, count));
    const std::string transaction = Open();
    ASSERT_EQ(200, SendForm(transaction, "bulkCreate", {{"assets+" + kAsset + "+properties", kBin}}));
    ASSERT_EQ(200, Send("POST", "/api/transaction/" + transaction + "/commit",
                        R"({"metadata":{"commitMessage":""},":commitMessage":""})")
                       .Status());
    ASSERT_TRUE(SyncBox::Instance()->GetLatestSyncPoint(id, point));
    EXPECT_EQ(session.mRevision, point.mLocalRevision);
    ASSERT_EQ(200, Send("POST", "/api/production/" + mProduction + "/HEAD/compact").Status());
    ASSERT_TRUE(SyncBox::Instance()->GetLatestSyncPoint(id, point));
    EXPECT_EQ("remote-1", point.mRemoteRevision);
    StoredVersion version;
    EXPECT_EQ(200, box->GetHistoryRevision(id, point.mLocalRevision, version));
}

TEST_F(RopeFileServicesTest, CompactionThinsAFileToWhatPeopleNamed)
{
    EXPECT_EQ(400, Send("POST", "/api/production/" + mProduction + "/HEAD/compact").Status());
    mProduction = Make(File());
    const std::string hubs = R"({"metadata":{"commitMessage":""},":commitMessage":""})";
    const std::vector<std::string> bodies = {hubs, R"({":commitMessage":"First cut"})", hubs,
                                             R"({":commitMessage":"{\"scene\":\"twelve\"}"})", hubs};
    for (std::size_t count = 0; count < bodies.size(); ++count) {
        const std::string transaction = Open();
        ASSERT_EQ(200,
                  SendForm(transaction, count == 0 ? "bulkCreate" : "bulkEdit",
                           {{"assets+" + kAsset + "+properties", R"({"name":")" + std::to_string(count) + "\"}"}}));
        ASSERT_EQ(200, Send("POST", "/api/transaction/" + transaction + "/commit", bodies[count]).Status());
    }
    const auto total = [&] {
        JSONDocument history;
        EXPECT_TRUE(history.Parse(Send("GET", "/api/history/" + mProduction).Body()));
        return std::string(history.Root()["stats"]["totalResults"].Raw());
    };
    const std::string assets = GetAtHead("asset", "/" + kAsset).Body();
    EXPECT_EQ("6", total());
    EXPECT_EQ(200, Send("POST", "/api/production/" + mProduction + "/HEAD/compact").Status());
    EXPECT_EQ("3", total());
    const std::string history = Send("GET", "/api/history/" + mProduction).Body();
    EXPECT_NE(std::string::npos, history.find("First cut"));
    EXPECT_NE(std::string::npos, history.find("twelve"));
    EXPECT_NE(std::string::npos, GetAtHead("asset", "/" + kAsset).Body().find(R"("name":"4")"));
    EXPECT_EQ(std::vector{kAsset}, AssetIDs());
}

TEST_F(RopeFileServicesTest, AFileThatStayedHereForAWhileIsItsUsersAgain)
{
    SignIn("guid-ann", "ann@example.com");
    const std::string production = Make(File());
    const std::string session = SessionOf(production);
    const AssociationForSync association{
        "https://hub.example", "p-remote", "remote", RFC3339DateTime::FromText("2026-05-01T00:00:00Z"),
        "ann@example.com",     "guid-ann"};
    ASSERT_TRUE(ProjectBox::Instance()->WriteAssociationForSync(session, association));
    for (const char* mode : {"LocalOnly", "Synchronized"})
        EXPECT_EQ(200, Post("/api/ropeFile/setSyncMode/" + production, {{"syncMode", mode}}).Status());
    LinkState link;
    ASSERT_TRUE(ProjectBox::Instance()->ReadLinkState(session, link));
    EXPECT_TRUE(link.mAssociated);
    EXPECT_EQ("ann@example.com", link.mAssociation.mUserID);
    EXPECT_EQ(204, Post("/api/ropeFile/close/" + production, {}).Status());
    SignIn("guid-ben", "ben@example.com");
    EXPECT_EQ(403, OpenFile({{"path", File()}}).Status());
}

TEST_F(RopeFileServicesTest, WhoMayNotOpenAFileNeitherChangesItsModeNorCopiesIt)
{
    SignIn("guid-ann", "ann@example.com");
    const std::string production = Make(File());
    ASSERT_TRUE(ProjectBox::Instance()->WriteUserID(SessionOf(production), "ann@example.com", "guid-ann"));
    dto::Session session;
    ASSERT_EQ(200, ProjectBox::Instance()->GetSession(production, session));
    const std::string head = session.mRevision.Text();
    SignIn("guid-ben", "ben@example.com");
    EXPECT_EQ(403, OpenFile({{"path", File()}}).Status());
    EXPECT_EQ(403, Post("/api/ropeFile/setSyncMode/" + production, {{"syncMode", "LocalOnly"}}).Status());
    const FormFields copy{{"path", File("Copy.lyr")},
                          {"createMode", "createNewOnly"},
                          {"properties", R"({"vy:commitId":")" + head + "\"}"}};
    EXPECT_EQ(403, Post("/api/ropeFile/copyTo/" + production + "/" + head, copy).Status());
    EXPECT_FALSE(fs::exists(File("Copy.lyr")));
    EXPECT_EQ(403, OpenFile({{"path", File()}}).Status());
    SignIn("guid-ann", "ann@example.com");
    EXPECT_EQ(200, OpenFile({{"path", File()}}).Status());
}

TEST_F(RopeFileServicesTest, OfTwoCopiesInOnePlaceAScanAlwaysTakesTheFirst)
{
    const std::string place = VYCL::LocalHub::GetDefaultRopeFileAutosaveLocation();
    fs::create_directories(place + "/local");
    const std::string production = Make(place + "/Film.lyr");
    EXPECT_EQ(204, Post("/api/ropeFile/close/" + production, {}).Status());
    fs::copy_file(place + "/Film.lyr", place + "/Another.lyr");
    fs::copy_file(place + "/Film.lyr", place + "/local/Film.lyr");
    for (int round = 0; round < 20; ++round) {
        GitBox::Sandboxes::Instance()->ClearSandboxes();
        std::set<std::string> files;
        for (const auto& [id, sandbox] : GitBox::Sandboxes::Instance()->GetSessionSandboxes())
            if (sandbox->IsRope()) files.insert(fs::path(sandbox->GetRopeFile()).filename());
        EXPECT_EQ(std::set<std::string>{"Another.lyr"}, files);
    }
}

}  // namespace

}  // namespace service_test

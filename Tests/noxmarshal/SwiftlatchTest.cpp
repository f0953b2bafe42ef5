#include <sys/stat.h>

#include "Platform/swiftlatch/HubFinder.h"
#include "Platform/swiftlatch/ManagerLauncher.h"
#include "Platform/swiftlatch/Paths.h"
#include "Platform/swiftlatch/Protocol.h"
#include "Platform/swiftlatch/Records.h"
#include "Platform/swiftlatch/SharedTransport.h"
#include "Platform/swiftlatch/SwiftLatchManagerConnection.h"
#include "Tests/Support/WaitUntil.h"
#include "Tests/noxmarshal/RPCTestSupport.h"

namespace {

using noxmarshal::Arguments;
using noxmarshal::MessageRegistrar;
using noxmarshal::Responder;
using noxtransport::SocketTransport;
using noxtransport::TransportError;
using rpc_test::Events;
using swiftlatch::OpenAssetList;
using swiftlatch::server::SwiftLatchManagerConnection;
using swiftlatch::server::SwiftLatchManagerConnectionGremlin;
using ResponderPtr = std::shared_ptr<Responder>;

const swiftlatch::ServerInformation kServer{"TesselProjectsLocalHub.2", "hub", "25.3", "1", true, true, false};
const swiftlatch::ServerAddress kAddress{"127.0.0.1", 4711};
const OpenAssetList kAssets{{{"/a.prj", "source", {"p-1", "rev", "asset"}}, {"", "", {"p-2", "", "other"}}}};

constexpr const char* kServerText =
    R"({"name":"TesselProjectsLocalHub.2","appName":"hub","appVersion":"25.3","protoVersion":"1",)"
    R"("headless":true,"headlessOnly":true,"selflinkOnly":false})";
constexpr const char* kAssetsText =
    R"({"mOpenAssets":[{"mProjectFile":"/a.prj","mProjectFileSourceID":"source","mVantryAssetInfo":)"
    R"({"mProductionIdentifier":"p-1","mProductionRevision":"rev","mAssetIdentifier":"asset"}},)"
    R"({"mProjectFile":"","mProjectFileSourceID":"","mVantryAssetInfo":)"
    R"({"mProductionIdentifier":"p-2","mProductionRevision":"","mAssetIdentifier":"other"}}]})";
constexpr const char* kProjectsText = R"({"projectlist":[{"mProjectFile":"/a.prj","mProjectFileSourceID":"source"}]})";

/// Reads a text into a record; nothing when it is refused.
template <class T>
std::optional<T> Read(std::string_view inText)
{
    noxcore::serialization::JSONDocument document;
    T record;
    if (!document.Parse(inText) || !ReadJSON(document.Root(), record)) return std::nullopt;
    return record;
}

/// Written exactly so, and the same again after reading.
template <class T>
void ExpectGolden(const char* inText, const T& inRecord)
{
    EXPECT_EQ(inText, noxmarshal::ToJSON(inRecord));
    const auto read = Read<T>(inText);
    ASSERT_TRUE(read.has_value()) << inText;
    EXPECT_EQ(inText, noxmarshal::ToJSON(*read));
}

TEST(SwiftlatchRecords, EachHasItsKeysInOrderAndReadsBackEqual)
{
    ExpectGolden(kServerText, kServer);
    ExpectGolden(R"({"address":"127.0.0.1","port":4711})", kAddress);
    ExpectGolden(kAssetsText, kAssets);
    ExpectGolden(kProjectsText, swiftlatch::ToProjectList(kAssets));
    ExpectGolden(R"({"port":65535})", swiftlatch::PortInformation{65535});
    ExpectGolden(R"({"name":"n","version":"v","build":"b","headless":true})",
                 swiftlatch::ClientInformation{"n", "v", "b", {true}});
}

TEST(SwiftlatchRecords, HeadlessIsReadFromBooleanIntegerAndString)
{
    const std::pair<const char*, bool> cases[] = {
        {"true", true},     {"false", false},          {"1", true},         {"0", false},     {"-5", true},
        {"\"true\"", true}, {"\"false\"", false},      {"\"1\"", true},     {"\"0\"", false}, {"\"yes\"", false},
        {"\"\"", false},    {"\"12 and more\"", true}, {"\"True\"", false},
    };
    for (const auto& [text, expected] : cases) {
        const auto read = Read<swiftlatch::ClientInformation>(R"({"name":"n","version":"v","build":"b","headless":)" +
                                                              std::string(text) + "}");
        ASSERT_TRUE(read.has_value()) << text;
        EXPECT_EQ(expected, read->mHeadless.mValue) << text;
    }
    EXPECT_FALSE(Read<swiftlatch::ClientInformation>(R"({"name":"n","version":"v","build":"b"})")->mHeadless.mValue);
    EXPECT_FALSE(Read<swiftlatch::ClientInformation>(R"({"name":"n","version":"v","build":"b","headless":[]})"));
}

TEST(SwiftlatchRecords, AMissingRequiredKeyOrAWrongTypeIsRefused)
{
    EXPECT_FALSE(Read<swiftlatch::ClientInformation>(R"({"name":"n","version":"v"})"));
    EXPECT_FALSE(Read<swiftlatch::ClientInformation>(R"({"name":1,"version":"v","build":"b"})"));
    EXPECT_FALSE(Read<swiftlatch::OpenProjectList>(R"({"projectlist":[{}]})"));
    EXPECT_FALSE(Read<swiftlatch::OpenProjectList>(R"({"projectlist":{}})"));
    EXPECT_FALSE(Read<swiftlatch::ServerAddress>(R"(["127.0.0.1",1])"));
}

TEST(SwiftlatchPaths, ASocketFolderIsMadeForItsOwnerAlone)
{
    const testing_support::TempFolder folder;
    const std::string path = folder / "run/sockets";
    EXPECT_TRUE(swiftlatch::EnsureSocketFolder(path));
    struct stat state = {};
    ASSERT_EQ(0, stat(path.c_str(), &state));
    EXPECT_EQ(0700U, state.st_mode & 0777U);
    EXPECT_TRUE(swiftlatch::EnsureSocketFolder(path));
}

TEST(SwiftlatchPaths, AFolderThatIsOpenToOthersALinkOrAFileIsRefused)
{
    const rpc_test::TestContext test;
    const noxcore::HubContext::Scope scope(test.mContext);
    const testing_support::TempFolder folder;
    ASSERT_TRUE(swiftlatch::EnsureSocketFolder(folder / "good"));
    ASSERT_TRUE(swiftlatch::EnsureSocketFolder(folder / "open"));
    ASSERT_EQ(0, chmod((folder / "open").c_str(), 0750));
    ASSERT_EQ(0, symlink((folder / "good").c_str(), (folder / "link").c_str()));
    ASSERT_EQ(0, mkfifo((folder / "pipe").c_str(), 0600));
    EXPECT_FALSE(swiftlatch::EnsureSocketFolder(folder / "open"));
    EXPECT_FALSE(swiftlatch::EnsureSocketFolder(folder / "link"));
    EXPECT_FALSE(swiftlatch::EnsureSocketFolder(folder / "pipe"));
}

TEST(SharedTransport, IsOneForAllWhoHoldIt)
{
    const rpc_test::TestContext test;
    const noxcore::HubContext::Scope scope(test.mContext);
    const auto transport = swiftlatch::GetSharedTransport();
    ASSERT_NE(nullptr, transport);
    EXPECT_EQ(transport, swiftlatch::GetSharedTransport());
}

/// A manager that answers only the forms of registration that it was given, in a context of its own.
class FakeManager
{
public:
    FakeManager(const std::string& inSocketFolder, std::vector<std::string_view> inForms) : mScope(mTest.mContext)
    {
        MessageRegistrar::Register(swiftlatch::kMessage_GetProtocolVersion,
                                   [](const Arguments&, const ResponderPtr& inResponder) {
                                       inResponder->SendGeneralResult(swiftlatch::ManagerInformation{"1"});
                                   });
        for (const std::string_view form : inForms) {
            MessageRegistrar::Register(form,
                                       [this, form](const Arguments& inArguments, const ResponderPtr& inResponder) {
                                           mRegistered.Add(Describe(form, inArguments));
                                           inResponder->SendSimpleOK();
                                       });
        }
        EXPECT_TRUE(swiftlatch::EnsureSocketFolder(inSocketFolder));
        mTransport = SocketTransport::Create({});
        mServer = mTransport->ServerStartLocal(swiftlatch::ManagerSocketPath(inSocketFolder));
        mRPCServer = std::make_unique<noxmarshal::RPCServer>(mServer, "fake manager");
        mServer->SetSessionCallbacks([](const std::string&) { return TransportError::None; },
                                     [this](const std::string& inID) { mClosed.Add(inID); });
    }

    Events<std::string> mRegistered;  ///< message and arguments, as JSON
    Events<std::string> mClosed;

private:
    static std::string Describe(std::string_view inForm, const Arguments& inArguments)
    {
        std::string text(inForm.substr(inForm.rfind('.') + 1));
        swiftlatch::ServerInformation server;
        swiftlatch::ServerAddress address;
        OpenAssetList assets;
        swiftlatch::OpenProjectList projects;
        bool flag = false;
        std::string name;
        for (std::size_t i = 0; i < inArguments.Count(); ++i) {
            text += ' ';
            if (inArguments.Get(i, server))
                text += noxmarshal::ToJSON(server);
            else if (inArguments.Get(i, address))
                text += noxmarshal::ToJSON(address);
            else if (inArguments.Get(i, assets))
                text += noxmarshal::ToJSON(assets);
            else if (inArguments.Get(i, projects))
                text += noxmarshal::ToJSON(projects);
            else if (inArguments.Get(i, flag))
                text += flag ? "true" : "false";
            else if (inArguments.Get(i, name))
                text += name;
        }
        return text;
    }

    rpc_test::TestContext mTest;
    const noxcore::HubContext::Scope mScope;
    std::shared_ptr<SocketTransport> mTransport;
    std::shared_ptr<SocketTransport::Server> mServer;
    std::unique_ptr<noxmarshal::RPCServer> mRPCServer;
};

class ManagerConnectionTest : public testing::Test
{
protected:
    ManagerConnectionTest() : mScope(mTest.mContext)
    {
        auto paths = std::make_shared<swiftlatch::Paths>();
        paths->mSocketFolder = mFolder / "sockets";
        paths->mProgramFolder = mFolder / "no programs";
        mTest.mContext->SetInstance(paths);
    }
    std::unique_ptr<FakeManager> StartManager(std::vector<std::string_view> inForms)
    {
        return std::make_unique<FakeManager>(mFolder / "sockets", std::move(inForms));
    }

    [[nodiscard]] std::size_t CountRegistrations() const
    {
        return mTest.mLog->Count("Registered with the link manager");
    }

    const std::string mAddressText = R"({"address":"127.0.0.1","port":4711})";
    testing_support::TempFolder mFolder;
    rpc_test::TestContext mTest;
    const noxcore::HubContext::Scope mScope;
};

TEST_F(ManagerConnectionTest, TheNewestFormIsTriedFirstWithAnEmptyListAndRepeatedWithEachNewOne)
{
    const auto manager = StartManager(
        {swiftlatch::kMessage_RegisterServerWithVersionGeneric, swiftlatch::kMessage_RegisterServerWithVersion});
    const noxcore::HubContext::Scope scope(mTest.mContext);
    const auto connection = SwiftLatchManagerConnection::Create(kServer, kAddress);
    EXPECT_TRUE(connection->IsConnected());
    const std::string begin = "RegisterServerWithVersionGeneric " + std::string(kServerText) + " " + mAddressText;
    EXPECT_EQ(begin + R"( {"mOpenAssets":[]})", manager->mRegistered.WaitFor(1).at(0));
    connection->UpdateOpenGenericAssets(kAssets);
    EXPECT_EQ(begin + " " + kAssetsText, manager->mRegistered.WaitFor(2).at(1));
}

TEST_F(ManagerConnectionTest, AnOlderManagerGetsTheProjectFilesAlone)
{
    const auto manager =
        StartManager({swiftlatch::kMessage_RegisterServerWithVersion, swiftlatch::kMessage_RegisterServer});
    const noxcore::HubContext::Scope scope(mTest.mContext);
    const auto connection = SwiftLatchManagerConnection::Create(kServer, kAddress);
    manager->mRegistered.WaitFor(1);
    connection->UpdateOpenGenericAssets(kAssets);
    EXPECT_EQ("RegisterServerWithVersion " + std::string(kServerText) + " " + mAddressText + " " + kProjectsText,
              manager->mRegistered.WaitFor(2).at(1));
}

TEST_F(ManagerConnectionTest, TheOldestManagerGetsNameAndFlagsInstead)
{
    const auto manager = StartManager({swiftlatch::kMessage_RegisterServer});
    const noxcore::HubContext::Scope scope(mTest.mContext);
    const auto connection = SwiftLatchManagerConnection::Create(kServer, kAddress);
    manager->mRegistered.WaitFor(1);
    connection->UpdateOpenGenericAssets(kAssets);
    EXPECT_EQ("RegisterServer TesselProjectsLocalHub.2 " + mAddressText + " " + kProjectsText + " true true false",
              manager->mRegistered.WaitFor(2).at(1));
}

TEST_F(ManagerConnectionTest, TheRegistrationEndsWithItsObject)
{
    const auto manager = StartManager({swiftlatch::kMessage_RegisterServerWithVersionGeneric});
    const noxcore::HubContext::Scope scope(mTest.mContext);
    auto connection = SwiftLatchManagerConnection::Create(kServer, kAddress);
    manager->mRegistered.WaitFor(1);
    EXPECT_TRUE(manager->mClosed.All().empty());
    connection.reset();
    EXPECT_EQ(1U, manager->mClosed.WaitFor(1).size());
}

TEST_F(ManagerConnectionTest, ALostManagerIsReachedAgainAndToldWhatIsOpen)
{
    auto manager = StartManager({swiftlatch::kMessage_RegisterServerWithVersionGeneric});
    std::shared_ptr<SwiftLatchManagerConnection> connection;
    {
        const noxcore::HubContext::Scope scope(mTest.mContext);
        connection = SwiftLatchManagerConnection::Create(kServer, kAddress);
        connection->UpdateOpenGenericAssets(kAssets);
    }
    manager->mRegistered.WaitFor(2);
    manager.reset();
    mTest.mTime->WaitForTimers(2);  // the limit of the first handshake, and the delay before the second
    manager = StartManager({swiftlatch::kMessage_RegisterServerWithVersionGeneric});
    mTest.mTime->Advance(1000);
    EXPECT_NE(std::string::npos, manager->mRegistered.WaitFor(1).at(0).find(kAssetsText));
    EXPECT_TRUE(connection->IsConnected());
}

TEST_F(ManagerConnectionTest, AManagerThatCannotBeReachedAgainIsTriedAfterDelaysThatDouble)
{
    const std::vector<std::string_view> form{swiftlatch::kMessage_RegisterServerWithVersionGeneric};
    auto manager = StartManager(form);
    const noxcore::HubContext::Scope scope(mTest.mContext);
    const auto connection = SwiftLatchManagerConnection::Create(kServer, kAddress);
    manager->mRegistered.WaitFor(1);
    ASSERT_TRUE(testing_support::WaitUntil([&] { return CountRegistrations() == 1; }));
    manager.reset();
    mTest.mTime->WaitForTimers(2);  // the limit of the handshake, and the delay
    mTest.mTime->Advance(1000);     // nobody is there
    mTest.mTime->Advance(2000);     // nor then
    manager = StartManager(form);
    mTest.mTime->Advance(3999);
    EXPECT_TRUE(manager->mRegistered.All().empty());
    mTest.mTime->Advance(1);
    manager->mRegistered.WaitFor(1);
    ASSERT_TRUE(testing_support::WaitUntil([&] { return CountRegistrations() == 2; }));

    // Once registered, the next loss is met with the shortest delay again.
    manager.reset();
    mTest.mTime->WaitForTimers(6);  // three more delays, and the limit of the second handshake
    manager = StartManager(form);
    mTest.mTime->Advance(1000);
    EXPECT_TRUE(connection->IsConnected());
}

TEST_F(ManagerConnectionTest, AManagerMayBeLostAnyNumberOfTimes)
{
    constexpr std::size_t kTimes = 8;
    std::shared_ptr<SwiftLatchManagerConnection> connection;
    for (std::size_t time = 1; time <= kTimes; ++time) {
        const auto manager = StartManager({swiftlatch::kMessage_RegisterServerWithVersionGeneric});
        const noxcore::HubContext::Scope scope(mTest.mContext);
        if (!connection) connection = SwiftLatchManagerConnection::Create(kServer, kAddress);
        ASSERT_TRUE(testing_support::WaitUntil([&] {
            if (!connection->IsConnected()) mTest.mTime->Advance(1000);
            return CountRegistrations() == time;
        }));
    }
}

TEST_F(ManagerConnectionTest, WithoutAManagerTheFirstTimeNoneIsLookedForLater)
{
    const auto connection = SwiftLatchManagerConnection::Create(kServer, kAddress);
    const auto manager = StartManager({swiftlatch::kMessage_RegisterServerWithVersionGeneric});
    mTest.mTime->Advance(600000);
    EXPECT_TRUE(manager->mRegistered.All().empty());
    EXPECT_FALSE(connection->IsConnected());
}

TEST_F(ManagerConnectionTest, WithoutAManagerNothingIsSentAndNothingIsReportedAsAnError)
{
    const auto connection = SwiftLatchManagerConnection::Create(kServer, kAddress);
    EXPECT_FALSE(connection->IsConnected());
    connection->UpdateOpenGenericAssets(kAssets);
    for (const auto& record : mTest.mLog->All())
        EXPECT_NE(noxcore::logging::Level::Error, record.mLevel);
}

TEST_F(ManagerConnectionTest, AManagerThatCannotBeReachedIsALinkError)
{
    EXPECT_THROW(swiftlatch::LaunchSwiftlatchManagerRPC(), swiftlatch::LinkError);
    mTest.mContext->SetInstance<swiftlatch::Paths>(nullptr);
    EXPECT_THROW(swiftlatch::LaunchSwiftlatchManagerRPC(), swiftlatch::LinkError);
}

TEST_F(ManagerConnectionTest, AManagerThatIsNotToBeTrustedIsNotAsked)
{
    ASSERT_TRUE(swiftlatch::EnsureSocketFolder(mFolder / "sockets"));
    ASSERT_EQ(0, chmod((mFolder / "sockets").c_str(), 0777));
    EXPECT_THROW(swiftlatch::LaunchSwiftlatchManagerRPC(), swiftlatch::LinkError);
}

TEST_F(ManagerConnectionTest, AHubWhoseAddressIsKnownGivesItsHTTPPort)
{
    mTest.mContext->SetInstance(std::make_shared<noxtransport::Settings>(rpc_test::OpenSettings()));
    Events<std::string> clients;
    const auto transport = swiftlatch::GetSharedTransport();
    const auto server = transport->ServerStart(0, true);
    MessageRegistrar::Register(swiftlatch::kMessage_GetServerInformation,
                               [](const Arguments&, const ResponderPtr& inResponder) {
                                   inResponder->SendGeneralResult(swiftlatch::PortInformation{5000});
                               });
    MessageRegistrar::Register(swiftlatch::kMessage_GiveClientInformation,
                               [&](const Arguments& inArguments, const ResponderPtr& inResponder) {
                                   swiftlatch::ClientInformation client;
                                   if (inArguments.Get(0, client)) clients.Add(client.mName);
                                   inResponder->SendSimpleOK();
                               });
    const noxmarshal::RPCServer rpcServer(server, "VantryOutOfProcess");
    Events<std::string> closed;
    server->SetSessionCallbacks([](const std::string&) { return TransportError::None; },
                                [&](const std::string& inID) { closed.Add(inID); });
    noxmarshal::RPCError error;
    auto hub = swiftlatch::ConnectToHub({"127.0.0.1", server->GetPort()}, {"tester", "1", "2", {}}, error);
    ASSERT_NE(nullptr, hub);
    EXPECT_EQ(5000, hub->HTTPPort());
    EXPECT_EQ("127.0.0.1", hub->Address());
    EXPECT_EQ(std::vector<std::string>{"tester"}, clients.All());
    EXPECT_TRUE(closed.All().empty()) << "the session is held open";
    hub.reset();
    EXPECT_EQ(1U, closed.WaitFor(1).size());
}

}  // namespace

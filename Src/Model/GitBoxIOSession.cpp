#include <charconv>
#include <exception>

#include "Inc/Model/CommitMessages.h"
#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/Lyra2Db.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/DebugDatabase.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"

namespace VantryLocalHub::GitBox::IO {

namespace git = noxstorage::git;
namespace backend = noxstorage::git::SQLite3OdbBackend;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
using noxcore::logging::LogError;
using noxcore::logging::LogWarning;

namespace {

constexpr std::size_t kDefaultPageSize = 16384;
constexpr std::size_t kDefaultMaxBlobSize = 10485760;
constexpr std::size_t kLargestPage = 65536;
constexpr std::size_t kLargestMaxBlobSize = 500 * 1024 * 1024;

std::size_t ODBSetting(std::string_view inKey, std::size_t inDefault, std::size_t inLargest)
{
    const auto value =
        noxcore::debug::DebugDatabase::Instance()->GetInteger(inKey, static_cast<std::int64_t>(inDefault));
    return value > 0 && value <= static_cast<std::int64_t>(inLargest) ? static_cast<std::size_t>(value) : inDefault;
}

std::string ReadTextFile(const std::string& inFolder, std::string_view inName)
{
    std::string text;
    return Files().ReadFile(Join(inFolder, inName), text) ? text : std::string();
}

ImmutableString BlobText(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inPath)
{
    const auto blob = git::GetBlob(inRepo, inTree, inPath);
    return blob ? git::BlobToImmutableString(blob) : ImmutableString();
}

/// The leading whole number of a text: an optional "-" and digits. Anything else, and what passes 31 bits, is 0.
int LeadingInteger(std::string_view inText)
{
    int value = 0;
    const auto [end, error] = std::from_chars(inText.data(), inText.data() + inText.size(), value);
    return error == std::errc() ? value : 0;
}

bool CreateRepository(const std::string& inFolder, const ImmutableString& inSessionID,
                      const ImmutableString& inProductionID, const dto::RawJSON& inProperties, RepoPtr& outRepo,
                      CommitPtr& outCommit)
{
    const auto payload = [](std::string_view inText) { return noxcore::utility::CopyToRecycledMemory(inText); };
    const std::vector<backend::NamedPayload> payloads = {{"properties", payload(inProperties.Text())},
                                                         {"productionid", payload(inProductionID)},
                                                         {"sessionid", payload(inSessionID)}};
    const std::string message = MakeCommitMessage(CommitMessageCode::Initialized);
    if (!backend::InitRepository(Join(inFolder, "git"), payloads, MakeAuthor(), MakeCommitter(), message,
                                 ODBSetting("VY.Config.LocalHub.ODB.PageSize", kDefaultPageSize, kLargestPage),
                                 MaxBlobSize(), backend::kReadWrite, outRepo, outCommit)) {
        return false;
    }
    return git::SetBranchToCommit(outRepo, outCommit, kBranch_Production) &&
           git::SetBranchToCommit(outRepo, outCommit, kBranch_Session) && git::SwitchToBranch(outRepo, kBranch_Session);
}

/// `sessionid` goes last: it is what makes the folder count as a session.
bool WriteSessionFiles(const std::string& inFolder, const ImmutableString& inSessionID,
                       const ImmutableString& inProductionID)
{
    return WriteVersion(inFolder, {ImmutableString(kDataModelVersion), ImmutableString(kSuiteClientVersion)}) &&
           Files().WriteFileDurably(Join(inFolder, "productionid"), inProductionID) &&
           Files().WriteFileDurably(Join(inFolder, "sessionid"), inSessionID);
}

bool IsTaken(const std::string& inFolder)
{
    return Files().DirectoryExists(Join(inFolder, "git")) && Files().FileExists(Join(inFolder, "sessionid"));
}

bool InitSessionGuarded(const std::string& inFolder, const ImmutableString& inSessionID,
                        const ImmutableString& inProductionID, const dto::RawJSON& inProperties, RepoPtr& outRepo,
                        DbPtr& outDb, dto::Session& outSession)
{
    if (IsTaken(inFolder)) {
        LogError("GitBox", "InitSession: Won't create a session folder on top of an existing session folder",
                 {{"path", inFolder}});
        return false;
    }
    if (!Files().EnsureDirectoryExists(inFolder)) {
        LogError("GitBox", "InitSession: Can't create session folder", {{"path", inFolder}});
        return false;
    }
    DbPtr db;
    if (!Lyra2Db::OpenSessionDatabase(inFolder, db)) return false;
    RepoPtr repo;
    CommitPtr commit;
    if (!CreateRepository(inFolder, inSessionID, inProductionID, inProperties, repo, commit)) {
        LogError("GitBox", "InitSession: Can't create git repository", {{"path", inFolder}});
        return false;
    }
    if (!WriteSessionFiles(inFolder, inSessionID, inProductionID)) {
        LogError("GitBox", "InitSession: Can't create persisted session files", {{"path", inFolder}});
        return false;
    }
    dto::Session session;
    session.mIdentifier = inSessionID;
    session.mProductionID = inProductionID;
    session.mRevision = commit->ID().Text();
    session.mProductionRevision = session.mRevision;
    if (!ReadSessionProperties(repo, session.mRevision, session.mProperties, session.mModified)) return false;
    outRepo = std::move(repo);
    outDb = std::move(db);
    outSession = std::move(session);
    return true;
}

}  // namespace

RepositoryFormat RepositoryFormatFromText(std::string_view inDataModel)
{
    if (inDataModel == kDataModelVersion_1) return RepositoryFormat::Version_1_0_1;
    if (inDataModel == kDataModelVersion) return RepositoryFormat::Version_2_0_1;
    return RepositoryFormat::Unknown;
}

bool IsSupportedVersion(const VersionRecord& inVersion)
{
    if (inVersion.mDataModel == kDataModelVersion && inVersion.mSuiteClient == kSuiteClientVersion) return true;
    return RepositoryFormatFromText(inVersion.mDataModel) != RepositoryFormat::Unknown &&
           LeadingInteger(inVersion.mSuiteClient) <= LeadingInteger(kSuiteClientVersion);
}

std::size_t MaxBlobSize()
{
    return ODBSetting("VY.Config.LocalHub.ODB.MaxBlobSize", kDefaultMaxBlobSize, kLargestMaxBlobSize);
}

bool WriteVersion(const std::string& inFolder, const VersionRecord& inVersion)
{
    return Files().WriteFileDurably(Join(inFolder, "version"), dto::ToJSON(inVersion));
}

bool ReadVersion(const std::string& inFolder, VersionRecord& outVersion)
{
    return dto::FromJSON(ReadTextFile(inFolder, "version"), outVersion);
}

bool IsLiveSessionFolder(const std::string& inFolder)
{
    return noxcore::filesupport::BaseName(inFolder).find(kFolderSuffix) != std::string_view::npos &&
           Files().DirectoryExists(Join(inFolder, "git")) && Files().FileExists(Join(inFolder, "sessionid")) &&
           !Files().FileExists(Join(inFolder, "deleted"));
}

bool InitSession(const std::string& inFolder, const ImmutableString& inSessionID, const ImmutableString& inProductionID,
                 const dto::RawJSON& inProperties, RepoPtr& outRepo, DbPtr& outDb, dto::Session& outSession)
{
    const bool isNew = !Files().DirectoryExists(inFolder);
    try {
        if (InitSessionGuarded(inFolder, inSessionID, inProductionID, inProperties, outRepo, outDb, outSession))
            return true;
    } catch (const std::exception& exception) {
        LogError("GitBox", "InitSession: Caught exception", {{"exception", exception.what()}});
    }
    // Nobody knows the id: what was begun would lie there for ever.
    if (isNew) Files().DeleteDirectory(inFolder);
    return false;
}

bool InitSessionFromSnapshot(const std::string& inFolder, const ImmutableString& inSessionID,
                             const ImmutableString& inProductionID, RepoPtr& outRepo, DbPtr& outDb,
                             dto::Session& outSession)
{
    if (IsTaken(inFolder)) {
        LogError("GitBox",
                 "InitSessionFromSnapshot: Won't create a session folder on top of an existing session folder",
                 {{"path", inFolder}});
        return false;
    }
    DbPtr db;
    if (!Lyra2Db::OpenSessionDatabase(inFolder, db) || !ReInitRepo(inFolder, inSessionID, inProductionID)) return false;
    if (!WriteSessionFiles(inFolder, inSessionID, inProductionID)) {
        LogError("GitBox", "InitSessionFromSnapshot: Can't create persisted session files", {{"path", inFolder}});
        return false;
    }
    if (!ReadSessionRepo(inFolder, outRepo, outSession)) return false;
    outDb = std::move(db);
    return true;
}

bool ReadSessionRepo(const std::string& inFolder, RepoPtr& outRepo, dto::Session& outSession)
{
    if (!Files().DirectoryExists(inFolder)) {
        LogWarning("GitBox", "The requested session does not exist", {{"path", inFolder}});
        return false;
    }
    const ImmutableString sessionID(ReadTextFile(inFolder, "sessionid"));
    const ImmutableString productionID(ReadTextFile(inFolder, "productionid"));
    VersionRecord version;
    if (!ReadVersion(inFolder, version) || !IsSupportedVersion(version)) {
        LogError("GitBox", "Unsupported persisted session version",
                 {{"dataModelVersion", version.mDataModel},
                  {"suiteClientVersion", version.mSuiteClient},
                  {"supportedVersion", kDataModelVersion},
                  {"sessionID", sessionID},
                  {"productionID", productionID},
                  {"path", inFolder}});
        return false;
    }
    if (sessionID.empty() || productionID.empty()) return false;

    const RepoPtr repo = backend::OpenRepository(Join(inFolder, "git"), backend::kReadWrite);
    if (!repo) return false;
    const CommitPtr head = git::GetCommitForBranch(repo, kBranch_Session);
    const TreePtr tree = head ? git::GetTreeAtCommit(repo, head) : nullptr;
    if (!tree) return false;

    dto::Session session;
    session.mIdentifier = BlobText(repo, tree, "sessionid");
    session.mProductionID = BlobText(repo, tree, "productionid");
    session.mRevision = head->ID().Text();
    const Oid production = git::GetBranchHead(repo, kBranch_Production);
    if (production.IsZero()) {
        LogError("GitBox", "Unable to read the production's head",
                 {{"path", inFolder}, {"branch", kBranch_Production}});
        return false;
    }
    session.mProductionRevision = production.Text();
    session.mSnapshotRootAssetID = ReadTextFile(inFolder, "rootassetid");
    const bool result = ReadSessionProperties(repo, session.mRevision, session.mProperties, session.mModified) &&
                        session.mProductionID == productionID;
    if ((session.mIdentifier != sessionID) || !result) {
        LogError("GitBox", "Session or production ID mismatch in git repository",
                 {{"fileSessionID", sessionID},
                  {"fileProductionID", productionID},
                  {"gitSessionID", session.mIdentifier},
                  {"gitProductionID", session.mProductionID},
                  {"expression", "(outSession.identifier != sessionID) || !result"}});
        return false;
    }
    outRepo = repo;
    outSession = std::move(session);
    return true;
}

bool ReInitRepo(const std::string& inFolder, const ImmutableString& inSessionID, const ImmutableString& inProductionID)
{
    const RepoPtr repo = backend::OpenRepository(Join(inFolder, "git"), backend::kReadWrite);
    const CommitPtr head = repo ? git::GetCommitForBranch(repo, kBranch_Session) : nullptr;
    const TreePtr tree = head ? git::GetTreeAtCommit(repo, head) : nullptr;
    if (!tree) {
        LogError("GitBox", "Unable to open session repo to re-init", {{"path", inFolder}});
        return false;
    }
    const auto root = git::ConstructRootTreeBuilderNode(repo, tree);
    const std::pair<std::string_view, std::string_view> entries[] = {{"productionid", inProductionID},
                                                                     {"sessionid", inSessionID}};
    for (const auto& [name, value] : entries) {
        if (git::TreeBuilderInsertBuffer(repo, root, name, value.data(), value.size())) continue;
        LogError("GitBox", "Failed to insert into tree builder", {{"name", name}, {"value", value}});
        return false;
    }
    const CommitPtr commit = CommitBranchTreeBuilderNode(
        repo, kBranch_Session, root, MakeCommitMessage(CommitMessageCode::ReInitialized), kBranch_SessionBackup);
    return commit && git::SetBranchToCommit(repo, commit, kBranch_Production, kBranch_ProductionBackup);
}

git::Oid TreeUnderOwnIDs(const RepoPtr& inRepo, const CommitPtr& inRevision)
{
    const CommitPtr head = git::GetCommitForBranch(inRepo, kBranch_Session, kBranch_SessionBackup);
    const TreePtr own = head ? git::GetTreeAtCommit(inRepo, head) : nullptr;
    const TreePtr tree = git::GetTreeAtCommit(inRepo, inRevision);
    if (!own || !tree) return git::Oid();
    const auto root = git::ConstructRootTreeBuilderNode(inRepo, tree);
    bool isChanged = false;
    for (const std::string_view name : {"productionid", "sessionid", "filepath", "uniqueid"}) {
        git::TreeEntry mine;
        git::TreeEntry there;
        if (!own->Find(name, mine) || (tree->Find(name, there) && there.mOid == mine.mOid)) continue;
        const auto blob = git::GetBlob(inRepo, mine.mOid);
        if (!blob || !git::TreeBuilderInsertBuffer(inRepo, root, name, blob->Content().data(), blob->Content().size()))
            return git::Oid();
        isChanged = true;
    }
    return isChanged ? git::FinalizeTreeBuilderNode(inRepo, root) : inRevision->TreeID();
}

bool ReadSessionProperties(const RepoPtr& inRepo, std::string_view inRevision, dto::RawJSON& outProperties,
                           RFC3339DateTime& outTime)
{
    CommitPtr commit;
    TreePtr tree;
    if (GetTreeAtRevision(inRepo, inRevision, tree, &commit) != ReadResult::Found) return false;
    const auto blob = git::GetBlob(inRepo, tree, "properties");
    if (!blob) return false;
    // A repository may come from anywhere, and what is answered takes these up as they stand.
    if (!dto::RawJSON::FromText(blob->Content(), outProperties)) {
        LogError("GitBox", "Stored session properties are no JSON object",
                 {{"path", inRepo->Path()}, {"revision", inRevision}});
        return false;
    }
    outTime = RFC3339DateTime::FromSeconds(commit->Time());
    return true;
}

}  // namespace VantryLocalHub::GitBox::IO

#include "Inc/Model/GitBoxIOZip.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <set>
#include <string_view>

#include "Inc/Model/CommitMessages.h"
#include "Inc/Model/TemporaryFolder.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxstorage/RopeBackends.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"
#include "Platform/noxstorage/ZipFile.h"

namespace VantryLocalHub::GitBox::IO {

namespace backend = noxstorage::git::SQLite3OdbBackend;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
using noxcore::logging::LogError;

namespace {

/// What a session holds is packed already; an archive of much less is made to fill a disk.
constexpr std::uint64_t kMostTimesOfArchive = 100;

bool GoOn(void*, std::uint64_t, std::uint64_t)
{
    return true;
}

bool ApplyExtracted(const std::string& inFolder, const RepoPtr& inRepo, AppliedSnapshot& outApplied)
{
    // Opening a database makes it where it is missing: what is no session is not tried.
    VersionRecord version;
    if (!Files().DirectoryExists(Join(inFolder, "git")) || !ReadVersion(inFolder, version) ||
        !IsSupportedVersion(version) || !Lyra2Db::IsSoundSessionDatabase(inFolder)) {
        return false;
    }
    DbPtr db;
    if (!Lyra2Db::OpenSessionDatabase(inFolder, db)) return false;
    const RepoPtr repo = backend::OpenRepository(Join(inFolder, "git"), backend::kReadWrite);
    return repo && HasReadableProperties(repo, kBranch_Session) &&
           ApplySnapshotSessionData(repo, *db, inRepo, outApplied);
}

bool CopyForSnapshot(const CopySource& inSource, const LocatorRows& inLocators, const dto::RawJSON& inProperties,
                     const std::string& inFolder, const std::function<bool(Lyra2Db::Db&)>& inPrepare)
{
    // Closed with this function, so that nothing is left in a log beside a database.
    RepoPtr repo;
    DbPtr db;
    dto::Session session;
    return CopySession(inSource, inLocators, inFolder, SessionIDs::Create(), inProperties, repo, db, session) &&
           (!inPrepare || inPrepare(*db)) && backend::Checkpoint(repo);
}

/// What a session folder has, but for what ties it to the other side: that is whose session it was. An archive comes
/// from anywhere, and a rollback journal in it would make SQLite delete whatever file it names.
bool IsOfSession(std::string_view inName)
{
    constexpr std::string_view kNames[] = {
        "git/",      "git/odb.sqlite3", "git/odb.sqlite3-wal", "session.sqlite3", "session.sqlite3-wal",
        "sessionid", "productionid",    "rootassetid",         "version"};
    return std::find(std::begin(kNames), std::end(kNames), inName) != std::end(kNames);
}

/// What ties extracted data to the session that it was.
bool RemoveIdentity(const std::string& inFolder)
{
    for (const std::string_view name : {"sessionid", "productionid"}) {
        const std::string path = Join(inFolder, name);
        if (Files().FileExists(path) && !Files().DeleteFile(path)) return false;
    }
    return true;
}

/// Extracted data whose version this program reads, with whole rows or split ones; of its own version afterwards.
bool InitFromExtracted(const std::string& inFolder, const SessionIDs& inIDs, RepoPtr& outRepo, DbPtr& outDb,
                       dto::Session& outSession)
{
    VersionRecord version;
    if (!Files().DirectoryExists(Join(inFolder, "git")) || !ReadVersion(inFolder, version) ||
        !IsSupportedVersion(version) || !Lyra2Db::IsSoundSessionDatabase(inFolder)) {
        LogError("GitBox", "A snapshot holds no session that can be read",
                 {{"path", inFolder}, {"dataModelVersion", version.mDataModel}});
        return false;
    }
    const bool isOfOldFormat = RepositoryFormatFromText(version.mDataModel) == RepositoryFormat::Version_1_0_1;
    return RemoveIdentity(inFolder) &&
           InitSessionFromSnapshot(inFolder, inIDs.mSessionID, inIDs.mProductionID, outRepo, outDb, outSession) &&
           HasReadableProperties(outRepo, outSession.mRevision) &&
           (!isOfOldFormat || backend::UpgradeRepositoryInPlace(outRepo, MaxBlobSize()));
}

/// The properties that a client wants instead of a snapshot's.
bool ReplaceProperties(const RepoPtr& inRepo, const dto::RawJSON& inProperties, dto::Session& ioSession)
{
    if (inProperties.empty()) return true;
    TransactionChanges changes;
    changes.mProperties = dto::ProductionProperties{inProperties, {}};
    CommitPtr commit;
    std::int64_t ignored = 0;
    if (!Write(inRepo, changes, false, false, MakeCommitMessage(CommitMessageCode::ReInitialized), commit, ignored)) {
        return false;
    }
    ioSession.mProperties = inProperties;
    ioSession.mRevision = commit->ID().Text();
    ioSession.mModified = RFC3339DateTime::FromSeconds(commit->Time());
    return true;
}

template <class Items, class ID>
std::set<ImmutableString> IDsOf(const Items& inItems, const ID& inID)
{
    std::set<ImmutableString> ids;
    for (const auto& item : inItems)
        ids.insert(item.*inID);
    return ids;
}

}  // namespace

bool CreateZipFile(const std::string& inFolder, const std::string& inFile)
{
    try {
        const bool result = Files().EnsureDirectoryExists(std::string(noxcore::filesupport::ParentFolder(inFile))) &&
                            noxstorage::ZipFile(inFile, {}).Zip(inFolder, GoOn, nullptr);
        if (!result) {
            LogError("GitBox", "CreateZipFile: Failed to compress to file",
                     {{"src", inFolder}, {"dest", inFile}, {"expression", "!result"}});
        }
        return result;
    } catch (const std::exception& exception) {
        LogError("GitBox", "CreateZipFile: Caught exception",
                 {{"src", inFolder}, {"dest", inFile}, {"exception", exception.what()}});
        return false;
    }
}

bool ExtractZipFile(const std::string& inFile, const std::string& inFolder)
{
    try {
        // An open project is no archive, and a look into it would let go of its lock.
        const noxstorage::git::RopeBackends::OtherUse use(inFile);
        const bool result = use && Files().FileExists(inFile) &&
                            noxstorage::ZipFile(inFile, {}).UnZip(inFolder, false, IsOfSession, kMostTimesOfArchive);
        if (!result) LogError("GitBox", "ExtractZipFile: Failed to extract", {{"src", inFile}, {"dest", inFolder}});
        return result;
    } catch (const std::exception& exception) {
        LogError("GitBox", "ExtractZipFile: Caught exception",
                 {{"src", inFile}, {"dest", inFolder}, {"exception", exception.what()}});
        return false;
    }
}

std::string FolderOfSnapshot(const std::string& inFile)
{
    std::string_view title = noxcore::filesupport::BaseName(inFile);
    const std::size_t dot = title.rfind('.');
    if (dot != 0) title = title.substr(0, dot);
    return Join(noxcore::filesupport::ParentFolder(inFile), std::string(title) + "." + std::string(kFolderSuffix));
}

bool ExtractSnapshot(const std::string& inFile, std::string& outFolder)
{
    std::string folder = FolderOfSnapshot(inFile);
    if (!Files().DirectoryExists(folder) && !ExtractZipFile(inFile, folder)) return false;
    outFolder = std::move(folder);
    return true;
}

bool HasReadableContent(const std::string& inFolder)
{
    try {
        const RepoPtr repo = backend::OpenRepository(Join(inFolder, "git"), backend::kReadWrite);
        return repo && HasReadableProperties(repo, kBranch_Session);
    } catch (const std::exception& exception) {
        LogError("GitBox", "Cannot look at what was unpacked", {{"path", inFolder}, {"exception", exception.what()}});
        return false;
    }
}

bool TakeSnapshot(const CopySource& inSource, const LocatorRows& inLocators, const dto::RawJSON& inProperties,
                  const std::string& inFile)
{
    return TakeSnapshot(inSource, inLocators, inProperties, inFile, {});
}

bool TakeSnapshot(const CopySource& inSource, const LocatorRows& inLocators, const dto::RawJSON& inProperties,
                  const std::string& inFile, const std::function<bool(Lyra2Db::Db&)>& inPrepare)
{
    const TemporaryFolder folder("TakeSnapshot");
    return !folder.Path().empty() && CopyForSnapshot(inSource, inLocators, inProperties, folder.Path(), inPrepare) &&
           CreateZipFile(folder.Path(), inFile);
}

bool CreateSessionFromSnapshot(const std::string& inFile, const std::string& inFolder, const SessionIDs& inIDs,
                               const dto::RawJSON& inProperties, RepoPtr& outRepo, DbPtr& outDb,
                               dto::Session& outSession)
{
    return ExtractZipFile(inFile, inFolder) && InitFromExtracted(inFolder, inIDs, outRepo, outDb, outSession) &&
           ReplaceProperties(outRepo, inProperties, outSession);
}

bool ApplySnapshot(const std::string& inFile, const RepoPtr& inRepo, AppliedSnapshot& outApplied)
{
    const TemporaryFolder folder("ApplySnapshot");
    bool result = Files().FileExists(inFile) && !folder.Path().empty();
    if (result && Files().DirectoryExists(folder.Path())) {
        LogError("GitBox", "ApplySnapshot: Will not replace existing extracted data", {{"dest", folder.Path()}});
        result = false;
    }
    result = result && ExtractZipFile(inFile, folder.Path());
    if (result) {
        noxcore::logging::LogInformation("GitBox", "ApplySnapshot: Extracted snapshot",
                                         {{"src", inFile}, {"dest", folder.Path()}});
        result = ApplyExtracted(folder.Path(), inRepo, outApplied);
    }
    if (!result) {
        LogError("GitBox", "Unable to apply snapshot",
                 {{"destRepo", inRepo->Path()}, {"srcRepo", inFile}, {"expression", "!result"}});
    }
    return result;
}

bool ApplySnapshotSessionData(const RepoPtr& inSource, Lyra2Db::Db& inSourceDb, const RepoPtr& inRepo,
                              AppliedSnapshot& outApplied)
{
    AppliedSnapshot applied;
    dto::ProductionProperties properties;
    RFC3339DateTime ignored;
    if (!ReadLocatorRows(inSourceDb, applied.mLocators) ||
        !ReadSessionProperties(inSource, {}, properties.mProperties, ignored) ||
        !PrepareContent({inSource, {}}, inRepo, applied.mChanges, applied.mLocators)) {
        LogError("GitBox", "ApplySnapshotSessionData: Unable to copy local session",
                 {{"destRepo", inRepo->Path()}, {"srcRepo", inSource->Path()}});
        return false;
    }
    applied.mChanges.mProperties = std::move(properties);
    outApplied = std::move(applied);
    return true;
}

bool DeleteWhatIsNotIn(const RepoPtr& inRepo, std::string_view inRevision, TransactionChanges& ioChanges)
{
    std::vector<ImmutableString> assets;
    std::vector<dto::Enclosure> enclosures;
    if (ReadAssetIDs(inRepo, inRevision, assets) != ReadResult::Found ||
        ReadProductionEnclosures(inRepo, inRevision, enclosures) != ReadResult::Found) {
        return false;
    }
    const auto keptAssets = IDsOf(ioChanges.mAssets, &ChangedAsset::mAssetID);
    const auto keptEnclosures = IDsOf(ioChanges.mProductionEnclosures, &dto::Enclosure::mEnclosureID);
    ioChanges.mDeletedAssets.clear();
    ioChanges.mDeletedProductionEnclosures.clear();
    for (const ImmutableString& id : assets) {
        if (!keptAssets.contains(id)) ioChanges.mDeletedAssets.insert(id);
    }
    for (const dto::Enclosure& enclosure : enclosures) {
        if (!keptEnclosures.contains(enclosure.mEnclosureID)) {
            ioChanges.mDeletedProductionEnclosures.insert(enclosure.mEnclosureID);
        }
    }
    return true;
}

}  // namespace VantryLocalHub::GitBox::IO

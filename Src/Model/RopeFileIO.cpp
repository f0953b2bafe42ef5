#include <unistd.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <stdexcept>

#include "Client/VYClient/LocalHub.h"
#include "Client/VYClient/UTF16.h"
#include "Inc/Model/CommitMessages.h"
#include "Inc/Model/GitBoxIO.h"
#include "Inc/Model/RopeFile.h"
#include "Inc/Model/RopeFileBranches.h"
#include "Inc/Model/RopeFileSyncDb.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/Executor.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Guid.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxcore/Murmur3.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxstorage/RopeBackends.h"
#include "Platform/noxstorage/RopeFileHold.h"

namespace VantryLocalHub::GitBox::RopeFile::IO {

namespace git = noxstorage::git;
namespace backend = noxstorage::git::RopeBackends;
using noxcore::filesupport::Files;
using noxcore::filesupport::Join;
using noxcore::logging::LogError;
using noxcore::logging::LogInformation;
using noxnet::kHTTPStatus_BadRequest;
using noxnet::kHTTPStatus_Conflict;
using noxnet::kHTTPStatus_InternalServerError;
using noxnet::kHTTPStatus_Locked;
using noxnet::kHTTPStatus_NotFound;
using noxnet::kHTTPStatus_OK;

namespace {

/// Thrown where no folder can be made for an open file.
struct FolderException : std::runtime_error
{
    using std::runtime_error::runtime_error;
    static constexpr std::int64_t kStatus = 0xa0630018;
};

/// A file name that every system takes which the file may travel to. Of paths that are no UTF-8 several would have the
/// same ids.
bool HasValidName(const std::string& inFile)
{
    return inFile.starts_with('/') && VYCL::IsUTF8(inFile) &&
           noxcore::filesupport::FileUtils::IsValidFileName(noxcore::filesupport::BaseName(inFile));
}

/// A folder of this process alone, with a name that no other has.
std::string MakeProjectRepoFolder()
{
    const std::string ofProcess = Join(VYCL::LocalHub::GetTempFolder(), std::to_string(::getpid()));
    std::string folder = Join(ofProcess, noxcore::utility::Guid::CreateUnique().Text());
    if (!VYCL::LocalHub::EnsureTempFolder() || !VYCL::LocalHub::EnsurePrivateFolder(ofProcess) ||
        !VYCL::LocalHub::EnsurePrivateFolder(folder))
        throw FolderException("The folder cannot be made: " + folder);
    return folder;
}

ImmutableString TextAt(const RepoPtr& inRepo, const git::TreePtr& inTree, std::string_view inPath)
{
    const auto blob = git::GetBlob(inRepo, inTree, inPath);
    return blob ? git::BlobToImmutableString(blob) : ImmutableString();
}

/// Whether an object is what its id promises: absent as well when it is damaged. Failed: that cannot be said just now.
git::Answer FindWhole(const RepoPtr& inRepo, const git::Oid& inOid, git::ObjectType inType)
{
    git::ObjectType type = git::ObjectType::Invalid;
    git::Bytes content;
    if (!git::ReadObject(inRepo, inOid, type, content)) {
        const git::Answer row = git::FindObjectType(inRepo, inOid, type);
        if (row != git::Answer::Found) return row;
        // The file can be read: what fails now as well is damaged, and will be the next time.
        if (!git::ReadObject(inRepo, inOid, type, content)) return git::Answer::Absent;
    }
    const bool isWhole = type == inType && git::ComputeObjectID(type, *content) == inOid;
    if (!isWhole) git::NoteDamaged(inRepo, inOid);  // to be repeated, it must be written anew
    return isWhole ? git::Answer::Found : git::Answer::Absent;
}

git::Answer FindWholeCommit(const RepoPtr& inRepo, const git::Oid& inOid, CommitPtr& outCommit)
{
    CommitPtr commit;
    git::Answer answer = FindWhole(inRepo, inOid, git::ObjectType::Commit);
    if (answer == git::Answer::Found) answer = git::FindCommit(inRepo, inOid, commit);
    if (answer == git::Answer::Found) answer = FindWhole(inRepo, commit->TreeID(), git::ObjectType::Tree);
    if (answer == git::Answer::Found) outCommit = std::move(commit);
    return answer;
}

struct Head
{
    CommitPtr mCommit;  ///< null: none can be read
    git::Oid mLost;     ///< where the branch stands if its backup is taken
    bool mIsBackup = false;
};

/// The head of a branch, or that of its backup where it is missing or damaged. A file that cannot be read just now is
/// no reason for that: it is not opened, and nothing in it changes.
Head ReadHead(const RepoPtr& inRepo, std::string_view inBranch, std::string_view inBackup)
{
    Head head;
    git::Answer answer = git::FindBranchHead(inRepo, inBranch, head.mLost);
    if (answer == git::Answer::Found) answer = FindWholeCommit(inRepo, head.mLost, head.mCommit);
    if (answer != git::Answer::Absent) return head;
    git::Oid backup;
    if (git::FindBranchHead(inRepo, inBackup, backup) == git::Answer::Found)
        head.mIsBackup = FindWholeCommit(inRepo, backup, head.mCommit) == git::Answer::Found;
    return head;
}

/// What is written into a file whose pages do not belong together may take more with it than was lost.
bool ReturnToBackup(const RepoPtr& inRepo, std::string_view inBranch, const Head& inHead)
{
    if (!inHead.mIsBackup) return true;
    if (!backend::IsSound(inRepo)) return false;
    noxcore::logging::LogWarning(kCategory, "A branch cannot be read, and goes back to its backup",
                                 {{"branch", inBranch},
                                  {"lostRevision", inHead.mLost.Text()},
                                  {"revision", inHead.mCommit->ID().Text()},
                                  {"repo", inRepo->Path()}});
    return git::SetBranchToCommit(inRepo, inHead.mCommit, inBranch);
}

bool ReadRecord(const std::string& inFile, const CommitPtr& inSession, const CommitPtr& inProduction, OpenFile& ioFile)
{
    const git::TreePtr tree = git::GetTreeAtCommit(ioFile.mRepo, inSession);
    if (!tree) return false;
    dto::Session session;
    CreateUniqueRopeFileIDs(inFile, session);
    ioFile.mUniqueID = TextAt(ioFile.mRepo, tree, "uniqueid");
    session.mRopeFileID = ioFile.mUniqueID;
    session.mRevision = inSession->ID().Text();
    session.mProductionRevision = inProduction->ID().Text();
    if (!GitBox::IO::ReadSessionProperties(ioFile.mRepo, session.mRevision, session.mProperties, session.mModified))
        return false;
    if (TextAt(ioFile.mRepo, tree, "filepath").View() != inFile)
        LogInformation(kCategory, "The file has been moved or copied: it goes by the ids of its path",
                       {{"sessionID", session.mIdentifier}, {"file", inFile}});
    ioFile.mSession = std::move(session);
    return true;
}

bool InitFile(const std::string& inFile, const std::string& inPlace, Mode inMode, const dto::RawJSON& inProperties,
              OpenFile& ioFile)
{
    const auto payload = [](std::string_view inText) { return noxcore::utility::CopyToRecycledMemory(inText); };
    dto::Session ids;
    CreateUniqueRopeFileIDs(inPlace, ids);
    const std::vector<backend::NamedPayload> payloads = {
        {"filepath", payload(inPlace)},
        {"productionid", payload(ids.mProductionID)},
        {"properties", payload(inProperties.Text())},
        {"sessionid", payload(ids.mIdentifier)},
        {"uniqueid", payload(noxcore::utility::Guid::CreateUnique().Text())}};
    CommitPtr commit;
    if (!backend::InitRepository(ioFile.mSideFolder, inFile, payloads, MakeAuthor(), MakeCommitter(),
                                 MakeCommitMessage(CommitMessageCode::Initialized), ioFile.mRepo, commit))
        return false;
    return git::SetBranchToCommit(ioFile.mRepo, commit, kBranch_Production, kBranch_ProductionBackup) &&
           git::SetBranchToCommit(ioFile.mRepo, commit, kBranch_Session, kBranch_SessionBackup) &&
           git::SwitchToBranch(ioFile.mRepo, kBranch_Session) &&
           (inMode == Mode::OfItsBranches || WriteMode(ioFile.mRepo, true)) &&
           ReadRecord(inPlace, commit, commit, ioFile);
}

bool IsNameBeside(const std::string& inFile)
{
    return std::any_of(kNamesBeside.begin(), kNamesBeside.end(),
                       [&](std::string_view inEnd) { return inFile.ends_with(inEnd); });
}

int StatusOf(backend::FileStep inStep)
{
    switch (inStep) {
        case backend::FileStep::Done:
            return kHTTPStatus_OK;
        case backend::FileStep::InUse:
            return kHTTPStatus_Locked;
        case backend::FileStep::Taken:
            return kHTTPStatus_Conflict;
        case backend::FileStep::Failed:
            break;
    }
    return kHTTPStatus_InternalServerError;
}

void LogFile(std::string_view inMessage, const std::string& inFile, const OpenFile& inOpened)
{
    LogInformation(kCategory, std::string(inMessage)
                                  .append(" sessionID:")
                                  .append(inOpened.mSession.mIdentifier.View())
                                  .append(" file:")
                                  .append(inFile)
                                  .append(" repo:")
                                  .append(inOpened.mSideFolder));
}

/// Makes a file where none is.
int MakeFile(const std::string& inFile, const std::string& inPlace, Mode inMode, const dto::RawJSON& inProperties,
             OpenFile& outFile)
{
    OpenFile file;
    try {
        file.mSideFolder = MakeProjectRepoFolder();
        if (InitFile(inFile, inPlace, inMode, inProperties, file)) {
            outFile = std::move(file);
            return kHTTPStatus_OK;
        }
        LogError(kCategory, "CreateRopeFile: Can't create rope file because git repo initiazation failed",
                 {{"file", inFile}});
    } catch (const FolderException& exception) {
        LogError(kCategory, "CreateRopeFile: Can't create session folder",
                 {{"file", inFile}, {"exception", exception.what()}, {"status", FolderException::kStatus}});
        return kHTTPStatus_InternalServerError;
    } catch (const std::exception& exception) {
        LogError(kCategory, "CreateRopeFile: Caught exception", {{"file", inFile}, {"exception", exception.what()}});
    }
    // What was begun is no project that anybody could open.
    if (file.mRepo)
        RemoveFailedFile(inFile, file);
    else
        CloseFile(file);
    return kHTTPStatus_InternalServerError;
}

/// Opens a file that is known to be there; nothing is told of a success.
int ReadFile(const std::string& inFile, OpenFile& outFile)
{
    OpenFile file;
    bool isInUse = false;
    try {
        file.mSideFolder = MakeProjectRepoFolder();
        if (backend::OpenRepository(file.mSideFolder, inFile, file.mRepo, isInUse)) {
            const Head session = ReadHead(file.mRepo, kBranch_Session, kBranch_SessionBackup);
            const Head production = ReadHead(file.mRepo, kBranch_Production, kBranch_ProductionBackup);
            // Nothing is changed in a file that cannot be opened.
            if (session.mCommit && production.mCommit &&
                ReadRecord(inFile, session.mCommit, production.mCommit, file) &&
                ReturnToBackup(file.mRepo, kBranch_Session, session) &&
                ReturnToBackup(file.mRepo, kBranch_Production, production)) {
                outFile = std::move(file);
                return kHTTPStatus_OK;
            }
            LogError(kCategory, "OpenRopeFile: The requested session does not exist", {{"file", inFile}});
        }
    } catch (const std::exception& exception) {
        LogError(kCategory, "OpenRopeFile: Caught exception", {{"file", inFile}, {"exception", exception.what()}});
    }
    CloseFile(file);
    return isInUse ? kHTTPStatus_Locked : kHTTPStatus_InternalServerError;
}

/// A project is made beside its place, so that there is never half of one, and what lies there goes only for a whole.
int MakeAndPutInPlace(const std::string& inPlace, bool inIsOver, Mode inMode, const dto::RawJSON& inProperties,
                      OpenFile& outFile)
{
    const std::string beside = inPlace + std::string(kMaking);
    OpenFile file;
    int status = StatusOf(backend::RemoveLeftover(beside));
    if (status == kHTTPStatus_OK) status = MakeFile(beside, inPlace, inMode, inProperties, file);
    if (status != kHTTPStatus_OK) return status;
    CloseFile(file);
    // Another process may have been quicker.
    status = LookAtPlace(inPlace, inIsOver);
    if (status == kHTTPStatus_OK) status = StatusOf(backend::PutInPlace(beside, inPlace, inIsOver));
    const bool isPut = status == kHTTPStatus_OK;
    if (isPut) status = ReadFile(inPlace, outFile);
    if (status == kHTTPStatus_OK) {
        LogFile("Created rope file.", inPlace, outFile);
        return status;
    }
    backend::RemoveLeftover(beside);
    if (isPut && !inIsOver) backend::RemoveLeftover(inPlace);
    return status;
}

}  // namespace

bool CanBeMade(const std::string& inFile)
{
    constexpr std::size_t kLongestName = 255;
    constexpr std::size_t kLongestEnd = kCompacting.size() + std::string_view("-journal").size();
    constexpr std::string_view kEndsOfDatabases[] = {"-journal", "-wal", "-shm"};
    return HasValidName(inFile) && noxcore::filesupport::BaseName(inFile).size() + kLongestEnd <= kLongestName &&
           !IsNameBeside(inFile) &&
           std::none_of(std::begin(kEndsOfDatabases), std::end(kEndsOfDatabases),
                        [&](std::string_view inEnd) { return inFile.ends_with(inEnd); });
}

int LookAtPlace(const std::string& inFile, bool inOverwrite)
{
    namespace fs = std::filesystem;
    std::error_code error;
    // Of a link itself: what it leads to may be on a volume that is away.
    const fs::file_type type = fs::symlink_status(inFile, error).type();
    if (type == fs::file_type::not_found) {
        const bool hasFolder = Files().DirectoryExists(std::string(noxcore::filesupport::ParentFolder(inFile)));
        return hasFolder ? kHTTPStatus_OK : kHTTPStatus_NotFound;
    }
    if (type == fs::file_type::none) return kHTTPStatus_InternalServerError;
    if (type == fs::file_type::regular && inOverwrite) return kHTTPStatus_OK;
    LogError(kCategory, "CreateRopeFile: Won't create a rope file on top of an existing rope file", {{"file", inFile}});
    return kHTTPStatus_Conflict;
}

void CreateUniqueRopeFileIDs(const std::string& inFile, dto::Session& outSession)
{
    const std::u16string path = VYCL::ToUTF16(inFile);
    noxcore::utility::Murmur3 hash;
    hash.Add("CreateUniqueRopeFileIDs");
    hash.Add(path.data(), path.size() * sizeof(char16_t));
    const std::string id = noxcore::utility::Guid(hash.Finish()).Text();
    outSession.mIdentifier = "r-" + id;
    outSession.mProductionID = "p-" + id;
}

int CreateRopeFile(const std::string& inFile, bool inOverwrite, Mode inMode, const dto::RawJSON& inProperties,
                   OpenFile& outFile, const std::string& inPlace)
{
    const std::string& place = inPlace.empty() ? inFile : inPlace;
    if (!CanBeMade(place)) {
        LogError(kCategory,
                 "CreateRopeFile: Can not create rope file because specified file name contains one or more illegal "
                 "characters",
                 {{"file", inFile}});
        return kHTTPStatus_BadRequest;
    }
    const bool isOver = Files().FileExists(inFile);
    if (inPlace.empty()) {
        if (const int status = LookAtPlace(inFile, inOverwrite); status != kHTTPStatus_OK) return status;
    }
    if (Files().FileExists(place))
        LogInformation(kCategory, "CreateRopeFile: Overwriting existing rope file", {{"file", place}});
    if (inPlace.empty()) return MakeAndPutInPlace(inFile, isOver, inMode, inProperties, outFile);
    if (isOver) {
        const int status = StatusOf(backend::RemoveLeftover(inFile));
        if (status != kHTTPStatus_OK) return status;
    }
    const int status = MakeFile(inFile, place, inMode, inProperties, outFile);
    if (status == kHTTPStatus_OK) LogFile("Created rope file.", inFile, outFile);
    return status;
}

int OpenRopeFile(const std::string& inFile, OpenFile& outFile)
{
    if (!HasValidName(inFile)) {
        LogError(kCategory,
                 "OpenRopeFile: Can not open rope file because specified file name contains one or more illegal "
                 "characters",
                 {{"file", inFile}});
        return kHTTPStatus_BadRequest;
    }
    if (!Files().FileExists(inFile)) return kHTTPStatus_NotFound;
    const int status = ReadFile(inFile, outFile);
    if (status == kHTTPStatus_OK) LogFile("Opened rope file.", inFile, outFile);
    return status;
}

void CloseFile(OpenFile& ioFile)
{
    ioFile.mRepo = nullptr;
    DeleteSideFolder(ioFile.mSideFolder);
    ioFile = {};
}

int MoveIntoPlace(const std::string& inFile, const std::string& inPlace, bool inOverwrite, OpenFile& ioFile)
{
    CloseFile(ioFile);
    return StatusOf(backend::PutInPlace(inFile, inPlace, inOverwrite));
}

void RemoveLeftovers(const std::string& inFile)
{
    for (const std::string_view name : kNamesBeside) {
        const std::string leftover = inFile + std::string(name);
        if (!Files().FileExists(leftover) && !Files().FileExists(leftover + "-journal")) continue;
        if (backend::RemoveLeftover(leftover) == backend::FileStep::Done)
            LogInformation(kCategory, "Removed a file that was never finished", {{"file", leftover}});
    }
}

void RemoveFailedFile(const std::string& inFile, OpenFile& ioFile)
{
    CloseFile(ioFile);
    backend::DeleteRepository(inFile);
}

void DeleteSideFolder(const std::string& inFolder)
{
    if (inFolder.empty()) return;
    noxcore::threads::PreTerminationExecutor()->Queue([inFolder] { noxcore::filesupport::Dir::Delete(inFolder); });
}

}  // namespace VantryLocalHub::GitBox::RopeFile::IO

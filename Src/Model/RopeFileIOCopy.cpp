// Copies of sessions into single-file projects.

#include <algorithm>
#include <exception>
#include <vector>

#include "Inc/Model/CommitMessages.h"
#include "Inc/Model/GitBoxIOCopy.h"
#include "Inc/Model/RopeFileCopy.h"
#include "Inc/Model/RopeFileDb.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxnet/HTTPStatus.h"
#include "Platform/noxstorage/RopeBackends.h"
#include "Src/Model/RopeFileEntries.h"

namespace VantryLocalHub::GitBox::RopeFile {

namespace git = noxstorage::git;
using git::TreeEntry;
using noxcore::filesupport::Files;
using noxcore::logging::LogError;

namespace {

bool PutLocators(const RepoPtr& inRepo, const std::vector<Lyra2Db::StoredRecord>& inLocators)
{
    const auto put = [&](const TreePtr&, const TreeBuilderNodePtr& inRoot) {
        noxcore::serialization::JSONDocument document;
        return std::all_of(inLocators.begin(), inLocators.end(), [&](const Lyra2Db::StoredRecord& inRecord) {
            std::string id;
            if (!document.Parse(inRecord.mDTO) || !document.Root()["vy:mediaLocatorId"].GetString(id) || id.empty()) {
                LogError(kCategory, "CopySessionDataToRepo: A media locator is not readable", {{"dto", inRecord.mDTO}});
                return false;
            }
            const auto path = [&](std::string_view inSide) {
                return GitBox::IO::MakeObjectPath(kBranch_MediaLocators, inSide, EntryOfLocator(id));
            };
            return RemovePath(inRepo, inRoot, path(kRemote)) && PutText(inRepo, inRoot, path(kLocal), inRecord.mDTO);
        });
    };
    return inLocators.empty() || ChangeBranch(inRepo, kBranch_MediaLocators, kCopyMessage, put);
}

/// Fills a new file with the content of a revision, in one commit, and with what lies beside the history.
bool CopyState(const GitBox::IO::CopySource& inSource, const dto::RawJSON& inProperties, const SessionData& inData,
               IO::OpenFile& ioFile)
{
    const git::RopeBackends::BulkLoad load(ioFile.mRepo);
    GitBox::IO::WholeContent content;
    content.mProperties = inProperties;
    CommitPtr commit;
    if (!GitBox::IO::TransferWhole(inSource, ioFile.mRepo, GitBox::IO::Destination::New, content) ||
        !GitBox::IO::WriteWhole(ioFile.mRepo, content, true, MakeCommitMessage(CommitMessageCode::CopiedFromSession),
                                commit) ||
        !CopySessionDataToRepo(ioFile.mRepo, inData))
        return false;
    if (inData.mBinCount && inData.mBinCountRevision == inSource.mRevision)
        Db::WriteBinCount(ioFile.mRepo, commit->ID().Text(), *inData.mBinCount);  // else it is counted when asked for
    ioFile.mSession.mRevision = commit->ID().Text();
    ioFile.mSession.mModified = RFC3339DateTime::FromSeconds(commit->Time());
    return true;
}

/// What was made beside the place of a copy takes it.
int PutCopyInPlace(const std::string& inBeside, const std::string& inFile, bool inOverwrite, IO::OpenFile& ioFile,
                   IO::OpenFile& outFile)
{
    IO::CloseFile(ioFile);
    // Another process may have been quicker.
    if (const int look = IO::LookAtPlace(inFile, inOverwrite); look != noxnet::kHTTPStatus_OK) return look;
    const int moved = IO::MoveIntoPlace(inBeside, inFile, inOverwrite, ioFile);
    return moved == noxnet::kHTTPStatus_OK ? IO::OpenRopeFile(inFile, outFile) : moved;
}

}  // namespace

bool CopySessionDataToRepo(const RepoPtr& inRepo, const SessionData& inData)
{
    return Db::WriteValues(inRepo, inData.mValues, kCopyMessage) && PutLocators(inRepo, inData.mLocators) &&
           WriteUserEnclosures(inRepo, inData.mUserEnclosures, kCopyMessage);
}

namespace IO {

int CopyToRopeFile(const RepoPtr& inSource, const std::string& inRevision, const SessionData& inData,
                   const std::string& inFile, bool inOverwrite, OpenFile& outFile)
{
    using noxnet::kHTTPStatus_InternalServerError;
    if (!CanBeMade(inFile)) {
        LogError(kCategory,
                 "CopyToRopeFile: Can not create rope file because specified file name contains one or more illegal "
                 "characters",
                 {{"file", inFile}});
        return noxnet::kHTTPStatus_BadRequest;
    }
    CommitPtr source;
    dto::RawJSON properties;
    RFC3339DateTime ignored;
    const GitBox::IO::ReadResult found = GitBox::IO::ResolveCommit(inSource, inRevision, source);
    if (found == GitBox::IO::ReadResult::Absent) return noxnet::kHTTPStatus_NotFound;
    if (found == GitBox::IO::ReadResult::Failed ||
        !GitBox::IO::ReadSessionProperties(inSource, source->ID().Text(), properties, ignored))
        return kHTTPStatus_InternalServerError;
    if (const int look = LookAtPlace(inFile, inOverwrite); look != noxnet::kHTTPStatus_OK) return look;
    // Built beside its place: what lies there stays until the copy is whole, and half a copy is nobody's project.
    const std::string beside = inFile + std::string(kCopying);
    OpenFile file;
    int status = CreateRopeFile(beside, true, Mode::LocalOnly, properties, file, inFile);
    if (!noxnet::IsSuccessfulHTTPStatus(status)) return status;
    std::string exception;
    try {
        const bool isWhole = CopyState({inSource, source->ID().Text()}, properties, inData, file);
        status = isWhole ? PutCopyInPlace(beside, inFile, inOverwrite, file, outFile) : kHTTPStatus_InternalServerError;
    } catch (const std::exception& caught) {
        exception = caught.what();
        status = kHTTPStatus_InternalServerError;
    }
    if (noxnet::IsSuccessfulHTTPStatus(status)) return status;
    LogError(kCategory, "CopySessionData: Unable to copy local session",
             {{"destRepo", inFile}, {"srcRepo", inSource->Path()}, {"exception", exception}});
    RemoveFailedFile(beside, file);
    return status;
}

}  // namespace IO

}  // namespace VantryLocalHub::GitBox::RopeFile

#include "Platform/noxstorage/RopeBackends.h"

#include <sqlite3.h>

#include <array>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbConnection.h"
#include "Platform/noxstorage/OdbFiles.h"
#include "Platform/noxstorage/OdbRepository.h"
#include "Platform/noxstorage/OdbSchema.h"
#include "Platform/noxstorage/SQLite.h"

namespace noxstorage::git::RopeBackends {

namespace fs = noxcore::filesupport;

namespace {

constexpr std::size_t kPageSize = 16384;
constexpr std::size_t kMaxBlobSize = 10485760;

bool Refuse(int inCode, const std::string& inFile, std::string_view inReason)
{
    LogGitError(inCode, inFile, kErrorClassOdb, inReason);
    return false;
}

/// Whether what the store goes by is damaged. It would make its index anew in such a file, which is to stay as it is.
/// Damage alone is told here: who has the file open, or that it cannot be read, is found out by opening it.
bool IsDamaged(const std::string& inFile)
{
    const auto choice = noxcore::HubContext::Current()->GetInstance<sqlite::VfsChoice>();
    odb::Connection connection;
    int code = connection.Open(inFile, choice ? choice->mName : std::string(), true, false);
    if (code == SQLITE_OK)
        code = connection.Execute(
            "PRAGMA busy_timeout=0; SELECT name,oid,target FROM refs; SELECT name,value FROM settings");
    if (code != SQLITE_OK) return (code & 0xff) == SQLITE_CORRUPT;
    return connection.Number("SELECT count(*) FROM settings WHERE name='maxBlobSize' AND typeof(value)='integer'", 1) ==
           0;
}

}  // namespace

bool InitRepository(const std::string& inTempFolder, const std::string& inFile,
                    const std::vector<NamedPayload>& inPayloads, const Signature& inAuthor,
                    const Signature& inCommitter, std::string_view inMessage, RepoPtr& outRepo, CommitPtr& outCommit)
{
    outRepo = nullptr;
    outCommit = nullptr;
    if (fs::Files().FileExists(inFile)) return Refuse(SQLITE_CANTOPEN, inFile, "there is a file already");
    int code = SQLITE_OK;
    RepoPtr repo =
        odb::OpenRepo({inTempFolder, inFile, true, true, kPageSize, kMaxBlobSize, odb::Store::Journal::Rollback}, code);
    CommitPtr commit = repo ? odb::WriteFirstCommit(repo, inPayloads, inAuthor, inCommitter, inMessage) : nullptr;
    if (commit && odb::SyncFolder(std::string(fs::ParentFolder(inFile)))) {
        outRepo = std::move(repo);
        outCommit = std::move(commit);
        return true;
    }
    // Of two that make the same file at once, one finds the other at work.
    if (repo == nullptr && code == SQLITE_BUSY) return false;
    repo = nullptr;
    DeleteRepository(inFile);
    return false;
}

bool IsRepository(const std::string& inFile)
{
    const OtherUse use(inFile);
    if (!use) return true;
    // The head of an SQLite file: a text, and at byte 68 the application's id, the highest byte first.
    constexpr std::string_view kText{"SQLite format 3\0", 16};
    constexpr std::size_t kPlaceOfID = 68;
    std::array<char, 72> head{};
    std::size_t read = 0;
    const auto reader = fs::Files().OpenFile(inFile);
    if (reader == nullptr || !reader->ReadAt(0, head.size(), head.data(), read) || read != head.size()) return false;
    std::uint32_t application = 0;
    for (std::size_t index = kPlaceOfID; index < head.size(); ++index)
        application = application << 8U | static_cast<std::uint8_t>(head[index]);
    return std::string_view(head.data(), kText.size()) == kText && application == odb::kOneFileApplicationID;
}

OtherUse::OtherUse(const std::string& inPath)
    : mRegistry(odb::FileRegistry::Current()),
      mPath(inPath),
      mFile(odb::FileRegistry::IDOf(inPath)),
      mIsBegun(mRegistry->BeginOtherUse(mPath, mFile))
{
}

OtherUse::~OtherUse()
{
    if (mIsBegun) mRegistry->EndOtherUse(mPath, mFile);
}

std::string WhereOpened(const std::string& inPath)
{
    return odb::FileRegistry::Current()->PathOf(odb::FileRegistry::IDOf(inPath));
}

bool HasMoved(const RepoPtr& inRepo)
{
    return inRepo->GetStore().HasMoved();
}

bool IsSound(const RepoPtr& inRepo)
{
    return inRepo->GetStore().IsSound() ||
           Refuse(SQLITE_CORRUPT, inRepo->Path(), "the file is damaged in more than an object");
}

BulkLoad::BulkLoad(RepoPtr inRepo) : mRepo(std::move(inRepo))
{
    mRepo->GetStore().SetBulkLoad(true);
}

BulkLoad::~BulkLoad()
{
    mRepo->GetStore().SetBulkLoad(false);
}

bool DeleteRepository(const std::string& inFile)
{
    // The journal goes last: without its file it means nothing, and the file without it may be half a commit.
    bool deleted = false;
    for (const std::string& file : {inFile, inFile + "-journal"}) {
        // Deleted unasked: a look that fails would say that there is nothing.
        if (fs::Files().DeleteFile(file))
            deleted = true;
        else if (fs::Files().FileExists(file))
            return false;
    }
    return !deleted || odb::SyncFolder(std::string(fs::ParentFolder(inFile)));
}

bool OpenRepository(const std::string& inTempFolder, const std::string& inFile, RepoPtr& outRepo, bool& outInUse)
{
    outRepo = nullptr;
    outInUse = false;
    if (!fs::Files().FileExists(inFile)) return Refuse(SQLITE_CANTOPEN, inFile, "there is no such file");
    if (IsDamaged(inFile)) return Refuse(SQLITE_CORRUPT, inFile, "the file is damaged");
    int code = SQLITE_OK;
    outRepo = odb::OpenRepo({inTempFolder, inFile, true, false, 0, 0, odb::Store::Journal::Rollback}, code);
    outInUse = (code & 0xff) == SQLITE_BUSY;
    return outRepo != nullptr;
}

bool OpenRepository(const std::string& inTempFolder, const std::string& inFile, RepoPtr& outRepo)
{
    bool ignored = false;
    return OpenRepository(inTempFolder, inFile, outRepo, ignored);
}

}  // namespace noxstorage::git::RopeBackends

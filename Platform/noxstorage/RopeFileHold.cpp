#include "Platform/noxstorage/RopeFileHold.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <vector>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxcore/HubContext.h"
#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/OdbConnection.h"
#include "Platform/noxstorage/OdbFiles.h"
#include "Platform/noxstorage/OdbRepository.h"
#include "Platform/noxstorage/RopeBackends.h"
#include "Platform/noxstorage/SQLite.h"

namespace noxstorage::git::RopeBackends {

namespace fs = noxcore::filesupport;

namespace {

constexpr std::string_view kJournal = "-journal";
constexpr std::string_view kLog = "-wal";
constexpr std::array<std::string_view, 3> kCompanions = {kJournal, kLog, "-shm"};

FileStep Fail(int inCode, const std::string& inFile, std::string_view inReason)
{
    LogGitError(inCode, inFile, kErrorClassOdb, inReason);
    return FileStep::Failed;
}

/// What lies at a path, as the folder lists it: to ask for a file cannot tell "no" from "cannot say".
struct Listed
{
    bool mFile = false;
    std::array<bool, kCompanions.size()> mCompanions{};

    [[nodiscard]] bool HasLog() const { return mCompanions[1]; }
};

bool List(const std::string& inFile, Listed& outListed)
{
    outListed = {};
    std::vector<fs::DirectoryEntry> entries;
    if (!fs::Files().ListDirectory(std::string(fs::ParentFolder(inFile)), entries)) return false;
    const std::string_view name = fs::BaseName(inFile);
    for (const fs::DirectoryEntry& entry : entries) {
        if (!entry.mName.starts_with(name)) continue;
        const std::string_view rest = std::string_view(entry.mName).substr(name.size());
        if (rest.empty()) outListed.mFile = true;
        for (std::size_t index = 0; index < kCompanions.size(); ++index)
            if (rest == kCompanions[index]) outListed.mCompanions[index] = true;
    }
    return true;
}

/// Keeps everybody else out of a file, by SQLite's own lock. Nothing is written through it, so that it touches no
/// journal when it ends, whatever lies under the file's name by then.
class Hold
{
public:
    enum class Outcome
    {
        Held,
        NotHeld,  ///< no database of the kind that is held: a text, or one that others may share
        InUse,
        Failed
    };

    Outcome Take(const std::string& inFile)
    {
        const auto choice = noxcore::HubContext::Current()->GetInstance<sqlite::VfsChoice>();
        mCode = mConnection.Open(inFile, choice ? choice->mName : std::string(), true, false);
        if (mCode == SQLITE_OK)
            mCode = mConnection.Execute("PRAGMA busy_timeout=0; SELECT count(*) FROM sqlite_schema");
        // The lock of one that keeps a log would make and remove files under its name.
        const bool isShared = mCode == SQLITE_OK && mConnection.Number(
                                                        "SELECT 1 FROM pragma_journal_mode "
                                                        "WHERE journal_mode='wal'",
                                                        0) != 0;
        if (mCode == SQLITE_OK && !isShared) mCode = mConnection.Execute("BEGIN EXCLUSIVE");
        int moved = 0;
        if (mCode == SQLITE_OK && !isShared)
            mCode = sqlite3_file_control(mConnection.Handle(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
        const Outcome outcome = moved != 0 ? Outcome::InUse : isShared ? Outcome::NotHeld : Meaning(mCode);
        if (outcome != Outcome::Held) mConnection.Close();
        return outcome;
    }
    [[nodiscard]] int Code() const { return mCode; }

private:
    static Outcome Meaning(int inCode)
    {
        switch (inCode & 0xff) {
            case SQLITE_OK:
                return Outcome::Held;
            case SQLITE_BUSY:
            case SQLITE_LOCKED:
                return Outcome::InUse;
            case SQLITE_NOTADB:
            case SQLITE_CORRUPT:
            case SQLITE_READONLY:
                return Outcome::NotHeld;
            default:
                return Outcome::Failed;
        }
    }

    odb::Connection mConnection;
    int mCode = SQLITE_OK;
};

FileStep TakeHold(const std::string& inFile, Hold& outHold)
{
    switch (outHold.Take(inFile)) {
        case Hold::Outcome::InUse:
            return FileStep::InUse;
        case Hold::Outcome::Failed:
            return Fail(outHold.Code(), inFile, sqlite3_errstr(outHold.Code()));
        default:
            return FileStep::Done;
    }
}

/// Gives a new file the labels and access lists that people or their systems put on what it replaces, as far as its
/// volume keeps them.
void TakeOverAttributes(const std::string& inPlace, const std::string& inFile)
{
    const ssize_t size = ::listxattr(inPlace.c_str(), nullptr, 0);
    std::string names(static_cast<std::size_t>(std::max<ssize_t>(size, 0)), '\0');
    const ssize_t listed = ::listxattr(inPlace.c_str(), names.data(), names.size());
    names.resize(static_cast<std::size_t>(std::max<ssize_t>(listed, 0)));
    std::string value;
    for (std::size_t start = 0; start < names.size(); start = names.find('\0', start) + 1) {
        const char* const name = names.c_str() + start;
        constexpr std::size_t kLargest = 65536;  // that a kernel hands out
        value.resize(kLargest);
        const ssize_t read = ::getxattr(inPlace.c_str(), name, value.data(), value.size());
        if (read >= 0) ::setxattr(inFile.c_str(), name, value.data(), static_cast<std::size_t>(read), 0);
    }
}

/// Gives a new file the owner and the rights of what it replaces. False for something that nobody may write to, which
/// is not replaced either.
bool TakeOverRights(const std::string& inPlace, const std::string& inFile)
{
    struct stat state = {};
    if (::stat(inPlace.c_str(), &state) != 0) return true;
    constexpr mode_t kAnyoneMayWrite = S_IWUSR | S_IWGRP | S_IWOTH;
    constexpr mode_t kRights = 07777;
    if ((state.st_mode & kAnyoneMayWrite) == 0) return false;
    // Not every file system keeps them, and not everybody may give a file away: then nobody loses rights to it.
    constexpr uid_t kSameOwner = static_cast<uid_t>(-1);
    struct stat made = {};
    const bool isGiven = ::chown(inFile.c_str(), state.st_uid, state.st_gid) == 0 ||
                         ::chown(inFile.c_str(), kSameOwner, state.st_gid) == 0;
    const mode_t more = !isGiven && ::stat(inFile.c_str(), &made) == 0 ? made.st_mode : 0;
    if (::chmod(inFile.c_str(), (state.st_mode | more) & kRights) != 0) errno = 0;
    TakeOverAttributes(inPlace, inFile);
    return true;
}

/// Makes sure that nothing which belongs to what lies in a place is there, durably, when something else comes to it:
/// SQLite would play a journal back into any file of the name.
FileStep Settle(const std::string& inPlace, Hold& outHold)
{
    Listed listed;
    if (!List(inPlace, listed)) return Fail(SQLITE_IOERR, inPlace, "cannot list the folder");
    if (listed.mFile) {
        // To take hold of a file brings it to its last commit.
        if (const FileStep step = TakeHold(inPlace, outHold); step != FileStep::Done) return step;
        if (!List(inPlace, listed)) return Fail(SQLITE_IOERR, inPlace, "cannot list the folder");
        if (listed.HasLog()) return FileStep::InUse;
    }
    for (std::size_t index = 0; index < kCompanions.size(); ++index) {
        const std::string companion = inPlace + std::string(kCompanions[index]);
        if (listed.mCompanions[index] && !fs::Files().DeleteFile(companion))
            return Fail(SQLITE_IOERR_DELETE, companion, "cannot delete the file");
    }
    return odb::SyncFolder(std::string(fs::ParentFolder(inPlace))) ? FileStep::Done : FileStep::Failed;
}

}  // namespace

std::string IdentityOf(const std::string& inFile)
{
    const auto [device, inode] = odb::FileRegistry::IDOf(inFile);
    return inode == 0 ? std::string() : std::to_string(device) + "-" + std::to_string(inode);
}

std::string StateOf(const std::string& inFile)
{
    struct stat state = {};
    if (::stat(inFile.c_str(), &state) != 0) return {};
    std::string text = std::to_string(state.st_dev);
    for (const auto number :
         {static_cast<std::int64_t>(state.st_ino), static_cast<std::int64_t>(state.st_size),
          static_cast<std::int64_t>(state.st_mtim.tv_sec), static_cast<std::int64_t>(state.st_mtim.tv_nsec)})
        text.append("-").append(std::to_string(number));
    return text;
}

FileStep LookForUsers(const std::string& inFile)
{
    Hold hold;
    return fs::Files().FileExists(inFile) ? TakeHold(inFile, hold) : FileStep::Done;
}

FileStep RemoveLeftover(const std::string& inFile)
{
    Hold hold;
    if (fs::Files().FileExists(inFile))
        if (const FileStep step = TakeHold(inFile, hold); step != FileStep::Done) return step;
    return DeleteRepository(inFile) ? FileStep::Done : Fail(SQLITE_IOERR_DELETE, inFile, "cannot delete the file");
}

FileStep RemoveLoneJournal(const std::string& inFile)
{
    const std::string journal = inFile + std::string(kJournal);
    Listed listed;
    if (!fs::Files().FileExists(journal)) return FileStep::Done;
    if (!List(inFile, listed)) return Fail(SQLITE_IOERR, inFile, "cannot list the folder");
    const auto reader = listed.mFile || !listed.mCompanions[0] ? nullptr : fs::Files().OpenFile(journal);
    if (reader == nullptr || reader->Size() != 0) return FileStep::Done;
    return fs::Files().DeleteFile(journal) ? FileStep::Done
                                           : Fail(SQLITE_IOERR_DELETE, journal, "cannot delete the file");
}

FileStep PutInPlace(const std::string& inFile, const std::string& inPlace, bool inOverwrite)
{
    Hold hold;
    Listed listed;
    if (!List(inFile, listed)) return Fail(SQLITE_IOERR, inFile, "cannot list the folder");
    // A journal means that the close did not bring all of the file onto the disk.
    if (!listed.mFile || listed.mCompanions[0]) return Fail(SQLITE_ABORT, inFile, "the file is not whole");
    if (!inOverwrite && fs::Files().FileExists(inPlace)) return FileStep::Taken;
    if (const FileStep step = Settle(inPlace, hold); step != FileStep::Done) return step;
    if (inOverwrite && !TakeOverRights(inPlace, inFile))
        return Fail(SQLITE_READONLY, inPlace, "the file is write-protected");
    // Whoever was quicker by a moment keeps the place.
    const bool isPut =
        inOverwrite ? fs::Files().Rename(inFile, inPlace) : fs::Files().RenameUnlessTaken(inFile, inPlace);
    if (!isPut && !inOverwrite && errno == EEXIST) return FileStep::Taken;
    if (!isPut) return Fail(SQLITE_IOERR, inPlace, "cannot put the file in its place");
    // From here on everybody sees the new file: a folder that fails is asked once more before that is left in doubt.
    const std::string folder(fs::ParentFolder(inPlace));
    return odb::SyncFolder(folder) || odb::SyncFolder(folder) ? FileStep::Done : FileStep::Failed;
}

}  // namespace noxstorage::git::RopeBackends

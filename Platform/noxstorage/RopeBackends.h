#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/noxstorage/Git.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"

/// Repositories in one file that people may move, mail and archive: a SQLite file with an application id of its own,
/// objects and references in it and nothing else (OdbSchema.h). While it is open it is locked against every other
/// program, and a rollback journal lies beside it; closed, it stands alone. Neither shared memory nor a write-ahead log
/// is needed, so that it works on network volumes.
///
/// The temporary folder is that of the repository as long as it is open. Nothing of the content is kept there.
namespace noxstorage::git::odb {
class FileRegistry;
}

namespace noxstorage::git::RopeBackends {

using SQLite3OdbBackend::NamedPayload;

/// Makes the file and a first commit of the payloads as a flat tree, without a branch; durable on return. A file that
/// is there already is not touched. On failure the out arguments are null and what was made is gone.
bool InitRepository(const std::string& inTempFolder, const std::string& inFile,
                    const std::vector<NamedPayload>& inPayloads, const Signature& inAuthor,
                    const Signature& inCommitter, std::string_view inMessage, RepoPtr& outRepo, CommitPtr& outCommit);

/// False when there is no such file, when it is none of this kind or of a later one, when somebody else has it open, or
/// when it may not be written; logged with SQLite's code. outRepo is null then. outInUse: somebody else has it open.
bool OpenRepository(const std::string& inTempFolder, const std::string& inFile, RepoPtr& outRepo, bool& outInUse);
bool OpenRepository(const std::string& inTempFolder, const std::string& inFile, RepoPtr& outRepo);

/// Whether an open file can be written to without making damage greater: its structure is whole. All of it is read.
bool IsSound(const RepoPtr& inRepo);

/// While one lives, what is written into a new file is not pressed onto the disk piece by piece, as nobody relies on it
/// yet; a commit presses all of it. A power cut before that leaves a file that is of no use.
class BulkLoad
{
public:
    explicit BulkLoad(RepoPtr inRepo);
    ~BulkLoad();
    BulkLoad(const BulkLoad&) = delete;
    BulkLoad& operator=(const BulkLoad&) = delete;

private:
    const RepoPtr mRepo;
};

/// Has to live while what lies at a path is open by other means, be it to read: the lock of a process on a file goes
/// with the first of its descriptors that is closed. Until then nobody of this process opens a project there. False:
/// one is open, under this name or another one.
class OtherUse
{
public:
    explicit OtherUse(const std::string& inPath);
    ~OtherUse();
    OtherUse(const OtherUse&) = delete;
    OtherUse& operator=(const OtherUse&) = delete;
    explicit operator bool() const { return mIsBegun; }

private:
    const std::shared_ptr<odb::FileRegistry> mRegistry;
    const std::string mPath;
    const std::pair<std::uint64_t, std::uint64_t> mFile;
    const bool mIsBegun;
};

/// The path at which what lies at this one now was opened in this process; empty where it is not open.
std::string WhereOpened(const std::string& inPath);

/// Whether an open file was moved, deleted or replaced since.
bool HasMoved(const RepoPtr& inRepo);

/// Whether a file says of itself that it is one of this kind. Not to be asked of one that this process has open.
bool IsRepository(const std::string& inFile);

/// Deletes the file, which nobody has open, and what a program that was killed left beside it. True as well when there
/// is none.
bool DeleteRepository(const std::string& inFile);

}  // namespace noxstorage::git::RopeBackends

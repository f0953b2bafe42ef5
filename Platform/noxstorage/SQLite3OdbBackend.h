#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/noxcore/RecycledMemory.h"
#include "Platform/noxstorage/Git.h"

struct sqlite3;

/// Repositories of session folders: a folder with the one file "odb.sqlite3" (and, while it is open, SQLite's
/// write-ahead log beside it). The file's layout is told in OdbSchema.h.
namespace noxstorage::git::SQLite3OdbBackend {

constexpr std::string_view kFileName = "odb.sqlite3";

constexpr unsigned kReadOnly = 0;   ///< for tools: never writes, not even a checkpoint
constexpr unsigned kReadWrite = 1;  ///< one such handle a file at a time

struct NamedPayload
{
    std::string mName;
    noxcore::utility::ConstRecycledMemoryPtr mPayload;
};

/// Makes a repository in the folder, made too if need be, and a first commit of the payloads as a flat tree, without a
/// branch; durable on return. inMaxBlobSize 0 keeps every object in one row. A repository that already lies there is
/// gone on with; a file there that is none is renamed, never deleted. On failure the out arguments are null.
bool InitRepository(const std::string& inFolder, const std::vector<NamedPayload>& inPayloads, const Signature& inAuthor,
                    const Signature& inCommitter, std::string_view inMessage, std::size_t inPageSize,
                    std::size_t inMaxBlobSize, unsigned inFlag, RepoPtr& outRepo, CommitPtr& outCommit);

/// Null when it cannot be opened: absent, no repository, or the system refuses (logged with SQLite's code).
RepoPtr OpenRepository(const std::string& inFolder, unsigned inFlag);

/// The same, and whether the file itself is at fault: busy, locked, full, input/output and cannot-open codes never
/// count as damage.
enum class OpenResult
{
    Opened,
    Absent,
    Refused,
    Damaged
};
OpenResult TryOpenRepository(const std::string& inFolder, unsigned inFlag, RepoPtr& outRepo);

/// From one row an object (data model 1.0.1) to rows of at most inMaxBlobSize bytes (2.0.1), and back. All objects
/// keep their ids; one transaction, so a failure leaves all as it was. The session's `version` file is the caller's,
/// to be rewritten last.
bool UpgradeRepositoryInPlace(const RepoPtr& inRepo, std::size_t inMaxBlobSize);
bool DowngradeRepositoryInPlace(const RepoPtr& inRepo, unsigned inFlag);
/// Largest row of the repository; 0 when objects are never split.
std::size_t GetMaxBlobSize(const RepoPtr& inRepo);

/// Moves the write-ahead log into the file, as far as no reader stands in the way; true when nothing is left in it.
bool Checkpoint(const RepoPtr& inRepo);

/// Reads every object, checks its content against its id, and checks that what commits, trees and branches name is
/// there. Costs the whole file. Names what is wrong, one line each, and goes on behind it.
bool Scrub(const RepoPtr& inRepo, std::vector<std::string>& outFaults);

/// One durable transaction of the repository's file: objects, references under compare-and-set, and rows of the
/// caller's own, several commits included. It holds the writer mutex of the repository from Begin to its end, so it is
/// short, and nothing else is locked inside. Ends without effect unless Commit answers true.
class CommitScope
{
public:
    /// Null when the repository refuses to write.
    static std::unique_ptr<CommitScope> Begin(const RepoPtr& inRepo);
    ~CommitScope();
    CommitScope(const CommitScope&) = delete;
    CommitScope& operator=(const CommitScope&) = delete;

    /// Adds an object; zero on failure.
    Oid AddObject(ObjectType inType, std::string_view inContent);
    /// Adds a commit object with at most one parent (zero: none). Moves no branch.
    Oid AddCommit(const Oid& inTree, const Oid& inParent, const Signature& inAuthor, const Signature& inCommitter,
                  std::string_view inMessage);
    /// Where a reference stands in this transaction ("refs/..." or a branch name); zero when absent.
    Oid GetReference(std::string_view inName);
    /// Moves a reference; with inExpected only from there (zero: only if absent). False, and the transaction stands as
    /// it was, when it is elsewhere.
    bool SetReference(std::string_view inName, const Oid& inTarget, const Oid* inExpected = nullptr);
    /// The connection, inside its transaction, for the caller's own rows.
    [[nodiscard]] sqlite3* Handle() const;
    /// False: nothing happened. Once only.
    bool Commit();

private:
    struct Impl;
    explicit CommitScope(std::unique_ptr<Impl> inImpl);
    std::unique_ptr<Impl> mImpl;
};

}  // namespace noxstorage::git::SQLite3OdbBackend

#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "Platform/noxcore/ImmutableString.h"
#include "Platform/noxcore/RecycledMemory.h"
#include "Platform/noxstorage/GitObjects.h"
#include "Platform/noxstorage/GitTreeBuilder.h"

struct git_repository;

/// Repositories, their objects and their branches.
///
/// Results: a null pointer, a zero id or false is a failure, logged once under "noxstorage" as "Git operation error";
/// where a function says "absent", that is no failure and nothing is logged. Nothing throws.
/// Threading: any thread, any function, on one repository at once.
namespace noxstorage::git {

namespace odb {
class Store;
}

/// Process-wide set-up of libgit2; counted, so each Startup wants a Shutdown. Repositories need it.
bool Startup();
void Shutdown();
/// Whether libgit2 keeps objects it has parsed.
bool EnableCaching(bool inEnable);
/// Has libgit2 allocate from the C library's heap, by way of its allocator table. Before Startup only.
bool EnableCustomAllocator();
/// Repositories in folders of other users may be opened.
bool DisableOwnerValidation();

/// An open repository: one SQLite file of objects and references, with libgit2's view of it.
///
/// What is written before a commit waits in memory or lies unsynced in the file, and every reader of this Repo sees it
/// at once. Closed with its last owner, and what waits is written then; an open scope of a reader is an owner. A file
/// has one Repo that writes at a time: while one is open, a second is refused.
/// Lock order: one writer mutex inside, rank RepositoryWriter, held for a flush, a commit or a checkpoint.
class Repo
{
public:
    Repo(std::shared_ptr<odb::Store> inStore, git_repository* inHandle);
    ~Repo();
    Repo(const Repo&) = delete;
    Repo& operator=(const Repo&) = delete;

    /// The folder that it was opened in.
    [[nodiscard]] const std::string& Path() const;
    /// For the few direct calls of libgit2; it reads and writes through the same store.
    [[nodiscard]] git_repository* Handle() const { return mHandle; }
    [[nodiscard]] odb::Store& GetStore() const { return *mStore; }
    /// True after a failed sync: what the file holds is in doubt, every further write is refused. Whoever owns the
    /// repository drops it, opens it anew and looks where the branches stand.
    [[nodiscard]] bool NeedsReopen() const;
    /// True when an earlier Repo of this file lost objects that were written but not committed: a failed sync, or a
    /// disk that was full to the end. What an uncommitted change refers to may be missing then.
    [[nodiscard]] bool MayLackContent() const;

private:
    std::shared_ptr<odb::Store> mStore;
    git_repository* mHandle;
};

using RepoPtr = std::shared_ptr<Repo>;

/// One read transaction of this thread: all reads of the repository inside the scope use one connection, and branches
/// keep the place they had at its first read (a commit by this same thread moves the scope on). Scopes nest. To be
/// held for a request, not longer: an open scope keeps the write-ahead log from being reused. Of a single-file
/// repository, whose one connection is not kept from others, branches show where they stand when they are read.
class ReadScope
{
public:
    explicit ReadScope(const RepoPtr& inRepo);
    ~ReadScope();
    ReadScope(const ReadScope&) = delete;
    ReadScope& operator=(const ReadScope&) = delete;

    /// The object at this place (FindPlaces) is read next, and what was written shortly before it.
    void ReadAhead(std::int64_t inPlace) const;

private:
    const RepoPtr mRepo;
};

// ---- Reading

/// Where in the file objects lie; 0 where that is not known. Many are read fastest in the order of their places, each
/// announced to the scope.
std::vector<std::int64_t> FindPlaces(const RepoPtr& inRepo, std::span<const Oid> inOids);

/// The head of a branch ("session", or a full "refs/..." name). Where there is no such commit and a backup name is
/// given, the head of the backup branch; null where a read fails, lest the head be taken for lost.
CommitPtr GetCommitForBranch(const RepoPtr& inRepo, std::string_view inBranch, std::string_view inBackup = {});
/// The id of that head; one that is absent is not logged.
Answer FindBranchHead(const RepoPtr& inRepo, std::string_view inBranch, Oid& outHead);
/// The same; zero, without a log, when the branch is absent.
Oid GetBranchHead(const RepoPtr& inRepo, std::string_view inBranch);
/// Absent: no commit of the id, which is logged.
Answer FindCommit(const RepoPtr& inRepo, const Oid& inOid, CommitPtr& outCommit);
CommitPtr GetCommit(const RepoPtr& inRepo, const Oid& inCommit);
/// The first parent; null, without a log, for a root commit.
CommitPtr GetFirstParent(const RepoPtr& inRepo, const CommitPtr& inCommit);
/// Calls the visitor with the commit and each of its first parents, newest first, until it answers false or the root
/// was visited. True when the walk ended so; false when a commit could not be read.
bool WalkFirstParents(const RepoPtr& inRepo, const CommitPtr& inFrom,
                      const std::function<bool(const CommitPtr&)>& inVisitor);

TreePtr GetTreeAtCommit(const RepoPtr& inRepo, const CommitPtr& inCommit);
TreePtr GetTree(const RepoPtr& inRepo, const Oid& inTree);
/// The subtree at a path ("assets/4c/4c0f", a "/" at the end is allowed); null when absent.
TreePtr GetTree(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inPath);

/// The entry at a path. The entry's name stays empty.
Answer FindEntry(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inPath, TreeEntry& outEntry);
/// The same; false when absent or unreadable.
bool GetEntry(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inPath, TreeEntry& outEntry);

/// The blob at a path; null when absent.
BlobPtr GetBlob(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inPath);
BlobPtr GetBlob(const RepoPtr& inRepo, const Oid& inBlob);
/// The blob of a text id.
BlobPtr GetBlob(const RepoPtr& inRepo, std::string_view inBlobText);

noxcore::utility::ImmutableString BlobToImmutableString(const BlobPtr& inBlob);
/// Shares the blob's bytes.
noxcore::utility::ConstRecycledMemoryPtr BlobToConstRecycledMemoryPtr(const BlobPtr& inBlob);

/// An object straight from the store; false, without a log, when absent.
bool ReadObject(const RepoPtr& inRepo, const Oid& inOid, ObjectType& outType, Bytes& outContent);
/// An object's type; asks the file only where memory does not tell.
Answer FindObjectType(const RepoPtr& inRepo, const Oid& inOid, ObjectType& outType);
/// Whether an object is there, by what memory and the index tell; its row, which may lie anywhere in the file, is not
/// touched. The type is Invalid where only the index knows the object.
Answer FindObject(const RepoPtr& inRepo, const Oid& inOid, ObjectType& outType);
/// An object's type and size without its content; false, without a log, when absent.
bool ReadObjectHeader(const RepoPtr& inRepo, const Oid& inOid, ObjectType& outType, std::uint64_t& outSize);
bool HasObject(const RepoPtr& inRepo, const Oid& inOid);
/// An object piece by piece, in order, so that a large one needs no room as a whole. The visitor answers false to
/// stop. True when all pieces were visited.
bool ReadObjectInPieces(const RepoPtr& inRepo, const Oid& inOid, ObjectType& outType,
                        const std::function<bool(std::string_view)>& inVisitor);
/// Every object that the file holds, in the order of writing, content piece by piece (see above; the last call for an
/// object has an empty piece). False when the file could not be read to its end or the visitor stopped. Damaged rows
/// end the walk unless there is somebody to tell of them (with the object's id where it is known); then it goes on.
bool ForEachObject(
    const RepoPtr& inRepo,
    const std::function<bool(const Oid&, ObjectType, std::uint64_t inSize, std::string_view inPiece)>& inVisitor,
    const std::function<void(const Oid&, std::int64_t inFirstRow, std::int64_t inLastRow)>& inDamaged = {});

/// Says that an object's content is not what its id promises: it counts as missing, and is written anew when somebody
/// stores it. Reading notes by itself what cannot be decoded.
void NoteDamaged(const RepoPtr& inRepo, const Oid& inOid);

/// The id that bytes have as an object; nothing is stored.
Oid ComputeObjectID(ObjectType inType, std::string_view inContent);

// ---- Writing

using OidSet = std::unordered_set<Oid>;

/// Stores a blob: at once visible, in the file with the next flush, durable with the next commit. Zero when it cannot
/// be kept. Ids in inoutWritten are taken as stored already; new ones are added.
Oid WriteBlob(const RepoPtr& inRepo, const void* inData, std::size_t inSize, OidSet* inoutWritten = nullptr);
/// The same; the bytes are shared, not copied, while they wait.
Oid WriteBlob(const RepoPtr& inRepo, const noxcore::utility::ConstRecycledMemoryPtr& inPayload,
              OidSet* inoutWritten = nullptr);
/// Stores a tree or commit given as git's bytes, unchecked.
Oid WriteObject(const RepoPtr& inRepo, ObjectType inType, std::string_view inContent);

/// Writes all waiting objects into the file, unsynced. False: the file refused (full, say); they wait on.
bool FlushObjects(const RepoPtr& inRepo);
/// The same without waiting for another writer or for maintenance: false as well while one is at work.
bool TryFlushObjects(const RepoPtr& inRepo);

/// Writes a commit whose parent is the branch's head (none: the branch is made), and moves the branch to it; with a
/// backup name the old head stays reachable there. All that waits, the commit and the branches become durable
/// together, or nothing does: null then, the branch is where it was and waiting objects wait on.
/// With inExpectedHead, a branch that stands elsewhere makes it fail; a zero id stands for "no such branch yet".
CommitPtr WriteCommit(const RepoPtr& inRepo, const Oid& inTree, const Signature& inAuthor, const Signature& inCommitter,
                      std::string_view inMessage, std::string_view inBranch, std::string_view inBackup = {},
                      const Oid* inExpectedHead = nullptr);

/// Moves or makes the branch; durable on return. With a backup name, the old head stays reachable there (the new one,
/// where there was none).
bool SetBranchToCommit(const RepoPtr& inRepo, const CommitPtr& inCommit, std::string_view inBranch,
                       std::string_view inBackup = {});
bool DeleteBranch(const RepoPtr& inRepo, std::string_view inBranch);
/// All branch names, without "refs/heads/", in order.
bool ListBranches(const RepoPtr& inRepo, std::vector<std::string>& outBranches);

/// Points HEAD at the branch, whether that exists yet or not.
bool SwitchToBranch(const RepoPtr& inRepo, std::string_view inBranch);

}  // namespace noxstorage::git

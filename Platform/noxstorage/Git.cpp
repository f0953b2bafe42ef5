#include "Platform/noxstorage/Git.h"

#include <git2.h>

#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/GitReferences.h"
#include "Platform/noxstorage/OdbStore.h"

namespace noxstorage::git {

using noxcore::utility::ConstRecycledMemoryPtr;
using noxcore::utility::ImmutableString;
using noxcore::utility::RecycledMemory;

namespace {

constexpr std::size_t kLargestCachedTree = 64 * 1024;  ///< a bucket of assets, and the list of buckets, fit

void LogAbsent(std::string_view inArgument, int inClass, std::string_view inMessage,
               const std::source_location& inWhere = std::source_location::current())
{
    LogGitError(kErrorNotFound, inArgument, inClass, inMessage, inWhere);
}

/// The object's content when it is of the type wanted; null, with a log, otherwise.
Bytes ReadOfType(const RepoPtr& inRepo, const Oid& inOid, ObjectType inType)
{
    ObjectType type = ObjectType::Invalid;
    Bytes content;
    const odb::Answer answer = inRepo->GetStore().Read(inOid, type, content);
    if (answer == odb::Answer::Found && type == inType) return content;
    if (answer != odb::Answer::Failed) LogAbsent(inOid.Text(), kErrorClassOdb, "no such object of this type");
    return nullptr;
}

}  // namespace

bool Startup()
{
    return GitSucceeded(git_libgit2_init(), "init") &&
           GitSucceeded(git_libgit2_opts(GIT_OPT_ENABLE_STRICT_OBJECT_CREATION, 0), "strict object creation") &&
           GitSucceeded(git_libgit2_opts(GIT_OPT_ENABLE_STRICT_HASH_VERIFICATION, 0), "strict hash verification") &&
           GitSucceeded(git_libgit2_opts(GIT_OPT_SET_CACHE_OBJECT_LIMIT, GIT_OBJECT_TREE, kLargestCachedTree),
                        "cache") &&
           GitSucceeded(git_libgit2_opts(GIT_OPT_SET_CACHE_OBJECT_LIMIT, GIT_OBJECT_BLOB, std::size_t{0}), "cache");
}

void Shutdown()
{
    GitSucceeded(git_libgit2_shutdown(), "shutdown");
}

bool EnableCaching(bool inEnable)
{
    return GitSucceeded(git_libgit2_opts(GIT_OPT_ENABLE_CACHING, inEnable ? 1 : 0), "caching");
}

bool DisableOwnerValidation()
{
    return GitSucceeded(git_libgit2_opts(GIT_OPT_SET_OWNER_VALIDATION, 0), "owner validation");
}

Repo::Repo(std::shared_ptr<odb::Store> inStore, git_repository* inHandle)
    : mStore(std::move(inStore)), mHandle(inHandle)
{
}

Repo::~Repo()
{
    git_repository_free(mHandle);
    mStore->Close();
}

const std::string& Repo::Path() const
{
    return mStore->Folder();
}

bool Repo::NeedsReopen() const
{
    return mStore->NeedsReopen();
}

bool Repo::MayLackContent() const
{
    return mStore->MayLackContent();
}

ReadScope::ReadScope(const RepoPtr& inRepo) : mRepo(inRepo)
{
    mRepo->GetStore().Readers().OpenScope();
}

ReadScope::~ReadScope()
{
    mRepo->GetStore().Readers().CloseScope();
}

void ReadScope::ReadAhead(std::int64_t inPlace) const
{
    mRepo->GetStore().ReadAheadOfScope(inPlace);
}

std::vector<std::int64_t> FindPlaces(const RepoPtr& inRepo, std::span<const Oid> inOids)
{
    return inRepo->GetStore().FindRows(inOids);
}

Answer FindBranchHead(const RepoPtr& inRepo, std::string_view inBranch, Oid& outHead)
{
    if (inRepo == nullptr) return Answer::Failed;
    return ResolveReference(inRepo->GetStore(), FullReferenceName(inBranch), outHead);
}

Oid GetBranchHead(const RepoPtr& inRepo, std::string_view inBranch)
{
    Oid head;
    return FindBranchHead(inRepo, inBranch, head) == Answer::Found ? head : Oid();
}

CommitPtr GetCommitForBranch(const RepoPtr& inRepo, std::string_view inBranch, std::string_view inBackup)
{
    if (inRepo == nullptr) return nullptr;
    for (const std::string_view name : {inBranch, inBackup}) {
        Oid head;
        Answer answer = name.empty() ? Answer::Absent : FindBranchHead(inRepo, name, head);
        CommitPtr commit;
        if (answer == Answer::Found) answer = FindCommit(inRepo, head, commit);
        if (answer != Answer::Absent) return commit;
    }
    LogAbsent(inBranch, kErrorClassReference, "no commit for the branch");
    return nullptr;
}

Answer FindCommit(const RepoPtr& inRepo, const Oid& inOid, CommitPtr& outCommit)
{
    if (inRepo == nullptr) return Answer::Failed;
    ObjectType type = ObjectType::Invalid;
    Bytes content;
    const Answer answer = inRepo->GetStore().Read(inOid, type, content);
    if (answer == Answer::Failed) return answer;
    if (answer == Answer::Absent || type != ObjectType::Commit) {
        LogAbsent(inOid.Text(), kErrorClassOdb, "no such commit");
        return Answer::Absent;
    }
    CommitPtr commit = Commit::Parse(inOid, *content);
    if (commit == nullptr) {
        LogGitError(-1, inOid.Text(), kErrorClassOdb, "malformed commit");
        return Answer::Failed;
    }
    outCommit = std::move(commit);
    return Answer::Found;
}

CommitPtr GetCommit(const RepoPtr& inRepo, const Oid& inCommit)
{
    CommitPtr commit;
    FindCommit(inRepo, inCommit, commit);
    return commit;
}

CommitPtr GetFirstParent(const RepoPtr& inRepo, const CommitPtr& inCommit)
{
    if (inCommit == nullptr || inCommit->ParentCount() == 0) return nullptr;
    return GetCommit(inRepo, inCommit->ParentID());
}

bool WalkFirstParents(const RepoPtr& inRepo, const CommitPtr& inFrom,
                      const std::function<bool(const CommitPtr&)>& inVisitor)
{
    for (CommitPtr commit = inFrom; commit != nullptr; commit = GetFirstParent(inRepo, commit))
        if (!inVisitor(commit) || commit->ParentCount() == 0) return true;
    return false;
}

TreePtr GetTreeAtCommit(const RepoPtr& inRepo, const CommitPtr& inCommit)
{
    if (inCommit == nullptr) return nullptr;
    TreePtr tree = GetTree(inRepo, inCommit->TreeID());
    if (tree != nullptr) inRepo->GetStore().Trees().Add(tree, true);
    return tree;
}

TreePtr GetTree(const RepoPtr& inRepo, const Oid& inTree)
{
    if (inRepo == nullptr) return nullptr;
    odb::TreeCache& cache = inRepo->GetStore().Trees();
    if (TreePtr known = cache.Find(inTree)) return known;
    Bytes content = ReadOfType(inRepo, inTree, ObjectType::Tree);
    if (content == nullptr) return nullptr;
    TreePtr tree = Tree::Parse(inTree, std::move(content));
    if (tree == nullptr)
        LogGitError(-1, inTree.Text(), kErrorClassOdb, "malformed tree");
    else
        cache.Add(tree);
    return tree;
}

Answer FindEntry(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inPath, TreeEntry& outEntry)
{
    TreePtr tree = inTree;
    std::string_view rest = inPath;
    if (rest.ends_with('/')) rest.remove_suffix(1);
    while (tree != nullptr) {
        const std::size_t slash = rest.find('/');
        TreeEntry entry;
        if (!tree->Find(rest.substr(0, slash), entry)) return Answer::Absent;
        if (slash == std::string_view::npos) {
            outEntry = {{}, entry.mMode, entry.mOid};
            return Answer::Found;
        }
        if (entry.Type() != ObjectType::Tree) return Answer::Absent;
        tree = GetTree(inRepo, entry.mOid);
        rest.remove_prefix(slash + 1);
    }
    return Answer::Failed;
}

bool GetEntry(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inPath, TreeEntry& outEntry)
{
    return FindEntry(inRepo, inTree, inPath, outEntry) == Answer::Found;
}

TreePtr GetTree(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inPath)
{
    if (inPath.empty()) return inTree;
    TreeEntry entry;
    if (!GetEntry(inRepo, inTree, inPath, entry) || entry.Type() != ObjectType::Tree) return nullptr;
    return GetTree(inRepo, entry.mOid);
}

BlobPtr GetBlob(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inPath)
{
    TreeEntry entry;
    if (!GetEntry(inRepo, inTree, inPath, entry) || entry.Type() != ObjectType::Blob) return nullptr;
    return GetBlob(inRepo, entry.mOid);
}

BlobPtr GetBlob(const RepoPtr& inRepo, const Oid& inBlob)
{
    if (inRepo == nullptr) return nullptr;
    odb::ContentsInUse& inUse = inRepo->GetStore().LargeContents();
    Bytes content = inUse.Find(inBlob);
    if (content == nullptr) {
        content = ReadOfType(inRepo, inBlob, ObjectType::Blob);
        if (content == nullptr) return nullptr;
        if (content->size() >= odb::ContentsInUse::kSmallest) content = inUse.Share(inBlob, std::move(content));
    }
    return std::make_shared<const Blob>(inBlob, std::move(content));
}

BlobPtr GetBlob(const RepoPtr& inRepo, std::string_view inBlobText)
{
    Oid oid;
    if (Oid::FromText(inBlobText, oid)) return GetBlob(inRepo, oid);
    LogGitError(-1, inBlobText, kErrorClassOdb, "no object id");
    return nullptr;
}

ImmutableString BlobToImmutableString(const BlobPtr& inBlob)
{
    return inBlob != nullptr ? ImmutableString(inBlob->Content()) : ImmutableString();
}

ConstRecycledMemoryPtr BlobToConstRecycledMemoryPtr(const BlobPtr& inBlob)
{
    if (inBlob == nullptr) return nullptr;
    const std::string_view content = inBlob->Content();
    return std::make_shared<const RecycledMemory>(inBlob->Owner(), content.data(), content.size());
}

bool ReadObject(const RepoPtr& inRepo, const Oid& inOid, ObjectType& outType, Bytes& outContent)
{
    return inRepo->GetStore().Read(inOid, outType, outContent) == odb::Answer::Found;
}

Answer FindObjectType(const RepoPtr& inRepo, const Oid& inOid, ObjectType& outType)
{
    return inRepo->GetStore().ReadType(inOid, outType);
}

Answer FindObject(const RepoPtr& inRepo, const Oid& inOid, ObjectType& outType)
{
    return inRepo->GetStore().LookUp(inOid, outType);
}

bool ReadObjectHeader(const RepoPtr& inRepo, const Oid& inOid, ObjectType& outType, std::uint64_t& outSize)
{
    odb::Header header;
    if (inRepo->GetStore().ReadHeader(inOid, header) != odb::Answer::Found) return false;
    outType = header.mType;
    outSize = header.mSize;
    return true;
}

bool HasObject(const RepoPtr& inRepo, const Oid& inOid)
{
    odb::Header header;
    odb::Store& store = inRepo->GetStore();
    return !store.KnownDamage().Contains(inOid) && store.ReadHeader(inOid, header) == odb::Answer::Found;
}

void NoteDamaged(const RepoPtr& inRepo, const Oid& inOid)
{
    inRepo->GetStore().KnownDamage().Add(inOid);
}

bool ReadObjectInPieces(const RepoPtr& inRepo, const Oid& inOid, ObjectType& outType,
                        const std::function<bool(std::string_view)>& inVisitor)
{
    odb::Header header;
    const bool found = inRepo->GetStore().ReadPieces(inOid, header, inVisitor) == odb::Answer::Found;
    if (found) outType = header.mType;
    return found;
}

bool ForEachObject(const RepoPtr& inRepo,
                   const std::function<bool(const Oid&, ObjectType, std::uint64_t, std::string_view)>& inVisitor,
                   const std::function<void(const Oid&, std::int64_t, std::int64_t)>& inDamaged)
{
    return inRepo->GetStore().ForEach(inVisitor, inDamaged);
}

}  // namespace noxstorage::git

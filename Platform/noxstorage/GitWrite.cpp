#include <git2.h>

#include "Platform/noxstorage/Git.h"
#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/GitReferences.h"
#include "Platform/noxstorage/OdbStore.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"

namespace noxstorage::git {

using noxcore::utility::ConstRecycledMemoryPtr;
using SQLite3OdbBackend::CommitScope;

namespace {

constexpr std::string_view kHeads = "refs/heads/";

Oid Write(const RepoPtr& inRepo, ObjectType inType, odb::Content inContent, OidSet* inoutWritten)
{
    if (inRepo == nullptr) return Oid();
    const Oid oid = ComputeObjectID(inType, inContent.mView);
    if (oid.IsZero() || (inoutWritten != nullptr && inoutWritten->contains(oid))) return oid;
    if (!inRepo->GetStore().Write(oid, inType, std::move(inContent))) return Oid();
    if (inoutWritten != nullptr) inoutWritten->insert(oid);
    return oid;
}

bool IsOfType(const RepoPtr& inRepo, const Oid& inOid, ObjectType inType)
{
    odb::Header header;
    return inRepo->GetStore().ReadHeader(inOid, header) == odb::Answer::Found && header.mType == inType;
}

/// The commit that the next one on the branch follows: the branch's head, or that of its backup where the head is no
/// commit of this repository. False when there is a head but none to follow, and when a read fails.
bool FindParent(const RepoPtr& inRepo, CommitScope& inScope, std::string_view inBranch, std::string_view inBackup,
                Oid& outParent)
{
    bool known = false;
    for (const std::string_view name : {inBranch, inBackup}) {
        outParent = name.empty() ? Oid() : inScope.GetReference(name);
        if (outParent.IsZero()) continue;
        odb::Header header;
        const Answer answer = inRepo->GetStore().ReadHeader(outParent, header);
        if (answer == Answer::Failed) return false;
        if (answer == Answer::Found && header.mType == ObjectType::Commit) return true;
        known = true;
    }
    outParent = Oid();
    return !known;
}

}  // namespace

std::string FullReferenceName(std::string_view inName)
{
    if (inName.starts_with("refs/") || inName == "HEAD") return std::string(inName);
    return std::string(kHeads).append(inName);
}

Answer ResolveReference(odb::Store& inStore, std::string inName, Oid& outOid)
{
    for (int depth = 0; depth < 5; ++depth) {
        odb::Reference reference;
        const Answer answer = inStore.ReadReference(inName, reference);
        if (answer != Answer::Found) return answer;
        if (reference.mTarget.empty()) {
            outOid = reference.mOid;
            return Answer::Found;
        }
        inName = reference.mTarget;
    }
    return Answer::Absent;
}

Oid WriteBlob(const RepoPtr& inRepo, const void* inData, std::size_t inSize, OidSet* inoutWritten)
{
    return Write(inRepo, ObjectType::Blob, {nullptr, {static_cast<const char*>(inData), inSize}}, inoutWritten);
}

Oid WriteBlob(const RepoPtr& inRepo, const ConstRecycledMemoryPtr& inPayload, OidSet* inoutWritten)
{
    if (inPayload == nullptr) return Oid();
    return Write(inRepo, ObjectType::Blob, {inPayload, inPayload->View()}, inoutWritten);
}

Oid WriteObject(const RepoPtr& inRepo, ObjectType inType, std::string_view inContent)
{
    return Write(inRepo, inType, {nullptr, inContent}, nullptr);
}

bool FlushObjects(const RepoPtr& inRepo)
{
    return inRepo != nullptr && inRepo->GetStore().Flush();
}

bool TryFlushObjects(const RepoPtr& inRepo)
{
    return inRepo != nullptr && inRepo->GetStore().TryFlush();
}

CommitPtr WriteCommit(const RepoPtr& inRepo, const Oid& inTree, const Signature& inAuthor, const Signature& inCommitter,
                      std::string_view inMessage, std::string_view inBranch, std::string_view inBackup,
                      const Oid* inExpectedHead)
{
    if (inRepo == nullptr) return nullptr;
    if (!IsOfType(inRepo, inTree, ObjectType::Tree)) {
        LogGitError(kErrorNotFound, inTree.Text(), kErrorClassOdb, "no such tree to commit");
        return nullptr;
    }
    CommitPtr made;
    {
        const auto scope = CommitScope::Begin(inRepo);
        if (scope == nullptr) return nullptr;
        const Oid head = scope->GetReference(inBranch);
        Oid parent;
        if (!FindParent(inRepo, *scope, inBranch, inBackup, parent)) {
            LogGitError(kErrorNotFound, inBranch, kErrorClassReference, "the branch's head cannot be read");
            return nullptr;
        }
        const Oid commit = scope->AddCommit(inTree, parent, inAuthor, inCommitter, inMessage);
        if (commit.IsZero() || !scope->SetReference(inBranch, commit, inExpectedHead)) return nullptr;
        if (!inBackup.empty() && !head.IsZero() && !scope->SetReference(inBackup, parent)) return nullptr;
        // Read while it lies in memory: once the commit is durable nothing may fail any more.
        made = GetCommit(inRepo, commit);
        if (made == nullptr || !scope->Commit()) return nullptr;
    }
    return made;
}

bool SetBranchToCommit(const RepoPtr& inRepo, const CommitPtr& inCommit, std::string_view inBranch,
                       std::string_view inBackup)
{
    if (inRepo == nullptr || inCommit == nullptr) return false;
    const auto scope = CommitScope::Begin(inRepo);
    if (scope == nullptr) return false;
    const Oid head = scope->GetReference(inBranch);
    if (!inBackup.empty() && !scope->SetReference(inBackup, head.IsZero() ? inCommit->ID() : head)) return false;
    return scope->SetReference(inBranch, inCommit->ID()) && scope->Commit();
}

bool DeleteBranch(const RepoPtr& inRepo, std::string_view inBranch)
{
    if (inRepo == nullptr) return false;
    odb::Store& store = inRepo->GetStore();
    if (!store.BeginTransaction()) return false;
    return store.EndTransaction(store.DeleteReferenceInTransaction(FullReferenceName(inBranch)));
}

bool ListBranches(const RepoPtr& inRepo, std::vector<std::string>& outBranches)
{
    outBranches.clear();
    std::vector<odb::Reference> references;
    if (inRepo == nullptr || !inRepo->GetStore().ListReferences(references)) return false;
    for (const odb::Reference& reference : references)
        if (reference.mName.starts_with(kHeads)) outBranches.push_back(reference.mName.substr(kHeads.size()));
    return true;
}

bool SwitchToBranch(const RepoPtr& inRepo, std::string_view inBranch)
{
    if (inRepo == nullptr) return false;
    const std::string target = FullReferenceName(inBranch);
    int isValid = 0;
    if (!GitSucceeded(git_reference_name_is_valid(&isValid, target.c_str()), inBranch)) return false;
    odb::Store& store = inRepo->GetStore();
    if (isValid == 0) {
        LogGitError(GIT_EINVALIDSPEC, inBranch, kErrorClassReference, "no valid branch name");
        return false;
    }
    if (!store.BeginTransaction()) return false;
    return store.EndTransaction(store.WriteReferenceInTransaction({"HEAD", Oid(), target}));
}

}  // namespace noxstorage::git

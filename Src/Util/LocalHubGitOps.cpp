#include "Inc/Util/LocalHubGitOps.h"

#include <git2.h>

#include <string>

#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/GitHandles.h"

namespace VantryLocalHub::git {

namespace ng = noxstorage::git;

namespace {

bool ParseOid(std::string_view inText, Oid& outOid)
{
    if (Oid::FromText(inText, outOid)) return true;
    ng::LogGitError(GIT_EINVALIDSPEC, inText, GIT_ERROR_INVALID, "no object id");
    return false;
}

}  // namespace

ImmutableString ComputeContentHash(const void* inData, std::size_t inSize)
{
    const Oid oid = ng::ComputeObjectID(ng::ObjectType::Blob, {static_cast<const char*>(inData), inSize});
    return oid.IsZero() ? ImmutableString() : OidToText(oid);
}

BlobPtr GetBlob(const RepoPtr& inRepo, std::string_view inOidText)
{
    Oid oid;
    return ParseOid(inOidText, oid) ? ng::GetBlob(inRepo, oid) : nullptr;
}

CommitPtr GetCommit(const RepoPtr& inRepo, std::string_view inOidText)
{
    Oid oid;
    return ParseOid(inOidText, oid) ? ng::GetCommit(inRepo, oid) : nullptr;
}

ImmutableString GetCommitID(const CommitPtr& inCommit)
{
    return inCommit != nullptr ? OidToText(inCommit->ID()) : ImmutableString();
}

TreePtr GetTree(const RepoPtr& inRepo, std::string_view inOidText)
{
    Oid oid;
    return ParseOid(inOidText, oid) ? ng::GetTree(inRepo, oid) : nullptr;
}

TreePtr GetTreeAtRevision(const RepoPtr& inRepo, std::string_view inRevision)
{
    if (inRepo == nullptr) return nullptr;
    Oid oid;
    if (Oid::FromText(inRevision, oid)) return ng::GetTreeAtCommit(inRepo, ng::GetCommit(inRepo, oid));
    const std::string revision = std::string(inRevision) + "^{tree}";
    ng::Wrapped<git_object> object;
    if (!ng::GitSucceeded(git_revparse_single(object.Out(), inRepo->Handle(), revision.c_str()), inRevision))
        return nullptr;
    return ng::GetTree(inRepo, Oid(git_object_id(object.Get())->id));
}

ImmutableString OidToText(const Oid& inOid)
{
    return ImmutableString(inOid.Text());
}

CommitPtr WriteCommit(const RepoPtr& inRepo, std::string_view inTreeText, const Signature& inAuthor,
                      const Signature& inCommitter, std::string_view inMessage, std::string_view inBranch,
                      std::string_view inBackup)
{
    Oid tree;
    if (!ParseOid(inTreeText, tree)) return nullptr;
    return ng::WriteCommit(inRepo, tree, inAuthor, inCommitter, inMessage, inBranch, inBackup);
}

}  // namespace VantryLocalHub::git

#include <git2.h>

#include <cstdio>
#include <cstdlib>

#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/GitReferences.h"
#include "Platform/noxstorage/OdbStore.h"
#include "Platform/noxstorage/SQLite3OdbBackend.h"

namespace noxstorage::git::SQLite3OdbBackend {

struct CommitScope::Impl
{
    RepoPtr mRepo;
    bool mOpen = true;
    bool mFailed = false;  ///< a reference could not be read: what was decided on it must not become durable
};

namespace {

/// "name <e-mail> seconds offset", without the characters that would end a field early.
std::string SignatureText(const Signature& inSignature)
{
    const auto clean = [](const std::string& inText) {
        std::string text;
        for (const char character : inText)
            if (character != '<' && character != '>' && character != '\n' && character != '\0') text += character;
        return text;
    };
    const int minutes = std::abs(inSignature.mOffsetMinutes);
    char offset[16];
    std::snprintf(offset, sizeof(offset), "%c%02d%02d", inSignature.mOffsetMinutes < 0 ? '-' : '+', minutes / 60 % 100,
                  minutes % 60);
    return clean(inSignature.mName) + " <" + clean(inSignature.mEmail) + "> " + std::to_string(inSignature.mTime) +
           " " + offset;
}

}  // namespace

CommitScope::CommitScope(std::unique_ptr<Impl> inImpl) : mImpl(std::move(inImpl)) {}

std::unique_ptr<CommitScope> CommitScope::Begin(const RepoPtr& inRepo)
{
    if (inRepo == nullptr || !inRepo->GetStore().BeginTransaction()) return nullptr;
    return std::unique_ptr<CommitScope>(new CommitScope(std::make_unique<Impl>(Impl{inRepo})));
}

CommitScope::~CommitScope()
{
    if (mImpl->mOpen) mImpl->mRepo->GetStore().EndTransaction(false);
}

Oid CommitScope::AddObject(ObjectType inType, std::string_view inContent)
{
    return WriteObject(mImpl->mRepo, inType, inContent);
}

Oid CommitScope::AddCommit(const Oid& inTree, const Oid& inParent, const Signature& inAuthor,
                           const Signature& inCommitter, std::string_view inMessage)
{
    std::string text = "tree " + inTree.Text() + "\n";
    if (!inParent.IsZero()) text += "parent " + inParent.Text() + "\n";
    text += "author " + SignatureText(inAuthor) + "\ncommitter " + SignatureText(inCommitter) + "\n\n";
    return AddObject(ObjectType::Commit, text.append(inMessage));
}

Oid CommitScope::GetReference(std::string_view inName)
{
    std::string name = FullReferenceName(inName);
    for (int depth = 0; depth < 5; ++depth) {
        odb::Reference reference;
        const odb::Answer answer = mImpl->mRepo->GetStore().ReadReferenceInTransaction(name, reference);
        if (answer == odb::Answer::Failed) mImpl->mFailed = true;
        if (answer != odb::Answer::Found) return Oid();
        if (reference.mTarget.empty()) return reference.mOid;
        name = reference.mTarget;
    }
    return Oid();
}

bool CommitScope::SetReference(std::string_view inName, const Oid& inTarget, const Oid* inExpected)
{
    const std::string name = FullReferenceName(inName);
    int isValid = 0;
    if (!GitSucceeded(git_reference_name_is_valid(&isValid, name.c_str()), inName)) return false;
    if (isValid == 0 || inTarget.IsZero()) {
        LogGitError(GIT_EINVALIDSPEC, inName, kErrorClassReference, "no valid reference");
        return false;
    }
    if (inExpected != nullptr && GetReference(inName) != *inExpected) {
        LogGitError(GIT_EMODIFIED, inName, kErrorClassReference, "the reference stands elsewhere");
        return false;
    }
    return mImpl->mRepo->GetStore().WriteReferenceInTransaction({name, inTarget, {}});
}

sqlite3* CommitScope::Handle() const
{
    return mImpl->mRepo->GetStore().WriterInTransaction().Handle();
}

bool CommitScope::Commit()
{
    if (!mImpl->mOpen) return false;
    mImpl->mOpen = false;
    return mImpl->mRepo->GetStore().EndTransaction(!mImpl->mFailed);
}

}  // namespace noxstorage::git::SQLite3OdbBackend

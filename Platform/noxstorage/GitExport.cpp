#include "Platform/noxstorage/GitExport.h"

#include <git2.h>

#include "Platform/noxcore/FileSupport.h"
#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/GitHandles.h"
#include "Platform/noxstorage/OdbStore.h"

namespace noxstorage::git {

namespace {

bool IsVacant(const std::string& inFolder)
{
    auto& files = noxcore::filesupport::Files();
    std::vector<noxcore::filesupport::DirectoryEntry> entries;
    if (!files.DirectoryExists(inFolder)) return !files.FileExists(inFolder);
    return files.ListDirectory(inFolder, entries) && entries.empty();
}

/// libgit2's progress comes as it collects objects, as it looks for differences, and as it writes.
int TellProgress(int, std::uint32_t inDone, std::uint32_t inTotal, void* inProgress)
{
    const auto& progress = *static_cast<const ExportProgress*>(inProgress);
    if (progress && inTotal != 0) progress(inDone, inTotal);
    return 0;
}

/// Everything that the references reach, as one pack in the folder.
bool WritePack(const RepoPtr& inRepo, const std::vector<odb::Reference>& inReferences, const std::string& inFolder,
               const ExportProgress& inProgress)
{
    Wrapped<git_packbuilder> pack;
    Wrapped<git_revwalk> walk;
    if (!GitSucceeded(git_packbuilder_new(pack.Out(), inRepo->Handle()), inFolder) ||
        !GitSucceeded(git_revwalk_new(walk.Out(), inRepo->Handle()), inFolder))
        return false;
    git_packbuilder_set_threads(pack.Get(), 0);  // as many as there are processors
    auto progress = inProgress;
    git_packbuilder_set_callbacks(pack.Get(), TellProgress, &progress);
    for (const odb::Reference& reference : inReferences) {
        git_oid oid;
        if (!reference.mTarget.empty()) continue;
        if (!GitSucceeded(git_oid_fromraw(&oid, reference.mOid.Bytes()), reference.mName) ||
            !GitSucceeded(git_revwalk_push(walk.Get(), &oid), reference.mName))
            return false;
    }
    return GitSucceeded(git_packbuilder_insert_walk(pack.Get(), walk.Get()), inFolder) &&
           GitSucceeded(git_packbuilder_write(pack.Get(), (inFolder + "/objects/pack").c_str(), 0, nullptr, nullptr),
                        inFolder);
}

bool WriteReferences(const std::vector<odb::Reference>& inReferences, git_repository* inTarget)
{
    for (const odb::Reference& reference : inReferences) {
        Wrapped<git_reference> made;
        const char* const name = reference.mName.c_str();
        int result = GIT_OK;
        if (!reference.mTarget.empty()) {
            result = git_reference_symbolic_create(made.Out(), inTarget, name, reference.mTarget.c_str(), 1, nullptr);
        } else {
            git_oid oid;
            result = git_oid_fromraw(&oid, reference.mOid.Bytes());
            if (result == GIT_OK) result = git_reference_create(made.Out(), inTarget, name, &oid, 1, nullptr);
        }
        if (!GitSucceeded(result, reference.mName)) return false;
    }
    return true;
}

}  // namespace

bool ExportToGit(const RepoPtr& inRepo, const std::string& inFolder, const ExportProgress& inProgress)
{
    if (inRepo == nullptr) return false;
    if (!IsVacant(inFolder)) {
        LogGitError(GIT_EEXISTS, inFolder, kErrorClassOdb, "the folder is not empty");
        return false;
    }
    std::vector<odb::Reference> references;
    Wrapped<git_repository> target;
    return inRepo->GetStore().ListReferences(references) &&
           GitSucceeded(git_repository_init(target.Out(), inFolder.c_str(), 1), inFolder) &&
           WritePack(inRepo, references, inFolder, inProgress) && WriteReferences(references, target.Get());
}

}  // namespace noxstorage::git

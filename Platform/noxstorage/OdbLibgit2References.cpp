#include "Platform/noxstorage/OdbLibgit2References.h"

#include <fnmatch.h>
#include <git2.h>
#include <git2/sys/refdb_backend.h>
#include <git2/sys/refs.h>

#include <cstring>

#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/GitReferences.h"
#include "Platform/noxstorage/OdbStore.h"

namespace noxstorage::git::odb {

namespace {

struct Backend : git_refdb_backend
{
    std::shared_ptr<Store> mStore;
};

struct Iterator : git_reference_iterator
{
    std::vector<Reference> mReferences;
    std::size_t mNext = 0;
};

Store& StoreOf(git_refdb_backend* inBackend)
{
    return *static_cast<Backend*>(inBackend)->mStore;
}

int Fail(int inResult, const char* inMessage)
{
    git_error_set_str(GIT_ERROR_REFERENCE, inMessage);
    return inResult;
}

git_reference* MakeHandle(const Reference& inReference)
{
    if (!inReference.mTarget.empty())
        return git_reference__alloc_symbolic(inReference.mName.c_str(), inReference.mTarget.c_str());
    git_oid oid;
    std::memcpy(oid.id, inReference.mOid.Bytes(), Oid::kSize);
    return git_reference__alloc(inReference.mName.c_str(), &oid, nullptr);
}

int Exists(int* outExists, git_refdb_backend* inBackend, const char* inName)
{
    Reference reference;
    const Answer answer = StoreOf(inBackend).ReadReference(inName, reference);
    *outExists = answer == Answer::Found ? 1 : 0;
    return answer == Answer::Failed ? Fail(GIT_ERROR, "reference cannot be read") : GIT_OK;
}

int Lookup(git_reference** outReference, git_refdb_backend* inBackend, const char* inName)
{
    Reference reference;
    const Answer answer = StoreOf(inBackend).ReadReference(inName, reference);
    if (answer == Answer::Failed) return Fail(GIT_ERROR, "reference cannot be read");
    if (answer == Answer::Absent) return Fail(GIT_ENOTFOUND, "reference not found");
    *outReference = MakeHandle(reference);
    return *outReference != nullptr ? GIT_OK : GIT_ERROR;
}

int Next(git_reference** outReference, git_reference_iterator* inIterator)
{
    auto* iterator = static_cast<Iterator*>(inIterator);
    if (iterator->mNext == iterator->mReferences.size()) return GIT_ITEROVER;
    *outReference = MakeHandle(iterator->mReferences[iterator->mNext++]);
    return *outReference != nullptr ? GIT_OK : GIT_ERROR;
}

int NextName(const char** outName, git_reference_iterator* inIterator)
{
    auto* iterator = static_cast<Iterator*>(inIterator);
    if (iterator->mNext == iterator->mReferences.size()) return GIT_ITEROVER;
    *outName = iterator->mReferences[iterator->mNext++].mName.c_str();
    return GIT_OK;
}

void FreeIterator(git_reference_iterator* inIterator)
{
    delete static_cast<Iterator*>(inIterator);
}

int MakeIterator(git_reference_iterator** outIterator, git_refdb_backend* inBackend, const char* inGlob)
{
    auto iterator = std::make_unique<Iterator>();
    static_cast<git_reference_iterator&>(*iterator) = {nullptr, &Next, &NextName, &FreeIterator};
    if (!StoreOf(inBackend).ListReferences(iterator->mReferences)) return Fail(GIT_ERROR, "references cannot be read");
    std::erase_if(iterator->mReferences, [&](const Reference& inReference) {
        // HEAD is no reference to be listed.
        if (!inReference.mName.starts_with("refs/")) return true;
        return inGlob != nullptr && fnmatch(inGlob, inReference.mName.c_str(), 0) != 0;
    });
    *outIterator = iterator.release();
    return GIT_OK;
}

/// Whether the reference stands where the caller takes it to stand: at an id, at a name, or nowhere.
bool StandsAt(const Answer inAnswer, const Reference& inReference, const git_oid* inOld, const char* inOldTarget)
{
    if (inOld == nullptr && inOldTarget == nullptr) return inAnswer == Answer::Absent;
    if (inAnswer != Answer::Found) return false;
    return inOld != nullptr ? inReference.mOid == Oid(inOld->id) : inReference.mTarget == inOldTarget;
}

int Write(git_refdb_backend* inBackend, const git_reference* inReference, int inForce, const git_signature*,
          const char*, const git_oid* inOld, const char* inOldTarget)
{
    Store& store = StoreOf(inBackend);
    if (!store.BeginTransaction()) return Fail(GIT_ERROR, "references cannot be written");
    Reference reference;
    const Answer answer = store.ReadReferenceInTransaction(git_reference_name(inReference), reference);
    const bool isFree = inForce != 0 && inOld == nullptr && inOldTarget == nullptr;
    if (answer == Answer::Failed || (!isFree && !StandsAt(answer, reference, inOld, inOldTarget))) {
        store.EndTransaction(false);
        return Fail(answer == Answer::Found && inOld == nullptr && inOldTarget == nullptr ? GIT_EEXISTS : GIT_EMODIFIED,
                    "the reference stands elsewhere");
    }
    const git_oid* target = git_reference_target(inReference);
    const char* symbolic = git_reference_symbolic_target(inReference);
    const Reference wanted{git_reference_name(inReference), target != nullptr ? Oid(target->id) : Oid(),
                           symbolic != nullptr ? symbolic : ""};
    if (store.EndTransaction(store.WriteReferenceInTransaction(wanted))) return GIT_OK;
    return Fail(GIT_ERROR, "references cannot be written");
}

int Rename(git_reference** outReference, git_refdb_backend* inBackend, const char* inOldName, const char* inNewName,
           int inForce, const git_signature*, const char*)
{
    Store& store = StoreOf(inBackend);
    if (!store.BeginTransaction()) return Fail(GIT_ERROR, "references cannot be written");
    Reference reference;
    Reference taken;
    if (store.ReadReferenceInTransaction(inOldName, reference) != Answer::Found) {
        store.EndTransaction(false);
        return Fail(GIT_ENOTFOUND, "reference not found");
    }
    if (inForce == 0 && store.ReadReferenceInTransaction(inNewName, taken) != Answer::Absent) {
        store.EndTransaction(false);
        return Fail(GIT_EEXISTS, "a reference of the name exists");
    }
    reference.mName = inNewName;
    const bool written = store.DeleteReferenceInTransaction(inOldName) && store.WriteReferenceInTransaction(reference);
    if (!store.EndTransaction(written)) return Fail(GIT_ERROR, "references cannot be written");
    *outReference = MakeHandle(reference);
    return *outReference != nullptr ? GIT_OK : GIT_ERROR;
}

int Delete(git_refdb_backend* inBackend, const char* inName, const git_oid* inOld, const char* inOldTarget)
{
    Store& store = StoreOf(inBackend);
    if (!store.BeginTransaction()) return Fail(GIT_ERROR, "references cannot be written");
    Reference reference;
    const Answer answer = store.ReadReferenceInTransaction(inName, reference);
    const bool isFree = inOld == nullptr && inOldTarget == nullptr;
    if (answer != Answer::Found || (!isFree && !StandsAt(answer, reference, inOld, inOldTarget))) {
        store.EndTransaction(false);
        return Fail(answer == Answer::Absent ? GIT_ENOTFOUND : GIT_EMODIFIED, "the reference stands elsewhere");
    }
    if (store.EndTransaction(store.DeleteReferenceInTransaction(inName))) return GIT_OK;
    return Fail(GIT_ERROR, "references cannot be written");
}

// Commits tell the history; there is no log of references beside it.
int HasLog(git_refdb_backend*, const char*)
{
    return 0;
}
int EnsureLog(git_refdb_backend*, const char*)
{
    return GIT_OK;
}
int ReadLog(git_reflog**, git_refdb_backend*, const char*)
{
    return Fail(GIT_ENOTFOUND, "no log of references");
}
int WriteLog(git_refdb_backend*, git_reflog*)
{
    return GIT_OK;
}
int RenameLog(git_refdb_backend*, const char*, const char*)
{
    return GIT_OK;
}
int DeleteLog(git_refdb_backend*, const char*)
{
    return GIT_OK;
}

void Free(git_refdb_backend* inBackend)
{
    delete static_cast<Backend*>(inBackend);
}

}  // namespace

bool MakeReferences(git_repository* inRepository, const std::shared_ptr<Store>& inStore, git_refdb** outReferences)
{
    if (!GitSucceeded(git_refdb_new(outReferences, inRepository), "refdb")) return false;
    auto* backend = new Backend();
    git_refdb_init_backend(backend, GIT_REFDB_BACKEND_VERSION);
    backend->mStore = inStore;
    backend->exists = &Exists;
    backend->lookup = &Lookup;
    backend->iterator = &MakeIterator;
    backend->write = &Write;
    backend->rename = &Rename;
    backend->del = &Delete;
    backend->has_log = &HasLog;
    backend->ensure_log = &EnsureLog;
    backend->reflog_read = &ReadLog;
    backend->reflog_write = &WriteLog;
    backend->reflog_rename = &RenameLog;
    backend->reflog_delete = &DeleteLog;
    backend->free = &Free;
    if (GitSucceeded(git_refdb_set_backend(*outReferences, backend), "refdb backend")) return true;
    Free(backend);
    return false;
}

}  // namespace noxstorage::git::odb

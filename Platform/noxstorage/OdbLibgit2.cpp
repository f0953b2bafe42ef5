#include "Platform/noxstorage/OdbLibgit2.h"

#include <git2.h>
#include <git2/sys/odb_backend.h>
#include <git2/sys/repository.h>

#include <cstring>

#include "Platform/noxstorage/GitError.h"
#include "Platform/noxstorage/GitHandles.h"
#include "Platform/noxstorage/OdbLibgit2References.h"
#include "Platform/noxstorage/OdbStore.h"

namespace noxstorage::git::odb {

namespace {

struct Backend : git_odb_backend
{
    std::shared_ptr<Store> mStore;
};

Store& StoreOf(git_odb_backend* inBackend)
{
    return *static_cast<Backend*>(inBackend)->mStore;
}

int ResultOf(Answer inAnswer)
{
    if (inAnswer == Answer::Found) return GIT_OK;
    git_error_set_str(GIT_ERROR_ODB, inAnswer == Answer::Absent ? "object not found" : "object cannot be read");
    return inAnswer == Answer::Absent ? GIT_ENOTFOUND : GIT_ERROR;
}

void CopyOid(git_oid* outOid, const Oid& inOid)
{
    std::memcpy(outOid->id, inOid.Bytes(), Oid::kSize);
}

int Read(void** outData, std::size_t* outSize, git_object_t* outType, git_odb_backend* inBackend, const git_oid* inOid)
{
    ObjectType type = ObjectType::Invalid;
    Bytes content;
    const int result = ResultOf(StoreOf(inBackend).Read(Oid(inOid->id), type, content));
    if (result != GIT_OK) return result;
    // One byte more, since libgit2 expects an end to texts.
    void* data = git_odb_backend_data_alloc(inBackend, content->size() + 1);
    if (data == nullptr) return GIT_ERROR;
    std::memcpy(data, content->c_str(), content->size() + 1);
    *outData = data;
    *outSize = content->size();
    *outType = static_cast<git_object_t>(type);
    return GIT_OK;
}

int ExistsPrefix(git_oid* outOid, git_odb_backend* inBackend, const git_oid* inOid, std::size_t inLength)
{
    std::vector<Oid> found;
    const std::string digits = Oid(inOid->id).Text().substr(0, inLength);
    const int result = ResultOf(StoreOf(inBackend).FindByPrefix(digits, found));
    if (result != GIT_OK) return result;
    if (found.size() > 1) {
        git_error_set_str(GIT_ERROR_ODB, "the beginning of the id fits several objects");
        return GIT_EAMBIGUOUS;
    }
    CopyOid(outOid, found.front());
    return GIT_OK;
}

int ReadPrefix(git_oid* outOid, void** outData, std::size_t* outSize, git_object_t* outType, git_odb_backend* inBackend,
               const git_oid* inOid, std::size_t inLength)
{
    git_oid full;
    const int result = ExistsPrefix(&full, inBackend, inOid, inLength);
    if (result != GIT_OK) return result;
    *outOid = full;
    return Read(outData, outSize, outType, inBackend, &full);
}

int ReadHeader(std::size_t* outSize, git_object_t* outType, git_odb_backend* inBackend, const git_oid* inOid)
{
    Header header;
    const int result = ResultOf(StoreOf(inBackend).ReadHeader(Oid(inOid->id), header));
    if (result != GIT_OK) return result;
    *outSize = header.mSize;
    *outType = static_cast<git_object_t>(header.mType);
    return GIT_OK;
}

int Write(git_odb_backend* inBackend, const git_oid* inOid, const void* inData, std::size_t inSize, git_object_t inType)
{
    const std::string_view bytes(static_cast<const char*>(inData), inSize);
    if (StoreOf(inBackend).Write(Oid(inOid->id), static_cast<ObjectType>(inType), {nullptr, bytes})) return GIT_OK;
    git_error_set_str(GIT_ERROR_ODB, "object cannot be written");
    return GIT_ERROR;
}

int Exists(git_odb_backend* inBackend, const git_oid* inOid)
{
    Header header;
    return StoreOf(inBackend).ReadHeader(Oid(inOid->id), header) == Answer::Found ? 1 : 0;
}

int ForEach(git_odb_backend* inBackend, git_odb_foreach_cb inVisitor, void* inPayload)
{
    int result = GIT_OK;
    const bool complete =
        StoreOf(inBackend).ForEach([&](const Oid& inOid, ObjectType, std::uint64_t, std::string_view inPiece) {
            if (!inPiece.empty()) return true;
            git_oid oid;
            CopyOid(&oid, inOid);
            result = inVisitor(&oid, inPayload);
            return result == GIT_OK;
        });
    return complete || result != GIT_OK ? result : GIT_ERROR;
}

void Free(git_odb_backend* inBackend)
{
    delete static_cast<Backend*>(inBackend);
}

git_odb_backend* MakeObjectBackend(const std::shared_ptr<Store>& inStore)
{
    auto* backend = new Backend();
    git_odb_init_backend(backend, GIT_ODB_BACKEND_VERSION);
    backend->mStore = inStore;
    backend->read = &Read;
    backend->read_prefix = &ReadPrefix;
    backend->read_header = &ReadHeader;
    backend->write = &Write;
    backend->exists = &Exists;
    backend->exists_prefix = &ExistsPrefix;
    backend->foreach = &ForEach;
    backend->free = &Free;
    return backend;
}

}  // namespace

git_repository* MakeLibgit2Repository(const std::shared_ptr<Store>& inStore)
{
    Wrapped<git_odb> odb;
    if (!GitSucceeded(git_odb_new(odb.Out()), "odb")) return nullptr;
    git_odb_backend* backend = MakeObjectBackend(inStore);
    if (!GitSucceeded(git_odb_add_backend(odb.Get(), backend, 1), "odb backend")) {
        Free(backend);
        return nullptr;
    }
    Wrapped<git_repository> repository;
    Wrapped<git_config> config;
    Wrapped<git_refdb> references;
    const bool made = GitSucceeded(git_repository_new(repository.Out()), "repository") &&
                      GitSucceeded(git_config_new(config.Out()), "config") &&
                      GitSucceeded(git_repository_set_config(repository.Get(), config.Get()), "config") &&
                      GitSucceeded(git_repository_set_odb(repository.Get(), odb.Get()), "odb") &&
                      MakeReferences(repository.Get(), inStore, references.Out()) &&
                      GitSucceeded(git_repository_set_refdb(repository.Get(), references.Get()), "refdb");
    return made ? repository.Release() : nullptr;
}

}  // namespace noxstorage::git::odb

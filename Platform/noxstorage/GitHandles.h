#pragma once

#include <git2.h>

#include <utility>

/// Owners of libgit2's handles, for the floors that call libgit2 directly.
namespace noxstorage::git {

inline void Free(git_blob* inHandle)
{
    git_blob_free(inHandle);
}
inline void Free(git_commit* inHandle)
{
    git_commit_free(inHandle);
}
inline void Free(git_config* inHandle)
{
    git_config_free(inHandle);
}
inline void Free(git_object* inHandle)
{
    git_object_free(inHandle);
}
inline void Free(git_odb* inHandle)
{
    git_odb_free(inHandle);
}
inline void Free(git_odb_stream* inHandle)
{
    git_odb_stream_free(inHandle);
}
inline void Free(git_packbuilder* inHandle)
{
    git_packbuilder_free(inHandle);
}
inline void Free(git_refdb* inHandle)
{
    git_refdb_free(inHandle);
}
inline void Free(git_reference* inHandle)
{
    git_reference_free(inHandle);
}
inline void Free(git_repository* inHandle)
{
    git_repository_free(inHandle);
}
inline void Free(git_revwalk* inHandle)
{
    git_revwalk_free(inHandle);
}
inline void Free(git_tree* inHandle)
{
    git_tree_free(inHandle);
}
inline void Free(git_tree_entry* inHandle)
{
    git_tree_entry_free(inHandle);
}
inline void Free(git_treebuilder* inHandle)
{
    git_treebuilder_free(inHandle);
}

/// Owns one handle. Threading: as the handle's.
template <class T>
class Wrapped
{
public:
    Wrapped() = default;
    explicit Wrapped(T* inHandle) : mHandle(inHandle) {}
    ~Wrapped() { Free(); }
    Wrapped(Wrapped&& inOther) noexcept : mHandle(inOther.Release()) {}
    Wrapped& operator=(Wrapped&& inOther) noexcept
    {
        std::swap(mHandle, inOther.mHandle);
        return *this;
    }

    [[nodiscard]] T* Get() const { return mHandle; }
    explicit operator bool() const { return mHandle != nullptr; }
    /// For a function that makes the handle; what was held is freed.
    T** Out()
    {
        Free();
        return &mHandle;
    }
    T* Release() { return std::exchange(mHandle, nullptr); }
    void Free()
    {
        if (T* handle = Release()) noxstorage::git::Free(handle);
    }

private:
    T* mHandle = nullptr;
};

}  // namespace noxstorage::git

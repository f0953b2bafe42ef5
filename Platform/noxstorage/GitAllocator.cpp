#include <git2.h>
#include <git2/sys/alloc.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "Platform/noxstorage/Git.h"
#include "Platform/noxstorage/GitError.h"

namespace noxstorage::git {

namespace {

void* Allocate(std::size_t inSize, const char*, int)
{
    return std::malloc(inSize);
}

void* AllocateCleared(std::size_t inCount, std::size_t inSize, const char*, int)
{
    return std::calloc(inCount, inSize);
}

char* Duplicate(const char* inText, const char*, int)
{
    return ::strdup(inText);
}

char* DuplicateAtMost(const char* inText, std::size_t inSize, const char*, int)
{
    return ::strndup(inText, inSize);
}

char* DuplicatePart(const char* inText, std::size_t inSize, const char*, int)
{
    auto* copy = static_cast<char*>(std::malloc(inSize + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, inText, inSize);
    copy[inSize] = '\0';
    return copy;
}

void* Reallocate(void* inData, std::size_t inSize, const char*, int)
{
    return std::realloc(inData, inSize);
}

void* ReallocateArray(void* inData, std::size_t inCount, std::size_t inSize, const char*, int)
{
    return ::reallocarray(inData, inCount, inSize);
}

void* AllocateArray(std::size_t inCount, std::size_t inSize, const char*, int)
{
    return ::reallocarray(nullptr, inCount, inSize);
}

void Free(void* inData)
{
    std::free(inData);
}

}  // namespace

bool EnableCustomAllocator()
{
    static git_allocator allocator{&Allocate,        &AllocateCleared, &Duplicate,
                                   &DuplicateAtMost, &DuplicatePart,   &Reallocate,
                                   &ReallocateArray, &AllocateArray,   &Free};
    return GitSucceeded(git_libgit2_opts(GIT_OPT_SET_ALLOCATOR, &allocator), "allocator");
}

}  // namespace noxstorage::git

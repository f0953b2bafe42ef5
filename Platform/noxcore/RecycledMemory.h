#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace noxcore::utility {

/// Shared constant bytes: how payloads travel between socket, service and store without being copied.
///
/// A block may be a part of a larger one (a field of a received form, a column of a mapped database page); the owner
/// keeps the whole alive. Threading: constant once made.
class RecycledMemory
{
public:
    RecycledMemory() = default;
    RecycledMemory(std::shared_ptr<const void> inOwner, const void* inData, std::size_t inSize, int inFile = -1)
        : mOwner(std::move(inOwner)), mData(static_cast<const char*>(inData)), mSize(inSize), mFile(inFile)
    {
    }

    [[nodiscard]] const char* data() const { return mData; }
    [[nodiscard]] std::size_t size() const { return mSize; }
    [[nodiscard]] bool empty() const { return mSize == 0; }
    [[nodiscard]] std::string_view View() const { return {mData, mSize}; }
    /// The descriptor of a file that holds these bytes from its start, open as long as they live; -1: there is none.
    [[nodiscard]] int File() const { return mFile; }

    /// A part of this block that shares its owner. Offsets past the end give an empty block.
    [[nodiscard]] RecycledMemory Part(std::size_t inOffset, std::size_t inSize) const
    {
        if (inOffset > mSize) return {};
        return {mOwner, mData + inOffset, inSize < mSize - inOffset ? inSize : mSize - inOffset};
    }

private:
    std::shared_ptr<const void> mOwner;
    const char* mData = "";
    std::size_t mSize = 0;
    int mFile = -1;
};

using ConstRecycledMemoryPtr = std::shared_ptr<const RecycledMemory>;

/// Takes a text over without copying it.
inline ConstRecycledMemoryPtr MakeRecycledMemory(std::string&& inText)
{
    auto owner = std::make_shared<const std::string>(std::move(inText));
    const char* data = owner->data();
    const std::size_t size = owner->size();
    return std::make_shared<const RecycledMemory>(std::move(owner), data, size);
}

/// Copies bytes of somebody else's.
inline ConstRecycledMemoryPtr CopyToRecycledMemory(std::string_view inBytes)
{
    return MakeRecycledMemory(std::string(inBytes));
}

}  // namespace noxcore::utility

#include "Platform/noxcore/ImmutableString.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_set>

namespace noxcore::utility {

/// The shared data of all equal strings: the counts, then the text and a zero byte, in one block.
struct ImmutableString::Entry
{
    std::atomic<std::uint32_t> mReferences{1};
    std::uint32_t mSize = 0;

    [[nodiscard]] const char* Text() const { return reinterpret_cast<const char*>(this + 1); }
    [[nodiscard]] std::string_view View() const { return {Text(), mSize}; }
};

namespace {

using Entry = ImmutableString::Entry;

struct EntryHash
{
    using is_transparent = void;
    std::size_t operator()(std::string_view inText) const { return std::hash<std::string_view>()(inText); }
    std::size_t operator()(const Entry* inEntry) const { return (*this)(inEntry->View()); }
};

struct EntryEqual
{
    using is_transparent = void;
    bool operator()(const Entry* inLeft, const Entry* inRight) const { return inLeft == inRight; }
    bool operator()(std::string_view inLeft, const Entry* inRight) const { return inLeft == inRight->View(); }
    bool operator()(const Entry* inLeft, std::string_view inRight) const { return inLeft->View() == inRight; }
};

struct alignas(64) Shard
{
    std::mutex mMutex;
    std::unordered_set<Entry*, EntryHash, EntryEqual> mEntries;
};

constexpr std::size_t kShards = 64;

/// Never destroyed: strings of static objects may be the last to go.
Shard& ShardOf(std::string_view inText)
{
    static auto* const shards = new std::array<Shard, kShards>();
    return (*shards)[(std::hash<std::string_view>()(inText) >> 7) % kShards];
}

Entry* NewEntry(std::string_view inText)
{
    void* block = ::operator new(sizeof(Entry) + inText.size() + 1);
    auto* entry = new (block) Entry;
    entry->mSize = static_cast<std::uint32_t>(inText.size());
    char* text = static_cast<char*>(block) + sizeof(Entry);
    std::memcpy(text, inText.data(), inText.size());
    text[inText.size()] = '\0';
    return entry;
}

void DeleteEntry(Entry* inEntry)
{
    inEntry->~Entry();
    ::operator delete(inEntry);
}

}  // namespace

ImmutableString::ImmutableString(std::string_view inText)
{
    if (inText.empty()) return;
    Shard& shard = ShardOf(inText);
    const std::lock_guard lock(shard.mMutex);
    const auto found = shard.mEntries.find(inText);
    if (found != shard.mEntries.end()) {
        (*found)->mReferences.fetch_add(1, std::memory_order_relaxed);
        mEntry = *found;
        return;
    }
    mEntry = NewEntry(inText);
    shard.mEntries.insert(mEntry);
}

ImmutableString::ImmutableString(const ImmutableString& inOther) noexcept : mEntry(inOther.mEntry)
{
    if (mEntry != nullptr) mEntry->mReferences.fetch_add(1, std::memory_order_relaxed);
}

ImmutableString::~ImmutableString()
{
    if (mEntry == nullptr) return;
    // Only a count that is not the last one may go without the lock: the last one could be taken up again by an
    // interning thread, so it is given back under the shard's mutex.
    std::uint32_t count = mEntry->mReferences.load(std::memory_order_relaxed);
    while (count > 1) {
        if (mEntry->mReferences.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel)) return;
    }
    Shard& shard = ShardOf(mEntry->View());
    const std::lock_guard lock(shard.mMutex);
    if (mEntry->mReferences.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    shard.mEntries.erase(mEntry);
    DeleteEntry(mEntry);
}

const char* ImmutableString::c_str() const noexcept
{
    return mEntry == nullptr ? "" : mEntry->Text();
}

std::string_view ImmutableString::View() const noexcept
{
    return mEntry == nullptr ? std::string_view() : mEntry->View();
}

}  // namespace noxcore::utility

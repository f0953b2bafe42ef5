#include "Platform/noxcore/ImmutableString.h"

#include <array>
#include <atomic>
#include <boost/unordered/unordered_flat_set.hpp>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>

namespace noxcore::utility {

/// The shared data of all equal strings: the counts, then the text and a zero byte, in one block.
struct ImmutableString::Entry
{
    std::atomic<std::uint32_t> mReferences{1};
    std::uint32_t mSize = 0;
    std::size_t mHash = 0;

    [[nodiscard]] const char* Text() const { return reinterpret_cast<const char*>(this + 1); }
    [[nodiscard]] std::string_view View() const { return {Text(), mSize}; }
};

namespace {

using Entry = ImmutableString::Entry;

/// A text to look for, hashed once for shard and table.
struct HashedText
{
    std::string_view mText;
    std::size_t mHash = std::hash<std::string_view>()(mText);
};

struct EntryHash
{
    using is_transparent = void;
    using is_avalanching = void;  // the table need not mix it once more
    std::size_t operator()(const HashedText& inText) const { return inText.mHash; }
    std::size_t operator()(const Entry* inEntry) const { return inEntry->mHash; }
};

struct EntryEqual
{
    using is_transparent = void;
    bool operator()(const Entry* inLeft, const Entry* inRight) const { return inLeft == inRight; }
    bool operator()(const HashedText& inLeft, const Entry* inRight) const
    {
        return inLeft.mHash == inRight->mHash && inLeft.mText == inRight->View();
    }
    bool operator()(const Entry* inLeft, const HashedText& inRight) const { return (*this)(inRight, inLeft); }
};

/// Without nodes: a text that is new costs one look into the table, and most texts of a long list are new.
struct alignas(64) Shard
{
    std::mutex mMutex;
    boost::unordered_flat_set<Entry*, EntryHash, EntryEqual> mEntries;
};

constexpr std::size_t kShards = 64;
constexpr unsigned kShardShift = 40;  ///< the table uses the hash's other bits

/// Never destroyed: strings of static objects may be the last to go.
Shard& ShardOf(std::size_t inHash)
{
    static auto* const shards = new std::array<Shard, kShards>();
    return (*shards)[(inHash >> kShardShift) % kShards];
}

Entry* NewEntry(const HashedText& inText)
{
    const std::size_t size = inText.mText.size();
    void* block = ::operator new(sizeof(Entry) + size + 1);
    auto* entry = new (block) Entry;
    entry->mSize = static_cast<std::uint32_t>(size);
    entry->mHash = inText.mHash;
    char* text = static_cast<char*>(block) + sizeof(Entry);
    std::memcpy(text, inText.mText.data(), size);
    text[size] = '\0';
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
    const HashedText text{inText};
    Shard& shard = ShardOf(text.mHash);
    const std::lock_guard lock(shard.mMutex);
    const auto found = shard.mEntries.find(text);
    if (found != shard.mEntries.end()) {
        (*found)->mReferences.fetch_add(1, std::memory_order_relaxed);
        mEntry = *found;
        return;
    }
    mEntry = NewEntry(text);
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
    Shard& shard = ShardOf(mEntry->mHash);
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

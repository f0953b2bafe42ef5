#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace noxnet::http::server {

/// Counts the bytes that the bodies of a server's requests hold together, against a bound. Threading: any thread.
class BodyMemory
{
public:
    explicit BodyMemory(std::uint64_t inMaxBytes) : mMaxBytes(inMaxBytes) {}

    bool Take(std::uint64_t inBytes)
    {
        if (mHeld.fetch_add(inBytes) + inBytes <= mMaxBytes) return true;
        mHeld -= inBytes;
        return false;
    }
    void GiveBack(std::uint64_t inBytes) { mHeld -= inBytes; }

private:
    const std::uint64_t mMaxBytes;
    std::atomic<std::uint64_t> mHeld = 0;
};

/// What one body has taken so far; given back when whoever holds the body lets go of it. Threading: one at a time.
class BodyShare
{
public:
    explicit BodyShare(std::shared_ptr<BodyMemory> inMemory) : mMemory(std::move(inMemory)) {}
    ~BodyShare() { mMemory->GiveBack(mBytes); }
    BodyShare(const BodyShare&) = delete;
    BodyShare& operator=(const BodyShare&) = delete;

    /// False when all bodies together would hold too much.
    bool Grow(std::uint64_t inBytes)
    {
        if (!mMemory->Take(inBytes)) return false;
        mBytes += inBytes;
        return true;
    }
    [[nodiscard]] std::uint64_t Bytes() const { return mBytes; }

private:
    const std::shared_ptr<BodyMemory> mMemory;
    std::uint64_t mBytes = 0;
};

}  // namespace noxnet::http::server

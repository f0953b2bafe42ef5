#include "Inc/Service/AnswerCache.h"

#include <algorithm>

#include "Platform/noxcore/MemoryFile.h"

namespace VantryLocalHub {

using noxcore::threads::ScopedLock;

namespace {

constexpr std::size_t kEntryOverhead = 600;  ///< bytes of nodes, headers and counters beside URL and payload
constexpr std::size_t kLargestPart = 4;      ///< an answer larger than the bound divided by this is not kept
constexpr std::size_t kLarge = 256 * 1024;   ///< bytes of a payload that is kept where a socket can take it from

}  // namespace

AnswerCache::Entries::iterator AnswerCache::FindLocked(const Request& inRequest)
{
    const auto found = mByURL.find(inRequest.URL());
    if (found == mByURL.end() || found->second->mHost != inRequest.Header(noxnet::kHEADER_Host)) return mEntries.end();
    return found->second;
}

std::uint64_t AnswerCache::GenerationOf(const Request& inRequest)
{
    const ScopedLock lock(mMutex);
    const auto entry = FindLocked(inRequest);
    return entry == mEntries.end() ? 0 : entry->mGeneration;
}

std::shared_ptr<const AnswerCache::Response> AnswerCache::Find(const Request& inRequest, std::uint64_t& outGeneration)
{
    const ScopedLock lock(mMutex);
    const auto entry = FindLocked(inRequest);
    if (entry == mEntries.end()) return nullptr;
    mEntries.splice(mEntries.begin(), mEntries, entry);
    outGeneration = entry->mGeneration;
    return entry->mResponse;
}

void AnswerCache::Add(const Request& inRequest, const Response& inResponse, std::uint64_t inGeneration)
{
    const std::size_t payload = inResponse.mPayload ? inResponse.mPayload->size() : 0;
    const std::size_t bytes = payload + 2 * inRequest.URL().size() + kEntryOverhead;
    if (bytes > mMaxBytes / kLargestPart) return;
    auto kept = std::make_shared<Response>(inResponse);
    if (payload >= kLarge) {
        if (auto file = noxcore::utility::CopyToMemoryFile(kept->mPayload->View())) kept->mPayload = std::move(file);
    }
    std::erase_if(kept->mHeaders, [](const auto& inHeader) { return inHeader.first == noxnet::kHEADER_XRequestID; });
    const ScopedLock lock(mMutex);
    if (const auto found = mByURL.find(inRequest.URL()); found != mByURL.end()) RemoveLocked(found->second);
    mEntries.push_front({std::string(inRequest.URL()), std::string(inRequest.Header(noxnet::kHEADER_Host)),
                         std::move(kept), bytes, inGeneration});
    mByURL.emplace(mEntries.front().mURL, mEntries.begin());
    mBytes += bytes;
    while (mBytes > mMaxBytes)
        RemoveLocked(std::prev(mEntries.end()));
}

void AnswerCache::RemoveLocked(Entries::iterator inEntry)
{
    mBytes -= inEntry->mBytes;
    mByURL.erase(inEntry->mURL);
    mEntries.erase(inEntry);
}

void AnswerCache::Clear()
{
    const ScopedLock lock(mMutex);
    mByURL.clear();
    mEntries.clear();
    mBytes = 0;
}

}  // namespace VantryLocalHub

#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxnet/HTTPServer.h"

namespace VantryLocalHub {

/// Answers that stay as they are for ever, kept to be given again without a look into the store: what a revision,
/// which never changes, holds. The least recently asked go when there are more bytes than allowed.
///
/// An answer belongs to an URL, to the Host header it was built for, since its links are made from that, and to a
/// generation of the session's history, since another history does not hold the same revisions.
/// Threading: any thread. The mutex guards all fields, for one look-up; rank Leaf.
class AnswerCache
{
public:
    using Request = noxnet::http::server::Request;
    using Response = noxnet::http::server::MutableResponse;

    explicit AnswerCache(std::size_t inMaxBytes) : mMaxBytes(inMaxBytes) {}

    /// Of the answer to the request; 0 when there is none.
    [[nodiscard]] std::uint64_t GenerationOf(const Request& inRequest);
    /// The answer to the request as it was added, headers and payload; null when there is none.
    std::shared_ptr<const Response> Find(const Request& inRequest, std::uint64_t& outGeneration);
    /// The X-Request-ID of the answer is not kept: it belongs to one request. The generation is the one that the
    /// history had before it was read.
    void Add(const Request& inRequest, const Response& inResponse, std::uint64_t inGeneration);
    void Clear();

private:
    struct Entry
    {
        std::string mURL;
        std::string mHost;
        std::shared_ptr<const Response> mResponse;
        std::size_t mBytes = 0;
        std::uint64_t mGeneration = 0;
    };
    using Entries = std::list<Entry>;  // the most recently asked first

    Entries::iterator FindLocked(const Request& inRequest) REQUIRES(mMutex);
    void RemoveLocked(Entries::iterator inEntry) REQUIRES(mMutex);

    const std::size_t mMaxBytes;
    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    Entries mEntries GUARDED_BY(mMutex);
    std::unordered_map<std::string_view, Entries::iterator> mByURL GUARDED_BY(mMutex);  // keys lie in the entries
    std::size_t mBytes GUARDED_BY(mMutex) = 0;
};

}  // namespace VantryLocalHub

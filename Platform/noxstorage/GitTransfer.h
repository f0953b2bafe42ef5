#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "Platform/noxstorage/Git.h"

/// Many objects at once. Results and threads as in Git.h.
namespace noxstorage::git {

/// An object and the place in the file where it lies; 0 where that is not known.
struct PlacedObject
{
    Oid mOid;
    std::int64_t mPlace = 0;
};

inline bool IsBefore(const PlacedObject& inLeft, const PlacedObject& inRight)
{
    return inLeft.mPlace < inRight.mPlace;
}

/// The objects in the order of the file, in which they are read fastest.
std::vector<PlacedObject> InOrderOfPlaces(const RepoPtr& inRepo, std::span<const Oid> inOids);

/// Reads the objects, which are in that order, one after the other. The content is valid during the call alone. False
/// when one cannot be read or the visitor stopped.
bool VisitObjects(const RepoPtr& inRepo, std::span<const PlacedObject> inObjects,
                  const std::function<bool(const Oid&, ObjectType, std::string_view)>& inVisitor);

/// Copies objects that the destination lacks into it, in the order given, by two threads and in the form in which
/// the source's file has them: nothing is compressed anew. The content of each is held against its id on the way, since
/// content that was changed behind the store's back is no copy. At most 2 MB and one large object a thread are in
/// memory. They can be read when the call has ended, and are durable with the next commit.
bool TransferObjects(const RepoPtr& inSource, const RepoPtr& inDestination, std::span<const PlacedObject> inObjects);

}  // namespace noxstorage::git

#pragma once

#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>
#include <vector>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxstorage/GitTransfer.h"

namespace VantryLocalHub::GitBox {

/// Copies what trees name into another repository. What one tree brought is neither read nor copied again for the next.
///
/// Into an empty repository trees go over as they are walked, each with what it names as far as that lies close to it;
/// what is left of a level follows with the next one, and content that is left goes last. As an edit writes together
/// what belongs together, most goes over in one pass through the file, and does so in its order.
/// Where the destination has content already, trees go last, the lowest first: after a failure it has none that names
/// what it lacks, unless a tree lies at several depths. Takes some 200 bytes an object.
///
/// Threading: one thread at a time, which has others help it. mMutex (a leaf) guards what was met.
class WalkAndCopyContext
{
public:
    /// inLooksFirst: what the destination has already is left out. One that has nothing yet need not be asked.
    WalkAndCopyContext(noxstorage::git::RepoPtr inSource, noxstorage::git::RepoPtr inDestination,
                       bool inLooksFirst = false)
        : mSource(std::move(inSource)), mDestination(std::move(inDestination)), mLooksFirst(inLooksFirst)
    {
    }

    /// False when an object cannot be read or written, when its content has another id than its name, or when it is
    /// something else than it is named as; from then on always.
    bool Copy(const noxstorage::git::Oid& inTree);

private:
    using Oids = std::vector<noxstorage::git::Oid>;
    using OidHash = std::hash<noxstorage::git::Oid>;
    using OidSet = boost::unordered_flat_set<noxstorage::git::Oid, OidHash>;
    using PlacedObjects = std::vector<noxstorage::git::PlacedObject>;

    bool CopyNew(const noxstorage::git::Oid& inTree);
    bool CopyAll(noxstorage::git::Transfer& ioTransfer);
    bool CopyWhatIsMissing(noxstorage::git::Transfer& ioTransfer);
    /// Notes what a tree names that was not met before. False when something is named as what it is not.
    bool NoteVisited(const noxstorage::git::Oid& inOid, noxstorage::git::ObjectType inType, std::string_view inContent);
    /// Empties one of the lists of what is still to be visited.
    Oids TakeAll(OidSet WalkAndCopyContext::*inSet);
    /// Takes off the list what a destination with content has already.
    void LeaveOutWhatIsThere(PlacedObjects& ioObjects) const;

    const noxstorage::git::RepoPtr mSource;
    const noxstorage::git::RepoPtr mDestination;
    const bool mLooksFirst;
    bool mHasFailed = false;
    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    /// As what each was named first.
    boost::unordered_flat_map<noxstorage::git::Oid, noxstorage::git::ObjectType, OidHash> mMet GUARDED_BY(mMutex);
    OidSet mTrees GUARDED_BY(mMutex);  ///< of those, still to be visited
    OidSet mBlobs GUARDED_BY(mMutex);  ///< of those, still to be copied
};

}  // namespace VantryLocalHub::GitBox

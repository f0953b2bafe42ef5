#pragma once

#include <boost/unordered/unordered_flat_set.hpp>
#include <vector>

#include "Platform/noxstorage/GitTransfer.h"

namespace VantryLocalHub::GitBox {

/// Copies what trees name into another repository. What one tree brought is neither read nor copied again for the next.
///
/// The trees go over as they are walked, one level after the other; then all other objects that were found in the order
/// of the source's file, so that what lies together there does so in the copy. Where the destination has content
/// already, trees go last, the lowest first: after a failure it has none that names what it lacks. Takes some 150 bytes
/// an object.
///
/// Threading: one thread at a time, which has others help it.
class WalkAndCopyContext
{
public:
    /// inLooksFirst: what the destination has already is left out. One that has nothing yet need not be asked.
    WalkAndCopyContext(noxstorage::git::RepoPtr inSource, noxstorage::git::RepoPtr inDestination,
                       bool inLooksFirst = false)
        : mSource(std::move(inSource)), mDestination(std::move(inDestination)), mLooksFirst(inLooksFirst)
    {
    }

    /// False when an object cannot be read or written, or its content has another id than its name.
    bool Copy(const noxstorage::git::Oid& inTree);

private:
    using Oids = std::vector<noxstorage::git::Oid>;
    using PlacedObjects = std::vector<noxstorage::git::PlacedObject>;

    bool CopyNew(const noxstorage::git::Oid& inTree);
    /// Walks the trees that are reached from one, and lists what else they name. Into an empty destination they are
    /// copied on the way; of another one those that it lacks are listed, by levels.
    bool WalkTrees(const noxstorage::git::Oid& inTree, noxstorage::git::Transfer& ioTransfer, Oids& outBlobs,
                   std::vector<PlacedObjects>& outTrees);
    /// Keeps those that were not met before.
    void TakeNew(Oids& ioOids);
    /// Takes off the list what a destination with content has already.
    void LeaveOutWhatIsThere(PlacedObjects& ioObjects) const;

    const noxstorage::git::RepoPtr mSource;
    const noxstorage::git::RepoPtr mDestination;
    const bool mLooksFirst;
    boost::unordered_flat_set<noxstorage::git::Oid, std::hash<noxstorage::git::Oid>> mCopied;
};

}  // namespace VantryLocalHub::GitBox

#pragma once

#include <boost/unordered/unordered_flat_set.hpp>
#include <vector>

#include "Platform/noxstorage/GitTransfer.h"

namespace VantryLocalHub::GitBox {

/// Copies what trees name into another repository. What one tree brought is neither read nor copied again for the next.
///
/// The trees go over as they are walked, one level after the other; then all other objects that were found in the order
/// of the source's file, so that what lies together there does so in the copy. Takes some 150 bytes an object.
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
    /// Copies the trees that are reached from one, and lists what else they name.
    bool CopyTrees(const noxstorage::git::Oid& inTree, noxstorage::git::Transfer& ioTransfer, Oids& outBlobs);
    /// Keeps those that were not met before.
    void TakeNew(Oids& ioOids);
    /// Where the destination may have some: takes these off the list.
    PlacedObjects TakeWhatIsThere(PlacedObjects& ioObjects) const;

    const noxstorage::git::RepoPtr mSource;
    const noxstorage::git::RepoPtr mDestination;
    const bool mLooksFirst;
    boost::unordered_flat_set<noxstorage::git::Oid, std::hash<noxstorage::git::Oid>> mCopied;
};

}  // namespace VantryLocalHub::GitBox

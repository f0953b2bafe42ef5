#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "Platform/noxcore/RecursiveMutex.h"
#include "Platform/noxstorage/Git.h"

/// Many objects at once. Results and threads as in Git.h.
namespace noxstorage::git {

namespace odb {
class EncodedBatch;
class Store;
}  // namespace odb

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

/// Gets the content of objects, valid during the call alone, from two threads at once; false ends the work.
using ContentVisitor = std::function<bool(const Oid&, ObjectType, std::string_view)>;

/// Asked by two threads at once of an object that lies among those of a list: true takes it too.
using Chooser = std::function<bool(const Oid&)>;

/// Objects on their way into a repository that lacks them, in the form in which the source's file has them: nothing is
/// compressed anew. The content of each is held against its id on the way, since content that was changed behind the
/// store's back is no copy. At most some 10 MB and one large object a thread are in memory.
///
/// Threading: one thread, which has another one help it. mMutex (a leaf) guards what is known of the written rows.
class Transfer
{
public:
    Transfer(RepoPtr inSource, const RepoPtr& inDestination);
    /// Ends what was not ended.
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    /// Copies the objects, which are in the order of their places. False when one cannot be read or written, when its
    /// content has another id, or when the visitor ended it.
    /// The chooser may take what lies close to them on the way; of several that name each other the last in the file is
    /// visited first, since what a tree names is written before it.
    bool Copy(std::span<const PlacedObject> inObjects, const ContentVisitor& inVisitor = {},
              const Chooser& inChooser = {});
    /// The same without a copy of what is read.
    bool Visit(std::span<const PlacedObject> inObjects, const ContentVisitor& inVisitor);
    /// Called once, after a failure too. What was copied can be read from here on, and is durable with the next commit.
    bool End();

private:
    struct Work
    {
        bool mCopies = false;
        const ContentVisitor& mVisitor;
        const Chooser& mChooser;
    };
    bool Share(std::span<const PlacedObject> inObjects, const Work& inWork);
    bool DoPart(std::span<const PlacedObject> inPart, const Work& inWork);
    bool VisitBatch(odb::EncodedBatch& ioBatch, const Work& inWork, std::string& ioRoom);

    const RepoPtr mSource;
    odb::Store& mDestination;
    bool mEnded = false;
    std::atomic<bool> mFailed{false};
    noxcore::threads::RecursiveMutex mMutex{noxcore::threads::LockRank::Leaf};
    std::vector<PlacedObject> mRows GUARDED_BY(mMutex);
};

}  // namespace noxstorage::git

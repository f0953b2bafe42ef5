#include "Inc/Model/GitBoxIODiff.h"

#include <algorithm>

#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/Logging.h"
#include "Platform/noxstorage/GitTrees.h"

namespace VantryLocalHub::GitBox::IO {

namespace git = noxstorage::git;
using git::ObjectType;
using git::Tree;
using git::TreeEntry;
using noxcore::logging::LogError;

namespace {

ImmutableString TextOf(const Oid& inOid)
{
    return inOid.IsZero() ? ImmutableString() : ImmutableString(inOid.Text());
}

/// The id of an entry; zero when absent.
Oid EntryID(const TreePtr& inTree, std::string_view inName)
{
    TreeEntry entry;
    return inTree && inTree->Find(inName, entry) ? entry.mOid : Oid();
}

/// The content of one name on both sides; zero where it is absent.
struct Pair
{
    std::string_view mName;
    Oid mLeft;
    Oid mRight;
};

/// Merges the sorted entries of two trees, either of which may be null, and gives the visitor those that differ, until
/// it answers false.
template <class Visitor>
bool MergeEntries(const TreePtr& inLeft, const TreePtr& inRight, const Visitor& inVisitor)
{
    auto left = inLeft ? inLeft->begin() : Tree::Iterator();
    auto right = inRight ? inRight->begin() : Tree::Iterator();
    const Tree::Iterator end;
    while (left != end || right != end) {
        int order = 0;
        if (left == end || right == end) {
            order = left == end ? 1 : -1;
        } else {
            order = git::CompareEntryNames(left->mName, left->Type() == ObjectType::Tree, right->mName,
                                           right->Type() == ObjectType::Tree);
        }
        Pair pair;
        if (order <= 0) pair = {left->mName, left->mOid, Oid()};
        if (order >= 0) {
            pair.mName = right->mName;
            pair.mRight = right->mOid;
        }
        if (pair.mLeft != pair.mRight && !inVisitor(pair)) return false;
        if (order <= 0) ++left;
        if (order >= 0) ++right;
    }
    return true;
}

/// The trees of a pair; false when one cannot be read. Null where it is absent.
bool GetTrees(const RepoPtr& inRepo, const Pair& inPair, TreePtr& outLeft, TreePtr& outRight)
{
    outLeft = inPair.mLeft.IsZero() ? nullptr : git::GetTree(inRepo, inPair.mLeft);
    outRight = inPair.mRight.IsZero() ? nullptr : git::GetTree(inRepo, inPair.mRight);
    return (outLeft || inPair.mLeft.IsZero()) && (outRight || inPair.mRight.IsZero());
}

/// Gives the visitor what differs below the fan-out level of two trees, in order of ids.
template <class Visitor>
bool CompareFanOut(const RepoPtr& inRepo, const Pair& inTrees, const Visitor& inVisitor)
{
    if (inTrees.mLeft == inTrees.mRight) return true;
    TreePtr left;
    TreePtr right;
    if (!GetTrees(inRepo, inTrees, left, right)) return false;
    return MergeEntries(left, right, [&](const Pair& inBucket) {
        if (inBucket.mName.size() != 2) return true;
        TreePtr leftBucket;
        TreePtr rightBucket;
        return GetTrees(inRepo, inBucket, leftBucket, rightBucket) && MergeEntries(leftBucket, rightBucket, inVisitor);
    });
}

/// The three lists of one kind of thing.
struct Lists
{
    std::vector<AssetChange>& mAdded;
    std::vector<AssetChange>& mEdited;
    std::vector<AssetChange>& mDeleted;

    void Add(const Pair& inPair) const
    {
        auto& list = inPair.mLeft.IsZero() ? mAdded : inPair.mRight.IsZero() ? mDeleted : mEdited;
        list.push_back({inPair.mName, TextOf(inPair.mLeft), TextOf(inPair.mRight)});
    }
};

/// One run of ReadSessionDifferences between two trees.
class Comparison
{
public:
    Comparison(RepoPtr inRepo, TreePtr inLeft, TreePtr inRight, SessionDifferences& outDifferences)
        : mRepo(std::move(inRepo)), mLeft(std::move(inLeft)), mRight(std::move(inRight)), mDifferences(outDifferences)
    {
    }

    bool Run()
    {
        const Pair properties = PairOf("properties");
        if (properties.mLeft != properties.mRight) {
            mDifferences.mFromProperties = TextOf(properties.mLeft);
            mDifferences.mToProperties = TextOf(properties.mRight);
        }
        const Lists assets{mDifferences.mAddedAssets, mDifferences.mEditedAssets, mDifferences.mDeletedAssets};
        const Lists enclosures{mDifferences.mAddedEnclosures, mDifferences.mEditedEnclosures,
                               mDifferences.mDeletedEnclosures};
        return CompareThings("assets", assets) && CompareThings("enclosures", enclosures) && CompareMarkers();
    }

private:
    [[nodiscard]] Pair PairOf(std::string_view inName) const
    {
        return {inName, EntryID(mLeft, inName), EntryID(mRight, inName)};
    }

    bool CompareThings(std::string_view inSubtree, const Lists& inLists)
    {
        return CompareFanOut(mRepo, PairOf(inSubtree), [&](const Pair& inPair) {
            inLists.Add(inPair);
            return true;
        });
    }

    bool CompareMarkers()
    {
        const Pair conflict = PairOf("conflict");
        if (conflict.mLeft.IsZero() || conflict.mRight.IsZero() || conflict.mLeft == conflict.mRight) return true;
        TreePtr left;
        TreePtr right;
        if (!GetTrees(mRepo, conflict, left, right)) return false;
        const auto below = [&](std::string_view inName) {
            return Pair{inName, EntryID(left, inName), EntryID(right, inName)};
        };
        const Pair session = below("conflict");
        if (session.mLeft != session.mRight && !session.mRight.IsZero() &&
            !AddMarker(ConflictChange::Kind::SessionProperties, {}, session.mRight))
            return false;
        return CompareMarkersOf(ConflictChange::Kind::Asset, below("assets")) &&
               CompareMarkersOf(ConflictChange::Kind::ProductionEnclosure, below("enclosures"));
    }

    bool CompareMarkersOf(ConflictChange::Kind inKind, const Pair& inTrees)
    {
        return CompareFanOut(mRepo, inTrees, [&](const Pair& inPair) {
            if (inPair.mRight.IsZero()) return true;  // no conflict any more
            const TreePtr folder = git::GetTree(mRepo, inPair.mRight);
            const Oid marker = EntryID(folder, "conflict");
            return folder && (marker.IsZero() || AddMarker(inKind, inPair.mName, marker));
        });
    }

    bool AddMarker(ConflictChange::Kind inKind, const ImmutableString& inID, const Oid& inBlob)
    {
        ConflictChange change{inKind, inID, {}};
        if (!ReadConflictMarker(mRepo, inBlob, change.mMarker)) return false;
        mDifferences.mConflicts.push_back(std::move(change));
        return true;
    }

    const RepoPtr mRepo;
    const TreePtr mLeft;
    const TreePtr mRight;
    SessionDifferences& mDifferences;
};

/// Leaves in a record what a history has moved away from itself: what was, at one of its commits, as `from` has it.
class OutgoingFilter
{
public:
    OutgoingFilter(RepoPtr inRepo, const std::vector<HistoryOID>& inHistory, SessionDifferences& ioDifferences)
        : mRepo(std::move(inRepo)), mHistory(inHistory), mDifferences(ioDifferences)
    {
    }

    bool Run()
    {
        for (auto* list : {&mDifferences.mAddedAssets, &mDifferences.mEditedAssets, &mDifferences.mDeletedAssets})
            Filter("assets", *list);
        for (auto* list :
             {&mDifferences.mAddedEnclosures, &mDifferences.mEditedEnclosures, &mDifferences.mDeletedEnclosures})
            Filter("enclosures", *list);
        FilterProperties();
        return !mFailed;
    }

private:
    /// The subtree (or blob) of this name at each commit; neighbours that are equal stand once.
    std::vector<Oid> StatesOf(std::string_view inName)
    {
        std::vector<Oid> states;
        for (const HistoryOID& commit : mHistory) {
            const TreePtr tree = git::GetTree(mRepo, commit.mTree);
            if (!tree) mFailed = true;
            const Oid state = EntryID(tree, inName);
            if (states.empty() || states.back() != state) states.push_back(state);
        }
        return states;
    }

    void Filter(std::string_view inSubtree, std::vector<AssetChange>& ioChanges)
    {
        if (ioChanges.empty()) return;
        const std::vector<Oid> states = StatesOf(inSubtree);
        std::erase_if(ioChanges, [&](const AssetChange& inChange) {
            return std::none_of(states.begin(), states.end(), [&](const Oid& inState) {
                return TextOf(ContentIn(inState, inChange.mID)) == inChange.mFromContentID;
            });
        });
    }

    Oid ContentIn(const Oid& inState, std::string_view inID)
    {
        if (inState.IsZero()) return {};
        const TreePtr things = git::GetTree(mRepo, inState);
        const Oid bucketID = EntryID(things, inID.substr(0, 2));
        const TreePtr bucket = bucketID.IsZero() ? nullptr : git::GetTree(mRepo, bucketID);
        if (!things || (!bucket && !bucketID.IsZero())) mFailed = true;
        return EntryID(bucket, inID);
    }

    void FilterProperties()
    {
        if (mDifferences.mFromProperties == mDifferences.mToProperties) return;
        const std::vector<Oid> states = StatesOf("properties");
        const bool had = std::any_of(states.begin(), states.end(), [&](const Oid& inState) {
            return TextOf(inState) == mDifferences.mFromProperties;
        });
        if (had) return;
        mDifferences.mFromProperties = {};
        mDifferences.mToProperties = {};
    }

    const RepoPtr mRepo;
    const std::vector<HistoryOID>& mHistory;
    SessionDifferences& mDifferences;
    bool mFailed = false;
};

/// The first commit of `session`.
ReadResult FindRootCommit(const RepoPtr& inRepo, CommitPtr& outCommit)
{
    CommitPtr head;
    const ReadResult result = ResolveCommit(inRepo, kBranch_Session, head);
    if (result != ReadResult::Found) return result;
    CommitPtr root;
    const bool walked = git::WalkFirstParents(inRepo, head, [&](const CommitPtr& inCommit) {
        root = inCommit;
        return true;
    });
    if (!walked) return ReadResult::Failed;
    outCommit = std::move(root);
    return ReadResult::Found;
}

}  // namespace

ReadResult ResolveDifferenceEnds(const RepoPtr& inRepo, std::string_view inFrom, std::string_view inTo,
                                 CommitPtr& outFrom, CommitPtr& outTo)
{
    CommitPtr to;
    ReadResult result = ResolveCommit(inRepo, inTo, to);
    if (result != ReadResult::Found) return result;
    CommitPtr from;
    Oid id;
    result = inFrom.empty() ? ReadResult::Absent : ResolveCommit(inRepo, inFrom, from);
    if (result == ReadResult::Absent && !Oid::FromText(inFrom, id)) result = FindRootCommit(inRepo, from);
    if (result != ReadResult::Found) return result;
    outFrom = std::move(from);
    outTo = std::move(to);
    return ReadResult::Found;
}

bool ReadSessionDifferences(const RepoPtr& inRepo, std::string_view inFrom, std::string_view inTo, bool inOutgoingOnly,
                            SessionDifferences& outDifferences)
{
    const git::ReadScope scope(inRepo);
    CommitPtr from;
    CommitPtr to;
    ResolveDifferenceEnds(inRepo, inFrom, inTo, from, to);
    const TreePtr left = from ? git::GetTreeAtCommit(inRepo, from) : nullptr;
    const TreePtr right = to ? git::GetTreeAtCommit(inRepo, to) : nullptr;
    if (!left || !right) {
        LogError("GitBox", "Unable to get tree(s) for differences",
                 {{"path", inRepo->Path()},
                  {"left", left != nullptr},
                  {"right", right != nullptr},
                  {"from", inFrom},
                  {"to", inTo}});
        return false;
    }
    SessionDifferences differences;
    differences.mFromRevision = from->ID().Text();
    differences.mToRevision = to->ID().Text();
    if (left->ID() != right->ID()) {
        if (!Comparison(inRepo, left, right, differences).Run()) return false;
        if (inOutgoingOnly) {
            const auto history = GetHistoryOIDs(inRepo, differences.mFromRevision, differences.mToRevision);
            // Where the history comes down to `from`, all that differs was changed by it.
            const bool isWhole =
                !history.empty() && (history.back().mCommit == from->ID() || history.back().mTree == from->TreeID());
            if (!isWhole && !OutgoingFilter(inRepo, history, differences).Run()) return false;
        }
    }
    outDifferences = std::move(differences);
    return true;
}

std::vector<HistoryOID> GetHistoryOIDs(const RepoPtr& inRepo, std::string_view inFrom, std::string_view inTo)
{
    Oid stop;
    Oid start;
    if (!Oid::FromText(inFrom, stop) || !Oid::FromText(inTo, start)) return {};
    const CommitPtr head = git::GetCommit(inRepo, start);
    if (!head) return {};
    std::vector<HistoryOID> history;
    git::WalkFirstParents(inRepo, head, [&](const CommitPtr& inCommit) {
        history.push_back({inCommit->ID(), inCommit->TreeID()});
        if (inCommit->ID() == stop || inCommit->TreeID() == stop) return false;
        if (inCommit->ParentCount() == 1) return true;
        LogError("GitBox", "Unsupported parent count",
                 {{"commit", inCommit->ID().Text()}, {"count", inCommit->ParentCount()}});
        return false;
    });
    return history;
}

}  // namespace VantryLocalHub::GitBox::IO

#include "Inc/Model/GitBoxIODiff.h"
#include "Inc/Model/UtilsIO.h"
#include "Platform/noxcore/Logging.h"

namespace VantryLocalHub::GitBox::IO {

namespace git = noxstorage::git;
using git::TreeBuilderNodePtr;
using git::TreeEntry;
using noxcore::logging::LogError;

namespace {

using MarkerMap = std::map<ImmutableString, dto::ConflictMarker>;

/// The markers below `conflict/<subtree>`.
bool ReadMarkers(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inSubtree, MarkerMap& outMarkers)
{
    TreeEntry place;
    const ReadResult result = git::FindEntry(inRepo, inTree, "conflict/" + std::string(inSubtree), place);
    if (result != ReadResult::Found) return result == ReadResult::Absent;
    const TreePtr things = git::GetTree(inRepo, place.mOid);
    if (!things) return false;
    for (const TreeEntry& bucket : git::Entries(things)) {
        const TreePtr entries = bucket.mName.size() == 2 ? git::GetTree(inRepo, bucket.mOid) : nullptr;
        if (!entries && bucket.mName.size() == 2) return false;
        for (const TreeEntry& entry : git::Entries(entries)) {
            dto::ConflictMarker marker;
            const ReadResult read = ReadConflictMarker(inRepo, inTree, MarkerPath(inSubtree, entry.mName), marker);
            if (read == ReadResult::Failed) return false;
            if (read == ReadResult::Found) outMarkers.emplace(entry.mName, std::move(marker));
        }
    }
    return true;
}

/// The folders of markers in a commit that is being made.
class MarkerWriter
{
public:
    MarkerWriter(RepoPtr inRepo, TreeBuilderNodePtr inRoot) : mRepo(std::move(inRepo)), mRoot(std::move(inRoot)) {}

    [[nodiscard]] bool Set(const std::string& inPath, const dto::ConflictMarker& inMarker) const
    {
        std::string leaf;
        const auto node = git::ConstructSubTreeBuilderNodeForPath(mRepo, mRoot, inPath, leaf);
        const std::string text = dto::ToJSON(inMarker);
        return git::TreeBuilderInsertBuffer(mRepo, node, leaf, text.data(), text.size());
    }

    void Remove(const std::string& inPath) const
    {
        std::string leaf;
        const auto node = git::ConstructSubTreeBuilderNodeForPath(mRepo, mRoot, inPath, leaf);
        if (node) node->Remove(leaf);
    }

    /// Writes one kind of markers; a failure is logged with the thing's id under the key given.
    [[nodiscard]] bool SetAll(std::string_view inSubtree, const MarkerMap& inMarkers, std::string_view inMessage,
                              std::string_view inKey) const
    {
        for (const auto& [id, marker] : inMarkers) {
            const std::string path = MarkerPath(inSubtree, id);
            if (Set(path, marker)) continue;
            LogError("GitBox", inMessage, {{inKey, id}, {"path", path}});
            return false;
        }
        return true;
    }

private:
    const RepoPtr mRepo;
    const TreeBuilderNodePtr mRoot;
};

/// Moves the markers that are stale from the map to the set. The entry of a thing at the head, and whether it is what
/// the marker names, tells.
bool TakeStale(const RepoPtr& inRepo, const TreePtr& inHead, std::string_view inSubtree, std::string_view inLeaf,
               MarkerMap& ioMarkers, std::set<ImmutableString>& outStale)
{
    for (auto marker = ioMarkers.begin(); marker != ioMarkers.end();) {
        TreeEntry entry;
        const ReadResult result =
            git::FindEntry(inRepo, inHead, MakeObjectPath({}, inSubtree, marker->first, inLeaf), entry);
        if (result == ReadResult::Failed) return false;
        const bool isStale =
            result == ReadResult::Absent || marker->second.mConflictsWithContentID.View() == entry.mOid.Text();
        if (isStale) outStale.insert(marker->first);
        marker = isStale ? ioMarkers.erase(marker) : std::next(marker);
    }
    return true;
}

}  // namespace

ReadResult ReadConflictMarker(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inPath,
                              dto::ConflictMarker& outMarker)
{
    TreeEntry entry;
    const ReadResult result = git::FindEntry(inRepo, inTree, inPath, entry);
    if (result != ReadResult::Found) return result;
    return ReadConflictMarker(inRepo, entry.mOid, outMarker) ? ReadResult::Found : ReadResult::Failed;
}

bool ReadConflictMarker(const RepoPtr& inRepo, const Oid& inBlob, dto::ConflictMarker& outMarker)
{
    const git::BlobPtr blob = git::GetBlob(inRepo, inBlob);
    dto::ConflictMarker marker;
    if (!blob || !dto::FromJSON(blob->Content(), marker)) {
        LogError("GitBox", "Unable to read conflict marker", {{"path", inRepo->Path()}, {"blob", inBlob.Text()}});
        return false;
    }
    outMarker = std::move(marker);
    return true;
}

bool ReadAllConflicts(const RepoPtr& inRepo, const TreePtr& inTree, ConflictMarkers& outMarkers)
{
    ConflictMarkers markers;
    dto::ConflictMarker session;
    const ReadResult result = ReadConflictMarker(inRepo, inTree, kSessionMarkerPath, session);
    if (result == ReadResult::Failed) return false;
    if (result == ReadResult::Found) markers.mSession = std::move(session);
    if (!ReadMarkers(inRepo, inTree, "assets", markers.mAssets) ||
        !ReadMarkers(inRepo, inTree, "enclosures", markers.mProductionEnclosures))
        return false;
    outMarkers = std::move(markers);
    return true;
}

bool WriteAllConflicts(const RepoPtr& inRepo, const TreePtr& inTree, const ConflictMarkers& inMarkers,
                       const ClearedConflicts& inCleared, bool inKeepBackup, std::string_view inMessage,
                       CommitPtr& outCommit)
{
    const TreeBuilderNodePtr root = git::ConstructRootTreeBuilderNode(inRepo, inTree);
    std::string leaf;
    const TreeBuilderNodePtr conflict = git::ConstructSubTreeBuilderNodeForPath(inRepo, root, "conflict/", leaf);
    if (!conflict) return false;
    conflict->Clear();
    const MarkerWriter writer(inRepo, root);
    const bool hasSession = inMarkers.mSession && !inMarkers.mSession->mBaseCommitID.empty();
    if (hasSession && !writer.Set(std::string(kSessionMarkerPath), *inMarkers.mSession)) return false;
    if (!writer.SetAll("assets", inMarkers.mAssets, "Unable to write asset conflict", "assetID") ||
        !writer.SetAll("enclosures", inMarkers.mProductionEnclosures, "Unable to write production enclosure conflict",
                       "enclosureID"))
        return false;
    for (const ImmutableString& id : inCleared.mAssets)
        writer.Remove(MarkerPath("assets", id));
    for (const ImmutableString& id : inCleared.mProductionEnclosures)
        writer.Remove(MarkerPath("enclosures", id));
    if (inCleared.mSession) writer.Remove(std::string(kSessionMarkerPath));
    const CommitPtr commit = CommitBranchTreeBuilderNode(inRepo, kBranch_Session, root, inMessage,
                                                         inKeepBackup ? kBranch_SessionBackup : std::string_view());
    if (!commit) return false;
    outCommit = commit;
    return true;
}

bool AuditConflictMarkers(const RepoPtr& inRepo, bool inKeepBackup, CommitPtr& outCommit)
{
    outCommit = nullptr;
    const CommitPtr head =
        git::GetCommitForBranch(inRepo, kBranch_Session, inKeepBackup ? kBranch_SessionBackup : std::string_view());
    const TreePtr tree = head ? git::GetTreeAtCommit(inRepo, head) : nullptr;
    ConflictMarkers markers;
    if (!tree || !ReadAllConflicts(inRepo, tree, markers)) return false;
    ClearedConflicts cleared;
    if (!TakeStale(inRepo, tree, "assets", {}, markers.mAssets, cleared.mAssets) ||
        !TakeStale(inRepo, tree, "enclosures", "content", markers.mProductionEnclosures, cleared.mProductionEnclosures))
        return false;
    if (cleared.mAssets.empty() && cleared.mProductionEnclosures.empty()) return true;
    return WriteAllConflicts(inRepo, tree, markers, cleared, inKeepBackup, "AuditConflictMarkers", outCommit);
}

}  // namespace VantryLocalHub::GitBox::IO

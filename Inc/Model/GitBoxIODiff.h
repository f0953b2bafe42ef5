#pragma once

#include <map>
#include <optional>
#include <set>

#include "Inc/Model/GitBoxIO.h"

/// What changed between two revisions, and the marks of what is in conflict.
///
/// Costs follow what differs: trees are compared by id at every level, so one changed asset among many costs the walk
/// of one fan-out folder. Threading and locks as in GitBoxIO.h.
namespace VantryLocalHub::GitBox::IO {

/// The commits between which differences are told. `to`: a commit id or name, empty for the head of `session`. `from`:
/// the same, but what is neither falls to the first commit of `session`.
ReadResult ResolveDifferenceEnds(const RepoPtr& inRepo, std::string_view inFrom, std::string_view inTo,
                                 CommitPtr& outFrom, CommitPtr& outTo);

/// Assets, production enclosures, session properties and markers that differ. Conflicts are the markers that stand at
/// `to` and not so at `from`, told when both sides have markers. With inOutgoingOnly, only what the history of `to`
/// changed itself: things that never were in it as `from` has them are left out.
bool ReadSessionDifferences(const RepoPtr& inRepo, std::string_view inFrom, std::string_view inTo, bool inOutgoingOnly,
                            SessionDifferences& outDifferences);

struct HistoryOID
{
    Oid mCommit;
    Oid mTree;
};
/// From a commit along first parents to the one whose commit or tree id is the stop's, both included; else to the
/// root, which is logged. Empty when an id is none.
std::vector<HistoryOID> GetHistoryOIDs(const RepoPtr& inRepo, std::string_view inFrom, std::string_view inTo);

/// All markers of a tree.
struct ConflictMarkers
{
    std::optional<dto::ConflictMarker> mSession;
    std::map<ImmutableString, dto::ConflictMarker> mAssets;
    std::map<ImmutableString, dto::ConflictMarker> mProductionEnclosures;
};
bool ReadAllConflicts(const RepoPtr& inRepo, const TreePtr& inTree, ConflictMarkers& outMarkers);
/// The marker at a path of the tree (kSessionMarkerPath, or what MarkerPath gives).
ReadResult ReadConflictMarker(const RepoPtr& inRepo, const TreePtr& inTree, std::string_view inPath,
                              dto::ConflictMarker& outMarker);
bool ReadConflictMarker(const RepoPtr& inRepo, const Oid& inBlob, dto::ConflictMarker& outMarker);

/// What a commit of markers takes away, beside all that it does not name.
struct ClearedConflicts
{
    std::set<ImmutableString> mAssets;
    std::set<ImmutableString> mProductionEnclosures;
    bool mSession = false;
};
/// Commits the tree with these markers, and no others, on `session`.
bool WriteAllConflicts(const RepoPtr& inRepo, const TreePtr& inTree, const ConflictMarkers& inMarkers,
                       const ClearedConflicts& inCleared, bool inKeepBackup, std::string_view inMessage,
                       CommitPtr& outCommit);
/// Takes away the markers of what is gone from the head, or has the other side's content by now. outCommit stays null
/// when there was none.
bool AuditConflictMarkers(const RepoPtr& inRepo, bool inKeepBackup, CommitPtr& outCommit);

}  // namespace VantryLocalHub::GitBox::IO

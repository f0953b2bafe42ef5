#pragma once

#include <cstdint>
#include <memory>
#include <tuple>

#include "Inc/Sync/SyncBox.h"
#include "Platform/noxcore/ExpiringEntryMap.h"

namespace VantryLocalHub {

class ProjectBox;

/// Tells what differs between two revisions of a session. The same range is asked for in quick succession by clients
/// and by what moves changes, so what was found is kept for two hours and shared: revisions do not change, as long as
/// the session's history is not replaced by another. What could not be found is not kept; of many large lists the
/// oldest are let go earlier.
///
/// Between revisions that the local history does not hold, differences need the remote side: 501.
/// Threading: any thread. Locks: the cache's own alone; the store is read with none held, so two callers of one range
/// may both read it.
class Differentiator : public virtual SyncBox
{
public:
    Differentiator();

    /// A revision may be a name: what it stands for now counts. An empty left side is the session's first commit, an
    /// empty right side its head. 404: no such session.
    void GetDifferences(const ImmutableString& inSessionID, const ImmutableString& inFromRevision,
                        const ImmutableString& inToRevision, DifferencesCompletion inCompletion) override;
    /// Does nothing for a revision that is a name.
    void CacheDifferences(const ImmutableString& inSessionID, const ImmutableString& inFromRevision,
                          const ImmutableString& inToRevision, const dto::DifferencesResource& inDifferences) override;

    /// Readies a list that another side made: sorts it, and gives what is in conflict in it the content id of what is
    /// here at the head; none where nothing is.
    static void PostProcessDifferences(ProjectBox& inBox, const ImmutableString& inSessionID,
                                       dto::DifferenceLists& ioDifferences);

private:
    using Resource = const dto::DifferencesResource;
    using ResourcePtr = std::shared_ptr<Resource>;
    /// Session, generation of its history, from, to.
    using Range = std::tuple<ImmutableString, std::uint64_t, ImmutableString, ImmutableString>;
    using Cache = noxcore::utility::ExpiringEntryMap<Range, Resource>;

    int FindOrLoad(Range inRange, ResourcePtr& outDifferences);
    int ResolveRange(ProjectBox& inBox, Range& ioRange);
    ImmutableString ResolveRevision(const dto::Session& inSession, const ImmutableString& inRevision);
    int LoadLocal(ProjectBox& inBox, const Range& inRange, ResourcePtr& outDifferences);
    void CacheDifferencesOrWarn(const Range& inRange, const ResourcePtr& inDifferences);

    const std::shared_ptr<Cache> mCache;  ///< range between commits -> what differs
};

}  // namespace VantryLocalHub
